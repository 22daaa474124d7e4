#include "host/scene/checklist.h"

namespace zta {

String CheckListData::GetName(Int32 index) const {
  return index >= 0 && index < GetCount() ? entries_[size_t(index)].name : String();
}

bool CheckListData::IsChecked(Int32 index) const { return index >= 0 && index < GetCount() && entries_[size_t(index)].checked; }

bool CheckListData::SetChecked(Int32 index, bool checked) {
  if (index < 0 || index >= GetCount()) return false;
  entries_[size_t(index)].checked = checked;
  return true;
}

void CheckListData::SetEntries(const std::vector<String>& names) {
  std::vector<Entry> next;
  next.reserve(names.size());
  for (const String& name : names) {
    bool checked = true;
    for (const Entry& e : entries_)
      if (e.name == name) checked = e.checked;
    next.push_back({name, checked});
  }
  entries_ = std::move(next);
}

bool CheckListData::IsEqual(const CustomDataType& other) const {
  const auto* o = dynamic_cast<const CheckListData*>(&other);
  return o && o->entries_ == entries_;
}

}  // namespace zta
