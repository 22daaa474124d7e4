// ApplySDFFilterToVolume: level set filters, their masks and cancelling.
#include <gtest/gtest.h>
#include <openvdb/tools/Interpolation.h>

#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace {

using namespace zelmar;
using openvdb::FloatGrid;

constexpr double kVoxel = 0.05;

Volume Sphere(double radius, double voxel = kVoxel) {
  auto v = VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(v.IsOk());
  return *v;
}

FloatGrid::Ptr Grid(const Volume& v) { return openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(v)); }

// Distance from the origin at which the level set first turns positive along `dir`.
double Crossing(const Volume& v, const openvdb::Vec3d& dir) {
  const FloatGrid::Ptr grid = Grid(v);
  openvdb::tools::GridSampler<FloatGrid, openvdb::tools::BoxSampler> sampler(*grid);
  const openvdb::Vec3d d = dir.unit();
  const double step = kVoxel / 8.0;
  double prev = sampler.wsSample(openvdb::Vec3d(0.0));
  for (double t = step; t < 4.0; t += step) {
    const double cur = sampler.wsSample(d * t);
    if (prev < 0.0 && cur >= 0.0) return t - step * cur / (cur - prev);
    prev = cur;
  }
  return -1.0;
}

const openvdb::Vec3d kDirections[] = {{1, 0, 0}, {0, -1, 0}, {0, 0, 1}, {1, 1, 1}, {-1, 0.5, -0.25}};

SDFFilterSettings Settings(SDFFILTERTYPE type, float offset = 0.0f, int64_t iterations = 1) {
  SDFFilterSettings s;
  s.filterType = type;
  s.offset = offset;
  s.iterations = iterations;
  return s;
}

Volume Filter(const Volume& in, const SDFFilterSettings& s, const Volume& mask = Volume()) {
  auto out = VolumeToolsInterface::ApplySDFFilterToVolume(in, s, nullptr, mask, nullptr);
  EXPECT_TRUE(out.IsOk()) << (out ? "" : out.GetError().GetMessage());
  return out ? *out : Volume();
}

// A float volume in `like`'s frame: `value` on the voxels with x > 0 of its band.
Volume HalfMask(const Volume& like, float value) {
  FloatGrid::Ptr mask = FloatGrid::create(0.0f);
  mask->setTransform(Grid(like)->transform().copy());
  auto acc = mask->getAccessor();
  for (auto it = Grid(like)->cbeginValueOn(); it; ++it)
    if (it.getCoord().x() > 0) acc.setValue(it.getCoord(), value);
  return *MakeVolume(mask);
}

TEST(SdfFilter, OffsetsMoveTheZeroCrossingByTheirDistance) {
  const Volume sphere = Sphere(1.0);
  const Volume dilated = Filter(sphere, Settings(SDFFILTERTYPE::DILATE, 0.1f));
  const Volume eroded = Filter(sphere, Settings(SDFFILTERTYPE::ERODE, 0.1f));
  const Volume twice = Filter(sphere, Settings(SDFFILTERTYPE::DILATE, 0.1f, 2));
  for (const auto& d : kDirections) {
    EXPECT_NEAR(Crossing(sphere, d), 1.0, 0.1 * kVoxel);
    EXPECT_NEAR(Crossing(dilated, d), 1.1, 0.1 * kVoxel) << d;
    EXPECT_NEAR(Crossing(eroded, d), 0.9, 0.1 * kVoxel) << d;
    EXPECT_NEAR(Crossing(twice, d), 1.2, 0.1 * kVoxel) << d;
  }
  // The input is left as it was.
  EXPECT_NEAR(Crossing(sphere, {1, 0, 0}), 1.0, 0.1 * kVoxel);
  EXPECT_EQ(dilated.GetGridClass(), GRIDCLASS::SDF);
}

TEST(SdfFilter, OpenShrinksAllFirstAndCloseGrowsAllFirst) {
  // A ball of radius 0.3 survives one shrink by 0.15 but not three in a row.
  const Volume ball = Sphere(0.3);
  auto hasInside = [](const Volume& v) {
    for (auto it = Grid(v)->cbeginValueOn(); it; ++it)
      if (*it < 0.0f) return true;
    return false;
  };
  const Volume openOnce = Filter(ball, Settings(SDFFILTERTYPE::OPEN, 0.15f, 1));
  const Volume openThrice = Filter(ball, Settings(SDFFILTERTYPE::OPEN, 0.15f, 3));
  const Volume closeThrice = Filter(ball, Settings(SDFFILTERTYPE::CLOSE, 0.15f, 3));
  EXPECT_TRUE(hasInside(openOnce));
  EXPECT_FALSE(hasInside(openThrice));
  ASSERT_TRUE(hasInside(closeThrice));
  openvdb::tools::GridSampler<FloatGrid, openvdb::tools::BoxSampler> sampler(*Grid(closeThrice));
  EXPECT_NEAR(sampler.wsSample(openvdb::Vec3d(0.3, 0, 0)), 0.0, 0.5 * kVoxel);
}

TEST(SdfFilter, MasksLimitAndFadeTheFilter) {
  const Volume sphere = Sphere(1.0);
  // A mask of 1 on the +x half: only that side grows.
  const Volume half = Filter(sphere, Settings(SDFFILTERTYPE::DILATE, 0.1f), HalfMask(sphere, 1.0f));
  EXPECT_NEAR(Crossing(half, {1, 0, 0}), 1.1, 0.1 * kVoxel);
  EXPECT_NEAR(Crossing(half, {-1, 0, 0}), 1.0, 0.1 * kVoxel);

  // A strength of 0.5 without mask fades the whole filter to half.
  SDFFilterSettings faded = Settings(SDFFILTERTYPE::DILATE, 0.1f);
  faded.strength = 0.5;
  const Volume halfWay = Filter(sphere, faded);
  EXPECT_NEAR(Crossing(halfWay, {0, 1, 0}), 1.05, 0.1 * kVoxel);
  // A strength of 0 changes nothing; strength plays no part beside a mask volume.
  faded.strength = 0.0;
  EXPECT_NEAR(Crossing(Filter(sphere, faded), {0, 1, 0}), 1.0, 0.1 * kVoxel);
  EXPECT_NEAR(Crossing(Filter(sphere, faded, HalfMask(sphere, 1.0f)), {1, 0, 0}), 1.1, 0.1 * kVoxel);

  // A mask that is not a float volume is ignored: the filter runs everywhere.
  auto vectorMask = VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(0.0f));
  ASSERT_TRUE(vectorMask.IsOk());
  const Volume unmasked = Filter(sphere, Settings(SDFFILTERTYPE::DILATE, 0.1f), *vectorMask);
  EXPECT_NEAR(Crossing(unmasked, {-1, 0, 0}), 1.1, 0.1 * kVoxel);
}

TEST(SdfFilter, SmoothingKeepsASphereAndCurvatureFlowShrinksIt) {
  const Volume sphere = Sphere(0.5);
  for (SDFFILTERTYPE t : {SDFFILTERTYPE::GAUSSIAN, SDFFILTERTYPE::MEANVALUE, SDFFILTERTYPE::MEDIANVALUE,
                          SDFFILTERTYPE::RENORMALIZE, SDFFILTERTYPE::TRACK}) {
    for (FILTERACCURACY a : {FILTERACCURACY::FIRST, FILTERACCURACY::WENO5}) {
      SDFFilterSettings s = Settings(t, 0.0f, 2);
      s.accuracy = a;
      const Volume out = Filter(sphere, s);
      EXPECT_NEAR(Crossing(out, {1, 1, 0}), 0.5, kVoxel) << int(t) << " " << int(a);
    }
  }
  for (SDFFILTERTYPE t : {SDFFILTERTYPE::MEANCURVATURE, SDFFILTERTYPE::LAPLACIANFLOW}) {
    const double r = Crossing(Filter(sphere, Settings(t, 0.0f, 20)), {0, 0, 1});
    EXPECT_LT(r, 0.5 - 0.2 * kVoxel) << int(t);
    EXPECT_GT(r, 0.25) << int(t);
  }
}

TEST(SdfFilter, ResizeSetsTheBandAndRunsWhateverTheIterations) {
  const Volume sphere = Sphere(1.0);
  SDFFilterSettings s = Settings(SDFFILTERTYPE::RESIZE, 0.0f, 0);
  s.halfWidth = 6;
  const Volume wide = Filter(sphere, s);
  EXPECT_NEAR(Grid(wide)->background(), 6 * kVoxel, 1e-5);
  EXPECT_GT(wide.GetActiveVoxelCount(), sphere.GetActiveVoxelCount());
  // A band of no voxels goes to the library, whose refusal is the filter's exception.
  s.halfWidth = 0;
  auto none = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, s, nullptr, Volume(), nullptr);
  ASSERT_FALSE(none.IsOk());
  EXPECT_EQ(none.GetError().GetMessage(), "An exception was thrown while filtering a sdf volume");
  // Only a negative half width is refused before it, and the grid type is tested first.
  s.halfWidth = -1;
  auto negative = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, s, nullptr, Volume(), nullptr);
  ASSERT_FALSE(negative.IsOk());
  EXPECT_EQ(negative.GetError().GetMessage(), "the half width of a resized band must not be negative");
  auto vec = VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(1.0f));
  for (int32_t w : {-1, 0}) {
    s.halfWidth = w;
    auto wrongType = VolumeToolsInterface::ApplySDFFilterToVolume(*vec, s, nullptr, Volume(), nullptr);
    ASSERT_FALSE(wrongType.IsOk());
    EXPECT_EQ(wrongType.GetError().GetMessage(), "") << w;  // its location only
  }
}

TEST(SdfFilter, InputsAndCopies) {
  const Volume sphere = Sphere(0.5);
  // NONE shares the grid and takes any value type.
  auto none = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, Settings(SDFFILTERTYPE::NONE), nullptr, Volume(),
                                                           nullptr);
  ASSERT_TRUE(none.IsOk());
  EXPECT_EQ(VolumeImpl::GetGrid(*none), VolumeImpl::GetGrid(sphere));
  EXPECT_FALSE(*none == sphere);
  auto vec = VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(1.0f));
  EXPECT_TRUE(VolumeToolsInterface::ApplySDFFilterToVolume(*vec, Settings(SDFFILTERTYPE::NONE), nullptr, Volume(),
                                                           nullptr).IsOk());
  EXPECT_FALSE(VolumeToolsInterface::ApplySDFFilterToVolume(*vec, Settings(SDFFILTERTYPE::GAUSSIAN), nullptr,
                                                            Volume(), nullptr).IsOk());
  // No volume, or no grid.
  EXPECT_FALSE(VolumeToolsInterface::ApplySDFFilterToVolume(Volume(), Settings(SDFFILTERTYPE::GAUSSIAN), nullptr,
                                                            Volume(), nullptr).IsOk());
  EXPECT_FALSE(VolumeToolsInterface::ApplySDFFilterToVolume(*Volume::Create(), Settings(SDFFILTERTYPE::GAUSSIAN),
                                                            nullptr, Volume(), nullptr).IsOk());

  // Zero iterations give an equal deep copy.
  const Volume copy = Filter(sphere, Settings(SDFFILTERTYPE::GAUSSIAN, 0.0f, 0));
  EXPECT_NE(Grid(copy), Grid(sphere));
  EXPECT_EQ(copy.GetActiveVoxelCount(), sphere.GetActiveVoxelCount());
  auto acc = Grid(sphere)->getConstAccessor();
  for (auto it = Grid(copy)->cbeginValueOn(); it; ++it) ASSERT_EQ(*it, acc.getValue(it.getCoord()));

  // A float fog volume fails the library's level set test.
  auto fog = VolumeToolsInterface::CreateNewFloat32Volume(0.0f);
  auto failed = VolumeToolsInterface::ApplySDFFilterToVolume(*fog, Settings(SDFFILTERTYPE::GAUSSIAN), nullptr,
                                                             Volume(), nullptr);
  ASSERT_FALSE(failed.IsOk());
  EXPECT_EQ(failed.GetError().GetMessage(), "An exception was thrown while filtering a sdf volume");
}

TEST(SdfFilter, ACancelledFilterReturnsItsInput) {
  const Volume sphere = Sphere(1.0);
  auto thread = std::make_shared<zta::ZTAThread>();
  thread->End();
  auto out = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, Settings(SDFFILTERTYPE::DILATE, 0.5f), thread,
                                                          Volume(), nullptr);
  ASSERT_TRUE(out.IsOk());
  EXPECT_TRUE(*out == sphere);
  EXPECT_NEAR(Crossing(sphere, {1, 0, 0}), 1.0, 0.1 * kVoxel);
}

}  // namespace
