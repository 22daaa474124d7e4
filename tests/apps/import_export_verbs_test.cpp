// zvol import and export: a file's grids into a scene and back out voxel for
// voxel, a numbered series played and written frame by frame, Ctrl-C in the
// middle of a range, and the refusals of files that are not .vdb.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/run.h"
#include "support/verbs.h"

using nlohmann::json;
using zvtest::Python;
using zvtest::Zvol;
namespace fs = std::filesystem;

namespace {

// What a pyopenvdb script prints.
std::string PyOut(const std::string& script) {
  const auto r = Python(script);
  EXPECT_EQ(r.status, 0) << r.err;
  return r.out;
}

// A file of four grids of unlike kinds, off the origin and with a voxel size of their own.
void MakeMultiGridFile(const std::string& path) {
  auto r = Python(R"(
import pyopenvdb as vdb
sdf = vdb.createLevelSetSphere(radius=2.0, center=(1.0, -0.5, 3.0), voxelSize=0.25)
sdf.name = 'surface'
fog = vdb.FloatGrid(0.0)
fog.fill((-4, 0, 2), (5, 6, 12), 0.75, True)
fog.getAccessor().setValueOn((9, -3, -7), 0.125)
fog.transform = vdb.createLinearTransform(voxelSize=0.5)
fog.transform.translate((0.3, 0.0, -1.7))
fog.gridClass = vdb.GridClass.FOG_VOLUME
fog.name = 'density'
vel = vdb.Vec3SGrid((0.0, 0.0, 0.0))
a = vel.getAccessor()
for i in range(-3, 4):
    for k in range(0, 5):
        a.setValueOn((i, 2 * i, k - 2), (float(i), 0.5 * k, -1.25))
vel.name = 'vel'
mask = vdb.BoolGrid(False)
mask.fill((0, 0, 0), (3, 3, 3), True, True)
mask.name = 'mask'
vdb.write(')" + path + R"(', grids=[sdf, fog, vel, mask])
)");
  ASSERT_EQ(r.status, 0) << r.err;
}

// Compares every grid of `a` with the grid of the same name in `b`: class,
// transform, background, active voxels and their values; prints "same" or why not.
std::string CompareFiles(const std::string& a, const std::string& b) {
  return PyOut(R"(
import pyopenvdb as vdb
ga = {g.name: g for g in vdb.readAll(')" + a + R"(')[0]}
gb = {g.name: g for g in vdb.readAll(')" + b + R"(')[0]}
problems = []
if sorted(ga) != sorted(gb):
    problems.append('names %s %s' % (sorted(ga), sorted(gb)))
for name, g in ga.items():
    h = gb.get(name)
    if h is None:
        continue
    if g.gridClass != h.gridClass: problems.append(name + ' class')
    if g.background != h.background: problems.append(name + ' background')
    ma, mb = g.transform.indexToWorld((1, 2, 3)), h.transform.indexToWorld((1, 2, 3))
    if any(abs(x - y) > 1e-9 for x, y in zip(ma, mb)): problems.append(name + ' transform %s %s' % (ma, mb))
    if g.activeVoxelCount() != h.activeVoxelCount():
        problems.append(name + ' active %d %d' % (g.activeVoxelCount(), h.activeVoxelCount()))
    acc = h.getConstAccessor()
    for it in g.citerOnValues():
        for i in range(it.min[0], it.max[0] + 1):
            for j in range(it.min[1], it.max[1] + 1):
                for k in range(it.min[2], it.max[2] + 1):
                    v, on = acc.probeValue((i, j, k))
                    if v != it.value or not on:
                        problems.append('%s (%d,%d,%d) %s %s' % (name, i, j, k, it.value, v))
                        break
print('same' if not problems else '; '.join(problems[:5]))
)");
}

size_t CountFiles(const std::string& dir) {
  return size_t(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

// The active voxel counts of the first grids of files, one line each.
std::string ActiveCounts(const std::vector<std::string>& files) {
  std::string list;
  for (const auto& f : files) list += "'" + f + "',";
  return PyOut("import pyopenvdb as vdb\nfor f in [" + list + "]:\n    print(vdb.readAll(f)[0][0].activeVoxelCount())\n");
}

// A series of `count` sphere files cloud.0000.vdb ... in `dir`, each larger than the one before.
void MakeSeries(const std::string& dir, int count, double voxelSize) {
  auto r = Python("import pyopenvdb as vdb\nfor i in range(" + std::to_string(count) +
                  "):\n    g = vdb.createLevelSetSphere(radius=1.0 + 0.05 * i, voxelSize=" + std::to_string(voxelSize) +
                  ")\n    g.name = 'density'\n    vdb.write('" + dir + "/cloud.%04d.vdb' % i, grids=[g])\n");
  ASSERT_EQ(r.status, 0) << r.err;
}

}  // namespace

TEST(ImportExportVerbs, ImportThenExportGivesTheSameGrids) {
  zvtest::Files f;
  MakeMultiGridFile(f("multi.vdb"));
  auto imported = Zvol({"import", f("multi.vdb"), "-o", f("scene.zscene")});
  ASSERT_EQ(imported.status, 0) << imported.err;
  // One volume object per grid, each with its file in "vol" beside the scene.
  for (const char* name : {"surface", "density", "vel", "mask"})
    EXPECT_TRUE(fs::exists(f(std::string("vol/") + name + ".vdb"))) << name;
  auto info = Zvol({"scene", "info", f("scene.zscene"), "--json"});
  ASSERT_EQ(info.status, 0) << info.err;
  const json objects = json::parse(info.out)["objects"];
  ASSERT_EQ(objects.size(), 4u);
  std::vector<std::string> names;
  for (const auto& o : objects) {
    EXPECT_EQ(o["type"], 1039858);
    names.push_back(o["name"]);
  }
  // In the order OpenVDB lists a file's grids: by name.
  EXPECT_EQ(names, (std::vector<std::string>{"density", "mask", "surface", "vel"}));

  auto exported = Zvol({"export", f("scene.zscene"), "-o", f("out.vdb")});
  ASSERT_EQ(exported.status, 0) << exported.err;
  EXPECT_EQ(CompareFiles(f("multi.vdb"), f("out.vdb")), "same\n");

  // The JSON form of the scene carries the same volumes.
  ASSERT_EQ(Zvol({"import", f("multi.vdb"), "-o", f("scene.json"), "--grids", "vel,density"}).status, 0);
  ASSERT_EQ(Zvol({"export", f("scene.json"), "-o", f("two.vdb")}).status, 0);
  EXPECT_EQ(PyOut("import pyopenvdb as vdb\nprint(sorted(g.name for g in vdb.readAll('" + f("two.vdb") + "')[0]))\n"),
            "['density', 'vel']\n");

  // Units: a file in metres comes into a centimetre scene 100 times larger,
  // and goes out in metres again as it came.
  ASSERT_EQ(Zvol({"import", f("multi.vdb"), "-o", f("m.zscene"), "--unit", "m", "--grids", "mask"}).status, 0);
  ASSERT_EQ(Zvol({"export", f("m.zscene"), "-o", f("mask_cm.vdb")}).status, 0);
  ASSERT_EQ(Zvol({"export", f("m.zscene"), "-o", f("mask_m.vdb"), "--unit", "m"}).status, 0);
  EXPECT_EQ(PyOut("import pyopenvdb as vdb\nprint(vdb.read('" + f("mask_cm.vdb") + "', 'mask').transform.voxelSize()[0])\n"),
            "100.0\n");
  EXPECT_EQ(PyOut("import pyopenvdb as vdb\nprint(vdb.read('" + f("mask_m.vdb") + "', 'mask').transform.voxelSize()[0])\n"),
            "1.0\n");
}

TEST(ImportExportVerbs, AHandWrittenJsonSceneNamesItsVolumeFiles) {
  zvtest::Files f;
  MakeMultiGridFile(f("multi.vdb"));
  ASSERT_EQ(PyOut("import pyopenvdb as vdb\ng = vdb.read('" + f("multi.vdb") + "', 'surface')\nvdb.write('" +
                  f("smoke.vdb") + "', grids=[g])\n"), "");
  std::ofstream(f("s.json")) << R"({"format": "zelmar-scene", "version": 1, "objects": [
    {"type": "ovolume", "name": "surface", "parameters": {"VOLUMEOBJECT_FILE": "smoke.vdb"}},
    {"type": "ovolume", "name": "gone", "parameters": {"VOLUMEOBJECT_FILE": "gone.vdb"}},
    {"type": "ovolume", "name": "short", "file": "smoke.vdb"}]})";
  // The file found beside the scene is read; the missing one leaves its object empty and marked.
  auto info = Zvol({"scene", "info", f("s.json"), "--json"});
  ASSERT_EQ(info.status, 0) << info.err;
  const json j = json::parse(info.out);
  EXPECT_EQ(j["objects"][0]["parameters"]["6001"], "Float SDF");
  EXPECT_EQ(j["objects"][1]["parameters"]["6001"], "File not found");
  // "file" names the same parameter, for any type that has a file.
  EXPECT_EQ(j["objects"][2]["parameters"]["6001"], "Float SDF");
  EXPECT_EQ(j["objects"][2]["parameters"]["6000"], "smoke.vdb");
  ASSERT_EQ(Zvol({"export", f("s.json"), "-o", f("out.vdb"), "--selection", "surface"}).status, 0);
  EXPECT_EQ(CompareFiles(f("smoke.vdb"), f("out.vdb")), "same\n");
}

TEST(ImportExportVerbs, PicksGridsAndMakesASetOnlyOfSeveral) {
  zvtest::Files f;
  MakeMultiGridFile(f("multi.vdb"));
  auto typesOf = [&](const std::string& scene) {
    auto info = Zvol({"scene", "info", scene, "--json"});
    EXPECT_EQ(info.status, 0) << info.err;
    std::vector<int> types;
    const json j = json::parse(info.out);
    for (const auto& o : j["objects"]) types.push_back(o["type"].get<int>());
    return types;
  };
  const auto original = PyOut("import pyopenvdb as vdb\nprint(vdb.readAll('" + f("multi.vdb") + "')[1])\n");
  ASSERT_EQ(Zvol({"import", f("multi.vdb"), "-o", f("set.zscene"), "--set", "--grids", "density,vel"}).status, 0);
  EXPECT_EQ(typesOf(f("set.zscene")), std::vector<int>{1039867});
  // The set writes a file of its own into "vol", named so that it finds no
  // other (multi.vdb lies in the scene's folder); the imported file is not touched.
  EXPECT_TRUE(fs::exists(f("vol/multi_1.vdb")));
  EXPECT_EQ(PyOut("import pyopenvdb as vdb\nprint(vdb.readAll('" + f("multi.vdb") + "')[1])\n"), original);
  // One grid is an object, whatever --set says.
  ASSERT_EQ(Zvol({"import", f("multi.vdb"), "-o", f("one.zscene"), "--set", "--grids", "vel"}).status, 0);
  EXPECT_EQ(typesOf(f("one.zscene")), std::vector<int>{1039858});
  // A second import adds to the scene.
  ASSERT_EQ(Zvol({"import", f("multi.vdb"), "-o", f("one.zscene"), "--grids", "vel"}).status, 0);
  EXPECT_EQ(typesOf(f("one.zscene")), (std::vector<int>{1039858, 1039858}));
  EXPECT_TRUE(fs::exists(f("vol/vel.vdb")));
  EXPECT_TRUE(fs::exists(f("vol/vel_1.vdb")));

  auto unknown = Zvol({"import", f("multi.vdb"), "-o", f("bad.zscene"), "--grids", "smoke"});
  zvtest::ExpectRefused(unknown, "no grid 'smoke'", f("bad.zscene"));
  EXPECT_NE(unknown.err.find("density, mask, surface, vel"), std::string::npos) << unknown.err;
  zvtest::ExpectRefused(Zvol({"import", f("multi.vdb"), "-o", f("bad.zscene"), "--sequence"}), "not part of a numbered series",
                        f("bad.zscene"));
}

TEST(ImportExportVerbs, ASeriesPlaysAndExportsOneFilePerFrame) {
  zvtest::Files f;
  fs::create_directories(f("src"));
  fs::create_directories(f("out"));
  MakeSeries(f("src"), 20, 0.1);
  auto imported = Zvol({"import", f("src/cloud.0007.vdb"), "-o", f("s.zscene"), "--sequence"});
  ASSERT_EQ(imported.status, 0) << imported.err;
  auto exported = Zvol({"export", f("s.zscene"), "-o", f("out/smoke.vdb"), "--frames", "0:19", "--naming", "2"});
  ASSERT_EQ(exported.status, 0) << exported.err;
  EXPECT_EQ(CountFiles(f("out")), 20u);
  std::vector<std::string> sources, outputs;
  for (int i = 0; i < 20; ++i) {
    char n[8];
    std::snprintf(n, sizeof(n), "%04d", i);
    sources.push_back(f(std::string("src/cloud.") + n + ".vdb"));
    outputs.push_back(f(std::string("out/smoke_") + n + ".vdb"));
  }
  // Frame i shows file i of the series.
  EXPECT_EQ(ActiveCounts(outputs), ActiveCounts(sources));

  // Three processes write the same files as one; more workers than frames is as many as frames.
  fs::create_directories(f("par"));
  auto parallel = Zvol({"export", f("s.zscene"), "-o", f("par/smoke.vdb"), "--frames", "0:19", "--naming", "2", "--workers", "3"});
  ASSERT_EQ(parallel.status, 0) << parallel.err;
  EXPECT_EQ(CountFiles(f("par")), 20u);
  std::vector<std::string> inParallel;
  for (const auto& o : outputs) inParallel.push_back(f("par/" + fs::path(o).filename().string()));
  EXPECT_EQ(ActiveCounts(inParallel), ActiveCounts(outputs));
  fs::create_directories(f("few"));
  ASSERT_EQ(Zvol({"export", f("s.zscene"), "-o", f("few/s.vdb"), "--frames", "4:5", "--workers", "8"}).status, 0);
  EXPECT_EQ(ActiveCounts({f("few/s.0004.vdb"), f("few/s.0005.vdb")}), ActiveCounts({sources[4], sources[5]}));
  EXPECT_EQ(CountFiles(f("few")), 2u);
  EXPECT_EQ(Zvol({"export", f("s.zscene"), "-o", f("few/t.vdb"), "--frames", "0:3", "--workers", "0"}).status, 2);
  EXPECT_EQ(CountFiles(f("few")), 2u);

  // Part of the series from the import's range, named by another form.
  ASSERT_EQ(Zvol({"import", f("src/cloud.0000.vdb"), "-o", f("p.zscene"), "--sequence", "--first", "3", "--last", "40"}).status, 0);
  fs::create_directories(f("part"));
  ASSERT_EQ(Zvol({"export", f("p.zscene"), "-o", f("part/c.vdb"), "--frames", "0:1", "--naming", "5"}).status, 0);
  EXPECT_EQ(ActiveCounts({f("part/c.000.vdb"), f("part/c.001.vdb")}), ActiveCounts({sources[3], sources[4]}));
}

TEST(ImportExportVerbs, CtrlCKeepsTheFramesWrittenAndNoPartialFile) {
  zvtest::Files f;
  fs::create_directories(f("src"));
  fs::create_directories(f("out"));
  // Large enough that the twenty frames take far longer than stopping does.
  MakeSeries(f("src"), 20, 0.012);
  ASSERT_EQ(Zvol({"import", f("src/cloud.0000.vdb"), "-o", f("s.zscene"), "--sequence"}).status, 0);

  const std::string zvol = std::string(ZV_BIN_DIR) + "/zvol";
  std::vector<std::string> args{zvol, "--threads", "1", "export", f("s.zscene"), "-o", f("out/big.vdb"), "--frames", "0:19"};
  const std::string err = f("err");
  const pid_t pid = zvtest::Spawn(args, {.err = err});
  ASSERT_GT(pid, 0);
  // Stopped once two frames are out.
  auto finished = [&]() {
    size_t n = 0;
    for (const auto& e : fs::directory_iterator(f("out"))) n += e.path().extension() == ".vdb" && e.path().filename().string()[0] != '.';
    return n;
  };
  int status = 0;
  bool exited = false;
  while (finished() < 2 && !exited) {
    exited = waitpid(pid, &status, WNOHANG) == pid;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_FALSE(exited) << "the export ended before it could be stopped";
  kill(pid, SIGINT);
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  std::ifstream in(err);
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(text, "error: interrupted\n");
  // Every file left is a whole frame; nothing half written.
  std::vector<std::string> written, sources;
  for (const auto& e : fs::directory_iterator(f("out"))) {
    const std::string name = e.path().filename().string();
    ASSERT_EQ(name.rfind("big.", 0), 0u) << name;
    written.push_back(e.path().string());
  }
  std::sort(written.begin(), written.end());
  ASSERT_GE(written.size(), 2u);
  ASSERT_LT(written.size(), 20u);
  for (size_t i = 0; i < written.size(); ++i) {
    char n[24];
    std::snprintf(n, sizeof(n), "%04zu", i);
    EXPECT_EQ(written[i], f(std::string("out/big.") + n + ".vdb"));
    sources.push_back(f(std::string("src/cloud.") + n + ".vdb"));
  }
  EXPECT_EQ(ActiveCounts(written), ActiveCounts(sources));
}

TEST(ImportExportVerbs, GridNamesWithPathPartsStayInsideVol) {
  zvtest::Files f;
  fs::create_directories(f("in"));
  ASSERT_EQ(PyOut("import pyopenvdb as vdb\ngs = []\nfor n in ['../evil', '/tmp/abs', 'a/../../b', '..']:\n"
                  "    g = vdb.FloatGrid(0.0)\n    g.fill((0, 0, 0), (1, 1, 1), 1.0, True)\n    g.name = n\n    gs.append(g)\n"
                  "vdb.write('" + f("in/odd.vdb") + "', grids=gs)\n"), "");
  ASSERT_EQ(Zvol({"import", f("in/odd.vdb"), "-o", f("in/s.zscene")}).status, 0);
  std::vector<std::string> written;
  for (const auto& e : fs::recursive_directory_iterator(f(""))) written.push_back(e.path().lexically_relative(f("")).string());
  std::sort(written.begin(), written.end());
  EXPECT_EQ(written, (std::vector<std::string>{"in", "in/odd.vdb", "in/s.zscene", "in/vol", "in/vol/.._evil.vdb",
                                               "in/vol/Volume.vdb", "in/vol/_tmp_abs.vdb", "in/vol/a_.._.._b.vdb"}));
  // The grids come back under their own names.
  ASSERT_EQ(Zvol({"export", f("in/s.zscene"), "-o", f("out.vdb")}).status, 0);
  EXPECT_EQ(CompareFiles(f("in/odd.vdb"), f("out.vdb")), "same\n");
}

TEST(ImportExportVerbs, FilesThatAreNotVdbAreRefusedInOneLine) {
  zvtest::Files f;
  MakeMultiGridFile(f("multi.vdb"));
  std::ofstream(f("text.vdb")) << "just some words, no volume\n";
  fs::copy_file(f("multi.vdb"), f("cut.vdb"));
  fs::resize_file(f("cut.vdb"), fs::file_size(f("cut.vdb")) / 3);
  fs::copy_file(f("multi.vdb"), f("multi.dat"));

  zvtest::ExpectRefused(Zvol({"import", f("text.vdb"), "-o", f("s.zscene")}), "is not a .vdb file", f("s.zscene"));
  zvtest::ExpectRefused(Zvol({"import", f("multi.dat"), "-o", f("s.zscene")}), "is not a .vdb file", f("s.zscene"));
  zvtest::ExpectRefused(Zvol({"import", f("cut.vdb"), "-o", f("s.zscene")}), "cut.vdb", f("s.zscene"));
  zvtest::ExpectRefused(Zvol({"import", f("missing.vdb"), "-o", f("s.zscene")}), "cannot read", f("s.zscene"));
  // Cut inside a grid's header, the file makes OpenVDB quote a name of
  // garbage length; the error line stays one short line.
  fs::copy_file(f("multi.vdb"), f("late.vdb"));
  fs::resize_file(f("late.vdb"), fs::file_size(f("late.vdb")) * 88 / 100);
  auto late = Zvol({"import", f("late.vdb"), "-o", f("s.zscene")});
  zvtest::ExpectRefused(late, "late.vdb", f("s.zscene"));
  EXPECT_LT(late.err.size(), 1000u);
  EXPECT_FALSE(fs::exists(f("vol")));

  // A scene that exists is left as it was when an import into it fails.
  ASSERT_EQ(Zvol({"import", f("multi.vdb"), "-o", f("s.zscene"), "--grids", "vel"}).status, 0);
  std::ifstream a(f("s.zscene"), std::ios::binary);
  const std::string before((std::istreambuf_iterator<char>(a)), {});
  EXPECT_EQ(Zvol({"import", f("cut.vdb"), "-o", f("s.zscene")}).status, 1);
  std::ifstream b(f("s.zscene"), std::ios::binary);
  EXPECT_EQ(std::string((std::istreambuf_iterator<char>(b)), {}), before);

  // An export of a scene without volumes, or of an object that is not there.
  zvtest::ExpectRefused(Zvol({"export", f("s.zscene"), "-o", f("o.vdb"), "--selection", "nope"}), "no object at 'nope'", f("o.vdb"));
  EXPECT_EQ(Zvol({"export", f("s.zscene"), "-o", f("o.txt")}).status, 2);  // a usage error
  zvtest::ExpectOk(Zvol({"export", f("s.zscene"), "-o", f("o.vdb"), "--selection", "vel"}));
}
