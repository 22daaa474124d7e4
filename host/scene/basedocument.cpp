#include "host/scene/basedocument.h"

#include <new>

#include "host/scene/nodedata.h"
#include "host/scene/plugins.h"

namespace zta {

namespace {
// The node of a scene hook: a plain node run by the hook's plug-in.
class SceneHookNode : public BaseList2D {
 public:
  static std::unique_ptr<SceneHookNode> Alloc(Int32 id) {
    const PluginInfo* info = FindPlugin(id);
    if (!info || info->type != PLUGINTYPE::SCENEHOOK || !info->alloc) return nullptr;
    std::unique_ptr<SceneHookNode> node(new (std::nothrow) SceneHookNode(id));
    if (!node || !node->AttachNodeData(info->alloc())) return nullptr;
    return node;
  }

 protected:
  explicit SceneHookNode(Int32 id) : BaseList2D(id) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(GetType()); }
};

// Objects, their tags and their caches, depth first.
template <typename F>
void WalkObjects(GeListHead* head, F&& visit) {
  std::vector<BaseObject*> stack;
  if (head->GetFirst()) stack.push_back(static_cast<BaseObject*>(head->GetFirst()));
  while (!stack.empty()) {
    BaseObject* op = stack.back();
    stack.pop_back();
    if (visit(static_cast<BaseList2D*>(op))) return;
    for (BaseTag* t = op->GetFirstTag(); t; t = t->GetNext())
      if (visit(static_cast<BaseList2D*>(t))) return;
    if (op->GetNext() && (op->GetUp() || op->GetListHead() == head)) stack.push_back(op->GetNext());
    if (op->GetDeformCache()) stack.push_back(op->GetDeformCache());
    if (op->GetCache()) stack.push_back(op->GetCache());
    if (op->GetDown()) stack.push_back(op->GetDown());
  }
}
}  // namespace

BaseDocument::BaseDocument() : BaseList2D(HOST_TYPE_DOCUMENT), undo_(std::make_unique<UndoBuffer>(this)) {
  objects_.SetDocument(this);
  hooks_.SetDocument(this);
}

BaseDocument::~BaseDocument() {
  undo_.reset();
  objects_.FlushAll();
  hooks_.FlushAll();
}

std::unique_ptr<BaseDocument> BaseDocument::Alloc() {
  return std::unique_ptr<BaseDocument>(new (std::nothrow) BaseDocument());
}

std::unique_ptr<BaseList2D> BaseDocument::AllocSame() const { return Alloc(); }

void BaseDocument::InsertObject(BaseObject* op, BaseObject* parent, BaseObject* pred) {
  if (!op) return;
  if (pred && pred->GetDocument() == this && op->InsertAfter(pred)) return;
  if (parent && parent->GetDocument() == this) op->InsertUnder(parent);
  else op->InsertUnder(&objects_);
  SetDirty(DIRTYFLAGS_CHILDREN);
}

BaseObject* BaseDocument::SearchObject(const String& name) const {
  BaseObject* found = nullptr;
  WalkTree(const_cast<GeListHead*>(&objects_), [&](GeListNode* n) {
    if (!found && n != &objects_ && static_cast<BaseObject*>(n)->GetName() == name) found = static_cast<BaseObject*>(n);
  });
  return found;
}

BaseList2D* BaseDocument::FindByMarker(UInt64 marker) const {
  if (marker == 0) return nullptr;
  if (marker == GetMarker()) return const_cast<BaseDocument*>(this);
  BaseList2D* found = nullptr;
  WalkObjects(const_cast<GeListHead*>(&objects_), [&](BaseList2D* n) {
    if (n->GetMarker() == marker) found = n;
    return found != nullptr;
  });
  for (GeListNode* h = hooks_.GetFirst(); h && !found; h = h->GetNext())
    if (static_cast<BaseList2D*>(h)->GetMarker() == marker) found = static_cast<BaseList2D*>(h);
  return found;
}

void BaseDocument::SetTime(const BaseTime& t) {
  time_ = t;
  SetDirty(DIRTYFLAGS_DATA);
}

bool BaseDocument::SetFps(Int32 fps) {
  if (fps < 1) return false;
  fps_ = fps;
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool BaseDocument::SetTimeRange(const BaseTime& min, const BaseTime& max) {
  if (max < min) return false;
  minTime_ = min;
  maxTime_ = max;
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

BaseObject* BaseDocument::GetActiveObject() const {
  return static_cast<BaseObject*>(active_.GetLink(this, HOST_TYPE_OBJECT));
}

void BaseDocument::SetActiveObject(BaseObject* op, Int32 mode) {
  if (op && op->GetDocument() != this) return;
  if (mode == SELECTION_SUB) {
    if (!op) return;
    op->DelBit(BIT_ACTIVE);
    if (GetActiveObject() == op) {
      const std::vector<BaseObject*> rest = GetActiveObjects(GETACTIVEOBJECTFLAGS_CHILDREN);
      active_.SetLink(rest.empty() ? nullptr : rest.back());
    }
    SetDirty(DIRTYFLAGS_SELECT);
    return;
  }
  if (mode == SELECTION_NEW)
    for (BaseObject* sel : GetActiveObjects(GETACTIVEOBJECTFLAGS_CHILDREN)) sel->DelBit(BIT_ACTIVE);
  active_.SetLink(op);
  if (op) op->SetBit(BIT_ACTIVE);
  SetDirty(DIRTYFLAGS_SELECT);
}

std::vector<BaseObject*> BaseDocument::GetActiveObjects(Int32 flags) const {
  std::vector<BaseObject*> out;
  const GeListNode* root = &objects_;
  for (GeListNode* n = objects_.GetFirst(); n;) {
    auto* op = static_cast<BaseObject*>(n);
    const bool selected = op->GetBit(BIT_ACTIVE) != 0;
    if (selected) out.push_back(op);
    // Without CHILDREN the walk passes over what lies below a selected object.
    if (selected && !(flags & GETACTIVEOBJECTFLAGS_CHILDREN)) {
      GeListNode* m = op;
      while (m && !m->GetNext()) m = m->GetUp();
      n = m ? m->GetNext() : nullptr;
    } else {
      n = n->GetNextInTree(root);
    }
  }
  return out;
}

BaseList2D* BaseDocument::FindSceneHook(Int32 id) {
  for (GeListNode* h = hooks_.GetFirst(); h; h = h->GetNext())
    if (static_cast<BaseList2D*>(h)->GetType() == id) return static_cast<BaseList2D*>(h);
  auto node = SceneHookNode::Alloc(id);
  if (!node) return nullptr;
  BaseList2D* n = node.release();
  n->InsertUnderLast(&hooks_);
  return n;
}

bool BaseDocument::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  auto* d = static_cast<BaseDocument*>(dest);
  if (!BaseList2D::CopyTo(dest, flags, trans)) return false;
  // Clones keep their markers, so links inside the copy resolve to the copies.
  for (GeListNode* n = objects_.GetFirst(); n; n = n->GetNext()) {
    auto clone = static_cast<BaseObject*>(n)->GetClone(flags | COPYFLAGS_KEEP_MARKERS, trans);
    if (!clone) return false;
    clone.release()->InsertUnderLast(&d->objects_);
  }
  d->time_ = time_;
  d->fps_ = fps_;
  d->minTime_ = minTime_;
  d->maxTime_ = maxTime_;
  d->active_ = active_;
  d->path_ = path_;
  d->docName_ = docName_;
  return true;
}

UInt32 BaseDocument::GetHDirtyBelow(UInt32 flags) const {
  UInt32 sum = 0;
  for (GeListNode* n = objects_.GetFirst(); n; n = n->GetNext()) sum += static_cast<BaseObject*>(n)->GetHDirty(flags);
  return sum;
}

// ---- undo

bool BaseDocument::StartUndo() { return undo_->Start(); }
bool BaseDocument::AddUndo(UNDOTYPE type, BaseList2D* node) { return undo_->Add(type, node); }
bool BaseDocument::EndUndo() { return undo_->End(); }
Int32 BaseDocument::GetUndoCount() const { return undo_->GetUndoCount(); }
Int32 BaseDocument::GetRedoCount() const { return undo_->GetRedoCount(); }
bool BaseDocument::DoUndo() { return undo_->Undo(); }
bool BaseDocument::DoRedo() { return undo_->Redo(); }

}  // namespace zta
