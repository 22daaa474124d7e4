// zvol scene eval of a scene with a Volume Mesher: the mesh comes out with its
// UVs and the curvature map as an attribute of its vertices.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/run.h"
#include "support/verbs.h"

using zvtest::Zvol;

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The vertex properties of a binary PLY whose vertices hold floats alone, and their values.
struct Ply {
  std::vector<std::string> properties;
  std::vector<float> values;  // vertex after vertex
  size_t vertices = 0;
  float Get(size_t vertex, const std::string& property) const {
    for (size_t k = 0; k < properties.size(); ++k)
      if (properties[k] == property) return values[vertex * properties.size() + k];
    ADD_FAILURE() << "no property " << property;
    return 0.0f;
  }
};

Ply ReadPly(const std::string& path) {
  const std::string bytes = Slurp(path);
  Ply ply;
  const size_t end = bytes.find("end_header\n");
  EXPECT_NE(end, std::string::npos);
  if (end == std::string::npos) return ply;
  std::istringstream header(bytes.substr(0, end));
  bool inVertex = false;
  for (std::string line; std::getline(header, line);) {
    std::istringstream words(line);
    std::string a, b, c;
    words >> a >> b >> c;
    if (a == "element") {
      inVertex = b == "vertex";
      if (inVertex) ply.vertices = std::stoul(c);
    } else if (a == "property" && inVertex) {
      EXPECT_EQ(b, "float") << line;
      ply.properties.push_back(c);
    }
  }
  ply.values.resize(ply.vertices * ply.properties.size());
  std::memcpy(ply.values.data(), bytes.data() + end + 11, ply.values.size() * sizeof(float));
  return ply;
}

}  // namespace

TEST(SceneVerb, EvalOfAMesherWritesUVsAndTheCurvatureMap) {
  zvtest::Files f;
  const std::string scene = std::string(ZV_SOURCE_DIR) + "/examples/scenes/volumes/mesher.json";
  auto r = Zvol({"scene", "eval", scene, "-o", f("blob.ply")});
  ASSERT_EQ(r.status, 0) << r.err;
  const Ply ply = ReadPly(f("blob.ply"));
  ASSERT_GT(ply.vertices, 1000u);
  EXPECT_EQ(ply.properties, (std::vector<std::string>{"x", "y", "z", "s", "t", "Curvature"}));
  // The scene keeps positive curvature: nothing below 0, the sphere's far
  // side about 1/100 (a radius of 100), the middle of the flat cube face about 0.
  size_t far = 0, flat = 0;
  for (size_t i = 0; i < ply.vertices; ++i) {
    const float c = ply.Get(i, "Curvature"), x = ply.Get(i, "x"), y = ply.Get(i, "y"), z = ply.Get(i, "z");
    EXPECT_GE(c, 0.0f);
    EXPECT_GE(ply.Get(i, "s"), 0.0f);
    EXPECT_LE(ply.Get(i, "t"), 1.0f);
    if (x < -80.0f) {
      EXPECT_NEAR(c, 0.01f, 0.004f) << x;
      ++far;
    }
    if (x > 169.0f && std::abs(y) < 50.0f && std::abs(z) < 50.0f) {
      EXPECT_LT(c, 0.002f) << x << " " << y;
      ++flat;
    }
  }
  EXPECT_GT(far, 20u);
  EXPECT_GE(flat, 4u);  // adaptivity leaves the flat face few points

  // glTF: the map as an application attribute beside the UVs.
  r = Zvol({"scene", "eval", scene, "-o", f("blob.glb")});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string glb = Slurp(f("blob.glb"));
  uint32_t jsonLength = 0;
  std::memcpy(&jsonLength, glb.data() + 12, 4);
  const auto doc = nlohmann::json::parse(glb.substr(20, jsonLength));
  const auto& attributes = doc["meshes"][0]["primitives"][0]["attributes"];
  EXPECT_TRUE(attributes.contains("TEXCOORD_0"));
  ASSERT_TRUE(attributes.contains("_CURVATURE"));
  EXPECT_EQ(doc["accessors"][attributes["_CURVATURE"].get<int>()]["count"],
            doc["accessors"][attributes["POSITION"].get<int>()]["count"]);
}
