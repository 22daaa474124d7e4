// Inputs that ask for absurd resources end with one error line before any
// memory is taken, and --memory-limit moves or lifts the line.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/run.h"

using zvtest::Zvol;

namespace {

const std::string kKnot = std::string(ZV_SOURCE_DIR) + "/examples/knot.obj";

void Write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// zvol under an address-space cap, so that a missing check fails the test
// instead of taking the machine's memory. A sanitizer reserves terabytes of
// address space for its shadow at start, so there the cap is left out.
zvtest::RunResult Capped(const std::vector<std::string>& args) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return Zvol(args);
#else
  std::vector<std::string> all{"/usr/bin/prlimit", "--as=4000000000", std::string(ZV_BIN_DIR) + "/zvol"};
  all.insert(all.end(), args.begin(), args.end());
  return zvtest::Run(all);
#endif
}

void ExpectRefused(const zvtest::RunResult& r, const std::string& says) {
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(r.err.rfind("error: ", 0), 0u) << r.err;
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line: " << r.err;
  EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
}

}  // namespace

TEST(Limits, VoxelsAMeshAsksForAreCheckedAgainstMemory) {
  const std::string dir = zvtest::TempDir();
  const std::string out = dir + "/out.vdb";
  // Far more voxels than any machine holds: refused before the conversion, nothing written.
  ExpectRefused(Capped({"mesh2vol", kKnot, "--voxel-size", "1e-9", "-o", out}),
                "at voxel size 1e-09 (about 5.4e+20 voxels) needs about");
  ExpectRefused(Capped({"mesh2vol", kKnot, "--voxel-size", "1e-6", "--fill", "-o", out}), "of memory available");
  ExpectRefused(Capped({"remesh", kKnot, "--voxel-size", "1e-9", "-o", dir + "/out.obj"}), "--memory-limit");
  EXPECT_TRUE(std::filesystem::is_empty(dir));

  // The limit can be set lower than the machine's, and lifted.
  ExpectRefused(Zvol({"--memory-limit", "1M", "mesh2vol", kKnot, "--voxel-size", "0.05", "-o", out}),
                "more than the 1.0 MiB that --memory-limit allows");
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(Zvol({"--memory-limit", "none", "mesh2vol", kKnot, "--voxel-size", "0.05", "-o", out}).status, 0);
  EXPECT_EQ(Zvol({"--memory-limit", "64M", "mesh2vol", kKnot, "--voxel-size", "0.05", "-o", out}).status, 0);

  // A grid read for work counts what its mirror into the scene's frame and
  // its active voxels, tiles included, take.
  ExpectRefused(Zvol({"--memory-limit", "100K", "filter", "sdf", "gaussian", out, "-o", dir + "/f.vdb"}),
                "needs about");
  EXPECT_FALSE(std::filesystem::exists(dir + "/f.vdb"));
  EXPECT_EQ(Zvol({"filter", "sdf", "gaussian", out, "-o", dir + "/f.vdb"}).status, 0);

  // Sizes that are not sizes are usage errors.
  for (const char* bad : {"1X", "-5G", "0", "", "G"})
    EXPECT_EQ(Zvol({"--memory-limit", bad, "mesh2vol", kKnot, "--voxel-size", "0.05", "-o", out}).status, 2) << bad;
}

TEST(Limits, MeshHeadersThatDeclareMoreThanTheFileHoldsAreRefused) {
  const std::string dir = zvtest::TempDir();
  const std::string head = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                           "property float z\nelement face 1000000000\nproperty list uchar int vertex_indices\n"
                           "end_header\n";
  Write(dir + "/faces.ply", head + "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
  std::string binary = head;
  binary.replace(binary.find("ascii"), 5, "binary_little_endian");
  const float points[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  binary.append(reinterpret_cast<const char*>(points), sizeof points);
  binary += std::string("\3\0\0\0\0\1\0\0\0\2\0\0\0", 13);
  Write(dir + "/binary.ply", binary);
  Write(dir + "/faces.off", "OFF\n3 1000000000 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
  Write(dir + "/points.off", "OFF\n# many points\n2000000000 1 0\n0 0 0\n");
  const std::string before = Slurp(dir + "/faces.ply");

  for (const char* name : {"faces.ply", "binary.ply", "faces.off"}) {
    ExpectRefused(Capped({"info", dir + "/" + name}), "the header declares 1000000000 faces, more than the file's");
    ExpectRefused(Capped({"mesh2vol", dir + "/" + name, "--voxel-size", "0.1", "-o", dir + "/o.vdb"}), "declares");
  }
  ExpectRefused(Capped({"info", dir + "/points.off"}), "declares 2000000000 points");
  EXPECT_FALSE(std::filesystem::exists(dir + "/o.vdb"));
  EXPECT_EQ(Slurp(dir + "/faces.ply"), before);

  // A header that tells the truth still reads, down to the last face.
  Write(dir + "/ok.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                         "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
                         "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
  Write(dir + "/ok.off", "OFF 3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
  for (const char* name : {"ok.ply", "ok.off"}) {
    const auto r = Zvol({"info", dir + "/" + name});
    EXPECT_EQ(r.status, 0) << name << ": " << r.err;
    EXPECT_NE(r.out.find("1 (1 triangles"), std::string::npos) << r.out;
  }
}

TEST(Limits, VdbTilesWhoseMirrorOutgrowsMemoryAreRefusedBeforeTheLoad) {
  const std::string dir = zvtest::TempDir();
  const std::string huge = dir + "/huge.vdb";
  // A thousand active root tiles, 40960^3 voxels, in a file of a few kilobytes.
  const auto made = zvtest::Python("import pyopenvdb as vdb\ng = vdb.FloatGrid()\ng.name = 'huge'\n"
                                   "g.fill((0, 0, 0), (40959, 40959, 40959), 1.0, True)\nvdb.write('" +
                                   huge + "', grids=[g])\n");
  ASSERT_EQ(made.status, 0) << made.err;
  ASSERT_LT(std::filesystem::file_size(huge), 64u * 1024u);
  const std::string before = Slurp(huge);
  ExpectRefused(Capped({"info", huge}), "grid 'huge' needs about");
  ExpectRefused(Capped({"info", huge}), "of memory available");
  ExpectRefused(Capped({"--memory-limit", "2G", "filter", "sdf", "gaussian", huge, "-o", dir + "/f.vdb"}),
                "more than the 2.0 GiB the memory limit allows");
  EXPECT_FALSE(std::filesystem::exists(dir + "/f.vdb"));
  EXPECT_EQ(Slurp(huge), before);
}
