#include "host/scene/basecontainer.h"

namespace zta {

GeData* BaseContainer::Find(Int32 id) {
  for (auto& e : entries_)
    if (e.first == id) return &e.second;
  return nullptr;
}

const GeData* BaseContainer::Find(Int32 id) const {
  for (const auto& e : entries_)
    if (e.first == id) return &e.second;
  return nullptr;
}

Int32 BaseContainer::GetInt32(Int32 id, Int32 def) const {
  const GeData* d = Find(id);
  return d ? d->GetInt32(def) : def;
}

Int64 BaseContainer::GetInt64(Int32 id, Int64 def) const {
  const GeData* d = Find(id);
  return d ? d->GetInt64(def) : def;
}

bool BaseContainer::GetBool(Int32 id, bool def) const {
  const GeData* d = Find(id);
  return d ? d->GetBool(def) : def;
}

Float BaseContainer::GetFloat(Int32 id, Float def) const {
  const GeData* d = Find(id);
  return d ? d->GetFloat(def) : def;
}

Vector BaseContainer::GetVector(Int32 id, const Vector& def) const {
  const GeData* d = Find(id);
  return d ? d->GetVector(def) : def;
}

Matrix BaseContainer::GetMatrix(Int32 id, const Matrix& def) const {
  const GeData* d = Find(id);
  return d ? d->GetMatrix(def) : def;
}

String BaseContainer::GetString(Int32 id, const String& def) const {
  const GeData* d = Find(id);
  return d ? d->GetString(def) : def;
}

BaseTime BaseContainer::GetTime(Int32 id, const BaseTime& def) const {
  const GeData* d = Find(id);
  return d ? d->GetTime(def) : def;
}

BaseList2D* BaseContainer::GetLink(Int32 id, const BaseDocument* doc, Int32 instanceOf) const {
  const GeData* d = Find(id);
  return d ? d->GetLink(doc, instanceOf) : nullptr;
}

const GeData* BaseContainer::GetDataPointer(Int32 id) const { return Find(id); }

GeData BaseContainer::GetData(Int32 id) const {
  const GeData* d = Find(id);
  return d ? *d : GeData();
}

const CustomDataType* BaseContainer::GetCustomData(Int32 id, Int32 customTypeId) const {
  const GeData* d = Find(id);
  return d ? d->GetCustomData(customTypeId) : nullptr;
}

std::shared_ptr<const CustomDataType> BaseContainer::GetCustomDataShared(Int32 id, Int32 customTypeId) const {
  const GeData* d = Find(id);
  return d ? d->GetCustomDataShared(customTypeId) : nullptr;
}

CustomDataType* BaseContainer::GetCustomDataWritable(Int32 id, Int32 customTypeId) {
  GeData* d = Find(id);
  return d ? d->GetCustomDataWritable(customTypeId) : nullptr;
}

BaseContainer* BaseContainer::GetContainerInstance(Int32 id) {
  // Asking is not changing: the counter would otherwise move on every read
  // of a scan. Edits in place are counted by the nested container only.
  GeData* d = Find(id);
  return d ? d->GetContainerWritable() : nullptr;
}

const BaseContainer* BaseContainer::GetContainerInstance(Int32 id) const {
  const GeData* d = Find(id);
  return d ? d->GetContainer() : nullptr;
}

BaseContainer BaseContainer::GetContainer(Int32 id) const {
  const BaseContainer* bc = GetContainerInstance(id);
  return bc ? *bc : BaseContainer();
}

void BaseContainer::SetData(Int32 id, GeData data) {
  if (GeData* d = Find(id)) {
    // Storing the value already held is no change: counters move only when
    // something did, so that an unchanged scene evaluates nothing.
    if (*d == data) return;
    *d = std::move(data);
  } else {
    entries_.emplace_back(id, std::move(data));
  }
  ++dirty_;
}

bool BaseContainer::RemoveData(Int32 id) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->first == id) {
      entries_.erase(it);
      ++dirty_;
      return true;
    }
  }
  return false;
}

void BaseContainer::FlushAll() {
  if (!entries_.empty()) ++dirty_;
  entries_.clear();
}

void BaseContainer::CopyTo(BaseContainer* dest) const {
  if (!dest || dest == this) return;
  dest->id_ = id_;
  dest->entries_ = entries_;
  ++dest->dirty_;
}

void BaseContainer::MergeContainer(const BaseContainer& src) {
  if (&src == this) return;
  for (const auto& e : src.entries_) SetData(e.first, e.second);
}

Int32 BaseContainer::GetIndexId(Int32 n) const {
  return n >= 0 && n < GetCount() ? entries_[size_t(n)].first : -1;
}

bool BaseContainer::operator==(const BaseContainer& o) const {
  if (id_ != o.id_ || entries_.size() != o.entries_.size()) return false;
  for (size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i].first != o.entries_[i].first || entries_[i].second != o.entries_[i].second) return false;
  return true;
}

}  // namespace zta
