// BoolVolumes: the CSG of two level sets against the closed form, the empty
// short cuts, the inputs it turns away, and inputs left as they were.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "combine_fixtures.h"
#include "zelmar/releasing.h"

using namespace zelmar;
using zvtest::TakeFingerprint;
using zvtest::Typed;
using zvtest::Wrap;

namespace {

using Tools = VolumeToolsInterface;

Volume Sphere(double radius, const zta::Vector& centre, double voxel, const zta::Matrix* frame = nullptr) {
  auto v = Tools::CreateSphereVolume(radius, centre, voxel, 3, nullptr, frame);
  EXPECT_TRUE(v);
  return *v;
}

Volume EmptyLevelSet(float background) {
  return Wrap(zvtest::MakeGrid<openvdb::FloatGrid>(background, {}, openvdb::GRID_LEVEL_SET, 0.05));
}

double Distance(const openvdb::Vec3d& p, const openvdb::Vec3d& centre, double radius) {
  return (p - centre).length() - radius;
}

}  // namespace

TEST(BoolVolumes, MatchesClosedFormCsgOnUnlikeFrames) {
  const openvdb::Vec3d cA(0.0, 0.0, 0.0), cB(0.9, 0.15, -0.1);
  const double rA = 1.0, rB = 0.7, dx = 0.05;
  const Volume a = Sphere(rA, {cA.x(), cA.y(), cA.z()}, dx);
  // volumeTwo on another voxel size, offset and a rotation: it must be resampled first.
  zta::Matrix frameB = zta::MatrixRotZ(0.3) * zta::MatrixRotX(0.2) * zta::MatrixScale(zta::Vector(0.037));
  frameB.off = {0.013, 0.021, -0.007};
  const Volume b = Sphere(rB, {cB.x(), cB.y(), cB.z()}, 0.037, &frameB);
  const auto beforeA = TakeFingerprint(a), beforeB = TakeFingerprint(b);

  struct Case {
    BOOLTYPE type;
    double (*exact)(double, double);
  };
  const Case cases[] = {
      {BOOLTYPE::UNION, [](double da, double db) { return std::min(da, db); }},
      {BOOLTYPE::DIFFERENCE, [](double da, double db) { return std::max(da, -db); }},
      {BOOLTYPE::INTERSECTION, [](double da, double db) { return std::max(da, db); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(int(c.type));
    auto out = Tools::BoolVolumes(a, b, c.type);
    ASSERT_TRUE(out) << out.GetError().GetMessage();
    EXPECT_EQ(out->GetGridClass(), GRIDCLASS::SDF);
    EXPECT_EQ(out->GetGridTransform(), a.GetGridTransform());
    auto grid = Typed<openvdb::FloatGrid>(*out);
    ASSERT_TRUE(grid);
    int near = 0, far = 0;
    // A lattice through both spheres, off the voxel centres.
    for (double x = -1.2; x <= 1.75; x += 0.0371)
      for (double y = -1.2; y <= 1.2; y += 0.0433)
        for (double z = -0.05; z <= 0.06; z += 0.0517) {
          const openvdb::Vec3d p(x, y, z);
          const double exact = c.exact(Distance(p, cA, rA), Distance(p, cB, rB));
          const float got = zvtest::SampleWorld(*grid, p);
          if (std::abs(exact) < 0.5 * dx) {
            // On the surface: the result's zero crossing is within one voxel.
            ASSERT_LT(std::abs(got), dx) << p << " exact " << exact;
            ++near;
          } else if (std::abs(exact) > dx) {
            ASSERT_EQ(got > 0.0f, exact > 0.0) << p << " exact " << exact << " got " << got;
            ++far;
          }
        }
    EXPECT_GT(near, 100);
    EXPECT_GT(far, 1000);
  }
  EXPECT_EQ(TakeFingerprint(a), beforeA);
  EXPECT_EQ(TakeFingerprint(b), beforeB);
}

TEST(BoolVolumes, EqualFramesLeaveBothInputsUnchanged) {
  const Volume a = Sphere(1.0, {0.0, 0.0, 0.0}, 0.05);
  const Volume b = Sphere(0.8, {0.7, 0.0, 0.0}, 0.05);
  const auto beforeA = TakeFingerprint(a), beforeB = TakeFingerprint(b);
  for (BOOLTYPE type : {BOOLTYPE::UNION, BOOLTYPE::DIFFERENCE, BOOLTYPE::INTERSECTION}) {
    auto out = Tools::BoolVolumes(a, b, type);
    ASSERT_TRUE(out);
    EXPECT_NE(VolumeImpl::GetGrid(*out), VolumeImpl::GetGrid(a));
    EXPECT_NE(VolumeImpl::GetGrid(*out), VolumeImpl::GetGrid(b));
    EXPECT_EQ(TakeFingerprint(a), beforeA);
    EXPECT_EQ(TakeFingerprint(b), beforeB);
  }
  // The same volume on both sides.
  auto self = Tools::BoolVolumes(a, a, BOOLTYPE::UNION);
  ASSERT_TRUE(self);
  EXPECT_EQ(self->GetActiveVoxelCount(), a.GetActiveVoxelCount());
  EXPECT_EQ(TakeFingerprint(a), beforeA);
  // A type outside the list runs no operation: a copy of volumeOne.
  auto none = Tools::BoolVolumes(a, b, BOOLTYPE(9));
  ASSERT_TRUE(none);
  EXPECT_NE(VolumeImpl::GetGrid(*none), VolumeImpl::GetGrid(a));
  EXPECT_EQ(TakeFingerprint(*none).valueSum, beforeA.valueSum);
}

TEST(BoolVolumes, ReleasingGivesTheSameVoxelsAndUsesUpOnlyWhatNobodyShares) {
  for (BOOLTYPE type : {BOOLTYPE::UNION, BOOLTYPE::DIFFERENCE, BOOLTYPE::INTERSECTION}) {
    for (double voxelB : {0.05, 0.04}) {  // equal frames, then one to resample
      const Volume a = Sphere(1.0, {0.0, 0.0, 0.0}, 0.05);
      const Volume b = Sphere(0.8, {0.7, 0.0, 0.0}, voxelB);
      auto plain = Tools::BoolVolumes(a, b, type);
      ASSERT_TRUE(plain);
      const auto expected = TakeFingerprint(*plain);

      // Sole holders: the first grid itself becomes the result.
      Volume ownA = Sphere(1.0, {0.0, 0.0, 0.0}, 0.05), ownB = Sphere(0.8, {0.7, 0.0, 0.0}, voxelB);
      const void* gridA = VolumeImpl::GetGrid(ownA).get();
      auto used = BoolVolumesReleasing(std::move(ownA), std::move(ownB), type, nullptr);
      ASSERT_TRUE(used);
      EXPECT_EQ(VolumeImpl::GetGrid(*used).get(), gridA);
      auto got = TakeFingerprint(*used);
      got.grid = expected.grid;
      EXPECT_EQ(got, expected) << int(type) << " " << voxelB;

      // Volumes someone else still holds are only read.
      const auto beforeA = TakeFingerprint(a), beforeB = TakeFingerprint(b);
      Volume keptA = a, keptB = b;
      auto read = BoolVolumesReleasing(std::move(keptA), std::move(keptB), type, nullptr);
      ASSERT_TRUE(read);
      EXPECT_EQ(TakeFingerprint(a), beforeA);
      EXPECT_EQ(TakeFingerprint(b), beforeB);
      got = TakeFingerprint(*read);
      got.grid = expected.grid;
      EXPECT_EQ(got, expected);
    }
  }
}

TEST(BoolVolumes, EmptyInputShareAGridWithoutResampling) {
  const Volume full = Sphere(1.0, {0.0, 0.0, 0.0}, 0.05);
  // Another voxel size: a resample would give a new grid, sharing shows there was none.
  const Volume empty = EmptyLevelSet(0.3f);
  auto zeroBackground = zvtest::MakeGrid<openvdb::FloatGrid>(0.0f, {{openvdb::Coord(0), -0.1f}}, openvdb::GRID_LEVEL_SET, 0.02);
  const Volume unfilled = Wrap(zeroBackground);
  const auto beforeFull = TakeFingerprint(full), beforeEmpty = TakeFingerprint(empty);

  struct Case {
    const Volume& one;
    const Volume& two;
    BOOLTYPE type;
    const Volume* expected;
  };
  const Case cases[] = {
      {full, empty, BOOLTYPE::UNION, &full},
      {empty, full, BOOLTYPE::UNION, &full},
      {unfilled, full, BOOLTYPE::UNION, &full},  // background 0 counts as empty despite a voxel
      {empty, full, BOOLTYPE::DIFFERENCE, &empty},
      {full, empty, BOOLTYPE::DIFFERENCE, &full},
      {full, empty, BOOLTYPE::INTERSECTION, &empty},
      {empty, full, BOOLTYPE::INTERSECTION, &empty},
      {full, unfilled, BOOLTYPE::INTERSECTION, &unfilled},
      {full, empty, BOOLTYPE::NONE, nullptr},
  };
  for (const Case& c : cases) {
    auto out = Tools::BoolVolumes(c.one, c.two, c.type);
    ASSERT_TRUE(out);
    if (c.expected) EXPECT_EQ(VolumeImpl::GetGrid(*out), VolumeImpl::GetGrid(*c.expected));
    else EXPECT_FALSE(out->HasGrid());
  }
  EXPECT_EQ(TakeFingerprint(full), beforeFull);
  EXPECT_EQ(TakeFingerprint(empty), beforeEmpty);
}

TEST(BoolVolumes, TurnsAwayWhatIsNotAFloatLevelSet) {
  const Volume sdf = Sphere(1.0, {0.0, 0.0, 0.0}, 0.1);
  const Volume fog = Wrap(zvtest::MakeGrid<openvdb::FloatGrid>(0.0f, {{openvdb::Coord(0), 1.0f}}));
  const Volume vec = Wrap(zvtest::MakeGrid<openvdb::Vec3SGrid>(openvdb::Vec3s(1.0f), {}, openvdb::GRID_LEVEL_SET));
  const Volume dbl = Wrap(zvtest::MakeGrid<openvdb::DoubleGrid>(0.3, {{openvdb::Coord(0), -0.1}}, openvdb::GRID_LEVEL_SET));
  for (const Volume* other : {&fog, &vec, &dbl}) {
    for (auto out : {Tools::BoolVolumes(sdf, *other, BOOLTYPE::UNION), Tools::BoolVolumes(*other, sdf, BOOLTYPE::UNION)}) {
      ASSERT_TRUE(out);
      EXPECT_TRUE(out->IsInitialized());
      EXPECT_FALSE(out->HasGrid());
    }
  }
  for (auto out : {Tools::BoolVolumes(Volume(), sdf, BOOLTYPE::UNION), Tools::BoolVolumes(sdf, Volume(), BOOLTYPE::UNION)}) {
    ASSERT_FALSE(out);
    EXPECT_EQ(out.GetError().GetMessage(), "passed volumes were not initialized");
  }

  // Level sets that OpenVDB's CSG refuses: a negative or NaN outside value.
  const auto beforeSdf = TakeFingerprint(sdf);
  for (float background : {-0.3f, std::numeric_limits<float>::quiet_NaN()}) {
    const Volume bad = Wrap(zvtest::MakeGrid<openvdb::FloatGrid>(background, {{openvdb::Coord(0), 0.1f}},
                                                                 openvdb::GRID_LEVEL_SET, 0.1));
    auto out = Tools::BoolVolumes(sdf, bad, BOOLTYPE::UNION);
    ASSERT_FALSE(out);
    EXPECT_EQ(out.GetError().GetMessage(), "bool on two grids failed");
  }
  EXPECT_EQ(TakeFingerprint(sdf), beforeSdf);
}

TEST(BoolVolumes, CancelledResampleIsAnError) {
  const Volume a = Sphere(1.0, {0.0, 0.0, 0.0}, 0.05);
  const Volume b = Sphere(0.8, {0.7, 0.0, 0.0}, 0.04);
  auto thread = std::make_shared<zta::ZTAThread>();
  thread->End();
  auto out = Tools::BoolVolumes(a, b, BOOLTYPE::UNION, thread);
  ASSERT_FALSE(out);
  EXPECT_EQ(out.GetError().GetMessage(), "volume has no grid attached");
}
