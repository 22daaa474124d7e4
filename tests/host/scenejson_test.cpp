// The JSON form of scenes: the same document as the native form, node ids,
// links and tree order included; scenes written by hand (names, symbols,
// inline geometry, mesh files, the right-handed frame); and one error that
// names the place for each kind of bad input.
#include <gtest/gtest.h>

#include <cstring>

#include "host/scene/scenejson.h"
#include "scenefixture.h"

namespace {

std::unique_ptr<BaseDocument> FromJson(const std::string& text, const SceneJsonReadOptions& options = {}) {
  auto r = LoadDocumentJsonFromString(text, options);
  EXPECT_TRUE(r) << r.GetError().GetMessage();
  return r ? std::move(r.GetValue()) : nullptr;
}

std::string ToJson(const BaseDocument& doc) {
  auto r = SaveDocumentJsonToString(doc, HYPERFILE_KIND_SCENE);
  EXPECT_TRUE(r) << r.GetError().GetMessage();
  return r ? r.GetValue() : std::string();
}

std::string JsonError(const std::string& text, const SceneJsonReadOptions& options = {}) {
  auto r = LoadDocumentJsonFromString(text, options);
  EXPECT_FALSE(r) << text;
  return r ? std::string() : r.GetError().GetMessage();
}

}  // namespace

TEST(SceneJson, EveryTypeRoundTripsAndSaysWhatTheNativeFormSays) {
  Plugins plugins;
  auto doc = MakeScene();
  const std::string expected = Dump()(*doc);

  // Document to JSON and back: equal by the full dump; written again, the same text.
  const std::string text = ToJson(*doc);
  auto back = FromJson(text);
  ASSERT_TRUE(back);
  EXPECT_EQ(zvtest::FirstDifference(Dump()(*back), expected), "");
  EXPECT_EQ(ToJson(*back), text);
  EXPECT_EQ(back->GetActiveObject(), Find(back.get(), "sphere"));
  // The plug-in read its own data at the level it registered.
  EXPECT_EQ(Find(back.get(), "set")->GetNodeData<GroupData>()->readLevel, 2);

  // Native to JSON to native gives the native bytes again.
  const std::vector<char> native = SaveDocumentToMemory(*doc, HYPERFILE_KIND_SCENE).GetValue();
  auto fromNative = Load(native);
  ASSERT_TRUE(fromNative);
  auto viaJson = FromJson(ToJson(*fromNative));
  ASSERT_TRUE(viaJson);
  EXPECT_EQ(SaveDocumentToMemory(*viaJson, HYPERFILE_KIND_SCENE).GetValue(), native);

  // On disk, with the save events and the document's path.
  const std::string dir = zvtest::TempDir();
  g_hook = {};
  ASSERT_TRUE(SaveDocumentJson(doc.get(), dir + "/all.json"));
  EXPECT_EQ(g_hook.events.front(), "object 1006");
  EXPECT_EQ(g_hook.events.back(), "hook 1007 all.json");
  EXPECT_EQ(g_hook.writtenKinds, std::vector<Int32>{HYPERFILE_KIND_SCENE});
  auto loaded = LoadDocumentJson(dir + "/all.json");
  ASSERT_TRUE(loaded) << loaded.GetError().GetMessage();
  EXPECT_EQ(zvtest::FirstDifference(Dump()(*loaded.GetValue()), expected), "");
  EXPECT_EQ(loaded.GetValue()->GetDocumentPath(), dir);
  EXPECT_EQ(loaded.GetValue()->GetDocumentName(), "all.json");

  // Nodes of missing plug-ins and custom values of a missing class keep their bytes.
  std::unique_ptr<BaseDocument> opaque;
  {
    UnregisterTestPlugins();
    opaque = FromJson(text);
    RegisterTestPlugins();
  }
  ASSERT_TRUE(opaque);
  EXPECT_NE(dynamic_cast<OpaqueNodeData*>(Find(opaque.get(), "set")->GetNodeData()), nullptr);
  UnregisterTestPlugins();
  const std::string opaqueText = ToJson(*opaque);
  RegisterTestPlugins();
  auto whole = FromJson(opaqueText);
  ASSERT_TRUE(whole);
  EXPECT_EQ(zvtest::FirstDifference(Dump()(*whole), expected), "");

  // An empty document.
  auto empty = BaseDocument::Alloc();
  auto emptyBack = FromJson(ToJson(*empty));
  ASSERT_TRUE(emptyBack);
  EXPECT_EQ(zvtest::FirstDifference(SceneDump()(*emptyBack), SceneDump()(*empty)), "");
}

TEST(SceneJson, LinksResolveAfterReloadAndAfterAClone) {
  Plugins plugins;
  auto doc = MakeScene();
  auto back = FromJson(ToJson(*doc));
  ASSERT_TRUE(back);
  CheckLinks(back.get(), "reloaded");
  std::unique_ptr<BaseDocument> clone(static_cast<BaseDocument*>(back->GetClone().release()));
  CheckLinks(clone.get(), "document clone");
  // A clone of the sphere points its item tree's row at the copy.
  BaseObject* sphere = Find(back.get(), "sphere");
  auto copy = sphere->GetClone(COPYFLAGS_NO_HIERARCHY);
  auto tree = copy->GetDataInstance()->GetCustomDataTyped<ItemTree>(20);
  ASSERT_TRUE(tree);
  EXPECT_EQ(tree->GetFirst()->GetLink().GetLink(nullptr), copy.get());
  EXPECT_EQ(tree->GetFirst()->GetDown()->GetLink().GetLink(back.get()), Find(back.get(), "member"));

  // Links name objects by path, or by id where a path is not unique.
  const std::string text = ToJson(*doc);
  EXPECT_NE(text.find("\"link\": \"sphere\""), std::string::npos);
  auto twin = MakeScene();
  Add(twin.get(), BaseObject::Alloc(HOST_TYPE_NULL), "sphere");
  const std::string twinText = ToJson(*twin);
  EXPECT_EQ(twinText.find("\"link\": \"sphere\""), std::string::npos);
  auto twinBack = FromJson(twinText);
  ASSERT_TRUE(twinBack);
  CheckLinks(twinBack.get(), "twins");
}

TEST(SceneJson, ScenesWrittenByHand) {
  const std::string dir = zvtest::TempDir();
  // A right-handed triangle facing +z in the file.
  std::ofstream(dir + "/tri.obj") << "v 0 0 1\nv 1 0 1\nv 0 1 1\nf 1 2 3\n";
  const std::string text = R"({
    "document": {"fps": 24, "time": 0.5, "parameters": {"DOCUMENT_DOCUNIT": {"unit": "m"}}},
    "objects": [
      {"type": "Onull", "name": "group", "position": [1, 2, 3], "children": [
        {"type": "Osphere", "name": "ball", "parameters": {"PRIM_SPHERE_RAD": 2, "1111": 12, "PRIM_SPHERE_TYPE": "PRIM_SPHERE_TYPE_ICOSA"},
         "tags": [{"type": "Tphong", "parameters": {"PHONGTAG_PHONG_ANGLELIMIT": false}}]},
        {"type": "Opolygon", "name": "quad", "points": [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]], "polygons": [[0, 1, 2, 3]],
         "tags": [{"type": "Tvertexmap", "weights": [0, 0.5, 1, 0.25]}]}
      ]},
      {"type": "Ospline", "name": "path", "parameters": {"SPLINEOBJECT_TYPE": "SPLINEOBJECT_TYPE_CUBIC"},
       "points": [[0, 0, 0], [1, 0, 1], [2, 0, 0], [5, 5, 5]], "segments": [[3, false], [1, true]]},
      {"type": "Oparticlegroup", "name": "dust", "particles": {"positions": [[0, 0, 1], [0, 0, 2]], "radius": 0.5}},
      {"file": "tri.obj", "name": "mesh"},
      {"type": "Ofield", "name": "fields", "parameters": {"FIELDOBJECT_FIELDS": [
        {"type": "spherical", "radius": 3, "link": "group/ball", "blend": "max"},
        {"type": "noise", "seed": 4}]}},
      {"type": "Onull", "name": "pointer", "parameters": {"1": {"link": "group/quad"}, "2": 7, "3": 2.5, "4": {"int64": 5}}}
    ]
  })";
  SceneJsonReadOptions options;
  options.baseFolder = dir;
  auto doc = FromJson(text, options);
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->GetFps(), 24);
  EXPECT_EQ(doc->GetTime(), BaseTime(1, 2));
  EXPECT_EQ(GetDocumentUnit(doc.get()).GetUnit(), DOCUMENTUNIT::M);

  BaseObject* group = doc->SearchObject("group");
  ASSERT_NE(group, nullptr);
  EXPECT_EQ(group->GetMl().off, Vector(1, 2, -3));  // the file's z, mirrored
  BaseObject* ball = doc->SearchObject("ball");
  ASSERT_NE(ball, nullptr);
  EXPECT_EQ(ball->GetUp(), group);
  EXPECT_EQ(ball->GetDataInstance()->GetFloat(PRIM_SPHERE_RAD), 2.0);
  EXPECT_EQ(ball->GetDataInstance()->GetData(PRIM_SPHERE_RAD).GetType(), DATATYPE::FLOAT);
  EXPECT_EQ(ball->GetDataInstance()->GetInt32(PRIM_SPHERE_SUB), 12);
  EXPECT_EQ(ball->GetDataInstance()->GetInt32(PRIM_SPHERE_TYPE), PRIM_SPHERE_TYPE_ICOSA);
  ASSERT_NE(ball->GetTag(HOST_TAG_PHONG), nullptr);
  EXPECT_FALSE(ball->GetTag(HOST_TAG_PHONG)->GetDataInstance()->GetBool(PHONGTAG_PHONG_ANGLELIMIT, true));

  auto* quad = static_cast<PolygonObject*>(doc->SearchObject("quad"));
  ASSERT_EQ(quad->GetPolygonCount(), 1);
  EXPECT_EQ(quad->GetPolygonR()[0], CPolygon(3, 2, 1, 0));  // the winding turns with the mirror
  auto* weights = static_cast<VertexMapTag*>(quad->GetTag(HOST_TAG_VERTEXMAP));
  ASSERT_NE(weights, nullptr);
  EXPECT_EQ(weights->GetDataAddressR()[1], 0.5f);
  EXPECT_EQ(quad->GetFirstTag()->GetType(), HOST_TAG_POINT);  // the object's own tags stay in front

  auto* path = static_cast<SplineObject*>(doc->SearchObject("path"));
  EXPECT_EQ(path->GetInterpolationType(), SPLINETYPE::CUBIC);
  EXPECT_EQ(path->GetPointR()[1], Vector(1, 0, -1));
  ASSERT_EQ(path->GetSegmentCount(), 2);
  EXPECT_TRUE(path->GetSegment(1).closed);

  auto* dust = static_cast<ParticleGroupObject*>(doc->SearchObject("dust"));
  ASSERT_EQ(dust->GetParticleCount(), 2);
  EXPECT_EQ(dust->GetPositions()[1], Vector(0, 0, -2));
  EXPECT_EQ(dust->GetRadii()[0], 0.5);

  // The mesh file lies where OBJ readers put it: same place as inline points would.
  auto* mesh = static_cast<PolygonObject*>(doc->SearchObject("mesh"));
  ASSERT_NE(mesh, nullptr);
  ASSERT_EQ(mesh->GetPointCount(), 3);
  EXPECT_EQ(mesh->GetPointR()[0].z, -1.0);
  auto inlineTri = FromJson(R"({"objects": [{"type": "Opolygon", "points": [[0, 0, 1], [1, 0, 1], [0, 1, 1]], "polygons": [[0, 1, 2]]}]})");
  auto* tri = static_cast<PolygonObject*>(inlineTri->GetFirstObject());
  const CPolygon a = mesh->GetPolygonR()[0], b = tri->GetPolygonR()[0];
  EXPECT_TRUE(a.IsTriangle() && b.IsTriangle());
  EXPECT_TRUE((a.a == b.a && a.b == b.b) || (a.a == b.b && a.b == b.c) || (a.a == b.c && a.b == b.a))
      << a.a << a.b << a.c << " " << b.a << b.b << b.c;

  auto fields = static_cast<FieldObject*>(doc->SearchObject("fields"))->GetFieldList();
  ASSERT_EQ(fields->GetLayerCount(), 2);
  EXPECT_EQ(fields->GetLayer(0)->GetLinkedObject().GetLink(doc.get()), ball);
  EXPECT_EQ(fields->GetLayer(0)->GetBlend(), FIELDBLEND::MAX);
  EXPECT_EQ(static_cast<const NoiseFieldLayer*>(fields->GetLayer(1))->GetSeed(), 4);

  const BaseContainer* p = doc->SearchObject("pointer")->GetDataInstance();
  EXPECT_EQ(p->GetLink(1, doc.get()), quad);
  EXPECT_EQ(p->GetData(2).GetType(), DATATYPE::INT32);
  EXPECT_EQ(p->GetData(3).GetType(), DATATYPE::FLOAT);
  EXPECT_EQ(p->GetData(4).GetType(), DATATYPE::INT64);

  // Written back and read again, the hand-written scene means the same.
  auto again = FromJson(ToJson(*doc));
  ASSERT_TRUE(again);
  EXPECT_EQ(zvtest::FirstDifference(SceneDump()(*again), SceneDump()(*doc)), "");
}

TEST(SceneJson, BadInputGivesOneErrorNamingThePlace) {
  // Unknown types, parameters and keys.
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Oteapot"}]})"), "objects[0].type: unknown object type 'Oteapot'");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "children": [{"type": 77}]}]})"),
            "objects[0].children[0].type: unknown object type 77");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "tags": [{"type": "Osphere"}]}]})"),
            "objects[0].tags[0].type: unknown tag type 'Osphere'");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Osphere", "parameters": {"RADIUS": 1}}]})"),
            "objects[0].parameters.RADIUS: unknown parameter");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Osphere", "colour": [1, 0, 0]}]})"), "objects[0].colour: unknown key");
  // Wrong value types.
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull"}, {"type": "Onull", "children": [{"type": "Osphere", "parameters": {"PRIM_SPHERE_RAD": "big"}}]}]})"),
            "objects[1].children[0].parameters.PRIM_SPHERE_RAD: expected a number");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Osphere", "parameters": {"PRIM_SPHERE_TYPE": "ROUND"}}]})"),
            "objects[0].parameters.PRIM_SPHERE_TYPE: 'ROUND' is not a value of PRIM_SPHERE_TYPE");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "matrix": {"off": [1, 2]}}]})"), "objects[0].matrix.off: expected [x, y, z]");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Opolygon", "points": [[0, 0, 0]], "polygons": [[0, 0, 1]]}]})"),
            "objects[0].polygons[0][2]: point 1 is not one of the object's 1 points");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "points": []}]})"), "objects[0].points: a node of this type has no points");
  EXPECT_EQ(JsonError(R"({"document": {"fps": 0}})"), "document.fps: a frame rate of 0 is not valid");
  // Broken links.
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "parameters": {"1": {"link": "nowhere"}}}]})"),
            "objects[0].parameters.1.link: the link names 'nowhere', which is no object of the scene");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "name": "a"}, {"type": "Onull", "name": "a"}], "document": {"active": "a"}})"),
            "document.active: the link names 'a', which more than one object has as its path");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "parameters": {"1": {"link": "#999999999"}}}]})"),
            "objects[0].parameters.1.link: the link names #999999999, which is no node of the scene");
  // Ids, versions, syntax, missing files.
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "id": 5}, {"type": "Onull", "id": 5}]})"),
            "objects[1].id: the node id 5 is used twice");
  EXPECT_EQ(JsonError(R"({"version": 2})"), "version: scene format version 2 is newer than this program reads (1)");
  EXPECT_EQ(JsonError(R"({"objects": [}")").rfind("not valid JSON: parse error at line 1, column 14", 0), 0u);
  EXPECT_EQ(JsonError(R"([1, 2])"), "expected an object");
  const std::string dir = zvtest::TempDir();
  SceneJsonReadOptions options;
  options.baseFolder = dir;
  EXPECT_EQ(JsonError(R"({"objects": [{"file": "bunny.obj"}]})", options),
            "objects[0].file: File could not be found: " + dir + "/bunny.obj");
  options.readFiles = false;
  EXPECT_EQ(JsonError(R"({"objects": [{"file": "bunny.obj"}]})", options), "objects[0].file: files are not read here");

  // On disk the file comes first; a failed save keeps the file that stood there.
  std::ofstream(dir + "/bad.json") << R"({"objects": [{"type": "Oteapot"}]})";
  auto bad = LoadDocumentJson(dir + "/bad.json");
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.GetError().GetMessage(), dir + "/bad.json: objects[0].type: unknown object type 'Oteapot'");
  EXPECT_EQ(LoadDocumentJson(dir + "/none.json").GetError().GetMessage(), "File could not be found: " + dir + "/none.json");
  Plugins plugins;
  auto doc = MakeScene();
  ASSERT_TRUE(SaveDocumentJson(doc.get(), dir + "/scene.json"));
  std::ifstream in(dir + "/scene.json");
  const std::string good((std::istreambuf_iterator<char>(in)), {});
  g_hook = {};
  g_hook.failWrite = true;
  auto failed = SaveDocumentJson(doc.get(), dir + "/scene.json");
  g_hook = {};
  ASSERT_FALSE(failed);
  EXPECT_NE(failed.GetError().GetMessage().find("could not be written"), std::string::npos) << failed.GetError().GetMessage();
  std::ifstream after(dir + "/scene.json");
  EXPECT_EQ(std::string((std::istreambuf_iterator<char>(after)), {}), good);
}

TEST(SceneJson, ExampleScenesLoadAndRoundTrip) {
  size_t count = 0;
  for (const auto& e : std::filesystem::directory_iterator(std::string(ZV_SOURCE_DIR) + "/examples/scenes")) {
    if (e.path().extension() != ".json") continue;
    SCOPED_TRACE(e.path().string());
    ++count;
    auto doc = LoadDocumentJson(e.path().string());
    ASSERT_TRUE(doc) << doc.GetError().GetMessage();
    EXPECT_NE(doc.GetValue()->GetFirstObject(), nullptr);
    auto again = FromJson(ToJson(*doc.GetValue()));
    ASSERT_TRUE(again);
    EXPECT_EQ(zvtest::FirstDifference(SceneDump()(*again), SceneDump()(*doc.GetValue())), "");
  }
  EXPECT_GE(count, 3u);
}

TEST(SceneJson, TheDocumentedExampleLoads) {
  std::ifstream in(std::string(ZV_SOURCE_DIR) + "/docs/scene-format.md");
  const std::string doc((std::istreambuf_iterator<char>(in)), {});
  const size_t start = doc.find("```json\n");
  ASSERT_NE(start, std::string::npos);
  const size_t end = doc.find("```", start + 8);
  const std::string text = doc.substr(start + 8, end - start - 8);
  const std::string dir = zvtest::TempDir();
  std::filesystem::create_directories(dir + "/meshes");
  std::ofstream(dir + "/meshes/bunny.obj") << "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 3 2\nf 1 2 4\nf 1 4 3\nf 2 3 4\n";
  SceneJsonReadOptions options;
  options.baseFolder = dir;
  auto scene = FromJson(text, options);
  ASSERT_TRUE(scene);
  EXPECT_EQ(scene->GetActiveObject(), scene->SearchObject("ball"));
  EXPECT_EQ(static_cast<PolygonObject*>(scene->SearchObject("bunny"))->GetPolygonCount(), 4);
  const BaseContainer* settings = scene->SearchObject("settings")->GetDataInstance();
  auto tree = settings->GetCustomDataTyped<ItemTree>(10);
  ASSERT_TRUE(tree);
  EXPECT_EQ(tree->GetFirst()->GetDown()->GetLink().GetLink(scene.get()), scene->SearchObject("path"));
  EXPECT_EQ(settings->GetContainerInstance(8)->GetLink(1, scene.get()), scene->SearchObject("path"));
  auto again = FromJson(ToJson(*scene));
  ASSERT_TRUE(again);
  EXPECT_EQ(zvtest::FirstDifference(SceneDump()(*again), SceneDump()(*scene)), "");
}

TEST(SceneJson, SplinesAndParticlesFromPointFiles) {
  const std::string dir = zvtest::TempDir();
  std::ofstream(dir + "/path.csv") << "# a path\n0, 0, 1\n1, 0, 2\n2, 1, 3\n";
  std::ofstream(dir + "/dust.csv") << "x;y;z;radius;vx;vy;vz\n0;0;1;0.5;0;0;1\n1;2;3;0.25;0;1;0\n";
  std::ofstream(dir + "/dust.ply") << "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\n"
                                      "property float z\nproperty float radius\nend_header\n0 0 1 2\n4 5 6 3\n";
  {
    // The same two points in binary, big-endian doubles, with a face element after them.
    std::ofstream out(dir + "/bin.ply", std::ios::binary);
    out << "ply\nformat binary_big_endian 1.0\nelement vertex 2\nproperty double x\nproperty double y\n"
           "property double z\nelement face 0\nproperty list uchar int vertex_indices\nend_header\n";
    for (double v : {0.0, 0.0, 1.0, 4.0, 5.0, 6.0}) {
      unsigned char b[8];
      std::memcpy(b, &v, 8);
      for (int i = 7; i >= 0; --i) out.put(char(b[i]));
    }
  }
  std::ofstream(dir + "/bad.csv") << "x,y,z\n1,2,3\n1,two,3\n";
  SceneJsonReadOptions options;
  options.baseFolder = dir;
  auto doc = FromJson(R"({"objects": [
      {"type": "Ospline", "name": "path", "file": "path.csv"},
      {"type": "Oparticlegroup", "name": "csv", "file": "dust.csv"},
      {"type": "Oparticlegroup", "name": "ply", "file": "dust.ply"},
      {"type": "Oparticlegroup", "name": "bin", "file": "bin.ply"}]})",
                      options);
  ASSERT_TRUE(doc);
  auto* path = static_cast<SplineObject*>(doc->SearchObject("path"));
  ASSERT_EQ(path->GetPointCount(), 3);
  EXPECT_EQ(path->GetPointR()[2], Vector(2, 1, -3));
  auto* csv = static_cast<ParticleGroupObject*>(doc->SearchObject("csv"));
  ASSERT_EQ(csv->GetParticleCount(), 2);
  EXPECT_EQ(csv->GetRadii()[1], 0.25);
  EXPECT_EQ(csv->GetVelocities()[0], Vector(0, 0, -1));
  auto* ply = static_cast<ParticleGroupObject*>(doc->SearchObject("ply"));
  ASSERT_EQ(ply->GetParticleCount(), 2);
  EXPECT_EQ(ply->GetPositions()[1], Vector(4, 5, -6));
  EXPECT_EQ(ply->GetRadii()[0], 2.0);
  auto* bin = static_cast<ParticleGroupObject*>(doc->SearchObject("bin"));
  ASSERT_EQ(bin->GetParticleCount(), 2);
  EXPECT_EQ(bin->GetPositions()[1], Vector(4, 5, -6));
  EXPECT_EQ(bin->GetRadii()[1], 1.0);

  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Ospline", "file": "bad.csv"}]})", options),
            "objects[0].file: " + dir + "/bad.csv: line 3: expected numbers");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Onull", "file": "path.csv"}]})", options),
            "objects[0].file: only polygon objects, splines, lines, particle groups and objects with a file parameter read files");
  EXPECT_EQ(JsonError(R"({"objects": [{"type": "Ospline", "file": "none.csv"}]})", options),
            "objects[0].file: File could not be found: " + dir + "/none.csv");
}

TEST(SceneJson, ErrorsStayOnOneLine) {
  // A key or a name with a line break in it is quoted with the break escaped.
  EXPECT_EQ(JsonError("{\"docu\\nment\": 1}"), "docu\\nment: unknown key");
  EXPECT_EQ(JsonError("{\"objects\": [{\"type\": \"O\\tx\"}]}"), "objects[0].type: unknown object type 'O\\tx'");
}

TEST(SceneJson, TheLargestIdsLeaveNewIdsAlone) {
  // An id at the top of the range is kept, and nodes made after it still get fresh, non-zero ids.
  auto doc = FromJson(R"({"objects": [{"type": "Onull", "id": 18446744073709551615}, {"type": "Onull"}]})");
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->GetFirstObject()->GetMarker(), ~UInt64(0));
  const UInt64 fresh = doc->GetFirstObject()->GetNext()->GetMarker();
  EXPECT_NE(fresh, 0u);
  EXPECT_NE(fresh, ~UInt64(0));
  EXPECT_NE(BaseObject::Alloc(HOST_TYPE_NULL)->GetMarker(), 0u);
}
