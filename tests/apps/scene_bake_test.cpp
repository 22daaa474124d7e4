// zvol scene bake: a builder's cache layer baked over frames stands for the
// rows below it in a later process, at the frames it holds.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

#include "support/run.h"
#include "support/verbs.h"

using nlohmann::json;
using zvtest::Zvol;

namespace {

// The record of the grid named `name` in a file's info.
json GridInfo(const std::string& vdb, const std::string& name) {
  auto r = Zvol({"info", vdb, "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const json info = json::parse(r.out);
  for (const json& g : info["grids"])
    if (g["name"] == name) return g;
  ADD_FAILURE() << "no grid " << name << " in " << vdb;
  return json::object();
}

}  // namespace

TEST(SceneBakeVerb, ABakedCacheStandsForTheRowsBelowItInAFreshProcess) {
  zvtest::Files f;
  const std::string scene = std::string(ZV_SOURCE_DIR) + "/examples/scenes/builders.json";
  auto r = Zvol({"scene", "bake", scene, "--builder", "shapes", "--frames", "0:2", "-o", f("baked.json")});
  ASSERT_EQ(r.status, 0) << r.err;

  // Move an input below the cache far away: the baked frames do not see it, the others do.
  json j;
  std::ifstream(f("baked.json")) >> j;
  bool moved = false;
  for (auto& builder : j["objects"]) {
    if (!builder.contains("children")) continue;
    for (auto& child : builder["children"])
      if (child["name"] == "box") {
        child["position"] = {500, 0, 0};
        moved = true;
      }
  }
  ASSERT_TRUE(moved);
  std::ofstream(f("moved.json")) << j.dump();

  ASSERT_EQ(Zvol({"scene", "eval", scene, "--frame", "1", "-o", f("original.vdb")}).status, 0);
  ASSERT_EQ(Zvol({"scene", "eval", f("moved.json"), "--frame", "1", "-o", f("baked1.vdb")}).status, 0);
  ASSERT_EQ(Zvol({"scene", "eval", f("moved.json"), "--frame", "5", "-o", f("live5.vdb")}).status, 0);
  const json original = GridInfo(f("original.vdb"), "shapes"), baked = GridInfo(f("baked1.vdb"), "shapes"),
             live = GridInfo(f("live5.vdb"), "shapes");
  EXPECT_EQ(baked["active_voxels"], original["active_voxels"]);
  EXPECT_EQ(baked["index_bbox"], original["index_bbox"]);
  EXPECT_NE(live["index_bbox"], original["index_bbox"]);
}

TEST(SceneBakeVerb, RefusesWhatIsNoBuilderAndKeepsTheOutput) {
  zvtest::Files f;
  const std::string scene = std::string(ZV_SOURCE_DIR) + "/examples/scenes/builders.json";
  auto r = Zvol({"scene", "bake", scene, "--builder", "nosuch", "-o", f("out.json")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("error: the scene has no object at 'nosuch'"), std::string::npos) << r.err;
  r = Zvol({"scene", "bake", scene, "--builder", "shapes/box", "-o", f("out.json")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("is no Volume Builder"), std::string::npos) << r.err;
  EXPECT_EQ(Zvol({"scene", "bake", scene, "--builder", "shapes", "--frames", "4:2", "-o", f("out.json")}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(f("out.json")));
}
