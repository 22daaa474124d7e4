#pragma once
// BaseContainer: an id-keyed bag of typed values, every node's parameters.
// Getters take an id and a default; ids keep their insertion order.
#include <memory>
#include <utility>
#include <vector>

#include "host/scene/gedata.h"

namespace zta {

class BaseContainer {
 public:
  BaseContainer() = default;
  explicit BaseContainer(Int32 id) : id_(id) {}

  Int32 GetId() const { return id_; }
  void SetId(Int32 id) { id_ = id; }

  Int32 GetInt32(Int32 id, Int32 def = 0) const;
  Int64 GetInt64(Int32 id, Int64 def = 0) const;
  bool GetBool(Int32 id, bool def = false) const;
  Float GetFloat(Int32 id, Float def = 0.0) const;
  Vector GetVector(Int32 id, const Vector& def = Vector()) const;
  Matrix GetMatrix(Int32 id, const Matrix& def = Matrix()) const;
  String GetString(Int32 id, const String& def = String()) const;
  BaseTime GetTime(Int32 id, const BaseTime& def = BaseTime()) const;
  // The linked node, resolved in `doc`; null when absent, gone or not of `instanceOf`.
  BaseList2D* GetLink(Int32 id, const BaseDocument* doc, Int32 instanceOf = 0) const;
  // The value under `id`, or null.
  const GeData* GetDataPointer(Int32 id) const;
  // A copy of the value under `id`, empty when absent.
  GeData GetData(Int32 id) const;
  // The custom value under `id` when it is of `customTypeId`, else null.
  const CustomDataType* GetCustomData(Int32 id, Int32 customTypeId) const;
  std::shared_ptr<const CustomDataType> GetCustomDataShared(Int32 id, Int32 customTypeId) const;
  template <typename T>
  std::shared_ptr<const T> GetCustomDataTyped(Int32 id) const {
    return std::static_pointer_cast<const T>(GetCustomDataShared(id, T::kCustomTypeId));
  }
  // A custom value edited in place (an item tree) under `id`, or null. Edits
  // do not move this container's counter; the value tells its owner.
  CustomDataType* GetCustomDataWritable(Int32 id, Int32 customTypeId);
  template <typename T>
  T* GetCustomDataWritableTyped(Int32 id) {
    return static_cast<T*>(GetCustomDataWritable(id, T::kCustomTypeId));
  }
  // The nested container under `id`, editable in place, or null. Edits in
  // place do not move this container's counter; mark the node dirty.
  BaseContainer* GetContainerInstance(Int32 id);
  const BaseContainer* GetContainerInstance(Int32 id) const;
  // A copy of the nested container, empty when absent.
  BaseContainer GetContainer(Int32 id) const;

  void SetInt32(Int32 id, Int32 v) { SetData(id, GeData(v)); }
  void SetInt64(Int32 id, Int64 v) { SetData(id, GeData(v)); }
  void SetBool(Int32 id, bool v) { SetData(id, GeData(v)); }
  void SetFloat(Int32 id, Float v) { SetData(id, GeData(v)); }
  void SetVector(Int32 id, const Vector& v) { SetData(id, GeData(v)); }
  void SetMatrix(Int32 id, const Matrix& v) { SetData(id, GeData(v)); }
  void SetString(Int32 id, const String& v) { SetData(id, GeData(v)); }
  void SetTime(Int32 id, const BaseTime& v) { SetData(id, GeData(v)); }
  // A null node stores an empty link.
  void SetLink(Int32 id, const BaseList2D* node) { SetData(id, GeData(BaseLink(node))); }
  void SetContainer(Int32 id, const BaseContainer& bc) { SetData(id, GeData(bc)); }
  void SetCustomData(Int32 id, std::shared_ptr<const CustomDataType> data) { SetData(id, GeData(std::move(data))); }
  // Storing an equal value changes nothing and does not count.
  void SetData(Int32 id, GeData data);
  bool RemoveData(Int32 id);
  void FlushAll();

  // Clones the whole container into `dest`, replacing what it held.
  void CopyTo(BaseContainer* dest) const;
  // Adds or replaces the values of `src`.
  void MergeContainer(const BaseContainer& src);

  Int32 GetCount() const { return Int32(entries_.size()); }
  // The id of the n-th entry, or -1 past the end.
  Int32 GetIndexId(Int32 n) const;
  // Counts every change; nodes add it to their data dirty counter.
  UInt32 GetDirty() const { return dirty_; }

  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }
  // Same id and same values in the same order.
  bool operator==(const BaseContainer& o) const;
  bool operator!=(const BaseContainer& o) const { return !(*this == o); }

 private:
  friend class HyperFile;
  GeData* Find(Int32 id);
  const GeData* Find(Int32 id) const;

  Int32 id_ = 0;
  UInt32 dirty_ = 0;
  std::vector<std::pair<Int32, GeData>> entries_;
};

}  // namespace zta
