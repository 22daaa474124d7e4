// Empty and primitive volumes.
#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include "host/core/thread.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Vector;

TEST(Primitives, SphereIsALevelSetWhereItWasAsked) {
  auto r = VolumeToolsInterface::CreateSphereVolume(2.0, Vector(1, -1, 3), 0.25, 3, nullptr, nullptr);
  ASSERT_TRUE(r);
  Volume v = *r;
  EXPECT_EQ(v.GetGridClass(), GRIDCLASS::SDF);
  EXPECT_EQ(v.GetGridType(), GRIDTYPE::FLOAT);
  EXPECT_NEAR(v.GetGridTransform().v1.x, 0.25, 1e-7);
  auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(v));
  const auto& xf = grid->transform();
  auto at = [&](const Vector& p) {
    return grid->tree().getValue(openvdb::Coord::round(xf.worldToIndex(openvdb::Vec3d(p.x, p.y, p.z))));
  };
  EXPECT_NEAR(at(Vector(3, -1, 3)), 0.0f, 1e-4);    // on the surface
  EXPECT_NEAR(at(Vector(1, -1, 5.25)), 0.25f, 1e-4);  // one voxel outside
  EXPECT_LT(at(Vector(1, -1, 3)), 0.0f);             // centre is inside
  EXPECT_NEAR(grid->background(), 0.75f, 1e-6);      // three voxels of band
}

TEST(Primitives, RefusesUnusableSettingsAndClampsTheRadius) {
  EXPECT_EQ(VolumeToolsInterface::CreateSphereVolume(1, Vector(), 0.0, 3, nullptr, nullptr).GetError().GetMessage(),
            "Could not create spherical volume with those settings");
  auto noBand = VolumeToolsInterface::CreateSphereVolume(1, Vector(), 0.1, 0, nullptr, nullptr);
  EXPECT_EQ(noBand.GetError().GetKind(), zta::ErrorKind::IllegalArgument);
  EXPECT_EQ(VolumeToolsInterface::CreateSphereVolume(1, Vector(), 0.1, -2, nullptr, nullptr).GetError().GetMessage(),
            "Failed to create a SDF sphere");

  auto tiny = VolumeToolsInterface::CreateSphereVolume(-1.0, Vector(), 0.1, 3, nullptr, nullptr);
  ASSERT_TRUE(tiny);
  EXPECT_LE(tiny->GetActiveVoxelCount(), 64);

  EXPECT_EQ(VolumeToolsInterface::CreatePlatonicVolume(5, 1, Vector(), 0.1, 3, nullptr, nullptr).GetError().GetMessage(),
            "Failed to create a SDF platonic");
  EXPECT_EQ(VolumeToolsInterface::CreatePlatonicVolume(0, 1, Vector(), 0.1, 3, nullptr, nullptr).GetError().GetMessage(),
            "Could not create platonic volume with those settings");
  for (int sides : {4, 6, 8, 12, 20}) {
    auto p = VolumeToolsInterface::CreatePlatonicVolume(sides, 1.0, Vector(), 0.1, 3, nullptr, nullptr);
    ASSERT_TRUE(p) << sides;
    EXPECT_GT(p->GetActiveVoxelCount(), 0);
    EXPECT_EQ(p->GetGridClass(), GRIDCLASS::SDF);
  }
}

TEST(Primitives, CreationTransformDecidesTheFrame) {
  zta::Matrix m = zta::MatrixScale(Vector(0.5));
  m.off = {10, 0, 0};
  auto r = VolumeToolsInterface::CreateSphereVolume(4.0, Vector(10, 0, 0), 1.0, 3, nullptr, &m);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->GetGridTransform(), m);
  // Built at world size with voxel size 1, then carried by the half-size transform.
  auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(*r));
  EXPECT_NEAR(grid->tree().getValue(openvdb::Coord(4, 0, 0)), 0.0f, 1e-5);
  EXPECT_LT(grid->tree().getValue(openvdb::Coord(0, 0, 0)), 0.0f);
}

TEST(Primitives, StopWhenTheThreadIsAskedTo) {
  auto thread = std::make_shared<zta::ZTAThread>();
  thread->End();
  auto r = VolumeToolsInterface::CreateSphereVolume(1.0, Vector(), 0.01, 3, thread, nullptr);
  // The level set builder stops early and hands back what it made: not the full sphere.
  ASSERT_TRUE(r.IsOk()) << r.GetError().GetMessage();
  EXPECT_LT(r->GetActiveVoxelCount(), 100000);
}
