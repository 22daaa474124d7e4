// zvol and mesh files of the formats Assimp reads: the up axis and unit they
// state, the formats that state none, glTF written and read back, and a node
// that mirrors its mesh.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <cstring>
#include <fstream>

#include "support/run.h"
#include "support/verbs.h"

using nlohmann::json;
using zvtest::Zvol;

namespace {

void Write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// A tetrahedron with its corners at the origin and on the three axes at 1, 2
// and 3, its faces outward by the right-hand rule. Z-up files stand it on
// their z axis; in centimetres its numbers are a hundred times as large.
const char* kFbxZupCm = R"(; FBX 7.5.0 project file
FBXHeaderExtension:  {
	FBXHeaderVersion: 1003
	FBXVersion: 7500
}
GlobalSettings:  {
	Version: 1000
	Properties70:  {
		P: "UpAxis", "int", "Integer", "", 2
		P: "UpAxisSign", "int", "Integer", "", 1
		P: "FrontAxis", "int", "Integer", "", 1
		P: "FrontAxisSign", "int", "Integer", "", -1
		P: "CoordAxis", "int", "Integer", "", 0
		P: "CoordAxisSign", "int", "Integer", "", 1
		P: "UnitScaleFactor", "double", "Number", "", 1
	}
}
Objects:  {
	Geometry: 1000001, "Geometry::", "Mesh" {
		Vertices: *12 {
			a: 0,0,0,100,0,0,0,200,0,0,0,300
		}
		PolygonVertexIndex: *12 {
			a: 0,2,-2,0,1,-4,0,3,-3,1,2,-4
		}
		GeometryVersion: 124
	}
	Model: 1000003, "Model::tet", "Mesh" {
		Version: 232
	}
}
Connections:  {
	C: "OO", 1000003, 0
	C: "OO", 1000001, 1000003
}
)";

const char* kColladaZupCm = R"(<?xml version="1.0" encoding="utf-8"?>
<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1">
  <asset><unit name="centimeter" meter="0.01"/><up_axis>Z_UP</up_axis></asset>
  <library_geometries>
    <geometry id="g" name="tet"><mesh>
      <source id="p"><float_array id="pa" count="12">0 0 0 100 0 0 0 200 0 0 0 300</float_array>
        <technique_common><accessor source="#pa" count="4" stride="3"><param name="X" type="float"/>
        <param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
      <vertices id="v"><input semantic="POSITION" source="#p"/></vertices>
      <triangles count="4"><input semantic="VERTEX" source="#v" offset="0"/><p>0 2 1 0 1 3 0 3 2 1 2 3</p></triangles>
    </mesh></geometry>
  </library_geometries>
  <library_visual_scenes><visual_scene id="s"><node id="n" name="tet"><instance_geometry url="#g"/></node>
  </visual_scene></library_visual_scenes>
  <scene><instance_visual_scene url="#s"/></scene>
</COLLADA>
)";

const char* kOff = "OFF\n4 4 0\n0 0 0\n1 0 0\n0 2 0\n0 0 3\n3 0 2 1\n3 0 1 3\n3 0 3 2\n3 1 2 3\n";

// A 3DS file of the same tetrahedron: chunks of an id and a length.
std::string Tetra3ds() {
  auto chunk = [](uint16_t id, const std::string& payload) {
    std::string c(6, '\0');
    const uint32_t length = uint32_t(6 + payload.size());
    std::memcpy(&c[0], &id, 2);
    std::memcpy(&c[2], &length, 4);
    return c + payload;
  };
  auto pod = [](const auto& v) { return std::string(reinterpret_cast<const char*>(&v), sizeof(v)); };
  std::string points = pod(uint16_t(4));
  const float xyz[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {0, 0, 3}};
  for (const auto& p : xyz) points += pod(p[0]) + pod(p[1]) + pod(p[2]);
  std::string faces = pod(uint16_t(4));
  const uint16_t f[4][3] = {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}};
  for (const auto& t : f) faces += pod(t[0]) + pod(t[1]) + pod(t[2]) + pod(uint16_t(0));
  const std::string mesh = chunk(0x4100, chunk(0x4110, points) + chunk(0x4120, faces));
  const std::string object = chunk(0x4000, std::string("tet", 4) + mesh);
  const std::string editor = chunk(0x3D3D, chunk(0x3D3E, pod(uint32_t(3))) + object);
  return chunk(0x4D4D, chunk(0x0002, pod(uint32_t(3))) + editor);
}

json Info(const std::string& path) {
  auto r = Zvol({"info", path, "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  return r.status == 0 ? json::parse(r.out) : json();
}

// The box, and the volume that only outward faces make positive.
void ExpectBox(const json& info, const std::vector<double>& lo, const std::vector<double>& hi) {
  ASSERT_TRUE(info["bbox"].is_array()) << info.dump();
  EXPECT_NEAR(info["volume"].get<double>(), (hi[0] - lo[0]) * (hi[1] - lo[1]) * (hi[2] - lo[2]) / 6.0, 1e-6);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(info["bbox"][0][k].get<double>(), lo[size_t(k)], 1e-6) << info.dump();
    EXPECT_NEAR(info["bbox"][1][k].get<double>(), hi[size_t(k)], 1e-6) << info.dump();
  }
}

}  // namespace

TEST(MeshFormats, StatedUpAxesAndUnitsAreHonoured) {
  zvtest::Files f;
  Write(f("tet.fbx"), kFbxZupCm);
  Write(f("tet.dae"), kColladaZupCm);
  Write(f("tet.off"), kOff);
  Write(f("tet.3ds"), Tetra3ds());

  // Z up in centimetres: upright in metres, the z axis of the file becoming y.
  const json fbx = Info(f("tet.fbx"));
  EXPECT_EQ(fbx["up_axis"], "+Z");
  EXPECT_DOUBLE_EQ(fbx["unit_meters"].get<double>(), 0.01);
  // Assimp's FBX reader gives every face corner a point of its own.
  EXPECT_EQ(fbx["points"], 12);
  EXPECT_EQ(fbx["triangles"], 4);
  ExpectBox(fbx, {0, 0, -2}, {1, 3, 0});
  ExpectBox(Info(f("tet.dae")), {0, 0, -2}, {1, 3, 0});
  // 3DS is z-up by its own convention, which Assimp applies; it states no unit.
  const json tds = Info(f("tet.3ds"));
  EXPECT_TRUE(tds["unit_meters"].is_null());
  ExpectBox(tds, {0, 0, -2}, {1, 3, 0});
  // OFF states nothing: the numbers stand as they are.
  const json off = Info(f("tet.off"));
  EXPECT_TRUE(off["unit_meters"].is_null());
  EXPECT_TRUE(off["up_axis"].is_null());
  ExpectBox(off, {0, 0, 0}, {1, 2, 3});

  // The formats zvol refused before now make volumes, and the same shape in
  // every one of them stands in the same place.
  for (const char* name : {"tet.fbx", "tet.dae", "tet.3ds"}) {
    SCOPED_TRACE(name);
    const std::string out = f(std::string(name) + ".vdb");
    zvtest::ExpectOk(Zvol({"mesh2vol", f(name), "--voxel-size", "0.05", "-o", out}));
    const json grid = Info(out);
    const json box = grid["grids"][0]["world_bbox"];
    EXPECT_NEAR(box[0][2].get<double>(), -2.0, 0.2) << box.dump();
    EXPECT_NEAR(box[1][1].get<double>(), 3.0, 0.2) << box.dump();
  }
}

TEST(MeshFormats, GltfIsWrittenAndReadBackAndMirroringNodesKeepFacesOutward) {
  zvtest::Files f;
  const std::string s = f("s.vdb");
  zvtest::ExpectOk(Zvol({"sphere", "--radius", "1", "--center", "0.5,0,2", "--voxel-size", "0.05", "-o", s}));
  zvtest::ExpectOk(Zvol({"vol2mesh", s, "-o", f("s.glb")}));
  zvtest::ExpectOk(Zvol({"vol2mesh", s, "-o", f("s.obj")}));
  const json glb = Info(f("s.glb")), obj = Info(f("s.obj"));
  EXPECT_EQ(glb["up_axis"], "+Y");
  EXPECT_EQ(glb["polygons"].get<int>(), obj["triangles"].get<int>() + 2 * obj["quads"].get<int>());
  for (int c = 0; c < 2; ++c)
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(glb["bbox"][c][k].get<double>(), obj["bbox"][c][k].get<double>(), 1e-5);
  EXPECT_NEAR(glb["bbox"][0][2].get<double>(), 1.0, 0.01);
  EXPECT_NEAR(glb["volume"].get<double>(), obj["volume"].get<double>(), 1e-4);
  EXPECT_NEAR(glb["volume"].get<double>(), 4.0 / 3.0 * M_PI, 0.05);

  // A glTF node with a negative scale mirrors its mesh and, by glTF's rule,
  // its winding: the faces of the mirrored cube still point outward.
  auto made = zvtest::Python(
      "import base64, json, struct\n"
      "v = [(x, y, z) for z in (0, 1) for y in (0, 1) for x in (0, 1)]\n"
      "q = [(0,2,3,1),(4,5,7,6),(0,1,5,4),(2,6,7,3),(0,4,6,2),(1,3,7,5)]\n"
      "t = [i for a,b,c,d in q for i in (a,b,c,a,c,d)]\n"
      "buf = b''.join(struct.pack('<3f', *p) for p in v) + struct.pack('<%dH' % len(t), *t)\n"
      "doc = {'asset': {'version': '2.0'}, 'scene': 0, 'scenes': [{'nodes': [0]}],\n"
      " 'nodes': [{'mesh': 0, 'scale': [-1, 1, 1]}],\n"
      " 'meshes': [{'primitives': [{'attributes': {'POSITION': 0}, 'indices': 1}]}],\n"
      " 'buffers': [{'byteLength': len(buf), 'uri': 'data:application/octet-stream;base64,' + base64.b64encode(buf).decode()}],\n"
      " 'bufferViews': [{'buffer': 0, 'byteOffset': 0, 'byteLength': 96}, {'buffer': 0, 'byteOffset': 96, 'byteLength': 2 * len(t)}],\n"
      " 'accessors': [{'bufferView': 0, 'componentType': 5126, 'count': 8, 'type': 'VEC3', 'min': [0,0,0], 'max': [1,1,1]},\n"
      "               {'bufferView': 1, 'componentType': 5123, 'count': len(t), 'type': 'SCALAR'}]}\n"
      "json.dump(doc, open('" + f("mirrored.gltf") + "', 'w'))\n");
  ASSERT_EQ(made.status, 0) << made.err;
  zvtest::ExpectOk(Zvol({"mesh2vol", f("mirrored.gltf"), "--voxel-size", "0.1", "-o", f("m.vdb")}));
  const json box = Info(f("m.vdb"))["grids"][0]["world_bbox"];
  EXPECT_NEAR(box[0][0].get<double>(), -1.0, 0.35);
  EXPECT_NEAR(box[1][0].get<double>(), 0.0, 0.35);
  EXPECT_NEAR(Info(f("mirrored.gltf"))["volume"].get<double>(), 1.0, 1e-6);

  // Formats that zvol does not write are a usage error; broken files one error.
  EXPECT_EQ(Zvol({"vol2mesh", s, "-o", f("x.fbx")}).status, 2);
  Write(f("broken.fbx"), "; FBX 7.5.0 project file\nObjects: {\n");
  zvtest::ExpectRefused(Zvol({"mesh2vol", f("broken.fbx"), "--voxel-size", "0.1", "-o", f("b.vdb")}), "broken.fbx",
                        f("b.vdb"));
}
