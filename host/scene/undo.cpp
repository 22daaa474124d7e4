#include "host/scene/undo.h"

#include "host/scene/basedocument.h"
#include "host/scene/documentevents.h"
#include "host/scene/nodedata.h"
#include "host/scene/nodewalk.h"

namespace zta {

namespace {

// Where a node stands: after `pred`, else first under `parent` (for a tag,
// its object), else first in branch `branch` of `owner`, else at the top of
// the document. Markers, so that the place survives the nodes being replaced.
struct Place {
  UInt64 parent = 0;
  UInt64 pred = 0;
  UInt64 owner = 0;
  Int32 branch = -1;
};

Place PlaceOf(BaseList2D* node) {
  Place p;
  if (auto* prev = static_cast<BaseList2D*>(node->GetPrev())) p.pred = prev->GetMarker();
  if (auto* tag = dynamic_cast<BaseTag*>(node)) {
    if (tag->GetObject()) p.parent = tag->GetObject()->GetMarker();
    return p;
  }
  if (auto* up = static_cast<BaseList2D*>(node->GetUp())) {
    p.parent = up->GetMarker();
    return p;
  }
  // At the top of a branch: which branch of which node.
  GeListHead* head = node->GetListHead();
  auto* owner = head ? dynamic_cast<BaseList2D*>(head->GetOwner()) : nullptr;
  if (owner && owner->GetNodeData()) {
    BranchInfo branches[8];
    const Int32 count = owner->GetNodeData()->ListBranches(owner, branches, 8, 0);
    for (Int32 i = 0; i < count && i < 8; ++i)
      if (branches[i].head == head) {
        p.owner = owner->GetMarker();
        p.branch = i;
      }
  }
  return p;
}

bool PutAt(BaseDocument* doc, BaseList2D* node, const Place& p) {
  BaseList2D* pred = FindNode(doc, p.pred);
  BaseList2D* parent = FindNode(doc, p.parent);
  if (auto* tag = dynamic_cast<BaseTag*>(node)) {
    auto* op = dynamic_cast<BaseObject*>(parent);
    if (!op) return false;
    op->InsertTag(tag, dynamic_cast<BaseTag*>(pred));
    return true;
  }
  if (pred && node->InsertAfter(pred)) return true;
  if (parent) return node->InsertUnder(parent);
  if (BaseList2D* owner = FindNode(doc, p.owner); owner && owner->GetNodeData() && p.branch >= 0) {
    BranchInfo branches[8];
    const Int32 count = owner->GetNodeData()->ListBranches(owner, branches, 8, 0);
    if (p.branch < count && branches[p.branch].head) return node->InsertUnder(branches[p.branch].head);
  }
  return node->InsertUnder(doc->GetObjectListHead());
}

std::unique_ptr<BaseList2D> Take(BaseList2D* node) {
  return std::unique_ptr<BaseList2D>(static_cast<BaseList2D*>(node->Remove().release()));
}

}  // namespace

// Applying an entry exchanges the recorded state and the document's: an entry
// undone holds what redo puts back, and the other way round.
struct UndoBuffer::Entry {
  UNDOTYPE type;
  UInt64 marker = 0;
  // A state of the node out of the document: a snapshot, or the node taken out.
  std::unique_ptr<BaseList2D> held;
  Place place;
  Matrix mg;
};

struct UndoBuffer::Step {
  std::vector<Entry> entries;
};

UndoBuffer::UndoBuffer(BaseDocument* doc) : doc_(doc) {}
UndoBuffer::~UndoBuffer() = default;

bool UndoBuffer::Start() {
  if (depth_++ == 0) open_ = std::make_unique<Step>();
  return true;
}

bool UndoBuffer::Add(UNDOTYPE type, BaseList2D* node) {
  if (depth_ == 0 || !node || node == doc_ || node->GetDocument() != doc_) return false;
  Entry e{type, node->GetMarker(), nullptr, PlaceOf(node), Matrix()};
  switch (type) {
    case UNDOTYPE::CHANGE:
    case UNDOTYPE::CHANGE_SMALL:
    case UNDOTYPE::DELETEOBJ: {
      const Int32 flags = COPYFLAGS_KEEP_MARKERS | (type == UNDOTYPE::DELETEOBJ ? 0 : COPYFLAGS_NO_HIERARCHY);
      e.held = node->GetClone(flags);
      if (!e.held) return false;
      break;
    }
    case UNDOTYPE::HIERARCHY_PSR: {
      auto* op = dynamic_cast<BaseObject*>(node);
      if (!op) return false;
      e.mg = op->GetMg();
      break;
    }
    case UNDOTYPE::NEWOBJ:
      break;
  }
  open_->entries.push_back(std::move(e));
  return true;
}

bool UndoBuffer::End() {
  if (depth_ == 0) return false;
  if (--depth_ == 0) {
    if (open_ && !open_->entries.empty()) {
      undo_.push_back(std::move(open_));
      // A new change ends what could be redone.
      redo_.clear();
    }
    open_.reset();
  }
  return true;
}

bool UndoBuffer::Apply(Entry& e) {
  BaseList2D* live = FindNode(doc_, e.marker);
  switch (e.type) {
    case UNDOTYPE::CHANGE:
    case UNDOTYPE::CHANGE_SMALL: {
      if (!live || !e.held) return false;
      BaseList2D* state = e.held.release();
      // The children stay in the document; a small change leaves the tags too.
      while (GeListNode* c = live->GetDown()) c->Remove().release()->InsertUnderLast(state);
      auto* liveOp = dynamic_cast<BaseObject*>(live);
      auto* stateOp = dynamic_cast<BaseObject*>(state);
      if (e.type == UNDOTYPE::CHANGE_SMALL && liveOp && stateOp) {
        stateOp->GetTagListHead()->FlushAll();
        while (BaseTag* t = liveOp->GetFirstTag()) t->Remove().release()->InsertUnderLast(stateOp->GetTagListHead());
      }
      if (!state->InsertAfter(live)) {
        delete state;
        return false;
      }
      e.held = Take(live);
      return true;
    }
    case UNDOTYPE::NEWOBJ:
    case UNDOTYPE::DELETEOBJ:
      if (live) {
        e.place = PlaceOf(live);
        e.held = Take(live);
        return true;
      }
      if (!e.held) return false;
      if (!PutAt(doc_, e.held.get(), e.place)) return false;
      e.held.release();
      return true;
    case UNDOTYPE::HIERARCHY_PSR: {
      auto* op = dynamic_cast<BaseObject*>(live);
      if (!op) return false;
      const Place back = e.place;
      const Matrix mg = e.mg;
      e.place = PlaceOf(op);
      e.mg = op->GetMg();
      auto taken = Take(op);
      if (!PutAt(doc_, op, back)) {
        // The old place is gone; the node stays where it was.
        PutAt(doc_, taken.get(), e.place);
      }
      taken.release();
      op->SetMg(mg);
      return true;
    }
  }
  return false;
}

bool UndoBuffer::Undo() {
  if (undo_.empty() || depth_ > 0) return false;
  std::unique_ptr<Step> step = std::move(undo_.back());
  undo_.pop_back();
  for (auto it = step->entries.rbegin(); it != step->entries.rend(); ++it) Apply(*it);
  redo_.push_back(std::move(step));
  SendDocumentEvent(doc_, DOCUMENTINFO_TYPE_UNDO);
  return true;
}

bool UndoBuffer::Redo() {
  if (redo_.empty() || depth_ > 0) return false;
  std::unique_ptr<Step> step = std::move(redo_.back());
  redo_.pop_back();
  for (Entry& e : step->entries) Apply(e);
  undo_.push_back(std::move(step));
  SendDocumentEvent(doc_, DOCUMENTINFO_TYPE_REDO);
  return true;
}

}  // namespace zta
