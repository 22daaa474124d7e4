// ResampleVolume: samplers, the shared grid of equal transforms, the types that
// are not sampled, cancelling and bad input.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "combine_fixtures.h"

using namespace zelmar;
using zvtest::TakeFingerprint;
using zvtest::Typed;
using zvtest::Wrap;

namespace {

using Tools = VolumeToolsInterface;

zta::Matrix Uniform(double voxel, const zta::Vector& offset) {
  zta::Matrix m = zta::MatrixScale(zta::Vector(voxel));
  m.off = offset;
  return m;
}

double Field(const openvdb::Vec3d& p) { return 2.0 * p.x() + 3.0 * p.y() - p.z() + 1.0; }

// A fog grid on voxel size 1 holding Field (scaled per component for vectors) over [-6, 6]^3.
template <typename GridT>
typename GridT::Ptr LinearField() {
  using ValueT = typename GridT::ValueType;
  auto grid = zvtest::MakeGrid<GridT>(openvdb::zeroVal<ValueT>(), {});
  auto acc = grid->getAccessor();
  for (auto it = openvdb::CoordBBox(openvdb::Coord(-6), openvdb::Coord(6)).begin(); it; ++it) {
    const double f = Field((*it).asVec3d());
    if constexpr (openvdb::VecTraits<ValueT>::IsVec) acc.setValueOn(*it, ValueT(f, -f, 2.0 * f));
    else acc.setValueOn(*it, ValueT(f));
  }
  return grid;
}

// Checks every result voxel well inside the source region against `expected(world)`.
template <typename GridT, typename Expected>
void ExpectField(const Volume& result, Expected expected, double tolerance) {
  auto grid = Typed<GridT>(result);
  ASSERT_TRUE(grid);
  int checked = 0;
  for (auto it = grid->cbeginValueOn(); it; ++it) {
    const openvdb::Vec3d p = grid->indexToWorld(it.getCoord());
    if (std::abs(p.x()) > 4.0 || std::abs(p.y()) > 4.0 || std::abs(p.z()) > 4.0) continue;
    const double want = expected(p);
    if constexpr (openvdb::VecTraits<typename GridT::ValueType>::IsVec) {
      ASSERT_NEAR((*it)[0], want, tolerance) << p;
      ASSERT_NEAR((*it)[1], -want, tolerance) << p;
      ASSERT_NEAR((*it)[2], 2.0 * want, tolerance) << p;
    } else {
      ASSERT_NEAR(*it, want, tolerance) << p;
    }
    ++checked;
  }
  EXPECT_GE(checked, 16 * 16 * 16);
}

}  // namespace

TEST(ResampleVolume, EqualTransformsShareTheGrid) {
  const Volume in = Wrap(zvtest::MakeGrid<openvdb::FloatGrid>(0.0f, {{openvdb::Coord(1, 2, 3), 5.0f}}));
  for (auto interp : {RESAMPLEINTERPOLATIONTYPE::NONE, RESAMPLEINTERPOLATIONTYPE::NEAREST,
                      RESAMPLEINTERPOLATIONTYPE::QUADRATIC}) {
    auto out = Tools::ResampleVolume(in, in.GetGridTransform(), interp, nullptr);
    ASSERT_TRUE(out);
    EXPECT_FALSE(*out == in) << "a new Volume";
    EXPECT_EQ(VolumeImpl::GetGrid(*out), VolumeImpl::GetGrid(in));
  }
}

TEST(ResampleVolume, SamplersOnANewTransform) {
  const zta::Matrix target = Uniform(0.5, {0.25, 0.1, -0.3});
  auto exact = [](const openvdb::Vec3d& p) { return Field(p); };
  auto nearest = [](const openvdb::Vec3d& p) {
    return Field(openvdb::Vec3d(std::round(p.x()), std::round(p.y()), std::round(p.z())));
  };

  const Volume scalar = Wrap(LinearField<openvdb::FloatGrid>());
  const auto before = TakeFingerprint(scalar);
  auto linear = Tools::ResampleVolume(scalar, target, RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr);
  ASSERT_TRUE(linear);
  EXPECT_EQ(linear->GetGridTransform(), target);
  EXPECT_EQ(linear->GetGridClass(), GRIDCLASS::FOG);
  ExpectField<openvdb::FloatGrid>(*linear, exact, 1e-4);
  auto quadratic = Tools::ResampleVolume(scalar, target, RESAMPLEINTERPOLATIONTYPE::QUADRATIC, nullptr);
  ASSERT_TRUE(quadratic);
  ExpectField<openvdb::FloatGrid>(*quadratic, exact, 1e-4);
  auto point = Tools::ResampleVolume(scalar, target, RESAMPLEINTERPOLATIONTYPE::NEAREST, nullptr);
  ASSERT_TRUE(point);
  ExpectField<openvdb::FloatGrid>(*point, nearest, 1e-4);
  EXPECT_EQ(TakeFingerprint(scalar), before);

  auto dbl = Tools::ResampleVolume(Wrap(LinearField<openvdb::DoubleGrid>()), target,
                                   RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr);
  ASSERT_TRUE(dbl);
  ExpectField<openvdb::DoubleGrid>(*dbl, exact, 1e-9);
  auto vec = Tools::ResampleVolume(Wrap(LinearField<openvdb::Vec3SGrid>()), target,
                                   RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr);
  ASSERT_TRUE(vec);
  ExpectField<openvdb::Vec3SGrid>(*vec, exact, 1e-4);
  auto vecd = Tools::ResampleVolume(Wrap(LinearField<openvdb::Vec3DGrid>()), target,
                                    RESAMPLEINTERPOLATIONTYPE::QUADRATIC, nullptr);
  ASSERT_TRUE(vecd);
  ExpectField<openvdb::Vec3DGrid>(*vecd, exact, 1e-9);
}

TEST(ResampleVolume, LevelSetKeepsItsSurface) {
  auto sphere = Tools::CreateSphereVolume(1.0, {0.0, 0.0, 0.0}, 0.1, 3, nullptr, nullptr);
  ASSERT_TRUE(sphere);
  const zta::Matrix target = Uniform(0.07, {0.01, 0.02, 0.03});
  auto out = Tools::ResampleVolume(*sphere, target, RESAMPLEINTERPOLATIONTYPE::QUADRATIC, nullptr);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->GetGridClass(), GRIDCLASS::SDF);
  EXPECT_EQ(out->GetGridTransform(), target);
  auto grid = Typed<openvdb::FloatGrid>(*out);
  for (int i = 0; i < 200; ++i) {
    // Directions spread over the sphere by the golden angle.
    const double z = 1.0 - 2.0 * (i + 0.5) / 200.0, r = std::sqrt(1.0 - z * z), phi = i * 2.39996322972865332;
    const openvdb::Vec3d dir(r * std::cos(phi), r * std::sin(phi), z);
    EXPECT_NEAR(zvtest::SampleWorld(*grid, dir), 0.0, 0.07) << dir;
    EXPECT_GT(zvtest::SampleWorld(*grid, dir * 1.1), 0.0f) << dir;
    EXPECT_LT(zvtest::SampleWorld(*grid, dir * 0.9), 0.0f) << dir;
  }
}

TEST(ResampleVolume, TypesAndInterpolationsThatDoNotSample) {
  const zta::Matrix target = Uniform(2.0, {1.0, 0.0, 0.0});
  const Volume ints = Wrap(zvtest::MakeGrid<openvdb::Int32Grid>(0, {{openvdb::Coord(1, 2, 3), 7}}));
  const Volume bools = Wrap(zvtest::MakeGrid<openvdb::BoolGrid>(false, {{openvdb::Coord(1, 2, 3), true}}));
  const Volume floats = Wrap(LinearField<openvdb::FloatGrid>());
  struct Case {
    const Volume& in;
    RESAMPLEINTERPOLATIONTYPE interp;
    GRIDTYPE type;
  };
  for (const Case& c : {Case{ints, RESAMPLEINTERPOLATIONTYPE::LINEAR, GRIDTYPE::INT32},
                        Case{bools, RESAMPLEINTERPOLATIONTYPE::NEAREST, GRIDTYPE::BOOL},
                        Case{floats, RESAMPLEINTERPOLATIONTYPE::NONE, GRIDTYPE::FLOAT},
                        Case{floats, RESAMPLEINTERPOLATIONTYPE(9), GRIDTYPE::FLOAT}}) {
    const auto before = TakeFingerprint(c.in);
    auto out = Tools::ResampleVolume(c.in, target, c.interp, nullptr);
    ASSERT_TRUE(out);
    ASSERT_TRUE(out->HasGrid());
    EXPECT_EQ(out->GetGridType(), c.type);
    EXPECT_EQ(out->GetActiveVoxelCount(), 0);
    EXPECT_EQ(out->GetGridTransform(), target);
    EXPECT_EQ(TakeFingerprint(c.in), before);
  }
}

TEST(ResampleVolume, CancelledThreadGivesNoGrid) {
  const Volume in = Wrap(LinearField<openvdb::FloatGrid>());
  const auto before = TakeFingerprint(in);
  auto thread = std::make_shared<zta::ZTAThread>();
  thread->End();
  for (const zta::Matrix& m : {in.GetGridTransform(), Uniform(0.5, {0.0, 0.0, 0.0})}) {
    auto out = Tools::ResampleVolume(in, m, RESAMPLEINTERPOLATIONTYPE::LINEAR, thread);
    ASSERT_TRUE(out) << out.GetError().GetMessage();
    EXPECT_TRUE(out->IsInitialized());
    EXPECT_FALSE(out->HasGrid());
  }
  EXPECT_EQ(TakeFingerprint(in), before);
  thread->Reset();
  auto out = Tools::ResampleVolume(in, Uniform(0.5, {0.0, 0.0, 0.0}), RESAMPLEINTERPOLATIONTYPE::LINEAR, thread);
  ASSERT_TRUE(out);
  EXPECT_GT(out->GetActiveVoxelCount(), 0);
}

// A thread whose first stop query throws, as a failing sampler would.
class ThrowingThread : public zta::ZTAThread {
 public:
  bool TestBreak() const override {
    if (!thrown_.exchange(true)) throw openvdb::RuntimeError("sampling broke down");
    return false;
  }

 private:
  mutable std::atomic<bool> thrown_{false};
};

TEST(ResampleVolume, AFailedSamplingSaysWhatFailed) {
  const Volume in = Wrap(LinearField<openvdb::FloatGrid>());
  const auto before = TakeFingerprint(in);
  auto out = Tools::ResampleVolume(in, Uniform(0.5, {0.0, 0.0, 0.0}), RESAMPLEINTERPOLATIONTYPE::LINEAR,
                                   std::make_shared<ThrowingThread>());
  ASSERT_FALSE(out);
  // No tree was copied: the words are the sampler's, not "Could not copy a tree".
  EXPECT_EQ(out.GetError().GetMessage(), "RuntimeError: sampling broke down");
  EXPECT_EQ(TakeFingerprint(in), before);
}

TEST(ResampleVolume, BadInputIsAnErrorAndChangesNothing) {
  auto uninitialized = Tools::ResampleVolume(Volume(), zta::Matrix(), RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr);
  ASSERT_FALSE(uninitialized);
  EXPECT_EQ(uninitialized.GetError().GetMessage(), "volume is not initialized");

  auto noGrid = Tools::ResampleVolume(*Volume::Create(), zta::Matrix(), RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr);
  ASSERT_FALSE(noGrid);
  EXPECT_EQ(noGrid.GetError().GetMessage(), "volume has no grid attached");

  const Volume in = Wrap(LinearField<openvdb::FloatGrid>());
  const auto before = TakeFingerprint(in);
  zta::Matrix singular = Uniform(0.5, {0.0, 0.0, 0.0});
  singular.v3 = {0.0, 0.0, 0.0};
  auto bad = Tools::ResampleVolume(in, singular, RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr);
  ASSERT_FALSE(bad);
  EXPECT_NE(bad.GetError().GetMessage().find("the resample transform is not valid"), std::string::npos);
  EXPECT_EQ(TakeFingerprint(in), before);
}
