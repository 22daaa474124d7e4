// Derived volumes: gradient, curl, mean curvature, normalised and rotated vectors.
#include <gtest/gtest.h>
#include <openvdb/tools/Interpolation.h>

#include "host/core/diagnostics.h"
#include "modules/volumes/source/volume_impl.h"
#include "support/expect.h"
#include "zelmar/volumetools.h"

namespace {

using namespace zelmar;
using openvdb::Coord;
using openvdb::Vec3s;
using openvdb::Vec3SGrid;
using zvtest::ExpectNear;

Volume Sphere(double radius) {
  return *VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), 0.05, 3, nullptr, nullptr);
}

// A vec3s grid over a 16^3 box with v(x, y, z) = f(x, y, z) at voxel centres, voxel size 0.5.
template <typename F>
Volume VectorField(F f) {
  Vec3SGrid::Ptr g = Vec3SGrid::create(Vec3s(0.0f));
  g->setTransform(openvdb::math::Transform::createLinearTransform(0.5));
  auto acc = g->getAccessor();
  for (int i = -8; i < 8; ++i)
    for (int j = -8; j < 8; ++j)
      for (int k = -8; k < 8; ++k) acc.setValue(Coord(i, j, k), f(0.5 * i, 0.5 * j, 0.5 * k));
  return *MakeVolume(g);
}

Vec3s VecAt(const Volume& v, const Coord& c) {
  return openvdb::gridPtrCast<Vec3SGrid>(VolumeImpl::GetGrid(v))->getConstAccessor().getValue(c);
}

TEST(Derive, GradientAndCurvatureOfALevelSet) {
  const Volume sphere = Sphere(1.0);
  auto grad = VolumeToolsInterface::CreateGradientVolume(sphere, nullptr);
  ASSERT_TRUE(grad.IsOk());
  EXPECT_EQ(grad->GetGridType(), GRIDTYPE::VEC3S);
  auto gg = openvdb::gridPtrCast<Vec3SGrid>(VolumeImpl::GetGrid(*grad));
  // On the surface the gradient is the outward unit normal.
  openvdb::tools::GridSampler<Vec3SGrid, openvdb::tools::BoxSampler> gs(*gg);
  const openvdb::Vec3d n = openvdb::Vec3d(1, 2, -2).unit();
  const Vec3s g = gs.wsSample(n * 1.0);
  ExpectNear(g, Vec3s(n), 0.05f);

  auto curv = VolumeToolsInterface::CreateMeanCurvatureVolume(sphere, nullptr);
  ASSERT_TRUE(curv.IsOk());
  EXPECT_EQ(curv->GetGridType(), GRIDTYPE::FLOAT);
  openvdb::tools::GridSampler<openvdb::FloatGrid, openvdb::tools::BoxSampler> cs(
      *openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(*curv)));
  EXPECT_NEAR(cs.wsSample(n * 1.0), 1.0, 0.05);

  // Doubles give double vectors; int64 and vectors give no grid and no error.
  openvdb::DoubleGrid::Ptr d = openvdb::DoubleGrid::create(0.0);
  d->tree().setValue(Coord(0), 1.0);
  EXPECT_EQ(VolumeToolsInterface::CreateGradientVolume(*MakeVolume(d), nullptr)->GetGridType(), GRIDTYPE::VEC3D);
  openvdb::Int32Grid::Ptr i32 = openvdb::Int32Grid::create(0);
  for (int i = -2; i <= 2; ++i) i32->tree().setValue(Coord(i, 0, 0), 3 * i);
  auto intGrad = VolumeToolsInterface::CreateGradientVolume(*MakeVolume(i32), nullptr);
  ASSERT_TRUE(intGrad.IsOk());
  EXPECT_EQ(intGrad->GetGridType(), GRIDTYPE::VEC3I);
  EXPECT_EQ(intGrad->GetActiveVoxelCount(), 5);
  openvdb::Int64Grid::Ptr i64 = openvdb::Int64Grid::create(0);
  std::vector<std::string> said;
  const zta::DiagnosticSink previous = zta::SetDiagnosticSink([&](const std::string& l) { said.push_back(l); });
  auto noGrid = VolumeToolsInterface::CreateGradientVolume(*MakeVolume(i64), nullptr);
  zta::SetDiagnosticSink(previous);
  ASSERT_TRUE(noGrid.IsOk());
  EXPECT_FALSE(noGrid->HasGrid());
  EXPECT_EQ(said, std::vector<std::string>{"64bit integer not yet supported"});
  auto vecCurv = VolumeToolsInterface::CreateMeanCurvatureVolume(
      *VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(0.0f)), nullptr);
  ASSERT_TRUE(vecCurv.IsOk());
  EXPECT_FALSE(vecCurv->HasGrid());

  auto noVolume = VolumeToolsInterface::CreateGradientVolume(*Volume::Create(), nullptr);
  ASSERT_FALSE(noVolume.IsOk());
  EXPECT_EQ(noVolume.GetError().GetMessage(), "no vdb grid attached to volume");
}

TEST(Derive, CurlAndNormalizeOfVectorFields) {
  // A rigid rotation about z: curl (0, 0, 2) everywhere inside.
  const Volume swirl = VectorField([](double x, double y, double) { return Vec3s(float(-y), float(x), 0.0f); });
  auto curl = VolumeToolsInterface::CreateCurlVolume(swirl, nullptr);
  ASSERT_TRUE(curl.IsOk());
  ExpectNear(VecAt(*curl, Coord(1, -2, 3)), Vec3s(0.0f, 0.0f, 2.0f), 1e-4f);

  auto unit = VolumeToolsInterface::NormalizeVectorVolume(swirl, nullptr);
  ASSERT_TRUE(unit.IsOk());
  const Vec3s u = VecAt(*unit, Coord(3, 4, 0));
  EXPECT_NEAR(u.length(), 1.0f, 1e-5f);
  ExpectNear(u, Vec3s(-0.8f, 0.6f, 0.0f), 1e-5f);
  // The input is left alone.
  ExpectNear(VecAt(swirl, Coord(3, 4, 0)), Vec3s(-2.0f, 1.5f, 0.0f), 0.0f);

  for (auto op : {&VolumeToolsInterface::CreateCurlVolume, &VolumeToolsInterface::NormalizeVectorVolume}) {
    auto failed = op(Sphere(0.5), nullptr);
    ASSERT_FALSE(failed.IsOk());
    EXPECT_EQ(failed.GetError().GetMessage(), "grid type is not a vector type");
  }
}

TEST(Derive, RotateTurnsVectorsAboutTheAxis) {
  const Volume field = VectorField([](double, double, double) { return Vec3s(1.0f, 0.0f, 0.0f); });
  // Right-hand rule: a quarter turn about +z takes +x to +y.
  auto turned = VolumeToolsInterface::RotateVectorVolume(field, Vector(0, 0, 2), M_PI / 2, nullptr, nullptr);
  ASSERT_TRUE(turned.IsOk());
  ExpectNear(VecAt(*turned, Coord(0)), Vec3s(0.0f, 1.0f, 0.0f), 1e-6f);
  auto aboutY = VolumeToolsInterface::RotateVectorVolume(field, Vector(0, 1, 0), M_PI / 2, nullptr, nullptr);
  ExpectNear(VecAt(*aboutY, Coord(2)), Vec3s(0.0f, 0.0f, -1.0f), 1e-6f);
  // A zero axis gives an equal copy.
  auto same = VolumeToolsInterface::RotateVectorVolume(field, Vector(0.0), 1.0, nullptr, nullptr);
  ASSERT_TRUE(same.IsOk());
  EXPECT_NE(VolumeImpl::GetGrid(*same), VolumeImpl::GetGrid(field));
  ExpectNear(VecAt(*same, Coord(-3)), Vec3s(1.0f, 0.0f, 0.0f), 0.0f);
  ExpectNear(VecAt(field, Coord(0)), Vec3s(1.0f, 0.0f, 0.0f), 0.0f);

  auto failed = VolumeToolsInterface::RotateVectorVolume(Sphere(0.5), Vector(0, 0, 1), 1.0, nullptr, nullptr);
  ASSERT_FALSE(failed.IsOk());
  EXPECT_EQ(failed.GetError().GetMessage(), "Only geometric Vector type grids can be rotated");
}

}  // namespace
