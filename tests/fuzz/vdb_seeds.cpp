// Writes the seed corpus of the .vdb fuzzer: small grids of each value type
// and class, with tiles, metadata, repeated names and a sheared transform, as
// files and streams with the compressions OpenVDB writes.
#include <openvdb/io/File.h>
#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

openvdb::GridPtrVec Grids() {
  using namespace openvdb;
  auto sdf = FloatGrid::create(1.5f);
  sdf->setName("sphere");
  sdf->setGridClass(GRID_LEVEL_SET);
  for (int i = -3; i <= 3; ++i)
    for (int j = -3; j <= 3; ++j)
      for (int k = -3; k <= 3; ++k) {
        const float d = std::sqrt(float(i * i + j * j + k * k)) - 2.0f;
        if (std::abs(d) < 1.5f) sdf->tree().setValue(Coord(i, j, k), d);
        else if (d < 0) sdf->tree().setValueOff(Coord(i, j, k), -1.5f);
      }
  sdf->insertMeta("source", StringMetadata("fuzz seed"));
  sdf->insertMeta("count", Int32Metadata(3));
  sdf->insertMeta("at", Vec3DMetadata(Vec3d(1, 2, 3)));
  auto fog = FloatGrid::create(0.0f);
  fog->setName("density");
  fog->setGridClass(GRID_FOG_VOLUME);
  fog->tree().addTile(1, Coord(0, 0, 0), 0.5f, true);
  fog->tree().addTile(2, Coord(128, 0, 0), 0.25f, true);
  fog->tree().setValueOn(Coord(3, 4, 9), 2.0f);
  fog->tree().setValueOff(Coord(3, 4, 10), 3.0f);
  auto vec = Vec3SGrid::create();
  vec->setName("v");
  vec->tree().addTile(1, Coord(8, 0, 0), Vec3s(1, 0, 0), true);
  vec->tree().setValueOn(Coord(-1, 0, 2), Vec3s(0, 1, 2));
  auto mask = BoolGrid::create(false);
  mask->setName("mask");
  mask->tree().setValueOn(Coord(1, 2, 3), true);
  mask->tree().addTile(1, Coord(0, 8, 0), true, true);
  auto ids = Int32Grid::create(-1);
  ids->setName("ids");
  ids->tree().setValueOn(Coord(1, 2, 3), 7);
  auto wide = DoubleGrid::create(0.0);
  wide->setName("alpha");
  wide->tree().setValueOn(Coord(-100, 0, 100), 1e300);
  auto same = Int64Grid::create(0);
  same->setName("alpha");
  same->tree().setValueOn(Coord(0, 0, 0), int64_t(1) << 40);
  auto moved = Vec3DGrid::create();
  moved->setName("moved");
  math::Mat4d m(0.5, 0.0, 0.0, 0.0, 0.0, 0.25, 0.1, 0.0, 0.0, 0.0, 2.0, 0.0, 3.0, -1.0, 7.0, 1.0);
  moved->setTransform(math::Transform::createLinearTransform(m));
  moved->tree().setValueOn(Coord(4, 5, 6), Vec3d(1.5, 0, 0));
  auto idx = Vec3IGrid::create();
  idx->setName("cells");
  idx->tree().setValueOn(Coord(0, 0, 0), Vec3i(1, 2, 3));
  return {sdf, fog, vec, mask, ids, wide, same, moved, idx};
}

void WriteFile(const std::string& path, const openvdb::GridPtrVec& grids, uint32_t compression) {
  openvdb::io::File f(path);
  f.setCompression(compression);
  openvdb::MetaMap meta;
  meta.insertMeta("creator", openvdb::StringMetadata("seed"));
  f.write(grids, meta);
  f.close();
}

void WriteStream(const std::string& path, const openvdb::GridPtrVec& grids, uint32_t compression) {
  std::ofstream out(path, std::ios::binary);
  openvdb::io::Stream stream(out);
  stream.setCompression(compression);
  stream.write(grids);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: vdb_seeds DIR\n");
    return 2;
  }
  openvdb::initialize();
  const std::string dir = argv[1];
  const openvdb::GridPtrVec grids = Grids();
  // Without the active-mask compression every node writes all of its
  // values: megabytes for a grid of a few voxels.
  const uint32_t mask = openvdb::io::COMPRESS_ACTIVE_MASK, zip = openvdb::io::COMPRESS_ZIP | mask,
                 blosc = openvdb::io::COMPRESS_BLOSC | mask;
  // One grid an input keeps inputs small; two of one name once.
  for (size_t i = 0; i < grids.size(); ++i) {
    const std::string name = dir + "/" + grids[i]->getName() + "-" + std::to_string(i);
    WriteFile(name + ".vdb", {grids[i]}, i % 2 ? zip : blosc);
    WriteStream(name + ".stream", {grids[i]}, i % 2 ? mask : zip);
  }
  WriteFile(dir + "/pair.vdb", {grids[5], grids[6]}, zip);
  return 0;
}
