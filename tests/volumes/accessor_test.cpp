// Grid accessors: reads by index and world position through the three
// samplers, writes with copy-on-write, the value types, and every refusal.
#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include <limits>
#include <random>

#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::IntVector32;
using zta::Vector;

namespace {

// f(i, j, k) = i + 2j - 3k + 0.5 on an active box, voxel size 0.5, moved by (1, 2, 3).
double Linear(double i, double j, double k) { return i + 2 * j - 3 * k + 0.5; }

Volume LinearField() {
  auto grid = openvdb::DoubleGrid::create(0.0);
  auto xform = openvdb::math::Transform::createLinearTransform(0.5);
  xform->postTranslate(openvdb::Vec3d(1, 2, 3));
  grid->setTransform(xform);
  auto acc = grid->getAccessor();
  for (int i = -6; i <= 6; ++i)
    for (int j = -6; j <= 6; ++j)
      for (int k = -6; k <= 6; ++k) acc.setValue(openvdb::Coord(i, j, k), Linear(i, j, k));
  return *MakeVolume(grid);
}

Vector WorldOf(double i, double j, double k) { return Vector(1 + 0.5 * i, 2 + 0.5 * j, 3 + 0.5 * k); }

template <typename T>
GridAccessorRef<T> Make() {
  auto r = GridAccessorCreationImpl::Create<T>();
  EXPECT_TRUE(r);
  return *r;
}

std::string Words(const zta::Result<void>& r) { return r ? std::string("ok") : r.GetError().GetMessage(); }

}  // namespace

TEST(GridAccessor, ReadsByIndexAndByWorldPositionThroughEachSampler) {
  Volume field = LinearField();
  auto acc = Make<double>();
  EXPECT_EQ(acc->GetDataType(), GRIDTYPE::DOUBLE);
  ASSERT_TRUE(acc->Init(field, VOLUMESAMPLER::NEAREST));

  EXPECT_EQ(acc->GetValueIntVector32({2, -3, 4}), Linear(2, -3, 4));
  EXPECT_TRUE(acc->GetActiveState({2, -3, 4}));
  EXPECT_FALSE(acc->GetActiveState({20, 0, 0}));
  EXPECT_EQ(acc->GetValueIntVector32({20, 0, 0}), 0.0);  // background
  // World to index rounds to the nearest voxel centre.
  EXPECT_EQ(acc->GetCoords(WorldOf(2.4, -3.4, 3.6)), IntVector32(2, -3, 4));
  EXPECT_EQ(acc->GetCoords(Vector(1, 2, 3)), IntVector32(0, 0, 0));

  // Nearest takes the voxel that a world position rounds to.
  EXPECT_EQ(acc->GetValueVector(WorldOf(1.3, 0.8, -2.2)), Linear(1, 1, -2));

  // Linear and quadratic interpolation reproduce a linear field exactly inside the box.
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(-4.0, 4.0);
  for (VOLUMESAMPLER s : {VOLUMESAMPLER::LINEAR, VOLUMESAMPLER::QUADRATIC}) {
    ASSERT_TRUE(acc->SetSampler(s));
    EXPECT_EQ(acc->GetSampler(), s);
    for (int n = 0; n < 50; ++n) {
      const double i = u(rng), j = u(rng), k = u(rng);
      EXPECT_NEAR(acc->GetValueVector(WorldOf(i, j, k)), Linear(i, j, k), 1e-9) << int(s);
    }
  }
  // Between two voxels the three samplers disagree the way their names say.
  ASSERT_TRUE(acc->SetSampler(VOLUMESAMPLER::LINEAR));
  EXPECT_NEAR(acc->GetValueVector(WorldOf(6.5, 0, 0)), (Linear(6, 0, 0) + 0.0) / 2, 1e-9);  // half into the background
  ASSERT_TRUE(acc->Init(field, VOLUMESAMPLER::QUADRATIC));  // Init again chooses anew
  EXPECT_EQ(acc->GetSampler(), VOLUMESAMPLER::QUADRATIC);
}

TEST(GridAccessor, RefusesWithItsOwnWords) {
  auto acc = Make<float>();
  // Before any Init reads give zeros and writes refuse.
  EXPECT_EQ(acc->GetValueVector(Vector(1, 2, 3)), 0.0f);
  EXPECT_EQ(acc->GetValueIntVector32({0, 0, 0}), 0.0f);
  EXPECT_EQ(acc->GetCoords(Vector(5, 5, 5)), IntVector32(0, 0, 0));
  EXPECT_EQ(Words(acc->SetValue({0, 0, 0}, 1.0f)), "Accessor not initialized");
  EXPECT_EQ(Words(acc->SetValueOnly({0, 0, 0}, 1.0f)), "Accessor not initialized");
  EXPECT_EQ(Words(acc->SetActiveState({0, 0, 0}, true)), "Accessor not initialized");

  EXPECT_EQ(Words(acc->Init(Volume(), VOLUMESAMPLER::LINEAR)), "No allocated object Ref was passed to the init function");
  Volume empty = *Volume::Create();
  EXPECT_EQ(Words(acc->Init(empty, VOLUMESAMPLER::LINEAR)), "The passed volume has no openvdb grid attached");
  EXPECT_EQ(Words(acc->InitWithWriteAccess(empty, VOLUMESAMPLER::LINEAR)), "no tree has been set to be made unique");
  Volume vectors = *VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(1, 0, 0));
  EXPECT_EQ(Words(acc->Init(vectors, VOLUMESAMPLER::LINEAR)), "volume datatype does not fit to accessor type");
  Volume mask = *MakeVolume(openvdb::MaskGrid::create());
  EXPECT_EQ(Words(acc->Init(mask, VOLUMESAMPLER::LINEAR)), "volume datatype does not fit to accessor type");

  Volume sphere = *VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0, 0, 0), 0.1, 3, nullptr, nullptr);
  EXPECT_EQ(Words(acc->Init(sphere, VOLUMESAMPLER(0))), "grid sampler creation failed");
  EXPECT_EQ(acc->GetValueIntVector32({0, 0, 0}), 0.0f);  // a failed Init leaves it unusable

  // Opened for reading: writes refuse and the grid keeps its value.
  ASSERT_TRUE(acc->Init(sphere, VOLUMESAMPLER::LINEAR));
  const float before = acc->GetValueIntVector32({0, 0, 10});
  EXPECT_EQ(Words(acc->SetValue({0, 0, 10}, 5.0f)), "Accessor was not initialized with write access");
  EXPECT_EQ(Words(acc->SetValueOnly({0, 0, 10}, 5.0f)), "Accessor was not initialized with write access");
  EXPECT_EQ(Words(acc->SetActiveState({0, 0, 10}, false)), "Accessor was not initialized with write access");
  EXPECT_EQ(acc->GetValueIntVector32({0, 0, 10}), before);
  EXPECT_TRUE(acc->GetActiveState({0, 0, 10}));

  // A sampler value outside the three keeps the sampler that stands.
  EXPECT_TRUE(acc->SetSampler(VOLUMESAMPLER(9)));
  EXPECT_EQ(acc->GetSampler(), VOLUMESAMPLER::LINEAR);
  ASSERT_TRUE(acc->Init(sphere, VOLUMESAMPLER(9)));
  EXPECT_EQ(acc->GetSampler(), VOLUMESAMPLER::LINEAR);

  // A failed Init after a good one drops the grid as well.
  EXPECT_FALSE(acc->Init(vectors, VOLUMESAMPLER::LINEAR));
  EXPECT_EQ(acc->GetValueIntVector32({0, 0, 10}), 0.0f);
  EXPECT_FALSE(acc->GetActiveState({0, 0, 10}));

  EXPECT_EQ(GridAccessorCreationImpl::Create(GRIDTYPE::NONE).GetError().GetMessage(), "accessor creation failed");
  EXPECT_EQ(GridAccessorCreationImpl::Create(GRIDTYPE(42)).GetError().GetMessage(), "accessor creation failed");
}

TEST(GridAccessor, PositionsPastTheCoordinateRangeReadTheBackground) {
  // Batches of positions from users hold anything: 1e300 used to reach
  // OpenVDB's samplers as a coordinate cast out of range, and the quadratic
  // one stepped past the integer range from there.
  Volume sphere = *VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0, 0, 0), 0.1, 3, nullptr, nullptr);
  auto acc = Make<float>();
  ASSERT_TRUE(acc->Init(sphere, VOLUMESAMPLER::NEAREST));
  const float background = acc->GetValueIntVector32({1000000, 0, 0});
  EXPECT_GT(background, 0.0f);
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  for (VOLUMESAMPLER s : {VOLUMESAMPLER::NEAREST, VOLUMESAMPLER::LINEAR, VOLUMESAMPLER::QUADRATIC}) {
    ASSERT_TRUE(acc->SetSampler(s));
    for (const Vector& far : {Vector(1e300, -1e300, 0), Vector(nan, 0, 0), Vector(0, -inf, 0), Vector(0, 0, 3e8)})
      EXPECT_EQ(acc->GetValueVector(far), background) << int(s) << " " << far.x << " " << far.y << " " << far.z;
    // Just inside the sphere still samples it.
    EXPECT_LT(acc->GetValueVector(Vector(0.95, 0, 0)), 0.0f) << int(s);
  }
  // Coordinates are held to the range they have; no number gives 0.
  EXPECT_EQ(acc->GetCoords(Vector(1e300, -1e300, nan)),
            IntVector32(std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min(), 0));
  EXPECT_EQ(acc->GetCoords(Vector(0.26, -0.26, 0)), IntVector32(3, -3, 0));
}

TEST(GridAccessor, WritesReachOnlyTheVolumeOpenedForWriting) {
  Volume source = *VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0, 0, 0), 0.1, 3, nullptr, nullptr);
  (void)source.GetMinMaxValues(false);
  Volume copy = *source.Clone();
  (void)copy.GetMinMaxValues(false);
  ASSERT_TRUE(copy.GetImpl()->valueRangeValid);

  auto reader = Make<float>();
  ASSERT_TRUE(reader->Init(source, VOLUMESAMPLER::NEAREST));
  const float atCentre = reader->GetValueIntVector32({0, 0, 0});
  const float onSurface = reader->GetValueIntVector32({10, 0, 0});

  auto writer = Make<float>();
  ASSERT_TRUE(writer->InitWithWriteAccess(copy, VOLUMESAMPLER::NEAREST));
  EXPECT_NE(VolumeImpl::GetGrid(copy)->baseTreePtr(), VolumeImpl::GetGrid(source)->baseTreePtr());
  EXPECT_FALSE(copy.GetImpl()->valueRangeValid);  // the values are about to change

  ASSERT_TRUE(writer->SetValue({0, 0, 0}, 7.0f));  // an inactive interior voxel becomes active
  EXPECT_EQ(writer->GetValueIntVector32({0, 0, 0}), 7.0f);
  EXPECT_TRUE(writer->GetActiveState({0, 0, 0}));

  ASSERT_TRUE(writer->SetValueOnly({100, 0, 0}, 2.0f));  // far outside: value without activation
  EXPECT_EQ(writer->GetValueIntVector32({100, 0, 0}), 2.0f);
  EXPECT_FALSE(writer->GetActiveState({100, 0, 0}));

  ASSERT_TRUE(writer->SetActiveState({10, 0, 0}, false));  // state without value
  EXPECT_FALSE(writer->GetActiveState({10, 0, 0}));
  EXPECT_EQ(writer->GetValueIntVector32({10, 0, 0}), onSurface);

  EXPECT_EQ(copy.GetMinMaxValues(false).max, 7.0);
  // The source sees none of it.
  EXPECT_EQ(reader->GetValueIntVector32({0, 0, 0}), atCentre);
  EXPECT_FALSE(reader->GetActiveState({0, 0, 0}));
  EXPECT_NEAR(reader->GetValueIntVector32({100, 0, 0}), 0.3f, 1e-6);  // the background
  EXPECT_TRUE(reader->GetActiveState({10, 0, 0}));
  EXPECT_LT(source.GetMinMaxValues(false).max, 7.0);
}

namespace {

template <typename T, typename GridT>
void ExpectRoundTrip(const typename GridT::ValueType& background, const T& a, const T& b) {
  SCOPED_TRACE(GridT::gridType());
  Volume v = *MakeVolume(GridT::create(background));
  auto acc = Make<T>();
  EXPECT_EQ(acc->GetDataType(), kGridTypeOf<T>);
  ASSERT_TRUE(acc->InitWithWriteAccess(v, VOLUMESAMPLER::NEAREST));
  ASSERT_TRUE(acc->SetValue({1, 2, 3}, a));
  ASSERT_TRUE(acc->SetValueOnly({-4, 5, 6}, b));
  EXPECT_EQ(acc->GetValueIntVector32({1, 2, 3}), a);
  EXPECT_EQ(acc->GetValueIntVector32({-4, 5, 6}), b);
  EXPECT_TRUE(acc->GetActiveState({1, 2, 3}));
  EXPECT_FALSE(acc->GetActiveState({-4, 5, 6}));
  EXPECT_EQ(acc->GetValueVector(Vector(1.2, 1.9, 3.1)), a);  // unit voxels, nearest
  EXPECT_EQ(v.GetActiveVoxelCount(), 1);
  // Linear and quadratic interpolation of any type are OpenVDB's and run
  // without error; at a voxel centre they give the voxel's value.
  for (VOLUMESAMPLER s : {VOLUMESAMPLER::LINEAR, VOLUMESAMPLER::QUADRATIC}) {
    ASSERT_TRUE(acc->SetSampler(s));
    EXPECT_EQ(acc->GetValueVector(Vector(1, 2, 3)), a);
  }
}

}  // namespace

TEST(GridAccessor, EachValueTypeHasItsAccessor) {
  ExpectRoundTrip<bool, openvdb::BoolGrid>(false, true, true);
  ExpectRoundTrip<float, openvdb::FloatGrid>(0.0f, 1.5f, -2.25f);
  ExpectRoundTrip<double, openvdb::DoubleGrid>(0.0, 1e-300, -3.0);
  ExpectRoundTrip<int32_t, openvdb::Int32Grid>(0, -7, 2147483647);
  ExpectRoundTrip<int64_t, openvdb::Int64Grid>(0, int64_t(1) << 40, -9);
  ExpectRoundTrip<IntVector32, openvdb::Vec3IGrid>(openvdb::Vec3i(0), IntVector32(1, -2, 3), IntVector32(4, 5, -6));
  ExpectRoundTrip<zta::Vector32, openvdb::Vec3SGrid>(openvdb::Vec3s(0), zta::Vector32(0.5f, -1, 2), zta::Vector32(3, 4, 5));
  ExpectRoundTrip<zta::Vector64, openvdb::Vec3DGrid>(openvdb::Vec3d(0), Vector(1e-9, 2, -3), Vector(7, 8, 9));

  // Each accessor refuses the other types.
  Volume ints = *MakeVolume(openvdb::Int32Grid::create());
  EXPECT_EQ(Words(Make<int64_t>()->Init(ints, VOLUMESAMPLER::NEAREST)), "volume datatype does not fit to accessor type");
  EXPECT_EQ(Words(Make<double>()->Init(ints, VOLUMESAMPLER::NEAREST)), "volume datatype does not fit to accessor type");
  EXPECT_EQ(Words(Make<bool>()->Init(ints, VOLUMESAMPLER::NEAREST)), "volume datatype does not fit to accessor type");

  // No OpenVDB 10 grid holds strings: the string accessor exists and refuses every grid.
  auto strings = Make<std::string>();
  EXPECT_EQ(strings->GetDataType(), GRIDTYPE::STRING);
  EXPECT_EQ(Words(strings->Init(ints, VOLUMESAMPLER::NEAREST)), "volume datatype does not fit to accessor type");
  EXPECT_EQ(Words(strings->Init(Volume(), VOLUMESAMPLER::NEAREST)), "No allocated object Ref was passed to the init function");
  EXPECT_EQ(Words(strings->SetValue({0, 0, 0}, "a")), "Accessor not initialized");
  EXPECT_EQ(strings->GetValueVector(Vector(0, 0, 0)), "");
}
