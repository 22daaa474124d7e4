// Inputs that the fuzzers (tests/fuzz) found to hang, crash or exhaust a
// reader, each kept as the smallest file that showed it: every one must now
// end in one error line, at once.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "host/modeling/meshio.h"
#include "host/modeling/pointsio.h"
#include "host/objects/polygonobject.h"
#include "support/run.h"

namespace {

std::string Write(const std::string& dir, const std::string& name, const std::string& text) {
  const std::string path = dir + "/" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

void ExpectOneLineError(const std::string& path, const std::string& says) {
  auto mesh = zta::ReadMeshFile(path, nullptr);
  ASSERT_FALSE(mesh) << path;
  const std::string& message = mesh.GetError().GetMessage();
  EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  EXPECT_NE(message.find(says), std::string::npos) << message;
}

const std::string kPlyHead =
    "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
    "element face 2\nproperty list uchar int vertex_indices\n";
const std::string kPlyBody = "0 0 0\n1 0 0\n1 1 0\n0 1 0\n3 0 1 2\n4 0 1 2 3\n";

}  // namespace

TEST(ReaderRegressions, MeshHeadersWithoutAnEndOrWithCountsTheFileCannotHold) {
  const std::string dir = zvtest::TempDir();
  // A PLY header whose end_header is damaged sent Assimp's reader round forever.
  ExpectOneLineError(Write(dir, "noend.ply", kPlyHead + "And_header\n" + kPlyBody), "the PLY header has no end");
  ExpectOneLineError(Write(dir, "cut.ply", kPlyHead), "the PLY header has no end");
  ExpectOneLineError(Write(dir, "magic.ply", "ply" + std::string(80, '\0') + kPlyHead.substr(3) + kPlyBody),
                     "the PLY header has no end");
  // A damaged element line in a header without end made Assimp's binary reader read wild.
  const std::string wild(
      "ply\nformat binary_little_endian 1.0\nely\nply\nformat binary_littl_eendian 1.0\nelement vertex 3\n"
      "property float x\nproperty float y\nproperty float z\nelement face blender0nblenderr\n\000\000\000\000\000"
      "\000\000\000\000\000\000\000\000\000\200?\000\000\000\000\377\000\000\nv 3ds 0\nv 1 0 0\nv 1\000\002\002\000\000\000",
      224);
  ExpectOneLineError(Write(dir, "wild.ply", wild), "the PLY header has an element without a count");
  ExpectOneLineError(Write(dir, "half.ply", kPlyHead + "element edge -2\nend_header\n" + kPlyBody), "without a count");
  // Counts far beyond the file made Assimp reserve gigabytes before reading.
  ExpectOneLineError(Write(dir, "many.ply", "ply\nformat binary_little_endian 1.0\nelement vertex 3000000000\n"
                                           "property float x\nproperty float y\nproperty float z\nend_header\n"),
                     "declares 3000000000 points, more than the file's 0 bytes can hold");
  ExpectOneLineError(Write(dir, "many.off", "OFF\n# c\n\n3 1e9 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"),
                     "declares 1000000000 faces");

  // The same files whole still read.
  auto ply = zta::ReadMeshFile(Write(dir, "whole.ply", kPlyHead + "end_header\n" + kPlyBody), nullptr);
  ASSERT_TRUE(ply) << ply.GetError().GetMessage();
  EXPECT_EQ(ply.GetValue()->GetPolygonCount(), 2);
  auto off = zta::ReadMeshFile(Write(dir, "whole.off", "OFF\n# c\n\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"), nullptr);
  ASSERT_TRUE(off) << off.GetError().GetMessage();
  EXPECT_EQ(off.GetValue()->GetPolygonCount(), 1);
}
