// ApplyFilterToVolume: neighbourhood and per-voxel filters of float and vector volumes.
#include <gtest/gtest.h>

#include <limits>

#include "host/fields/splinedata.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace {

using namespace zelmar;
using openvdb::Coord;
using openvdb::FloatGrid;
using openvdb::Vec3s;
using openvdb::Vec3SGrid;

// A fog volume: voxels (i, 0, 0) with value `value(i)` for i in [0, 8), an
// active tile of 0.25 at (64..71, 0..7, 0..7), background 0, and one inactive
// voxel of 0.75 at (-4, 0, 0).
Volume FogLine(float (*value)(int)) {
  FloatGrid::Ptr g = FloatGrid::create(0.0f);
  g->setGridClass(openvdb::GRID_FOG_VOLUME);
  auto acc = g->getAccessor();
  for (int i = 0; i < 8; ++i) acc.setValue(Coord(i, 0, 0), value(i));
  acc.setValueOff(Coord(-4, 0, 0), 0.75f);
  g->tree().addTile(1, Coord(64, 0, 0), 0.25f, true);
  return *MakeVolume(g);
}

float Ramp(int i) { return 0.125f * float(i); }

FloatGrid::Ptr Grid(const Volume& v) { return openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(v)); }

float At(const Volume& v, int i, int j = 0, int k = 0) { return Grid(v)->getConstAccessor().getValue(Coord(i, j, k)); }

FilterSettings Settings(FILTERTYPE type, double strength = 1.0) {
  FilterSettings s;
  s.filterType = type;
  s.strength = strength;
  return s;
}

Volume Apply(const Volume& in, const FilterSettings& s, const Volume& mask = Volume(), const ThreadRef& thread = nullptr) {
  auto out = VolumeToolsInterface::ApplyFilterToVolume(in, s, thread, mask, nullptr);
  EXPECT_TRUE(out.IsOk()) << (out ? "" : out.GetError().GetMessage());
  return out ? *out : Volume();
}

TEST(ValueFilter, PerVoxelFiltersMapEveryActiveValue) {
  const Volume fog = FogLine(Ramp);
  FilterSettings remap = Settings(FILTERTYPE::REMAP);
  remap.remap_oldMin = 0.0;
  remap.remap_oldMax = 1.0;
  remap.remap_newMin = 2.0;
  remap.remap_newMax = 4.0;
  const Volume remapped = Apply(fog, remap);
  EXPECT_FLOAT_EQ(At(remapped, 4), 3.0f);
  EXPECT_FLOAT_EQ(At(remapped, 70, 3, 5), 2.5f);  // inside the former tile
  EXPECT_FLOAT_EQ(At(remapped, -4), 0.75f);        // inactive: untouched
  EXPECT_FLOAT_EQ(Grid(remapped)->background(), 0.0f);
  EXPECT_EQ(remapped.GetActiveVoxelCount(), fog.GetActiveVoxelCount());
  EXPECT_EQ(Grid(remapped)->tree().activeTileCount(), 0u);

  // An empty old range does nothing, though the tiles have become voxels.
  remap.remap_oldMax = 0.0;
  const Volume same = Apply(fog, remap);
  EXPECT_FLOAT_EQ(At(same, 4), 0.5f);
  EXPECT_EQ(Grid(same)->tree().activeTileCount(), 0u);

  // MULTIPLY takes the strength as its factor; ABS ignores it.
  const Volume halved = Apply(fog, Settings(FILTERTYPE::MULTIPLY, 0.5));
  EXPECT_FLOAT_EQ(At(halved, 6), 0.375f);
  EXPECT_FLOAT_EQ(At(halved, 64, 0, 0), 0.125f);
  const Volume negative = Apply(fog, Settings(FILTERTYPE::MULTIPLY, -2.0));
  EXPECT_FLOAT_EQ(At(Apply(negative, Settings(FILTERTYPE::ABS, 0.5)), 3), 0.75f);

  FilterSettings invert = Settings(FILTERTYPE::INVERT);
  invert.invertCenter = 0.5;
  EXPECT_FLOAT_EQ(At(Apply(fog, invert), 2), 0.75f);

  // The input is not changed, and the tile is still a tile there.
  EXPECT_FLOAT_EQ(At(fog, 4), 0.5f);
  EXPECT_EQ(Grid(fog)->tree().activeTileCount(), 1u);
}

TEST(ValueFilter, StrengthFadesRemapsAndBlendsInvert) {
  const Volume fog = FogLine(Ramp);
  FilterSettings remap = Settings(FILTERTYPE::REMAP, 0.5);
  remap.remap_newMin = 1.0;
  remap.remap_newMax = 2.0;
  // Half of v and half of v + 1.
  EXPECT_FLOAT_EQ(At(Apply(fog, remap), 2), 0.75f);

  // Half of v and half of 1 - v: 0.5 everywhere.
  FilterSettings invert = Settings(FILTERTYPE::INVERT, 0.5);
  invert.invertCenter = 0.5;
  const Volume blended = Apply(fog, invert);
  for (int i = 0; i < 8; ++i) EXPECT_NEAR(At(blended, i), 0.5f, 1e-6f) << i;

  // A mask volume limits the filter to where it is above zero.
  FloatGrid::Ptr mask = FloatGrid::create(0.0f);
  for (int i = 4; i < 8; ++i) mask->tree().setValue(Coord(i, 0, 0), 1.0f);
  const Volume masked = Apply(fog, Settings(FILTERTYPE::MULTIPLY, 0.0), *MakeVolume(mask));
  EXPECT_FLOAT_EQ(At(masked, 2), 0.25f);
  EXPECT_FLOAT_EQ(At(masked, 5), 0.0f);
}

TEST(ValueFilter, CurveRemapFollowsTheCurve) {
  const Volume fog = FogLine(Ramp);
  auto curve = std::make_shared<zta::SplineData>();
  curve->SetRange(0.0, 1.0, 0.0, 2.0);
  curve->InsertKnot(0.0, 0.0, zta::CURVEINTERPOLATION::LINEAR);
  curve->InsertKnot(1.0, 2.0, zta::CURVEINTERPOLATION::LINEAR);
  FilterSettings s = Settings(FILTERTYPE::CURVEREMAP);
  s.remapCurve = curve;
  const Volume out = Apply(fog, s);
  for (int i = 0; i < 8; ++i) EXPECT_NEAR(At(out, i), 2.0f * Ramp(i), 1e-3f) << i;

  s.remapCurve.reset();
  auto failed = VolumeToolsInterface::ApplyFilterToVolume(fog, s, nullptr, Volume(), nullptr);
  ASSERT_FALSE(failed.IsOk());
  EXPECT_EQ(failed.GetError().GetMessage(), "could not initialize spline cache");
}

TEST(ValueFilter, NeighbourhoodFiltersSpreadAndOffset) {
  // A spike of 1 in a block of active zeros.
  FloatGrid::Ptr g = FloatGrid::create(0.0f);
  g->tree().fill(openvdb::CoordBBox(Coord(-8), Coord(8)), 0.0f, true);
  // Voxels throughout: tiles are left as they stand and would swallow what spreads into them.
  g->tree().voxelizeActiveTiles();
  g->tree().setValue(Coord(0), 1.0f);
  const Volume spike = *MakeVolume(g);

  FilterSettings s = Settings(FILTERTYPE::MEANVALUE);
  s.radius = 1;
  const Volume mean = Apply(spike, s);
  EXPECT_NEAR(At(mean, 0, 0, 0), 1.0f / 27.0f, 1e-6f);
  EXPECT_NEAR(At(mean, 1, 1, 1), 1.0f / 27.0f, 1e-6f);
  EXPECT_FLOAT_EQ(At(mean, 3, 0, 0), 0.0f);

  s.filterType = FILTERTYPE::GAUSSIAN;
  const Volume gauss = Apply(spike, s);
  EXPECT_LT(At(gauss, 0), 1.0f);
  EXPECT_GT(At(gauss, 1, 0, 0), 0.0f);
  EXPECT_GT(At(gauss, 0), At(gauss, 1, 0, 0));

  s.filterType = FILTERTYPE::MEDIANVALUE;
  EXPECT_FLOAT_EQ(At(Apply(spike, s), 0), 0.0f);

  s.filterType = FILTERTYPE::ADD;
  s.offset = 0.5f;
  s.iterations = 3;
  EXPECT_FLOAT_EQ(At(Apply(spike, s), 2, 2, 2), 1.5f);
  s.iterations = 0;
  EXPECT_FLOAT_EQ(At(Apply(spike, s), 2, 2, 2), 0.0f);
  // Added only where a constant mask of the strength lets it, faded by it.
  s.iterations = 1;
  s.strength = 0.5;
  EXPECT_FLOAT_EQ(At(Apply(spike, s), 2, 2, 2), 0.25f);
  s.strength = 0.0;
  EXPECT_FLOAT_EQ(At(Apply(spike, s), 2, 2, 2), 0.0f);
}

TEST(ValueFilter, NeighbourhoodFiltersKeepTheTopologyOfAFog) {
  // The inside of a fog made from a level set is tiles, which the
  // neighbourhood filters leave as they are: only the leaves are filtered.
  auto sphere = VolumeToolsInterface::CreateSphereVolume(2.0, Vector(0.0), 0.05, 3, nullptr, nullptr);
  ASSERT_TRUE(sphere.IsOk());
  auto fog = VolumeToolsInterface::ConvertSDFToFog(*sphere, std::numeric_limits<double>::max());
  ASSERT_TRUE(fog.IsOk());
  const FloatGrid::Ptr in = Grid(*fog);
  ASSERT_GT(in->tree().activeTileCount(), 0u);
  for (FILTERTYPE type : {FILTERTYPE::GAUSSIAN, FILTERTYPE::MEANVALUE, FILTERTYPE::MEDIANVALUE, FILTERTYPE::ADD}) {
    FilterSettings s = Settings(type);
    s.offset = 0.5f;
    s.iterations = 2;
    const FloatGrid::Ptr out = Grid(Apply(*fog, s));
    ASSERT_TRUE(out) << int(type);
    EXPECT_EQ(out->tree().activeTileCount(), in->tree().activeTileCount()) << int(type);
    EXPECT_EQ(out->tree().leafCount(), in->tree().leafCount()) << int(type);
    EXPECT_EQ(out->activeVoxelCount(), in->activeVoxelCount()) << int(type);
    EXPECT_TRUE(out->tree().hasSameTopology(in->tree())) << int(type);
    // A tile deep inside keeps its value.
    EXPECT_FLOAT_EQ(out->tree().getValue(Coord(0)), 1.0f) << int(type);
  }
}

TEST(ValueFilter, VectorVolumesFilterPerComponent) {
  Vec3SGrid::Ptr g = Vec3SGrid::create(Vec3s(0.0f));
  g->tree().fill(openvdb::CoordBBox(Coord(0), Coord(3)), Vec3s(1.0f, -2.0f, 3.0f), true);
  const Volume vec = *MakeVolume(g);
  auto at = [](const Volume& v, const Coord& c) {
    return openvdb::gridPtrCast<Vec3SGrid>(VolumeImpl::GetGrid(v))->getConstAccessor().getValue(c);
  };
  EXPECT_EQ(at(Apply(vec, Settings(FILTERTYPE::MULTIPLY, 2.0)), Coord(1)), Vec3s(2.0f, -4.0f, 6.0f));
  EXPECT_EQ(at(Apply(vec, Settings(FILTERTYPE::ABS)), Coord(2)), Vec3s(1.0f, 2.0f, 3.0f));
  FilterSettings invert = Settings(FILTERTYPE::INVERT);
  invert.invertCenter = 1.0;
  EXPECT_EQ(at(Apply(vec, invert), Coord(3)), Vec3s(1.0f, 4.0f, -1.0f));
  FilterSettings add = Settings(FILTERTYPE::ADD);
  add.offset = 1.0f;
  EXPECT_EQ(at(Apply(vec, add), Coord(0)), Vec3s(2.0f, -1.0f, 4.0f));
  // A mean over a constant field keeps it inside.
  EXPECT_EQ(at(Apply(vec, Settings(FILTERTYPE::MEANVALUE)), Coord(1)), Vec3s(1.0f, -2.0f, 3.0f));
}

TEST(ValueFilter, OtherTypesAndCancelling) {
  openvdb::DoubleGrid::Ptr d = openvdb::DoubleGrid::create(0.0);
  d->tree().setValue(Coord(0), -1.0);
  const Volume dbl = *MakeVolume(d);
  auto out = VolumeToolsInterface::ApplyFilterToVolume(dbl, Settings(FILTERTYPE::ABS), nullptr, Volume(), nullptr);
  ASSERT_TRUE(out.IsOk());
  EXPECT_TRUE(*out == dbl);

  const Volume fog = FogLine(Ramp);
  auto stopped = std::make_shared<zta::ZTAThread>();
  stopped->End();
  FilterSettings s = Settings(FILTERTYPE::GAUSSIAN);
  s.iterations = 4;
  EXPECT_TRUE(Apply(fog, s, Volume(), stopped) == fog);
  EXPECT_TRUE(Apply(fog, Settings(FILTERTYPE::ABS), Volume(), stopped) == fog);
}

}  // namespace
