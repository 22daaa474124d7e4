// The host's own node classes in the JSON scene form: points and polygons of
// polygon objects (inline, or read from a mesh file), points and segments of
// splines and lines, particles of a particle group, UVW and vertex-map
// records. Positions are mirrored into the file's right-handed frame and
// polygons turn their winding, as in every outside file.
#include <cstring>
#include <filesystem>
#include <limits>

#include "host/core/format.h"
#include "host/modeling/meshio.h"
#include "host/modeling/pointsio.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/description.h"
#include "host/scene/scenejson.h"
#include "host/scene/scenejsonio.h"

namespace zta {

namespace {

Json Points(const PointObject& op) {
  Json points = Json::array();
  const Vector* p = op.GetPointR();
  for (Int32 i = 0; i < op.GetPointCount(); ++i) points.push_back(VectorToJson(MirrorZ(p[i])));
  return points;
}

// The corners in the file's order: a triangle (a, b, c) is [c, b, a], a quad
// (a, b, c, d) is [d, c, b, a].
Json PolygonToJson(const CPolygon& p) {
  if (p.IsTriangle()) return Json::array({p.c, p.b, p.a});
  return Json::array({p.d, p.c, p.b, p.a});
}

// UVW corners follow the polygon's corners in the file; a triangle's fourth
// record, which no corner uses, stays last.
Json UVWToJson(const UVWStruct& u, bool triangle) {
  if (triangle) return Json::array({VectorToJson(u.c), VectorToJson(u.b), VectorToJson(u.a), VectorToJson(u.d)});
  return Json::array({VectorToJson(u.d), VectorToJson(u.c), VectorToJson(u.b), VectorToJson(u.a)});
}

bool IsTriangleAt(const BaseTag& tag, Int32 index) {
  const auto* poly = dynamic_cast<const PolygonObject*>(tag.GetObject());
  return poly && index < poly->GetPolygonCount() && poly->GetPolygonR()[index].IsTriangle();
}

std::vector<Vector> ReadPoints(const Json& j, const String& path) {
  JsonArray(j, path);
  if (j.size() > size_t(std::numeric_limits<Int32>::max())) ThrowJson(path, "too many points");
  std::vector<Vector> out;
  out.reserve(j.size());
  for (size_t i = 0; i < j.size(); ++i) out.push_back(MirrorZ(JsonVector(j[i], JsonIndex(path, i))));
  return out;
}

std::vector<CPolygon> ReadPolygons(const Json& j, const String& path, Int32 pointCount) {
  JsonArray(j, path);
  if (j.size() > size_t(std::numeric_limits<Int32>::max())) ThrowJson(path, "too many polygons");
  std::vector<CPolygon> out;
  out.reserve(j.size());
  for (size_t i = 0; i < j.size(); ++i) {
    const String at = JsonIndex(path, i);
    const Json& p = j[i];
    if (!p.is_array() || (p.size() != 3 && p.size() != 4)) ThrowJson(at, "expected a polygon of 3 or 4 point indices");
    Int32 c[4];
    for (size_t k = 0; k < p.size(); ++k) {
      c[k] = JsonInt32(p[k], JsonIndex(at, k));
      if (c[k] < 0 || c[k] >= pointCount)
        ThrowJson(JsonIndex(at, k), FormatString("point @ is not one of the object's @ points", c[k], pointCount));
    }
    out.push_back(p.size() == 3 ? CPolygon(c[2], c[1], c[0]) : CPolygon(c[3], c[2], c[1], c[0]));
  }
  return out;
}

void SetPolygonData(PolygonObject& op, const std::vector<Vector>& points, const std::vector<CPolygon>& polygons,
                    const String& path) {
  if (!op.ResizeObject(Int32(points.size()), Int32(polygons.size()))) ThrowJson(path, "out of memory");
  if (!points.empty()) std::memcpy(op.GetPointW(), points.data(), points.size() * sizeof(Vector));
  if (!polygons.empty()) std::memcpy(op.GetPolygonW(), polygons.data(), polygons.size() * sizeof(CPolygon));
  op.SetDirty(DIRTYFLAGS_DATA);
}

String FilePath(const Json& j, const String& path, SceneJsonReadContext& ctx) {
  const String name = JsonString(j, path);
  if (!ctx.GetOptions().readFiles) ThrowJson(path, "files are not read here");
  std::filesystem::path file(name);
  if (file.is_relative() && !ctx.GetOptions().baseFolder.empty()) file = std::filesystem::path(ctx.GetOptions().baseFolder) / file;
  return file.string();
}

PointTable ReadPoints(const Json& j, const String& path, SceneJsonReadContext& ctx) {
  auto table = ReadPointFile(FilePath(j, path, ctx));
  if (!table) ThrowJson(path, table.GetError().GetMessage());
  return std::move(table.GetValue());
}

// A mesh file's points, polygons and tags (UVs) into `op`.
void ReadMesh(PolygonObject& op, const Json& j, const String& path, SceneJsonReadContext& ctx) {
  const String file = FilePath(j, path, ctx);
  MeshReadOptions options;
  options.unitMeters = ctx.GetUnitMeters();
  auto mesh = ReadMeshFile(file, ctx.GetThread(), options);
  if (!mesh) ThrowJson(path, mesh.GetError().GetMessage());
  PolygonObject& m = *mesh.GetValue();
  if (!op.ResizeObject(m.GetPointCount(), m.GetPolygonCount())) ThrowJson(path, "out of memory");
  if (m.GetPointCount()) std::memcpy(op.GetPointW(), m.GetPointR(), size_t(m.GetPointCount()) * sizeof(Vector));
  if (m.GetPolygonCount())
    std::memcpy(op.GetPolygonW(), m.GetPolygonR(), size_t(m.GetPolygonCount()) * sizeof(CPolygon));
  BaseTag* pred = nullptr;
  for (BaseTag* t = op.GetFirstTag(); t; t = t->GetNext()) pred = t;
  while (BaseTag* t = m.GetFirstTag()) {
    auto taken = t->Remove();
    if (t->GetType() == HOST_TAG_POINT || t->GetType() == HOST_TAG_POLYGON) continue;
    auto* tag = static_cast<BaseTag*>(taken.release());
    op.InsertTag(tag, pred);
    pred = tag;
  }
  op.SetDirty(DIRTYFLAGS_DATA);
}

}  // namespace

const DescID* FileParameterOf(Int32 type) {
  const Description* d = GetTypeDescription(type);
  if (!d) return nullptr;
  for (Int32 i = 0; i < d->GetCount(); ++i)
    if (d->GetSettings(i).GetInt32(DESC_KIND) == Int32(DESCKIND::FILENAME)) return &d->GetId(i);
  return nullptr;
}

const std::vector<const char*>& HostNodeJsonKeys() {
  static const std::vector<const char*> keys = {"points", "polygons", "file", "segments", "particles", "uvw", "weights"};
  return keys;
}

bool WriteHostNodeJson(const BaseList2D& node, Json& out, const SceneJsonWriteContext& ctx) {
  if (const auto* poly = dynamic_cast<const PolygonObject*>(&node)) {
    out["points"] = Points(*poly);
    Json polygons = Json::array();
    for (Int32 i = 0; i < poly->GetPolygonCount(); ++i) polygons.push_back(PolygonToJson(poly->GetPolygonR()[i]));
    out["polygons"] = std::move(polygons);
  }
  if (const auto* seg = dynamic_cast<const SegmentedPoints*>(&node)) {
    out["points"] = Points(*seg);
    if (seg->HasOwnSegments()) {
      Json segments = Json::array();
      for (Int32 i = 0; i < seg->GetSegmentCount(); ++i)
        segments.push_back(Json::array({seg->GetSegment(i).cnt, seg->GetSegment(i).closed}));
      out["segments"] = std::move(segments);
    }
  }
  if (const auto* group = dynamic_cast<const ParticleGroupObject*>(&node)) {
    Json positions = Json::array(), radii = Json::array(), velocities = Json::array();
    for (Int32 i = 0; i < group->GetParticleCount(); ++i) {
      positions.push_back(VectorToJson(MirrorZ(group->GetPositions()[size_t(i)])));
      radii.push_back(FloatToJson(group->GetRadii()[size_t(i)]));
      velocities.push_back(VectorToJson(MirrorZ(group->GetVelocities()[size_t(i)])));
    }
    Json p = Json::object();
    p["positions"] = std::move(positions);
    p["radii"] = std::move(radii);
    p["velocities"] = std::move(velocities);
    out["particles"] = std::move(p);
  }
  // The records of tags. The first point and polygon tags of a point object
  // are its points and polygons, said with the object.
  if (const auto* tag = dynamic_cast<const BaseTag*>(&node)) {
    const BaseObject* owner = tag->GetObject();
    if ((node.GetType() == HOST_TAG_POINT && dynamic_cast<const PointObject*>(owner)) ||
        (node.GetType() == HOST_TAG_POLYGON && dynamic_cast<const PolygonObject*>(owner)))
      return owner->GetTag(node.GetType()) == tag;
    if (const auto* uvw = dynamic_cast<const UVWTag*>(tag)) {
      Json rows = Json::array();
      for (Int32 i = 0; i < uvw->GetDataCount(); ++i) rows.push_back(UVWToJson(uvw->Get(i), IsTriangleAt(*tag, i)));
      out["uvw"] = std::move(rows);
      return true;
    }
    if (const auto* vmap = dynamic_cast<const VertexMapTag*>(tag)) {
      Json weights = Json::array();
      for (Int32 i = 0; i < vmap->GetDataCount(); ++i) weights.push_back(FloatToJson(vmap->GetDataAddressR()[i]));
      out["weights"] = std::move(weights);
      return true;
    }
  }
  return false;
}

void ReadHostNodeJson(BaseList2D& node, const Json& j, const String& path, SceneJsonReadContext& ctx) {
  auto refuse = [&](const char* key) {
    if (j.contains(key)) ThrowJson(JsonKey(path, key), "a node of this type has no " + String(key));
  };
  if (auto* poly = dynamic_cast<PolygonObject*>(&node)) {
    if (j.contains("file")) {
      if (j.contains("points") || j.contains("polygons"))
        ThrowJson(JsonKey(path, "file"), "give either a mesh file or points and polygons");
      ReadMesh(*poly, j["file"], JsonKey(path, "file"), ctx);
    } else if (j.contains("points") || j.contains("polygons")) {
      const std::vector<Vector> points =
          j.contains("points") ? ReadPoints(j["points"], JsonKey(path, "points")) : std::vector<Vector>();
      const std::vector<CPolygon> polygons = j.contains("polygons")
                                                 ? ReadPolygons(j["polygons"], JsonKey(path, "polygons"), Int32(points.size()))
                                                 : std::vector<CPolygon>();
      SetPolygonData(*poly, points, polygons, path);
    }
  } else {
    if (!dynamic_cast<SegmentedPoints*>(&node) && !dynamic_cast<ParticleGroupObject*>(&node) && j.contains("file")) {
      // Any other type with a file parameter (a volume object's .vdb file,
      // say) takes the name there, as its owner then reads it.
      const DescID* id = FileParameterOf(node.GetType());
      if (!id) refuse("file");
      if (!j["file"].is_string()) ThrowJson(JsonKey(path, "file"), "expected a file name");
      node.GetDataInstance()->SetString(id->GetId(), j["file"].get<String>());
    }
    refuse("polygons");
  }

  if (auto* seg = dynamic_cast<SegmentedPoints*>(&node)) {
    if (j.contains("points") && j.contains("file")) ThrowJson(JsonKey(path, "file"), "give either a point file or points");
    if (j.contains("points") || j.contains("file")) {
      const std::vector<Vector> points = j.contains("file") ? ReadPoints(j["file"], JsonKey(path, "file"), ctx).positions
                                                            : ReadPoints(j["points"], JsonKey(path, "points"));
      auto* spline = dynamic_cast<SplineObject*>(seg);
      auto* line = dynamic_cast<LineObject*>(seg);
      const bool sized = spline ? spline->ResizeObject(Int32(points.size())) : line && line->ResizeObject(Int32(points.size()));
      if (!sized) ThrowJson(JsonKey(path, "points"), "out of memory");
      if (!points.empty()) std::memcpy(seg->GetPointW(), points.data(), points.size() * sizeof(Vector));
      seg->SetDirty(DIRTYFLAGS_DATA);
    }
    if (j.contains("segments")) {
      const String at = JsonKey(path, "segments");
      const Json& list = JsonArray(j["segments"], at);
      std::vector<Segment> segments;
      for (size_t i = 0; i < list.size(); ++i) {
        const String s = JsonIndex(at, i);
        const Json& e = list[i];
        if (!e.is_array() || e.size() != 2) ThrowJson(s, "expected a segment: [point count, closed]");
        segments.push_back({JsonInt32(e[0], JsonIndex(s, 0)), JsonBool(e[1], JsonIndex(s, 1))});
      }
      if (!segments.empty() && !seg->SetSegments(segments))
        ThrowJson(at, FormatString("the segments do not add up to the @ points", seg->GetPointCount()));
    }
  } else if (!dynamic_cast<PolygonObject*>(&node)) {
    refuse("points");
    refuse("segments");
  } else {
    refuse("segments");
  }

  if (auto* group = dynamic_cast<ParticleGroupObject*>(&node)) {
    if (j.contains("particles") && j.contains("file")) ThrowJson(JsonKey(path, "file"), "give either a point file or particles");
    if (j.contains("file")) {
      PointTable t = ReadPoints(j["file"], JsonKey(path, "file"), ctx);
      if (t.radii.empty()) t.radii.assign(t.positions.size(), 1.0);
      if (t.velocities.empty()) t.velocities.assign(t.positions.size(), Vector());
      group->SetParticles(std::move(t.positions), std::move(t.radii), std::move(t.velocities));
    }
    if (j.contains("particles")) {
      const String at = JsonKey(path, "particles");
      const Json& p = JsonObject(j["particles"], at);
      CheckJsonKeys(p, at, {"positions", "radii", "radius", "velocities"});
      if (!p.contains("positions")) ThrowJson(JsonKey(at, "positions"), "the positions are missing");
      if (p.contains("radii") && p.contains("radius")) ThrowJson(JsonKey(at, "radius"), "give either radii or one radius");
      std::vector<Vector> positions = ReadPoints(p["positions"], JsonKey(at, "positions"));
      std::vector<Float> radii;
      if (p.contains("radii")) {
        const Json& r = JsonArray(p["radii"], JsonKey(at, "radii"));
        for (size_t i = 0; i < r.size(); ++i) radii.push_back(JsonFloat(r[i], JsonIndex(JsonKey(at, "radii"), i)));
      } else {
        radii.assign(positions.size(), p.contains("radius") ? JsonFloat(p["radius"], JsonKey(at, "radius")) : 1.0);
      }
      std::vector<Vector> velocities = p.contains("velocities") ? ReadPoints(p["velocities"], JsonKey(at, "velocities"))
                                                                : std::vector<Vector>(positions.size());
      if (radii.size() != positions.size() || velocities.size() != positions.size())
        ThrowJson(at, FormatString("@ positions, @ radii and @ velocities: each particle needs one of each",
                                   positions.size(), radii.size(), velocities.size()));
      group->SetParticles(std::move(positions), std::move(radii), std::move(velocities));
    }
  } else {
    refuse("particles");
  }

  if (auto* uvw = dynamic_cast<UVWTag*>(&node)) {
    if (j.contains("uvw")) {
      const String at = JsonKey(path, "uvw");
      const Json& rows = JsonArray(j["uvw"], at);
      if (rows.size() > size_t(std::numeric_limits<Int32>::max()) || !uvw->Resize(Int32(rows.size())))
        ThrowJson(at, "out of memory");
      for (size_t i = 0; i < rows.size(); ++i) {
        const String r = JsonIndex(at, i);
        const Json& row = rows[i];
        if (!row.is_array() || row.size() != 4) ThrowJson(r, "expected the four corners' [u, v, w]");
        Vector c[4];
        for (size_t k = 0; k < 4; ++k) c[k] = JsonVector(row[k], JsonIndex(r, k));
        const bool triangle = IsTriangleAt(*uvw, Int32(i));
        uvw->Set(Int32(i), triangle ? UVWStruct{c[2], c[1], c[0], c[3]} : UVWStruct{c[3], c[2], c[1], c[0]});
      }
    }
  } else {
    refuse("uvw");
  }

  if (auto* vmap = dynamic_cast<VertexMapTag*>(&node)) {
    if (j.contains("weights")) {
      const String at = JsonKey(path, "weights");
      const Json& w = JsonArray(j["weights"], at);
      if (w.size() > size_t(std::numeric_limits<Int32>::max()) || !vmap->Resize(Int32(w.size())))
        ThrowJson(at, "out of memory");
      for (size_t i = 0; i < w.size(); ++i) vmap->GetDataAddressW()[i] = Float32(JsonFloat(w[i], JsonIndex(at, i)));
    }
  } else {
    refuse("weights");
  }
}

}  // namespace zta
