#include "host/scene/baseobject.h"

#include <algorithm>
#include <new>

#include "host/scene/nodedata.h"
#include "host/scene/opaquenodedata.h"
#include "host/scene/plugins.h"

namespace zta {

std::unique_ptr<BaseObject> AllocPluginObject(Int32 type) {
  const PluginInfo* info = FindPlugin(type);
  if (!info || info->type != PLUGINTYPE::OBJECT || !info->alloc) return nullptr;
  std::unique_ptr<BaseObject> op(new (std::nothrow) BaseObject(type));
  if (!op) return nullptr;
  op->info_ = info->info;
  if (!op->AttachNodeData(info->alloc())) return nullptr;
  return op;
}

BaseObject::BaseObject(Int32 type) : BaseList2D(type) { tags_.SetOwner(this); }

BaseObject::~BaseObject() {
  // Tags and caches go while the object is whole, so that they can still ask
  // for their object in FreeNode.
  FreeChildren();
  tags_.FlushAll();
  cache_.reset();
  deformCache_.reset();
}

std::unique_ptr<BaseObject> BaseObject::Alloc(Int32 type) {
  if (auto op = AllocHostObject(type)) return op;
  return AllocPluginObject(type);
}

std::unique_ptr<BaseObject> BaseObject::AllocWithData(Int32 type, std::unique_ptr<NodeData> data, Int32 info) {
  std::unique_ptr<BaseObject> op(new (std::nothrow) BaseObject(type));
  if (!op) return nullptr;
  op->info_ = info;
  if (data && !op->AttachNodeData(std::move(data))) return nullptr;
  return op;
}

std::unique_ptr<BaseList2D> BaseObject::AllocSame() const {
  if (auto op = Alloc(GetType())) return op;
  // A type that nobody registered (a plug-in unloaded since) still copies as
  // a plain object, with the plug-in data a scene file kept for it.
  std::unique_ptr<NodeData> opaque;
  if (dynamic_cast<const OpaqueNodeData*>(GetNodeData())) opaque = std::make_unique<OpaqueNodeData>();
  return AllocWithData(GetType(), std::move(opaque), info_);
}

ObjectData* BaseObject::GetObjectData() const { return dynamic_cast<ObjectData*>(GetNodeData()); }

Int32 BaseObject::GetInfo() const { return info_; }

Matrix BaseObject::GetMl() const { return frozen_ * rel_; }

void BaseObject::SetMl(const Matrix& m) {
  rel_ = frozen_.GetInverse() * m;
  SetDirty(DIRTYFLAGS_MATRIX);
}

Matrix BaseObject::GetUpMg() const {
  if (const BaseObject* up = GetUp()) return up->GetMg();
  if (!GetListHead() && cacheParent_) return cacheParent_->GetMg();
  return Matrix();
}

Matrix BaseObject::GetMg() const { return GetUpMg() * GetMl(); }

void BaseObject::SetMg(const Matrix& m) { SetMl(GetUpMg().GetInverse() * m); }

void BaseObject::SetFrozenMatrix(const Matrix& m) {
  frozen_ = m;
  SetDirty(DIRTYFLAGS_MATRIX);
}

void BaseObject::SetEditorMode(Int32 mode) {
  editorMode_ = mode;
  SetDirty(DIRTYFLAGS_DATA);
}

void BaseObject::SetRenderMode(Int32 mode) {
  renderMode_ = mode;
  SetDirty(DIRTYFLAGS_DATA);
}

void BaseObject::SetDeformMode(bool on) {
  deformMode_ = on;
  SetDirty(DIRTYFLAGS_DATA);
}

BaseTag* BaseObject::GetTag(Int32 type, Int32 nr) const {
  for (BaseTag* t = GetFirstTag(); t; t = t->GetNext())
    if (t->GetType() == type && nr-- == 0) return t;
  return nullptr;
}

void BaseObject::InsertTag(BaseTag* tag, BaseTag* pred) {
  if (!tag) return;
  if (pred && pred->GetObject() == this) tag->InsertAfter(pred);
  else tag->InsertUnder(&tags_);
}

BaseTag* BaseObject::MakeTag(Int32 type) {
  auto tag = BaseTag::Alloc(type);
  if (!tag) return nullptr;
  BaseTag* t = tag.release();
  t->InsertUnderLast(&tags_);
  return t;
}

std::unique_ptr<BaseObject> BaseObject::SetCache(std::unique_ptr<BaseObject> cache) {
  std::unique_ptr<BaseObject> old = std::move(cache_);
  if (old) old->cacheParent_ = nullptr;
  cache_ = std::move(cache);
  if (cache_) cache_->cacheParent_ = this;
  TouchTreeStamp();
  SetDirty(DIRTYFLAGS_CACHE);
  return old;
}

std::unique_ptr<BaseObject> BaseObject::SetDeformCache(std::unique_ptr<BaseObject> cache) {
  std::unique_ptr<BaseObject> old = std::move(deformCache_);
  if (old) old->cacheParent_ = nullptr;
  deformCache_ = std::move(cache);
  if (deformCache_) deformCache_->cacheParent_ = this;
  TouchTreeStamp();
  SetDirty(DIRTYFLAGS_CACHE);
  return old;
}

BaseObject* BaseObject::GetCacheParent() const {
  const BaseObject* top = this;
  while (top->GetUp()) top = top->GetUp();
  return top->GetListHead() ? nullptr : top->cacheParent_;
}

bool BaseObject::GetOwnBounds(Vector& mp, Vector& rad) const { return false; }

namespace {
struct Box {
  Vector mn{1e300, 1e300, 1e300}, mx{-1e300, -1e300, -1e300};
  bool any = false;
  // The eight corners of a centre/half-size box through m.
  void AddBox(const Matrix& m, const Vector& mp, const Vector& rad) {
    for (int c = 0; c < 8; ++c) {
      const Vector corner(mp.x + ((c & 1) ? rad.x : -rad.x), mp.y + ((c & 2) ? rad.y : -rad.y),
                          mp.z + ((c & 4) ? rad.z : -rad.z));
      const Vector p = m.TransformPoint(corner);
      for (int i = 0; i < 3; ++i) {
        mn[i] = std::min(mn[i], p[i]);
        mx[i] = std::max(mx[i], p[i]);
      }
    }
    any = true;
  }
};
}  // namespace

bool BaseObject::ComputeBounds(Vector& mp, Vector& rad) const {
  mp = rad = Vector();
  if (GetOwnBounds(mp, rad)) return true;
  // A generator measures what it made (deformed, if a deformer ran), in its
  // own space: the cache's matrices are relative to the generator.
  if (const BaseObject* cache = deformCache_ ? deformCache_.get() : cache_.get()) {
    Box box;
    std::vector<std::pair<const BaseObject*, Matrix>> stack{{cache, cache->GetMl()}};
    while (!stack.empty()) {
      auto [n, m] = stack.back();
      stack.pop_back();
      Vector cmp, crad;
      if (n->ComputeBounds(cmp, crad)) box.AddBox(m, cmp, crad);
      for (const BaseObject* c = n->GetDown(); c; c = c->GetNext()) stack.emplace_back(c, m * c->GetMl());
    }
    if (box.any) {
      mp = (box.mn + box.mx) * 0.5;
      rad = (box.mx - box.mn) * 0.5;
      return true;
    }
  }
  if (ObjectData* od = GetObjectData()) {
    od->GetObjectBounds(const_cast<BaseObject*>(this), &mp, &rad);
    return true;
  }
  return false;
}

Vector BaseObject::GetMp() const {
  Vector mp, rad;
  ComputeBounds(mp, rad);
  return mp;
}

Vector BaseObject::GetRad() const {
  Vector mp, rad;
  ComputeBounds(mp, rad);
  return rad;
}

bool BaseObject::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  auto* d = static_cast<BaseObject*>(dest);
  if (!BaseList2D::CopyTo(dest, flags, trans)) return false;
  d->rel_ = rel_;
  d->frozen_ = frozen_;
  d->info_ = info_;
  d->editorMode_ = editorMode_;
  d->renderMode_ = renderMode_;
  d->deformMode_ = deformMode_;
  // The blank's own tags (its point tag, say) give way to the copies.
  d->tags_.FlushAll();
  return CloneSiblingsUnder(GetFirstTag(), &d->tags_, flags, trans);
}

UInt32 BaseObject::GetHDirtyBelow(UInt32 flags) const {
  UInt32 sum = 0;
  for (BaseTag* t = GetFirstTag(); t; t = t->GetNext()) sum += t->GetDirty(flags);
  if (cache_) sum += cache_->GetHDirty(flags);
  if (deformCache_) sum += deformCache_->GetHDirty(flags);
  return sum;
}

}  // namespace zta
