// zvol resample, bool, mix, blend and vmix on files, checked with pyopenvdb:
// results in the right-handed frame of the files, and one error line for
// inputs a verb does not take.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/run.h"
#include "support/verbs.h"

namespace {

using zvtest::ExpectOk;
using zvtest::ExpectRefused;
using zvtest::Files;
using zvtest::Py;

}  // namespace

TEST(CombineVerbs, BoolFoldsLevelSetsInTheFirstFrame) {
  Files f;
  ExpectOk(zvtest::Zvol({"sphere", "--radius", "1", "--center", "0,0,0.5", "--voxel-size", "0.05", "-o", f("a.vdb")}));
  ExpectOk(zvtest::Zvol({"sphere", "--radius", "0.7", "--center", "0.9,0,0.5", "--voxel-size", "0.04", "-o", f("b.vdb")}));
  ExpectOk(zvtest::Zvol({"sphere", "--radius", "0.5", "--center", "-1,0,0.5", "--voxel-size", "0.06", "-o", f("c.vdb")}));

  ExpectOk(zvtest::Zvol({"bool", "union", f("a.vdb"), f("b.vdb"), f("c.vdb"), "-o", f("u.vdb")}));
  ExpectOk(zvtest::Zvol({"bool", "difference", f("a.vdb"), f("b.vdb"), "-o", f("d.vdb")}));
  ExpectOk(zvtest::Zvol({"bool", "intersection", f("a.vdb"), f("b.vdb"), "-o", f("i.vdb")}));
  // Surface points of the closed-form results lie within a voxel (0.05) of zero;
  // the spheres sit at z = 0.5 in the file.
  const std::string out = Py(
      "u, d, i = read('" + f("u.vdb") + "'), read('" + f("d.vdb") + "'), read('" + f("i.vdb") + "')\n"
      "print(*[round(g.transform.voxelSize()[0], 6) for g in (u, d, i)])\n"
      "ok = lambda v: abs(v) < 0.05\n"
      "print(ok(at(u, (1.6, 0, 0.5))), ok(at(u, (-1.5, 0, 0.5))), ok(at(u, (0, 1, 0.5))), at(u, (0.5, 0, 0.5)) < 0, at(u, (1.65, 0, 0.5)) > 0)\n"
      "print(ok(at(d, (0.2, 0, 0.5))), ok(at(d, (-1, 0, 0.5))), at(d, (0.5, 0, 0.5)) > 0, at(d, (-0.5, 0, 0.5)) < 0)\n"
      "print(ok(at(i, (0.2, 0, 0.5))), ok(at(i, (1, 0, 0.5))), at(i, (0.6, 0, 0.5)) < 0, at(i, (0, 0, 0.5)) > 0, at(i, (0.6, 0, -0.5)) > 0)\n");
  EXPECT_EQ(out, "0.05 0.05 0.05\nTrue True True True True\nTrue True True True\nTrue True True True True\n");
}

TEST(CombineVerbs, MixBlendAndVmixOnFogFiles) {
  Files f;
  Py("def fog(path, grid, values):\n"
     "    grid.gridClass = vdb.GridClass.FOG_VOLUME\n"
     "    acc = grid.getAccessor()\n"
     "    for ijk, v in values: acc.setValueOn(ijk, v)\n"
     "    vdb.write(path, grids=[grid])\n"
     "fog('" + f("a.vdb") + "', vdb.FloatGrid(0.0), [((0, 0, 1), 2.0), ((1, 0, 1), 6.0)])\n"
     "fog('" + f("b.vdb") + "', vdb.FloatGrid(0.0), [((0, 0, 1), 4.0), ((1, 0, 1), 0.0)])\n"
     "fog('" + f("va.vdb") + "', vdb.Vec3SGrid((0, 0, 0)), [((0, 0, 1), (1, 0, 0)), ((1, 0, 1), (0, 0, 0))])\n"
     "fog('" + f("vb.vdb") + "', vdb.Vec3SGrid((0, 0, 0)), [((0, 0, 1), (0, 1, 0)), ((1, 0, 1), (0, 0, 5))])\n");
  ExpectOk(zvtest::Zvol({"mix", "subtract", f("a.vdb"), f("b.vdb"), "-o", f("sub.vdb")}));
  ExpectOk(zvtest::Zvol({"mix", "divide", f("a.vdb"), f("b.vdb"), "-o", f("div.vdb")}));
  ExpectOk(zvtest::Zvol({"mix", "max", f("a.vdb"), f("b.vdb"), "-o", f("max.vdb")}));
  ExpectOk(zvtest::Zvol({"blend", f("a.vdb"), f("b.vdb"), "--weight", "0.25", "-o", f("blend.vdb")}));
  ExpectOk(zvtest::Zvol({"vmix", "cross", f("va.vdb"), f("vb.vdb"), "-o", f("cross.vdb")}));
  const std::string out = Py(
      "def vals(name):\n"
      "    g = read('" + f.dir + "/' + name)\n"
      "    acc = g.getConstAccessor()\n"
      "    return [acc.getValue((0, 0, 1)), acc.getValue((1, 0, 1))]\n"
      "print(vals('sub.vdb'), vals('div.vdb'), vals('max.vdb'), vals('blend.vdb'))\n"
      "print(vals('cross.vdb'))\n");
  EXPECT_EQ(out, "[-2.0, 6.0] [0.5, 0.0] [4.0, 6.0] [3.5, 1.5]\n[(0.0, 0.0, 1.0), (0.0, 0.0, 5.0)]\n");
}

TEST(CombineVerbs, ResampleOntoAVoxelSizeOrAnotherFile) {
  Files f;
  ExpectOk(zvtest::Zvol({"sphere", "--radius", "1", "--center", "0.3,0,0.5", "--voxel-size", "0.05", "-o", f("a.vdb")}));
  ExpectOk(zvtest::Zvol({"sphere", "--radius", "1", "--voxel-size", "0.08", "-o", f("ref.vdb")}));
  ExpectOk(zvtest::Zvol({"resample", f("a.vdb"), "--voxel-size", "0.1", "-o", f("coarse.vdb")}));
  ExpectOk(zvtest::Zvol({"resample", f("a.vdb"), "--match", f("ref.vdb"), "--interp", "quadratic", "-o", f("m.vdb")}));
  const std::string out = Py(
      "c, m = read('" + f("coarse.vdb") + "'), read('" + f("m.vdb") + "')\n"
      "print(round(c.transform.voxelSize()[0], 6), round(m.transform.voxelSize()[0], 6))\n"
      "print(abs(at(c, (1.3, 0, 0.5))) < 0.1, abs(at(m, (0.3, 0, 1.5))) < 0.08, at(m, (0.3, 0, 0.5)) < 0)\n");
  EXPECT_EQ(out, "0.1 0.08\nTrue True True\n");
}

TEST(CombineVerbs, InputsAVerbDoesNotTake) {
  Files f;
  ExpectOk(zvtest::Zvol({"sphere", "--radius", "1", "--voxel-size", "0.1", "-o", f("sdf.vdb")}));
  Py("g = vdb.FloatGrid(0.0)\n"
     "g.gridClass = vdb.GridClass.FOG_VOLUME\n"
     "g.getAccessor().setValueOn((0, 0, 0), 1.0)\n"
     "v = vdb.Vec3SGrid((0, 0, 0))\n"
     "v.getAccessor().setValueOn((0, 0, 0), (1, 0, 0))\n"
     "b = vdb.BoolGrid(False)\n"
     "b.getAccessor().setValueOn((0, 0, 0), True)\n"
     "vdb.write('" + f("fog.vdb") + "', grids=[g])\n"
     "vdb.write('" + f("vec.vdb") + "', grids=[v])\n"
     "vdb.write('" + f("bool.vdb") + "', grids=[b])\n");
  const std::string out = f("out.vdb");
  ExpectRefused(zvtest::Zvol({"bool", "union", f("sdf.vdb"), f("fog.vdb"), "-o", out}), "bool takes level sets of float", out);
  ExpectRefused(zvtest::Zvol({"mix", "add", f("sdf.vdb"), f("fog.vdb"), "-o", out}), "mix takes fog volumes", out);
  ExpectRefused(zvtest::Zvol({"mix", "add", f("fog.vdb"), f("vec.vdb"), "-o", out}), "vmix mixes vectors", out);
  ExpectRefused(zvtest::Zvol({"vmix", "add", f("vec.vdb"), f("fog.vdb"), "-o", out}), "vmix takes vec3i, vec3s and vec3d", out);
  ExpectRefused(zvtest::Zvol({"blend", f("fog.vdb"), f("vec.vdb"), "--weight", "0.5", "-o", out}),
                "the passed volumes do not have the same grid type", out);
  ExpectRefused(zvtest::Zvol({"blend", f("bool.vdb"), f("bool.vdb"), "--weight", "0.5", "-o", out}), "blend takes", out);
  ExpectRefused(zvtest::Zvol({"resample", f("bool.vdb"), "--voxel-size", "2", "-o", out}),
                "resample takes float, double and vector grids", out);
  ExpectRefused(zvtest::Zvol({"bool", "union", f("sdf.vdb"), f("missing.vdb"), "-o", out}), "missing.vdb", out);

  // Usage errors: exit status 2.
  EXPECT_EQ(zvtest::Zvol({"bool", "union", f("sdf.vdb"), "-o", out}).status, 2);
  EXPECT_EQ(zvtest::Zvol({"bool", "xor", f("sdf.vdb"), f("sdf.vdb"), "-o", out}).status, 2);
  EXPECT_EQ(zvtest::Zvol({"resample", f("sdf.vdb"), "-o", out}).status, 2);
  EXPECT_EQ(zvtest::Zvol({"resample", f("sdf.vdb"), "--voxel-size", "1", "--match", f("sdf.vdb"), "-o", out}).status, 2);
  EXPECT_EQ(zvtest::Zvol({"blend", f("fog.vdb"), f("fog.vdb"), "-o", out}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(out));
}
