#include "host/scene/baselist2d.h"

#include <atomic>

#include "host/scene/basedocument.h"
#include "host/scene/customdataclass.h"
#include "host/scene/nodedata.h"
#include "host/scene/plugins.h"

namespace zta {

// ---- GeListNode

namespace {
std::atomic<UInt64> g_treeStamp{1};
}  // namespace

UInt64 GeListNode::GetTreeStamp() { return g_treeStamp.load(std::memory_order_acquire); }

void GeListNode::TouchTreeStamp() { g_treeStamp.fetch_add(1, std::memory_order_acq_rel); }

GeListNode::~GeListNode() {
  FreeChildren();
  Unlink();
}

void GeListNode::FreeChildren() {
  while (down_) {
    GeListNode* c = down_;
    c->Unlink();
    delete c;
  }
}

GeListNode* GeListNode::GetUp() const { return up_ && !up_->IsListHead() ? up_ : nullptr; }

GeListNode* GeListNode::GetDownLast() const {
  GeListNode* n = down_;
  while (n && n->next_) n = n->next_;
  return n;
}

GeListHead* GeListNode::GetListHead() const {
  for (GeListNode* n = up_; n; n = n->up_)
    if (n->IsListHead()) return static_cast<GeListHead*>(n);
  return nullptr;
}

bool GeListNode::CanInsert(const GeListNode* target) const {
  if (!target || IsListHead() || IsInTree()) return false;
  for (const GeListNode* n = target; n; n = n->up_)
    if (n == this) return false;
  return true;
}

void GeListNode::Link(GeListNode* up, GeListNode* prev, GeListNode* next) {
  TouchTreeStamp();
  up_ = up;
  prev_ = prev;
  next_ = next;
  if (prev) prev->next_ = this;
  else up->down_ = this;
  if (next) next->prev_ = this;
  up->ChildrenChanged();
}

void GeListNode::Unlink() {
  if (up_ || prev_ || next_) TouchTreeStamp();
  if (prev_) prev_->next_ = next_;
  else if (up_ && up_->down_ == this) up_->down_ = next_;
  if (next_) next_->prev_ = prev_;
  up_ = prev_ = next_ = nullptr;
}

bool GeListNode::InsertUnder(GeListNode* parent) {
  if (!CanInsert(parent)) return false;
  Link(parent, nullptr, parent->down_);
  return true;
}

bool GeListNode::InsertUnderLast(GeListNode* parent) {
  if (!CanInsert(parent)) return false;
  Link(parent, parent->GetDownLast(), nullptr);
  return true;
}

bool GeListNode::InsertBefore(GeListNode* next) {
  if (!next || !next->up_ || !CanInsert(next)) return false;
  Link(next->up_, next->prev_, next);
  return true;
}

bool GeListNode::InsertAfter(GeListNode* prev) {
  if (!prev || !prev->up_ || !CanInsert(prev)) return false;
  Link(prev->up_, prev, prev->next_);
  return true;
}

std::unique_ptr<GeListNode> GeListNode::Remove() {
  GeListNode* up = up_;
  Unlink();
  if (up) up->ChildrenChanged();
  return std::unique_ptr<GeListNode>(this);
}

void GeListNode::Free(GeListNode* node) {
  if (!node) return;
  delete node->Remove().release();
}

GeListNode* GeListNode::GetNextInTree(const GeListNode* root) const {
  if (down_) return down_;
  for (const GeListNode* n = this; n && n != root; n = n->up_)
    if (n->next_) return n->next_;
  return nullptr;
}

BaseDocument* GeListNode::FindDocument() const {
  const GeListNode* n = this;
  while (n) {
    if (n->IsListHead()) {
      const auto* head = static_cast<const GeListHead*>(n);
      if (head->GetDocument()) return head->GetDocument();
      n = head->GetOwner();
    } else if (n->up_) {
      n = n->up_;
    } else {
      n = n->GetHolder();
    }
  }
  return nullptr;
}

// ---- GeListHead

GeListHead::~GeListHead() { FlushAll(); }

void GeListHead::ChildrenChanged() {
  if (document_) document_->SetDirty(DIRTYFLAGS_CHILDREN);
  else if (auto* owner = dynamic_cast<BaseList2D*>(owner_)) owner->SetDirty(DIRTYFLAGS_CHILDREN);
}

void GeListHead::FlushAll() { FreeChildren(); }

// ---- BaseList2D

namespace {
std::atomic<UInt64> g_nextMarker{1};

// Points links among cloned nodes at the clones, nested containers and the
// links of custom values included.
void TranslateLinks(BaseContainer& bc, const AliasTrans& trans) {
  std::vector<std::pair<Int32, GeData>> changes;
  for (const auto& [id, data] : bc) {
    if (data.GetType() == DATATYPE::LINK) {
      BaseLink moved = trans.Translate(data.GetBaseLink());
      if (!(moved == data.GetBaseLink())) changes.emplace_back(id, GeData(moved));
    } else if (data.GetType() == DATATYPE::CONTAINER) {
      BaseContainer inner = *data.GetContainer();
      TranslateLinks(inner, trans);
      if (inner != *data.GetContainer()) changes.emplace_back(id, GeData(inner));
    } else if (const CustomDataType* custom = data.GetCustomData()) {
      const CustomDataTypeClass* cls = FindCustomDataTypeClass(custom->GetCustomTypeId());
      if (std::unique_ptr<CustomDataType> moved = cls ? cls->TranslateLinks(*custom, trans) : nullptr)
        changes.emplace_back(id, GeData(std::shared_ptr<const CustomDataType>(std::move(moved))));
    }
  }
  for (auto& c : changes) bc.SetData(c.first, std::move(c.second));
}
}  // namespace

BaseList2D::BaseList2D(Int32 type)
    : type_(type), marker_(g_nextMarker.fetch_add(1)), anchor_(std::make_shared<detail::NodeAnchor>()) {
  anchor_->node = this;
}

void BaseList2D::ReserveMarker(UInt64 marker) {
  // A file may name any id; the counter must never wrap round to 0 (no
  // link) or to ids in use. New ids count up from below 2^63, which no
  // session reaches, so ids above it need no reservation.
  if (marker >= (UInt64(1) << 63)) return;
  UInt64 next = g_nextMarker.load();
  while (next <= marker && !g_nextMarker.compare_exchange_weak(next, marker + 1)) {
  }
}

BaseList2D::~BaseList2D() {
  FreeChildren();
  if (nodeData_) nodeData_->FreeNode(this);
  anchor_->node = nullptr;
}

void BaseList2D::SetName(const String& name) {
  if (name == name_) return;
  name_ = name;
  SetDirty(DIRTYFLAGS_DATA);
}

BaseDocument* BaseList2D::GetDocument() const { return FindDocument(); }

bool BaseList2D::Message(Int32 id, void* data) { return nodeData_ ? nodeData_->HandleMessage(this, id, data) : true; }

bool BaseList2D::GetNBit(Int32 bit) const {
  if (bit < 0 || bit >= 128) return false;
  return (nbits_[size_t(bit / 64)] >> (bit % 64)) & 1u;
}

bool BaseList2D::ChangeNBit(Int32 bit, NBITCONTROL control) {
  if (bit < 0 || bit >= 128) return false;
  const bool was = GetNBit(bit);
  const UInt64 mask = UInt64(1) << (bit % 64);
  UInt64& word = nbits_[size_t(bit / 64)];
  switch (control) {
    case NBITCONTROL::SET: word |= mask; break;
    case NBITCONTROL::CLEAR: word &= ~mask; break;
    case NBITCONTROL::TOGGLE: word ^= mask; break;
  }
  return was;
}

UInt32 BaseList2D::GetDirty(UInt32 flags) const {
  UInt32 sum = 0;
  for (int i = 1; i <= 7; ++i)
    if (flags & (1u << i)) sum += dirty_[size_t(i - 1)];
  if (flags & DIRTYFLAGS_DATA) sum += data_.GetDirty();
  return sum;
}

UInt32 BaseList2D::GetHDirty(UInt32 flags) const {
  UInt32 sum = 0;
  WalkTree(const_cast<BaseList2D*>(this), [&](GeListNode* n) {
    const auto* node = static_cast<const BaseList2D*>(n);
    sum += node->GetDirty(flags) + node->GetHDirtyBelow(flags);
  });
  return sum;
}

UInt32 BaseList2D::GetHDirtyBelow(UInt32 flags) const { return 0; }

void BaseList2D::SetDirty(UInt32 flags) {
  for (int i = 1; i <= 7; ++i)
    if (flags & (1u << i)) ++dirty_[size_t(i - 1)];
  if (BaseDocument* doc = GetDocument()) doc->NoteChange();
}

bool BaseList2D::AttachNodeData(std::unique_ptr<NodeData> data) {
  nodeData_ = std::move(data);
  if (nodeData_) ApplyDescriptionDefaults(this);
  if (nodeData_ && !nodeData_->InitNode(this)) {
    // A node that refused to start has nothing to free.
    nodeData_.reset();
    return false;
  }
  return true;
}

bool BaseList2D::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  dest->name_ = name_;
  data_.CopyTo(&dest->data_);
  if (!(flags & COPYFLAGS_NO_BITS)) {
    // Being a generator's input is the pass's business, not the node's.
    dest->bits_ = bits_ & ~UInt32(BIT_CONTROLOBJECT);
    dest->nbits_ = nbits_;
  }
  if (flags & COPYFLAGS_KEEP_MARKERS) dest->SetMarker(marker_);
  if (nodeData_ && dest->nodeData_ && !nodeData_->CopyNode(dest->nodeData_.get(), this, dest, flags, trans))
    return false;
  if (!(flags & COPYFLAGS_NO_HIERARCHY)) return CloneSiblingsUnder(GetDown(), dest, flags, trans);
  return true;
}

bool CloneSiblingsUnder(const GeListNode* first, GeListNode* parent, Int32 flags, AliasTrans* trans) {
  for (const GeListNode* n = first; n; n = n->GetNext()) {
    auto clone = static_cast<const BaseList2D*>(n)->GetClone(flags, trans);
    if (!clone) return false;
    clone.release()->InsertUnderLast(parent);
  }
  return true;
}

std::unique_ptr<BaseList2D> BaseList2D::GetClone(Int32 flags, AliasTrans* trans) const {
  AliasTrans local;
  AliasTrans* t = trans ? trans : &local;
  std::unique_ptr<BaseList2D> dest = AllocSame();
  if (!dest) return nullptr;
  t->Add(this, dest.get());
  if (!CopyTo(dest.get(), flags, t)) return nullptr;
  if (!trans) {
    // The outermost clone fixes the links that point into what it copied.
    WalkTree(dest.get(), [&](GeListNode* n) {
      auto* node = static_cast<BaseList2D*>(n);
      TranslateLinks(node->data_, local);
      if (auto* op = dynamic_cast<BaseObject*>(node))
        for (BaseTag* tag = op->GetFirstTag(); tag; tag = tag->GetNext()) TranslateLinks(tag->data_, local);
    });
  }
  return dest;
}

// ---- AliasTrans

void AliasTrans::Add(const BaseList2D* original, BaseList2D* clone) {
  pairs_.emplace(original, clone);
  byMarker_.emplace(original->GetMarker(), clone);
}

BaseList2D* AliasTrans::Translate(const BaseList2D* original) const {
  auto it = pairs_.find(original);
  return it == pairs_.end() ? nullptr : it->second;
}

BaseLink AliasTrans::Translate(const BaseLink& link) const {
  BaseList2D* clone = Translate(link.ForceGetLink());
  if (!clone && !link.IsEmpty()) {
    auto it = byMarker_.find(link.GetMarker());
    if (it != byMarker_.end()) clone = it->second;
  }
  return clone ? BaseLink(clone) : link;
}

// ---- BaseLink

void BaseLink::SetLink(const BaseList2D* node) {
  anchor_ = node ? node->GetAnchor() : nullptr;
  marker_ = node ? node->GetMarker() : 0;
}

BaseList2D* BaseLink::ForceGetLink() const {
  auto a = anchor_.lock();
  return a ? a->node : nullptr;
}

BaseList2D* BaseLink::GetLink(const BaseDocument* doc, Int32 instanceOf) const {
  if (marker_ == 0) return nullptr;
  BaseList2D* node = ForceGetLink();
  if (node && doc && node->GetDocument() != doc) node = nullptr;
  if (!node && doc) node = doc->FindByMarker(marker_);
  if (node && instanceOf != 0 && !node->IsInstanceOf(instanceOf)) return nullptr;
  return node;
}

}  // namespace zta
