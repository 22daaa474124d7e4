#pragma once
// BaseTag: a node attached to a BaseObject, in the object's tag list.
#include <cstddef>
#include <memory>

#include "host/scene/baselist2d.h"

namespace zta {

class BaseObject;

class BaseTag : public BaseList2D {
 public:
  // A tag of a host type (UVW, vertex map, Phong, ...) or of a registered
  // plug-in; null for an unknown type or when the plug-in refuses to start.
  static std::unique_ptr<BaseTag> Alloc(Int32 type);
  // A tag of `type` run by `data` (which may be null); null when InitNode fails.
  static std::unique_ptr<BaseTag> AllocWithData(Int32 type, std::unique_ptr<NodeData> data);

  bool IsInstanceOf(Int32 type) const override { return type == HOST_TYPE_TAG || BaseList2D::IsInstanceOf(type); }
  // The object whose tag list holds this tag, or null.
  BaseObject* GetObject() const;
  // The info bits of the tag's class (TAG_* in hosttypes.h).
  virtual Int32 GetInfo() const { return info_; }
  BaseTag* GetNext() const { return static_cast<BaseTag*>(GeListNode::GetNext()); }
  BaseTag* GetPrev() const { return static_cast<BaseTag*>(GeListNode::GetPrev()); }

 protected:
  explicit BaseTag(Int32 type) : BaseList2D(type) {}
  std::unique_ptr<BaseList2D> AllocSame() const override;

 private:
  friend std::unique_ptr<BaseTag> AllocPluginTag(Int32 type);
  Int32 info_ = 0;
};

// Frees a record block the way it was allocated, which depends on its size.
struct TagBytesFree {
  size_t size = 0;
  void operator()(unsigned char* p) const;
};

// A tag that holds one fixed-size record per point or polygon of its object.
class VariableTag : public BaseTag {
 public:
  Int32 GetDataCount() const { return count_; }
  Int32 GetDataSize() const { return elementSize_; }
  // Changes the count; new records are zero, kept records keep their values.
  // False (and unchanged) for a negative count or when memory runs out.
  bool Resize(Int32 count);
  // Exchanges the records of two tags of one record size; false otherwise.
  bool SwapData(VariableTag& other);
  // The records as bytes, GetDataCount() * GetDataSize() of them.
  const void* GetLowlevelDataAddressR() const { return Address(); }
  void* GetLowlevelDataAddressW() { return Address(); }

 protected:
  VariableTag(Int32 type, Int32 elementSize, Int32 count);
  bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const override;
  const void* Address() const { return bytes_.get(); }
  void* Address() { return bytes_.get(); }

 private:
  Int32 elementSize_;
  Int32 count_ = 0;
  using Bytes = std::unique_ptr<unsigned char, TagBytesFree>;
  static Bytes AllocZeroed(size_t size);
  Bytes bytes_;
};

}  // namespace zta
