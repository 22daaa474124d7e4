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

struct BaseDocument::UndoStep {
  struct Entry {
    UNDOTYPE type;
    UInt64 marker = 0;
    std::unique_ptr<BaseList2D> snapshot;
    UInt64 parent = 0;  // object above, or the tag's object
    UInt64 pred = 0;
  };
  std::vector<Entry> entries;
};

BaseDocument::BaseDocument() : BaseList2D(HOST_TYPE_DOCUMENT) {
  objects_.SetDocument(this);
  hooks_.SetDocument(this);
}

BaseDocument::~BaseDocument() {
  openStep_.reset();
  undo_.clear();
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

void BaseDocument::SetActiveObject(BaseObject* op) {
  if (BaseObject* old = GetActiveObject()) old->DelBit(BIT_ACTIVE);
  if (op && op->GetDocument() != this) op = nullptr;
  active_.SetLink(op);
  if (op) op->SetBit(BIT_ACTIVE);
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
  if (!CloneSiblingsUnder(objects_.GetFirst(), &d->objects_, flags | COPYFLAGS_KEEP_MARKERS, trans)) return false;
  d->time_ = time_;
  d->fps_ = fps_;
  d->minTime_ = minTime_;
  d->maxTime_ = maxTime_;
  d->active_ = active_;
  d->path_ = path_;
  d->docName_ = docName_;
  d->unit_ = unit_;
  d->unitScale_ = unitScale_;
  return true;
}

UInt32 BaseDocument::GetHDirtyBelow(UInt32 flags) const {
  UInt32 sum = 0;
  for (GeListNode* n = objects_.GetFirst(); n; n = n->GetNext()) sum += static_cast<BaseObject*>(n)->GetHDirty(flags);
  return sum;
}

// ---- undo

bool BaseDocument::StartUndo() {
  if (undoDepth_++ == 0) openStep_ = std::make_unique<UndoStep>();
  return true;
}

bool BaseDocument::AddUndo(UNDOTYPE type, BaseList2D* node) {
  if (undoDepth_ == 0 || !node || node == this || node->GetDocument() != this) return false;
  UndoStep::Entry e{type, node->GetMarker(), nullptr, 0, 0};
  if (type != UNDOTYPE::NEWOBJ) {
    const Int32 flags = COPYFLAGS_KEEP_MARKERS | (type == UNDOTYPE::DELETEOBJ ? 0 : COPYFLAGS_NO_HIERARCHY);
    e.snapshot = node->GetClone(flags);
    if (!e.snapshot) return false;
  }
  if (auto* tag = dynamic_cast<BaseTag*>(node)) {
    if (tag->GetObject()) e.parent = tag->GetObject()->GetMarker();
  } else if (GeListNode* up = node->GetUp()) {
    e.parent = static_cast<BaseList2D*>(up)->GetMarker();
  }
  if (GeListNode* prev = node->GetPrev()) e.pred = static_cast<BaseList2D*>(prev)->GetMarker();
  openStep_->entries.push_back(std::move(e));
  return true;
}

bool BaseDocument::EndUndo() {
  if (undoDepth_ == 0) return false;
  if (--undoDepth_ == 0 && openStep_) {
    if (!openStep_->entries.empty()) undo_.push_back(std::move(openStep_));
    openStep_.reset();
  }
  return true;
}

Int32 BaseDocument::GetUndoCount() const { return Int32(undo_.size()); }

bool BaseDocument::DoUndo() {
  if (undo_.empty() || undoDepth_ > 0) return false;
  std::unique_ptr<UndoStep> step = std::move(undo_.back());
  undo_.pop_back();
  for (auto it = step->entries.rbegin(); it != step->entries.rend(); ++it) {
    UndoStep::Entry& e = *it;
    BaseList2D* now = FindByMarker(e.marker);
    if (e.type == UNDOTYPE::NEWOBJ) {
      GeListNode::Free(now);
      continue;
    }
    BaseList2D* snap = e.snapshot.release();
    if (now) {
      // The snapshot takes the node's place; the children stay where they are.
      while (GeListNode* c = now->GetDown()) {
        auto child = c->Remove();
        child.release()->InsertUnderLast(snap);
      }
      if (!snap->InsertAfter(now)) {
        delete snap;
        continue;
      }
      GeListNode::Free(now);
      continue;
    }
    // The node was deleted: put it back after its predecessor, else first
    // under its parent, else at the top.
    BaseList2D* pred = FindByMarker(e.pred);
    BaseList2D* parent = FindByMarker(e.parent);
    bool ok = false;
    if (auto* tag = dynamic_cast<BaseTag*>(snap)) {
      if (auto* op = dynamic_cast<BaseObject*>(parent)) {
        op->InsertTag(tag, dynamic_cast<BaseTag*>(pred));
        ok = true;
      }
    } else if (pred && snap->InsertAfter(pred)) {
      ok = true;
    } else if (parent) {
      ok = snap->InsertUnder(parent);
    } else {
      ok = snap->InsertUnder(&objects_);
    }
    if (!ok) delete snap;
  }
  SetDirty(DIRTYFLAGS_CHILDREN);
  return true;
}

}  // namespace zta
