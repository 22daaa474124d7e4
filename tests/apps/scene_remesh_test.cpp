// zvol scene remesh: the module's remesher command run on selected objects of
// a scene, baked or live, against zvol remesh on the same mesh.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <sstream>

#include "support/run.h"
#include "support/verbs.h"

using zvtest::Zvol;

namespace {

std::vector<std::array<double, 3>> SortedPoints(const std::string& obj) {
  std::ifstream in(obj);
  std::vector<std::array<double, 3>> points;
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("v ", 0) != 0) continue;
    std::istringstream s(line.substr(2));
    std::array<double, 3> p{};
    s >> p[0] >> p[1] >> p[2];
    for (double& c : p) c = std::round(c * 1e4) / 1e4;
    points.push_back(p);
  }
  std::sort(points.begin(), points.end());
  return points;
}

std::string KnotScene(zvtest::Files& f) {
  const std::string path = f("knot.json");
  std::ofstream(path) << R"({"format": "zelmar-scene", "version": 1, "objects": [)"
                      << R"({"type": "Opolygon", "name": "knot", "file": ")" << ZV_SOURCE_DIR
                      << R"(/examples/knot.obj"}]})";
  return path;
}

}  // namespace

TEST(SceneRemeshVerb, BakedGivesTheMeshOfZvolRemesh) {
  zvtest::Files f;
  const std::string scene = KnotScene(f);
  auto r = Zvol({"scene", "remesh", scene, "--select", "knot", "--voxel-size", "0.05", "--smooth", "0.5", "-o",
                 f("remeshed.json")});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(Zvol({"scene", "eval", f("remeshed.json"), "-o", f("scene.obj")}).status, 0);
  ASSERT_EQ(Zvol({"remesh", std::string(ZV_SOURCE_DIR) + "/examples/knot.obj", "--voxel-size", "0.05", "--smooth",
                  "0.5", "-o", f("direct.obj")})
                .status,
            0);
  const auto a = SortedPoints(f("scene.obj"));
  const auto b = SortedPoints(f("direct.obj"));
  ASSERT_GT(a.size(), 1000u);
  ASSERT_EQ(a.size(), b.size());
  double worst = 0.0;
  for (size_t i = 0; i < a.size(); ++i)
    for (int k = 0; k < 3; ++k) worst = std::max(worst, std::abs(a[i][k] - b[i][k]));
  EXPECT_LT(worst, 2e-4);
}

TEST(SceneRemeshVerb, RefusesUnknownObjectsAndKeepsTheOutput) {
  zvtest::Files f;
  const std::string scene = KnotScene(f);
  auto r = Zvol({"scene", "remesh", scene, "--select", "nosuch", "-o", f("out.json")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("error: the scene has no object at 'nosuch'"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(f("out.json")));
  EXPECT_EQ(Zvol({"scene", "remesh", scene, "--select", "knot", "--voxel-size", "0", "-o", f("out.json")}).status, 2);
}
