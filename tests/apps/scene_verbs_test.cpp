// zvol scene info and convert on native scene files, and the errors of
// damaged ones.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

#include "host/objects/phongtag.h"
#include "host/objects/primitives.h"
#include "host/scene/basedocument.h"
#include "host/scene/scenefile.h"
#include "support/run.h"
#include "support/verbs.h"

using nlohmann::json;
using zvtest::Zvol;

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A group with a sphere of radius 42 (one changed parameter) that links to a
// cube, a Phong tag on the sphere, at 25 frames a second.
void MakeScene(const std::string& path) {
  auto doc = zta::BaseDocument::Alloc();
  doc->SetFps(25);
  auto group = zta::BaseObject::Alloc(zta::HOST_TYPE_NULL);
  group->SetName("group");
  auto sphere = zta::BaseObject::Alloc(zta::HOST_TYPE_SPHERE);
  sphere->SetName("ball");
  sphere->GetDataInstance()->SetFloat(zta::PRIM_SPHERE_RAD, 42.0);
  sphere->InsertTag(zta::PhongTag::Alloc().release());
  auto cube = zta::BaseObject::Alloc(zta::HOST_TYPE_CUBE);
  cube->SetName("box");
  sphere->GetDataInstance()->SetLink(5000, cube.get());
  zta::BaseObject* g = group.release();
  g->InsertUnderLast(doc->GetObjectListHead());
  sphere.release()->InsertUnderLast(g);
  cube.release()->InsertUnderLast(g);
  auto saved = zta::SaveDocument(doc.get(), path);
  ASSERT_TRUE(saved) << saved.GetError().GetMessage();
}

}  // namespace

TEST(SceneVerb, InfoShowsTheTreeAndChangedParameters) {
  zvtest::Files f;
  MakeScene(f("s.zscene"));
  auto r = Zvol({"scene", "info", f("s.zscene"), "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const json j = json::parse(r.out);
  EXPECT_EQ(j["document"]["fps"], 25);
  EXPECT_EQ(j["document"]["unit"], "cm");
  ASSERT_EQ(j["objects"].size(), 1u);
  const json& group = j["objects"][0];
  EXPECT_EQ(group["type_name"], "Null");
  EXPECT_EQ(group["name"], "group");
  EXPECT_TRUE(group["parameters"].empty());
  ASSERT_EQ(group["children"].size(), 2u);
  const json& ball = group["children"][0];
  EXPECT_EQ(ball["type"], zta::HOST_TYPE_SPHERE);
  EXPECT_EQ(ball["name"], "ball");
  // Only what differs from a new sphere: the radius, and the link by path.
  EXPECT_EQ(ball["parameters"].size(), 2u) << ball.dump();
  EXPECT_EQ(ball["parameters"]["1110"], 42.0);
  EXPECT_EQ(ball["parameters"]["5000"]["link"], "group/box");
  EXPECT_EQ(ball["tags"][0]["type_name"], "Phong");
  EXPECT_EQ(group["children"][1]["name"], "box");

  auto plain = Zvol({"scene", "info", f("s.zscene")});
  ASSERT_EQ(plain.status, 0) << plain.err;
  EXPECT_NE(plain.out.find("frame rate 25"), std::string::npos) << plain.out;
  EXPECT_NE(plain.out.find("  - Sphere \"ball\" (5160)  1110=42.0"), std::string::npos) << plain.out;
}

TEST(SceneVerb, ConvertRewritesTheSameScene) {
  zvtest::Files f;
  MakeScene(f("a.zscene"));
  zvtest::ExpectOk(Zvol({"scene", "convert", f("a.zscene"), f("b.zscene")}));
  EXPECT_EQ(Slurp(f("b.zscene")), Slurp(f("a.zscene")));
  // Over an existing file too.
  zvtest::ExpectOk(Zvol({"scene", "convert", f("b.zscene"), f("a.zscene")}));
  EXPECT_EQ(Slurp(f("b.zscene")), Slurp(f("a.zscene")));
}

TEST(SceneVerb, DamagedScenesGiveOneErrorAndLeaveTheOutput) {
  zvtest::Files f;
  MakeScene(f("good.zscene"));
  const std::string good = Slurp(f("good.zscene"));
  std::ofstream(f("cut.zscene"), std::ios::binary) << good.substr(0, good.size() / 2);
  std::string newer = good;
  newer[8] = 3;
  std::ofstream(f("newer.zscene"), std::ios::binary) << newer;
  std::ofstream(f("text.zscene")) << "not a scene\n";
  std::ofstream(f("out.zscene")) << "keep";

  auto cut = Zvol({"scene", "convert", f("cut.zscene"), f("out.zscene")});
  EXPECT_EQ(cut.status, 1);
  EXPECT_EQ(cut.err.rfind("error: " + f("cut.zscene") + ": byte ", 0), 0u) << cut.err;
  EXPECT_NE(cut.err.find("truncated"), std::string::npos) << cut.err;
  EXPECT_EQ(std::count(cut.err.begin(), cut.err.end(), '\n'), 1);
  EXPECT_EQ(Slurp(f("out.zscene")), "keep");

  auto version = Zvol({"scene", "info", f("newer.zscene")});
  EXPECT_EQ(version.err, "error: " + f("newer.zscene") +
                             ": byte 8: scene file format version 3 is newer than this program reads (1)\n");
  EXPECT_EQ(version.status, 1);
  auto text = Zvol({"scene", "info", f("text.zscene")});
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.err.find("not a scene file"), std::string::npos) << text.err;
  auto missing = Zvol({"scene", "info", f("none.zscene")});
  EXPECT_EQ(missing.err, "error: File could not be found: " + f("none.zscene") + "\n");

  // The JSON form both ways says the same as the native one; a JSON scene
  // with a wrong value names its place; other files are a usage error.
  auto asJson = Zvol({"scene", "convert", f("good.zscene"), f("out.json")});
  EXPECT_EQ(asJson.status, 0) << asJson.err;
  auto back = Zvol({"scene", "convert", f("out.json"), f("back.zscene")});
  EXPECT_EQ(back.status, 0) << back.err;
  auto tail = [](const std::string& s) { return s.substr(s.find('\n') + 1); };
  EXPECT_EQ(tail(Zvol({"scene", "info", f("back.zscene")}).out), tail(Zvol({"scene", "info", f("good.zscene")}).out));
  EXPECT_EQ(tail(Zvol({"scene", "info", f("out.json")}).out), tail(Zvol({"scene", "info", f("good.zscene")}).out));
  std::ofstream(f("bad.json")) << R"({"objects": [{"type": "Osphere", "parameters": {"PRIM_SPHERE_RAD": "big"}}]})";
  auto bad = Zvol({"scene", "convert", f("bad.json"), f("out.zscene")});
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.err, "error: " + f("bad.json") + ": objects[0].parameters.PRIM_SPHERE_RAD: expected a number\n");
  EXPECT_EQ(Slurp(f("out.zscene")), "keep");
  EXPECT_EQ(Zvol({"scene", "info", f("x.obj")}).status, 2);
  auto folder = Zvol({"scene", "convert", f("good.zscene"), f("none/out.zscene")});
  EXPECT_EQ(folder.status, 1);
  EXPECT_NE(folder.err.find("does not exist"), std::string::npos) << folder.err;
}

TEST(SceneVerb, EvalWritesWhatTheSceneShowsPerFrame) {
  zvtest::Files f;
  const std::string scene = std::string(ZV_SOURCE_DIR) + "/examples/scenes/cube-and-sphere.json";
  auto r = Zvol({"scene", "eval", scene, "-o", f("shown.obj")});
  ASSERT_EQ(r.status, 0) << r.err;
  // The primitives' caches under the null (a cube of 4 x-subdivisions, 18
  // quads; an icosahedron, 20 triangles) and the floor's one quad.
  const std::string obj = Slurp(f("shown.obj"));
  size_t faces = 0;
  for (size_t at = obj.find("\nf "); at != std::string::npos; at = obj.find("\nf ", at + 1)) ++faces;
  EXPECT_EQ(faces, 39u);

  r = Zvol({"scene", "eval", scene, "--frames", "3:5", "-o", f("seq.ply")});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* name : {"seq.0003.ply", "seq.0004.ply", "seq.0005.ply"})
    EXPECT_TRUE(std::filesystem::is_regular_file(f(name))) << name;
  EXPECT_FALSE(std::filesystem::exists(f("seq.ply")));

  // Nothing of the asked kind, a bad range, a format zvol cannot write: one error line, no file.
  r = Zvol({"scene", "eval", scene, "-o", f("none.vdb")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("holds no volume"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(f("none.vdb")));
  EXPECT_NE(Zvol({"scene", "eval", scene, "--frames", "5:3", "-o", f("x.obj")}).status, 0);
  EXPECT_NE(Zvol({"scene", "eval", scene, "-o", f("x.txt")}).status, 0);
}

TEST(SceneVerb, EvalWritesTheVolumesOfBuilders) {
  zvtest::Files f;
  const std::string scene = std::string(ZV_SOURCE_DIR) + "/examples/scenes/builders.json";
  auto r = Zvol({"scene", "eval", scene, "-o", f("built.vdb")});
  ASSERT_EQ(r.status, 0) << r.err;
  auto info = Zvol({"info", f("built.vdb"), "--json"});
  ASSERT_EQ(info.status, 0) << info.err;
  const auto grids = nlohmann::json::parse(info.out)["grids"];
  ASSERT_EQ(grids.size(), 2u);
  // The SDF builder and the fog builder, each folded into one grid named
  // after its builder, where its inputs stand.
  const auto& shapes = grids[0]["name"] == "shapes" ? grids[0] : grids[1];
  const auto& clouds = grids[0]["name"] == "shapes" ? grids[1] : grids[0];
  EXPECT_EQ(shapes["name"], "shapes");
  EXPECT_EQ(clouds["name"], "clouds");
  EXPECT_EQ(shapes["class"], "level set");
  EXPECT_EQ(clouds["class"], "fog volume");
  EXPECT_GT(shapes["active_voxels"].get<int64_t>(), 10000);
  EXPECT_GT(clouds["active_voxels"].get<int64_t>(), 10000);
  EXPECT_DOUBLE_EQ(shapes["voxel_size"][0].get<double>(), 2.0);
  // The fog builder stands 200 units up the third axis, in the file's frame as in the scene's JSON.
  EXPECT_GT(clouds["world_bbox"][0][2].get<double>(), 150.0);
  EXPECT_LT(shapes["world_bbox"][1][2].get<double>(), 50.0);
}
