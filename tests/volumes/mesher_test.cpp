// The Volume Mesher: its cache and when it is rebuilt, the iso value it takes
// from each volume, the polygon objects and tags it gives, the curvature map
// and its proxy tag, and its node data in scene files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <numbers>
#include <vector>

#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/messages.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"
#include "modules/volumes/source/objects/volumemesher.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumeset.h"
#include "support/run.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumetools.h"
#include "host/core/url.h"

using namespace zelmar;
using zta::BaseObject;
using zta::Vector;
namespace fs = std::filesystem;

namespace {

Volume Sphere(double radius, const Vector& centre, double voxel = 0.05) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, centre, voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return r.IsOk() ? *r : Volume();
}

VolumeToMeshGenerator* MesherOf(BaseObject* op) { return op->GetNodeData<VolumeToMeshGenerator>(); }

struct Scene {
  std::unique_ptr<zta::BaseDocument> doc = zta::AllocDocument();
  BaseObject* mesher = nullptr;

  Scene() {
    std::unique_ptr<BaseObject> made = zta::AllocObject(ID_VOLUMEMESHER);
    EXPECT_NE(made, nullptr);
    mesher = made.release();
    doc->InsertObject(mesher);
  }
  BaseObject* Add(const Volume& volume, BaseObject* parent = nullptr) {
    std::unique_ptr<BaseObject> op = VolumeObjectData::MakeObject(volume);
    EXPECT_NE(op, nullptr);
    BaseObject* raw = op.release();
    raw->InsertUnderLast(parent ? parent : mesher);
    return raw;
  }
  BaseObject* Evaluate() {
    EXPECT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
    return mesher->GetCache();
  }
  zta::BaseContainer& Params() { return *mesher->GetDataInstance(); }
  VolumeToMeshGenerator& Data() { return *MesherOf(mesher); }
};

// The polygon objects of a cache: the cache itself, or the children of its Null.
std::vector<zta::PolygonObject*> Polygons(BaseObject* cache) {
  std::vector<zta::PolygonObject*> out;
  if (!cache) return out;
  if (auto* p = dynamic_cast<zta::PolygonObject*>(cache)) return {p};
  for (BaseObject* c = cache->GetDown(); c; c = c->GetNext())
    if (auto* p = dynamic_cast<zta::PolygonObject*>(c)) out.push_back(p);
  return out;
}

// Signed volume by the right-hand rule, in world units.
double SignedVolume(const zta::PolygonObject& op) {
  const zta::Matrix mg = op.GetMg();
  const Vector* p = op.GetPointR();
  double sum = 0.0;
  for (int i = 0; i < op.GetPolygonCount(); ++i) {
    const zta::CPolygon& q = op.GetPolygonR()[i];
    const Vector a = mg * p[q.a], b = mg * p[q.b], c = mg * p[q.c], d = mg * p[q.d];
    sum += zta::Dot(a, zta::Cross(b, c)) / 6.0;
    if (!q.IsTriangle()) sum += zta::Dot(a, zta::Cross(c, d)) / 6.0;
  }
  return sum;
}

const zta::VertexMapTag* MapOf(const zta::PolygonObject& op) {
  return static_cast<const zta::VertexMapTag*>(op.GetTag(zta::HOST_TAG_VERTEXMAP));
}

}  // namespace

TEST(VolumeMesher, RebuildsOnlyWhenAnInputOrAParameterChanged) {
  Scene s;
  // Without children: an empty Null.
  BaseObject* empty = s.Evaluate();
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->GetType(), zta::HOST_TYPE_NULL);
  EXPECT_EQ(empty->GetDown(), nullptr);
  EXPECT_EQ(s.Data().GetMeshCallCount(), 0);

  BaseObject* volume = s.Add(Sphere(1.0, {0, 0, 0}));
  BaseObject* first = s.Evaluate();
  ASSERT_EQ(Polygons(first).size(), 1u);
  EXPECT_EQ(first->GetType(), zta::HOST_TYPE_POLYGON);  // one volume: the polygon object is the cache
  EXPECT_EQ(s.Data().GetMeshCallCount(), 1);
  EXPECT_EQ(s.Data().GetRangeWalkCount(), 1);

  // Nothing changed: neither a pass nor a direct build meshes again.
  EXPECT_EQ(s.Evaluate(), first);
  zta::HierarchyHelp hh(s.doc.get(), nullptr, 0, s.mesher);
  EXPECT_EQ(s.Data().BuildVirtualObjects(s.mesher, &hh), first);
  EXPECT_EQ(s.Data().GetMeshCallCount(), 1);

  // A build asked to stop keeps the cache it had.
  s.Params().SetFloat(MESHER_ADAPTIVITY, 0.25);
  auto stopped = std::make_shared<zta::ZTAThread>();
  stopped->End();
  zta::HierarchyHelp stopping(s.doc.get(), stopped, 0, s.mesher);
  EXPECT_EQ(s.Data().BuildVirtualObjects(s.mesher, &stopping), first);
  EXPECT_EQ(s.Data().GetMeshCallCount(), 1);

  // A parameter: meshed again, but the unchanged volume is not walked again.
  s.Params().SetFloat(MESHER_ADAPTIVITY, 0.5);
  BaseObject* second = s.Evaluate();
  EXPECT_NE(second, first);
  EXPECT_EQ(s.Data().GetMeshCallCount(), 2);
  EXPECT_EQ(s.Data().GetRangeWalkCount(), 1);

  // The mesher itself moved: its cache lies in its own space, and the
  // volume, brought there, is not walked again.
  zta::Matrix at = s.mesher->GetMl();
  at.off = Vector(0, 5, 0);
  s.mesher->SetMl(at);
  // The volume object puts its grid where it now stands in the world.
  volume->GetNodeData<VolumeObjectData>()->ApplyMatrixToGrid(volume);
  EXPECT_EQ(VolumeObjectData::GetVolume(volume).GetGridTransform().off, Vector(0, 5, 0));
  s.Params().SetFloat(MESHER_ADAPTIVITY, 0.0);
  BaseObject* local = s.Evaluate();
  ASSERT_EQ(Polygons(local).size(), 1u);
  const zta::PolygonObject& shifted = *Polygons(local)[0];
  EXPECT_NEAR((shifted.GetMg() * shifted.GetPointR()[0] - Vector(0, 5, 0)).GetLength(), 1.0, 0.01);
  EXPECT_EQ(s.Data().GetRangeWalkCount(), 1);
  EXPECT_EQ(s.Data().GetMeshCallCount(), 3);
  s.mesher->SetMl(zta::Matrix());

  // The input moves: meshed again where it now stands.
  zta::Matrix m = volume->GetMl();
  m.off = Vector(3, 0, 0);
  volume->SetMl(m);
  BaseObject* third = s.Evaluate();
  EXPECT_EQ(s.Data().GetMeshCallCount(), 4);
  ASSERT_EQ(Polygons(third).size(), 1u);
  const zta::PolygonObject& moved = *Polygons(third)[0];
  Vector centre;
  for (int i = 0; i < moved.GetPointCount(); ++i) centre += moved.GetMg() * moved.GetPointR()[i];
  centre = centre * (1.0 / moved.GetPointCount());
  EXPECT_NEAR(centre.x, 3.0, 0.05);

  // A child that holds no volume gives nothing, and nothing fails.
  std::unique_ptr<BaseObject> cube = zta::AllocObject(zta::HOST_TYPE_CUBE);
  volume->Remove().release();
  std::unique_ptr<zta::GeListNode> taken(volume);
  cube.release()->InsertUnderLast(s.mesher);
  BaseObject* none = s.Evaluate();
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none->GetType(), zta::HOST_TYPE_NULL);
  EXPECT_TRUE(Polygons(none).empty());
}

TEST(VolumeMesher, RelativeAndAbsoluteIso) {
  // Signed distance at relative 0.5: the zero crossing, whatever the range.
  {
    Scene s;
    s.Add(Sphere(1.0, {0, 0, 0}));
    const auto polys = Polygons(s.Evaluate());
    ASSERT_EQ(polys.size(), 1u);
    for (int i = 0; i < polys[0]->GetPointCount(); i += 5)
      EXPECT_NEAR((polys[0]->GetMg() * polys[0]->GetPointR()[i]).GetLength(), 1.0, 0.01);
  }
  // A fog sphere at relative 0.5 lands at half density.
  {
    Scene s;
    auto fog = VolumeToolsInterface::ConvertSDFToFog(Sphere(1.0, {0, 0, 0}), 0.15);
    ASSERT_TRUE(fog.IsOk());
    s.Add(*fog);
    const auto polys = Polygons(s.Evaluate());
    ASSERT_EQ(polys.size(), 1u);
    ASSERT_GT(polys[0]->GetPointCount(), 100);
    auto accessor = GridAccessorCreationImpl::Create<float>();
    ASSERT_TRUE(accessor.IsOk());
    ASSERT_TRUE((*accessor)->Init(*fog, VOLUMESAMPLER::LINEAR).IsOk());
    double sum = 0.0;
    for (int i = 0; i < polys[0]->GetPointCount(); ++i)
      sum += (*accessor)->GetValueVector(polys[0]->GetMg() * polys[0]->GetPointR()[i]);
    EXPECT_NEAR(sum / polys[0]->GetPointCount(), 0.5, 0.02);
  }
  // The ends of the range lie just inside it; types without a range give 0.
  {
    Scene s;
    auto fog = VolumeToolsInterface::ConvertSDFToFog(Sphere(1.0, {0, 0, 0}), 0.15);
    ASSERT_TRUE(fog.IsOk());
    BaseObject* f = s.Add(*fog);
    auto top = s.Data().ResolveThreshold(f, 1.0);
    auto bottom = s.Data().ResolveThreshold(f, -1.0);
    ASSERT_TRUE(top.IsOk() && bottom.IsOk());
    EXPECT_NEAR(*top, 1.0 - 0.000005, 1e-9);
    EXPECT_NEAR(*bottom, 0.000005, 1e-9);
    EXPECT_LT(*top, 1.0);
    EXPECT_GT(*bottom, 0.0);
    auto vectors = VolumeToolsInterface::CreateNewVector32Volume({1.0f, 0.0f, 0.0f});
    ASSERT_TRUE(vectors.IsOk());
    BaseObject* v = s.Add(*vectors);
    auto zero = s.Data().ResolveThreshold(v, 0.3);
    ASSERT_TRUE(zero.IsOk());
    EXPECT_EQ(*zero, 0.0);
    // Signed distance: each half of t reaches to one side of the surface.
    BaseObject* sdf = s.Add(Sphere(1.0, {0, 0, 0}));
    auto range = s.Data().GetValueRange(sdf);
    ASSERT_TRUE(range.IsOk());
    auto inside = s.Data().ResolveThreshold(sdf, -0.5);
    auto outside = s.Data().ResolveThreshold(sdf, 0.5);
    ASSERT_TRUE(inside.IsOk() && outside.IsOk());
    EXPECT_LT(range->first, 0.0);
    EXPECT_NEAR(*inside, range->first * 0.5, 1e-12);
    auto surface = s.Data().ResolveThreshold(sdf, 0.0);
    ASSERT_TRUE(surface.IsOk());
    EXPECT_EQ(*surface, 0.0);
    EXPECT_NEAR(*outside, range->second * 0.5, 1e-12);
  }
  // Absolute: one command for all volumes, and one polygon object for each;
  // relative: one command per volume.
  {
    Scene s;
    s.Add(Sphere(0.5, {-2, 0, 0}));
    s.Add(Sphere(0.5, {2, 0, 0}));
    s.Params().SetBool(MESHER_USE_ABSOLUTE, true);
    s.Params().SetFloat(MESHER_THRESHOLD_ABSOLUTE, -0.1);
    BaseObject* cache = s.Evaluate();
    EXPECT_EQ(s.Data().GetMeshCallCount(), 1);
    ASSERT_EQ(cache->GetType(), zta::HOST_TYPE_NULL);
    const auto polys = Polygons(cache);
    ASSERT_EQ(polys.size(), 2u);
    for (const auto* p : polys) {
      const Vector q = p->GetMg() * p->GetPointR()[0];
      EXPECT_NEAR((q - Vector(q.x < 0 ? -2 : 2, 0, 0)).GetLength(), 0.4, 0.01);  // the -0.1 shell
    }
    // Only the threshold of the mode in use can be edited, the curvature kind only with the map.
    auto enabled = [&](zta::Int32 id) {
      return s.Data().IsParameterEnabled(s.mesher, zta::DescID(id), zta::GeData(), 0, nullptr);
    };
    EXPECT_TRUE(enabled(MESHER_THRESHOLD_ABSOLUTE));
    EXPECT_FALSE(enabled(MESHER_THRESHOLD_RELATIVE));
    EXPECT_FALSE(enabled(MESHER_CURVATURE_MODE));
    s.Params().SetBool(MESHER_USE_ABSOLUTE, false);
    s.Evaluate();
    EXPECT_EQ(s.Data().GetMeshCallCount(), 3);
    EXPECT_FALSE(enabled(MESHER_THRESHOLD_ABSOLUTE));
    EXPECT_TRUE(enabled(MESHER_THRESHOLD_RELATIVE));
  }
}

TEST(VolumeMesher, PolygonObjectsAreClosedOutwardWithUVsPhongAndAdaptivity) {
  Scene s;
  s.Add(Sphere(1.0, {0.5, 0, 0}));
  EXPECT_TRUE(s.mesher->Message(zta::MSG_MENUPREPARE));
  const auto* phong = s.mesher->GetTag(zta::HOST_TAG_PHONG);
  ASSERT_NE(phong, nullptr);
  EXPECT_TRUE(phong->GetDataInstance()->GetBool(zta::PHONGTAG_PHONG_ANGLELIMIT));
  EXPECT_NEAR(phong->GetDataInstance()->GetFloat(zta::PHONGTAG_PHONG_ANGLE), 80.0 * std::numbers::pi / 180.0, 1e-12);

  const auto polys = Polygons(s.Evaluate());
  ASSERT_EQ(polys.size(), 1u);
  const zta::PolygonObject& op = *polys[0];
  EXPECT_NEAR(SignedVolume(op), 4.0 / 3.0 * std::numbers::pi, 0.05);
  // The generator's Phong tag, once; UVs for every polygon, in range.
  int phongs = 0;
  for (const zta::BaseTag* t = op.GetFirstTag(); t; t = t->GetNext()) phongs += t->GetType() == zta::HOST_TAG_PHONG;
  EXPECT_EQ(phongs, 1);
  const auto* uvw = static_cast<const zta::UVWTag*>(op.GetTag(zta::HOST_TAG_UVW));
  ASSERT_NE(uvw, nullptr);
  ASSERT_EQ(uvw->GetDataCount(), op.GetPolygonCount());
  for (int i = 0; i < op.GetPolygonCount(); ++i)
    for (const zta::Vector32& c : {uvw->GetDataAddressR()[i].a, uvw->GetDataAddressR()[i].c}) {
      EXPECT_GE(c.x, 0.0f);
      EXPECT_LE(c.x, 1.0f);
      EXPECT_GE(c.y, 0.0f);
      EXPECT_LE(c.y, 1.0f);
    }
  EXPECT_EQ(MapOf(op), nullptr);  // no curvature map unless asked

  const int full = op.GetPolygonCount();
  s.Params().SetFloat(MESHER_ADAPTIVITY, 0.9);
  const auto fewer = Polygons(s.Evaluate());
  ASSERT_EQ(fewer.size(), 1u);
  EXPECT_LT(fewer[0]->GetPolygonCount(), full * 3 / 4);
  EXPECT_GT(SignedVolume(*fewer[0]), 0.0);
}

TEST(VolumeMesher, CurvatureMapFollowsTheSurfaceAndTheProxyTag) {
  Scene s;
  auto cube = VolumeToolsInterface::CreatePlatonicVolume(6, 1.6, {0.9, 0, 0}, 0.04, 3, nullptr, nullptr);
  ASSERT_TRUE(cube.IsOk());
  auto both = VolumeToolsInterface::BoolVolumes(Sphere(1.0, {0, 0, 0}, 0.04), *cube, BOOLTYPE::UNION);
  ASSERT_TRUE(both.IsOk());
  s.Add(*both);
  s.Params().SetBool(MESHER_CURVATURE_MAP, true);

  // Convex: the far side of the sphere; creases: where the sphere meets the
  // cube's faces, inside neither's surface alone.
  auto classify = [](const Vector& p, int& kind) {
    const double sphere = p.GetLength() - 1.0;
    const Vector q = p - Vector(0.9, 0, 0);
    const double box = std::max({std::abs(q.x), std::abs(q.y), std::abs(q.z)}) - 0.8;
    kind = 0;
    if (p.x < -0.6 && std::abs(sphere) < 0.02) kind = 1;
    else if (std::abs(sphere) < 0.03 && std::abs(box) < 0.03 && p.x < 0.1) kind = 2;
  };
  auto sums = [&](const zta::PolygonObject& op, double& convex, double& crease, int& creases) {
    const zta::VertexMapTag* map = MapOf(op);
    ASSERT_NE(map, nullptr);
    ASSERT_EQ(map->GetDataCount(), op.GetPointCount());
    convex = crease = 0.0;
    creases = 0;
    int convexCount = 0;
    for (int i = 0; i < op.GetPointCount(); ++i) {
      int kind = 0;
      classify(op.GetMg() * op.GetPointR()[i], kind);
      const float v = map->GetDataAddressR()[i];
      if (kind == 1) convex += v, ++convexCount;
      if (kind == 2) crease += v, ++creases;
    }
    ASSERT_GT(convexCount, 20);
    ASSERT_GT(creases, 5);
    convex /= convexCount;
    crease /= creases;
  };

  // Positive: the convex part keeps its curvature (about 1 for a unit
  // sphere), the creases none.
  s.Params().SetInt32(MESHER_CURVATURE_MODE, MESHER_CURVATURE_POSITIVE);
  auto polys = Polygons(s.Evaluate());
  ASSERT_EQ(polys.size(), 1u);
  double convex = 0, crease = 0;
  int creases = 0;
  sums(*polys[0], convex, crease, creases);
  EXPECT_GT(convex, 0.5);
  EXPECT_LT(crease, convex * 0.25);
  // Negative: the creases carry it, the convex part is 0.
  s.Params().SetInt32(MESHER_CURVATURE_MODE, MESHER_CURVATURE_NEGATIVE);
  polys = Polygons(s.Evaluate());
  sums(*polys[0], convex, crease, creases);
  EXPECT_EQ(convex, 0.0);
  EXPECT_GT(crease, 0.5);

  // The proxy tag: made once the option is on, visible while it is, and
  // named like the maps; a rename reaches them at the next build.
  zta::BaseTag* proxy = s.Data().GetProxyTag(s.mesher);
  ASSERT_NE(proxy, nullptr);
  EXPECT_EQ(proxy->GetType(), zta::HOST_TAG_VERTEXMAP);
  EXPECT_EQ(proxy->GetObject(), s.mesher);
  EXPECT_FALSE(proxy->GetNBit(63));
  EXPECT_EQ(MapOf(*polys[0])->GetName(), proxy->GetName());
  EXPECT_FALSE(proxy->GetName().empty());
  proxy->SetName("bumps");
  s.Params().SetInt32(MESHER_CURVATURE_MODE, MESHER_CURVATURE_ABSOLUTE);
  polys = Polygons(s.Evaluate());
  EXPECT_EQ(MapOf(*polys[0])->GetName(), "bumps");
  // A copy of the mesher links its own copy of the tag.
  std::unique_ptr<BaseObject> copy(static_cast<BaseObject*>(s.mesher->GetClone(zta::COPYFLAGS_NO_HIERARCHY).release()));
  ASSERT_NE(copy, nullptr);
  BaseObject* copied = copy.release();
  s.doc->InsertObject(copied);
  zta::BaseTag* copiedProxy = MesherOf(copied)->GetProxyTag(copied);
  ASSERT_NE(copiedProxy, nullptr);
  EXPECT_NE(copiedProxy, proxy);
  EXPECT_EQ(copiedProxy->GetObject(), copied);
  EXPECT_EQ(MesherOf(copied)->GetMapNames(), s.Data().GetMapNames());
  std::unique_ptr<zta::GeListNode> gone = copied->Remove();

  s.Params().SetBool(MESHER_CURVATURE_MAP, false);
  polys = Polygons(s.Evaluate());
  EXPECT_EQ(s.Data().GetProxyTag(s.mesher), proxy);
  EXPECT_TRUE(proxy->GetNBit(63));
  EXPECT_EQ(MapOf(*polys[0]), nullptr);
}

TEST(VolumeMesher, MeshesTheVolumesOfGeneratorCachesAndDeeperChildren) {
  // A generator whose cache holds volume objects (a Volume Set of two grids),
  // and a volume object two levels down under a Null: one polygon object each.
  Scene s;
  const fs::path dir = fs::path(zvtest::TempDir()) / "mesher-inputs";
  fs::create_directories(dir);
  const std::string file = (dir / "two.vdb").string();
  Volume a = Sphere(0.5, {-2, 0, 0}, 0.1), b = Sphere(0.5, {2, 0, 0}, 0.1);
  a.SetGridName("a");
  b.SetGridName("b");
  ASSERT_TRUE(VolumeToolsInterface::SaveVDBFile(zta::Url::FromSystemPath(file), 1.0, {a, b}, DataDictionary()).IsOk());
  std::unique_ptr<BaseObject> set = zta::AllocObject(ID_VOLUMESET);
  ASSERT_NE(set, nullptr);
  ASSERT_TRUE(set->GetNodeData<VolumeSetData>()->LoadAllGrids(set.get(), zta::Url::FromSystemPath(file)).IsOk());
  set.release()->InsertUnderLast(s.mesher);
  std::unique_ptr<BaseObject> group = zta::AllocObject(zta::HOST_TYPE_NULL);
  std::unique_ptr<BaseObject> inner = zta::AllocObject(zta::HOST_TYPE_NULL);
  BaseObject* g = group.release();
  g->InsertUnderLast(s.mesher);
  BaseObject* i = inner.release();
  i->InsertUnderLast(g);
  s.Add(Sphere(0.5, {0, 3, 0}, 0.1), i);

  BaseObject* cache = s.Evaluate();
  const auto polys = Polygons(cache);
  ASSERT_EQ(polys.size(), 3u);
  std::vector<double> xs, ys;
  for (const auto* p : polys) {
    Vector c;
    for (int k = 0; k < p->GetPointCount(); ++k) c += p->GetMg() * p->GetPointR()[k];
    c = c * (1.0 / p->GetPointCount());
    xs.push_back(std::round(c.x));
    ys.push_back(std::round(c.y));
    EXPECT_GT(SignedVolume(*p), 0.0);
  }
  std::sort(xs.begin(), xs.end());
  EXPECT_EQ(xs, (std::vector<double>{-2, 0, 2}));
  EXPECT_EQ(*std::max_element(ys.begin(), ys.end()), 3.0);
  EXPECT_EQ(s.Data().GetMeshCallCount(), 3);
}

TEST(VolumeMesher, SceneFilesKeepParametersAndTheProxyLink) {
  const fs::path dir = fs::path(zvtest::TempDir()) / "mesher";
  fs::create_directories(dir);
  for (const char* name : {"m.zscene", "m.json"}) {
    Scene s;
    s.Add(Sphere(0.5, {0, 0, 0}, 0.1));
    s.Params().SetBool(MESHER_CURVATURE_MAP, true);
    s.Params().SetFloat(MESHER_THRESHOLD_RELATIVE, 0.25);
    s.Evaluate();
    zta::BaseTag* proxy = s.Data().GetProxyTag(s.mesher);
    ASSERT_NE(proxy, nullptr);
    proxy->SetName("kept");
    const std::string path = (dir / name).string();
    const bool json = std::string(name).ends_with(".json");
    ASSERT_TRUE((json ? zta::SaveDocumentJson(s.doc.get(), path, nullptr) : zta::SaveDocument(s.doc.get(), path, nullptr))
                    .IsOk());
    // Hidden while the scene is written, shown again after, as the option says.
    EXPECT_FALSE(proxy->GetNBit(63)) << name;
    auto loaded = json ? zta::LoadDocumentJson(path, nullptr) : zta::LoadDocument(path, nullptr);
    ASSERT_TRUE(loaded.IsOk()) << name;
    BaseObject* mesher = (*loaded)->GetFirstObject();
    ASSERT_NE(mesher, nullptr);
    ASSERT_EQ(mesher->GetType(), ID_VOLUMEMESHER);
    EXPECT_EQ(mesher->GetDataInstance()->GetFloat(MESHER_THRESHOLD_RELATIVE), 0.25);
    zta::BaseTag* read = MesherOf(mesher)->GetProxyTag(mesher);
    ASSERT_NE(read, nullptr) << name;
    EXPECT_EQ(read->GetName(), "kept");
    EXPECT_FALSE(read->GetNBit(63)) << name;
    ASSERT_TRUE(zta::ExecutePasses(loaded->get(), nullptr));
    const auto polys = Polygons(mesher->GetCache());
    ASSERT_EQ(polys.size(), 1u) << name;
    ASSERT_NE(MapOf(*polys[0]), nullptr);
    EXPECT_EQ(MapOf(*polys[0])->GetName(), "kept");
  }
}
