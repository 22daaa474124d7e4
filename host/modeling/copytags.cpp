#include "host/modeling/copytags.h"

#include <algorithm>

namespace zta {

namespace {
bool Takes(Int32 choice, bool has) { return choice == COPYTAGS_ANY || (choice == COPYTAGS_WITH) == has; }
}  // namespace

bool CopyTagsTo(const BaseObject* source, BaseObject* dest, Int32 visible, Int32 variable,
                const std::vector<Int32>& skipTypes, AliasTrans* trans) {
  if (!source || !dest) return false;
  // All copies are made first, so that a failure leaves `dest` as it was.
  std::vector<std::unique_ptr<BaseTag>> copies;
  for (const BaseTag* t = source->GetFirstTag(); t; t = t->GetNext()) {
    if (std::find(skipTypes.begin(), skipTypes.end(), t->GetType()) != skipTypes.end()) continue;
    if (!Takes(visible, t->GetInfo() & TAG_VISIBLE) || !Takes(variable, dynamic_cast<const VariableTag*>(t) != nullptr))
      continue;
    auto copy = t->GetClone(COPYFLAGS_NONE, trans);
    if (!copy) return false;
    copies.emplace_back(static_cast<BaseTag*>(copy.release()));
  }
  for (auto& copy : copies) {
    if (!(copy->GetInfo() & TAG_MULTIPLE))
      if (BaseTag* own = dest->GetTag(copy->GetType())) GeListNode::Free(own);
    BaseTag* last = dest->GetFirstTag();
    while (last && last->GetNext()) last = last->GetNext();
    dest->InsertTag(copy.release(), last);
  }
  return true;
}

}  // namespace zta
