// The host's point-file reader as its callers see it: the table it gives,
// mirrored into the scene's frame, or one error line naming the file and
// the line or vertex.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "host/modeling/pointsio.h"
#include "support/run.h"

namespace {

using zta::PointTable;
using zta::ReadPointFile;
using zta::Vector;

struct Folder {
  std::string dir = zvtest::TempDir();
  std::string Write(const std::string& name, const std::string& bytes) const {
    const std::string path = dir + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
};

PointTable Read(const std::string& path) {
  auto t = ReadPointFile(path);
  EXPECT_TRUE(t) << t.GetError().GetMessage();
  return t ? std::move(t.GetValue()) : PointTable();
}

std::string ErrorOf(const std::string& path) {
  auto t = ReadPointFile(path);
  if (t) return "no error";
  return t.GetError().GetMessage();
}

}  // namespace

TEST(PointFiles, XyzTxtAndPtsRowsReadAsCsvDoes) {
  Folder f;
  // Two particles with radius and velocity, a comment after a row and on a line of its own.
  const std::string xyz = f.Write("p.xyz", "# x y z r vx vy vz\n0 0 1 0.5 0 0 2  # first\n\t2 0 -1 0.25 1 0 0\n");
  const std::string txt = f.Write("p.TXT", "X Y Z Radius VX VY VZ\n0 0 1 0.5 0 0 2\n2 0 -1 0.25 1 0 0\n");
  const std::string pts = f.Write("p.pts", "0,0,1,0.5,0,0,2\n\n2, 0, -1, 0.25, 1, 0, 0 # second\n");
  const std::string csv = f.Write("p.csv", "x;y;z;radius;vx;vy;vz\n0;0;1;0.5;0;0;2\n2;0;-1;0.25;1;0;0\n");
  for (const std::string& path : {xyz, txt, pts, csv}) {
    EXPECT_TRUE(zta::IsPointFile(path)) << path;
    const PointTable t = Read(path);
    ASSERT_EQ(t.positions.size(), 2u) << path;
    // The files are right-handed: z comes negated, for positions and velocities.
    EXPECT_EQ(t.positions[0], Vector(0, 0, -1)) << path;
    EXPECT_EQ(t.positions[1], Vector(2, 0, 1)) << path;
    ASSERT_EQ(t.radii.size(), 2u) << path;
    EXPECT_EQ(t.radii[1], 0.25) << path;
    ASSERT_EQ(t.velocities.size(), 2u) << path;
    EXPECT_EQ(t.velocities[0], Vector(0, 0, -2)) << path;
    EXPECT_EQ(t.velocities[1], Vector(1, 0, 0)) << path;
  }

  // Without names, six columns are a position and a velocity, and columns past the seventh are left out.
  const PointTable moving = Read(f.Write("v.xyz", "1 2 3 0 0 1\n"));
  EXPECT_TRUE(moving.radii.empty());
  ASSERT_EQ(moving.velocities.size(), 1u);
  EXPECT_EQ(moving.velocities[0], Vector(0, 0, -1));
  const PointTable wide = Read(f.Write("w.xyz", "1 2 3 0.5 0 0 0 9 9\n"));
  ASSERT_EQ(wide.radii.size(), 1u);
  EXPECT_EQ(wide.radii[0], 0.5);
  // Names other tools write, and columns the table does not keep, which may hold anything.
  const PointTable named = Read(f.Write("h.csv", "id,Px,Py,Pz,pscale,velocity_x,velocity_y,velocity_z\nnan,1,2,3,0.5,4,5,6\n"));
  ASSERT_EQ(named.positions.size(), 1u);
  EXPECT_EQ(named.positions[0], Vector(1, 2, -3));
  EXPECT_EQ(named.velocities[0], Vector(4, 5, -6));
  // A file of comments alone is no points, not an error.
  EXPECT_TRUE(Read(f.Write("none.xyz", "# nothing yet\n")).positions.empty());
}

TEST(PointFiles, RowsThatDoNotFitAreRefusedByLine) {
  Folder f;
  EXPECT_EQ(ErrorOf(f.Write("short.xyz", "0 0 0 1 0 0 1\n1 1 1 1 0 0 1\n2 2 2 1\n")),
            f.dir + "/short.xyz: line 3: 4 values, the file has 7 columns");
  EXPECT_EQ(ErrorOf(f.Write("five.xyz", "# x y z r ?\n0 0 0 1 2\n")),
            f.dir + "/five.xyz: line 2: expected x y z [radius] [vx vy vz]");
  EXPECT_EQ(ErrorOf(f.Write("word.txt", "0 0 0\n1 one 1\n")), f.dir + "/word.txt: line 2: expected numbers");
  // A comment sign inside a value cuts the row short.
  EXPECT_EQ(ErrorOf(f.Write("cut.pts", "0 0 0\n1 1#1\n")), f.dir + "/cut.pts: line 2: 2 values, the file has 3 columns");
  EXPECT_EQ(ErrorOf(f.Write("inf.xyz", "0 0 inf\n")), f.dir + "/inf.xyz: line 1: a value that is not finite");
  EXPECT_EQ(ErrorOf(f.Write("half.csv", "x,y,z,vx,vy\n0,0,0,1,1\n")), f.dir + "/half.csv: line 1: velocities need vx, vy and vz");
  EXPECT_EQ(ErrorOf(f.dir + "/missing.xyz"), "File could not be found: " + f.dir + "/missing.xyz");
  EXPECT_FALSE(zta::IsPointFile("p.obj"));
  EXPECT_EQ(ErrorOf(f.Write("p.obj", "v 0 0 0\n")), f.dir + "/p.obj: points are read from .csv, .xyz, .txt, .pts or .ply files");
}

TEST(PointFiles, PlyElementsAndListsBesideTheVerticesArePassedOver) {
  Folder f;
  // ASCII: a face element before the vertices, a list among their properties, names in capitals.
  const std::string ascii = f.Write(
      "a.ply",
      "ply\nformat ascii 1.0\nelement face 2\nproperty list uchar int vertex_indices\nelement vertex 2\n"
      "property float X\nproperty list uchar float extra\nproperty float Y\nproperty float Z\nproperty float Radius\n"
      "end_header\n3 0 1 2\n0\n1 2 9 9 2 3 0.5\n4 0 5 6 0.25\n");
  // The same points in binary, little-endian, after a face of three corners.
  std::string bin =
      "ply\nformat binary_little_endian 1.0\nelement face 1\nproperty list uchar int vertex_indices\n"
      "element vertex 2\nproperty float x\nproperty list uchar float extra\nproperty float y\nproperty float z\n"
      "property float radius\nend_header\n";
  auto put = [&bin](auto v) { bin.append(reinterpret_cast<const char*>(&v), sizeof v); };
  put(char(3)), put(0), put(1), put(2);
  put(1.f), put(char(2)), put(9.f), put(9.f), put(2.f), put(3.f), put(0.5f);
  put(4.f), put(char(0)), put(5.f), put(6.f), put(0.25f);
  const std::string binary = f.Write("b.ply", bin);
  for (const std::string& path : {ascii, binary}) {
    const PointTable t = Read(path);
    ASSERT_EQ(t.positions.size(), 2u) << path;
    EXPECT_EQ(t.positions[0], Vector(1, 2, -3)) << path;
    EXPECT_EQ(t.positions[1], Vector(4, 5, -6)) << path;
    ASSERT_EQ(t.radii.size(), 2u) << path;
    EXPECT_EQ(t.radii[1], 0.25) << path;
  }

  const std::string vertices = "element vertex 2\nproperty float x\nproperty float y\nproperty float z\n";
  const std::string head = "ply\nformat ascii 1.0\n" + vertices;
  EXPECT_EQ(ErrorOf(f.Write("cut.ply", head + "end_header\n0 0 0\n1 1      \n")), f.dir + "/cut.ply: vertex 1: 2 values, the vertex has 3");
  EXPECT_EQ(ErrorOf(f.Write("list.ply", head + "property list uchar int n\nend_header\n0 0 0 1 7\n1 1 1 -1\n")),
            f.dir + "/list.ply: vertex 1: a list with a bad length");
  EXPECT_EQ(ErrorOf(f.Write("early.ply", "ply\nformat binary_big_endian 1.0\nelement face 9\nproperty int a\n" + vertices +
                                             "end_header\n" + std::string(20, '\0'))),
            f.dir + "/early.ply: the header declares 9 faces, more than the file's 20 bytes can hold");
}
