// zvol sphere, platonic and info against other OpenVDB programs, and bad input.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

#include "support/run.h"

using nlohmann::json;
using zvtest::Python;
using zvtest::Zvol;

namespace {

// What pyopenvdb makes of a file's first grid, as JSON.
json PyInfo(const std::string& path) {
  auto r = Python(
      "import pyopenvdb as vdb, json\n"
      "g = vdb.read('" + path + "', vdb.readAllGridMetadata('" + path + "')[0].name)\n"
      "lo, hi = g.evalActiveVoxelBoundingBox()\n"
      "x = g.transform\n"
      "print(json.dumps({'class': g.gridClass, 'voxel_size': list(x.voxelSize()), 'active': g.activeVoxelCount(),\n"
      "  'lo': list(lo), 'hi': list(hi), 'wlo': list(x.indexToWorld(lo)), 'whi': list(x.indexToWorld(hi)),\n"
      "  'centre': g.getAccessor().getValue(tuple(int(round(c)) for c in x.worldToIndex((0, 0, 2))))}))\n");
  EXPECT_EQ(r.status, 0) << r.err;
  return json::parse(r.out);
}

}  // namespace

TEST(InfoVerb, SphereReadsBackInOtherProgramsWhereItWasAsked) {
  const std::string dir = zvtest::TempDir();
  const std::string path = dir + "/s.vdb";
  auto made = Zvol({"sphere", "--radius", "1", "--center", "0,0,2", "--voxel-size", "0.05", "--half-width", "3", "-o", path});
  ASSERT_EQ(made.status, 0) << made.err;

  const json py = PyInfo(path);
  const auto r = Zvol({"info", path, "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const json info = json::parse(r.out);
  ASSERT_EQ(info["grids"].size(), 1u);
  const json& g = info["grids"][0];
  EXPECT_EQ(py["class"], "level set");
  EXPECT_EQ(g["class"], "level set");
  EXPECT_EQ(g["type"], "float");
  EXPECT_EQ(g["active_voxels"], py["active"]);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(g["voxel_size"][i].get<double>(), py["voxel_size"][i].get<double>(), 1e-9);
    EXPECT_EQ(g["index_bbox"][0][i].get<int>(), py["lo"][i].get<int>());
    EXPECT_EQ(g["index_bbox"][1][i].get<int>(), py["hi"][i].get<int>());
    EXPECT_NEAR(g["world_bbox"][0][i].get<double>(), py["wlo"][i].get<double>(), 1e-6);
    EXPECT_NEAR(g["world_bbox"][1][i].get<double>(), py["whi"][i].get<double>(), 1e-6);
  }
  // Centred at z = 2: the box is symmetric about it, and the centre is inside.
  EXPECT_NEAR((py["wlo"][2].get<double>() + py["whi"][2].get<double>()) / 2, 2.0, 1e-6);
  EXPECT_LT(py["centre"].get<double>(), 0.0);
  EXPECT_NEAR(g["transform"][3][3].get<double>(), 1.0, 0);
  EXPECT_GT(g["memory_bytes"].get<int64_t>(), 0);
  EXPECT_LT(g["value_range"][0].get<double>(), 0.0);

  auto vdbPrint = zvtest::Run({"/usr/bin/vdb_print", "-l", path});
  const auto at = vdbPrint.out.find("Number of active voxels:");
  ASSERT_NE(at, std::string::npos) << vdbPrint.out;
  std::string digits;
  for (size_t i = at + 24; i < vdbPrint.out.size() && vdbPrint.out[i] != '\n'; ++i)
    if (std::isdigit(static_cast<unsigned char>(vdbPrint.out[i]))) digits += vdbPrint.out[i];
  EXPECT_EQ(std::stoll(digits), g["active_voxels"].get<int64_t>());

  auto plain = Zvol({"info", path});
  EXPECT_EQ(plain.status, 0);
  EXPECT_NE(plain.out.find("level set"), std::string::npos);
}

TEST(InfoVerb, ListsGridsMetadataAndPointGridsOfOtherPrograms) {
  const std::string dir = zvtest::TempDir();
  const std::string path = dir + "/other.vdb";
  auto made = Python(
      "import pyopenvdb as vdb\n"
      "fog = vdb.FloatGrid(0.0); fog.name = 'density'; fog.gridClass = vdb.GridClass.FOG_VOLUME\n"
      "fog.fill((0, 0, 0), (3, 3, 3), 0.5)\n"
      "vec = vdb.Vec3SGrid(); vec.name = 'vel'; vec.getAccessor().setValueOn((1, 2, 3), (1, 0, 0))\n"
      "vdb.write('" + path + "', grids=[fog, vec], metadata={'author': 'someone', 'count': 3, 'ratio': 0.5,\n"
      "  'flag': True, 'where': (1.0, 2.0, 3.0)})\n");
  ASSERT_EQ(made.status, 0) << made.err;
  auto r = Zvol({"info", path, "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const json info = json::parse(r.out);
  EXPECT_EQ(info["metadata"]["author"], "someone");
  EXPECT_EQ(info["metadata"]["count"], 3);
  EXPECT_EQ(info["metadata"]["ratio"], 0.5);
  EXPECT_EQ(info["metadata"]["flag"], true);
  EXPECT_EQ(info["metadata"]["where"], json({1.0, 2.0, 3.0}));
  ASSERT_EQ(info["grids"].size(), 2u);
  EXPECT_EQ(info["grids"][0]["name"], "density");
  EXPECT_EQ(info["grids"][0]["class"], "fog volume");
  EXPECT_EQ(info["grids"][0]["active_voxels"], 64);
  EXPECT_EQ(info["grids"][0]["index_bbox"], json({{0, 0, 0}, {3, 3, 3}}));
  EXPECT_EQ(info["grids"][1]["type"], "vec3s");
  EXPECT_EQ(info["grids"][1]["index_bbox"], json({{1, 2, 3}, {1, 2, 3}}));
}

TEST(InfoVerb, BadInputGivesOneErrorLineAndNoOutput) {
  const std::string dir = zvtest::TempDir();
  std::ofstream(dir + "/junk.vdb") << "not a volume";
  for (const std::string& file : {dir + "/junk.vdb", dir + "/missing.vdb"}) {
    auto r = Zvol({"info", file});
    EXPECT_EQ(r.status, 1) << file;
    EXPECT_EQ(r.err.rfind("error: ", 0), 0u) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_TRUE(r.out.empty());
  }
  auto unwritable = Zvol({"sphere", "-o", dir + "/no/such/dir/s.vdb"});
  EXPECT_EQ(unwritable.status, 1);
  EXPECT_EQ(unwritable.err, "error: the folder of " + dir + "/no/such/dir/s.vdb does not exist\n");
  auto folder = Zvol({"sphere", "-o", dir});
  EXPECT_EQ(folder.err, "error: " + dir + " is a folder\n");

  // A failing write leaves a good file where it stood.
  const std::string keep = dir + "/keep.vdb";
  ASSERT_EQ(Zvol({"sphere", "-o", keep}).status, 0);
  const auto before = std::filesystem::file_size(keep);
  EXPECT_EQ(Zvol({"platonic", "--faces", "5", "-o", keep}).status, 2);  // usage error
  EXPECT_EQ(std::filesystem::file_size(keep), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 2);

  EXPECT_EQ(Zvol({"sphere", "--voxel-size", "-1", "-o", keep}).status, 2);
  EXPECT_EQ(Zvol({"nosuchverb"}).status, 2);
  EXPECT_EQ(Zvol({"sphere", "--help"}).status, 0);
}

TEST(InfoVerb, PlatonicSolidsAndVersion) {
  const std::string dir = zvtest::TempDir();
  const std::string path = dir + "/cube.vdb";
  auto r = Zvol({"platonic", "--faces", "6", "--size", "2", "--center", "1,2,3", "--voxel-size", "0.1", "-o", path});
  ASSERT_EQ(r.status, 0) << r.err;
  const json info = json::parse(Zvol({"info", path, "--json"}).out);
  const json& w = info["grids"][0]["world_bbox"];
  for (int i = 0; i < 3; ++i) EXPECT_NEAR((w[0][i].get<double>() + w[1][i].get<double>()) / 2, i + 1.0, 0.051);
  auto v = Zvol({"version"});
  EXPECT_EQ(v.status, 0);
  EXPECT_NE(v.out.find("OpenVDB"), std::string::npos);
  EXPECT_NE(v.out.find("Assimp 5."), std::string::npos) << v.out;
}
