#include "modules/volumes/source/objects/objectcollection.h"

#include <utility>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/nodedata.h"
#include "modules/volumes/source/objects/volumeobject.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kCollectFlags =
    zta::HIERARCHYCLONEFLAGS_ASPOLY | zta::HIERARCHYCLONEFLAGS_ASSPLINE | zta::HIERARCHYCLONEFLAGS_ASVOLUME;
// Deformers that the host evaluates by themselves in a deform cache.
constexpr zta::Int32 kSkippedDeformerA = 5695;
constexpr zta::Int32 kSkippedDeformerB = 1026371;

std::unique_ptr<zta::BaseObject> NewNull() { return zta::AllocObject(zta::HOST_TYPE_NULL); }

std::unique_ptr<zta::BaseObject> CloneAlone(const zta::BaseObject* op) {
  std::unique_ptr<zta::BaseList2D> c = op->GetClone(zta::COPYFLAGS_NO_HIERARCHY);
  return std::unique_ptr<zta::BaseObject>(static_cast<zta::BaseObject*>(c.release()));
}

}  // namespace

zta::Result<std::unique_ptr<zta::BaseObject>> ObjectCollection::CopyCurrentState(const zta::BaseObject* op) {
  // Stand-in when the host gives no clone: generators by their cache,
  // deformed objects by their deform cache, others as they are.
  std::unique_ptr<zta::BaseObject> made;
  const zta::BaseObject* deformed = op->GetDeformCache();
  const bool generator = (op->GetInfo() & zta::OBJECT_GENERATOR) != 0 && op->GetCache();
  if (deformed && op->GetType() != kSkippedDeformerA && op->GetType() != kSkippedDeformerB) {
    made = CloneAlone(deformed);
  } else if (generator) {
    std::unique_ptr<zta::BaseList2D> c = op->GetCache()->GetClone();
    made.reset(static_cast<zta::BaseObject*>(c.release()));
  } else {
    made = CloneAlone(op);
  }
  if (!made) made = NewNull();
  if (!made) return zta::OutOfMemoryError("out of memory collecting an input");
  made->SetMl(op->GetMl());
  if (!generator || !(op->GetInfo() & zta::OBJECT_INPUT)) {
    for (const zta::BaseObject* c = op->GetDown(); c; c = c->GetNext()) {
      if (!seen_.insert(c).second) continue;
      auto child = CopyCurrentState(c);
      if (!child) return child.GetError();
      child->release()->InsertUnderLast(made.get());
    }
  }
  return made;
}

zta::Result<void> ObjectCollection::Collect(zta::BaseDocument* document, zta::BaseObject* object, bool useClone,
                                            const zta::HierarchyHelp* hh, bool* dirty) {
  polygons_.reset();
  splines_.reset();
  volumes_.reset();
  seen_.clear();
  object_ = object;
  document_ = document;
  if (!object) return zta::IllegalArgumentError("no object to collect");
  std::unique_ptr<zta::BaseObject> root;
  if (useClone && hh) root = zta::GetHierarchyClone(hh, object, kCollectFlags, dirty);
  if (!root) {
    seen_.insert(object);
    auto copied = CopyCurrentState(object);
    if (!copied) return copied.GetError();
    root = std::move(*copied);
  }
  root->SetMl(object->GetMg());
  return Split(std::move(root));
}

zta::Result<void> ObjectCollection::Split(std::unique_ptr<zta::BaseObject> root) {
  polygons_ = NewNull();
  splines_ = NewNull();
  volumes_ = NewNull();
  if (!polygons_ || !splines_ || !volumes_) return zta::OutOfMemoryError("Not Enough trees");
  // (node, its parent's global matrix); nodes are detached as they are met.
  std::vector<std::pair<std::unique_ptr<zta::BaseObject>, zta::Matrix>> stack;
  stack.emplace_back(std::move(root), zta::Matrix());
  while (!stack.empty()) {
    auto [node, upMg] = std::move(stack.back());
    stack.pop_back();
    const zta::Matrix mg = upMg * node->GetMl();
    while (zta::BaseObject* child = node->GetDown()) {
      std::unique_ptr<zta::GeListNode> taken = child->Remove();
      taken.release();
      stack.emplace_back(std::unique_ptr<zta::BaseObject>(child), mg);
    }
    node->SetMl(mg);
    zta::BaseObject* target = polygons_.get();
    const zta::Int32 type = node->GetType();
    if (type == ID_VOLUMEOBJECT)
      target = volumes_.get();
    else if (type == zta::HOST_TYPE_SPLINE || type == zta::HOST_TYPE_LINE)
      target = splines_.get();
    else if (type == zta::HOST_TYPE_NULL)
      continue;  // the hierarchy's Nulls have done their part: their matrices
    node.release()->InsertUnderLast(target);
  }
  return zta::OK();
}

}  // namespace zelmar
