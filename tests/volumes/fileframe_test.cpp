// Voxel-by-voxel operations run in a file's own frame give, written back, the
// very voxels of the mirrored way through the scene's frame.
#include <gtest/gtest.h>
#include <openvdb/io/File.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <filesystem>
#include <functional>
#include <random>
#include <string>

#include "modules/volumes/source/helper/gridtypes.h"
#include "support/expect.h"
#include "support/run.h"
#include "zelmar/fileframe.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;

namespace {

using Tools = VolumeToolsInterface;
using Operation = std::function<zta::Result<Volume>(const Volume&, const Volume&)>;

// Grids off the origin along z, so that the mirror moves them.
openvdb::math::Transform::Ptr Frame(double voxel) {
  auto t = openvdb::math::Transform::createLinearTransform(voxel);
  t->postTranslate(openvdb::Vec3d(0.1, -0.2, 0.7));
  return t;
}

openvdb::FloatGrid::Ptr Sphere(float radius, const openvdb::Vec3f& centre, double voxel) {
  auto g = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(radius, centre, float(voxel), 3.0f);
  g->setTransform(Frame(voxel));
  return g;
}

// Scattered voxels, a few of them off, and a tile; one voxel holds 0, for the divisions.
template <typename GridT>
typename GridT::Ptr Scatter(unsigned seed, double voxel) {
  using ValueT = typename GridT::ValueType;
  auto g = GridT::create(ValueT(0));
  g->setTransform(Frame(voxel));
  g->setGridClass(openvdb::GRID_FOG_VOLUME);
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> at(-20, 20);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  auto acc = g->getAccessor();
  for (int n = 0; n < 3000; ++n) {
    const openvdb::Coord c(at(rng), at(rng), at(rng));
    ValueT v;
    if constexpr (openvdb::VecTraits<ValueT>::IsVec) v = ValueT(value(rng), value(rng), value(rng));
    else v = ValueT(value(rng));
    if (n % 7 == 0) acc.setValueOff(c, v);
    else acc.setValueOn(c, v);
  }
  acc.setValueOn(openvdb::Coord(seed % 3, 1, 2), ValueT(0));
  // The smallest tile, 128 voxels a side, below the voxels in z.
  g->tree().addTile(1, openvdb::Coord(0, 0, -128), ValueT(1), true);
  return g;
}

std::string Write(const std::string& path, openvdb::GridBase::Ptr grid) {
  grid->setName("g");
  openvdb::io::File f(path);
  f.write({grid});
  f.close();
  return path;
}

openvdb::GridBase::Ptr Read(const std::string& path) {
  openvdb::io::File f(path);
  f.open();
  auto grid = f.readGrid("g");
  f.close();
  return grid;
}

// The operation through the scene (mirrored in and out) and in the file's frame.
void RunBothWays(const std::string& a, const std::string& b, const Operation& op, const std::string& mirrored,
                 const std::string& direct) {
  const Url ua = Url::FromSystemPath(a), ub = Url::FromSystemPath(b);
  auto sa = Volume::CreateFromFile(ua, 1.0, 0), sb = Volume::CreateFromFile(ub, 1.0, 0);
  ASSERT_TRUE(sa && sb);
  auto scene = op(*sa, *sb);
  ASSERT_TRUE(scene) << scene.GetError().GetMessage();
  ASSERT_TRUE(Tools::SaveVDBFile(Url::FromSystemPath(mirrored), 1.0, {*scene}, {}));

  auto fa = FileFrameInterface::LoadGrid(ua, 0), fb = FileFrameInterface::LoadGrid(ub, 0);
  ASSERT_TRUE(fa && fb);
  auto file = op(*fa, *fb);
  ASSERT_TRUE(file) << file.GetError().GetMessage();
  ASSERT_TRUE(FileFrameInterface::SaveVDBFile(Url::FromSystemPath(direct), {*file}, {}));
}

// Same transform, class and background, and every voxel of the joint box
// (grown by a leaf) holds the same value in the same state, also where off.
template <typename GridT>
void ExpectSameVoxels(const std::string& mirrored, const std::string& direct, const std::string& what) {
  SCOPED_TRACE(what);
  auto m = openvdb::gridPtrCast<GridT>(Read(mirrored)), d = openvdb::gridPtrCast<GridT>(Read(direct));
  ASSERT_TRUE(m && d);
  EXPECT_EQ(m->transform(), d->transform());
  EXPECT_EQ(m->transform().baseMap()->getAffineMap()->getMat4(), d->transform().baseMap()->getAffineMap()->getMat4());
  EXPECT_EQ(m->getGridClass(), d->getGridClass());
  EXPECT_EQ(m->background(), d->background());
  EXPECT_EQ(m->activeVoxelCount(), d->activeVoxelCount());
  openvdb::CoordBBox box = m->evalActiveVoxelBoundingBox();
  box.expand(d->evalActiveVoxelBoundingBox());
  box.expand(8);
  auto ma = m->getConstAccessor(), da = d->getConstAccessor();
  size_t differ = 0;
  for (auto it = box.begin(); it; ++it) {
    typename GridT::ValueType mv, dv;
    const bool mon = ma.probeValue(*it, mv), don = da.probeValue(*it, dv);
    if (mon != don || !(mv == dv || (mv != mv && dv != dv))) ++differ;
  }
  EXPECT_EQ(differ, 0u);
}

}  // namespace

void ExpectNearMatrix(const Matrix& a, const Matrix& b) {
  zvtest::ExpectNear(a.off, b.off, 1e-12);
  zvtest::ExpectNear(a.v1, b.v1, 1e-12);
  zvtest::ExpectNear(a.v2, b.v2, 1e-12);
  zvtest::ExpectNear(a.v3, b.v3, 1e-12);
}

TEST(FileFrame, PointwiseOperationsGiveTheMirroredPathsVoxels) {
  const std::string dir = zvtest::TempDir();
  auto path = [&](const std::string& name) { return dir + "/" + name + ".vdb"; };

  // Level sets on one transform, cut, joined and overlapped.
  const std::string s1 = Write(path("s1"), Sphere(1.0f, {0.0f, 0.0f, 0.0f}, 0.05));
  const std::string s2 = Write(path("s2"), Sphere(0.8f, {0.7f, 0.1f, 0.45f}, 0.05));
  for (auto [type, name] : {std::pair{BOOLTYPE::UNION, "union"}, std::pair{BOOLTYPE::DIFFERENCE, "difference"},
                            std::pair{BOOLTYPE::INTERSECTION, "intersection"}}) {
    RunBothWays(s1, s2, [type](const Volume& a, const Volume& b) { return Tools::BoolVolumes(a, b, type); },
                path("m"), path("d"));
    ExpectSameVoxels<openvdb::FloatGrid>(path("m"), path("d"), name);
  }

  // Fog volumes of every mix operation, with a division by zero.
  const std::string f1 = Write(path("f1"), Scatter<openvdb::FloatGrid>(1, 0.1));
  const std::string f2 = Write(path("f2"), Scatter<openvdb::FloatGrid>(2, 0.1));
  for (int type = 1; type <= 7; ++type) {
    RunBothWays(f1, f2, [type](const Volume& a, const Volume& b) { return Tools::MixVolumes(a, b, MIXTYPE(type)); },
                path("m"), path("d"));
    ExpectSameVoxels<openvdb::FloatGrid>(path("m"), path("d"), "mix " + std::to_string(type));
  }

  // Vectors keep the file's components under the mirror, so the cross product commutes too.
  const std::string v1 = Write(path("v1"), Scatter<openvdb::Vec3SGrid>(3, 0.1));
  const std::string v2 = Write(path("v2"), Scatter<openvdb::Vec3SGrid>(4, 0.1));
  for (int type = 1; type <= 4; ++type) {
    RunBothWays(v1, v2,
                [type](const Volume& a, const Volume& b) { return Tools::MixVectorVolumes(a, b, MIXVECTORTYPE(type)); },
                path("m"), path("d"));
    ExpectSameVoxels<openvdb::Vec3SGrid>(path("m"), path("d"), "vmix " + std::to_string(type));
  }

  // A blend pairs voxels by index, so unlike transforms commute as well.
  const std::string b2 = Write(path("b2"), Scatter<openvdb::FloatGrid>(5, 0.37));
  RunBothWays(f1, b2, [](const Volume& a, const Volume& b) { return Tools::BlendVolumes(a, b, 0.3, nullptr); },
              path("m"), path("d"));
  ExpectSameVoxels<openvdb::FloatGrid>(path("m"), path("d"), "blend");
}

TEST(FileFrame, GridsComeAndGoAsTheFileHoldsThem) {
  const std::string dir = zvtest::TempDir();
  auto sphere = Sphere(0.5f, {0.0f, 0.0f, 0.3f}, 0.1);
  auto fog = Scatter<openvdb::FloatGrid>(7, 0.25);
  sphere->setName("a");
  fog->setName("b");
  {
    openvdb::io::File f(dir + "/two.vdb");
    f.write({sphere, fog});
    f.close();
  }
  const Url url = Url::FromSystemPath(dir + "/two.vdb");
  auto transforms = FileFrameInterface::GetGridTransformsFromFile(url);
  ASSERT_TRUE(transforms);
  ASSERT_EQ(transforms->size(), 2u);
  // A header's transform comes back through its map's inverse: equal to rounding.
  ExpectNearMatrix((*transforms)[0], FromMat4d(sphere->transform().baseMap()->getAffineMap()->getMat4()));
  ExpectNearMatrix((*transforms)[1], FromMat4d(fog->transform().baseMap()->getAffineMap()->getMat4()));

  // Not mirrored: the same transform, and a voxel above the origin stays there.
  auto loaded = FileFrameInterface::LoadGrid(url, 1);
  ASSERT_TRUE(loaded);
  ExpectNearMatrix(loaded->GetGridTransform(), (*transforms)[1]);
  EXPECT_EQ(loaded->GetActiveVoxelCount(), Int(fog->activeVoxelCount()));
  ASSERT_TRUE(FileFrameInterface::SaveVDBFile(Url::FromSystemPath(dir + "/back.vdb"), {*loaded}, {}));
  {
    openvdb::io::File f(dir + "/back.vdb");
    f.open();
    auto back = openvdb::gridPtrCast<openvdb::FloatGrid>(f.readGrid("b"));
    f.close();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->transform(), fog->transform());
    for (auto it = fog->cbeginValueOn(); it; ++it) ASSERT_EQ(back->tree().getValue(it.getCoord()), *it);
    EXPECT_EQ(back->activeVoxelCount(), fog->activeVoxelCount());
  }

  // The errors of the mirrored load and save.
  const Url missing = Url::FromSystemPath(dir + "/none.vdb");
  EXPECT_FALSE(FileFrameInterface::GetGridTransformsFromFile(missing));
  auto none = FileFrameInterface::LoadGrid(url, 5);
  ASSERT_FALSE(none);
  EXPECT_NE(none.GetError().GetMessage().find("could not be loaded"), std::string::npos);
  auto bad = FileFrameInterface::SaveVDBFile(Url::FromSystemPath(dir + "/bad.vdb"), {Volume()}, {});
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.GetError().GetMessage(), "volume was not initialized");
  EXPECT_FALSE(std::filesystem::exists(dir + "/bad.vdb"));
}
