// zvol points2vol and fields2vol on files, checked with pyopenvdb in the
// right-handed frame of the files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/run.h"
#include "support/verbs.h"

namespace {

using zvtest::ExpectOk;
using zvtest::ExpectRefused;
using zvtest::Files;
using zvtest::Py;

void Write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

}  // namespace

TEST(PointsVerbs, ReadsPlyCsvAndXyzWithTheirAttributes) {
  Files f;
  // Two particles: radius 0.5 at (0, 0, 1) and 0.3 at (2, 0, -1).
  Write(f("p.xyz"), "# x y z r\n0 0 1 0.5\n2 0 -1 0.3\n");
  Write(f("p.csv"), "id,x,y,z,pscale\n0,0,0,1,0.5\n1,2,0,-1,0.3\n");
  Write(f("p.ply"), "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\nproperty float z\n"
                    "property float radius\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
                    "0 0 1 0.5\n2 0 -1 0.3\n3 0 1 0\n");
  Py("import struct\n"
     "with open('" + f("b.ply") + "', 'wb') as o:\n"
     "    o.write(b'ply\\nformat binary_little_endian 1.0\\nelement vertex 2\\nproperty double x\\nproperty double y\\n'\n"
     "            b'property double z\\nproperty float radius\\nend_header\\n')\n"
     "    o.write(struct.pack('<dddf', 0, 0, 1, 0.5) + struct.pack('<dddf', 2, 0, -1, 0.3))\n");
  for (const char* name : {"p.xyz", "p.csv", "p.ply", "b.ply"}) {
    const std::string out = f(std::string(name) + ".vdb");
    ExpectOk(zvtest::Zvol({"points2vol", f(name), "--voxel-size", "0.05", "-o", out}));
    EXPECT_EQ(Py("g = read('" + out + "')\n"
                 "print(g.gridClass == vdb.GridClass.LEVEL_SET, zero(g, (0.5, 0, 1)), zero(g, (0, 0, 1.5)),\n"
                 "      zero(g, (2, 0, -0.7)), zero(g, (2.3, 0, -1)), at(g, (0, 0, 1)) < 0, at(g, (0, 0, -1)) > 0)\n"),
              "True True True True True True True\n")
        << name;
  }
  // --radius gives every particle the same size.
  ExpectOk(zvtest::Zvol({"points2vol", f("p.xyz"), "--voxel-size", "0.05", "--radius", "0.2", "-o", f("r.vdb")}));
  EXPECT_EQ(Py("g = read('" + f("r.vdb") + "')\nprint(zero(g, (0.2, 0, 1)), zero(g, (2.2, 0, -1)))\n"), "True True\n");

  Write(f("bare.xyz"), "0 0 0\n1 1 1\n");
  ExpectRefused(zvtest::Zvol({"points2vol", f("bare.xyz"), "--voxel-size", "0.05", "-o", f("x.vdb")}),
                "no radius attribute", f("x.vdb"));
  Write(f("bad.csv"), "x,y,z,r\n0,0,zero,1\n");
  ExpectRefused(zvtest::Zvol({"points2vol", f("bad.csv"), "--voxel-size", "0.05", "-o", f("x.vdb")}),
                "bad.csv: line 2: expected numbers", f("x.vdb"));
  Write(f("cut.ply"), "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
                      "end_header\n0 0 0\n1 1   \n2 2 2\n");
  ExpectRefused(zvtest::Zvol({"points2vol", f("cut.ply"), "--voxel-size", "0.05", "--radius", "1", "-o", f("x.vdb")}),
                "cut.ply: vertex 1: 2 values, the vertex has 3", f("x.vdb"));
  EXPECT_EQ(zvtest::Zvol({"points2vol", f("p.xyz"), "-o", f("x.vdb")}).status, 2);
}

TEST(PointsVerbs, XyzRowsGiveTheVoxelsOfTheSameCsv) {
  Files f;
  // Blank-separated with radius and velocity, comments after rows, against the same points with names.
  Write(f("p.xyz"), "0 0 1 0.5 0 0 1  # first\n2 0 -1 0.3 1 0 0 # second\n1.5 1 0 0.2 0 1 0\n");
  Write(f("p.csv"), "x,y,z,radius,vx,vy,vz\n0,0,1,0.5,0,0,1\n2,0,-1,0.3,1,0,0\n1.5,1,0,0.2,0,1,0\n");
  for (const char* name : {"p.xyz", "p.csv"})
    ExpectOk(zvtest::Zvol({"points2vol", f(name), "--voxel-size", "0.05", "--velocity-scale", "0.5", "-o",
                           f(std::string(name) + ".vdb")}));
  EXPECT_EQ(Py("a, b = read('" + f("p.xyz.vdb") + "'), read('" + f("p.csv.vdb") + "')\n"
               "print(a.activeVoxelCount() == b.activeVoxelCount(), a.activeVoxelCount() > 1000, zero(a, (0, 0, 1.5)))\n"),
            "True True True\n");
}

TEST(PointsVerbs, TrailsFollowTheVelocityWhenScaled) {
  Files f;
  // Moving along +z at 1 unit: the trail reaches back toward z = -1.
  Write(f("v.xyz"), "0 0 0 0.2 0 0 1\n");
  ExpectOk(zvtest::Zvol({"points2vol", f("v.xyz"), "--voxel-size", "0.05", "-o", f("still.vdb")}));
  ExpectOk(zvtest::Zvol({"points2vol", f("v.xyz"), "--voxel-size", "0.05", "--velocity-scale", "1", "-o", f("trail.vdb")}));
  ExpectOk(zvtest::Zvol({"points2vol", f("v.xyz"), "--voxel-size", "0.05", "--velocity-scale", "0.5", "-o", f("half.vdb")}));
  EXPECT_EQ(Py("s, t, h = read('" + f("still.vdb") + "'), read('" + f("trail.vdb") + "'), read('" + f("half.vdb") + "')\n"
               "print(at(s, (0, 0, -0.5)) > 0, at(t, (0, 0, -0.5)) < 0, at(t, (0, 0, 0.5)) > 0, zero(t, (0, 0, 0.2)))\n"
               "print(at(h, (0, 0, -0.35)) < 0, at(h, (0, 0, -0.7)) > 0)\n"),
            "True True True True\nTrue True\n");
}

TEST(FieldsVerbs, SamplesJsonLayersOverTheBox) {
  Files f;
  Write(f("ball.json"), R"({"voxel_size": 0.1, "box": {"min": [-1.5, -1.5, -1], "max": [1.5, 1.5, 2]},
    "layers": [{"type": "spherical", "center": [0, 0, 0.5], "radius": 1, "inner": 0.5}]})");
  ExpectOk(zvtest::Zvol({"fields2vol", f("ball.json"), "-o", f("fog.vdb")}));
  ExpectOk(zvtest::Zvol({"fields2vol", f("ball.json"), "--vector", "-o", f("dir.vdb")}));
  // Two layers: a box that adds 1 on +x.
  Write(f("two.json"), R"({"voxel_size": 0.1, "box": {"min": [-1, -1, -1], "max": [1, 1, 1]},
    "layers": [{"type": "spherical", "radius": 0.5},
               {"type": "box", "center": [0.75, 0, 0], "half_size": [0.25, 1, 1], "blend": "add", "strength": 0.5}]})");
  ExpectOk(zvtest::Zvol({"fields2vol", f("two.json"), "-o", f("two.vdb")}));
  const std::string out = Py(
      "fog, d, two = read('" + f("fog.vdb") + "'), read('" + f("dir.vdb") + "'), read('" + f("two.vdb") + "')\n"
      "print(fog.gridClass == vdb.GridClass.FOG_VOLUME, at(fog, (0, 0, 0.5)), round(at(fog, (0, 0, 1.2)), 4), at(fog, (0, 0, -0.7)))\n"
      "print([round(c, 3) for c in at(d, (0, 0, 1.2))], [round(c, 3) for c in at(d, (0, 0, -0.2))])\n"
      "print(at(two, (0, 0, 0)), round(at(two, (0.8, 0, 0)), 4), fog.activeVoxelCount() >= 30 * 30 * 30)\n");
  EXPECT_EQ(out, "True 1.0 0.6 0.0\n[0.0, 0.0, -2.0] [0.0, 0.0, 2.0]\n1.0 0.5 True\n");

  Write(f("bad.json"), R"({"voxel_size": 0.1, "box": {"min": [0, 0, 0], "max": [1, 1, 1]}, "layers": [{"type": "cone"}]})");
  ExpectRefused(zvtest::Zvol({"fields2vol", f("bad.json"), "-o", f("x.vdb")}), "unknown layer type \"cone\"", f("x.vdb"));
  Write(f("broken.json"), "{\"voxel_size\": ");
  ExpectRefused(zvtest::Zvol({"fields2vol", f("broken.json"), "-o", f("x.vdb")}), "not valid JSON", f("x.vdb"));
}
