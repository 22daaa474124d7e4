// The Volume model: empty volumes, copies, transforms and the distance rescale.
#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include <limits>

#include "host/core/diagnostics.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Vector;

namespace {

constexpr double kMax = std::numeric_limits<double>::max();

Volume SdfSphere(double voxel = 0.1) {
  auto r = VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0, 0, 0), voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r);
  return *r;
}

float ValueAt(const Volume& v, const openvdb::Coord& c) {
  return openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(v))->tree().getValue(c);
}

}  // namespace

TEST(Volume, WithoutGridAnswersWithDefaults) {
  Volume v = *Volume::Create();
  EXPECT_FALSE(v.HasGrid());
  EXPECT_EQ(v.GetGridType(), GRIDTYPE::NONE);
  EXPECT_EQ(v.GetGridClass(), GRIDCLASS::NONE);
  EXPECT_EQ(v.GetMemUsage(), -1);
  EXPECT_EQ(v.GetActiveVoxelCount(), 0);
  EXPECT_EQ(v.GetMinMaxValues(false), (ValueRange{kMax, -kMax}));
  EXPECT_EQ(v.GetWorldBoundingBox().min.x, kMax);
  EXPECT_EQ(v.GetGridTransform(), zta::Matrix());
  EXPECT_EQ(v.GetGridName(), "");
  EXPECT_TRUE(v.GetBackground().IsEmpty());
  EXPECT_EQ(v.MakeUnique().GetError().GetMessage(), "no tree has been set to be made unique");
  v.SetGridTransform(zta::MatrixScale(Vector(2.0)));  // no grid: nothing happens, no crash

  Volume uninitialised;
  auto set = VolumeImpl::SetGrid(uninitialised, openvdb::FloatGrid::create());
  EXPECT_EQ(set.GetError().GetMessage(), "Volume object is not initialized - cannnot set a grid");
  EXPECT_TRUE(VolumeImpl::SetGrid(v, nullptr));  // a null grid leaves the volume alone
  EXPECT_FALSE(v.HasGrid());
}

TEST(Volume, DetectsTypeAndClassOfTheGrid) {
  Volume f = *VolumeToolsInterface::CreateNewFloat32Volume(3.0f);
  EXPECT_TRUE(f.HasGrid());
  EXPECT_EQ(f.GetGridType(), GRIDTYPE::FLOAT);
  EXPECT_EQ(f.GetGridClass(), GRIDCLASS::UNKNOWN);
  EXPECT_EQ(f.GetActiveVoxelCount(), 0);
  EXPECT_EQ(f.GetBackground().Get<float>(), 3.0f);
  EXPECT_EQ(f.GetMinMaxValues(false), (ValueRange{0, 0}));
  EXPECT_EQ(f.GetMinMaxValues(true), (ValueRange{0, 3}));

  Volume vec = *VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(1, 2, 3));
  EXPECT_EQ(vec.GetGridType(), GRIDTYPE::VEC3S);
  EXPECT_EQ(vec.GetGridClass(), GRIDCLASS::UNKNOWN);
  EXPECT_EQ(vec.GetBackground().Get<zta::Vector32>(), zta::Vector32(1, 2, 3));

  const std::pair<openvdb::GridBase::Ptr, GRIDTYPE> cases[] = {
      {openvdb::BoolGrid::create(), GRIDTYPE::BOOL},     {openvdb::DoubleGrid::create(), GRIDTYPE::DOUBLE},
      {openvdb::Int32Grid::create(), GRIDTYPE::INT32},   {openvdb::Int64Grid::create(), GRIDTYPE::INT64},
      {openvdb::Vec3IGrid::create(), GRIDTYPE::VEC3I},   {openvdb::Vec3DGrid::create(), GRIDTYPE::VEC3D},
      {openvdb::MaskGrid::create(), GRIDTYPE::NONE},
  };
  for (const auto& [grid, type] : cases) {
    Volume v = *MakeVolume(grid);
    EXPECT_EQ(v.GetGridType(), type) << grid->type();
  }
  Volume sdf = SdfSphere();
  EXPECT_EQ(sdf.GetGridClass(), GRIDCLASS::SDF);
  sdf.SetGridClass(GRIDCLASS::FOG);
  EXPECT_EQ(VolumeImpl::GetGrid(sdf)->getGridClass(), openvdb::GRID_FOG_VOLUME);
}

TEST(Volume, ValueRangeUsesLengthsForVectorsAndWidensByBackground) {
  auto grid = openvdb::Vec3SGrid::create(openvdb::Vec3s(0, 0, 10));
  grid->tree().setValue(openvdb::Coord(1, 1, 1), openvdb::Vec3s(3, 4, 0));
  grid->tree().setValue(openvdb::Coord(100, 1, 1), openvdb::Vec3s(0, 1, 0));
  Volume v = *MakeVolume(grid);
  EXPECT_EQ(v.GetMinMaxValues(false), (ValueRange{1, 5}));
  EXPECT_EQ(v.GetMinMaxValues(true), (ValueRange{1, 10}));

  auto ints = openvdb::Vec3IGrid::create(openvdb::Vec3i(1, 1, 1));  // length 1.73 counts as 1
  ints->tree().setValue(openvdb::Coord(0), openvdb::Vec3i(0, 0, 4));
  EXPECT_EQ(MakeVolume(ints)->GetMinMaxValues(true), (ValueRange{1, 4}));

  auto bools = openvdb::BoolGrid::create(false);
  bools->tree().setValue(openvdb::Coord(0), true);
  EXPECT_EQ(MakeVolume(bools)->GetMinMaxValues(true), (ValueRange{0, 1}));

  auto tiles = openvdb::FloatGrid::create(0.0f);
  tiles->tree().addTile(1, openvdb::Coord(0), -7.0f, true);  // an active tile counts
  tiles->tree().setValue(openvdb::Coord(500), 2.0f);
  EXPECT_EQ(MakeVolume(tiles)->GetMinMaxValues(false), (ValueRange{-7, 2}));
}

TEST(Volume, BoundingBoxIsCachedInIndexSpace) {
  auto grid = openvdb::FloatGrid::create();
  grid->setTransform(openvdb::math::Transform::createLinearTransform(0.5));
  grid->tree().setValue(openvdb::Coord(-2, 3, 4), 1.0f);
  grid->tree().setValue(openvdb::Coord(5, 6, 10), 1.0f);
  Volume v = *MakeVolume(grid);
  const BoundingBox& b = v.GetWorldBoundingBox();
  EXPECT_NEAR(b.min.x, -2, 1e-9);
  EXPECT_NEAR(b.min.z, 4, 1e-9);
  EXPECT_NEAR(b.max.x, 5, 1e-9);
  EXPECT_NEAR(b.max.z, 10, 1e-9);
  EXPECT_EQ(v.GetActiveVoxelDim(), zta::IntVector32(8, 4, 7));
}

TEST(Volume, CopiesShareUntilAWriterMakesItsOwn) {
  Volume src = SdfSphere();
  (void)src.GetMinMaxValues(false);
  Volume copy = *src.Clone();
  EXPECT_EQ(VolumeImpl::GetGrid(copy)->baseTreePtr(), VolumeImpl::GetGrid(src)->baseTreePtr());
  EXPECT_FALSE(copy.GetImpl()->valueRangeValid);  // the range cache starts over
  EXPECT_EQ(copy.GetGridType(), GRIDTYPE::FLOAT);
  EXPECT_EQ(copy.GetGridClass(), GRIDCLASS::SDF);

  copy.SetGridName("copy");
  EXPECT_NE(src.GetGridName(), "copy");  // metadata is the copy's own

  ASSERT_TRUE(copy.MakeUnique());
  auto tree = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(copy));
  tree->tree().setValue(openvdb::Coord(10, 0, 0), 42.0f);
  EXPECT_NE(ValueAt(src, openvdb::Coord(10, 0, 0)), 42.0f);
  EXPECT_EQ(ValueAt(copy, openvdb::Coord(10, 0, 0)), 42.0f);
}

TEST(Volume, TransformRoundTripsAndRescalesDistances) {
  Volume sdf = SdfSphere(0.1);
  const float before = ValueAt(sdf, openvdb::Coord(10, 0, 0));
  const float bg = sdf.GetBackground().Get<float>();
  zta::Matrix m = sdf.GetGridTransform();
  EXPECT_NEAR(m.v1.x, 0.1, 1e-7);

  sdf.SetGridTransform(m);  // the present matrix: nothing changes
  EXPECT_EQ(ValueAt(sdf, openvdb::Coord(10, 0, 0)), before);

  zta::Matrix doubled = m;
  doubled.v1 *= 2.0;
  doubled.v2 *= 2.0;
  doubled.v3 *= 2.0;
  doubled.off = {1, 2, 3};
  sdf.SetGridTransform(doubled);
  EXPECT_NEAR(ValueAt(sdf, openvdb::Coord(10, 0, 0)), 2 * before, 1e-6);
  EXPECT_NEAR(sdf.GetBackground().Get<float>(), 2 * bg, 1e-6);
  EXPECT_NEAR(ValueAt(sdf, openvdb::Coord(1000, 0, 0)), 2 * bg, 1e-6);    // inactive outside
  EXPECT_NEAR(ValueAt(sdf, openvdb::Coord(0, 0, 0)), -2 * bg, 1e-6);      // inactive inside
  const zta::Matrix back = sdf.GetGridTransform();
  EXPECT_NEAR((back.off - Vector(1, 2, 3)).GetLength(), 0, 1e-12);
  EXPECT_NEAR(back.v1.x, 0.2, 1e-7);

  // Non-uniform new matrix: the mean of the axis lengths decides.
  Volume s2 = SdfSphere(1.0);
  const float v2 = ValueAt(s2, openvdb::Coord(2, 0, 0));
  s2.SetGridTransform(zta::MatrixScale(Vector(2, 2, 5)));
  EXPECT_NEAR(ValueAt(s2, openvdb::Coord(2, 0, 0)), 3 * v2, 1e-5);
  // A non-uniform old transform is left alone.
  const float v3 = ValueAt(s2, openvdb::Coord(2, 0, 0));
  s2.SetGridTransform(zta::MatrixScale(Vector(7, 7, 7)));
  EXPECT_EQ(ValueAt(s2, openvdb::Coord(2, 0, 0)), v3);

  // Fog values do not follow the scale.
  Volume fog = SdfSphere(1.0);
  fog.SetGridClass(GRIDCLASS::FOG);
  const float f = ValueAt(fog, openvdb::Coord(2, 0, 0));
  fog.SetGridTransform(zta::MatrixScale(Vector(2.0)));
  EXPECT_EQ(ValueAt(fog, openvdb::Coord(2, 0, 0)), f);
}

TEST(Volume, ARescaleByTransformKeepsCopiesApart) {
  Volume src = SdfSphere(0.1);
  const float before = ValueAt(src, openvdb::Coord(10, 0, 0));
  const float bg = src.GetBackground().Get<float>();
  const ValueRange range = src.GetMinMaxValues(false);
  Volume copy = *src.Clone();
  EXPECT_EQ(copy.GetMinMaxValues(false), range);  // fills the copy's cache

  copy.SetGridTransform(zta::MatrixScale(Vector(0.2)));
  // The copy's distances doubled, and so did its range; the source kept both.
  EXPECT_NEAR(ValueAt(copy, openvdb::Coord(10, 0, 0)), 2 * before, 1e-6);
  EXPECT_NEAR(copy.GetMinMaxValues(false).min, 2 * range.min, 1e-6);
  EXPECT_NEAR(copy.GetMinMaxValues(false).max, 2 * range.max, 1e-6);
  EXPECT_EQ(ValueAt(src, openvdb::Coord(10, 0, 0)), before);
  EXPECT_EQ(src.GetBackground().Get<float>(), bg);
  EXPECT_EQ(src.GetMinMaxValues(false), range);
  // The sphere's voxel size is a float.
  EXPECT_NEAR(src.GetGridTransform().v1.x, 0.1, 1e-7);
  EXPECT_NE(VolumeImpl::GetGrid(copy)->baseTreePtr(), VolumeImpl::GetGrid(src)->baseTreePtr());

  // A volume holding the very grid object of another moves alone too.
  Volume fog = SdfSphere(0.1);
  fog.SetGridClass(GRIDCLASS::FOG);
  Volume shared = *ShareGrid(fog);
  shared.SetGridTransform(zta::MatrixScale(Vector(0.3)));
  EXPECT_NEAR(shared.GetGridTransform().v1.x, 0.3, 1e-7);
  EXPECT_NEAR(fog.GetGridTransform().v1.x, 0.1, 1e-7);
  EXPECT_EQ(VolumeImpl::GetGrid(shared)->baseTreePtr(), VolumeImpl::GetGrid(fog)->baseTreePtr());
}

TEST(Volume, SingularTransformIsRepairedNotRefused) {
  Volume v = *VolumeToolsInterface::CreateNewFloat32Volume(0.0f);
  zta::Matrix flat;
  flat.v3 = Vector(0.0);
  flat.off = {4, 5, 6};
  std::vector<std::string> log;
  auto old = zta::SetDiagnosticSink([&](const std::string& l) { log.push_back(l); });
  v.SetGridTransform(flat);
  zta::SetDiagnosticSink(old);
  EXPECT_TRUE(log.empty());
  const zta::Matrix m = v.GetGridTransform();
  EXPECT_NEAR(m.v3.GetLength(), 0.0001, 1e-12);
  EXPECT_NEAR(m.v1.x, 1.0, 1e-12);
  EXPECT_NEAR((m.off - Vector(4, 5, 6)).GetLength(), 0, 1e-12);
}
