#include "host/scene/itemtree.h"

#include <algorithm>

#include "host/scene/basedocument.h"
#include "host/scene/messages.h"

namespace zta {

// ---- ItemTreeItem

ItemTree* ItemTreeItem::GetTree() const {
  GeListHead* head = GetListHead();
  return head ? static_cast<ItemTree::Head*>(head)->tree_ : nullptr;
}

void ItemTreeItem::SetFlags(Int32 flags) {
  if (flags == flags_) return;
  flags_ = flags;
  if (ItemTree* tree = GetTree()) tree->Changed();
}

void ItemTreeItem::SetData(const GeData& data) {
  if (data == data_) return;
  data_ = data;
  if (ItemTree* tree = GetTree()) tree->Changed();
}

BaseContainer* ItemTreeItem::GetContainerInstance() {
  if (data_.GetType() != DATATYPE::CONTAINER) data_ = GeData(BaseContainer());
  return data_.GetContainerWritable();
}

void ItemTreeItem::SetLink(const BaseList2D* node) {
  if (BaseLink(node) == link_) return;
  link_.SetLink(node);
  if (ItemTree* tree = GetTree()) tree->Changed();
}

void ItemTreeItem::SetLink(const BaseLink& link) {
  if (link == link_) return;
  link_ = link;
  if (ItemTree* tree = GetTree()) tree->Changed();
}

// ---- ItemTree

ItemTree::ItemTree() = default;

ItemTree::ItemTree(const ItemTree& other) : CustomDataType(other), owner_(other.owner_) {
  // Rows are copied level by level: each source row with the copy it goes under.
  std::vector<std::pair<const ItemTreeItem*, GeListNode*>> stack;
  for (const ItemTreeItem* i = other.GetFirst(); i; i = i->GetNext()) stack.emplace_back(i, &head_);
  std::reverse(stack.begin(), stack.end());
  while (!stack.empty()) {
    auto [src, parent] = stack.back();
    stack.pop_back();
    auto* copy = new ItemTreeItem();
    copy->flags_ = src->flags_;
    copy->data_ = src->data_;
    copy->link_ = src->link_;
    copy->InsertUnderLast(parent);
    std::vector<std::pair<const ItemTreeItem*, GeListNode*>> children;
    for (const ItemTreeItem* c = src->GetDown(); c; c = c->GetNext()) children.emplace_back(c, copy);
    stack.insert(stack.end(), children.rbegin(), children.rend());
  }
}

ItemTree::~ItemTree() { head_.FlushAll(); }

ItemTreeItem* ItemTree::GetNextInTree(const ItemTreeItem* item) const {
  return item ? static_cast<ItemTreeItem*>(item->GeListNode::GetNextInTree(&head_)) : nullptr;
}

ItemTreeItem* ItemTree::InsertItem(ItemTreeItem* parent, ItemTreeItem* pred, Int32 flags, const GeData& data,
                                   const BaseList2D* link) {
  return InsertItem(parent, pred, flags, data, BaseLink(link));
}

ItemTreeItem* ItemTree::InsertItem(ItemTreeItem* parent, ItemTreeItem* pred, Int32 flags, const GeData& data,
                                   const BaseLink& link) {
  if ((parent && parent->GetTree() != this) || (pred && pred->GetTree() != this)) return nullptr;
  auto* item = new ItemTreeItem();
  item->flags_ = flags;
  item->data_ = data;
  item->link_ = link;
  if (pred) item->InsertAfter(pred);
  else item->InsertUnder(parent ? static_cast<GeListNode*>(parent) : &head_);
  ItemTreeEvent event{ITEMTREE_EVENT_ROWCREATED, this, item};
  Send(event);
  Changed();
  return item;
}

void ItemTree::RemoveItem(ItemTreeItem* item) {
  if (!item || item->GetTree() != this) return;
  GeListNode::Free(item);
  Changed();
}

void ItemTree::FlushAll() {
  if (!GetFirst()) return;
  head_.FlushAll();
  Changed();
}

void ItemTree::Select(ItemTreeItem* item, Int32 mode) {
  if (item && item->GetTree() != this) return;
  bool changed = false;
  if (mode == SELECTION_NEW)
    for (ItemTreeItem* i = GetFirst(); i; i = GetNextInTree(i))
      if (i != item && (i->flags_ & TREEITEM_SELECTED)) {
        i->flags_ &= ~TREEITEM_SELECTED;
        changed = true;
      }
  if (item) {
    const Int32 next = mode == SELECTION_SUB ? item->flags_ & ~TREEITEM_SELECTED : item->flags_ | TREEITEM_SELECTED;
    changed = changed || next != item->flags_;
    item->flags_ = next;
  }
  if (!changed) return;
  ItemTreeEvent event{ITEMTREE_EVENT_SELECTION, this, item};
  Send(event);
  Changed();
}

std::vector<ItemTreeItem*> ItemTree::GetSelection() const {
  std::vector<ItemTreeItem*> out;
  for (ItemTreeItem* i = GetFirst(); i; i = GetNextInTree(i))
    if (i->flags_ & TREEITEM_SELECTED) out.push_back(i);
  return out;
}

bool ItemTree::Drop(const std::vector<BaseList2D*>& objects, ItemTreeItem* parent, ItemTreeItem* pred) {
  ItemTreeEvent ask{ITEMTREE_EVENT_MAYDROP, this, parent, DRAGTYPE_ATOMARRAY, &objects};
  Send(ask);
  if (!ask.accept) return false;
  for (BaseList2D* o : objects) {
    ItemTreeItem* row = InsertItem(parent, pred, TREEITEM_CHECKED, GeData(BaseContainer()), o);
    if (row) pred = row;
  }
  ItemTreeEvent done{ITEMTREE_EVENT_DROPPED, this, parent, DRAGTYPE_ATOMARRAY, &objects};
  Send(done);
  return true;
}

void ItemTree::RequestDelete() {
  ItemTreeEvent event{ITEMTREE_EVENT_DELETE, this, nullptr};
  Send(event);
}

void ItemTree::DoubleClick(ItemTreeItem* item) {
  if (!item || item->GetTree() != this) return;
  ItemTreeEvent event{ITEMTREE_EVENT_DOUBLECLICK, this, item};
  Send(event);
}

void ItemTree::SelectFromHost(ItemTreeItem* item, Int32 mode) {
  if (item && item->GetTree() != this) return;
  ItemTreeEvent event{ITEMTREE_EVENT_HOSTSELECT, this, item};
  Send(event);
  Select(item, mode);
}

void ItemTree::RunCommand(Int32 command) {
  ItemTreeEvent event{ITEMTREE_EVENT_COMMAND, this, nullptr};
  event.command = command;
  Send(event);
}

ItemTreeCell ItemTree::GetCell(ItemTreeItem* item, Int32 column, const BaseContainer* layout) {
  ItemTreeCell cell;
  if (!item || item->GetTree() != this) return cell;
  ItemTreeEvent event{ITEMTREE_EVENT_CELLOPTIONS, this, item};
  event.column = column;
  if (const BaseContainer* types = layout ? layout->GetContainerInstance(ITEMTREE_COLUMNTYPES) : nullptr)
    event.cellType = types->GetInt32(column);
  Send(event);
  cell.type = event.cellType;
  cell.popup = std::move(event.popup);
  return cell;
}

void ItemTree::ChoosePopupValue(ItemTreeItem* item, Int32 column, Int32 value) {
  if (!item || item->GetTree() != this) return;
  ItemTreeEvent event{ITEMTREE_EVENT_POPUPSET, this, item};
  event.column = column;
  event.value = value;
  Send(event);
  Changed();
}

void ItemTree::SetOwner(BaseList2D* owner) { owner_.SetLink(owner); }

void ItemTree::Changed() {
  if (BaseList2D* owner = GetOwner()) owner->SetDirty(DIRTYFLAGS_DATA);
}

bool ItemTree::Send(ItemTreeEvent& event) {
  BaseList2D* owner = GetOwner();
  return owner ? owner->Message(MSG_ITEMTREE_EVENT, &event) : true;
}

namespace {
int Depth(const ItemTreeItem* i) {
  int d = 0;
  for (; i->GetUp(); i = i->GetUp()) ++d;
  return d;
}
}  // namespace

bool ItemTree::IsEqual(const CustomDataType& other) const {
  const auto* o = dynamic_cast<const ItemTree*>(&other);
  if (!o) return false;
  const ItemTreeItem* a = GetFirst();
  const ItemTreeItem* b = o->GetFirst();
  for (; a && b; a = GetNextInTree(a), b = o->GetNextInTree(b))
    if (Depth(a) != Depth(b) || a->flags_ != b->flags_ || a->data_ != b->data_ || !(a->link_ == b->link_)) return false;
  return !a && !b;
}

}  // namespace zta
