// Particle lists and PointsToVolume.
#include <gtest/gtest.h>
#include <openvdb/tools/Interpolation.h>

#include "host/objects/particles.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/pointstovolume.h"

namespace {

using namespace zelmar;
using openvdb::FloatGrid;

constexpr double kVoxel = 0.05;

PointsToVolumeListInterface List(std::initializer_list<PointsToVolumePoint> points,
                                 const zta::BaseObject* object = nullptr) {
  auto list = PointsToVolumeListInterface::Create(object);
  EXPECT_TRUE(list.IsOk());
  for (const auto& p : points) EXPECT_TRUE(list->AppendPoint(p.position, p.radius, p.velocity).IsOk());
  return *list;
}

Volume Rasterize(const std::vector<PointsToVolumeListInterface>& lists, double velocityScale = 0.0,
                 const Matrix* creationTransform = nullptr, double voxel = kVoxel) {
  auto v = VolumeToolsInterface::PointsToVolume(lists, voxel, 3, nullptr, creationTransform, velocityScale);
  EXPECT_TRUE(v.IsOk()) << (v ? "" : v.GetError().GetMessage());
  return v ? *v : Volume();
}

double At(const Volume& v, const Vector& world) {
  openvdb::tools::GridSampler<FloatGrid, openvdb::tools::BoxSampler> s(
      *openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(v)));
  return s.wsSample(openvdb::Vec3d(world.x, world.y, world.z));
}

TEST(PointsList, StoresPointsInStableBlocks) {
  PointsToVolumeListInterface unset;
  auto refused = unset.AppendPoint(Vector(0.0), 1.0, Vector(0.0));
  ASSERT_FALSE(refused.IsOk());
  EXPECT_EQ(refused.GetError().GetMessage(), "particle list not initialized");
  EXPECT_EQ(unset.GetCount(), 0);

  auto list = PointsToVolumeListInterface::Create(nullptr, 2.0, 0.5);
  ASSERT_TRUE(list.IsOk());
  EXPECT_EQ(list->GetScale(), 2.0);
  EXPECT_EQ(list->GetVelicityScale(), 0.5);
  ASSERT_TRUE(list->AppendPoint(Vector(1, 2, 3), 0.5, Vector(4, 5, 6)).IsOk());
  const PointsToVolumePoint* first = &list->GetPoint(0);
  for (int i = 1; i < 5000; ++i) ASSERT_TRUE(list->AppendPoint(Vector(i, 0, 0), 0.1 * i, Vector(0.0)).IsOk());
  EXPECT_EQ(list->GetCount(), 5000);
  EXPECT_EQ(&list->GetPoint(0), first);
  EXPECT_EQ(first->position, Vector(1, 2, 3));
  EXPECT_EQ(first->velocity, Vector(4, 5, 6));
  EXPECT_EQ(list->GetPoint(4321).position, Vector(4321, 0, 0));
  EXPECT_DOUBLE_EQ(list->GetPoint(4321).radius, 432.1);
}

TEST(PointsToVolume, SpheresStandWherePositionAndRadiusPutThem) {
  const Volume v = Rasterize({List({{{0, 0, 0}, {}, 0.5}}), List({{{2, 1, 0}, {}, 0.3}, {{-1, 0, 1}, {}, 0.2}})});
  EXPECT_EQ(v.GetGridClass(), GRIDCLASS::SDF);
  EXPECT_NEAR(At(v, {0.5, 0, 0}), 0.0, 0.01 * kVoxel);
  EXPECT_NEAR(At(v, {0, -0.5, 0}), 0.0, 0.01 * kVoxel);
  EXPECT_NEAR(At(v, {2, 1.3, 0}), 0.0, 0.01 * kVoxel);
  EXPECT_NEAR(At(v, {-1, 0, 0.8}), 0.0, 0.01 * kVoxel);
  EXPECT_LT(At(v, {2, 1, 0}), 0.0);
  EXPECT_GT(At(v, {1, 0.5, 0}), 0.0);
}

TEST(PointsToVolume, RadiusLimitsSkipParticles) {
  // In voxels: 0.8 (below both limits), 1.2 (a sphere, but too small for a trail).
  const auto list = List({{{0, 0, 0}, {}, 0.8 * kVoxel}, {{1, 0, 0}, {}, 1.2 * kVoxel}});
  const Volume spheres = Rasterize({list});
  EXPECT_GT(At(spheres, {0, 0, 0}), 0.0);
  EXPECT_LT(At(spheres, {1, 0, 0}), 0.0);
  const Volume trails = Rasterize({list}, 1.0);
  EXPECT_EQ(trails.GetActiveVoxelCount(), 0);
}

TEST(PointsToVolume, TrailsOnlyWithAVelocityScale) {
  // Moving along +x: the trail lies behind, toward -x.
  const auto list = List({{{0, 0, 0}, {1, 0, 0}, 0.2}});
  const Volume spheres = Rasterize({list}, 0.0);
  const Volume trails = Rasterize({list}, 1.0);
  EXPECT_GT(At(spheres, {-0.5, 0, 0}), 0.0);
  EXPECT_LT(At(trails, {-0.5, 0, 0}), 0.0);
  EXPECT_GT(At(trails, {0.5, 0, 0}), 0.0);
  EXPECT_NEAR(At(trails, {0.2, 0, 0}), 0.0, 0.01 * kVoxel);
}

TEST(PointsToVolume, FramesOfTheGrid) {
  const auto list = List({{{1, 0, 0}, {}, 0.5}});
  // No points: an empty level set with the band's background.
  const Volume empty = Rasterize({});
  EXPECT_EQ(empty.GetActiveVoxelCount(), 0);
  EXPECT_EQ(empty.GetGridClass(), GRIDCLASS::SDF);
  EXPECT_FLOAT_EQ(openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(empty))->background(), float(3 * kVoxel));
  EXPECT_EQ(Rasterize({PointsToVolumeListInterface()}).GetActiveVoxelCount(), 0);
  // A band of no voxels too: a level set whose background is 0.
  auto thin = VolumeToolsInterface::PointsToVolume({}, kVoxel, 0, nullptr, nullptr, 0.0);
  ASSERT_TRUE(thin.IsOk()) << thin.GetError().GetMessage();
  EXPECT_EQ(thin->GetGridClass(), GRIDCLASS::SDF);
  EXPECT_EQ(thin->GetActiveVoxelCount(), 0);
  EXPECT_FLOAT_EQ(openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(*thin))->background(), 0.0f);
  EXPECT_TRUE(VolumeToolsInterface::PointsToVolume({list}, kVoxel, 0, nullptr, nullptr, 0.0).IsOk());
  EXPECT_FALSE(VolumeToolsInterface::PointsToVolume({list}, kVoxel, -1, nullptr, nullptr, 0.0).IsOk());

  // A non-uniform transform gives way to uniform voxels of its largest axis,
  // with its rotation and offset; the particle stays where it is.
  const Matrix skewed = zta::MatrixMove({0.3, 0, 0}) * zta::MatrixRotZ(0.4) * zta::MatrixScale({0.02, 0.02, 0.04});
  const Volume v = Rasterize({list}, 0.0, &skewed);
  const Vector len = v.GetGridTransform().GetScale();
  EXPECT_NEAR(len.x, 0.04, 1e-12);
  EXPECT_NEAR(len.y, 0.04, 1e-12);
  EXPECT_NEAR(len.z, 0.04, 1e-12);
  EXPECT_NEAR(v.GetGridTransform().off.x, 0.3, 1e-12);
  EXPECT_NEAR(At(v, {1.5, 0, 0}), 0.0, 0.01);
  EXPECT_NEAR(At(v, {1, 0, -0.5}), 0.0, 0.01);
  // Positions multiplied by a residual (the inverse of the uniform matrix
  // times the creation transform) would move the particle from (1, 0, 0) to
  // (0.5, 0, 0), and its surface with it: such a residual is not applied.
  const Matrix uniform = zta::MatrixMove({0.3, 0, 0}) * zta::MatrixRotZ(0.4) * zta::MatrixScale(Vector(0.04));
  const Vector moved = (uniform.GetInverse() * skewed) * Vector(1, 0, 0);
  EXPECT_NEAR(moved.x, 0.5, 1e-9);
  EXPECT_NEAR(moved.y, 0.0, 1e-9);
  EXPECT_LT(At(v, moved + Vector(0.5, 0, 0)), -0.1);  // the particle's centre, not a surface
  EXPECT_GT(At(v, moved - Vector(0.5, 0, 0)), 0.1);   // outside, not a surface

  // Without a creation transform the grid takes the matrix of the list's object.
  auto group = zta::ParticleGroupObject::Alloc();
  group->SetMg(zta::MatrixMove({5, 0, 0}) * zta::MatrixRotY(0.3));
  const Volume turned = Rasterize({List({{{1, 0, 0}, {}, 0.5}}, group.get())});
  EXPECT_NEAR(turned.GetGridTransform().off.x, 5.0, 1e-12);
  EXPECT_NEAR(At(turned, {1, 0.5, 0}), 0.0, 0.05 * kVoxel);

  auto bad = VolumeToolsInterface::PointsToVolume({list}, 0.0, 3, nullptr, nullptr, 0.0);
  ASSERT_FALSE(bad.IsOk());
  EXPECT_EQ(bad.GetError().GetMessage(), "could not create transformation");
}

}  // namespace
