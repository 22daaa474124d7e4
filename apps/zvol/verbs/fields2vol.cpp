// zvol fields2vol: field layers described in a small JSON file, sampled over a
// box into a float grid (their values) or a vector grid (their directions).
#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>

#include "host/core/format.h"
#include "host/fields/fieldlist.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using json = nlohmann::json;

constexpr const char* kFormat = R"(A description is one JSON object:
  {
    "voxel_size": 0.1,
    "box": {"min": [-1, -1, -1], "max": [1, 1, 1]},
    "layers": [                                   (bottom first: the order of evaluation)
      {"type": "spherical", "center": [0, 0, 0], "radius": 1, "inner": 0.5},
      {"type": "linear", "center": [0, 0, 0], "axis": [0, 0, 1], "length": 2},
      {"type": "box", "center": [0, 0, 0], "half_size": [1, 1, 1], "falloff": 0.2},
      {"type": "noise", "scale": 0.5, "seed": 1}
    ]
  }
Every layer also takes "strength" (0..1, default 1), "blend" (normal, add, subtract,
multiply, max, min; default normal) and "enabled" (default true). Positions are in the
frame of .vdb files. A spherical layer is 1 within inner * radius and 0 from radius on;
a linear one rises from 0 to 1 over its length along its axis; a box is 1 inside
half_size * (1 - falloff) and 0 outside half_size.)";

[[noreturn]] void Bad(const std::string& path, const std::string& what) {
  throw zvol::Failure(path + ": " + what);
}

zta::Vector Vec(const json& j, const std::string& path, const char* key) {
  if (!j.is_array() || j.size() != 3 || !j[0].is_number() || !j[1].is_number() || !j[2].is_number())
    Bad(path, zta::FormatString("\"@\" must be three numbers", key));
  return {j[0].get<double>(), j[1].get<double>(), j[2].get<double>()};
}

double Number(const json& o, const std::string& path, const char* key, std::optional<double> fallback = {}) {
  if (!o.contains(key)) {
    if (fallback) return *fallback;
    Bad(path, zta::FormatString("a layer of type @ needs \"@\"", o.value("type", std::string("?")), key));
  }
  if (!o[key].is_number()) Bad(path, zta::FormatString("\"@\" must be a number", key));
  return o[key].get<double>();
}

// A frame whose third axis points along `axis`.
zta::Matrix AlongAxis(const zta::Vector& centre, const zta::Vector& axis) {
  const zta::Vector z = axis.GetNormalized();
  const zta::Vector helper = std::abs(z.x) < 0.9 ? zta::Vector(1, 0, 0) : zta::Vector(0, 1, 0);
  const zta::Vector x = zta::Cross(helper, z).GetNormalized();
  return {centre, x, zta::Cross(z, x), z};
}

std::unique_ptr<zta::FieldLayer> MakeLayer(const json& o, const std::string& path) {
  static const std::map<std::string, zta::FIELDBLEND> blends = {
      {"normal", zta::FIELDBLEND::NORMAL},     {"add", zta::FIELDBLEND::ADD}, {"subtract", zta::FIELDBLEND::SUBTRACT},
      {"multiply", zta::FIELDBLEND::MULTIPLY}, {"max", zta::FIELDBLEND::MAX}, {"min", zta::FIELDBLEND::MIN}};
  if (!o.is_object() || !o.contains("type") || !o["type"].is_string()) Bad(path, "every layer needs a \"type\"");
  const std::string type = o["type"].get<std::string>();
  const zta::Vector centre = o.contains("center") ? Vec(o["center"], path, "center") : zta::Vector();
  std::unique_ptr<zta::FieldLayer> layer;
  zta::Matrix frame = zta::MatrixMove(centre);
  if (type == "spherical") {
    const double radius = Number(o, path, "radius");
    if (!(radius > 0.0)) Bad(path, "\"radius\" must be above 0");
    layer = std::make_unique<zta::SphericalFieldLayer>(radius, Number(o, path, "inner", 0.0));
  } else if (type == "linear") {
    const double length = Number(o, path, "length");
    if (!(length > 0.0)) Bad(path, "\"length\" must be above 0");
    const zta::Vector axis = o.contains("axis") ? Vec(o["axis"], path, "axis") : zta::Vector(0, 0, 1);
    if (axis.GetLength() == 0.0) Bad(path, "\"axis\" must not be zero");
    frame = AlongAxis(centre, axis);
    layer = std::make_unique<zta::LinearFieldLayer>(length);
  } else if (type == "box") {
    if (!o.contains("half_size")) Bad(path, "a layer of type box needs \"half_size\"");
    layer = std::make_unique<zta::BoxFieldLayer>(Vec(o["half_size"], path, "half_size"), Number(o, path, "falloff", 0.0));
  } else if (type == "noise") {
    const double scale = Number(o, path, "scale");
    if (!(scale > 0.0)) Bad(path, "\"scale\" must be above 0");
    layer = std::make_unique<zta::NoiseFieldLayer>(scale, int32_t(Number(o, path, "seed", 0.0)));
  } else {
    Bad(path, "unknown layer type \"" + type + "\"; use spherical, linear, box or noise");
  }
  layer->SetMatrix(frame);
  layer->SetStrength(std::clamp(Number(o, path, "strength", 1.0), 0.0, 1.0));
  if (o.contains("blend")) {
    const auto b = blends.find(o["blend"].is_string() ? o["blend"].get<std::string>() : std::string());
    if (b == blends.end()) Bad(path, "\"blend\" must be one of normal, add, subtract, multiply, max, min");
    layer->SetBlend(b->second);
  }
  if (o.contains("enabled")) layer->SetEnabled(o["enabled"].is_boolean() && o["enabled"].get<bool>());
  return layer;
}

struct Description {
  double voxelSize = 0.0;
  zta::Vector min, max;
  std::shared_ptr<zta::FieldList> fields;
};

Description ReadDescription(const std::string& path) {
  if (!std::filesystem::is_regular_file(path)) throw zvol::Failure("File could not be found: " + path);
  std::ifstream in(path);
  json j;
  try {
    in >> j;
  } catch (const json::exception& e) {
    Bad(path, std::string("not valid JSON: ") + e.what());
  }
  if (!j.is_object()) Bad(path, "expected one JSON object");
  Description d;
  d.voxelSize = Number(j, path, "voxel_size");
  if (!(d.voxelSize > 0.0)) Bad(path, "\"voxel_size\" must be above 0");
  if (!j.contains("box") || !j["box"].is_object() || !j["box"].contains("min") || !j["box"].contains("max"))
    Bad(path, "\"box\" needs \"min\" and \"max\"");
  d.min = Vec(j["box"]["min"], path, "min");
  d.max = Vec(j["box"]["max"], path, "max");
  double voxels = 1.0;
  for (int i = 0; i < 3; ++i) {
    if (!(d.min[i] <= d.max[i])) Bad(path, "the box's \"min\" must not exceed its \"max\"");
    voxels *= std::floor((d.max[i] - d.min[i]) / d.voxelSize) + 2.0;
  }
  // Every voxel of the box is sampled and stored.
  if (voxels > 2e9) Bad(path, zta::FormatString("the box holds @ voxels; give a larger \"voxel_size\"", voxels));
  if (!j.contains("layers") || !j["layers"].is_array() || j["layers"].empty()) Bad(path, "\"layers\" lists no layer");
  d.fields = std::make_shared<zta::FieldList>();
  // The list holds its top layer first; the file lists the bottom first.
  for (const json& layer : j["layers"]) d.fields->InsertLayer(MakeLayer(layer, path), 0);
  return d;
}

struct Options {
  std::string input;
  std::string output;
  bool vector = false;
};

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "the JSON description of the field layers, the box and the voxel size")
      ->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  app.add_flag("--vector", o->vector, "write the fields' directions into a vector grid instead of their values");
  app.footer(kFormat);
  return [o](const zvol::Context& ctx) {
    const Description d = ReadDescription(o->input);
    zelmar::FieldSampleData data;
    data.fields = d.fields;
    // The layers stand in the file's frame: the grid's scene positions are
    // mirrored into it, so that directions come out in the file's axes too.
    data.targetRelativeSpace = zta::MatrixScale({1, 1, -1});
    const zelmar::BoundingBox box{{d.min.x, d.min.y, -d.max.z}, {d.max.x, d.max.y, -d.min.z}};
    zelmar::Volume volume;
    {
      zvol::Progress progress(ctx, "fields to volume");
      zvol::Step step(ctx, "fields to volume");
      volume = zvol::Take(
          o->vector ? zelmar::VolumeToolsInterface::ConvertFieldsToVectorVolume(data, d.voxelSize, box, ctx.thread,
                                                                               zelmar::Volume(), nullptr)
                    : zelmar::VolumeToolsInterface::ConvertFieldsToVolume(data, d.voxelSize, box, ctx.thread,
                                                                         zelmar::Volume(), nullptr));
    }
    ctx.CheckInterrupted();
    volume.SetGridName(o->vector ? "field_direction" : "field");
    zvol::SaveVolumes(ctx, o->output, {volume});
    ctx.Say(zta::FormatString("wrote @ (@ active voxels)", o->output, volume.GetActiveVoxelCount()));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("fields2vol", "sample field layers described in JSON over a box into a grid", Setup);
