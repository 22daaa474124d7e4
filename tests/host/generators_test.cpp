// The host's own generators, the cloner and the subdivision surface, alone
// and nested, and the modelling commands that take the state they build.
#include <gtest/gtest.h>

#include "host/modeling/copytags.h"
#include "host/modeling/modeling.h"
#include "host/objects/cloner.h"
#include "host/objects/phongtag.h"
#include "host/objects/primitives.h"
#include "host/objects/subdivision.h"
#include "host/objects/uvwtag.h"
#include "testplugins.h"

using namespace zta;
using namespace hosttest;

namespace {

std::vector<Vector> Offsets(const BaseObject* root) {
  std::vector<Vector> out;
  for (const BaseObject* c = root ? root->GetDown() : nullptr; c; c = c->GetNext()) out.push_back(c->GetMl().off);
  return out;
}

void ExpectNear(const Vector& a, const Vector& b) {
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-9) << i;
}

std::unique_ptr<PolygonObject> Square() {
  auto q = PolygonObject::Alloc(4, 1);
  q->GetPointW()[1] = Vector(2, 0, 0);
  q->GetPointW()[2] = Vector(2, 2, 0);
  q->GetPointW()[3] = Vector(0, 2, 0);
  q->GetPolygonW()[0] = CPolygon(0, 1, 2, 3);
  return q;
}

}  // namespace

TEST(Generators, ClonerLinearGridAndRadial) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* cloner = Add(doc.get(), HOST_TYPE_CLONER, "cloner");
  BaseObject* sphere = Add(doc.get(), HOST_TYPE_SPHERE, "sphere", cloner);
  sphere->SetMl(MatrixMove(Vector(0, 0, 7)));
  Add(doc.get(), ID_PLAIN_VOLUME, "volume", cloner);

  // Linear, the default: three copies 50 apart, the children taken in turn.
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  BaseObject* cache = cloner->GetCache();
  ASSERT_NE(cache, nullptr);
  EXPECT_EQ(cache->GetName(), "cloner");
  const auto linear = Offsets(cache);
  ASSERT_EQ(linear.size(), 3u);
  ExpectNear(linear[0], Vector(0, 0, 7));
  ExpectNear(linear[1], Vector(0, 50, 0));
  ExpectNear(linear[2], Vector(0, 100, 7));
  EXPECT_EQ(cache->GetDown()->GetType(), HOST_TYPE_POLYGON);  // the sphere's current state
  EXPECT_NE(cache->GetDown()->GetTag(HOST_TAG_PHONG), nullptr);  // with its tags
  EXPECT_EQ(cache->GetDown()->GetNext()->GetType(), ID_PLAIN_VOLUME);
  EXPECT_TRUE(IsInputObject(sphere));

  // Steps of rotation and scale add up.
  cloner->GetDataInstance()->SetVector(CLONER_ROTATION, Vector(M_PI / 2, 0, 0));
  cloner->GetDataInstance()->SetVector(CLONER_SCALE, Vector(2, 1, 1));
  const std::vector<Matrix> steps = ClonerMatrices(*cloner->GetDataInstance());
  ExpectNear(steps[2].GetScale(), Vector(4, 1, 1));
  ExpectNear(steps[1].v3.GetNormalized(), Vector(1, 0, 0));

  BaseContainer grid;
  grid.SetInt32(CLONER_MODE, CLONER_MODE_GRID);
  grid.SetVector(CLONER_GRID_COUNT, Vector(2, 1, 2));
  grid.SetVector(CLONER_GRID_SPACING, Vector(100, 10, 100));
  const auto g = ClonerMatrices(grid);
  ASSERT_EQ(g.size(), 4u);
  ExpectNear(g[0].off, Vector(-50, 0, -50));
  ExpectNear(g[3].off, Vector(50, 0, 50));
  grid.SetVector(CLONER_GRID_COUNT, Vector(1000, 1000, 1000));
  EXPECT_TRUE(ClonerMatrices(grid).empty());  // past the limit: none rather than all memory

  BaseContainer radial;
  radial.SetInt32(CLONER_MODE, CLONER_MODE_RADIAL);
  radial.SetInt32(CLONER_RADIAL_COUNT, 4);
  radial.SetFloat(CLONER_RADIAL_RADIUS, 200.0);
  radial.SetInt32(CLONER_RADIAL_PLANE, CLONER_PLANE_XY);
  const auto r = ClonerMatrices(radial);
  ASSERT_EQ(r.size(), 4u);
  ExpectNear(r[1].off, Vector(0, 200, 0));
  radial.SetInt32(CLONER_RADIAL_PLANE, CLONER_PLANE_XZ);
  ExpectNear(ClonerMatrices(radial)[1].off, Vector(0, 0, 200));

  // Without children a cloner makes an empty Null.
  auto empty = BaseObject::Alloc(HOST_TYPE_CLONER);
  ASSERT_TRUE(BuildCaches(empty.get(), nullptr));
  ASSERT_NE(empty->GetCache(), nullptr);
  EXPECT_EQ(empty->GetCache()->GetDown(), nullptr);
}

TEST(Generators, SubdivisionSmoothsByCatmullClark) {
  // A cube of edge 200: each corner moves to 5/9 of 100 along each axis.
  auto cube = MakeCubePolygons(Vector(200.0), 1, 1, 1);
  ASSERT_TRUE(SubdivideOnce(*cube));
  EXPECT_EQ(cube->GetPolygonCount(), 24);
  EXPECT_EQ(cube->GetPointCount(), 8 + 6 + 12);
  bool found = false;
  for (Int32 i = 0; i < 8; ++i) {
    const Vector p = cube->GetPointR()[i];
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(std::abs(p[a]), 500.0 / 9.0, 1e-9);
    found = true;
  }
  EXPECT_TRUE(found);
  EXPECT_TRUE(cube->IsValid());

  // An open square: its border follows the curve rule, the face point sits
  // in the middle; a triangle gives three quads. Per-polygon tags go.
  auto square = Square();
  square->InsertTag(UVWTag::Alloc(1).release());
  square->InsertTag(PhongTag::Alloc().release());
  ASSERT_TRUE(SubdivideOnce(*square));
  EXPECT_EQ(square->GetPolygonCount(), 4);
  ExpectNear(square->GetPointR()[0], Vector(0.125, 0.125, 0));
  ExpectNear(square->GetPointR()[4], Vector(1, 1, 0));
  EXPECT_EQ(square->GetTag(HOST_TAG_UVW), nullptr);
  EXPECT_NE(square->GetTag(HOST_TAG_PHONG), nullptr);
  auto tri = PolygonObject::Alloc(3, 1);
  tri->GetPointW()[1] = Vector(1, 0, 0);
  tri->GetPointW()[2] = Vector(0, 1, 0);
  tri->GetPolygonW()[0] = CPolygon(0, 1, 2);
  ASSERT_TRUE(SubdivideOnce(*tri));
  EXPECT_EQ(tri->GetPolygonCount(), 3);
  // A polygon that names a missing point is refused and nothing changes.
  auto bad = Square();
  bad->GetPolygonW()[0] = CPolygon(0, 1, 2, 9);
  EXPECT_FALSE(SubdivideOnce(*bad));
  EXPECT_EQ(bad->GetPolygonCount(), 1);

  // As a generator: the editor's levels, or the render's.
  auto doc = BaseDocument::Alloc();
  BaseObject* sds = Add(doc.get(), HOST_TYPE_SUBDIVISION, "sds");
  Add(doc.get(), HOST_TYPE_CUBE, "cube", sds);
  BaseObject* second = Add(doc.get(), HOST_TYPE_CUBE, "second", sds);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  auto* smooth = dynamic_cast<PolygonObject*>(sds->GetCache());
  ASSERT_NE(smooth, nullptr);
  EXPECT_EQ(smooth->GetPolygonCount(), 6 * 16);
  EXPECT_FALSE(IsInputObject(second));  // only the first child is consumed
  ASSERT_NE(second->GetCache(), nullptr);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr, EXECUTIONFLAGS_ALL, BUILDFLAGS_EXTERNALRENDERER));
  EXPECT_EQ(static_cast<PolygonObject*>(sds->GetCache())->GetPolygonCount(), 6 * 64);
}

TEST(Generators, NestedGeneratorsEvaluateInOnePassAndRebuildOnlyWhatDepends) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  // sds { cloner { counting { p } } }, and beside it other { q }
  BaseObject* sds = Add(doc.get(), HOST_TYPE_SUBDIVISION, "sds");
  BaseObject* cloner = Add(doc.get(), HOST_TYPE_CLONER, "cloner", sds);
  BaseObject* counting = Add(doc.get(), ID_COUNTING_GENERATOR, "counting", cloner);
  BaseObject* p = Square().release();
  p->InsertUnder(counting);
  BaseObject* other = Add(doc.get(), ID_COUNTING_GENERATOR, "other");
  Add(doc.get(), HOST_TYPE_POLYGON, "q", other);
  sds->GetDataInstance()->SetInt32(SDSOBJECT_SUBEDITOR, 1);

  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Data<CountingGenerator>(counting)->builds, 1);
  ASSERT_NE(sds->GetCache(), nullptr);
  // The subdivided cache holds the three copies, each with its square in four quads.
  Int32 quads = 0;
  WalkTree(sds->GetCache(), [&](GeListNode* n) {
    if (auto* poly = dynamic_cast<PolygonObject*>(n)) quads += poly->GetPolygonCount();
  });
  EXPECT_EQ(quads, 3 * 4);

  auto builds = [&] {
    return std::array<UInt32, 4>{sds->GetDirty(DIRTYFLAGS_CACHE), cloner->GetDirty(DIRTYFLAGS_CACHE),
                                 UInt32(Data<CountingGenerator>(counting)->builds), UInt32(Data<CountingGenerator>(other)->builds)};
  };
  const auto first = builds();
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(builds(), first);

  p->SetMl(MatrixMove(Vector(1, 0, 0)));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  const auto moved = builds();
  EXPECT_EQ(moved[0], first[0] + 1);
  EXPECT_EQ(moved[1], first[1] + 1);
  EXPECT_EQ(moved[2], first[2] + 1);
  EXPECT_EQ(moved[3], first[3]);
}

TEST(Generators, CurrentStateCommandsAndCopiedTags) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* sds = Add(doc.get(), HOST_TYPE_SUBDIVISION, "sds");
  Add(doc.get(), HOST_TYPE_CUBE, "cube", sds);
  doc->SetTime(BaseTime(4, 30));

  // 245 builds caches for the purpose and time asked, and keeps them on the object.
  ModelingCommandData build;
  build.doc = doc.get();
  build.op = sds;
  build.bc.SetBool(MDATA_CURRENTSTATE_SETTIME, true);
  build.bc.SetTime(MDATA_CURRENTSTATE_TIME, BaseTime(1, 1));
  build.bc.SetInt32(MDATA_CURRENTSTATE_BUILDFLAGS, BUILDFLAGS_INTERNALRENDERER);
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_CURRENTSTATE, build));
  EXPECT_TRUE(build.result.empty());
  ASSERT_NE(sds->GetCache(), nullptr);
  EXPECT_EQ(static_cast<PolygonObject*>(sds->GetCache())->GetPolygonCount(), 6 * 64);
  EXPECT_EQ(GetCacheBuildFlags(sds), BUILDFLAGS_INTERNALRENDERER);
  EXPECT_EQ(doc->GetTime(), BaseTime(4, 30));  // the time is given back
  ModelingCommandData none;
  EXPECT_FALSE(SendModelingCommand(MCOMMAND_CURRENTSTATE, none));

  // 246 with 1050529 evaluates the whole document first, and gives a copy.
  auto scratch = BaseDocument::Alloc();
  BaseObject* cloner = Add(scratch.get(), HOST_TYPE_CLONER, "cloner");
  Add(scratch.get(), HOST_TYPE_CUBE, "cube", cloner);
  ModelingCommandData state;
  state.doc = scratch.get();
  state.op = cloner;
  state.bc.SetBool(MDATA_CURRENTSTATETOOBJECT_EVALUATE, true);
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_CURRENTSTATETOOBJECT, state));
  ASSERT_EQ(state.result.size(), 1u);
  Int32 polys = 0;
  WalkTree(state.result[0].get(), [&](GeListNode* n) { polys += dynamic_cast<PolygonObject*>(n) != nullptr; });
  EXPECT_EQ(polys, 3);
  // Joined, one polygon object of the three cubes.
  state.result.clear();
  state.bc.SetBool(MDATA_CURRENTSTATETOOBJECT_JOIN, true);
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_CURRENTSTATETOOBJECT, state));
  ASSERT_EQ(state.result.size(), 1u);
  EXPECT_EQ(static_cast<PolygonObject*>(state.result[0].get())->GetPolygonCount(), 18);

  // Tags a generator hands to what it made: visible ones, not per-point data.
  auto from = Square();
  from->InsertTag(UVWTag::Alloc(1).release());
  auto phong = PhongTag::Alloc();
  phong->GetDataInstance()->SetFloat(PHONGTAG_PHONG_ANGLE, 0.5);
  from->InsertTag(phong.release());
  auto to = Square();
  to->InsertTag(PhongTag::Alloc().release());
  ASSERT_TRUE(CopyTagsTo(from.get(), to.get(), COPYTAGS_WITH, COPYTAGS_WITHOUT));
  EXPECT_EQ(to->GetTag(HOST_TAG_UVW), nullptr);
  ASSERT_NE(to->GetTag(HOST_TAG_PHONG), nullptr);
  EXPECT_EQ(to->GetTag(HOST_TAG_PHONG, 1), nullptr);  // replaced, not doubled
  EXPECT_EQ(to->GetTag(HOST_TAG_PHONG)->GetDataInstance()->GetFloat(PHONGTAG_PHONG_ANGLE), 0.5);
  ASSERT_TRUE(CopyTagsTo(from.get(), to.get(), COPYTAGS_ANY, COPYTAGS_ANY, {HOST_TAG_POINT, HOST_TAG_POLYGON}));
  EXPECT_NE(to->GetTag(HOST_TAG_UVW), nullptr);
  EXPECT_EQ(static_cast<VariableTag*>(to->GetTag(HOST_TAG_POINT))->GetDataCount(), 4);
  EXPECT_EQ(to->GetTag(HOST_TAG_POINT, 1), nullptr);
  EXPECT_FALSE(CopyTagsTo(nullptr, to.get(), COPYTAGS_ANY, COPYTAGS_ANY));
}
