// zvol mesh2vol, vol2mesh and remesh against OpenVDB's own conversions, and bad input.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/run.h"

using nlohmann::json;
using zvtest::Python;
using zvtest::Zvol;

namespace {

const std::string kKnot = std::string(ZV_SOURCE_DIR) + "/examples/knot.obj";

// Python helpers: mesh files of the three output formats, and their measures.
const char* kMeshPy = R"PY(
import json, struct, sys
import numpy as np
import pyopenvdb as vdb

def read_mesh(path):
    data = open(path, 'rb').read()
    if path.endswith('.stl'):
        n = struct.unpack('<I', data[80:84])[0]
        rec = np.frombuffer(data[84:84 + 50 * n], dtype=np.dtype([('n', '<f4', 3), ('v', '<f4', (3, 3)), ('a', '<u2')]))
        return rec['v'].reshape(-1, 3).astype(float), [[3 * i, 3 * i + 1, 3 * i + 2] for i in range(n)]
    if path.endswith('.ply'):
        end = data.index(b'end_header\n') + len('end_header\n')
        head = data[:end].decode().splitlines()
        nv = int(next(l for l in head if l.startswith('element vertex')).split()[2])
        nf = int(next(l for l in head if l.startswith('element face')).split()[2])
        face_at = head.index(next(l for l in head if l.startswith('element face')))
        k = sum(1 for l in head[:face_at] if l.startswith('property float'))
        pts = np.frombuffer(data, '<f4', nv * k, end).reshape(nv, k)[:, :3].astype(float)
        texcoord = any('texcoord' in l for l in head[face_at:])
        at, faces = end + nv * k * 4, []
        for _ in range(nf):
            c = data[at]; faces.append(list(struct.unpack_from('<%di' % c, data, at + 1))); at += 1 + 4 * c
            if texcoord: at += 1 + 4 * data[at]
        return pts, faces
    pts, faces = [], []
    for line in data.decode().splitlines():
        s = line.split()
        if s and s[0] == 'v': pts.append([float(x) for x in s[1:4]])
        if s and s[0] == 'f': faces.append([int(x.split('/')[0]) - 1 for x in s[1:]])
    return np.array(pts), faces

def triangles(faces):
    return np.array([[f[0], f[i], f[i + 1]] for f in faces for i in range(1, len(f) - 1)], dtype=np.int64)

def measure(path):
    pts, faces = read_mesh(path)
    t = triangles(faces)
    a, b, c = pts[t[:, 0]], pts[t[:, 1]], pts[t[:, 2]]
    return {'volume': float(np.sum(np.einsum('ij,ij->i', a, np.cross(b, c))) / 6.0),
            'lo': pts.min(0).tolist(), 'hi': pts.max(0).tolist(), 'points': len(pts), 'faces': len(faces)}

def first_grid(path):
    return vdb.read(path, vdb.readAllGridMetadata(path)[0].name)

# Active voxels and values of two level sets: counts, how many differ, and the
# largest difference (in voxels) where both are active.
def compare(got, want, tol):
    ga = got.getConstAccessor()
    voxel = want.transform.voxelSize()[0]
    differ, worst = 0, 0.0
    for it in want.citerOnValues():
        v, on = ga.probeValue(it.min)
        if on: worst = max(worst, abs(v - it.value))
        if not on or abs(v - it.value) > tol: differ += 1
    return {'got': got.activeVoxelCount(), 'want': want.activeVoxelCount(), 'differ': differ,
            'worst': worst / voxel, 'background': [got.background, want.background],
            'class': [got.gridClass, want.gridClass], 'voxel': [got.transform.voxelSize()[0], voxel]}

def reference(path, voxel, exterior=3.0, interior=3.0, shift=None):
    pts, faces = read_mesh(path)
    tris = np.array([f for f in faces if len(f) == 3], dtype=np.uint32).reshape(-1, 3)
    quads = np.array([f for f in faces if len(f) == 4], dtype=np.uint32).reshape(-1, 4)
    return vdb.FloatGrid.createLevelSetFromPolygons(pts.astype(np.float32), triangles=tris, quads=quads,
        transform=vdb.createLinearTransform(voxel), halfWidth=exterior)
)PY";

json PyJson(const std::string& body) {
  auto r = Python(std::string(kMeshPy) + body);
  EXPECT_EQ(r.status, 0) << r.err;
  return r.status == 0 ? json::parse(r.out) : json();
}

json Measure(const std::string& path) { return PyJson("print(json.dumps(measure('" + path + "')))\n"); }

void Write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A failure as zvol reports it: status 1, one "error:" line, no output file.
void ExpectFailure(const zvtest::RunResult& r, const std::string& output, const std::string& words) {
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(r.err.rfind("error: ", 0), 0u) << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  EXPECT_NE(r.err.find(words), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(output)) << output;
}

// The cube [0,1]^3 shifted by `at`, six quads wound outward; `skip` leaves a face out.
std::string CubeObj(const std::string& at = "0 0 0", int skip = -1) {
  std::istringstream in(at);
  double x, y, z;
  in >> x >> y >> z;
  std::string s;
  for (int i = 0; i < 8; ++i)
    s += "v " + std::to_string(x + (i & 1)) + " " + std::to_string(y + ((i >> 1) & 1)) + " " +
         std::to_string(z + ((i >> 2) & 1)) + "\n";
  const char* faces[6] = {"1 3 4 2", "5 6 8 7", "1 2 6 5", "3 7 8 4", "1 5 7 3", "2 4 8 6"};
  for (int f = 0; f < 6; ++f)
    if (f != skip) s += std::string("f ") + faces[f] + "\n";
  return s;
}

}  // namespace

TEST(Mesh2Vol, EqualsOpenVdbsConversionInTheFilesFrame) {
  const std::string dir = zvtest::TempDir();
  // The knot moved off the origin along z, with some quads split into triangles.
  auto made = Python(std::string(kMeshPy) + "pts, faces = read_mesh('" + kKnot + "')\n"
                     "out = open('" + dir + "/mixed.obj', 'w')\n"
                     "for p in pts: out.write('v %.6f %.6f %.6f\\n' % (p[0] + 0.3, p[1] - 0.2, p[2] + 1.7))\n"
                     "for i, f in enumerate(faces):\n"
                     "    g = [x + 1 for x in f]\n"
                     "    out.write('f %d %d %d\\nf %d %d %d\\n' % (g[0], g[1], g[2], g[0], g[2], g[3]) if i % 3 == 0 else\n"
                     "              'f %d %d %d %d\\n' % tuple(g))\n");
  ASSERT_EQ(made.status, 0) << made.err;
  const std::string mesh = dir + "/mixed.obj", out = dir + "/z.vdb";
  auto r = Zvol({"mesh2vol", mesh, "--voxel-size", "0.04", "-o", out});
  ASSERT_EQ(r.status, 0) << r.err;
  auto expectSame = [](const json& c) {
    EXPECT_EQ(c["got"], c["want"]);
    EXPECT_EQ(c["differ"], 0);
    EXPECT_LT(c["worst"].get<double>(), 1e-4);
  };
  const json c = PyJson("print(json.dumps(compare(first_grid('" + out + "'), reference('" + mesh + "', 0.04), 1e-6)))\n");
  expectSame(c);
  EXPECT_GT(c["want"].get<int64_t>(), 100000);
  EXPECT_EQ(c["class"][0], "level set");
  EXPECT_NEAR(c["voxel"][0].get<double>(), 0.04, 1e-12);
  EXPECT_NEAR(c["background"][0].get<double>(), c["background"][1].get<double>(), 1e-7);

  // vdb_tool's conversion of the same file agrees as well.
  const std::string theirs = dir + "/vdb_tool.vdb";
  auto v = zvtest::Run({"/usr/bin/vdb_tool", "-read", mesh, "-mesh2ls", "voxel=0.04", "width=3", "-write", theirs});
  ASSERT_EQ(v.status, 0) << v.err;
  expectSame(PyJson("print(json.dumps(compare(first_grid('" + out + "'), first_grid('" + theirs + "'), 1e-6)))\n"));
}

TEST(Mesh2Vol, BandsFillUnsignedAndDim) {
  const std::string dir = zvtest::TempDir();
  auto info = [&](const std::string& path) {
    auto r = Zvol({"info", path, "--json"});
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out)["grids"][0];
  };
  // --dim counts voxels along the longest side (6.541662 for the knot, along y).
  ASSERT_EQ(Zvol({"mesh2vol", kKnot, "--dim", "64", "-o", dir + "/d.vdb"}).status, 0);
  const json d = info(dir + "/d.vdb");
  EXPECT_NEAR(d["voxel_size"][0].get<double>(), 6.541662 / 64, 1e-6);
  EXPECT_EQ(d["name"], "knot");

  // Asymmetric bands; a filled inside reaches the tube's centre line at (3, 0, 0).
  ASSERT_EQ(Zvol({"mesh2vol", kKnot, "--voxel-size", "0.05", "--exterior", "5", "--interior", "2", "-o", dir + "/b.vdb"}).status, 0);
  const json b = info(dir + "/b.vdb");
  EXPECT_NEAR(b["background"].get<double>(), 0.25, 1e-6);
  EXPECT_GT(b["value_range"][0].get<double>(), -0.1);
  ASSERT_EQ(Zvol({"mesh2vol", kKnot, "--voxel-size", "0.05", "--fill", "-o", dir + "/f.vdb"}).status, 0);
  const json f = PyJson("g = first_grid('" + dir + "/f.vdb')\n"
                        "v, on = g.getConstAccessor().probeValue(tuple(int(round(c)) for c in g.transform.worldToIndex((3, 0, 0))))\n"
                        "print(json.dumps({'v': v, 'on': on}))\n");
  EXPECT_TRUE(f["on"].get<bool>());
  EXPECT_NEAR(f["v"].get<double>(), -0.44, 0.03);
  EXPECT_EQ(Zvol({"mesh2vol", kKnot, "--voxel-size", "0.05", "--fill", "--interior", "2", "-o", dir + "/x.vdb"}).status, 2);

  // Open meshes: unsigned distances have no sign; closing the hole gives the closed cube's field.
  Write(dir + "/open.obj", CubeObj("0.05 0.05 0.05", 1));
  Write(dir + "/closed.obj", CubeObj("0.05 0.05 0.05"));
  ASSERT_EQ(Zvol({"mesh2vol", dir + "/open.obj", "--voxel-size", "0.1", "--unsigned", "-o", dir + "/u.vdb"}).status, 0);
  EXPECT_GE(info(dir + "/u.vdb")["value_range"][0].get<double>(), 0.0);
  ASSERT_EQ(Zvol({"mesh2vol", dir + "/open.obj", "--voxel-size", "0.1", "--close-holes", "-o", dir + "/c.vdb"}).status, 0);
  ASSERT_EQ(Zvol({"mesh2vol", dir + "/closed.obj", "--voxel-size", "0.1", "-o", dir + "/k.vdb"}).status, 0);
  const json c = PyJson("print(json.dumps(compare(first_grid('" + dir + "/c.vdb'), first_grid('" + dir + "/k.vdb'), 1e-5)))\n");
  EXPECT_EQ(c["got"], c["want"]);
  EXPECT_EQ(c["differ"], 0);
  // Without closing, an open mesh still converts (OpenVDB decides its inside).
  EXPECT_EQ(Zvol({"mesh2vol", dir + "/open.obj", "--voxel-size", "0.1", "-o", dir + "/o.vdb"}).status, 0);
}

TEST(Mesh2Vol, PolygonsOfMoreCornersAndGltfScenes) {
  const std::string dir = zvtest::TempDir();
  // An L-shaped prism whose caps are single concave hexagons.
  const char* l = "v 0 0 0\nv 2 0 0\nv 2 1 0\nv 1 1 0\nv 1 2 0\nv 0 2 0\n"
                  "v 0 0 1\nv 2 0 1\nv 2 1 1\nv 1 1 1\nv 1 2 1\nv 0 2 1\n";
  std::string ngon = std::string(l) + "f 1 6 5 4 3 2\nf 7 8 9 10 11 12\n";
  std::string split = std::string(l) + "f 1 6 4\nf 6 5 4\nf 1 4 2\nf 4 3 2\nf 7 10 12\nf 12 10 11\nf 7 8 10\nf 8 9 10\n";
  for (int i = 0; i < 6; ++i) {
    const int a = i + 1, b = (i + 1) % 6 + 1;
    const std::string side = "f " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(b + 6) + " " +
                             std::to_string(a + 6) + "\n";
    ngon += side;
    split += side;
  }
  Write(dir + "/ngon.obj", ngon);
  Write(dir + "/split.obj", split);
  ASSERT_EQ(Zvol({"mesh2vol", dir + "/ngon.obj", "--voxel-size", "0.05", "-o", dir + "/n.vdb"}).status, 0);
  const json n = PyJson("print(json.dumps(compare(first_grid('" + dir + "/n.vdb'), reference('" + dir +
                        "/split.obj', 0.05), 1e-5)))\n");
  EXPECT_EQ(n["got"], n["want"]);
  EXPECT_EQ(n["differ"], 0);

  // A glTF scene: an indexed triangle cube under a node moved by (0, 0, 5) and scaled by 2.
  auto made = Python(
      "import base64, json, struct\n"
      "v = [(x, y, z) for z in (0, 1) for y in (0, 1) for x in (0, 1)]\n"
      "q = [(0,2,3,1),(4,5,7,6),(0,1,5,4),(2,6,7,3),(0,4,6,2),(1,3,7,5)]\n"
      "t = [i for a,b,c,d in q for i in (a,b,c,a,c,d)]\n"
      "vb = b''.join(struct.pack('<3f', *p) for p in v); ib = struct.pack('<%dH' % len(t), *t)\n"
      "buf = vb + ib\n"
      "doc = {'asset': {'version': '2.0'}, 'scene': 0, 'scenes': [{'nodes': [0]}],\n"
      " 'nodes': [{'mesh': 0, 'translation': [0, 0, 5], 'scale': [2, 2, 2]}],\n"
      " 'meshes': [{'primitives': [{'attributes': {'POSITION': 0}, 'indices': 1}]}],\n"
      " 'buffers': [{'byteLength': len(buf), 'uri': 'data:application/octet-stream;base64,' + base64.b64encode(buf).decode()}],\n"
      " 'bufferViews': [{'buffer': 0, 'byteOffset': 0, 'byteLength': len(vb)}, {'buffer': 0, 'byteOffset': len(vb), 'byteLength': len(ib)}],\n"
      " 'accessors': [{'bufferView': 0, 'componentType': 5126, 'count': 8, 'type': 'VEC3', 'min': [0,0,0], 'max': [1,1,1]},\n"
      "               {'bufferView': 1, 'componentType': 5123, 'count': len(t), 'type': 'SCALAR'}]}\n"
      "json.dump(doc, open('" + dir + "/cube.gltf', 'w'))\n");
  ASSERT_EQ(made.status, 0) << made.err;
  Write(dir + "/cube.obj", "v 0 0 5\nv 2 0 5\nv 0 2 5\nv 2 2 5\nv 0 0 7\nv 2 0 7\nv 0 2 7\nv 2 2 7\n"
                           "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\n");
  auto g = Zvol({"mesh2vol", dir + "/cube.gltf", "--voxel-size", "0.1", "-o", dir + "/g.vdb"});
  ASSERT_EQ(g.status, 0) << g.err;
  ASSERT_EQ(Zvol({"mesh2vol", dir + "/cube.obj", "--voxel-size", "0.1", "-o", dir + "/o.vdb"}).status, 0);
  const json c = PyJson("print(json.dumps(compare(first_grid('" + dir + "/g.vdb'), first_grid('" + dir + "/o.vdb'), 1e-5)))\n");
  EXPECT_EQ(c["got"], c["want"]);
  EXPECT_EQ(c["differ"], 0);
}

TEST(Remesh, ClosedMeshKeepsItsShapeVolumeAndOutwardNormals) {
  const std::string dir = zvtest::TempDir();
  const json in = Measure(kKnot);
  ASSERT_GT(in["volume"].get<double>(), 19.0);
  double longest = 0;
  for (int i = 0; i < 3; ++i) longest = std::max(longest, in["hi"][i].get<double>() - in["lo"][i].get<double>());
  const double voxel = longest / 256;
  for (const char* ext : {".obj", ".ply", ".stl"}) {
    SCOPED_TRACE(ext);
    const std::string out = dir + "/knot" + ext;
    auto r = Zvol({"remesh", kKnot, "--dim", "256", "-o", out});
    ASSERT_EQ(r.status, 0) << r.err;
    const json m = Measure(out);
    EXPECT_GT(m["volume"].get<double>(), 0.0);
    EXPECT_NEAR(m["volume"].get<double>(), in["volume"].get<double>(), 0.02 * in["volume"].get<double>());
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(m["lo"][i].get<double>(), in["lo"][i].get<double>(), voxel);
      EXPECT_NEAR(m["hi"][i].get<double>(), in["hi"][i].get<double>(), voxel);
    }
  }
  // Adaptivity thins the mesh and keeps it closed and outward.
  ASSERT_EQ(Zvol({"remesh", kKnot, "--dim", "128", "--adaptivity", "0.5", "-o", dir + "/a.obj"}).status, 0);
  ASSERT_EQ(Zvol({"remesh", kKnot, "--dim", "128", "-o", dir + "/u.obj"}).status, 0);
  const json a = Measure(dir + "/a.obj"), u = Measure(dir + "/u.obj");
  EXPECT_LT(a["faces"].get<int>(), u["faces"].get<int>() * 3 / 4);
  EXPECT_NEAR(a["volume"].get<double>(), u["volume"].get<double>(), 0.1 * u["volume"].get<double>());
}

TEST(Vol2Mesh, MeshesWhereTheGridIsLikeVdbTool) {
  const std::string dir = zvtest::TempDir();
  const std::string s = dir + "/s.vdb";
  ASSERT_EQ(Zvol({"sphere", "--radius", "1", "--center", "0.5,0,2", "--voxel-size", "0.05", "-o", s}).status, 0);
  auto r = Zvol({"vol2mesh", s, "-o", dir + "/s.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  const json m = Measure(dir + "/s.obj");
  EXPECT_NEAR(m["volume"].get<double>(), 4.0 / 3.0 * M_PI, 0.05);
  EXPECT_NEAR(m["lo"][2].get<double>(), 1.0, 0.01);
  EXPECT_NEAR(m["hi"][2].get<double>(), 3.0, 0.01);
  EXPECT_NEAR(m["lo"][0].get<double>(), -0.5, 0.01);

  // The same points as vdb_tool's mesh of the file: each of ours has one of theirs in reach.
  auto v = zvtest::Run({"/usr/bin/vdb_tool", "-read", s, "-ls2mesh", "-write", dir + "/v.obj"});
  ASSERT_EQ(v.status, 0) << v.err;
  const json same = PyJson("a, fa = read_mesh('" + dir + "/s.obj'); b, fb = read_mesh('" + dir + "/v.obj')\n"
                           "d = max(float(np.sqrt(((b - p) ** 2).sum(1)).min()) for p in a)\n"
                           "print(json.dumps({'n': [len(a), len(b)], 'f': [len(fa), len(fb)], 'd': d}))\n");
  EXPECT_EQ(same["n"][0], same["n"][1]);
  EXPECT_EQ(same["f"][0], same["f"][1]);
  EXPECT_LT(same["d"].get<double>(), 1e-5);

  // The OBJ keeps the mesh's UVs, one per corner; an STL, which has no place
  // for them, gets the same faces from a mesh made without them.
  std::ifstream obj(dir + "/s.obj");
  size_t uvLines = 0;
  for (std::string line; std::getline(obj, line);) uvLines += line.rfind("vt ", 0) == 0;
  EXPECT_GE(uvLines, m["faces"].get<size_t>());
  ASSERT_EQ(Zvol({"vol2mesh", s, "-o", dir + "/s.stl"}).status, 0);
  const json stl = Measure(dir + "/s.stl");
  EXPECT_NEAR(stl["volume"].get<double>(), m["volume"].get<double>(), 1e-5);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(stl["lo"][i].get<double>(), m["lo"][i].get<double>(), 1e-6);

  // Iso value, adaptivity and the grid chosen by name or index.
  ASSERT_EQ(Zvol({"vol2mesh", s, "--iso", "0.1", "--grid", "sphere", "-o", dir + "/i.obj"}).status, 0);
  EXPECT_NEAR(Measure(dir + "/i.obj")["hi"][2].get<double>(), 3.1, 0.01);
  ASSERT_EQ(Zvol({"vol2mesh", s, "--adaptivity", "0.8", "--grid", "0", "-o", dir + "/a.ply"}).status, 0);
  const json a = Measure(dir + "/a.ply");
  EXPECT_LT(a["faces"].get<int>(), m["faces"].get<int>() / 2);
  EXPECT_GT(a["volume"].get<double>(), 3.6);
  ExpectFailure(Zvol({"vol2mesh", s, "--grid", "nope", "-o", dir + "/x.obj"}), dir + "/x.obj", "no grid 'nope'");
  ExpectFailure(Zvol({"vol2mesh", s, "--iso", "5", "-o", dir + "/x.obj"}), dir + "/x.obj", "no surface");

  // Grids of other value types are not meshed.
  auto made = Python("import pyopenvdb as vdb\n"
                     "d = vdb.Vec3SGrid(); d.name = 'velocity'; d.fill((-4, -4, -4), (4, 4, 4), (1, 0, 0))\n"
                     "vdb.write('" + dir + "/v.vdb', grids=[d])\n");
  ASSERT_EQ(made.status, 0) << made.err;
  ExpectFailure(Zvol({"vol2mesh", dir + "/v.vdb", "-o", dir + "/x.obj"}), dir + "/x.obj", "only float grids");
  EXPECT_EQ(Zvol({"vol2mesh", s, "-o", dir + "/x.fbx"}).status, 2);
}

TEST(MeshVerbs, BadInputGivesOneErrorAndNoOutput) {
  const std::string dir = zvtest::TempDir();
  const std::string out = dir + "/out.vdb";
  ExpectFailure(Zvol({"mesh2vol", dir + "/missing.obj", "--voxel-size", "0.1", "-o", out}), out, "could not be found");
  Write(dir + "/junk.obj", std::string("\x01\x02garbage\xff\xfe", 12));
  ExpectFailure(Zvol({"mesh2vol", dir + "/junk.obj", "--voxel-size", "0.1", "-o", out}), out, "junk.obj");
  Write(dir + "/empty.obj", "# nothing\n");
  ExpectFailure(Zvol({"mesh2vol", dir + "/empty.obj", "--voxel-size", "0.1", "-o", out}), out, "empty.obj");
  Write(dir + "/nan.obj", "v 0 0 0\nv 1 0 0\nv nan 1 0\nv 0 0 1\nf 1 2 3\nf 1 2 4\nf 1 3 4\nf 2 3 4\n");
  ExpectFailure(Zvol({"mesh2vol", dir + "/nan.obj", "--voxel-size", "0.1", "-o", out}), out, "not a finite position");
  Write(dir + "/index.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\nf 1 2 9\n");
  ExpectFailure(Zvol({"mesh2vol", dir + "/index.obj", "--voxel-size", "0.1", "-o", out}), out, "index.obj");
  Write(dir + "/index.ply", "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                            "property float z\nelement face 2\nproperty list uchar int vertex_indices\nend_header\n"
                            "0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 1 2\n4 0 7 3 1\n");
  ExpectFailure(Zvol({"remesh", dir + "/index.ply", "--voxel-size", "0.1", "-o", dir + "/r.obj"}), dir + "/r.obj",
                "Index 7 of polygon 1 is out of bounds");

  // Usage errors: no resolution, both, a format that is not written.
  EXPECT_EQ(Zvol({"mesh2vol", kKnot, "-o", out}).status, 2);
  EXPECT_EQ(Zvol({"mesh2vol", kKnot, "--dim", "10", "--voxel-size", "0.1", "-o", out}).status, 2);
  EXPECT_EQ(Zvol({"remesh", kKnot, "--dim", "10", "-o", dir + "/r.fbx"}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(out));

  // A failed run leaves a file that was there as it was, and the input untouched.
  Write(out, "keep");
  const std::string before = Slurp(dir + "/index.obj");
  EXPECT_EQ(Zvol({"mesh2vol", dir + "/index.obj", "--voxel-size", "0.1", "-o", out}).status, 1);
  EXPECT_EQ(Slurp(out), "keep");
  EXPECT_EQ(Slurp(dir + "/index.obj"), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 6);
}

TEST(MeshVerbs, CtrlCStopsCleanly) {
  const std::string dir = zvtest::TempDir();
  const std::string out = dir + "/big.obj", zvol = std::string(ZV_BIN_DIR) + "/zvol";
  std::vector<std::string> args{zvol, "--threads", "1", "remesh", kKnot, "--dim", "1200", "-o", out};
  const std::string err = dir + "/err";
  const pid_t pid = zvtest::Spawn(args, {.err = err});
  ASSERT_GT(pid, 0);
  // Stop it in the middle of the conversion, which takes far longer than this at that size. Under a
  // sanitizer the program's start alone can take that long, and a Ctrl-C then ends it by the signal.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  std::this_thread::sleep_for(std::chrono::milliseconds(8000));
#else
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
#endif
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  EXPECT_EQ(Slurp(err), "error: interrupted\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 1);
}
