// zvol command: the volume commands by id, so that each can be driven from a
// shell. "list" names them (or one command's settings), "run" runs one on
// input files and writes its outputs.
#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>

#include "host/core/format.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/modeling/join.h"
#include "host/modeling/pointsio.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "meshio.h"
#include "zelmar/volumecommands.h"
#include "zvol.h"

namespace {

using zelmar::COMMANDVALUETYPE;
using zelmar::VolumeCommandInfo;
using zelmar::VolumeCommandSetting;

const char* TypeName(COMMANDVALUETYPE t) {
  switch (t) {
    case COMMANDVALUETYPE::BOOL: return "bool";
    case COMMANDVALUETYPE::INT32: return "int";
    case COMMANDVALUETYPE::FLOAT: return "float";
    case COMMANDVALUETYPE::VECTOR: return "X,Y,Z";
    case COMMANDVALUETYPE::MATRIX: return "matrix";
    case COMMANDVALUETYPE::LINK: return "file";
    case COMMANDVALUETYPE::FIELDLIST: return "field";
    case COMMANDVALUETYPE::SPLINEDATA: return "curve";
  }
  return "";
}

std::string DefaultText(const VolumeCommandSetting& s) {
  const zta::GeData& d = s.defaultValue;
  if (d.IsEmpty()) return "none";
  switch (s.type) {
    case COMMANDVALUETYPE::BOOL: return d.GetBool() ? "true" : "false";
    case COMMANDVALUETYPE::INT32: return std::to_string(d.GetInt32());
    case COMMANDVALUETYPE::FLOAT: {
      if (d.GetFloat() == std::numeric_limits<double>::max()) return "max";
      char b[32];
      std::snprintf(b, sizeof b, "%g", d.GetFloat());
      return b;
    }
    case COMMANDVALUETYPE::VECTOR: {
      const zta::Vector v = zvol::ToOutside(d.GetVector());
      return zta::FormatString("@,@,@", v.x, v.y, v.z);
    }
    case COMMANDVALUETYPE::MATRIX: return d.GetMatrix() == zta::Matrix() ? "identity" : "set";
    default: return "none";
  }
}

bool EndsWith(const std::string& s, const char* suffix) {
  std::string lower = s;
  for (char& c : lower) c = char(std::tolower(static_cast<unsigned char>(c)));
  return lower.ends_with(suffix);
}
bool IsVdbPath(const std::string& p) { return EndsWith(p, ".vdb"); }
// A .ply is a point file to the host, but a mesh here.
bool IsPointsPath(const std::string& p) { return zta::IsPointFile(p) && !zvol::IsReadableMeshPath(p); }

double ParseNumber(const std::string& text, const std::string& what) {
  if (text == "max") return std::numeric_limits<double>::max();
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || !end || *end != '\0' || std::isnan(v))
    throw CLI::ValidationError(what, "expected a number, got '" + text + "'");
  return v;
}

std::vector<double> ParseNumbers(const std::string& text, const std::string& what) {
  std::vector<double> out;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');) out.push_back(ParseNumber(item, what));
  return out;
}

// The host's reader gives the points already mirrored into the scene's frame.
zta::PointTable ReadPoints(const std::string& path) {
  zta::PointTable table = zvol::Take(zta::ReadPointFile(path));
  if (table.positions.empty()) throw zvol::Failure(path + " holds no points");
  return table;
}

std::unique_ptr<zta::BaseObject> SplineFromPoints(const std::string& path) {
  const zta::PointTable points = ReadPoints(path);
  auto spline = zta::SplineObject::Alloc(zta::Int32(points.positions.size()), zta::SPLINETYPE::LINEAR);
  if (!spline) throw zvol::Failure("out of memory");
  std::copy(points.positions.begin(), points.positions.end(), spline->GetPointW());
  return spline;
}

std::unique_ptr<zta::BaseObject> ParticlesFromPoints(const std::string& path) {
  zta::PointTable points = ReadPoints(path);
  // Particles without a radius column are of size 1, without velocities still.
  if (points.radii.empty()) points.radii.assign(points.positions.size(), 1.0);
  if (points.velocities.empty()) points.velocities.assign(points.positions.size(), zta::Vector());
  auto group = zta::ParticleGroupObject::Alloc();
  if (!group || !group->SetParticles(std::move(points.positions), std::move(points.radii), std::move(points.velocities)))
    throw zvol::Failure("out of memory");
  return group;
}

// Every grid of a .vdb file that can be loaded, as volume objects.
void VolumeObjectsFromFile(const std::string& path, std::vector<std::unique_ptr<zta::BaseObject>>& out) {
  using zelmar::VolumeToolsInterface;
  const zta::Url url = zta::Url::FromSystemPath(path);
  if (zta::IoDetect(url) != zta::IODETECT::FILE) throw zvol::Failure("File could not be found: " + path);
  std::vector<zelmar::Volume> volumes;
  zvol::Check(VolumeToolsInterface::LoadAllGridsIntoVolumes(url, 1.0, volumes, nullptr));
  if (volumes.empty()) throw zvol::Failure(path + " holds no grid that can be loaded");
  for (const auto& v : volumes) out.push_back(zvol::Take(zelmar::CreateVolumeObject(v)));
}

// The objects of one input file: volume objects for a .vdb, a polygon object
// for a mesh, and for points a spline (splinetovolume) or particles.
void LoadInput(const std::string& path, const VolumeCommandInfo& info, const zvol::Context& ctx,
               std::vector<std::unique_ptr<zta::BaseObject>>& out) {
  if (IsVdbPath(path)) return VolumeObjectsFromFile(path, out);
  if (zvol::IsReadableMeshPath(path)) {
    out.push_back(zvol::ReadMesh(path, ctx.thread));
    return;
  }
  if (IsPointsPath(path)) {
    out.push_back(std::string(info.id) == zelmar::kSplineToVolumeCommand ? SplineFromPoints(path)
                                                                          : ParticlesFromPoints(path));
    return;
  }
  throw CLI::ValidationError("inputs", "cannot read " + path + ": expected .vdb, a mesh file or a points file");
}

// "spherical:R[,INNER]", "linear:LENGTH", "box:SX,SY,SZ[,FALLOFF]" or
// "noise:SCALE[,SEED]", each with an optional "@X,Y,Z" where it stands.
std::shared_ptr<zta::FieldList> ParseField(const std::string& text, const std::string& what) {
  std::string field = text;
  zta::Vector at;
  if (const size_t a = field.find('@'); a != std::string::npos) {
    at = zvol::ParseVector(field.substr(a + 1), what.c_str());
    field.resize(a);
  }
  const size_t colon = field.find(':');
  const std::string kind = field.substr(0, colon);
  const std::vector<double> v = colon == std::string::npos ? std::vector<double>() : ParseNumbers(field.substr(colon + 1), what);
  auto arity = [&](size_t lo, size_t hi) {
    if (v.size() < lo || v.size() > hi) throw CLI::ValidationError(what, "wrong number of values in '" + text + "'");
  };
  std::unique_ptr<zta::FieldLayer> layer;
  if (kind == "spherical") {
    arity(1, 2);
    layer = std::make_unique<zta::SphericalFieldLayer>(v[0], v.size() > 1 ? v[1] : 0.0);
  } else if (kind == "linear") {
    arity(1, 1);
    layer = std::make_unique<zta::LinearFieldLayer>(v[0]);
  } else if (kind == "box") {
    arity(3, 4);
    layer = std::make_unique<zta::BoxFieldLayer>(zta::Vector(v[0], v[1], v[2]), v.size() > 3 ? v[3] : 0.0);
  } else if (kind == "noise") {
    arity(1, 2);
    layer = std::make_unique<zta::NoiseFieldLayer>(v[0], v.size() > 1 ? zta::Int32(v[1]) : 0);
  } else {
    throw CLI::ValidationError(what, "unknown field '" + kind + "': spherical, linear, box or noise");
  }
  // The field is described in the file's frame: the scene sees it through the mirror.
  layer->SetMatrix(zta::MatrixScale({1, 1, -1}) * zta::MatrixMove(at));
  auto list = std::make_shared<zta::FieldList>();
  list->InsertLayer(std::move(layer));
  return list;
}

// "X:Y,X:Y,..." as a linear curve over the knots' own range.
std::shared_ptr<zta::SplineData> ParseCurve(const std::string& text, const std::string& what) {
  auto curve = std::make_shared<zta::SplineData>();
  double xmin = 0, xmax = 1, ymin = 0, ymax = 1;
  std::stringstream in(text);
  std::vector<std::pair<double, double>> knots;
  for (std::string item; std::getline(in, item, ',');) {
    const size_t colon = item.find(':');
    if (colon == std::string::npos) throw CLI::ValidationError(what, "expected X:Y pairs, got '" + item + "'");
    knots.emplace_back(ParseNumber(item.substr(0, colon), what), ParseNumber(item.substr(colon + 1), what));
    xmin = std::min(xmin, knots.back().first);
    xmax = std::max(xmax, knots.back().first);
    ymin = std::min(ymin, knots.back().second);
    ymax = std::max(ymax, knots.back().second);
  }
  if (knots.empty()) throw CLI::ValidationError(what, "a curve needs at least one X:Y knot");
  curve->SetRange(xmin, xmax, ymin, ymax);
  for (const auto& [x, y] : knots) curve->InsertKnot(x, y, zta::CURVEINTERPOLATION::LINEAR);
  return curve;
}

// "KEY=VALUE", KEY being a setting's name or number, into the data's settings.
void ApplySetting(const std::string& assignment, const VolumeCommandInfo& info, const zvol::Context& ctx,
                  zta::BaseContainer& bc, std::vector<std::unique_ptr<zta::BaseObject>>& keep) {
  const size_t eq = assignment.find('=');
  if (eq == std::string::npos) throw CLI::ValidationError("--set", "expected KEY=VALUE, got '" + assignment + "'");
  const std::string key = assignment.substr(0, eq), value = assignment.substr(eq + 1);
  const VolumeCommandSetting* s = info.FindSetting(key);
  if (!s && !key.empty() && key.find_first_not_of("0123456789") == std::string::npos)
    s = info.FindSetting(zta::Int32(std::stoi(key)));
  if (!s) throw CLI::ValidationError("--set", std::string(info.shortName) + " has no setting '" + key + "'");
  const std::string what = "--set " + key;
  switch (s->type) {
    case COMMANDVALUETYPE::BOOL: {
      if (value == "1" || value == "true" || value == "yes" || value == "on") bc.SetBool(s->key, true);
      else if (value == "0" || value == "false" || value == "no" || value == "off") bc.SetBool(s->key, false);
      else throw CLI::ValidationError(what, "expected true or false, got '" + value + "'");
      break;
    }
    case COMMANDVALUETYPE::INT32: {
      const double v = ParseNumber(value, what);
      if (v != std::trunc(v) || v < -2147483648.0 || v > 2147483647.0)
        throw CLI::ValidationError(what, "expected a whole number, got '" + value + "'");
      bc.SetInt32(s->key, zta::Int32(v));
      break;
    }
    case COMMANDVALUETYPE::FLOAT: bc.SetFloat(s->key, ParseNumber(value, what)); break;
    case COMMANDVALUETYPE::VECTOR: bc.SetVector(s->key, zvol::ToScene(zvol::ParseVector(value, what.c_str()))); break;
    case COMMANDVALUETYPE::MATRIX: {
      // Sixteen numbers, rows as "zvol info" prints a transform: the three
      // axes, each with a 0, then the offset with a 1.
      const std::vector<double> m = ParseNumbers(value, what);
      if (m.size() != 16) throw CLI::ValidationError(what, "expected 16 numbers, the rows of a 4x4 matrix");
      const zta::Matrix outside{{m[12], m[13], m[14]}, {m[0], m[1], m[2]}, {m[4], m[5], m[6]}, {m[8], m[9], m[10]}};
      bc.SetMatrix(s->key, zvol::ToOutside(outside));
      break;
    }
    case COMMANDVALUETYPE::LINK: {
      std::vector<std::unique_ptr<zta::BaseObject>> loaded;
      if (IsPointsPath(value)) loaded.push_back(SplineFromPoints(value));
      else LoadInput(value, info, ctx, loaded);
      bc.SetLink(s->key, loaded.front().get());
      for (auto& op : loaded) keep.push_back(std::move(op));
      break;
    }
    case COMMANDVALUETYPE::FIELDLIST: bc.SetCustomData(s->key, ParseField(value, what)); break;
    case COMMANDVALUETYPE::SPLINEDATA: bc.SetCustomData(s->key, ParseCurve(value, what)); break;
  }
}

// The mirror turns a box's lower z into the scene's upper one: the corners
// of fieldtovolume's box are put back in order.
void OrderBoxCorners(const VolumeCommandInfo& info, zta::BaseContainer& bc) {
  if (std::string(info.id) != zelmar::kFieldToVolumeCommand) return;
  const VolumeCommandSetting* lo = info.FindSetting(zelmar::FIELDTOVOLUME_BOXMIN);
  const VolumeCommandSetting* hi = info.FindSetting(zelmar::FIELDTOVOLUME_BOXMAX);
  zta::Vector a = bc.GetVector(lo->key, lo->defaultValue.GetVector());
  zta::Vector b = bc.GetVector(hi->key, hi->defaultValue.GetVector());
  for (int i = 0; i < 3; ++i)
    if (a[i] > b[i]) std::swap(a[i], b[i]);
  bc.SetVector(lo->key, a);
  bc.SetVector(hi->key, b);
}

void WriteOutputs(const zvol::Context& ctx, const VolumeCommandInfo& info, zta::LegacyCommandDataInterface& data,
                  const std::string& output) {
  std::vector<zelmar::Volume> volumes;
  std::vector<const zta::PolygonObject*> meshes;
  for (zta::Int32 i = 0; i < data.GetOutputCount(); ++i) {
    const zta::BaseObject* op = data.GetOutput(i);
    if (op->GetType() == zta::HOST_TYPE_POLYGON) meshes.push_back(static_cast<const zta::PolygonObject*>(op));
    else volumes.push_back(zelmar::GetObjectVolume(op));
  }
  if (!meshes.empty()) {
    if (!zvol::IsWritableMeshPath(output))
      throw zvol::Failure(std::string(info.shortName) + " makes meshes: write them to .obj, .ply, .stl or .glb");
    auto joined = zvol::Take(zta::JoinPolygonObjects(meshes));
    zvol::Step step(ctx, "write " + output);
    zvol::WriteMesh(*joined, output);
    ctx.Say(zta::FormatString("wrote @ (@ polygons)", output, joined->GetPolygonCount()));
    return;
  }
  if (!IsVdbPath(output)) throw zvol::Failure(std::string(info.shortName) + " makes volumes: write them to .vdb");
  for (size_t i = 0; i < volumes.size(); ++i) {
    if (!volumes[i].GetGridName().empty()) continue;
    volumes[i].SetGridName(volumes.size() == 1 ? std::string(info.shortName)
                                               : zta::FormatString("@_@", info.shortName, i));
  }
  zvol::SaveVolumes(ctx, output, volumes);
  ctx.Say(zta::FormatString("wrote @ (@ @)", output, volumes.size(), volumes.size() == 1 ? "volume" : "volumes"));
}

void PrintSettings(const VolumeCommandInfo& info) {
  std::string out = std::string(info.id) + "\n  inputs: " + info.inputs + "\n";
  for (const auto& s : info.settings) {
    out += zta::FormatString("  @ @ (@, default @): @\n", s.key, s.name, TypeName(s.type), DefaultText(s), s.help);
  }
  std::fputs(out.c_str(), stdout);
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string listId;
    std::string id;
    std::vector<std::string> inputs;
    std::vector<std::string> sets;
    std::string output;
  };
  auto o = std::make_shared<Options>();
  app.require_subcommand(1);
  CLI::App* list = app.add_subcommand("list", "the command ids, or the settings of one command");
  list->add_option("command", o->listId, "a command id or its last part");
  CLI::App* run = app.add_subcommand("run", "run a command on input files and write its outputs");
  run->add_option("command", o->id, "a command id or its last part")->required();
  run->add_option("inputs", o->inputs, ".vdb files (each grid an input), meshes, or points files (x,y,z[,r[,vx,vy,vz]])");
  run->add_option("--set", o->sets, "a setting as KEY=VALUE; see 'zvol command list ID'")->allow_extra_args(false);
  run->add_option("-o,--output", o->output, "the .vdb file, or a mesh file for volumetomesh")->required();

  return [o, list, run](const zvol::Context& ctx) {
    zvol::Check(zelmar::RegisterVolumeCommands());
    if (list->parsed()) {
      if (o->listId.empty()) {
        std::string out;
        for (const auto& info : zelmar::GetVolumeCommandInfos()) out += std::string(info.id) + "\n";
        std::fputs(out.c_str(), stdout);
        return 0;
      }
      const VolumeCommandInfo* info = zelmar::FindVolumeCommandInfo(o->listId);
      if (!info) throw CLI::ValidationError("command", "no command '" + o->listId + "'; see 'zvol command list'");
      PrintSettings(*info);
      return 0;
    }

    const VolumeCommandInfo* info = zelmar::FindVolumeCommandInfo(o->id);
    if (!info) throw CLI::ValidationError("command", "no command '" + o->id + "'; see 'zvol command list'");
    auto data = zvol::Take(zta::CreateCommandData(zelmar::kVolumeCommandDataClass));
    std::vector<std::unique_ptr<zta::BaseObject>> objects;
    for (const auto& s : o->sets) ApplySetting(s, *info, ctx, data->GetSettings(), objects);
    OrderBoxCorners(*info, data->GetSettings());
    const size_t firstInput = objects.size();
    {
      zvol::Step step(ctx, "read inputs");
      for (const auto& path : o->inputs) LoadInput(path, *info, ctx, objects);
    }
    for (size_t i = firstInput; i < objects.size(); ++i) data->AddInput(objects[i].get());
    ctx.CheckInterrupted();

    zta::COMMANDRESULT state = zta::COMMANDRESULT::OK;
    {
      zvol::Progress progress(ctx, info->shortName);
      zvol::Step step(ctx, info->shortName);
      state = zvol::Take(zta::InvokeCommand(info->id, *data, ctx.thread));
    }
    ctx.CheckInterrupted();
    if (state == zta::COMMANDRESULT::SKIP)
      throw zvol::Failure(std::string(info->shortName) + " had nothing to do with these inputs and settings");
    if (state == zta::COMMANDRESULT::BREAK) throw zvol::Failure("interrupted");
    WriteOutputs(ctx, *info, *data, o->output);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("command", "list the volume commands, or run one by id on input files", Setup);
