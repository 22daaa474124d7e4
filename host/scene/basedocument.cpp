#include "host/scene/basedocument.h"

#include <algorithm>
#include <mutex>
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
    return AllocWithData(id, info->alloc());
  }
  static std::unique_ptr<SceneHookNode> AllocWithData(Int32 id, std::unique_ptr<NodeData> data) {
    std::unique_ptr<SceneHookNode> node(new (std::nothrow) SceneHookNode(id));
    if (!node || (data && !node->AttachNodeData(std::move(data)))) return nullptr;
    return node;
  }

 protected:
  explicit SceneHookNode(Int32 id) : BaseList2D(id) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(GetType()); }
};

// Objects (or the nodes of a plug-in branch), their tags, their branches and
// their caches, depth first without recursion.
template <typename F>
bool WalkNodes(GeListHead* head, bool caches, F&& visit) {
  std::vector<BaseList2D*> stack;
  if (head->GetFirst()) stack.push_back(static_cast<BaseList2D*>(head->GetFirst()));
  BranchInfo branches[8];
  while (!stack.empty()) {
    BaseList2D* node = stack.back();
    stack.pop_back();
    if (visit(node)) return true;
    auto* op = dynamic_cast<BaseObject*>(node);
    if (op)
      for (BaseTag* t = op->GetFirstTag(); t; t = t->GetNext())
        if (visit(static_cast<BaseList2D*>(t))) return true;
    // Only nodes of a tree have siblings; a cache stands alone.
    if (node->GetNext() && (node->GetUp() || node->GetListHead())) stack.push_back(static_cast<BaseList2D*>(node->GetNext()));
    if (NodeData* data = node->GetNodeData()) {
      const Int32 n = std::min<Int32>(data->ListBranches(node, branches, 8, 0), 8);
      for (Int32 i = n; i-- > 0;)
        if (branches[i].head && branches[i].head->GetFirst())
          stack.push_back(static_cast<BaseList2D*>(branches[i].head->GetFirst()));
    }
    if (op && caches) {
      if (op->GetDeformCache()) stack.push_back(op->GetDeformCache());
      if (op->GetCache()) stack.push_back(op->GetCache());
    }
    if (node->GetDown()) stack.push_back(static_cast<BaseList2D*>(node->GetDown()));
  }
  return false;
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

void BaseDocument::ForEachNode(const std::function<bool(BaseList2D*)>& visit, bool caches) const {
  if (WalkNodes(const_cast<GeListHead*>(&objects_), caches, visit)) return;
  WalkNodes(const_cast<GeListHead*>(&hooks_), caches, visit);
}

BaseList2D* BaseDocument::FindByMarker(UInt64 marker) const {
  if (marker == 0) return nullptr;
  if (marker == GetMarker()) return const_cast<BaseDocument*>(this);
  auto lookup = [&]() -> BaseList2D* {
    auto it = markerIndex_.find(marker);
    if (it == markerIndex_.end()) return nullptr;
    auto anchor = it->second.lock();
    BaseList2D* node = anchor ? anchor->node : nullptr;
    return node && node->GetMarker() == marker && node->GetDocument() == this ? node : nullptr;
  };
  const UInt64 stamp = GetTreeStamp();
  {
    std::shared_lock<std::shared_mutex> lock(markerMutex_);
    if (BaseList2D* node = lookup()) return node;
    // Nothing moved since the index was made: the marker is not here.
    if (markerStamp_ == stamp) return nullptr;
  }
  std::unique_lock<std::shared_mutex> lock(markerMutex_);
  if (markerStamp_ != stamp) {
    markerIndex_.clear();
    ForEachNode([&](BaseList2D* n) {
      markerIndex_.emplace(n->GetMarker(), n->GetAnchor());
      return false;
    });
    markerStamp_ = stamp;
  }
  return lookup();
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

BaseList2D* BaseDocument::InsertSceneHook(Int32 id, std::unique_ptr<NodeData> data) {
  auto node = SceneHookNode::AllocWithData(id, std::move(data));
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
