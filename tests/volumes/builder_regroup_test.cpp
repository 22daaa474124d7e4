// Rebuilds of a Volume Builder that regroup runs of union, intersection,
// maximum and minimum rows: an edited row costs two joins, and every result
// equals, voxel for voxel, the one a fresh builder folds row by row. Also a
// field input sized by the rows below it.
#include <gtest/gtest.h>

#include <functional>

#include "host/fields/fieldlist.h"
#include "host/objects/fieldobjects.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "support/builder_support.h"
#include "zelmar/volumecommands.h"

using namespace zelmar;
using namespace zvtest;
using zta::Vector;

namespace {

struct Row {
  bool sphere;
  double size;
  Vector at;
  zta::Int32 mode;
};

// A builder of `rows`, listed top to bottom; fog rows are filled to a distance.
zta::BaseObject* MakeBuilder(zta::BaseDocument& doc, zta::Int32 type, const std::vector<Row>& rows) {
  zta::BaseObject* b = InsertBuilder(doc, "B", type, 0.1);
  const zta::Int32 builderType = type + 1;
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& r = rows[i];
    const std::string name = "r" + std::to_string(i);
    zta::ItemTreeItem* item = AddInput(doc, b, r.sphere ? SphereMesh(r.size, r.at) : CubeMesh(r.size, r.at), name, i % 2 == 0);
    VolumeBuilderData::SetLayerMode(item, builderType, r.mode);
    if (type == 1) {
      zta::BaseContainer* t = FindTag(b, doc.SearchObject(name))->GetDataInstance();
      t->SetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE, true);
      t->SetBool(VOLUMEBUILDERTAG_FILLINTERIOR, true);
      t->SetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, 0.6);
    }
  }
  return b;
}

// Exactly the same voxels, values and classes.
void ExpectIdentical(const Volume& a, const Volume& b) {
  ExpectSameFloatVolume(a, b, 0.0f);
  EXPECT_EQ(a.GetBackground().TryGet<float>() ? *a.GetBackground().TryGet<float>() : -1.0f,
            b.GetBackground().TryGet<float>() ? *b.GetBackground().TryGet<float>() : -2.0f);
}

// The result a new builder of `rows` gives in one full build.
Volume Fresh(zta::Int32 type, const std::vector<Row>& rows) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = MakeBuilder(*doc, type, rows);
  Evaluate(*doc);
  const auto out = CacheVolumes(b);
  EXPECT_EQ(out.size(), 1u);
  return out.empty() ? Volume() : out[0];
}

zta::Int64 Folds(zta::BaseObject* b) { return BuilderOf(b)->GetStatistics().folds; }
zta::Int64 Conversions(zta::BaseObject* b) { return BuilderOf(b)->GetStatistics().conversions; }

// Moves row `i` of the scene and of the list description alike.
void Move(zta::BaseDocument& doc, std::vector<Row>& rows, size_t i, const Vector& to) {
  rows[i].at = to;
  doc.SearchObject("r" + std::to_string(i))->SetMl(zta::Matrix{to, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
}

}  // namespace

TEST(BuilderRegroup, AnInputMovedAgainAndAgainCostsTwoJoins) {
  std::vector<Row> rows;
  for (int i = 0; i < 8; ++i) rows.push_back({i % 2 == 0, 0.6, Vector(i * 0.45, 0.1 * (i % 3), 0), 1});
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = MakeBuilder(*doc, 0, rows);
  Evaluate(*doc);
  ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));

  // The first edit of a row joins the rows above it once; the next edits of
  // that row join twice, whatever the length of the list.
  Move(*doc, rows, 3, Vector(1.35, 0.3, 0.05));
  Evaluate(*doc);
  ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
  for (double y : {0.2, -0.25, 0.0}) {
    const zta::Int64 folds = Folds(b), conversions = Conversions(b);
    Move(*doc, rows, 3, Vector(1.35, y, 0.1));
    Evaluate(*doc);
    EXPECT_EQ(Conversions(b), conversions + 1);
    EXPECT_EQ(Folds(b), folds + 2);
    ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
  }

  // Other rows, above and below, and the top and bottom rows.
  for (size_t i : {1u, 6u, 0u, 7u, 4u}) {
    Move(*doc, rows, i, rows[i].at + Vector(0.07, -0.12, 0.03));
    Evaluate(*doc);
    ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
  }
  // Nothing changed: nothing is joined.
  const zta::Int64 folds = Folds(b);
  Evaluate(*doc);
  EXPECT_EQ(Folds(b), folds);
}

TEST(BuilderRegroup, MixedModesGiveTheRowByRowResult) {
  // Top to bottom: a union run over an intersection run over a subtraction
  // over a union run over the base.
  std::vector<Row> rows = {
      {true, 0.5, Vector(0.9, 0.4, 0), 1},    {false, 0.4, Vector(0.2, 0.5, 0), 1},
      {true, 1.6, Vector(0.4, 0, 0), 3},      {false, 1.5, Vector(0.5, 0.1, 0), 3},
      {true, 0.4, Vector(0.3, -0.3, 0), 2},   {true, 0.6, Vector(0.8, 0, 0), 1},
      {false, 0.5, Vector(0.4, 0.3, 0.1), 1}, {true, 0.7, Vector(), 1},
  };
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = MakeBuilder(*doc, 0, rows);
  Evaluate(*doc);
  ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
  for (size_t i : {6u, 3u, 3u, 1u, 4u, 2u, 6u}) {
    Move(*doc, rows, i, rows[i].at + Vector(0.05, 0.04 * double(i % 3), -0.03));
    Evaluate(*doc);
    ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
  }
  // A mode change splits a run; a check mark taken off leaves a gap in it.
  zta::ItemTreeItem* top = VolumeBuilderData::GetTree(b)->GetFirst();
  VolumeBuilderData::SetLayerMode(top->GetNext(), BUILDERTYPE_SDF, 2);
  rows[1].mode = 2;
  Evaluate(*doc);
  ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
  const zta::Int64 conversions = Conversions(b);
  zta::ItemTreeItem* sixth = top->GetNext()->GetNext()->GetNext()->GetNext()->GetNext()->GetNext();
  sixth->SetFlags(sixth->GetFlags() & ~LAYERFLAG_ENABLED);
  VolumeBuilderData::GetTree(b)->Changed();
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), conversions);
  rows.erase(rows.begin() + 6);
  ExpectIdentical(CacheVolumes(b).at(0), Fresh(0, rows));
}

TEST(BuilderRegroup, FogMaximumAndMinimumRunsGiveTheRowByRowResult) {
  std::vector<Row> rows = {
      {true, 0.5, Vector(0.6, 0.2, 0), 3}, {true, 0.9, Vector(0.3, 0, 0), 3}, {false, 0.5, Vector(0.5, 0.3, 0), 2},
      {true, 0.6, Vector(0.2, 0, 0.1), 2}, {false, 0.7, Vector(0.7, 0, 0), 2}, {true, 0.8, Vector(), 1},
  };
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = MakeBuilder(*doc, 1, rows);
  Evaluate(*doc);
  EXPECT_EQ(CacheVolumes(b).at(0).GetGridClass(), GRIDCLASS::FOG);
  ExpectIdentical(CacheVolumes(b).at(0), Fresh(1, rows));
  for (size_t i : {3u, 3u, 3u, 1u, 4u, 0u}) {
    Move(*doc, rows, i, rows[i].at + Vector(0.06, -0.05, 0.02));
    Evaluate(*doc);
    ExpectIdentical(CacheVolumes(b).at(0), Fresh(1, rows));
  }
}

TEST(BuilderFields, AFieldSizedByTheLayersBelowFollowsThem) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 1, 0.1);
  auto field = zta::FieldObject::Alloc(zta::HOST_TYPE_FIELD_OBJECT);
  zta::FieldList fields;
  fields.InsertLayer(std::make_unique<zta::SphericalFieldLayer>(0.5, 0.5));
  field->SetFieldList(fields);
  zta::ItemTreeItem* fieldRow = AddInput(*doc, b, std::unique_ptr<zta::BaseObject>(field.release()), "field", false);
  ASSERT_NE(fieldRow, nullptr);
  VolumeBuilderData::SetLayerMode(fieldRow, BUILDERTYPE_FOG, 2);
  EXPECT_EQ(ReadInputSettings(FindTag(b, doc->SearchObject("field"))).fieldSource, 0);

  // Alone, nothing lies below it: no result.
  Evaluate(*doc);
  EXPECT_TRUE(CacheVolumes(b).empty());

  // Over a fog ball: sampled in the ball's box, and joined with it.
  AddInput(*doc, b, SphereMesh(0.4, Vector(0.3, 0, 0)), "ball", true);
  zta::BaseContainer* t = FindTag(b, doc->SearchObject("ball"))->GetDataInstance();
  t->SetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE, true);
  t->SetBool(VOLUMEBUILDERTAG_FILLINTERIOR, true);
  t->SetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, 0.5);
  auto expected = [&]() {
    // The ball alone, in a second builder, then the field over its box by hand.
    auto solo = zta::AllocDocument();
    zta::BaseObject* only = InsertBuilder(*solo, "solo", 1, 0.1);
    AddInput(*solo, only, SphereMesh(0.4, doc->SearchObject("ball")->GetMg().off), "ball", true);
    zta::BaseContainer* st = FindTag(only, solo->SearchObject("ball"))->GetDataInstance();
    st->SetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE, true);
    st->SetBool(VOLUMEBUILDERTAG_FILLINTERIOR, true);
    st->SetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, 0.5);
    Evaluate(*solo);
    const Volume ball = CacheVolumes(only).at(0);
    const BoundingBox& box = ball.GetWorldBoundingBox();
    zta::BaseContainer bc;
    bc.SetFloat(FIELDTOVOLUME_GRIDSIZE, 0.1);
    bc.SetVector(FIELDTOVOLUME_BOXMIN, box.min * 0.1);
    bc.SetVector(FIELDTOVOLUME_BOXMAX, box.max * 0.1);
    bc.SetMatrix(FIELDTOVOLUME_TRANSFORM, zta::MatrixScale(Vector(0.1, 0.1, 0.1)));
    const Volume sampled = RunCommand(kFieldToVolumeCommand, bc, {doc->SearchObject("field")});
    auto a = VolumeObjectData::MakeObject(ball), f = VolumeObjectData::MakeObject(sampled);
    zta::BaseContainer mix;
    mix.SetInt32(MIX_TYPE, 2);
    return RunCommand(kMixCommand, mix, {a.get(), f.get()});
  };
  Evaluate(*doc);
  ASSERT_EQ(CacheVolumes(b).size(), 1u);
  ExpectSameFloatVolume(CacheVolumes(b).at(0), expected());
  const Volume first = CacheVolumes(b).at(0);

  // The ball moves: the field is sampled again in the new box.
  const zta::Int64 conversions = BuilderOf(b)->GetStatistics().conversions;
  doc->SearchObject("ball")->SetMl(zta::Matrix{Vector(-0.4, 0.2, 0), {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  Evaluate(*doc);
  EXPECT_EQ(BuilderOf(b)->GetStatistics().conversions, conversions + 2);
  ExpectSameFloatVolume(CacheVolumes(b).at(0), expected());
  EXPECT_NE(CacheVolumes(b).at(0).GetWorldBoundingBox().min, first.GetWorldBoundingBox().min);

  // A field given its own box keeps it, whatever lies below.
  FindTag(b, doc->SearchObject("field"))->GetDataInstance()->SetInt32(VOLUMEBUILDERTAG_FIELDSOURCE, 1);
  FindTag(b, doc->SearchObject("field"))->GetDataInstance()->SetVector(VOLUMEBUILDERTAG_BOXSIZE, Vector(3, 3, 3));
  Evaluate(*doc);
  EXPECT_LT(CacheVolumes(b).at(0).GetWorldBoundingBox().min.x, -12.0);
}
