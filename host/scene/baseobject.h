#pragma once
// BaseObject: a scene object. A local matrix below a frozen matrix, a tag
// list, the on/off state in editor and render, and two cache slots that the
// evaluation pass fills: the generator cache and the deform cache.
#include <memory>

#include "host/core/math.h"
#include "host/scene/baselist2d.h"
#include "host/scene/basetag.h"
#include "host/scene/nodedata.h"

namespace zta {

class ObjectData;

namespace detail {
// What the evaluation pass keeps about an object (execution.cpp).
struct EvalRecord;
struct EvalRecordDelete {
  void operator()(EvalRecord* record) const;
};
}  // namespace detail

class BaseObject : public BaseList2D {
 public:
  ~BaseObject() override;

  // An object of a host type or of a registered plug-in, null for an unknown
  // type or when the plug-in's InitNode fails.
  static std::unique_ptr<BaseObject> Alloc(Int32 type);
  // An object of `type` run by `data` (which may be null) with the info bits
  // given; how the host makes its own generators. Null when InitNode fails.
  static std::unique_ptr<BaseObject> AllocWithData(Int32 type, std::unique_ptr<NodeData> data, Int32 info);

  bool IsInstanceOf(Int32 type) const override { return type == HOST_TYPE_OBJECT || BaseList2D::IsInstanceOf(type); }

  BaseObject* GetNext() const { return static_cast<BaseObject*>(GeListNode::GetNext()); }
  BaseObject* GetPrev() const { return static_cast<BaseObject*>(GeListNode::GetPrev()); }
  BaseObject* GetUp() const { return static_cast<BaseObject*>(GeListNode::GetUp()); }
  BaseObject* GetDown() const { return static_cast<BaseObject*>(GeListNode::GetDown()); }
  ObjectData* GetObjectData() const;

  // Local matrix, relative to the parent, the frozen matrix included.
  Matrix GetMl() const;
  void SetMl(const Matrix& m);
  // Global matrix: the parents' matrices times the local one.
  Matrix GetMg() const;
  void SetMg(const Matrix& m);
  // The parent's global matrix (identity at the top).
  Matrix GetUpMg() const;
  Matrix GetFrozenMatrix() const { return frozen_; }
  void SetFrozenMatrix(const Matrix& m);
  // The local matrix below the frozen one, as stored: what a scene file keeps.
  Matrix GetRelMl() const { return rel_; }
  void SetRelMl(const Matrix& m) {
    rel_ = m;
    SetDirty(DIRTYFLAGS_MATRIX);
  }
  // Lengths of the local axes.
  Vector GetScale() const { return GetMl().GetScale(); }

  // Bounding box in object space: centre and half-size. Point objects measure
  // their points, generators their cache, plug-ins answer GetObjectBounds.
  Vector GetMp() const;
  Vector GetRad() const;

  // The info bits of the object's class (see OBJECT_* in hosttypes.h).
  virtual Int32 GetInfo() const;
  Int32 GetEditorMode() const { return editorMode_; }
  void SetEditorMode(Int32 mode);
  Int32 GetRenderMode() const { return renderMode_; }
  void SetRenderMode(Int32 mode);
  // Whether a deformer or generator is switched on.
  bool GetDeformMode() const { return deformMode_; }
  void SetDeformMode(bool on);

  // Tags: the object owns them.
  BaseTag* GetFirstTag() const { return static_cast<BaseTag*>(tags_.GetFirst()); }
  // The first tag of `type` (the nth when nr > 0), or null.
  BaseTag* GetTag(Int32 type, Int32 nr = 0) const;
  // Inserts after `pred`, or first when pred is null. Takes ownership.
  void InsertTag(BaseTag* tag, BaseTag* pred = nullptr);
  // Allocates a tag of `type` and appends it; null on failure.
  BaseTag* MakeTag(Int32 type);
  // Tags are kept in their own list head so that tree walks of objects do not see them.
  GeListHead* GetTagListHead() { return &tags_; }

  // The generator's current output, or null. The object owns it.
  BaseObject* GetCache() const { return cache_.get(); }
  BaseObject* GetDeformCache() const { return deformCache_.get(); }
  // The evaluation pass stores what a build or a deformer produced; raises the
  // CACHE counter. Returns the previous cache.
  std::unique_ptr<BaseObject> SetCache(std::unique_ptr<BaseObject> cache);
  std::unique_ptr<BaseObject> SetDeformCache(std::unique_ptr<BaseObject> cache);
  // The object whose cache this object is part of, or null.
  BaseObject* GetCacheParent() const;

  BaseDocument* GetDocument() const override { return FindDocument(); }

  // The evaluation pass's record of this object; null until the pass needs one.
  detail::EvalRecord* GetEvalRecord() const { return eval_.get(); }
  detail::EvalRecord& MakeEvalRecord();

 protected:
  explicit BaseObject(Int32 type);
  std::unique_ptr<BaseList2D> AllocSame() const override;
  bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const override;
  UInt32 GetHDirtyBelow(UInt32 flags) const override;
  // Bounding box of the class's own data; false when it has none.
  virtual bool GetOwnBounds(Vector& mp, Vector& rad) const;
  const GeListNode* GetHolder() const override { return cacheParent_; }

 private:
  friend std::unique_ptr<BaseObject> AllocPluginObject(Int32 type);
  // False when the object has nothing to measure.
  bool ComputeBounds(Vector& mp, Vector& rad) const;

  Matrix rel_;
  Int32 info_ = 0;
  Matrix frozen_;
  Int32 editorMode_ = MODE_UNDEF;
  Int32 renderMode_ = MODE_UNDEF;
  bool deformMode_ = true;
  GeListHead tags_;
  std::unique_ptr<BaseObject> cache_;
  std::unique_ptr<BaseObject> deformCache_;
  BaseObject* cacheParent_ = nullptr;
  std::unique_ptr<detail::EvalRecord, detail::EvalRecordDelete> eval_;
};

// The objects that a host build knows by type (polygon, spline, null,
// primitives, particles, fields). Null for a type it does not know.
std::unique_ptr<BaseObject> AllocHostObject(Int32 type);
std::unique_ptr<BaseTag> AllocHostTag(Int32 type);
// The description resource of a host type ("Osphere", "Tphong", ...), or null.
const char* HostDescriptionName(Int32 type);

// BaseObject::Alloc under the name the scene code uses.
inline std::unique_ptr<BaseObject> AllocObject(Int32 type) { return BaseObject::Alloc(type); }

}  // namespace zta
