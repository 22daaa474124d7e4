// The Volume Builder's attribute panel: the layer list's columns, the rows it
// greys, the selected input's settings shown on the builder, the add popup,
// and what the panel's tree tells the builder (double-clicks, commands, cells
// and popups of the mode column).
#include <gtest/gtest.h>

#include <algorithm>

#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
#include "host/scene/description.h"
#include "host/scene/parameters.h"
#include "host/scene/popup.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "modules/volumes/source/objects/volumefilter.h"
#include "support/builder_support.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using namespace zvtest;
using zta::Vector;

namespace {

zta::Description Describe(zta::BaseObject* b) {
  zta::Description d;
  EXPECT_TRUE(zta::GetNodeDescription(b, d));
  return d;
}

std::vector<zta::Int32> ShownColumns(const zta::Description& d) {
  std::vector<zta::Int32> out;
  const zta::BaseContainer* tree = d.GetParameter(zta::DescID(VOLUMEBUILDER_LAYERS));
  const zta::BaseContainer* shown = tree ? tree->GetContainerInstance(zta::ITEMTREE_COLUMNSSHOWN) : nullptr;
  for (zta::Int32 i = 1; shown && shown->GetDataPointer(i); ++i) out.push_back(shown->GetInt32(i));
  return out;
}

bool Shown(const zta::Description& d, zta::Int32 id) { return d.GetParameter(zta::DescID(id)) && !d.IsHidden(zta::DescID(id)); }

zta::BaseObject* Filter(zta::BaseObject* b, zta::Int32 filterType) {
  zta::BaseObject* f = zta::AllocObject(ID_VOLUMEFILTER).release();
  f->GetDataInstance()->SetInt32(VOLUMEFILTER_VOLUMETYPE, filterType);
  EXPECT_NE(BuilderOf(b)->AddLayer(b, f, nullptr, nullptr, false, false, false), nullptr);
  return f;
}

zta::ItemTreeItem* RowOf(zta::BaseObject* b, const zta::BaseObject* object) {
  zta::ItemTree* tree = VolumeBuilderData::GetTree(b);
  for (zta::ItemTreeItem* i = tree->GetFirst(); i; i = tree->GetNextInTree(i))
    if (i->GetLink().GetLink(b->GetDocument()) == object) return i;
  return nullptr;
}

}  // namespace

TEST(BuilderPanel, ColumnsGreyRowsAndTheSelectedInputsSettingsFollowTheType) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 1.0);
  zta::ItemTreeItem* ball = AddInput(*doc, b, SphereMesh(3, Vector()), "ball", true);
  zta::ItemTreeItem* folder = AddFolder(b);
  AddInput(*doc, b, CubeMesh(3, Vector()), "box", false, folder);
  zta::BaseObject* fogFilter = Filter(b, VOLUMEFILTER_TYPE_FOG);
  zta::ItemTree* tree = VolumeBuilderData::GetTree(b);

  // SDF: the SDF mode column and the comment; a fog filter is greyed.
  zta::Description d = Describe(b);
  EXPECT_EQ(ShownColumns(d), (std::vector<zta::Int32>{10001, 10000, LAYER_SDFMODE, LAYER_COMMENT}));
  const zta::BaseContainer* layout = d.GetParameter(zta::DescID(VOLUMEBUILDER_LAYERS));
  ASSERT_NE(layout, nullptr);
  EXPECT_EQ(layout->GetContainerInstance(zta::ITEMTREE_COLUMNTYPES)->GetInt32(LAYER_FOGMODE), zta::ITEMTREE_CELL_POPUP);
  EXPECT_EQ(layout->GetInt32(zta::ITEMTREE_EDITCOLUMN), LAYER_COMMENT);
  EXPECT_EQ(layout->GetInt32(zta::ITEMTREE_ITEMDATATYPE), 1);
  EXPECT_NE(RowOf(b, fogFilter)->GetFlags() & LAYERFLAG_UNFIT, 0);
  EXPECT_EQ(ball->GetFlags() & LAYERFLAG_UNFIT, 0);
  // Nothing selected: none of an input's settings; no reference: no voxel size to copy.
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_RADIUS));
  EXPECT_FALSE(Shown(d, VOLUMEBUILDER_COPYVOXELSIZE));

  // One selected mesh: its settings, under the builder's group, as its type wants them.
  tree->Select(ball, zta::SELECTION_NEW);
  d = Describe(b);
  EXPECT_TRUE(Shown(d, VOLUMEBUILDERTAG_USEINTERIORDISTANCE));
  EXPECT_EQ(d.GetParameter(zta::DescID(VOLUMEBUILDERTAG_CLOSEHOLES))->GetInt32(zta::DESC_PARENTGROUP), VOLUMEBUILDER_GROUP);
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_FILLINTERIOR));      // not in SDF
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND));
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_SPLINEDENSITY));     // the tag's own rule: no spline
  // Changing a shown setting on the builder reaches the input's tag.
  EXPECT_TRUE(zta::SetParameter(b, zta::DescID(VOLUMEBUILDERTAG_CLOSEHOLES), zta::GeData(true)));
  EXPECT_TRUE(FindTag(b, doc->SearchObject("ball"))->GetDataInstance()->GetBool(VOLUMEBUILDERTAG_CLOSEHOLES));

  // Fog: its own column, fill interior shown and the threshold hidden; the fog filter counts now.
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_VOLUMETYPE, 1);
  d = Describe(b);
  EXPECT_EQ(ShownColumns(d), (std::vector<zta::Int32>{10001, 10000, LAYER_FOGMODE, LAYER_COMMENT}));
  EXPECT_TRUE(Shown(d, VOLUMEBUILDERTAG_FILLINTERIOR));
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_FOGTHRESHOLD));
  EXPECT_EQ(RowOf(b, fogFilter)->GetFlags() & LAYERFLAG_UNFIT, 0);

  // Vector: by what the input gives: as fog, no bands of its own.
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_VOLUMETYPE, 2);
  FindTag(b, doc->SearchObject("ball"))->GetDataInstance()->SetInt32(VOLUMEBUILDERTAG_VECTORMODE, 1);
  d = Describe(b);
  EXPECT_TRUE(Shown(d, VOLUMEBUILDERTAG_VECTORMODE));
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND));
  EXPECT_TRUE(Shown(d, VOLUMEBUILDERTAG_FILLINTERIOR));
  FindTag(b, doc->SearchObject("ball"))->GetDataInstance()->SetInt32(VOLUMEBUILDERTAG_VECTORMODE, 0);
  d = Describe(b);
  EXPECT_TRUE(Shown(d, VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND));
  EXPECT_FALSE(Shown(d, VOLUMEBUILDERTAG_FILLINTERIOR));

  // Two rows selected, or a filter row: no input's settings.
  tree->Select(folder->GetDown(), zta::SELECTION_ADD);
  EXPECT_FALSE(Shown(Describe(b), VOLUMEBUILDERTAG_RADIUS));
  tree->Select(RowOf(b, fogFilter), zta::SELECTION_NEW);
  EXPECT_FALSE(Shown(Describe(b), VOLUMEBUILDERTAG_CLOSEHOLES));

  // A reference that is a volume builder has a voxel size to copy.
  zta::BaseObject* other = InsertBuilder(*doc, "other", 0, 2.0);
  b->GetDataInstance()->SetLink(VOLUMEBUILDER_REFERENCE, other);
  EXPECT_TRUE(Shown(Describe(b), VOLUMEBUILDER_COPYVOXELSIZE));
}

TEST(BuilderPanel, TheAddPopupListsAndAddsTheFiltersOfTheType) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 1.0);
  zta::ItemTree* tree = VolumeBuilderData::GetTree(b);
  const zta::Description described = Describe(b);
  const zta::BaseContainer* add = described.GetParameter(zta::DescID(VOLUMEBUILDER_ADD));
  ASSERT_NE(add, nullptr);
  EXPECT_EQ(add->GetContainerInstance(zta::DESC_CYCLE)->GetString(1), "&POPUPSDF Filter");
  EXPECT_EQ(add->GetContainerInstance(zta::DESC_CYCLEICONS)->GetInt32(2), 1018427);

  // The type entry's list: three SDF filters, six fog and six vector ones.
  auto entries = zta::GetPopupEntries(b, zta::DescID(VOLUMEBUILDER_ADD), 1);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].first, 1040960);
  EXPECT_EQ(entries[0].second, "&i1040960&SDF Filter");
  EXPECT_EQ(zta::PopupEntryName(entries[2].second), "SDF Reshape");
  EXPECT_TRUE(zta::GetPopupEntries(b, zta::DescID(VOLUMEBUILDER_ADD), 2).empty());
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_VOLUMETYPE, 1);
  entries = zta::GetPopupEntries(b, zta::DescID(VOLUMEBUILDER_ADD), 1);
  ASSERT_EQ(entries.size(), 6u);
  EXPECT_EQ(entries[3].first, 1040961);
  EXPECT_EQ(zta::PopupEntryName(entries[3].second), "Fog Remap");
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_VOLUMETYPE, 2);
  entries = zta::GetPopupEntries(b, zta::DescID(VOLUMEBUILDER_ADD), 1);
  ASSERT_EQ(entries.size(), 6u);
  EXPECT_EQ(entries[5].first, 465002124);

  // Choosing one adds a filter layer of that operation to the list.
  zta::BaseContainer chosen;
  chosen.SetInt32(VOLUMEBUILDER_ADD, 465002118);
  EXPECT_TRUE(zta::PressButton(b, zta::DescID(VOLUMEBUILDER_ADD), &chosen));
  ASSERT_NE(tree->GetFirst(), nullptr);
  auto* filter = static_cast<zta::BaseObject*>(tree->GetFirst()->GetLink().GetLink(doc.get()));
  ASSERT_NE(filter, nullptr);
  EXPECT_EQ(filter->GetType(), ID_VOLUMEFILTER);
  EXPECT_EQ(filter->GetDataInstance()->GetInt32(VOLUMEFILTER_VOLUMETYPE), VOLUMEFILTER_TYPE_VECTOR);
  EXPECT_EQ(filter->GetDataInstance()->GetInt32(VOLUMEFILTER_VECTORTYPE), zta::Int32(VECTORFILTERTYPE::CURL));
  EXPECT_EQ(filter->GetListHead(), BuilderOf(b)->GetFilterHead());
  // An id of another type's list, or of no type, adds nothing.
  chosen.SetInt32(VOLUMEBUILDER_ADD, 1040960);
  zta::PressButton(b, zta::DescID(VOLUMEBUILDER_ADD), &chosen);
  chosen.SetInt32(VOLUMEBUILDER_ADD, 123456789);
  zta::PressButton(b, zta::DescID(VOLUMEBUILDER_ADD), &chosen);
  EXPECT_EQ(tree->GetFirst()->GetNext(), nullptr);

  // The fixed entries: a folder, a cache layer, a plain filter layer.
  for (zta::Int32 v : {2, 3, 4}) EXPECT_TRUE(zta::SetParameter(b, zta::DescID(VOLUMEBUILDER_ADD), zta::GeData(v)));
  std::vector<zta::Int32> kinds;
  for (zta::ItemTreeItem* i = tree->GetFirst(); i; i = i->GetNext()) {
    auto* o = static_cast<zta::BaseObject*>(i->GetLink().GetLink(doc.get()));
    kinds.push_back(o ? o->GetType() : (i->GetFlags() & LAYERFLAG_FOLDER ? 0 : -1));
  }
  EXPECT_EQ(kinds.size(), 4u);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), 0), 1);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), ID_VOLUMECACHELAYER), 1);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), ID_VOLUMEFILTER), 2);
}

TEST(BuilderPanel, TreeEventsSelectCopyAndSetModes) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 1.0);
  zta::ItemTreeItem* a = AddInput(*doc, b, SphereMesh(3, Vector()), "a", true);
  zta::ItemTreeItem* c = AddInput(*doc, b, SphereMesh(3, Vector(2, 0, 0)), "c", false);
  zta::ItemTreeItem* e = AddInput(*doc, b, SphereMesh(3, Vector(4, 0, 0)), "e", false);
  zta::ItemTreeItem* folder = AddFolder(b);
  zta::BaseObject* filter = Filter(b, VOLUMEFILTER_TYPE_SDF);
  zta::ItemTree* tree = VolumeBuilderData::GetTree(b);

  // A double-click makes the row's object the active one; not for folders and filters.
  doc->SetActiveObject(b);
  tree->DoubleClick(c);
  EXPECT_EQ(doc->GetActiveObject(), doc->SearchObject("c"));
  tree->DoubleClick(folder);
  tree->DoubleClick(RowOf(b, filter));
  EXPECT_EQ(doc->GetActiveObject(), doc->SearchObject("c"));

  // A selection the host makes itself is not taken as the person's.
  tree->Select(a, zta::SELECTION_NEW);
  EXPECT_EQ(b->GetDataInstance()->GetLink(VOLUMEBUILDER_SELECTEDLAYER, doc.get()), doc->SearchObject("a"));
  tree->SelectFromHost(c, zta::SELECTION_NEW);
  EXPECT_EQ(b->GetDataInstance()->GetLink(VOLUMEBUILDER_SELECTEDLAYER, doc.get()), doc->SearchObject("a"));
  tree->Select(e, zta::SELECTION_NEW);
  EXPECT_EQ(b->GetDataInstance()->GetLink(VOLUMEBUILDER_SELECTEDLAYER, doc.get()), doc->SearchObject("e"));
  // One selected row selects its object in the scene, alone among the list's; the builder stays active.
  doc->SetActiveObject(b);
  tree->Select(a, zta::SELECTION_NEW);
  EXPECT_TRUE(doc->SearchObject("a")->GetBit(zta::BIT_ACTIVE));
  tree->Select(e, zta::SELECTION_NEW);
  EXPECT_TRUE(doc->SearchObject("e")->GetBit(zta::BIT_ACTIVE));
  EXPECT_FALSE(doc->SearchObject("a")->GetBit(zta::BIT_ACTIVE));
  EXPECT_EQ(doc->GetActiveObject(), b);

  // Cells of the mode column: popups of the type's modes; a filter row's is text.
  zta::ItemTreeCell cell = tree->GetCell(a, LAYER_FOGMODE);
  EXPECT_EQ(cell.type, zta::ITEMTREE_CELL_POPUP);
  EXPECT_EQ(cell.popup.GetString(2), "Maximum");
  EXPECT_EQ(cell.popup.GetString(7), "Divide");
  EXPECT_EQ(tree->GetCell(a, LAYER_SDFMODE).popup.GetString(3), "Intersect");
  EXPECT_EQ(tree->GetCell(RowOf(b, filter), LAYER_SDFMODE).type, zta::ITEMTREE_CELL_TEXT);

  // A popup value goes to every selected row; the copy command copies the first's.
  tree->Select(a, zta::SELECTION_NEW);
  tree->Select(c, zta::SELECTION_ADD);
  tree->ChoosePopupValue(a, LAYER_SDFMODE, 3);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(a, BUILDERTYPE_SDF), 3);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(c, BUILDERTYPE_SDF), 3);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(e, BUILDERTYPE_SDF), 1);
  tree->Select(e, zta::SELECTION_ADD);
  VolumeBuilderData::SetLayerMode(a, BUILDERTYPE_SDF, 2);
  tree->RunCommand(zta::ITEMTREE_COMMAND_COPYTOSELECTED);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(c, BUILDERTYPE_SDF), 2);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(e, BUILDERTYPE_SDF), 2);
  tree->RunCommand(12345);  // other commands change nothing
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(e, BUILDERTYPE_SDF), 2);

  // A person may not put the builder into its own list through the link field either.
  zta::DescriptionCheckDragAndDrop drop{zta::DescID(VOLUMEBUILDER_LAYERS), b, true};
  drop.element = doc->SearchObject("a");
  EXPECT_TRUE(b->Message(zta::MSG_DESCRIPTION_CHECKDRAGANDDROP, &drop) && drop.accept);
  zta::BaseObject* holder = zta::AllocObject(zta::HOST_TYPE_NULL).release();
  doc->InsertObject(holder);
  (void)b->Remove().release();
  b->InsertUnder(holder);
  drop.element = holder;
  b->Message(zta::MSG_DESCRIPTION_CHECKDRAGANDDROP, &drop);
  EXPECT_FALSE(drop.accept);
}
