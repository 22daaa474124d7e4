// zvol scene: scene files from the command line. "info" shows the tree of a
// scene with types, names and the parameters that differ from their defaults;
// "convert" reads a scene and writes it again; "eval" evaluates it and writes
// what its top-level objects hold. All read either form: .zscene is the
// native file, .json the JSON form.
#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>

#include "host/scene/unitscale.h"
#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/customdataclass.h"
#include "host/scene/plugins.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"
#include "host/modeling/join.h"
#include "host/modeling/modeling.h"
#include "host/scene/execution.h"
#include "host/core/registry.h"
#include "host/scene/messages.h"
#include "host/ui/dialogs.h"
#include "host/ui/progressdialog.h"
#include "host/ui/modaldialog.h"
#include "host/objects/polygonobject.h"
#include "meshio.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumelibraries.h"
#include "sceneeval.h"
#include "sceneio.h"
#include "zvol.h"

namespace {

using json = nlohmann::ordered_json;
using zta::BaseList2D;
using zta::Int32;

bool IsNativeScene(const std::string& path) {
  return std::filesystem::path(path).extension() == std::string(".") + zta::kSceneFileSuffix;
}

// A scene file's form by its extension; anything else is a usage error.
void RequireScene(const std::string& path) {
  if (IsNativeScene(path) || zta::IsJsonScenePath(path)) return;
  throw CLI::ValidationError("scene", "'" + path + "' is neither a ." + zta::kSceneFileSuffix + " nor a ." +
                                          zta::kSceneJsonSuffix + " scene file");
}

// The host's own types by name; plug-ins name themselves at registration.
std::string TypeName(Int32 type) {
  switch (type) {
    case zta::HOST_TYPE_POLYGON: return "Polygon";
    case zta::HOST_TYPE_SPLINE: return "Spline";
    case zta::HOST_TYPE_EMITTER: return "Emitter";
    case zta::HOST_TYPE_LINE: return "Line";
    case zta::HOST_TYPE_NULL: return "Null";
    case zta::HOST_TYPE_SPHERE: return "Sphere";
    case zta::HOST_TYPE_CUBE: return "Cube";
    case zta::HOST_TYPE_PARTICLE_GROUP: return "Particle Group";
    case zta::HOST_TYPE_MATRIX: return "Matrix";
    case zta::HOST_TYPE_FIELD_CARRIER: return "Field Carrier";
    case zta::HOST_TYPE_FIELD_OBJECT: return "Field Object";
    case zta::HOST_TAG_POINT: return "Point";
    case zta::HOST_TAG_POLYGON: return "Polygon";
    case zta::HOST_TAG_PHONG: return "Phong";
    case zta::HOST_TAG_UVW: return "UVW";
    case zta::HOST_TAG_VERTEXMAP: return "Vertex Map";
    default: break;
  }
  if (const zta::PluginInfo* info = zta::FindPlugin(type)) return info->name;
  return zta::FormatString("unknown type @", type);
}

// "a/b/c": the names from the top of the tree down to the node.
std::string ObjectPath(const BaseList2D* node) {
  std::string path;
  for (const zta::GeListNode* n = node; n; n = n->GetUp())
    path = static_cast<const BaseList2D*>(n)->GetName() + (path.empty() ? "" : "/" + path);
  return path;
}

json ValueJson(const zta::GeData& v, const zta::BaseDocument& doc) {
  switch (v.GetType()) {
    case zta::DATATYPE::NONE: return nullptr;
    case zta::DATATYPE::INT32: return v.GetInt32();
    case zta::DATATYPE::INT64: return v.GetInt64();
    case zta::DATATYPE::BOOL: return v.GetBool();
    case zta::DATATYPE::FLOAT: return v.GetFloat();
    case zta::DATATYPE::VECTOR: {
      const zta::Vector x = v.GetVector();
      return {x.x, x.y, x.z};
    }
    case zta::DATATYPE::MATRIX: {
      const zta::Matrix m = v.GetMatrix();
      return {{"off", {m.off.x, m.off.y, m.off.z}}, {"v1", {m.v1.x, m.v1.y, m.v1.z}},
              {"v2", {m.v2.x, m.v2.y, m.v2.z}}, {"v3", {m.v3.x, m.v3.y, m.v3.z}}};
    }
    case zta::DATATYPE::STRING: return v.GetString();
    case zta::DATATYPE::TIME: return {{"seconds", v.GetTime().Get()}};
    case zta::DATATYPE::LINK: {
      const BaseList2D* target = v.GetLink(&doc);
      return {{"link", target ? json(ObjectPath(target)) : json(nullptr)}};
    }
    case zta::DATATYPE::CONTAINER: {
      json c = json::object();
      for (const auto& [id, value] : *v.GetContainer()) c[std::to_string(id)] = ValueJson(value, doc);
      return {{"container", c}};
    }
    case zta::DATATYPE::CUSTOM: {
      const zta::CustomDataType* custom = v.GetCustomData();
      const zta::CustomDataTypeClass* cls = custom ? zta::FindCustomDataTypeClass(custom->GetCustomTypeId()) : nullptr;
      return {{"custom", cls ? json(cls->GetName()) : json(custom ? custom->GetCustomTypeId() : 0)}};
    }
  }
  return nullptr;
}

// The parameters of `node` that a fresh node of its type does not hold alike.
json ChangedParameters(const BaseList2D& node, const zta::BaseDocument& doc, bool isTag) {
  std::unique_ptr<BaseList2D> blank;
  if (isTag) blank = zta::BaseTag::Alloc(node.GetType());
  else if (dynamic_cast<const zta::BaseObject*>(&node)) blank = zta::BaseObject::Alloc(node.GetType());
  json out = json::object();
  for (const auto& [id, value] : *node.GetDataInstance()) {
    const zta::GeData* def = blank ? blank->GetDataInstance()->GetDataPointer(id) : nullptr;
    if (def && *def == value) continue;
    out[std::to_string(id)] = ValueJson(value, doc);
  }
  return out;
}

json NodeJson(BaseList2D& node, const zta::BaseDocument& doc, bool isTag) {
  json j;
  j["type"] = node.GetType();
  j["type_name"] = TypeName(node.GetType());
  j["name"] = node.GetName();
  j["parameters"] = ChangedParameters(node, doc, isTag);
  return j;
}

// Objects from `first` along its siblings, each with its tags, its children
// and its plug-in branches. Trees deeper than a scene file allows do not
// reach here.
json SiblingsJson(zta::GeListNode* first, const zta::BaseDocument& doc) {
  json list = json::array();
  for (zta::GeListNode* n = first; n; n = n->GetNext()) {
    auto& node = *static_cast<BaseList2D*>(n);
    json j = NodeJson(node, doc, false);
    if (auto* op = dynamic_cast<zta::BaseObject*>(&node)) {
      json tags = json::array();
      for (zta::BaseTag* t = op->GetFirstTag(); t; t = t->GetNext()) tags.push_back(NodeJson(*t, doc, true));
      if (!tags.empty()) j["tags"] = std::move(tags);
    }
    zta::BranchInfo branches[8];
    const Int32 count =
        node.GetNodeData() ? std::min<Int32>(node.GetNodeData()->ListBranches(&node, branches, 8, 0), 8) : 0;
    for (Int32 i = 0; i < count; ++i)
      j["branches"].push_back({{"name", branches[i].name},
                               {"objects", SiblingsJson(branches[i].head ? branches[i].head->GetFirst() : nullptr, doc)}});
    if (n->GetDown()) j["children"] = SiblingsJson(n->GetDown(), doc);
    list.push_back(std::move(j));
  }
  return list;
}

const char* UnitName(zta::DOCUMENTUNIT unit) {
  static const char* names[] = {"", "km", "m", "cm", "mm", "um", "nm", "mi", "yd", "ft", "in"};
  const Int32 u = Int32(unit);
  return u >= 1 && u <= 10 ? names[u] : "?";
}

json SceneJson(const std::string& path, zta::BaseDocument& doc) {
  json j;
  j["file"] = path;
  j["document"] = {{"fps", doc.GetFps()},
                   {"time", doc.GetTime().Get()},
                   {"min_time", doc.GetMinTime().Get()},
                   {"max_time", doc.GetMaxTime().Get()},
                   {"unit", UnitName(zta::GetDocumentUnit(&doc).GetUnit())},
                   {"unit_scale", zta::GetDocumentUnit(&doc).GetScale()}};
  j["objects"] = SiblingsJson(doc.GetFirstObject(), doc);
  json hooks = json::array();
  for (zta::GeListNode* h = doc.GetSceneHookListHead()->GetFirst(); h; h = h->GetNext())
    hooks.push_back(NodeJson(*static_cast<BaseList2D*>(h), doc, false));
  j["hooks"] = std::move(hooks);
  return j;
}

void PlainNode(std::ostringstream& o, const json& j, int indent, const char* lead) {
  o << std::string(size_t(indent), ' ') << lead << j["type_name"].get<std::string>() << " \""
    << j["name"].get<std::string>() << "\" (" << j["type"].dump() << ")";
  for (const auto& [id, value] : j["parameters"].items()) o << "  " << id << "=" << value.dump();
  o << "\n";
}

void PlainObjects(std::ostringstream& o, const json& objects, int indent) {
  for (const auto& j : objects) {
    PlainNode(o, j, indent, "- ");
    if (j.contains("tags"))
      for (const auto& t : j["tags"]) PlainNode(o, t, indent + 4, "tag ");
    if (j.contains("branches"))
      for (const auto& b : j["branches"]) {
        o << std::string(size_t(indent + 4), ' ') << "branch \"" << b["name"].get<std::string>() << "\"\n";
        PlainObjects(o, b["objects"], indent + 6);
      }
    if (j.contains("children")) PlainObjects(o, j["children"], indent + 2);
  }
}

std::string Plain(const json& j) {
  std::ostringstream o;
  const json& d = j["document"];
  o << j["file"].get<std::string>() << "\n";
  o << "  frame rate " << d["fps"].dump() << ", time " << d["time"].dump() << " s, range " << d["min_time"].dump()
    << " s to " << d["max_time"].dump() << " s, unit " << d["unit"].get<std::string>() << " (scale "
    << d["unit_scale"].dump() << ")\n";
  PlainObjects(o, j["objects"], 0);
  for (const auto& h : j["hooks"]) PlainNode(o, h, 0, "hook ");
  return o.str();
}

std::unique_ptr<zta::BaseDocument> Load(const zvol::Context& ctx, const std::string& path) {
  RequireScene(path);
  return zvol::LoadScene(ctx, path);
}

// `path` with the frame number before its extension: "out.0042.obj".
std::string FramePath(const std::string& path, int64_t frame) {
  const std::filesystem::path p(path);
  char number[32];
  std::snprintf(number, sizeof(number), ".%04lld", static_cast<long long>(frame));
  return (p.parent_path() / (p.stem().string() + number + p.extension().string())).string();
}

// The volumes of the objects and everything below them, in tree order.
void CollectVolumes(const zta::BaseObject* op, std::vector<zelmar::Volume>& out) {
  for (; op; op = op->GetNext()) {
    const zelmar::Volume v = zelmar::GetObjectVolume(op);
    if (v.IsInitialized() && v.HasGrid()) out.push_back(v);
    CollectVolumes(op->GetDown(), out);
  }
}

// The polygon objects among the objects and everything below them.
void CollectPolygons(const zta::BaseObject* op, std::vector<const zta::PolygonObject*>& out) {
  for (; op; op = op->GetNext()) {
    if (const auto* p = dynamic_cast<const zta::PolygonObject*>(op)) out.push_back(p);
    CollectPolygons(op->GetDown(), out);
  }
}

void WriteFrame(const zvol::Context& ctx, const std::vector<std::unique_ptr<zta::BaseObject>>& objects,
                const std::string& path, int64_t frame) {
  if (std::filesystem::path(path).extension() == ".vdb") {
    std::vector<zelmar::Volume> volumes;
    for (const auto& op : objects) CollectVolumes(op.get(), volumes);
    if (volumes.empty()) throw zvol::Failure(zta::FormatString("the scene holds no volume at frame @", frame));
    zvol::SaveVolumes(ctx, path, volumes);
  } else {
    std::vector<const zta::PolygonObject*> meshes;
    for (const auto& op : objects) CollectPolygons(op.get(), meshes);
    if (meshes.empty()) throw zvol::Failure(zta::FormatString("the scene holds no polygons at frame @", frame));
    auto joined = zvol::Take(zta::JoinPolygonObjects(meshes));
    zvol::Step step(ctx, "write " + std::filesystem::path(path).filename().string());
    zvol::WriteMesh(*joined, path);
  }
  ctx.Say("wrote " + path);
}

// The remesher command of the module, run as a person would: the objects
// selected, its dialog answered with the values given here.
struct RemeshOptions {
  std::string select;
  double voxelSize = 10.0;
  int subdivision = 0;
  double smooth = 0.0;
  bool live = false;
};

void Remesh(const zvol::Context& ctx, zta::BaseDocument& doc, const RemeshOptions& o) {
  constexpr Int32 kRemesherCommand = 1039863;
  enum : Int32 { kVoxelSize = 2220, kSubdivision = 2221, kSmoothing = 2222, kLive = 2223 };
  const zta::PluginInfo* plugin = zta::FindPlugin(kRemesherCommand);
  if (!plugin || !plugin->command) throw zvol::Failure("the remesher command is not registered");
  zvol::SelectObjectsByPath(doc, o.select);
  if (plugin->command->GetState(&doc) == 0) throw zvol::Failure("the selected objects show no polygons");
  zvol::Check(zta::ExecutePasses(&doc, ctx.thread) ? zta::Result<void>() : zta::IllegalStateError("the scene could not be evaluated"));
  const zta::DIALOGPOLICY policy = zta::GetDialogPolicy();
  zta::SetDialogPolicy(zta::DIALOGPOLICY::CALLBACK);
  zta::SetModalDialogCallback([&o](zta::GeModalDialog& dialog) {
    return dialog.Enter(kVoxelSize, zta::GeData(o.voxelSize)) && dialog.Enter(kSubdivision, zta::GeData(Int32(o.subdivision))) &&
           dialog.Enter(kSmoothing, zta::GeData(o.smooth)) && dialog.Enter(kLive, zta::GeData(o.live));
  });
  const bool ran = plugin->command->Execute(&doc);
  zta::SetModalDialogCallback(nullptr);
  zta::SetDialogPolicy(policy);
  if (!ran) throw zvol::Failure("the remesh failed");
}

// A Volume Builder's cache layer, baked over frames as a person would: the
// layer's range set, its Bake button pressed; the bake's progress dialog
// shows on the terminal and Ctrl-C is its cancel. A builder without a cache
// layer gets one, through the builder's function table.
struct BakeOptions {
  std::string builder;
  std::string layer;
  std::string frames;
};

void Bake(const zvol::Context& ctx, zta::BaseDocument& doc, const BakeOptions& o) {
  constexpr Int32 kBuilderType = 1039859, kCacheLayerType = 1050456;
  enum : Int32 { kFrameMode = 1000, kStart = 1001, kEnd = 1002, kBakeButton = 1003, kCustomFrames = 2 };
  zta::BaseObject* builder = zvol::FindObjectByPath(doc, o.builder);
  if (!builder) throw zvol::Failure("the scene has no object at '" + o.builder + "'");
  if (builder->GetType() != kBuilderType) throw zvol::Failure("'" + o.builder + "' is no Volume Builder");
  auto findLayer = [&]() -> zta::BaseObject* {
    zta::BranchInfo branches[4];
    const Int32 n = builder->GetNodeData()->ListBranches(builder, branches, 4, 0);
    for (Int32 i = 0; i < n; ++i)
      for (zta::GeListNode* c = branches[i].head ? branches[i].head->GetFirst() : nullptr; c; c = c->GetNext()) {
        auto* op = static_cast<zta::BaseObject*>(c);
        if (op->GetType() == kCacheLayerType && (o.layer.empty() || op->GetName() == o.layer)) return op;
      }
    return nullptr;
  };
  zta::BaseObject* layer = findLayer();
  if (!layer && !o.layer.empty()) throw zvol::Failure("the builder has no cache layer '" + o.layer + "'");
  if (!layer) {
    const auto* table = static_cast<const zelmar::VolumeBuilderLibrary*>(zta::FindLibrary(zelmar::ID_VOLUMEBUILDER_LIBRARY));
    std::unique_ptr<zta::BaseObject> made = zta::AllocObject(kCacheLayerType);
    if (!table || !made) throw zvol::Failure("no cache layer can be made");
    made->SetName("Cache");
    // A new layer's row goes on top, where it stands for every row below.
    if (!table->AddInput(builder, made.get(), nullptr, nullptr)) throw zvol::Failure("the cache layer could not be added");
    made.release();
    layer = findLayer();
    if (!layer) throw zvol::Failure("the cache layer could not be added");
  }
  zta::BaseContainer* bc = layer->GetDataInstance();
  if (!o.frames.empty()) {
    long long a = 0, b = 0;
    char rest = 0;
    if (std::sscanf(o.frames.c_str(), "%lld:%lld%c", &a, &b, &rest) != 2 || b < a || b - a > 1000000)
      throw CLI::ValidationError("--frames", "expected A:B with A <= B, got '" + o.frames + "'");
    bc->SetInt32(kFrameMode, kCustomFrames);
    bc->SetInt32(kStart, Int32(a));
    bc->SetInt32(kEnd, Int32(b));
  }
  zvol::Progress progress(ctx, "bake");
  zta::SetProgressCancelCallback([&](const std::string&, zta::Float fraction) {
    progress.Set(fraction);
    return ctx.thread && ctx.thread->TestBreak();
  });
  zta::DescriptionCommand press{zta::DescID(kBakeButton)};
  const bool baked = layer->Message(zta::MSG_DESCRIPTION_COMMAND, &press);
  zta::SetProgressCancelCallback(nullptr);
  ctx.CheckInterrupted();
  if (!baked) throw zvol::Failure("the bake failed");
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string scene;
    bool json = false;
    std::string input;
    std::string output;
    std::optional<int64_t> frame;
    std::string frames;
    std::string evalOutput;
  };
  auto o = std::make_shared<Options>();
  auto r = std::make_shared<RemeshOptions>();
  auto k = std::make_shared<BakeOptions>();
  app.require_subcommand(1);
  CLI::App* info = app.add_subcommand("info", "the tree of a scene: types, names, parameters that differ from their defaults");
  info->add_option("scene", o->scene, "the scene file (.zscene or .json)")->required();
  info->add_flag("--json", o->json, "print one JSON object");
  CLI::App* convert = app.add_subcommand("convert", "read a scene and write it again, in the form its extension names");
  convert->add_option("input", o->input, "the scene file to read (.zscene or .json)")->required();
  convert->add_option("output", o->output, "the scene file to write (.zscene or .json)")->required();
  CLI::App* eval = app.add_subcommand(
      "eval", "evaluate a scene and write what its top-level objects hold: polygons to a mesh file, volumes to .vdb");
  eval->add_option("scene", o->scene, "the scene file (.zscene or .json)")->required();
  auto* one = eval->add_option("--frame", o->frame, "the frame to evaluate (default: the scene's current frame)");
  eval->add_option("--frames", o->frames, "A:B: every frame from A to B, each to OUT with its number before the extension")
      ->excludes(one);
  eval->add_option("-o,--output", o->evalOutput, "the file to write: .vdb, or a mesh file (OBJ, PLY, STL, GLB)")
      ->required();

  CLI::App* remesh = app.add_subcommand(
      "remesh", "remesh selected objects of a scene through voxels, baked into a polygon object or live");
  remesh->add_option("scene", o->input, "the scene file to read (.zscene or .json)")->required();
  remesh->add_option("--select", r->select, "the objects, as paths of names from the top: a,group/b")->required();
  remesh->add_option("--voxel-size", r->voxelSize, "edge of a voxel, in scene units")
      ->capture_default_str()
      ->check(CLI::Range(0.01, 1e18));
  remesh->add_option("--subdivision", r->subdivision, "levels of subdivision of each source first")
      ->capture_default_str()
      ->check(CLI::Range(0, 7));
  remesh->add_option("--smooth", r->smooth, "strength of the smoothing, 0 to 1")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  remesh->add_flag("--live", r->live, "keep a Volume Mesher over a Volume Builder instead of baking");
  remesh->add_option("-o,--output", o->output, "the scene file to write (.zscene or .json)")->required();

  CLI::App* bake = app.add_subcommand(
      "bake", "bake a Volume Builder's cache layer over frames, so that the scene plays them back without the rows below");
  bake->add_option("scene", o->input, "the scene file to read (.zscene or .json)")->required();
  bake->add_option("--builder", k->builder, "the Volume Builder, as a path of names from the top: group/builder")
      ->required();
  bake->add_option("--layer", k->layer, "the cache layer by name (default: the first; one is added when there is none)");
  bake->add_option("--frames", k->frames, "A:B: the frames to bake (default: the layer's own range)");
  bake->add_option("-o,--output", o->output, "the scene file to write (.zscene or .json)")->required();

  return [o, r, k, info, convert, eval, remesh, bake](const zvol::Context& ctx) {
    if (bake->parsed()) {
      RequireScene(o->output);
      zvol::CheckOutputPath(o->output);
      auto doc = Load(ctx, o->input);
      Bake(ctx, *doc, *k);
      zvol::SaveScene(ctx, doc.get(), o->output);
      ctx.Say("wrote " + o->output);
      return 0;
    }
    if (remesh->parsed()) {
      RequireScene(o->output);
      zvol::CheckOutputPath(o->output);
      auto doc = Load(ctx, o->input);
      Remesh(ctx, *doc, *r);
      zvol::SaveScene(ctx, doc.get(), o->output);
      ctx.Say("wrote " + o->output);
      return 0;
    }
    if (eval->parsed()) {
      const bool vdb = std::filesystem::path(o->evalOutput).extension() == ".vdb";
      if (!vdb && !zvol::IsWritableMeshPath(o->evalOutput))
        throw CLI::ValidationError("--output", "'" + o->evalOutput + "' is neither .vdb nor a mesh file zvol writes");
      zvol::CheckOutputPath(o->evalOutput);
      auto doc = Load(ctx, o->scene);
      std::vector<int64_t> frames;
      if (!o->frames.empty()) {
        long long a = 0, b = 0;
        char rest = 0;
        if (std::sscanf(o->frames.c_str(), "%lld:%lld%c", &a, &b, &rest) != 2 || b < a || b - a > 1000000)
          throw CLI::ValidationError("--frames", "expected A:B with A <= B, got '" + o->frames + "'");
        for (long long f = a; f <= b; ++f) frames.push_back(f);
      } else {
        frames.push_back(o->frame ? *o->frame : doc->GetTime().GetFrame(doc->GetFps()));
      }
      zvol::Progress progress(ctx, "evaluate");
      for (size_t i = 0; i < frames.size(); ++i) {
        const auto objects = zvol::EvaluateScene(ctx, *doc, frames[i]);
        WriteFrame(ctx, objects, o->frames.empty() ? o->evalOutput : FramePath(o->evalOutput, frames[i]), frames[i]);
        progress.Set(double(i + 1) / double(frames.size()));
      }
      return 0;
    }
    if (info->parsed()) {
      auto doc = Load(ctx, o->scene);
      const json j = SceneJson(o->scene, *doc);
      const std::string text = o->json ? j.dump(2) + "\n" : Plain(j);
      std::fputs(text.c_str(), stdout);
      return 0;
    }
    RequireScene(o->output);
    zvol::CheckOutputPath(o->output);
    auto doc = Load(ctx, o->input);
    zvol::SaveScene(ctx, doc.get(), o->output);
    ctx.Say("wrote " + o->output);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("scene", "read, describe and convert scene files", Setup);
