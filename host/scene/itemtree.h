#pragma once
// Item tree (custom data 1024869; its operations are the host's library
// 1024868): a tree of rows shown in a node's parameters, each with a flag
// word, one GeData (a row container) and a link to a scene node. The tree
// belongs to an owner node: it tells the owner of changes with
// MSG_ITEMTREE_EVENT and marks it dirty. Edited in place, so each container
// holds its own copy (see customdata.h).
#include <memory>
#include <vector>

#include "host/scene/baselist2d.h"
#include "host/scene/customdata.h"
#include "host/scene/gedata.h"
#include "host/scene/messages.h"

namespace zta {

class ItemTree;

enum : Int32 { CUSTOMDATATYPE_ITEMTREE = 1024869 };

// Flag bits the host gives a meaning; the others are the owner's.
enum : Int32 {
  TREEITEM_SELECTED = 0x10,
  TREEITEM_CHECKED = 0x20,
  TREEITEM_OPEN = 0x200000,
};

// Events of MSG_ITEMTREE_EVENT.
enum : Int32 {
  ITEMTREE_EVENT_MAYDROP = 1,       // may `objects` be dropped? clear `accept` to refuse
  ITEMTREE_EVENT_DROPPED = 2,       // `objects` were dropped; their rows are in the tree
  ITEMTREE_EVENT_DELETE = 6,        // a person asked to delete the selected rows
  ITEMTREE_EVENT_SELECTION = 7,     // the selection changed
  ITEMTREE_EVENT_DOUBLECLICK = 8,   // a person double-clicked `item`
  ITEMTREE_EVENT_ROWCREATED = 9,    // `item` was inserted
  ITEMTREE_EVENT_HOSTSELECT = 16,   // the host itself is about to select: the SELECTION event that follows echoes it
  ITEMTREE_EVENT_COMMAND = 23,      // a person chose `command` from the tree's menu
  ITEMTREE_EVENT_CELLOPTIONS = 25,  // the panel is about to show `column` of `item`: fill `cellType` and `popup`
  ITEMTREE_EVENT_POPUPSET = 26,     // a person chose `value` in the popup cell `column` of `item`
};

// Commands of ITEMTREE_EVENT_COMMAND.
enum : Int32 { ITEMTREE_COMMAND_COPYTOSELECTED = 900017 };  // the first selected row's value to the others

// Keys of an item tree parameter's description settings: how a panel lays
// the tree out.
enum : Int32 {
  ITEMTREE_COLUMNTYPES = 5000,   // container: column id -> cell type
  ITEMTREE_COLUMNTITLES = 5001,  // container: column id -> title
  ITEMTREE_COLUMNSSHOWN = 5002,  // container: 1, 2, ... -> column id, in the order shown
  ITEMTREE_EDITCOLUMN = 5003,    // int32: the column whose text a person edits
  ITEMTREE_ITEMDATATYPE = 5004,  // int32: what a row's GeData holds; 1 a container
};

// Cell types of a column.
enum : Int32 {
  ITEMTREE_CELL_TEXT = 8,               // the value as text, not editable
  ITEMTREE_CELL_POPUP = 1685221232,     // 'drop': a popup of the entries of `popup`
};

// The data type of dropped objects.
enum : Int32 { DRAGTYPE_ATOMARRAY = 201 };

class ItemTreeItem : public GeListNode {
 public:
  ItemTreeItem* GetNext() const { return static_cast<ItemTreeItem*>(GeListNode::GetNext()); }
  ItemTreeItem* GetPrev() const { return static_cast<ItemTreeItem*>(GeListNode::GetPrev()); }
  ItemTreeItem* GetUp() const { return static_cast<ItemTreeItem*>(GeListNode::GetUp()); }
  ItemTreeItem* GetDown() const { return static_cast<ItemTreeItem*>(GeListNode::GetDown()); }

  // The record: flag word, row data, link.
  Int32 GetFlags() const { return flags_; }
  void SetFlags(Int32 flags);
  const GeData& GetData() const { return data_; }
  void SetData(const GeData& data);
  // The row container for editing in place (made when the row has none).
  // Edits in place are not reported; call ItemTree::Changed after them.
  BaseContainer* GetContainerInstance();
  const BaseLink& GetLink() const { return link_; }
  void SetLink(const BaseList2D* node);
  void SetLink(const BaseLink& link);
  // The tree this row belongs to, or null for a free row.
  ItemTree* GetTree() const;

 private:
  friend class ItemTree;
  ItemTreeItem() = default;
  Int32 flags_ = 0;
  GeData data_;
  BaseLink link_;
};

struct ItemTreeEvent {
  Int32 event = 0;
  ItemTree* tree = nullptr;
  ItemTreeItem* item = nullptr;
  // A drop: what and of which data type.
  Int32 dataType = 0;
  const std::vector<BaseList2D*>* objects = nullptr;
  bool accept = true;
  // Cells and commands.
  Int32 column = 0;
  Int32 value = 0;
  Int32 command = 0;
  // Filled by the owner for ITEMTREE_EVENT_CELLOPTIONS: the cell's type, and
  // for a popup its entries (value -> text).
  Int32 cellType = 0;
  BaseContainer popup = BaseContainer();
};

// What a panel shows in one cell.
struct ItemTreeCell {
  Int32 type = 0;
  BaseContainer popup = BaseContainer();
};

class ItemTree : public CustomDataType {
 public:
  static constexpr Int32 kCustomTypeId = CUSTOMDATATYPE_ITEMTREE;
  ItemTree();
  ItemTree(const ItemTree& other);
  ItemTree& operator=(const ItemTree&) = delete;
  ~ItemTree() override;

  ItemTreeItem* GetFirst() const { return static_cast<ItemTreeItem*>(head_.GetFirst()); }
  // The row after `item` in a walk of the whole tree (children first), or null.
  ItemTreeItem* GetNextInTree(const ItemTreeItem* item) const;
  // A new row under `parent` (top level when null) after `pred` (first when
  // null); the owner hears ITEMTREE_EVENT_ROWCREATED.
  ItemTreeItem* InsertItem(ItemTreeItem* parent, ItemTreeItem* pred, Int32 flags, const GeData& data,
                           const BaseList2D* link);
  // The same with a link as it stands, which may name its node by id alone
  // (a row read from a scene file).
  ItemTreeItem* InsertItem(ItemTreeItem* parent, ItemTreeItem* pred, Int32 flags, const GeData& data,
                           const BaseLink& link);
  // Frees a row with its children.
  void RemoveItem(ItemTreeItem* item);
  void FlushAll();

  // Selection: SELECTION_NEW selects `item` alone (null clears), ADD adds,
  // SUB takes away. The owner hears ITEMTREE_EVENT_SELECTION once.
  void Select(ItemTreeItem* item, Int32 mode);
  // The selected rows in tree order.
  std::vector<ItemTreeItem*> GetSelection() const;

  // A person drops objects on the tree: the owner may refuse
  // (ITEMTREE_EVENT_MAYDROP); else each gets a row (checked, linked) under
  // `parent` after `pred`, and the owner hears ITEMTREE_EVENT_DROPPED.
  // False when refused.
  bool Drop(const std::vector<BaseList2D*>& objects, ItemTreeItem* parent = nullptr, ItemTreeItem* pred = nullptr);
  // A person asks to delete the selected rows; the owner decides
  // (ITEMTREE_EVENT_DELETE).
  void RequestDelete();
  // A person double-clicks a row.
  void DoubleClick(ItemTreeItem* item);
  // The host selects on its own (mirroring the scene, say): the owner hears
  // ITEMTREE_EVENT_HOSTSELECT first, then the selection.
  void SelectFromHost(ItemTreeItem* item, Int32 mode);
  // A person chooses a command of the tree's menu.
  void RunCommand(Int32 command);
  // What the panel shows in `column` of `item`, as the owner says: by default
  // the column's type from `layout` (the parameter's description settings).
  ItemTreeCell GetCell(ItemTreeItem* item, Int32 column, const BaseContainer* layout = nullptr);
  // A person chooses `value` in the popup cell `column` of `item`; the owner
  // stores it.
  void ChoosePopupValue(ItemTreeItem* item, Int32 column, Int32 value);

  // The node that events go to; held weakly.
  void SetOwner(BaseList2D* owner);
  BaseList2D* GetOwner() const { return owner_.ForceGetLink(); }
  // Marks the owner dirty, after edits the tree did not see.
  void Changed();

  Int32 GetCustomTypeId() const override { return kCustomTypeId; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<ItemTree>(*this); }
  bool IsEqual(const CustomDataType& other) const override;
  bool IsEditedInPlace() const override { return true; }

 private:
  friend class ItemTreeItem;
  class Head : public GeListHead {
   public:
    explicit Head(ItemTree* tree) : tree_(tree) {}
    ItemTree* tree_;
  };
  bool Send(ItemTreeEvent& event);

  Head head_{this};
  BaseLink owner_;
};

}  // namespace zta
