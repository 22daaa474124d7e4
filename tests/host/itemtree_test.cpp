// The item tree: rows, selection, drops, events to the owner, copies.
#include <gtest/gtest.h>

#include "host/scene/basedocument.h"
#include "host/scene/itemtree.h"
#include "host/scene/plugins.h"
#include "host/scene/popup.h"

using namespace zta;

namespace {

constexpr Int32 kOwner = 1999301, kTreeId = 6016;

// Keeps a tree under kTreeId, journals the tree's events, initialises new
// rows and refuses drops of objects named "no".
class TreeOwner : public ObjectData {
 public:
  bool InitNode(GeListNode* node) override {
    auto* bl = static_cast<BaseList2D*>(node);
    bl->GetDataInstance()->SetCustomData(kTreeId, std::make_shared<ItemTree>());
    Tree(bl)->SetOwner(bl);
    return true;
  }
  bool HandleMessage(GeListNode*, Int32 type, void* data) override {
    if (type != MSG_ITEMTREE_EVENT) return true;
    auto* e = static_cast<ItemTreeEvent*>(data);
    events.push_back(e->event);
    if (e->event == ITEMTREE_EVENT_ROWCREATED) e->item->GetContainerInstance()->SetBool(50, true);
    if (e->event == ITEMTREE_EVENT_MAYDROP)
      for (BaseList2D* o : *e->objects)
        if (o->GetName() == "no") e->accept = false;
    if (e->event == ITEMTREE_EVENT_DELETE)
      for (ItemTreeItem* i : e->tree->GetSelection()) e->tree->RemoveItem(i);
    // Column 7 is a popup of two entries in rows that are checked.
    if (e->event == ITEMTREE_EVENT_CELLOPTIONS && e->column == 7 && (e->item->GetFlags() & TREEITEM_CHECKED)) {
      e->cellType = ITEMTREE_CELL_POPUP;
      e->popup.SetString(1, "one");
      e->popup.SetString(2, "two");
    }
    if (e->event == ITEMTREE_EVENT_POPUPSET) e->item->GetContainerInstance()->SetInt32(e->column, e->value);
    if (e->event == ITEMTREE_EVENT_COMMAND) commands.push_back(e->command);
    if (e->event == ITEMTREE_EVENT_DOUBLECLICK) clicked = e->item;
    return true;
  }
  static ItemTree* Tree(BaseList2D* node) { return node->GetDataInstance()->GetCustomDataWritableTyped<ItemTree>(kTreeId); }
  std::vector<Int32> events;
  std::vector<Int32> commands;
  ItemTreeItem* clicked = nullptr;
};

// Answers its popup 5 with one entry, the icon of a null object.
class PopupNode : public ObjectData {
 public:
  bool HandleMessage(GeListNode*, Int32 type, void* data) override {
    auto* popup = type == MSG_DESCRIPTION_POPUP ? static_cast<DescriptionPopup*>(data) : nullptr;
    if (popup && popup->id.GetId() == 5 && popup->value == 1)
      popup->entries.emplace_back(HOST_TYPE_NULL, PopupEntryText(HOST_TYPE_NULL, "Null"));
    return true;
  }
};

}  // namespace

TEST(ItemTree, RowsSelectionDropsAndEventsToTheOwner) {
  static const bool registered =
      RegisterObjectPlugin(kOwner, "Tree owner", 0, [] { return std::make_unique<TreeOwner>(); }, "", 0);
  ASSERT_TRUE(registered);
  auto doc = BaseDocument::Alloc();
  BaseObject* owner = BaseObject::Alloc(kOwner).release();
  doc->InsertObject(owner);
  BaseObject* target = BaseObject::Alloc(HOST_TYPE_NULL).release();
  target->SetName("target");
  doc->InsertObject(target);
  ItemTree* tree = TreeOwner::Tree(owner);
  ASSERT_NE(tree, nullptr);
  EXPECT_EQ(tree->GetOwner(), owner);
  auto& events = owner->GetNodeData<TreeOwner>()->events;

  // Rows: flags, row data and a link; the owner prepares each new row.
  const UInt32 dirty = owner->GetDirty(DIRTYFLAGS_DATA);
  ItemTreeItem* folder = tree->InsertItem(nullptr, nullptr, 0x1000 | TREEITEM_OPEN, GeData(BaseContainer()), nullptr);
  ItemTreeItem* row = tree->InsertItem(folder, nullptr, TREEITEM_CHECKED, GeData(BaseContainer()), target);
  ItemTreeItem* second = tree->InsertItem(nullptr, folder, 0, GeData(), nullptr);
  ASSERT_TRUE(folder && row && second);
  EXPECT_GT(owner->GetDirty(DIRTYFLAGS_DATA), dirty);
  EXPECT_EQ(events, (std::vector<Int32>{ITEMTREE_EVENT_ROWCREATED, ITEMTREE_EVENT_ROWCREATED, ITEMTREE_EVENT_ROWCREATED}));
  EXPECT_TRUE(row->GetData().GetContainer()->GetBool(50));
  EXPECT_EQ(tree->GetFirst(), folder);
  EXPECT_EQ(folder->GetDown(), row);
  EXPECT_EQ(row->GetUp(), folder);
  EXPECT_EQ(folder->GetNext(), second);
  EXPECT_EQ(second->GetPrev(), folder);
  EXPECT_EQ(tree->GetNextInTree(folder), row);
  EXPECT_EQ(tree->GetNextInTree(row), second);
  EXPECT_EQ(row->GetLink().GetLink(doc.get()), target);
  EXPECT_EQ(row->GetTree(), tree);
  EXPECT_EQ(tree->InsertItem(nullptr, nullptr, 0, GeData(), nullptr)->GetNext(), folder);  // first at the top

  // Selection: alone, added, taken away; one event per change.
  events.clear();
  tree->Select(row, SELECTION_NEW);
  tree->Select(second, SELECTION_ADD);
  EXPECT_EQ(tree->GetSelection(), (std::vector<ItemTreeItem*>{row, second}));
  tree->Select(row, SELECTION_SUB);
  EXPECT_EQ(tree->GetSelection(), (std::vector<ItemTreeItem*>{second}));
  tree->Select(second, SELECTION_ADD);  // no change, no event
  EXPECT_EQ(events.size(), 3u);
  EXPECT_TRUE(second->GetFlags() & TREEITEM_SELECTED);

  // Drops: refused, or each object gets a linked, checked row.
  BaseObject* no = BaseObject::Alloc(HOST_TYPE_NULL).release();
  no->SetName("no");
  doc->InsertObject(no);
  events.clear();
  EXPECT_FALSE(tree->Drop({no}));
  EXPECT_TRUE(tree->Drop({target, owner}, folder, row));
  EXPECT_EQ(events.front(), ITEMTREE_EVENT_MAYDROP);
  EXPECT_EQ(events.back(), ITEMTREE_EVENT_DROPPED);
  ASSERT_NE(row->GetNext(), nullptr);
  EXPECT_EQ(row->GetNext()->GetLink().GetLink(doc.get()), target);
  EXPECT_EQ(row->GetNext()->GetNext()->GetLink().GetLink(doc.get()), owner);
  EXPECT_TRUE(row->GetNext()->GetFlags() & TREEITEM_CHECKED);

  // A person's delete goes to the owner, which removes the selection.
  tree->RequestDelete();
  EXPECT_TRUE(tree->GetSelection().empty());
  EXPECT_EQ(folder->GetNext(), nullptr);

  // A copy of the container holds its own tree; the original's rows stay.
  const BaseContainer copy = *owner->GetDataInstance();
  auto copied = copy.GetCustomDataTyped<ItemTree>(kTreeId);
  ASSERT_TRUE(copied);
  EXPECT_NE(copied.get(), tree);
  EXPECT_TRUE(copied->IsEqual(*tree));
  EXPECT_EQ(copied->GetOwner(), owner);
  EXPECT_EQ(TreeOwner::Tree(owner)->GetFirst()->GetNext(), folder);
  row->SetFlags(row->GetFlags() | 0x400000);
  EXPECT_FALSE(copied->IsEqual(*tree));
  // Editing a row through the tree marks the owner.
  UInt32 before = owner->GetDirty(DIRTYFLAGS_DATA);
  BaseContainer rowData;
  rowData.SetInt32(50000, 2);
  row->SetData(GeData(rowData));
  row->SetLink(no);
  EXPECT_EQ(owner->GetDirty(DIRTYFLAGS_DATA), before + 2);
  EXPECT_EQ(row->GetData().GetContainer()->GetInt32(50000), 2);
  EXPECT_EQ(row->GetLink().GetLink(doc.get()), no);
  row->SetLink(no);  // the same: nothing
  EXPECT_EQ(owner->GetDirty(DIRTYFLAGS_DATA), before + 2);
  // Only trees are written in place.
  EXPECT_EQ(owner->GetDataInstance()->GetCustomDataWritable(kTreeId, 440000246), nullptr);
  tree->FlushAll();
  EXPECT_EQ(tree->GetFirst(), nullptr);

  // Without an owner the tree still works and tells no one.
  ItemTree lone;
  EXPECT_NE(lone.InsertItem(nullptr, nullptr, 0, GeData(), nullptr), nullptr);
  EXPECT_TRUE(lone.Drop({target}));
  ItemTree other;
  ItemTreeItem* foreign = other.InsertItem(nullptr, nullptr, 0, GeData(), nullptr);
  EXPECT_EQ(lone.InsertItem(foreign, nullptr, 0, GeData(), nullptr), nullptr);  // a row of another tree
}

TEST(ItemTree, ClicksCellsPopupsAndCommandsGoToTheOwner) {
  static const bool registered =
      FindPlugin(kOwner) || RegisterObjectPlugin(kOwner, "Tree owner", 0, [] { return std::make_unique<TreeOwner>(); }, "", 0);
  ASSERT_TRUE(registered);
  auto doc = BaseDocument::Alloc();
  BaseObject* owner = BaseObject::Alloc(kOwner).release();
  doc->InsertObject(owner);
  ItemTree* tree = TreeOwner::Tree(owner);
  auto* data = owner->GetNodeData<TreeOwner>();
  ItemTreeItem* checked = tree->InsertItem(nullptr, nullptr, TREEITEM_CHECKED, GeData(BaseContainer()), nullptr);
  ItemTreeItem* plain = tree->InsertItem(nullptr, checked, 0, GeData(BaseContainer()), nullptr);
  data->events.clear();

  tree->DoubleClick(plain);
  EXPECT_EQ(data->clicked, plain);
  tree->RunCommand(ITEMTREE_COMMAND_COPYTOSELECTED);
  EXPECT_EQ(data->commands, std::vector<Int32>{ITEMTREE_COMMAND_COPYTOSELECTED});

  // A cell is what the owner says, else the type its column has in the layout.
  BaseContainer layout, types;
  types.SetInt32(7, ITEMTREE_CELL_TEXT);
  layout.SetContainer(ITEMTREE_COLUMNTYPES, types);
  ItemTreeCell cell = tree->GetCell(checked, 7, &layout);
  EXPECT_EQ(cell.type, ITEMTREE_CELL_POPUP);
  EXPECT_EQ(cell.popup.GetString(2), "two");
  cell = tree->GetCell(plain, 7, &layout);
  EXPECT_EQ(cell.type, ITEMTREE_CELL_TEXT);
  EXPECT_EQ(cell.popup.GetCount(), 0);
  EXPECT_EQ(tree->GetCell(plain, 7).type, 0);

  // A choice in a popup reaches the owner, which stores it; the owner is dirty.
  const UInt32 dirty = owner->GetDirty(DIRTYFLAGS_DATA);
  tree->ChoosePopupValue(checked, 7, 2);
  EXPECT_EQ(checked->GetData().GetContainer()->GetInt32(7), 2);
  EXPECT_GT(owner->GetDirty(DIRTYFLAGS_DATA), dirty);

  // The host's own selection is announced before the selection event.
  data->events.clear();
  tree->SelectFromHost(plain, SELECTION_NEW);
  EXPECT_EQ(data->events, (std::vector<Int32>{ITEMTREE_EVENT_HOSTSELECT, ITEMTREE_EVENT_SELECTION}));
  EXPECT_EQ(tree->GetSelection(), std::vector<ItemTreeItem*>{plain});

  // Rows of another tree are no one's business here.
  ItemTree other;
  ItemTreeItem* stranger = other.InsertItem(nullptr, nullptr, TREEITEM_CHECKED, GeData(BaseContainer()), nullptr);
  data->events.clear();
  tree->DoubleClick(stranger);
  tree->ChoosePopupValue(stranger, 7, 1);
  EXPECT_EQ(tree->GetCell(stranger, 7).type, 0);
  EXPECT_TRUE(data->events.empty());
}

TEST(Popups, EntriesComeFromTheNodeAndNameTheirIcon) {
  constexpr Int32 kPopupNode = 1999302;
  static const bool registered =
      RegisterObjectPlugin(kPopupNode, "Popup node", 0, [] { return std::make_unique<PopupNode>(); }, "", 0);
  ASSERT_TRUE(registered);
  auto node = BaseObject::Alloc(kPopupNode);
  const auto entries = GetPopupEntries(node.get(), DescID(5), 1);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].first, HOST_TYPE_NULL);
  EXPECT_EQ(entries[0].second, "&i" + std::to_string(HOST_TYPE_NULL) + "&Null");
  EXPECT_EQ(PopupEntryName(entries[0].second), "Null");
  EXPECT_EQ(PopupEntryName("plain"), "plain");
  EXPECT_EQ(PopupEntryName("&ibroken"), "&ibroken");
  EXPECT_TRUE(GetPopupEntries(node.get(), DescID(5), 2).empty());
  EXPECT_TRUE(GetPopupEntries(nullptr, DescID(5), 1).empty());
}
