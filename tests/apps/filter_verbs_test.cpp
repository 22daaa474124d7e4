// zvol filter, convert, derive and remesh --smooth on files, checked with
// pyopenvdb in the right-handed frame of the files.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/run.h"
#include "support/verbs.h"

namespace {

using zvtest::ExpectOk;
using zvtest::ExpectRefused;
using zvtest::Files;
using zvtest::Py;

void Sphere(const std::string& path, const std::string& radius, const std::string& centre) {
  ExpectOk(zvtest::Zvol({"sphere", "--radius", radius, "--center", centre, "--voxel-size", "0.05", "-o", path}));
}

}  // namespace

TEST(FilterVerbs, SdfFiltersMoveTheSurfaceWhereTheMaskAllows) {
  Files f;
  Sphere(f("s.vdb"), "1", "0,0,0.5");
  ExpectOk(zvtest::Zvol({"filter", "sdf", "dilate", f("s.vdb"), "--offset", "0.1", "-o", f("d.vdb")}));
  ExpectOk(zvtest::Zvol({"filter", "sdf", "erode", f("s.vdb"), "--offset", "0.1", "--accuracy", "weno5", "-o", f("e.vdb")}));
  ExpectOk(zvtest::Zvol({"filter", "sdf", "resize", f("s.vdb"), "--half-width", "5", "-o", f("r.vdb")}));
  ExpectOk(zvtest::Zvol({"filter", "sdf", "gaussian", f("s.vdb"), "--width", "2", "--iterations", "2", "-o", f("g.vdb")}));
  // A mask of density 1 around (1, 0, 0.5) only: the far side stays.
  Sphere(f("m.vdb"), "0.5", "1,0,0.5");
  ExpectOk(zvtest::Zvol({"convert", "sdf2fog", f("m.vdb"), "-o", f("mask.vdb")}));
  ExpectOk(zvtest::Zvol({"filter", "sdf", "dilate", f("s.vdb"), "--offset", "0.1", "--mask", f("mask.vdb"), "-o", f("md.vdb")}));
  const std::string out = Py(
      "d, e, r, g, md = [read('" + f("") + "' + n + '.vdb') for n in ('d', 'e', 'r', 'g', 'md')]\n"
      "print(near(at(d, (1.1, 0, 0.5)), 0, 0.005), near(at(d, (0, 0, 1.6)), 0, 0.005), near(at(d, (0, 0, -0.6)), 0, 0.005))\n"
      "print(near(at(e, (0.9, 0, 0.5)), 0, 0.005), near(at(e, (0, -0.9, 0.5)), 0, 0.005))\n"
      "print(round(r.background, 4), r.activeVoxelCount() > read('" + f("s.vdb") + "').activeVoxelCount())\n"
      "print(near(at(g, (0, 1, 0.5)), 0, 0.05), g.gridClass == vdb.GridClass.LEVEL_SET)\n"
      "print(near(at(md, (1.1, 0, 0.5)), 0, 0.005), near(at(md, (-1, 0, 0.5)), 0, 0.005))\n");
  EXPECT_EQ(out, "True True True\nTrue True\n0.25 True\nTrue True\nTrue True\n");

  ExpectRefused(zvtest::Zvol({"filter", "sdf", "dilate", f("mask.vdb"), "-o", f("x.vdb")}), "needs a float level set",
                f("x.vdb"));
  ExpectOk(zvtest::Zvol({"derive", "gradient", f("s.vdb"), "-o", f("grad.vdb")}));
  ExpectRefused(zvtest::Zvol({"filter", "sdf", "dilate", f("s.vdb"), "--mask", f("grad.vdb"), "-o", f("x.vdb")}),
                "a mask must be a float grid", f("x.vdb"));
  ExpectRefused(zvtest::Zvol({"filter", "sdf", "dilate", f("none.vdb"), "-o", f("x.vdb")}), "File could not be found",
                f("x.vdb"));
  EXPECT_EQ(zvtest::Zvol({"filter", "sdf", "blur", f("s.vdb"), "-o", f("x.vdb")}).status, 2);
  EXPECT_EQ(zvtest::Zvol({"filter", "sdf", "dilate", f("s.vdb"), "--strength", "2", "-o", f("x.vdb")}).status, 2);
}

TEST(FilterVerbs, FogFiltersMapValuesOfFloatAndVectorGrids) {
  Files f;
  Py("g = vdb.FloatGrid(0.0)\n"
     "g.gridClass = vdb.GridClass.FOG_VOLUME\n"
     "acc = g.getAccessor()\n"
     "for i in range(-3, 4):\n"
     "    acc.setValueOn((i, 0, 2), 0.25)\n"
     "acc.setValueOn((0, 0, 2), 1.0)\n"
     "v = vdb.Vec3SGrid((0, 0, 0))\n"
     "v.getAccessor().setValueOn((0, 0, 2), (1, -2, 3))\n"
     "d = vdb.BoolGrid(False)\n"
     "d.getAccessor().setValueOn((0, 0, 0), True)\n"
     "vdb.write('" + f("fog.vdb") + "', grids=[g])\n"
     "vdb.write('" + f("vec.vdb") + "', grids=[v])\n"
     "vdb.write('" + f("bool.vdb") + "', grids=[d])\n");
  auto run = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"filter", "fog"});
    ExpectOk(zvtest::Zvol(args));
  };
  run({"remap", f("fog.vdb"), "--old-min", "0", "--old-max", "1", "--new-min", "1", "--new-max", "3", "-o", f("remap.vdb")});
  run({"multiply", f("fog.vdb"), "--factor", "4", "-o", f("mul.vdb")});
  run({"invert", f("fog.vdb"), "--center", "0.5", "--strength", "0.5", "-o", f("inv.vdb")});
  run({"add", f("fog.vdb"), "--offset", "0.5", "--iterations", "2", "-o", f("add.vdb")});
  run({"mean", f("fog.vdb"), "--radius", "1", "-o", f("mean.vdb")});
  run({"multiply", f("vec.vdb"), "--factor", "-1", "-o", f("vmul.vdb")});
  const std::string out = Py(
      "def v(n, ijk):\n"
      "    return read('" + f("") + "' + n + '.vdb').getConstAccessor().getValue(ijk)\n"
      "print(v('remap', (0, 0, 2)), v('remap', (2, 0, 2)), v('remap', (5, 0, 2)))\n"
      "print(v('mul', (1, 0, 2)), v('inv', (1, 0, 2)), v('add', (-3, 0, 2)))\n"
      "print(round(v('mean', (1, 0, 2)), 4), v('vmul', (0, 0, 2)))\n");
  // The mean of (1, 0, 2) sees 0.25 + 1 + 0.25 among 27 voxels.
  EXPECT_EQ(out, "3.0 1.5 0.0\n1.0 0.5 1.25\n0.0556 (-1.0, 2.0, -3.0)\n");

  ExpectRefused(zvtest::Zvol({"filter", "fog", "abs", f("bool.vdb"), "-o", f("x.vdb")}), "takes float and vec3s grids",
                f("x.vdb"));
}

TEST(ConvertVerbs, LevelSetsFogAndVectorLengths) {
  Files f;
  Sphere(f("s.vdb"), "1", "0,0,0.5");
  ExpectOk(zvtest::Zvol({"convert", "sdf2fog", f("s.vdb"), "-o", f("fog.vdb")}));
  ExpectOk(zvtest::Zvol({"convert", "fog2sdf", f("fog.vdb"), "--iso", "0.5", "-o", f("back.vdb")}));
  ExpectOk(zvtest::Zvol({"convert", "sdf2fog", f("s.vdb"), "--cutoff", "0.1", "-o", f("thin.vdb")}));
  ExpectOk(zvtest::Zvol({"derive", "gradient", f("s.vdb"), "-o", f("grad.vdb")}));
  ExpectOk(zvtest::Zvol({"convert", "vec2fog", f("grad.vdb"), "-o", f("len.vdb")}));
  // The fog falls from 1 to 0 over the inner band (0.15), so its 0.5 surface
  // lies 0.075 inside the sphere.
  const std::string out = Py(
      "fog, back, thin, ln = [read('" + f("") + "' + n + '.vdb') for n in ('fog', 'back', 'thin', 'len')]\n"
      "print(fog.gridClass == vdb.GridClass.FOG_VOLUME, at(fog, (0, 0, 0.5)), at(fog, (0, 0, 1.7)), at(fog, (0.3, 0.2, 0)))\n"
      "print(back.gridClass == vdb.GridClass.LEVEL_SET, near(at(back, (0.925, 0, 0.5)), 0, 0.05), near(at(back, (0, 0, -0.425)), 0, 0.05))\n"
      "print(near(at(thin, (0, 0, 1.45)), 0.5, 0.05))\n"
      "print(near(at(ln, (1, 0, 0.5)), 1, 0.02), ln.gridClass == vdb.GridClass.FOG_VOLUME)\n");
  EXPECT_EQ(out, "True 1.0 0.0 1.0\nTrue True True\nTrue\nTrue True\n");

  ExpectRefused(zvtest::Zvol({"convert", "sdf2fog", f("fog.vdb"), "-o", f("x.vdb")}), "needs a level set", f("x.vdb"));
  ExpectRefused(zvtest::Zvol({"convert", "fog2sdf", f("s.vdb"), "-o", f("x.vdb")}), "not a level set", f("x.vdb"));
  ExpectRefused(zvtest::Zvol({"convert", "vec2fog", f("fog.vdb"), "-o", f("x.vdb")}), "needs a vector grid", f("x.vdb"));
}

TEST(DeriveVerbs, FieldsComeOutInTheFilesAxes) {
  Files f;
  Sphere(f("s.vdb"), "1", "0,0,0.5");
  // v = (z, 0, -x) + (-y, x, 0): curl (0, 2, 2) everywhere.
  Py("v = vdb.Vec3SGrid((0, 0, 0))\n"
     "v.transform = vdb.createLinearTransform(voxelSize=0.5)\n"
     "acc = v.getAccessor()\n"
     "for i in range(-6, 6):\n"
     "    for j in range(-6, 6):\n"
     "        for k in range(-6, 6):\n"
     "            x, y, z = 0.5 * i, 0.5 * j, 0.5 * k\n"
     "            acc.setValueOn((i, j, k), (z - y, x, -x))\n"
     "vdb.write('" + f("v.vdb") + "', grids=[v])\n");
  for (const char* kind : {"gradient", "curvature"})
    ExpectOk(zvtest::Zvol({"derive", kind, f("s.vdb"), "-o", f(std::string(kind) + ".vdb")}));
  for (const char* kind : {"curl", "normalize"})
    ExpectOk(zvtest::Zvol({"derive", kind, f("v.vdb"), "-o", f(std::string(kind) + ".vdb")}));
  ExpectOk(zvtest::Zvol({"derive", "rotate", f("v.vdb"), "--axis", "0,0,1", "--angle", "90", "-o", f("rot.vdb")}));
  const std::string out = Py(
      "g, c, curl, n, rot = [read('" + f("") + "' + k + '.vdb') for k in ('gradient', 'curvature', 'curl', 'normalize', 'rot')]\n"
      "print(near(at(g, (0, 0, 1.5)), (0, 0, 1), 0.02), near(at(g, (0, 0, -0.5)), (0, 0, -1), 0.02), near(at(g, (1, 0, 0.5)), (1, 0, 0), 0.02))\n"
      "print(near(at(c, (0, 1, 0.5)), 1, 0.05))\n"
      "print(near(curl.getConstAccessor().getValue((1, -2, 3)), (0, 2, 2), 1e-4))\n"
      "print(near(n.getConstAccessor().getValue((2, 0, 4)), (2 / 6 ** 0.5, 1 / 6 ** 0.5, -1 / 6 ** 0.5), 1e-5))\n"
      "print(near(rot.getConstAccessor().getValue((2, 0, 4)), (-1, 2, -1), 1e-5))\n"
      "print(g.transform.indexToWorld((0, 0, 10)) == read('" + f("s.vdb") + "').transform.indexToWorld((0, 0, 10)))\n");
  EXPECT_EQ(out, "True True True\nTrue\nTrue\nTrue\nTrue\nTrue\n");

  ExpectRefused(zvtest::Zvol({"derive", "curl", f("s.vdb"), "-o", f("x.vdb")}), "takes vector grids", f("x.vdb"));
  ExpectRefused(zvtest::Zvol({"derive", "gradient", f("v.vdb"), "-o", f("x.vdb")}), "takes float, double and int32",
                f("x.vdb"));
}

TEST(RemeshVerb, SmoothRoundsACubesCorners) {
  Files f;
  ExpectOk(zvtest::Zvol({"platonic", "--faces", "6", "--size", "1", "--voxel-size", "0.05", "-o", f("cube.vdb")}));
  ExpectOk(zvtest::Zvol({"vol2mesh", f("cube.vdb"), "-o", f("cube.obj")}));
  ExpectOk(zvtest::Zvol({"remesh", f("cube.obj"), "--voxel-size", "0.05", "-o", f("plain.obj")}));
  ExpectOk(zvtest::Zvol({"remesh", f("cube.obj"), "--voxel-size", "0.05", "--smooth", "1", "-o", f("smooth.obj")}));
  const auto r = zvtest::Python(
      "def far(p):\n"
      "    vs = [list(map(float, l.split()[1:4])) for l in open(p) if l.startswith('v ')]\n"
      "    return max((x * x + y * y + z * z) ** 0.5 for x, y, z in vs)\n"
      "print(far('" + f("smooth.obj") + "') < far('" + f("plain.obj") + "') - 0.01)\n");
  EXPECT_EQ(r.out, "True\n") << r.err;
  EXPECT_EQ(zvtest::Zvol({"remesh", f("cube.obj"), "--voxel-size", "0.05", "--smooth", "2", "-o", f("x.obj")}).status, 2);
}
