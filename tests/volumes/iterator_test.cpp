// Grid iterators: the three walks over voxels and tiles, their depth, the
// grid types each value type walks, and what gives nothing to walk.
#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include <map>
#include <tuple>

#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumeiterators.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::IntVector32;

namespace {

std::string Words(const zta::Result<void>& r) { return r ? std::string("ok") : r.GetError().GetMessage(); }

template <typename T>
GridIteratorRef<T> Make(GRIDITERATORTYPE walk) {
  auto r = GridIteratorCreationImpl::Create<T>(walk);
  EXPECT_TRUE(r);
  return *r;
}

using Key = std::tuple<int, int, int, int>;  // i, j, k, depth

// Everything a walk visits, by coordinate and depth.
template <typename T>
std::map<Key, T> Collect(GridIteratorInterface<T>& it) {
  std::map<Key, T> seen;
  for (; it.IsValid(); it.MoveNext()) {
    const IntVector32 c = it.GetCoords();
    EXPECT_TRUE(seen.emplace(Key(c.x, c.y, c.z, it.GetDepth()), it.GetValue()).second);
  }
  return seen;
}

// Two active voxels, one inactive voxel that differs from the background,
// and one active tile of the first internal level (8^3 voxels at 64, 0, 0).
Volume Mixed() {
  auto grid = openvdb::FloatGrid::create(-1.0f);
  grid->tree().setValue(openvdb::Coord(1, 2, 3), 4.0f);
  grid->tree().setValue(openvdb::Coord(-9, 0, 0), 5.0f);
  grid->tree().setValueOff(openvdb::Coord(1, 2, 4), 6.0f);
  grid->tree().addTile(1, openvdb::Coord(64, 0, 0), 7.0f, true);
  return *MakeVolume(grid);
}

}  // namespace

TEST(GridIterator, WalksActiveInactiveOrAllValuesWithTheirDepth) {
  Volume v = Mixed();

  auto active = Make<float>(GRIDITERATORTYPE::ACTIVE);
  EXPECT_EQ(active->GetDepth(), 3);  // nothing set yet
  ASSERT_TRUE(active->Init(v));
  EXPECT_EQ(active->GetGridType(), GRIDTYPE::FLOAT);
  const auto on = Collect(*active);
  const std::map<Key, float> expected = {
      {Key(1, 2, 3, 3), 4.0f}, {Key(-9, 0, 0, 3), 5.0f}, {Key(64, 0, 0, 2), 7.0f}};
  EXPECT_EQ(on, expected);
  // Past the end the walk stays ended and answers with zeros.
  active->MoveNext();
  EXPECT_FALSE(active->IsValid());
  EXPECT_EQ(active->GetValue(), 0.0f);
  EXPECT_EQ(active->GetCoords(), IntVector32(0, 0, 0));
  EXPECT_EQ(active->GetDepth(), 3);

  auto inactive = Make<float>(GRIDITERATORTYPE::INACTIVE);
  ASSERT_TRUE(inactive->Init(v));
  const auto off = Collect(*inactive);
  EXPECT_EQ(off.at(Key(1, 2, 4, 3)), 6.0f);
  for (const auto& [key, value] : off) {
    EXPECT_EQ(on.count(key), 0u);
    if (key != Key(1, 2, 4, 3)) {
      EXPECT_EQ(value, -1.0f);  // everything else is background
    }
  }

  // Any number but 1 and 2 walks everything: the union of the two.
  auto all = GridIteratorCreationImpl::Create(GRIDTYPE::FLOAT, 17);
  ASSERT_TRUE(all);
  auto allOf = std::static_pointer_cast<GridIteratorInterface<float>>(*all);
  ASSERT_TRUE(allOf->Init(v));
  const auto everything = Collect(*allOf);
  EXPECT_EQ(everything.size(), on.size() + off.size());

  // A second Init starts over.
  ASSERT_TRUE(active->Init(v));
  EXPECT_EQ(Collect(*active), expected);
}

TEST(GridIterator, GivesNothingToWalkWithoutActiveValuesOrGrid) {
  auto it = Make<float>(GRIDITERATORTYPE::ACTIVE);
  ASSERT_TRUE(it->Init(*VolumeToolsInterface::CreateNewFloat32Volume(2.0f)));
  EXPECT_FALSE(it->IsValid());

  ASSERT_TRUE(it->Init(Volume()));  // an uninitialised reference
  EXPECT_FALSE(it->IsValid());
  ASSERT_TRUE(it->Init(*Volume::Create()));  // no grid
  EXPECT_FALSE(it->IsValid());
  EXPECT_EQ(it->GetValue(), 0.0f);

  // A grid outside the type cascade leaves the iterator empty, without error.
  auto mask = openvdb::MaskGrid::create();
  mask->tree().setValue(openvdb::Coord(0), true);
  ASSERT_TRUE(it->Init(*MakeVolume(mask)));
  EXPECT_FALSE(it->IsValid());

  // After a walk has stood on values, an Init without grid ends it.
  ASSERT_TRUE(it->Init(Mixed()));
  EXPECT_TRUE(it->IsValid());
  ASSERT_TRUE(it->Init(*Volume::Create()));
  EXPECT_FALSE(it->IsValid());
}

TEST(GridIterator, WalksOnlyTheGridTypeItExpects) {
  auto sphere = *VolumeToolsInterface::CreateSphereVolume(1.0, zta::Vector(0, 0, 0), 0.25, 2, nullptr, nullptr);
  auto vectors = openvdb::Vec3DGrid::create();
  vectors->tree().setValue(openvdb::Coord(3, 4, 5), openvdb::Vec3d(0.5, -1.5, 2.5));
  Volume vec = *MakeVolume(vectors);
  auto doubles = openvdb::DoubleGrid::create();
  doubles->tree().setValue(openvdb::Coord(0, 0, 1), 0.1);
  Volume dbl = *MakeVolume(doubles);

  auto f = Make<float>(GRIDITERATORTYPE::ACTIVE);
  EXPECT_EQ(Words(f->Init(vec)), "Passed grid does not have the correct type");
  EXPECT_FALSE(f->IsValid());
  EXPECT_EQ(Words(f->Init(dbl)), "Passed grid does not have the correct type");  // expects float until told

  // A float iterator walks a double grid once told so, converting each value.
  ASSERT_TRUE(f->SetGridType(GRIDTYPE::DOUBLE));
  ASSERT_TRUE(f->Init(dbl));
  ASSERT_TRUE(f->IsValid());
  EXPECT_EQ(f->GetValue(), 0.1f);
  EXPECT_EQ(f->GetCoords(), IntVector32(0, 0, 1));
  EXPECT_EQ(Words(f->Init(sphere)), "Passed grid does not have the correct type");  // now it expects double
  EXPECT_FALSE(f->IsValid());
  EXPECT_EQ(Words(f->SetGridType(GRIDTYPE::VEC3S)), "Passed grid does not have the correct type");
  EXPECT_EQ(f->GetGridType(), GRIDTYPE::DOUBLE);
  ASSERT_TRUE(f->SetGridType(GRIDTYPE::FLOAT));
  ASSERT_TRUE(f->Init(sphere));
  EXPECT_EQ(int64_t(Collect(*f).size()), sphere.GetActiveVoxelCount());

  auto v = Make<zta::Vector32>(GRIDITERATORTYPE::ACTIVE);
  ASSERT_TRUE(v->SetGridType(GRIDTYPE::VEC3D));
  ASSERT_TRUE(v->Init(vec));
  EXPECT_EQ(v->GetValue(), zta::Vector32(0.5f, -1.5f, 2.5f));
  EXPECT_EQ(v->GetDataType(), GRIDTYPE::VEC3S);

  auto ints = Make<int32_t>(GRIDITERATORTYPE::ACTIVE);
  EXPECT_EQ(Words(ints->SetGridType(GRIDTYPE::INT64)), "Passed grid does not have the correct type");
  EXPECT_EQ(Words(ints->Init(sphere)), "Passed grid does not have the correct type");

  // No OpenVDB 10 grid holds strings: the string iterator exists and refuses every grid.
  auto strings = Make<std::string>(GRIDITERATORTYPE::ALL);
  EXPECT_EQ(strings->GetDataType(), GRIDTYPE::STRING);
  EXPECT_EQ(Words(strings->Init(sphere)), "Passed grid does not have the correct type");
  EXPECT_TRUE(strings->Init(*Volume::Create()));
  EXPECT_FALSE(strings->IsValid());

  EXPECT_EQ(GridIteratorCreationImpl::Create(GRIDTYPE::NONE, 1).GetError().GetMessage(), "iterator creation failed");
  EXPECT_EQ(GridIteratorCreationImpl::Create(GRIDTYPE(10), 2).GetError().GetMessage(), "iterator creation failed");
}

namespace {

template <typename T, typename GridT>
void ExpectWalk(const typename GridT::ValueType& value, const T& expected) {
  SCOPED_TRACE(GridT::gridType());
  auto grid = GridT::create();
  grid->tree().setValue(openvdb::Coord(-3, 8, 100), value);
  auto it = Make<T>(GRIDITERATORTYPE::ACTIVE);
  ASSERT_TRUE(it->Init(*MakeVolume(grid)));
  ASSERT_TRUE(it->IsValid());
  EXPECT_EQ(it->GetValue(), expected);
  EXPECT_EQ(it->GetCoords(), IntVector32(-3, 8, 100));
  EXPECT_EQ(it->GetDepth(), 3);
  it->MoveNext();
  EXPECT_FALSE(it->IsValid());
}

}  // namespace

TEST(GridIterator, EachValueTypeHasItsIterator) {
  ExpectWalk<bool, openvdb::BoolGrid>(true, true);
  ExpectWalk<float, openvdb::FloatGrid>(2.5f, 2.5f);
  ExpectWalk<double, openvdb::DoubleGrid>(-1e-200, -1e-200);
  ExpectWalk<int32_t, openvdb::Int32Grid>(-5, -5);
  ExpectWalk<int64_t, openvdb::Int64Grid>(int64_t(1) << 50, int64_t(1) << 50);
  ExpectWalk<IntVector32, openvdb::Vec3IGrid>(openvdb::Vec3i(1, 2, 3), IntVector32(1, 2, 3));
  ExpectWalk<zta::Vector32, openvdb::Vec3SGrid>(openvdb::Vec3s(1, 2, 3), zta::Vector32(1, 2, 3));
  ExpectWalk<zta::Vector64, openvdb::Vec3DGrid>(openvdb::Vec3d(1, 2, 3), zta::Vector64(1, 2, 3));
}
