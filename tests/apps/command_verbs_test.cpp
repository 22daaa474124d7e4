// zvol sample, voxels and command against pyopenvdb and the other verbs, and
// their refusals.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/run.h"

using zvtest::Python;
using zvtest::Zvol;

namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::vector<double> Numbers(const std::string& line) {
  std::vector<double> out;
  std::istringstream in(line);
  for (std::string item; std::getline(in, item, ',');) out.push_back(std::stod(item));
  return out;
}

// OpenVDB's PointSampler, BoxSampler and QuadraticSampler over pyopenvdb's
// accessor, component by component, at index positions.
const char* kPySamplers = R"(
import math
def _get(acc, ijk, vec):
    v = acc.getValue(ijk)
    return list(v) if vec else [v]
def nearest(acc, p, vec):
    return _get(acc, tuple(int(math.floor(c + 0.5)) if c >= 0 else -int(math.floor(-c + 0.5)) for c in p), vec)
def linear(acc, p, vec):
    i = [math.floor(c) for c in p]; u = [p[n] - i[n] for n in range(3)]
    d = {}
    for a in (0, 1):
        for b in (0, 1):
            for c in (0, 1):
                d[(a, b, c)] = _get(acc, (i[0] + a, i[1] + b, i[2] + c), vec)
    lerp = lambda x, y, w: [x[n] + (y[n] - x[n]) * w for n in range(len(x))]
    return lerp(lerp(lerp(d[0,0,0], d[0,0,1], u[2]), lerp(d[0,1,0], d[0,1,1], u[2]), u[1]),
                lerp(lerp(d[1,0,0], d[1,0,1], u[2]), lerp(d[1,1,0], d[1,1,1], u[2]), u[1]), u[0])
def quadratic(acc, p, vec):
    i = [math.floor(c) for c in p]; u = [p[n] - i[n] for n in range(3)]
    def fit(v, w):
        return [w * (w * (0.5 * (v[0][n] + v[2][n]) - v[1][n]) + 0.5 * (v[2][n] - v[0][n])) + v[1][n] for n in range(len(v[0]))]
    vx = []
    for dx in range(3):
        vy = []
        for dy in range(3):
            vz = [_get(acc, (i[0] - 1 + dx, i[1] - 1 + dy, i[2] - 1 + dz), vec) for dz in range(3)]
            vy.append(fit(vz, u[2]))
        vx.append(fit(vy, u[1]))
    return fit(vx, u[0])
)";

}  // namespace

TEST(SampleVerb, MatchesOpenVDBSamplersAtRandomPositions) {
  const std::string dir = zvtest::TempDir();
  const std::string file = dir + "/field.vdb", positions = dir + "/at.txt";
  // A float and a vector grid on a moved, scaled transform, with noisy values
  // in a block and an active tile, and the reference samples of each sampler.
  auto made = Python(std::string(kPySamplers) + R"(
import pyopenvdb as vdb, random
random.seed(3)
xf = vdb.createLinearTransform([[0.3, 0, 0, 0], [0, 0.3, 0, 0], [0, 0, 0.3, 0], [1.0, -2.0, 0.5, 1]])
f = vdb.FloatGrid(0.25); f.name = 'density'; f.transform = xf
v = vdb.Vec3SGrid((0, 0, 1)); v.name = 'velocity'; v.transform = xf
fa = f.getAccessor(); va = v.getAccessor()
for i in range(-6, 7):
    for j in range(-5, 6):
        for k in range(-4, 9):
            fa.setValueOn((i, j, k), random.uniform(-1, 1))
            va.setValueOn((i, j, k), (random.uniform(-1, 1), random.uniform(-1, 1), random.uniform(-1, 1)))
f.fill((16, 0, 0), (23, 7, 7), 0.75, True)
vdb.write(')" + file + R"(', grids=[f, v])
pts = [(random.uniform(-1.5, 8.5), random.uniform(-4, 1.5), random.uniform(-1.5, 3.5)) for n in range(200)]
open(')" + positions + R"(', 'w').write(''.join('%r,%r,%r\n' % p for p in pts))
for grid, vec in ((f, False), (v, True)):
    acc = grid.getConstAccessor()
    for name, s in (('nearest', nearest), ('linear', linear), ('quadratic', quadratic)):
        print(name, grid.name, ';'.join(','.join(repr(c) for c in s(acc, xf.worldToIndex(p), vec)) for p in pts))
)");
  ASSERT_EQ(made.status, 0) << made.err;

  int compared = 0;
  for (const std::string& line : Lines(made.out)) {
    std::istringstream in(line);
    std::string sampler, grid, values;
    in >> sampler >> grid >> values;
    std::vector<std::vector<double>> expected;
    std::istringstream items(values);
    for (std::string item; std::getline(items, item, ';');) expected.push_back(Numbers(item));

    auto r = Zvol({"sample", file, "--positions", positions, "--sampler", sampler, "--grid", grid});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto got = Lines(r.out);
    ASSERT_EQ(got.size(), expected.size()) << sampler << " " << grid;
    for (size_t n = 0; n < got.size(); ++n) {
      const std::vector<double> value = Numbers(got[n]);
      ASSERT_EQ(value.size(), expected[n].size());
      for (size_t c = 0; c < value.size(); ++c)
        EXPECT_NEAR(value[c], expected[n][c], 2e-5) << sampler << " " << grid << " position " << n;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 6 * 200);

  // One position on the command line; the grid by index.
  auto one = Zvol({"sample", file, "--at", "1,-2,0.5", "--sampler", "nearest", "--grid", "1"});
  ASSERT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(Numbers(one.out).size(), 3u);
}

TEST(SampleVerb, RefusesBadInput) {
  const std::string dir = zvtest::TempDir();
  auto missing = Zvol({"sample", dir + "/none.vdb", "--at", "0,0,0"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "error: File could not be found: " + dir + "/none.vdb\n");

  const std::string file = dir + "/s.vdb";
  ASSERT_EQ(Zvol({"sphere", "-o", file}).status, 0);
  EXPECT_EQ(Zvol({"sample", file}).status, 2);                              // no position
  EXPECT_EQ(Zvol({"sample", file, "--at", "1,2"}).status, 2);               // not three numbers
  EXPECT_EQ(Zvol({"sample", file, "--at", "0,0,0", "--sampler", "cubic"}).status, 2);
  auto grid = Zvol({"sample", file, "--at", "0,0,0", "--grid", "nosuch"});
  EXPECT_EQ(grid.status, 1);
  EXPECT_EQ(grid.err, "error: no grid 'nosuch' in " + file + "\n");
  // 0.07 inside the unit sphere (voxels of 0.1): nearest takes the voxel at 0.9.
  for (const char* s : {"nearest", "linear", "quadratic"}) {
    auto r = Zvol({"sample", file, "--at", "0.93,0,0", "--sampler", s});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NEAR(std::stod(r.out), std::string(s) == "nearest" ? -0.1 : -0.07, 0.005) << s;
  }
}

TEST(VoxelsVerb, WalksTheValuesPyopenvdbSees) {
  const std::string dir = zvtest::TempDir();
  const std::string file = dir + "/v.vdb";
  auto made = Python(R"(
import pyopenvdb as vdb
g = vdb.FloatGrid(-1.0)
g.fill((0, 0, 0), (7, 7, 7), 2.0, True)
a = g.getAccessor()
a.setValueOn((20, 1, -3), 3.5)
a.setValueOn((-9, 4, 100), 4.25)
a.setValueOff((20, 1, -2), 6.0)
vdb.write(')" + file + R"(', grids=[g])
def rows(it):
    return sorted('%d,%d,%d,%d,%d,%.9g' % (i.min + (i.max[0] - i.min[0] + 1, int(i.active), i.value)) for i in it)
print('\n'.join(rows(g.citerOnValues())))
print('--')
print(len(list(g.citerOffValues())), len(list(g.citerAllValues())))
)");
  ASSERT_EQ(made.status, 0) << made.err;
  const auto lines = Lines(made.out);
  const auto split = std::find(lines.begin(), lines.end(), "--");
  std::vector<std::string> expected(lines.begin(), split);
  std::istringstream counts(*(split + 1));
  size_t offCount = 0, allCount = 0;
  counts >> offCount >> allCount;

  auto active = Zvol({"voxels", file, "--csv"});
  ASSERT_EQ(active.status, 0) << active.err;
  auto rows = Lines(active.out);
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows.front(), "i,j,k,size,active,value");
  rows.erase(rows.begin());
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows, expected);

  auto off = Zvol({"voxels", file, "--inactive", "--csv"});
  ASSERT_EQ(off.status, 0) << off.err;
  EXPECT_EQ(Lines(off.out).size(), offCount + 1);
  EXPECT_NE(off.out.find("\n20,1,-2,1,0,6\n"), std::string::npos);
  auto all = Zvol({"voxels", file, "--all"});
  ASSERT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(Lines(all.out).size(), allCount);
  EXPECT_NE(("\n" + all.out).find("\n0 0 0 8 1 2\n"), std::string::npos);  // the tile, plain form

  EXPECT_EQ(Zvol({"voxels", file, "--active", "--all"}).status, 2);
  EXPECT_EQ(Zvol({"voxels", dir + "/none.vdb"}).status, 1);
}

TEST(CommandVerb, ListsTheCommandsAndTheirSettings) {
  auto list = Zvol({"command", "list"});
  ASSERT_EQ(list.status, 0) << list.err;
  const auto ids = Lines(list.out);
  EXPECT_EQ(ids.size(), 14u);
  for (const auto& id : ids) EXPECT_EQ(id.rfind("net.zelmar.command.volumes.", 0), 0u) << id;
  EXPECT_NE(std::find(ids.begin(), ids.end(), "net.zelmar.command.volumes.boole"), ids.end());

  auto boole = Zvol({"command", "list", "boole"});
  ASSERT_EQ(boole.status, 0) << boole.err;
  EXPECT_NE(boole.out.find("1 type (int, default 1): 0 union, 1 subtract, 2 intersect"), std::string::npos)
      << boole.out;
  EXPECT_EQ(Zvol({"command", "list", "nosuch"}).status, 2);
  EXPECT_EQ(Zvol({"command"}).status, 2);
}

TEST(CommandVerb, RunsCommandsLikeTheVerbsOfTheirOperators) {
  const std::string dir = zvtest::TempDir();
  const auto p = [&](const char* name) { return dir + "/" + name; };

  // The sphere command at a position in the file's frame is the sphere verb's sphere.
  auto cmd = Zvol({"command", "run", "createspherevolume", "--set", "radius=0.8", "--set", "position=0,0,2",
                   "--set", "3=0.05", "-o", p("a.vdb")});
  ASSERT_EQ(cmd.status, 0) << cmd.err;
  ASSERT_EQ(Zvol({"sphere", "--radius", "0.8", "--center", "0,0,2", "--voxel-size", "0.05", "-o", p("a2.vdb")}).status, 0);
  ASSERT_EQ(Zvol({"sphere", "--radius", "0.6", "--center", "0.7,0,2", "--voxel-size", "0.05", "-o", p("b.vdb")}).status,
            0);

  // boole with type 0 is the bool verb's union; volumetomesh writes a mesh.
  ASSERT_EQ(Zvol({"command", "run", "net.zelmar.command.volumes.boole", p("a.vdb"), p("b.vdb"), "--set", "type=0", "-o",
                  p("u.vdb")}).status,
            0);
  ASSERT_EQ(Zvol({"bool", "union", p("a.vdb"), p("b.vdb"), "-o", p("u2.vdb")}).status, 0);
  auto mesh = Zvol({"command", "run", "volumetomesh", p("u.vdb"), "-o", p("u.obj")});
  ASSERT_EQ(mesh.status, 0) << mesh.err;
  EXPECT_TRUE(std::filesystem::file_size(p("u.obj")) > 1000);

  // Both pairs hold the same voxels, as pyopenvdb reads them.
  auto same = Python(R"(
import pyopenvdb as vdb
def voxels(path):
    g = vdb.read(path, vdb.readAllGridMetadata(path)[0].name)
    return g.transform.indexToWorld((0, 0, 0)), sorted((i.min, round(i.value, 6)) for i in g.citerOnValues())
for a, b in (('a', 'a2'), ('u', 'u2')):
    print(a, voxels(')" + dir + R"(/' + a + '.vdb') == voxels(')" + dir + R"(/' + b + '.vdb'))
)");
  ASSERT_EQ(same.status, 0) << same.err;
  EXPECT_EQ(same.out, "a True\nu True\n");

  // The tube of a points file, sampled where its surface is.
  {
    std::ofstream pts(p("line.csv"));
    pts << "# x, y, z\n0,0,1\n2,0,1\n";
  }
  ASSERT_EQ(Zvol({"command", "run", "splinetovolume", p("line.csv"), "--set", "radius=0.3", "--set", "gridsize=0.05",
                  "-o", p("tube.vdb")}).status,
            0);
  auto onSurface = Zvol({"sample", p("tube.vdb"), "--at", "1,0.3,1"});
  ASSERT_EQ(onSurface.status, 0) << onSurface.err;
  EXPECT_NEAR(std::stod(onSurface.out), 0.0, 0.02);
}

TEST(CommandVerb, RefusesBadRunsAndWritesNothing) {
  const std::string dir = zvtest::TempDir();
  const std::string out = dir + "/out.vdb";
  ASSERT_EQ(Zvol({"sphere", "-o", dir + "/s.vdb"}).status, 0);

  EXPECT_EQ(Zvol({"command", "run", "nosuch", "-o", out}).status, 2);
  EXPECT_EQ(Zvol({"command", "run", "boole", dir + "/s.vdb", "--set", "colour=red", "-o", out}).status, 2);
  EXPECT_EQ(Zvol({"command", "run", "boole", dir + "/s.vdb", "--set", "type=one", "-o", out}).status, 2);
  EXPECT_EQ(Zvol({"command", "run", "boole", dir + "/s.vdb", "--set", "type", "-o", out}).status, 2);
  EXPECT_EQ(Zvol({"command", "run", "boole", dir + "/s.txt.unknown", "-o", out}).status, 2);

  auto zero = Zvol({"command", "run", "createspherevolume", "--set", "gridsize=0", "-o", out});
  EXPECT_EQ(zero.status, 1);
  EXPECT_EQ(zero.err, "error: Could not create spherical volume with those settings\n");
  auto skip = Zvol({"command", "run", "boole", dir + "/s.vdb", "--set", "type=5", "-o", out});
  EXPECT_EQ(skip.status, 1);
  EXPECT_EQ(skip.err, "error: boole had nothing to do with these inputs and settings\n");
  auto wrongOut = Zvol({"command", "run", "createspherevolume", "-o", dir + "/s.obj"});
  EXPECT_EQ(wrongOut.status, 1);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_FALSE(std::filesystem::exists(dir + "/s.obj"));
  // No temporary file is left beside the target.
  size_t files = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(dir)) ++files;
  EXPECT_EQ(files, 1u);
}
