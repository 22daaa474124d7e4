// The remesher command: baked, it gives what the tool chain gives for the
// same settings; live, it sets up a mesher over a builder holding the sources.
// And the menu commands that add a filter layer to a builder.
#include <gtest/gtest.h>

#include "host/objects/polygonobject.h"
#include "host/modeling/modeling.h"
#include "host/objects/primitives.h"
#include "host/objects/subdivision.h"
#include "host/scene/plugins.h"
#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/itemtree.h"
#include "modules/volumes/source/commands/volumeremesher.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "modules/volumes/source/objects/volumefilter.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

using namespace zelmar;

namespace {

// A cube of edge 200 in the scene's units, selected.
zta::BaseObject* InsertCube(zta::BaseDocument& doc, const zta::Vector& at) {
  zta::BaseObject* cube = zta::AllocObject(zta::HOST_TYPE_CUBE).release();
  zta::BaseObject* last = doc.GetFirstObject();
  while (last && last->GetNext()) last = last->GetNext();
  doc.InsertObject(cube, nullptr, last);
  cube->SetMg(zta::MatrixMove(at));
  doc.SetActiveObject(cube, zta::SELECTION_ADD);
  return cube;
}

}  // namespace

TEST(VolumeRemesher, IsActiveOnlyWithPolygonsSelected) {
  VolumeRemesherCommand command;
  EXPECT_EQ(command.GetState(nullptr), 0);
  auto doc = zta::AllocDocument();
  EXPECT_EQ(command.GetState(doc.get()), 0);
  zta::BaseObject* null = zta::AllocObject(zta::HOST_TYPE_NULL).release();
  doc->InsertObject(null);
  doc->SetActiveObject(null);
  EXPECT_EQ(command.GetState(doc.get()), 0);
  // A generator counts once its cache holds polygons.
  zta::BaseObject* cube = InsertCube(*doc, zta::Vector());
  doc->SetActiveObject(cube);
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(command.GetState(doc.get()), kCommandEnabled);
}

TEST(VolumeRemesher, BakedGivesTheToolChainsMeshAndReplacesTheSources) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* cube = InsertCube(*doc, zta::Vector(30, 0, 0));
  cube->SetName("block");
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));

  // The same chain by hand: the cube's polygons in world space, a level set of
  // voxel size 20 with a band of 3, smoothed, and its surface.
  zta::ModelingCommandData state;
  state.doc = doc.get();
  state.op = cube;
  state.objects = {cube};
  state.bc.SetBool(zta::MDATA_CURRENTSTATETOOBJECT_JOIN, true);
  ASSERT_TRUE(zta::SendModelingCommand(zta::MCOMMAND_CURRENTSTATETOOBJECT, state).IsOk());
  auto* world = static_cast<zta::PolygonObject*>(state.result.front().get());
  std::vector<zta::Vector> points;
  std::vector<VolumeConversionPolygon> polys;
  ASSERT_TRUE(VolumeToolsInterface::GetConversionMesh(*world, points, polys).IsOk());
  auto level = VolumeToolsInterface::MeshToVolume(points, polys, zta::Matrix(), 20.0, 3, 3, nullptr,
                                                  POLYGONCONVERSIONFLAGS::NONE, nullptr);
  ASSERT_TRUE(level.IsOk());
  SDFFilterSettings gaussian;
  gaussian.filterType = SDFFILTERTYPE::GAUSSIAN;
  gaussian.strength = 0.5;
  auto smooth = VolumeToolsInterface::ApplySDFFilterToVolume(*level, gaussian, nullptr, Volume(), nullptr);
  ASSERT_TRUE(smooth.IsOk());
  auto expected = VolumeToolsInterface::VolumeToMesh(*smooth, 0.0, 0.0);
  ASSERT_TRUE(expected.IsOk());

  VolumeRemesherCommand command;
  command.GetSettings().SetFloat(REMESH_VOXEL_SIZE, 20.0);
  command.GetSettings().SetFloat(REMESH_SMOOTHING, 0.5);
  command.GetSettings().SetBool(REMESH_LIVE, false);
  ASSERT_TRUE(command.RunRemesh(doc.get()).IsOk());

  zta::BaseObject* result = doc->GetFirstObject();
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->GetNext(), nullptr);  // the source is gone
  ASSERT_EQ(result->GetType(), zta::HOST_TYPE_POLYGON);
  EXPECT_EQ(result->GetName(), "block");
  EXPECT_EQ(doc->GetActiveObject(), result);
  auto* mesh = static_cast<zta::PolygonObject*>(result);
  EXPECT_EQ(mesh->GetPointCount(), (*expected)->GetPointCount());
  EXPECT_EQ(mesh->GetPolygonCount(), (*expected)->GetPolygonCount());
  ASSERT_GT(mesh->GetPointCount(), 0);
  EXPECT_LT((mesh->GetMg() * mesh->GetPointR()[0] - (*expected)->GetMg() * (*expected)->GetPointR()[0]).GetLength(),
            1e-6);
  // One undo brings the cube back.
  ASSERT_TRUE(doc->DoUndo());
  EXPECT_EQ(doc->GetFirstObject()->GetType(), zta::HOST_TYPE_CUBE);
}

TEST(VolumeRemesher, LiveSetsUpAMesherOverABuilderHoldingTheSources) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* a = InsertCube(*doc, zta::Vector(0, 0, 0));
  zta::BaseObject* b = InsertCube(*doc, zta::Vector(150, 0, 0));
  VolumeRemesherCommand command;
  command.GetSettings().SetFloat(REMESH_VOXEL_SIZE, 25.0);
  command.GetSettings().SetInt32(REMESH_SUBDIVISION, 3);
  command.GetSettings().SetFloat(REMESH_SMOOTHING, 0.4);
  command.GetSettings().SetBool(REMESH_LIVE, true);
  ASSERT_TRUE(command.RunRemesh(doc.get()).IsOk());

  zta::BaseObject* mesher = doc->GetFirstObject();
  ASSERT_NE(mesher, nullptr);
  EXPECT_EQ(mesher->GetType(), 1039861);
  EXPECT_EQ(doc->GetActiveObject(), mesher);
  zta::BaseObject* builder = mesher->GetDown();
  ASSERT_NE(builder, nullptr);
  ASSERT_EQ(builder->GetType(), ID_VOLUMEBUILDER);
  EXPECT_DOUBLE_EQ(builder->GetDataInstance()->GetFloat(VOLUMEBUILDER_VOXELSIZE), 25.0);
  // With a subdivision count each source sits under its own subdivision object.
  zta::BaseObject* first = builder->GetDown();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetType(), zta::HOST_TYPE_SUBDIVISION);
  EXPECT_EQ(first->GetDataInstance()->GetInt32(zta::SDSOBJECT_SUBEDITOR), 3);
  EXPECT_EQ(first->GetDown(), a);
  ASSERT_NE(first->GetNext(), nullptr);
  EXPECT_EQ(first->GetNext()->GetDown(), b);
  EXPECT_LT((b->GetMg().off - zta::Vector(150, 0, 0)).GetLength(), 1e-9);
  // Both are rows of the builder with holes closed, and the smoothing is a filter row.
  zta::BaseTag* tag = FindTag(builder, first);
  ASSERT_NE(tag, nullptr);
  EXPECT_TRUE(tag->GetDataInstance()->GetBool(VOLUMEBUILDERTAG_CLOSEHOLES));
  auto* data = builder->GetNodeData<VolumeBuilderData>();
  zta::BaseObject* filter = static_cast<zta::BaseObject*>(data->GetFilterHead()->GetFirst());
  ASSERT_NE(filter, nullptr);
  EXPECT_EQ(filter->GetType(), ID_VOLUMEFILTER);
  EXPECT_DOUBLE_EQ(filter->GetDataInstance()->GetFloat(VOLUMEFILTER_STRENGTH), 0.4);
  zta::Int32 rows = 0;
  zta::ItemTree* tree = VolumeBuilderData::GetTree(builder);
  for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item)) ++rows;
  EXPECT_EQ(rows, 3);
  // And it evaluates: the mesher shows polygons.
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  zta::BaseObject* cache = mesher->GetCache();
  ASSERT_NE(cache, nullptr);
}

TEST(VolumeRemesher, SmoothingOfZeroAddsNoFilterLayer) {
  auto doc = zta::AllocDocument();
  InsertCube(*doc, zta::Vector());
  VolumeRemesherCommand command;
  command.GetSettings().SetBool(REMESH_LIVE, true);
  ASSERT_TRUE(command.RunRemesh(doc.get()).IsOk());
  zta::BaseObject* builder = doc->GetFirstObject()->GetDown();
  ASSERT_NE(builder, nullptr);
  EXPECT_EQ(builder->GetNodeData<VolumeBuilderData>()->GetFilterHead()->GetFirst(), nullptr);
}

TEST(CreateVolumeFilterCommand, AddsAFilterOfItsKindToTheActiveBuilder) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* builder = zta::AllocObject(ID_VOLUMEBUILDER).release();
  doc->InsertObject(builder);
  const auto& kinds = CreateVolumeFilterCommand::Kinds();
  ASSERT_EQ(kinds.size(), 15u);
  const auto& fogRemap = kinds[6];
  CreateVolumeFilterCommand command(fogRemap.volumeType, fogRemap.operation);
  EXPECT_EQ(command.GetState(doc.get()), 0);
  EXPECT_FALSE(command.Execute(doc.get()));
  doc->SetActiveObject(builder);
  EXPECT_NE(command.GetState(doc.get()), 0);
  ASSERT_TRUE(command.Execute(doc.get()));
  auto* data = builder->GetNodeData<VolumeBuilderData>();
  auto* filter = static_cast<zta::BaseObject*>(data->GetFilterHead()->GetFirst());
  ASSERT_NE(filter, nullptr);
  EXPECT_EQ(filter->GetDataInstance()->GetInt32(VOLUMEFILTER_VOLUMETYPE), VOLUMEFILTER_TYPE_FOG);
  EXPECT_EQ(filter->GetDataInstance()->GetInt32(VOLUMEFILTER_FOGTYPE), zta::Int32(FILTERTYPE::REMAP));
  zta::ItemTree* tree = VolumeBuilderData::GetTree(builder);
  ASSERT_NE(tree->GetFirst(), nullptr);
  EXPECT_EQ(tree->GetFirst()->GetLink().ForceGetLink(), filter);
  // The ids are registered as commands.
  for (const auto& k : kinds) EXPECT_NE(zta::FindPlugin(k.id), nullptr) << k.id;
}
