// zvol info: what a .vdb file or a mesh file holds, for people or as JSON.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <sstream>

#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "meshio.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using json = nlohmann::ordered_json;
using zelmar::Volume;

constexpr const char* kNotSupported = "~NotSupported";

json ToJson(const zta::Data& d) {
  return std::visit(
      [](const auto& v) -> json {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::monostate>) return nullptr;
        else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::string>) return v;
        else if constexpr (std::is_same_v<T, zta::Matrix>) return json::array();
        else if constexpr (requires { v.m; }) {
          json rows = json::array();
          for (int r = 0; r < 4; ++r) rows.push_back({v(r, 0), v(r, 1), v(r, 2), v(r, 3)});
          return rows;
        } else if constexpr (requires { v.z; }) return {v.x, v.y, v.z};
        else return {v.x, v.y};
      },
      d.GetValue());
}

json Vec(const zta::Vector& v) { return {v.x, v.y, v.z}; }

// Everything about one grid, in the file's right-handed frame.
json GridJson(const Volume& v) {
  json g;
  g["name"] = v.GetGridName();
  g["type"] = zelmar::GridTypeName(v.GetGridType());
  g["class"] = zelmar::GridClassName(v.GetGridClass());
  const zta::Matrix m = zvol::ToOutside(v.GetGridTransform());
  g["voxel_size"] = Vec(m.GetScale());
  g["active_voxels"] = v.GetActiveVoxelCount();
  g["background"] = ToJson(v.GetBackground());
  if (v.GetActiveVoxelCount() > 0) {
    const zelmar::BoundingBox& b = v.GetWorldBoundingBox();
    // The scene's index box mirrored back: k becomes -k.
    const zta::Vector lo(std::round(b.min.x), std::round(b.min.y), -std::round(b.max.z));
    const zta::Vector hi(std::round(b.max.x), std::round(b.max.y), -std::round(b.min.z));
    auto ijk = [](const zta::Vector& v) { return json{int64_t(v.x), int64_t(v.y), int64_t(v.z)}; };
    g["index_bbox"] = {ijk(lo), ijk(hi)};
    zta::Vector wlo(std::numeric_limits<double>::max()), whi(-std::numeric_limits<double>::max());
    for (int c = 0; c < 8; ++c) {
      const zta::Vector p = m.TransformPoint({c & 1 ? hi.x : lo.x, c & 2 ? hi.y : lo.y, c & 4 ? hi.z : lo.z});
      for (int i = 0; i < 3; ++i) {
        wlo[i] = std::min(wlo[i], p[i]);
        whi[i] = std::max(whi[i], p[i]);
      }
    }
    g["world_bbox"] = {Vec(wlo), Vec(whi)};
  } else {
    g["index_bbox"] = nullptr;
    g["world_bbox"] = nullptr;
  }
  g["transform"] = {{m.v1.x, m.v1.y, m.v1.z, 0.0}, {m.v2.x, m.v2.y, m.v2.z, 0.0},
                    {m.v3.x, m.v3.y, m.v3.z, 0.0}, {m.off.x, m.off.y, m.off.z, 1.0}};
  g["memory_bytes"] = v.GetMemUsage();
  const zelmar::ValueRange r = v.GetMinMaxValues(false);
  g["value_range"] = {r.min, r.max};
  return g;
}

json FileJson(const std::string& path) {
  using zelmar::VolumeToolsInterface;
  const zta::Url url = zta::Url::FromSystemPath(path);
  if (zta::IoDetect(url) != zta::IODETECT::FILE) throw zvol::Failure("File could not be found: " + path);
  const auto names = zvol::Take(VolumeToolsInterface::GetGridNamesFromFile(url));
  zelmar::MetaDataArray meta;
  std::vector<Volume> volumes;
  zvol::Check(VolumeToolsInterface::LoadAllGridsIntoVolumes(url, 1.0, volumes, &meta));

  json out;
  out["metadata"] = json::object();
  for (const auto& record : meta)
    for (const auto& [name, value] : record) out["metadata"][name] = ToJson(value);
  out["grids"] = json::array();
  size_t next = 0;
  for (const auto& name : names) {
    if (name.ends_with(kNotSupported)) {
      // Point data grids are listed but not loaded.
      out["grids"].push_back({{"name", name.substr(0, name.size() - std::strlen(kNotSupported))},
                              {"type", "ptdataidx32"},
                              {"class", "unknown"},
                              {"supported", false}});
    } else if (next < volumes.size()) {
      out["grids"].push_back(GridJson(volumes[next++]));
    }
  }
  return out;
}

// A mesh file as zvol reads it: in metres when the file states its unit, in
// the file's right-handed frame.
json MeshJson(const std::string& path, const zvol::Context& ctx) {
  zta::MeshFileInfo info;
  auto op = zvol::Take(zta::ReadMeshFile(path, ctx.thread, {}, &info));
  json out;
  out["format"] = info.format;
  out["unit_meters"] = info.unitMeters > 0.0 ? json(info.unitMeters) : json(nullptr);
  out["up_axis"] = info.upAxis.empty() ? json(nullptr) : json(info.upAxis);
  out["scale"] = info.scale;
  out["points"] = op->GetPointCount();
  int64_t triangles = 0;
  for (zta::Int32 i = 0; i < op->GetPolygonCount(); ++i) triangles += op->GetPolygonR()[i].IsTriangle() ? 1 : 0;
  out["polygons"] = op->GetPolygonCount();
  out["triangles"] = triangles;
  out["quads"] = op->GetPolygonCount() - triangles;
  // The enclosed volume by the divergence theorem: positive when the faces
  // point outward, negative when the file winds them inward.
  double volume = 0.0;
  const zta::Vector* p = op->GetPointR();
  for (zta::Int32 i = 0; i < op->GetPolygonCount(); ++i) {
    const zta::CPolygon& q = op->GetPolygonR()[i];
    volume += zta::Dot(p[q.a], zta::Cross(p[q.b], p[q.c]));
    if (!q.IsTriangle()) volume += zta::Dot(p[q.a], zta::Cross(p[q.c], p[q.d]));
  }
  out["volume"] = volume / 6.0;
  zta::Vector lo, hi;
  if (op->GetPointCount() > 0) {
    lo = hi = op->GetPointR()[0];
    for (zta::Int32 i = 1; i < op->GetPointCount(); ++i)
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], op->GetPointR()[i][k]);
        hi[k] = std::max(hi[k], op->GetPointR()[i][k]);
      }
    out["bbox"] = {Vec({lo.x, lo.y, -hi.z}), Vec({hi.x, hi.y, -lo.z})};
  } else {
    out["bbox"] = nullptr;
  }
  return out;
}

std::string PlainMesh(const json& j) {
  std::ostringstream o;
  o << "format          " << j["format"].get<std::string>() << "\n";
  o << "unit            " << (j["unit_meters"].is_null() ? "not stated" : j["unit_meters"].dump() + " m") << "\n";
  o << "up axis         " << (j["up_axis"].is_null() ? "not stated" : j["up_axis"].get<std::string>()) << "\n";
  o << "points          " << j["points"].dump() << "\n";
  o << "polygons        " << j["polygons"].dump() << " (" << j["triangles"].dump() << " triangles, "
    << j["quads"].dump() << " quads)\n";
  o << "volume          " << j["volume"].dump() << "\n";
  o << "bbox            " << (j["bbox"].is_null() ? "none" : j["bbox"][0].dump() + " .. " + j["bbox"][1].dump()) << "\n";
  return o.str();
}

std::string Plain(const json& j) {
  auto fmt = [](const json& v) {
    if (v.is_array() && !v.empty() && v[0].is_array()) {
      std::string s;
      for (const auto& row : v) s += (s.empty() ? "" : " .. ") + row.dump();
      return s;
    }
    return v.is_string() ? v.get<std::string>() : v.dump();
  };
  std::ostringstream o;
  if (!j["metadata"].empty()) {
    o << "metadata:\n";
    for (const auto& [k, v] : j["metadata"].items()) o << "  " << k << " = " << fmt(v) << "\n";
  }
  o << j["grids"].size() << (j["grids"].size() == 1 ? " grid" : " grids") << "\n";
  for (const auto& g : j["grids"]) {
    o << "- " << (g["name"].get<std::string>().empty() ? "(unnamed)" : g["name"].get<std::string>()) << "\n";
    if (g.contains("supported")) {
      o << "    type            " << fmt(g["type"]) << " (not supported, skipped)\n";
      continue;
    }
    o << "    type            " << fmt(g["type"]) << ", " << fmt(g["class"]) << "\n";
    o << "    voxel size      " << fmt(g["voxel_size"]) << "\n";
    o << "    active voxels   " << fmt(g["active_voxels"]) << "\n";
    o << "    background      " << fmt(g["background"]) << "\n";
    o << "    index bbox      " << fmt(g["index_bbox"]) << "\n";
    o << "    world bbox      " << fmt(g["world_bbox"]) << "\n";
    o << "    value range     " << fmt(g["value_range"]) << "\n";
    o << "    memory          " << fmt(g["memory_bytes"]) << " bytes\n";
  }
  return o.str();
}

zvol::VerbRun Setup(CLI::App& app) {
  auto file = std::make_shared<std::string>();
  auto asJson = std::make_shared<bool>(false);
  app.add_option("file", *file, "the .vdb file, or a mesh file")->required();
  app.add_flag("--json", *asJson, "print one JSON object");
  return [file, asJson](const zvol::Context& ctx) {
    const bool mesh = !file->ends_with(".vdb") && zvol::IsReadableMeshPath(*file);
    const json j = mesh ? MeshJson(*file, ctx) : FileJson(*file);
    const std::string text = *asJson ? j.dump(2) + "\n" : mesh ? PlainMesh(j) : Plain(j);
    std::fputs(text.c_str(), stdout);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("info", "describe the grids and metadata of a .vdb file, or what a mesh file holds", Setup);
