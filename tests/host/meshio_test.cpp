// Mesh writers of the host: OBJ, PLY, STL and binary glTF, in the file's
// right-handed frame, in full or not at all; and PLY read back. (Reading the
// other formats goes through Assimp and is tested through zvol.)
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <iterator>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/modeling/join.h"
#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "support/run.h"

using namespace zta;
using nlohmann::json;

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A triangle and a quad over five points, moved by its matrix, with UVs that
// are those of the points (`perPoint`) or differ at a shared point.
std::unique_ptr<PolygonObject> Mesh(bool perPoint) {
  auto op = PolygonObject::Alloc(5, 2);
  const Vector p[5] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 1}, {0, 2, 1}};
  std::copy(p, p + 5, op->GetPointW());
  op->GetPolygonW()[0] = CPolygon(0, 1, 2);
  op->GetPolygonW()[1] = CPolygon(1, 3, 4, 2);
  op->SetMl(MatrixMove(Vector(0, 0, 10)));
  auto uvw = UVWTag::Alloc(2);
  auto uv = [](int i) { return Vector(i * 0.125, i * 0.25, 0); };
  uvw->Set(0, {uv(0), uv(1), uv(2), uv(2)});
  uvw->Set(1, {uv(1), uv(3), uv(4), perPoint ? uv(2) : Vector(0.5, 0.5, 0)});
  op->InsertTag(uvw.release());
  op->SetName("mesh \"one\"");
  return op;
}

struct Glb {
  json doc;
  std::string bin;
  template <typename T>
  std::vector<T> Accessor(int index) const {
    const json& a = doc["accessors"][index];
    const json& view = doc["bufferViews"][a["bufferView"].get<int>()];
    const size_t n = a["count"].get<size_t>() * (a["type"] == "VEC3" ? 3 : a["type"] == "VEC2" ? 2 : 1);
    std::vector<T> out(n);
    std::memcpy(out.data(), bin.data() + view["byteOffset"].get<size_t>(), n * sizeof(T));
    return out;
  }
};

Glb ReadGlb(const std::string& path) {
  const std::string bytes = Slurp(path);
  auto u32 = [&](size_t at) {
    uint32_t v;
    std::memcpy(&v, bytes.data() + at, 4);
    return v;
  };
  EXPECT_EQ(bytes.substr(0, 4), "glTF");
  EXPECT_EQ(u32(4), 2u);
  EXPECT_EQ(u32(8), bytes.size());
  const uint32_t jsonLength = u32(12);
  EXPECT_EQ(u32(16), 0x4E4F534Au);
  EXPECT_EQ(jsonLength % 4, 0u);
  Glb g;
  g.doc = json::parse(bytes.substr(20, jsonLength));
  if (20 + jsonLength < bytes.size()) {
    const uint32_t binLength = u32(20 + jsonLength);
    EXPECT_EQ(u32(24 + jsonLength), 0x004E4942u);
    EXPECT_EQ(binLength % 4, 0u);
    g.bin = bytes.substr(28 + jsonLength, binLength);
  }
  return g;
}

}  // namespace

TEST(MeshFiles, WritersMirrorReverseAndPlace) {
  const std::string dir = zvtest::TempDir();
  auto op = Mesh(true);

  // OBJ: the third axis mirrored, the corners reversed, one UV per point.
  ASSERT_TRUE(WriteMeshFile(*op, dir + "/m.obj"));
  std::istringstream obj(Slurp(dir + "/m.obj"));
  std::vector<std::string> v, f, vt;
  for (std::string line; std::getline(obj, line);) {
    if (line.rfind("v ", 0) == 0) v.push_back(line);
    if (line.rfind("vt ", 0) == 0) vt.push_back(line);
    if (line.rfind("f ", 0) == 0) f.push_back(line);
  }
  ASSERT_EQ(v.size(), 5u);
  EXPECT_EQ(v[3], "v 1 1 -11");
  EXPECT_EQ(vt.size(), 5u);
  EXPECT_EQ(f, (std::vector<std::string>{"f 1/1 3/3 2/2", "f 2/2 3/3 5/5 4/4"}));

  // glTF: the same frame in metres (a scene unit of a centimetre), triangles
  // with the quad split over its first diagonal, v running down the image.
  ASSERT_TRUE(WriteMeshFile(*op, dir + "/m.glb", {0.01}));
  Glb g = ReadGlb(dir + "/m.glb");
  EXPECT_EQ(g.doc["asset"]["version"], "2.0");
  EXPECT_EQ(g.doc["nodes"][0]["name"], "mesh \"one\"");
  const json& prim = g.doc["meshes"][0]["primitives"][0];
  const auto pos = g.Accessor<float>(prim["attributes"]["POSITION"].get<int>());
  ASSERT_EQ(pos.size(), 15u);
  EXPECT_FLOAT_EQ(pos[9], 0.01f);
  EXPECT_FLOAT_EQ(pos[11], -0.11f);
  EXPECT_FLOAT_EQ(g.doc["accessors"][0]["max"][2].get<float>(), -0.1f);
  EXPECT_FLOAT_EQ(g.doc["accessors"][0]["min"][2].get<float>(), -0.11f);
  const auto idx = g.Accessor<uint32_t>(prim["indices"].get<int>());
  EXPECT_EQ(idx, (std::vector<uint32_t>{0, 2, 1, 1, 2, 4, 1, 4, 3}));
  const auto uv = g.Accessor<float>(prim["attributes"]["TEXCOORD_0"].get<int>());
  ASSERT_EQ(uv.size(), 10u);
  EXPECT_FLOAT_EQ(uv[6], 0.375f);
  EXPECT_FLOAT_EQ(uv[7], 0.25f);

  // UVs that differ at a shared point give one vertex per corner.
  auto split = Mesh(false);
  ASSERT_TRUE(WriteMeshFile(*split, dir + "/s.glb"));
  Glb s = ReadGlb(dir + "/s.glb");
  const json& sprim = s.doc["meshes"][0]["primitives"][0];
  EXPECT_EQ(s.Accessor<float>(sprim["attributes"]["POSITION"].get<int>()).size(), 7u * 3);
  EXPECT_EQ(s.Accessor<uint32_t>(sprim["indices"].get<int>()), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 3, 5, 6}));

  // PLY and STL keep their sizes: 5 points and 2 faces, 3 triangles.
  ASSERT_TRUE(WriteMeshFile(*op, dir + "/m.ply"));
  EXPECT_NE(Slurp(dir + "/m.ply").find("element vertex 5\n"), std::string::npos);
  ASSERT_TRUE(WriteMeshFile(*op, dir + "/m.stl"));
  EXPECT_EQ(Slurp(dir + "/m.stl").size(), 84u + 3 * 50);

  // An object without polygons is a glTF scene of one empty node.
  auto empty = PolygonObject::Alloc(0, 0);
  ASSERT_TRUE(WriteMeshFile(*empty, dir + "/e.glb"));
  Glb e = ReadGlb(dir + "/e.glb");
  EXPECT_FALSE(e.doc.contains("meshes"));
  EXPECT_TRUE(e.bin.empty());
}

TEST(MeshFiles, VertexMapsJoinByNameAndBecomeVertexAttributes) {
  const std::string dir = zvtest::TempDir();
  auto a = Mesh(true), b = Mesh(false);
  auto map = VertexMapTag::Alloc(5);
  map->SetName("curv ature");
  for (int i = 0; i < 5; ++i) map->GetDataAddressW()[i] = 0.5f * float(i) - 1.0f;
  a->InsertTag(map.release());
  auto joined = JoinPolygonObjects({a.get(), b.get()});
  ASSERT_TRUE(joined);
  const auto* weights = static_cast<const VertexMapTag*>((*joined)->GetTag(HOST_TAG_VERTEXMAP));
  ASSERT_NE(weights, nullptr);
  EXPECT_EQ(weights->GetName(), "curv ature");
  ASSERT_EQ(weights->GetDataCount(), 10);
  EXPECT_FLOAT_EQ(weights->GetDataAddressR()[4], 1.0f);
  EXPECT_FLOAT_EQ(weights->GetDataAddressR()[9], 0.0f);  // b had none

  // PLY: one float property per map after the coordinates and UVs.
  ASSERT_TRUE(WriteMeshFile(*a, dir + "/m.ply"));
  const std::string ply = Slurp(dir + "/m.ply");
  const std::string header = "property float s\nproperty float t\nproperty float curv_ature\nelement face 2\n";
  ASSERT_NE(ply.find(header), std::string::npos);
  const size_t body = ply.find("end_header\n") + 11;
  for (int i = 0; i < 5; ++i) {
    float v[6];
    std::memcpy(v, ply.data() + body + size_t(i) * sizeof(v), sizeof(v));
    EXPECT_FLOAT_EQ(v[5], 0.5f * float(i) - 1.0f);
  }

  // glTF: an application attribute, one value per vertex, per corner too
  // (where the fifth point is the sixth corner).
  for (const auto& [op, at] : {std::pair<const PolygonObject*, size_t>{a.get(), 4}, {joined->get(), 5}}) {
    ASSERT_TRUE(WriteMeshFile(*op, dir + "/m.glb"));
    Glb g = ReadGlb(dir + "/m.glb");
    const json& attributes = g.doc["meshes"][0]["primitives"][0]["attributes"];
    ASSERT_TRUE(attributes.contains("_CURV_ATURE"));
    const auto values = g.Accessor<float>(attributes["_CURV_ATURE"].get<int>());
    EXPECT_EQ(values.size(), g.Accessor<float>(attributes["POSITION"].get<int>()).size() / 3);
    EXPECT_FLOAT_EQ(values[at], 1.0f);
    EXPECT_FLOAT_EQ(values[0], -1.0f);
    EXPECT_EQ(g.Accessor<uint32_t>(g.doc["meshes"][0]["primitives"][0]["indices"].get<int>()).size() % 3, 0u);
  }
}

TEST(MeshFiles, BadWritesLeaveNothingBehind) {
  const std::string dir = zvtest::TempDir();
  auto op = Mesh(true);
  const std::string keep = dir + "/keep.obj";
  std::ofstream(keep) << "keep";

  op->GetPolygonW()[1].c = 9;
  auto bad = WriteMeshFile(*op, keep);
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.GetError().GetMessage(), "Index 9 of polygon 1 is out of bounds");
  EXPECT_EQ(Slurp(keep), "keep");
  op->GetPolygonW()[1].c = 4;

  auto fbx = WriteMeshFile(*op, dir + "/x.fbx");
  ASSERT_FALSE(fbx);
  EXPECT_NE(fbx.GetError().GetMessage().find("not a mesh format that can be written"), std::string::npos);
  auto folder = WriteMeshFile(*op, dir + "/none/x.obj");
  ASSERT_FALSE(folder);
  EXPECT_NE(folder.GetError().GetMessage().find("does not exist"), std::string::npos);
  EXPECT_FALSE(WriteMeshFile(*op, dir + "/x.glb", {0.0}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 1);
  EXPECT_TRUE(IsWritableMeshFile("a.GLB"));
  EXPECT_FALSE(IsWritableMeshFile("a.gltf"));
}

TEST(MeshFiles, PlyReadsBackWhatItWritesAndWhatOtherProgramsWrite) {
  const std::string dir = zvtest::TempDir();
  // Our own binary file, with UVs and a vertex map beside the coordinates.
  auto op = Mesh(true);
  ASSERT_TRUE(WriteMeshFile(*op, dir + "/m.ply"));
  MeshFileInfo info;
  auto back = ReadMeshFile(dir + "/m.ply", nullptr, {}, &info);
  ASSERT_TRUE(back) << back.GetError().GetMessage();
  EXPECT_EQ(info.format, "Stanford Polygon File (PLY)");
  ASSERT_EQ((*back)->GetPointCount(), 5);
  ASSERT_EQ((*back)->GetPolygonCount(), 2);
  for (int i = 0; i < 5; ++i) EXPECT_EQ((*back)->GetPointR()[i], op->GetMg() * op->GetPointR()[i]) << i;
  for (int i = 0; i < 2; ++i) EXPECT_EQ((*back)->GetPolygonR()[i], op->GetPolygonR()[i]) << i;

  // Big-endian doubles among colours, a face of two corners (no polygon), and
  // a strip of four corners and a restart: two triangles, the second turned.
  std::string be = "ply\nformat binary_big_endian 1.0\ncomment from elsewhere\nelement vertex 4\n"
                   "property double x\nproperty uchar red\nproperty double y\nproperty double z\n"
                   "element face 2\nproperty uchar flags\nproperty list uchar uint vertex_index\n"
                   "element tristrips 1\nproperty list int int vertex_indices\nend_header\n";
  auto put = [&be](auto v) {
    char b[sizeof v];
    std::memcpy(b, &v, sizeof v);
    be.append(std::make_reverse_iterator(b + sizeof v), std::make_reverse_iterator(b));
  };
  const double p[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  for (const auto& q : p) put(q[0]), put(uint8_t(200)), put(q[1]), put(q[2]);
  put(uint8_t(0)), put(uint8_t(3)), put(0u), put(1u), put(2u);
  put(uint8_t(0)), put(uint8_t(2)), put(0u), put(3u);
  put(5), put(0), put(1), put(2), put(3), put(-1);
  std::ofstream(dir + "/be.ply", std::ios::binary) << be;
  auto other = ReadMeshFile(dir + "/be.ply", nullptr);
  ASSERT_TRUE(other) << other.GetError().GetMessage();
  ASSERT_EQ((*other)->GetPointCount(), 4);
  EXPECT_EQ((*other)->GetPointR()[3], Vector(1, 1, 0));
  ASSERT_EQ((*other)->GetPolygonCount(), 3);
  // The scene's mirror turns each winding.
  EXPECT_EQ((*other)->GetPolygonR()[0], CPolygon(0, 2, 1));
  EXPECT_EQ((*other)->GetPolygonR()[1], CPolygon(0, 2, 1));
  EXPECT_EQ((*other)->GetPolygonR()[2], CPolygon(2, 3, 1));
}
