// .vdb files and streams: round trips, the mirror and scale, metadata, grid
// selection, point data grids and bad input.
#include <gtest/gtest.h>

#include <openvdb/io/File.h>
#include <openvdb/points/PointConversion.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>
#include <random>

#include "modules/volumes/source/helper/vdbgridtransformer.h"
#include "modules/volumes/source/helper/vdbmirror.h"
#include "modules/volumes/source/volume_impl.h"
#include "support/run.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;
using zta::Vector;

namespace {

using Tools = VolumeToolsInterface;

openvdb::FloatGrid::Ptr VdbSphere(float radius, const openvdb::Vec3f& centre, float voxel) {
  auto g = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(radius, centre, voxel, 3.0f);
  g->setName("sphere");
  return g;
}

openvdb::FloatGrid::Ptr Typed(const Volume& v) { return openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(v)); }

float WorldValue(const openvdb::FloatGrid& g, const openvdb::Vec3d& p) {
  return g.tree().getValue(openvdb::Coord::round(g.transform().worldToIndex(p)));
}

void WriteFile(const std::string& path, const openvdb::GridPtrVec& grids, const openvdb::MetaMap& meta = {}) {
  openvdb::io::File f(path);
  f.write(grids, meta);
  f.close();
}

// Every voxel (value and state) of `a` at (i, j, k) equals `b` at (i, j, -k), also where inactive.
template <typename GridT>
void ExpectMirrored(const GridT& a, const GridT& b) {
  openvdb::CoordBBox box = a.evalActiveVoxelBoundingBox();
  box.expand(2);
  auto acc = b.getConstAccessor();
  for (auto it = box.begin(); it; ++it) {
    const openvdb::Coord c = *it, m(c.x(), c.y(), -c.z());
    ASSERT_EQ(a.tree().getValue(c), acc.getValue(m)) << c;
    ASSERT_EQ(a.tree().isValueOn(c), acc.isValueOn(m)) << c;
  }
  EXPECT_EQ(a.activeVoxelCount(), b.activeVoxelCount());
}

}  // namespace

TEST(Files, FileRoundTripKeepsWorldPositions) {
  const std::string path = zvtest::TempDir() + "/a.vdb";
  Volume v = *Tools::CreateSphereVolume(1.0, Vector(0.5, 0, -2), 0.1, 3, nullptr, nullptr);
  v.SetGridName("ball");
  ASSERT_TRUE(Tools::SaveVDBFile(Url(path), 1.0, {v}, {}));

  // In the file, right-handed: the scene's z = -2 is z = +2.
  openvdb::io::File f(path);
  f.open();
  auto raw = openvdb::gridPtrCast<openvdb::FloatGrid>(f.readGrid("ball"));
  EXPECT_NEAR(WorldValue(*raw, {0.5, 0, 3}), 0.0f, 1e-5);
  EXPECT_LT(WorldValue(*raw, {0.5, 0, 2}), 0.0f);
  ExpectMirrored(*Typed(v), *raw);

  Volume back = *Volume::CreateFromFile(Url(path), 1.0, 0);
  EXPECT_EQ(back.GetGridName(), "ball");
  EXPECT_EQ(back.GetGridClass(), GRIDCLASS::SDF);
  EXPECT_EQ(back.GetActiveVoxelCount(), v.GetActiveVoxelCount());
  const zta::Matrix a = v.GetGridTransform(), b = back.GetGridTransform();
  EXPECT_NEAR((a.off - b.off).GetLength(), 0.0, 1e-12);
  auto orig = Typed(v), loaded = Typed(back);
  for (auto it = orig->cbeginValueOn(); it; ++it) ASSERT_EQ(*it, loaded->tree().getValue(it.getCoord()));
}

TEST(Files, FileGridsComeInMirroredAndScaled) {
  const std::string path = zvtest::TempDir() + "/t.vdb";
  auto sphere = VdbSphere(1.0f, openvdb::Vec3f(0, 0, 0), 0.1f);
  sphere->transform().postTranslate(openvdb::Vec3d(0, 0, 5));
  auto fog = VdbSphere(1.0f, openvdb::Vec3f(0, 0, 0), 0.1f);
  fog->setGridClass(openvdb::GRID_FOG_VOLUME);
  fog->setName("zfog");  // OpenVDB's file reader lists grids by name
  WriteFile(path, {sphere, fog});

  Volume in = *Tools::LoadVDBFile(Url(path), 1.0, nullptr, nullptr, nullptr)->begin();
  EXPECT_NEAR(in.GetGridTransform().off.z, 5.0 - 10.0, 1e-12);
  ExpectMirrored(*sphere, *Typed(in));
  EXPECT_NEAR(WorldValue(*Typed(in), {0, 0, -6}), 0.0f, 1e-5);  // the surface at z = 6 is at -6 in the scene

  auto scaled = *Tools::LoadVDBFile(Url(path), 2.0, nullptr, nullptr, nullptr);
  ASSERT_EQ(scaled.size(), 2u);
  EXPECT_NEAR(scaled[0].GetGridTransform().v1.x, 0.2, 1e-6);
  EXPECT_NEAR(Typed(scaled[0])->background(), 2 * sphere->background(), 1e-6);  // level set distances double
  EXPECT_NEAR(WorldValue(*Typed(scaled[0]), {0, 0, -12.2}), 0.2f, 1e-4);  // radius 2 about z = -10
  EXPECT_EQ(Typed(scaled[1])->background(), fog->background());  // fog values stay
  EXPECT_EQ(Typed(scaled[1])->tree().getValue(openvdb::Coord(0, 0, -10)), fog->tree().getValue(openvdb::Coord(0, 0, 10)));
}

TEST(Files, StreamsKeepTheSystemsFrame) {
  const Url url = Url::Memory("files_test/stream");
  Volume v = *Tools::CreateSphereVolume(1.0, Vector(0, 0, 2), 0.1, 3, nullptr, nullptr);
  zta::DataDictionary meta;
  meta.Set("source_zta_file", "scene.zta");
  ASSERT_TRUE(Tools::SaveVDBFile(url, 1.0, {v}, meta));

  Volume back = *Volume::Create();
  ASSERT_TRUE(Tools::LoadGridIntoVolume(url, 1.0, 0, back, nullptr));
  EXPECT_EQ(back.GetGridTransform(), v.GetGridTransform());
  EXPECT_EQ(back.GetWorldBoundingBox().min, v.GetWorldBoundingBox().min);  // no mirror
  EXPECT_EQ(back.GetActiveVoxelCount(), v.GetActiveVoxelCount());

  Volume half = *Volume::Create();
  ASSERT_TRUE(Tools::LoadGridIntoVolume(url, 0.5, 0, half, nullptr));
  EXPECT_NEAR(half.GetGridTransform().v1.x, 0.05, 1e-7);
  EXPECT_NEAR(Typed(half)->background(), 0.15f, 1e-6);
  EXPECT_NEAR(Typed(v)->background(), 0.3f, 1e-6);  // the source is untouched

  Volume none = *Volume::Create();
  auto past = Tools::LoadGridIntoVolume(url, 1.0, 3, none, nullptr);
  EXPECT_EQ(past.GetError().GetKind(), zta::ErrorKind::InputOutput);
  EXPECT_NE(past.GetError().GetMessage().find("could not be loaded and an error occured"), std::string::npos);
  zta::MemoryStore::Erase("files_test/stream");
}

TEST(Files, MetadataOfEveryTypeRoundTrips) {
  const std::string path = zvtest::TempDir() + "/m.vdb";
  zta::DataDictionary meta;
  zta::Matrix4d64 m4 = zta::Matrix4d64::Identity();
  m4(3, 0) = 5.0;
  zta::Matrix4d32 m4s = zta::Matrix4d32::Identity();
  m4s(0, 1) = 2.0f;
  meta.Set("s", "text");
  meta.Set("d", 1.5);
  meta.Set("f", 2.5f);
  meta.Set("b", true);
  meta.Set("i", int32_t(-3));
  meta.Set("l", int64_t(1) << 40);
  meta.Set("m4d", m4);
  meta.Set("m4s", m4s);
  meta.Set("v2d", zta::Vector2d64{1, 2});
  meta.Set("v2s", zta::Vector2d32{3, 4});
  meta.Set("v2i", zta::IntVector2d32{5, 6});
  meta.Set("v3d", zta::Vector64(1, 2, 3));
  meta.Set("v3s", zta::Vector32(4, 5, 6));
  meta.Set("v3i", zta::IntVector32(7, 8, 9));
  meta.Set("skipped", zta::Matrix());  // no counterpart in files
  ASSERT_TRUE(Tools::SaveVDBFile(Url(path), 1.0, {}, meta));  // no volumes: still a valid file

  auto read = Tools::GetMetaDataFromFile(Url(path));
  ASSERT_TRUE(read);
  zta::DataDictionary all;
  for (const auto& record : *read) {
    ASSERT_EQ(record.GetCount(), 1u);
    all.Set(record.begin()->first, record.begin()->second);
  }
  for (const auto& [name, value] : meta) {
    if (name == "skipped") EXPECT_FALSE(all.Contains(name));
    else EXPECT_EQ(all.Get(name), value) << name;
  }
  EXPECT_TRUE(Tools::GetGridNamesFromFile(Url(path))->empty());

  // A file written elsewhere, with a metadata type the system does not map.
  openvdb::MetaMap other;
  other.insertMeta("keep", openvdb::Int32Metadata(4));
  other.insertMeta("drop", openvdb::Vec4DMetadata(openvdb::Vec4d(1, 2, 3, 4)));
  WriteFile(path, {VdbSphere(1, {0, 0, 0}, 0.2f)}, other);
  zelmar::MetaDataArray got;
  Volume v = *Volume::Create();
  ASSERT_TRUE(Tools::LoadGridIntoVolume(Url(path), 1.0, 0, v, &got));
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].Get("keep").Get<int32_t>(), 4);
}

TEST(Files, PointDataGridsAreListedButNotLoaded) {
  const std::string path = zvtest::TempDir() + "/p.vdb";
  std::vector<openvdb::Vec3R> positions{{0, 0, 0}, {1, 1, 1}, {2, 0, 1}};
  auto xform = openvdb::math::Transform::createLinearTransform(0.5);
  auto points = openvdb::points::createPointDataGrid<openvdb::points::NullCodec, openvdb::points::PointDataGrid>(
      positions, *xform);
  points->setName("points");
  auto fog = VdbSphere(1, {0, 0, 0}, 0.2f);
  fog->setName("first");
  auto vec = openvdb::Vec3SGrid::create(openvdb::Vec3s(0));
  vec->tree().setValue(openvdb::Coord(1, 2, 3), openvdb::Vec3s(1, 0, 0));
  vec->setName("third");
  WriteFile(path, {fog, points, vec});

  auto names = Tools::GetGridNamesFromFile(Url(path));
  ASSERT_TRUE(names);
  EXPECT_EQ(*names, (std::vector<std::string>{"first", "points~NotSupported", "third"}));

  std::vector<std::string> listed;
  auto all = Tools::LoadVDBFile(Url(path), 1.0, &listed, nullptr, nullptr);
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 2u);
  EXPECT_EQ(listed.size(), 3u);
  EXPECT_EQ((*all)[1].GetGridType(), GRIDTYPE::VEC3S);
  auto vecIn = openvdb::gridPtrCast<openvdb::Vec3SGrid>(VolumeImpl::GetGrid((*all)[1]));
  EXPECT_EQ(vecIn->tree().getValue(openvdb::Coord(1, 2, -3)), openvdb::Vec3s(1, 0, 0));

  Volume v = *Volume::Create();
  EXPECT_FALSE(Tools::LoadGridIntoVolume(Url(path), 1.0, 1, v, nullptr));  // the point grid is refused
  EXPECT_FALSE(v.HasGrid());

  const std::vector<Int> indices{2, 0, 99, 1};
  auto picked = Tools::LoadVDBFile(Url(path), 1.0, nullptr, &indices, nullptr);
  ASSERT_TRUE(picked);  // stops at 99 without an error
  ASSERT_EQ(picked->size(), 2u);
  EXPECT_EQ((*picked)[0].GetGridName(), "third");
  const std::vector<Int> none;
  EXPECT_TRUE(Tools::LoadVDBFile(Url(path), 1.0, nullptr, &none, nullptr)->empty());

  // Chosen grids and their names come from one open file: as many opens as
  // loading a single grid takes.
  const auto opens = [&](const std::function<void()>& load) {
    const int fd = inotify_init1(IN_NONBLOCK);
    EXPECT_GE(fd, 0);
    EXPECT_GE(inotify_add_watch(fd, path.c_str(), IN_OPEN), 0);
    load();
    int count = 0;
    alignas(inotify_event) char buffer[4096];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
      for (char* p = buffer; p < buffer + n; p += sizeof(inotify_event) + reinterpret_cast<inotify_event*>(p)->len)
        ++count;
    ::close(fd);
    return count;
  };
  const int single = opens([&] {
    Volume one = *Volume::Create();
    EXPECT_TRUE(Tools::LoadGridIntoVolume(Url(path), 1.0, 2, one, nullptr));
  });
  EXPECT_GE(single, 1);
  const std::vector<Int> both{2, 0};
  EXPECT_EQ(opens([&] {
              std::vector<std::string> listed2;
              MetaDataArray meta;
              auto two = Tools::LoadVDBFile(Url(path), 1.0, &listed2, &both, &meta);
              ASSERT_TRUE(two);
              EXPECT_EQ(two->size(), 2u);
              EXPECT_EQ(listed2, *names);
            }),
            single);
}

TEST(Files, BadFilesAndBadVolumesGiveErrorsAndNoFile) {
  const std::string dir = zvtest::TempDir();
  std::ofstream(dir + "/text.vdb") << "this is not a vdb file";
  const std::string good = dir + "/good.vdb";
  WriteFile(good, {VdbSphere(1, {0, 0, 0}, 0.05f)});
  const auto size = std::filesystem::file_size(good);
  std::filesystem::copy_file(good, dir + "/cut.vdb");
  std::filesystem::resize_file(dir + "/cut.vdb", size / 2);

  for (const char* name : {"/text.vdb", "/cut.vdb", "/missing.vdb"}) {
    Volume v = *Volume::Create();
    auto r = Tools::LoadGridIntoVolume(Url(dir + name), 1.0, 0, v, nullptr);
    ASSERT_FALSE(r) << name;
    EXPECT_NE(r.GetError().GetMessage().find("could not be loaded and an error occured"), std::string::npos);
    EXPECT_FALSE(v.HasGrid());
  }
  // An index past the end finds no grid; the text is that of errno as the
  // reading left it, not one the loader sets itself.
  {
    Volume v = *Volume::Create();
    errno = EDOM;
    auto r = Tools::LoadGridIntoVolume(Url(good), 1.0, 7, v, nullptr);
    const int after = errno;
    ASSERT_FALSE(r);
    EXPECT_EQ(after, EDOM);
    EXPECT_EQ(r.GetError().GetMessage(),
              "File " + Url(good).ToString() + " could not be loaded and an error occured: " + std::strerror(after));
    EXPECT_FALSE(v.HasGrid());
  }
  EXPECT_EQ(Volume::CreateFromFile(Url(dir + "/missing.vdb"), 1.0, 0).GetError().GetMessage(), "File could not be found");
  EXPECT_EQ(Volume::CreateFromFile(Url(), 1.0, 0).GetError().GetMessage(), "File could not be found");
  EXPECT_TRUE(Tools::LoadVDBFile(Url(dir + "/missing.vdb"), 1.0, nullptr, nullptr, nullptr)->empty());
  EXPECT_NE(Tools::GetGridNamesFromFile(Url(dir + "/text.vdb")).GetError().GetMessage().find("Grids names could not be loaded"),
            std::string::npos);
  EXPECT_NE(Tools::GetMetaDataFromFile(Url(dir + "/missing.vdb")).GetError().GetMessage().find("Grids metadata could not be loaded"),
            std::string::npos);

  Volume ok = *Tools::CreateNewFloat32Volume(0.0f);
  Volume empty = *Volume::Create();
  const std::string out = dir + "/out.vdb";
  EXPECT_EQ(Tools::SaveVDBFile(Url(out), 1.0, {ok, Volume()}, {}).GetError().GetMessage(), "volume was not initialized");
  EXPECT_EQ(Tools::SaveVDBFile(Url(out), 1.0, {ok, empty}, {}).GetError().GetMessage(), "volume has no grid attached");
  EXPECT_EQ(Tools::SaveVDBFile(Url(out), 0.0, {ok}, {}).GetError().GetMessage(), "grid could not pe transformed");
  EXPECT_FALSE(std::filesystem::exists(out));
  auto unwritable = Tools::SaveVDBFile(Url(dir + "/no/such/dir/x.vdb"), 1.0, {ok}, {});
  EXPECT_NE(unwritable.GetError().GetMessage().find("Grids could not be written and an error occured"), std::string::npos);
  EXPECT_EQ(ok.WriteToFile(Url(dir + "/no/such/dir/x.vdb"), 1.0, {}).GetError().GetMessage(), "File could not be found");
}

TEST(Files, FastMirrorEqualsTheGridTransformer) {
  openvdb::math::Mat4d mirror = openvdb::math::Mat4d::identity();
  mirror(2, 2) = -1.0;

  auto sphere = VdbSphere(1.0f, openvdb::Vec3f(0.3f, -0.2f, 0.45f), 0.05f);
  auto slow = openvdb::gridPtrCast<openvdb::FloatGrid>(TransformGrid(sphere, mirror));
  auto fast = openvdb::gridPtrCast<openvdb::FloatGrid>(MirrorGridIndexZ(sphere));
  ASSERT_TRUE(slow && fast);
  ExpectMirrored(*sphere, *fast);
  ExpectMirrored(*sphere, *slow);
  EXPECT_EQ(fast->tree().leafCount(), slow->tree().leafCount());

  // Fog with tiles, active and not, and voxels that straddle leaf borders.
  auto fog = openvdb::FloatGrid::create(0.0f);
  fog->setGridClass(openvdb::GRID_FOG_VOLUME);
  fog->tree().addTile(1, openvdb::Coord(0, 0, 128), 0.5f, true);
  fog->tree().addTile(1, openvdb::Coord(128, 0, 0), 0.25f, false);
  for (int k = -20; k < 20; ++k) fog->tree().setValue(openvdb::Coord(3, 4, k), float(k));
  auto fastFog = openvdb::gridPtrCast<openvdb::FloatGrid>(MirrorGridIndexZ(fog));
  auto slowFog = openvdb::gridPtrCast<openvdb::FloatGrid>(TransformGrid(fog, mirror));
  for (const auto& out : {fastFog, slowFog}) {
    EXPECT_EQ(out->activeVoxelCount(), fog->activeVoxelCount());
    EXPECT_EQ(out->tree().getValue(openvdb::Coord(3, 4, 7)), -7.0f);
    EXPECT_TRUE(out->tree().isValueOn(openvdb::Coord(3, 4, -130)));  // the 8^3 active tile at z 128..135
    EXPECT_EQ(out->tree().getValue(openvdb::Coord(3, 4, -130)), 0.5f);
    EXPECT_EQ(out->tree().getValue(openvdb::Coord(130, 2, -2)), 0.25f);
    EXPECT_FALSE(out->tree().isValueOn(openvdb::Coord(130, 2, -2)));
  }
  // Mirroring twice gives the grid back.
  ExpectMirrored(*fog, *fastFog);
  auto twice = openvdb::gridPtrCast<openvdb::FloatGrid>(MirrorGridIndexZ(fastFog));
  for (auto it = fog->cbeginValueOn(); it; ++it) ASSERT_EQ(twice->tree().getValue(it.getCoord()), *it);
  EXPECT_EQ(twice->activeVoxelCount(), fog->activeVoxelCount());

  // Tiles stacked along z with unlike values, and a large tile next to a small one.
  auto tiles = openvdb::FloatGrid::create(0.0f);
  tiles->tree().addTile(1, openvdb::Coord(0, 0, 0), 0.5f, true);
  tiles->tree().addTile(1, openvdb::Coord(0, 0, 8), 0.75f, true);
  tiles->tree().addTile(1, openvdb::Coord(8, 0, 8), 0.25f, false);
  tiles->tree().addTile(2, openvdb::Coord(128, 0, 0), 1.0f, true);
  tiles->tree().addTile(1, openvdb::Coord(128, 0, 128), 2.0f, true);
  ExpectMirrored(*tiles, *openvdb::gridPtrCast<openvdb::FloatGrid>(MirrorGridIndexZ(tiles)));

  // Vector and bit-packed values, scattered over leaf borders, some switched off.
  std::mt19937 random(7);
  std::uniform_int_distribution<int> at(-12, 12);
  auto vectors = openvdb::Vec3SGrid::create(openvdb::Vec3s(1, 2, 3));
  auto bits = openvdb::BoolGrid::create(false);
  for (int n = 0; n < 2000; ++n) {
    const openvdb::Coord c(at(random), at(random), at(random));
    vectors->tree().setValue(c, openvdb::Vec3s(float(c.x()), float(c.y()), float(n)));
    bits->tree().setValue(c, n % 3 != 0);
    if (n % 5 == 0) {
      vectors->tree().setValueOff(c);
      bits->tree().setValueOff(c);
    }
  }
  ExpectMirrored(*vectors, *openvdb::gridPtrCast<openvdb::Vec3SGrid>(MirrorGridIndexZ(vectors)));
  ExpectMirrored(*bits, *openvdb::gridPtrCast<openvdb::BoolGrid>(MirrorGridIndexZ(bits)));
}

TEST(Files, GridsComeInNameOrderAndRepeatedNamesStayApart) {
  const std::string path = zvtest::TempDir() + "/order.vdb";
  auto z = openvdb::FloatGrid::create(1.0f);
  z->setName("zeta");
  auto a1 = openvdb::FloatGrid::create(2.0f);
  a1->setName("alpha");
  auto a2 = openvdb::FloatGrid::create(3.0f);
  a2->setName("alpha");
  WriteFile(path, {z, a1, a2});
  // The order of OpenVDB's own readers (vdb_print, pyopenvdb): by name.
  EXPECT_EQ(*Tools::GetGridNamesFromFile(Url(path)), (std::vector<std::string>{"alpha", "alpha[1]", "zeta"}));
  const float expected[] = {2.0f, 3.0f, 1.0f};
  for (Int i = 0; i < 3; ++i) {
    Volume v = *Volume::CreateFromFile(Url(path), 1.0, i);
    EXPECT_EQ(v.GetBackground().Get<float>(), expected[i]);
  }
  auto all = *Tools::LoadVDBFile(Url(path), 1.0, nullptr, nullptr, nullptr);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1].GetBackground().Get<float>(), 3.0f);
}
