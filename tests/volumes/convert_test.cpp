// Conversions between level sets, fog and vectors.
#include <gtest/gtest.h>
#include <openvdb/tools/Interpolation.h>

#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace {

using namespace zelmar;
using openvdb::Coord;
using openvdb::FloatGrid;

FloatGrid::Ptr Grid(const Volume& v) { return openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(v)); }

float WorldValue(const Volume& v, const openvdb::Vec3d& p) {
  openvdb::tools::GridSampler<FloatGrid, openvdb::tools::BoxSampler> s(*Grid(v));
  return s.wsSample(p);
}

Volume Sphere(double radius, double voxel) {
  return *VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), voxel, 3, nullptr, nullptr);
}

TEST(Convert, SdfToFogIsOneInsideAndZeroOutside) {
  const Volume sphere = Sphere(1.0, 0.05);
  auto fog = VolumeToolsInterface::ConvertSDFToFog(sphere, 1e30);
  ASSERT_TRUE(fog.IsOk());
  EXPECT_EQ(fog->GetGridClass(), GRIDCLASS::FOG);
  EXPECT_FLOAT_EQ(WorldValue(*fog, {0, 0, 0}), 1.0f);
  EXPECT_FLOAT_EQ(WorldValue(*fog, {0.5, 0.2, 0}), 1.0f);
  EXPECT_FLOAT_EQ(WorldValue(*fog, {1.5, 0, 0}), 0.0f);
  const float edge = WorldValue(*fog, {0.0, 0.0, 1.0 - 0.075});
  EXPECT_GT(edge, 0.0f);
  EXPECT_LT(edge, 1.0f);
  // The input level set is not changed.
  EXPECT_EQ(sphere.GetGridClass(), GRIDCLASS::SDF);
  EXPECT_LT(WorldValue(sphere, {0, 0, 0}), 0.0f);

  // A level set without active voxels only changes class.
  FloatGrid::Ptr empty = FloatGrid::create(0.3f);
  empty->setGridClass(openvdb::GRID_LEVEL_SET);
  auto emptyFog = VolumeToolsInterface::ConvertSDFToFog(*MakeVolume(empty), 1.0);
  ASSERT_TRUE(emptyFog.IsOk());
  EXPECT_EQ(emptyFog->GetGridClass(), GRIDCLASS::FOG);
  EXPECT_EQ(emptyFog->GetActiveVoxelCount(), 0);
}

TEST(Convert, SdfToFogPassesOtherClassesBy) {
  // Fog and unknown come back as the very same reference.
  auto fog = VolumeToolsInterface::CreateNewFloat32Volume(0.0f);
  fog->SetGridClass(GRIDCLASS::FOG);
  auto same = VolumeToolsInterface::ConvertSDFToFog(*fog, 1.0);
  ASSERT_TRUE(same.IsOk());
  EXPECT_TRUE(*same == *fog);
  auto unknown = VolumeToolsInterface::CreateNewFloat32Volume(0.0f);
  EXPECT_TRUE(*VolumeToolsInterface::ConvertSDFToFog(*unknown, 1.0) == *unknown);
  // Staggered, or no volume at all: a volume without grid.
  auto staggered = VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(0.0f));
  staggered->SetGridClass(GRIDCLASS::STAGGERED);
  auto none = VolumeToolsInterface::ConvertSDFToFog(*staggered, 1.0);
  ASSERT_TRUE(none.IsOk());
  EXPECT_FALSE(none->HasGrid());
  auto nothing = VolumeToolsInterface::ConvertSDFToFog(Volume(), 1.0);
  ASSERT_TRUE(nothing.IsOk());
  EXPECT_FALSE(nothing->HasGrid());
}

TEST(Convert, VectorToFogGivesLengths) {
  openvdb::Vec3SGrid::Ptr vec = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.0f));
  vec->setTransform(openvdb::math::Transform::createLinearTransform(0.5));
  vec->tree().setValue(Coord(1, 2, 3), openvdb::Vec3s(3.0f, 4.0f, 0.0f));
  vec->tree().setValue(Coord(-1, 0, 0), openvdb::Vec3s(0.0f, 0.0f, -2.0f));
  vec->tree().addTile(1, Coord(64, 0, 0), openvdb::Vec3s(1.0f, 2.0f, 2.0f), true);
  auto fog = VolumeToolsInterface::ConvertVectorToFog(*MakeVolume(vec), nullptr);
  ASSERT_TRUE(fog.IsOk());
  EXPECT_EQ(fog->GetGridType(), GRIDTYPE::FLOAT);
  EXPECT_EQ(fog->GetGridClass(), GRIDCLASS::FOG);
  const FloatGrid::Ptr g = Grid(*fog);
  EXPECT_FLOAT_EQ(g->tree().getValue(Coord(1, 2, 3)), 5.0f);
  EXPECT_FLOAT_EQ(g->tree().getValue(Coord(-1, 0, 0)), 2.0f);
  EXPECT_FLOAT_EQ(g->tree().getValue(Coord(67, 5, 1)), 3.0f);
  EXPECT_EQ(g->tree().activeTileCount(), 1u);
  EXPECT_EQ(fog->GetActiveVoxelCount(), 2 + 512);
  EXPECT_DOUBLE_EQ(g->voxelSize()[0], 0.5);

  // Scalars: fog and unknown pass through, a level set gives no grid.
  auto scalar = VolumeToolsInterface::CreateNewFloat32Volume(1.0f);
  scalar->SetGridClass(GRIDCLASS::FOG);
  EXPECT_TRUE(*VolumeToolsInterface::ConvertVectorToFog(*scalar, nullptr) == *scalar);
  auto sdf = VolumeToolsInterface::ConvertVectorToFog(Sphere(1.0, 0.2), nullptr);
  ASSERT_TRUE(sdf.IsOk());
  EXPECT_FALSE(sdf->HasGrid());
}

TEST(Convert, FogToSdfPutsTheZeroCrossingAtTheIsoSurface) {
  // A radial density 1 - |x| over a ball of radius 1: its 0.5 surface is a sphere of radius 0.5.
  constexpr double voxel = 0.05;
  FloatGrid::Ptr density = FloatGrid::create(0.0f);
  density->setTransform(openvdb::math::Transform::createLinearTransform(voxel));
  density->setGridClass(openvdb::GRID_FOG_VOLUME);
  auto acc = density->getAccessor();
  for (int i = -22; i <= 22; ++i)
    for (int j = -22; j <= 22; ++j)
      for (int k = -22; k <= 22; ++k) {
        const double d = voxel * std::sqrt(double(i * i + j * j + k * k));
        if (d < 1.0) acc.setValue(Coord(i, j, k), float(1.0 - d));
      }
  const Volume fog = *MakeVolume(density);
  auto sdf = VolumeToolsInterface::ConvertFogToSDF(fog, 0.5, nullptr);
  ASSERT_TRUE(sdf.IsOk()) << sdf.GetError().GetMessage();
  EXPECT_EQ(sdf->GetGridClass(), GRIDCLASS::SDF);
  EXPECT_EQ(sdf->GetGridType(), GRIDTYPE::FLOAT);
  EXPECT_NEAR(Grid(*sdf)->voxelSize()[0], voxel, 1e-12);
  for (const openvdb::Vec3d dir : {openvdb::Vec3d(1, 0, 0), openvdb::Vec3d(0, -1, 0), openvdb::Vec3d(1, 1, 1).unit()}) {
    EXPECT_NEAR(WorldValue(*sdf, dir * 0.5), 0.0, voxel) << dir;
    EXPECT_LT(WorldValue(*sdf, dir * 0.3), 0.0) << dir;
    EXPECT_GT(WorldValue(*sdf, dir * 0.7), 0.0) << dir;
  }
  EXPECT_EQ(fog.GetGridClass(), GRIDCLASS::FOG);

  // A fog moved away from the origin keeps its surface where it stands.
  const openvdb::Vec3d offset(0.3, -0.2, 0.5);
  auto moved = density->deepCopy();
  moved->transform().postTranslate(offset);
  auto movedSdf = VolumeToolsInterface::ConvertFogToSDF(*MakeVolume(moved), 0.5, nullptr);
  ASSERT_TRUE(movedSdf.IsOk()) << movedSdf.GetError().GetMessage();
  for (const openvdb::Vec3d dir : {openvdb::Vec3d(1, 0, 0), openvdb::Vec3d(0, 0, -1)}) {
    EXPECT_NEAR(WorldValue(*movedSdf, offset + dir * 0.5), 0.0, voxel) << dir;
    EXPECT_LT(WorldValue(*movedSdf, offset + dir * 0.3), 0.0) << dir;
  }

  // A level set comes back as it is; vectors give a volume without grid.
  const Volume sphere = Sphere(1.0, 0.1);
  EXPECT_TRUE(*VolumeToolsInterface::ConvertFogToSDF(sphere, 0.5, nullptr) == sphere);
  auto vec = VolumeToolsInterface::ConvertFogToSDF(*VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(0.0f)),
                                                   0.5, nullptr);
  ASSERT_TRUE(vec.IsOk());
  EXPECT_FALSE(vec->HasGrid());
}

}  // namespace
