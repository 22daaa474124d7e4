// The command layer: any volume command by id, its settings as a dict named
// as `zvol command list ID` names them, its inputs as Volumes and meshes.
// Commands work in the scene's frame; volumes, vectors, matrices and meshes
// are mirrored into it on the way in and back on the way out.
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "bridge.h"
#include "host/objects/polygonobject.h"
#include "host/scene/commanddata.h"
#include "zelmar/fileframe.h"
#include "zelmar/volumecommands.h"

namespace zvpy {

py::tuple PolygonObjectToArrays(const zta::PolygonObject& poly, bool mirror);

namespace {

const char* TypeName(zelmar::COMMANDVALUETYPE t) {
  switch (t) {
    case zelmar::COMMANDVALUETYPE::BOOL: return "bool";
    case zelmar::COMMANDVALUETYPE::INT32: return "int";
    case zelmar::COMMANDVALUETYPE::FLOAT: return "float";
    case zelmar::COMMANDVALUETYPE::VECTOR: return "vector";
    case zelmar::COMMANDVALUETYPE::MATRIX: return "matrix";
    case zelmar::COMMANDVALUETYPE::LINK: return "link";
    case zelmar::COMMANDVALUETYPE::FIELDLIST: return "fieldlist";
    case zelmar::COMMANDVALUETYPE::SPLINEDATA: return "spline";
  }
  return "unknown";
}

const zelmar::VolumeCommandInfo& Info(const std::string& id) {
  EnsureModuleStarted();
  Check(zelmar::RegisterVolumeCommands());
  const auto* info = zelmar::FindVolumeCommandInfo(id);
  if (!info) throw py::value_error("no command '" + id + "'; see zelmar.commands.list()");
  return *info;
}

std::string TempPath() {
  static std::atomic<uint64_t> n{0};
  return (std::filesystem::temp_directory_path() /
          (".zelmar-cmd-" + std::to_string(::getpid()) + "-" + std::to_string(n.fetch_add(1)) + ".vdb"))
      .string();
}

struct RemoveFile {
  std::string path;
  ~RemoveFile() {
    std::error_code ec;
    std::filesystem::remove(path, ec);
  }
};

// A volume of the outside frame in the scene's: written as it stands and read
// back through the mirror every .vdb read applies.
zelmar::Volume ToScene(const zelmar::Volume& v) {
  RemoveFile temp{TempPath()};
  const auto url = zta::Url::FromSystemPath(temp.path);
  Check(zelmar::FileFrameInterface::SaveVDBFile(url, {v}, {}));
  return Take(zelmar::Volume::CreateFromFile(url, 1.0, 0));
}

zelmar::Volume ToOutside(const zelmar::Volume& v) {
  RemoveFile temp{TempPath()};
  const auto url = zta::Url::FromSystemPath(temp.path);
  Check(zelmar::VolumeToolsInterface::SaveVDBFile(url, 1.0, {v}, {}));
  return Take(zelmar::FileFrameInterface::LoadGrid(url, 0));
}

void ApplySetting(const zelmar::VolumeCommandInfo& info, const std::string& name, const py::handle& value,
                  zta::BaseContainer& bc) {
  const auto* s = info.FindSetting(name);
  if (!s) throw py::value_error("the command " + std::string(info.shortName) + " has no setting '" + name + "'");
  const std::string what = "setting '" + name + "'";
  switch (s->type) {
    case zelmar::COMMANDVALUETYPE::BOOL:
      if (!PyBool_Check(value.ptr())) throw py::type_error(what + " takes a bool");
      bc.SetBool(s->key, value.cast<bool>());
      break;
    case zelmar::COMMANDVALUETYPE::INT32:
      if (!py::isinstance<py::int_>(value) || PyBool_Check(value.ptr())) throw py::type_error(what + " takes an int");
      bc.SetInt32(s->key, As<int32_t>(value, "an int32"));
      break;
    case zelmar::COMMANDVALUETYPE::FLOAT: {
      if (!py::isinstance<py::float_>(value) && !py::isinstance<py::int_>(value)) throw py::type_error(what + " takes a number");
      const double f = value.cast<double>();
      if (!std::isfinite(f)) throw py::value_error(what + " must be finite");
      bc.SetFloat(s->key, f);
      break;
    }
    case zelmar::COMMANDVALUETYPE::VECTOR: bc.SetVector(s->key, Mirror(RequireVector(value, what.c_str()))); break;
    case zelmar::COMMANDVALUETYPE::MATRIX: bc.SetMatrix(s->key, Mirror(ArrayToMatrix(value, what.c_str()))); break;
    case zelmar::COMMANDVALUETYPE::FIELDLIST:
      bc.SetCustomData(s->key, std::make_shared<zta::FieldList>(*As<PyFieldList&>(value, "a FieldList").fields));
      break;
    case zelmar::COMMANDVALUETYPE::SPLINEDATA:
      bc.SetCustomData(s->key, std::make_shared<zta::SplineData>(*As<PySpline&>(value, "a Spline").spline));
      break;
    case zelmar::COMMANDVALUETYPE::LINK:
      throw py::type_error(what + " links to an object of a scene, which a command run from Python does not have");
  }
}

// A mesh (points, polygons) of the outside frame as a polygon object of the scene.
std::unique_ptr<zta::BaseObject> MeshInput(const py::tuple& mesh) {
  if (mesh.size() != 2) throw py::value_error("a mesh input is a tuple (points, polygons)");
  auto pts = RequirePoints(mesh[0], "points");
  auto idx = RequireIndices(mesh[1], "polygons", {3, 4});
  const auto np = pts.shape(0), nq = idx.shape(0), w = idx.shape(1);
  if (np > INT32_MAX || nq > INT32_MAX) throw py::value_error("the mesh is too large");
  auto poly = zta::PolygonObject::Alloc(int32_t(np), int32_t(nq));
  if (!poly) throw std::bad_alloc();
  zta::Vector* p = poly->GetPointW();
  for (py::ssize_t i = 0; i < np; ++i) p[i] = Mirror(zta::Vector(pts.data()[3 * i], pts.data()[3 * i + 1], pts.data()[3 * i + 2]));
  zta::CPolygon* q = poly->GetPolygonW();
  const int64_t* d = idx.data();
  for (py::ssize_t i = 0; i < nq; ++i) {
    int64_t v[4] = {d[w * i], d[w * i + 1], d[w * i + 2], w == 4 ? d[w * i + 3] : -1};
    for (int k = 0; k < 4; ++k)
      if ((k < 3 || v[3] >= 0) && (v[k] < 0 || v[k] >= np))
        throw py::value_error("polygon " + std::to_string(i) + " has the index " + std::to_string(v[k]) +
                              ", outside the " + std::to_string(np) + " points");
    // Mirrored, the winding turns the other way round.
    if (v[3] < 0 || v[3] == v[2]) q[i] = zta::CPolygon(int32_t(v[2]), int32_t(v[1]), int32_t(v[0]));
    else q[i] = zta::CPolygon(int32_t(v[3]), int32_t(v[2]), int32_t(v[1]), int32_t(v[0]));
  }
  return poly;
}

}  // namespace

void BindCommands(py::module_& m) {
  m.def("command_list", [] {
    EnsureModuleStarted();
    Check(zelmar::RegisterVolumeCommands());
    std::vector<std::string> ids;
    for (const auto& info : zelmar::GetVolumeCommandInfos()) ids.push_back(info.id);
    return ids;
  });
  m.def(
      "command_info",
      [](const std::string& id) {
        const auto& info = Info(id);
        py::dict settings;
        for (const auto& s : info.settings) {
          py::dict entry;
          entry["type"] = TypeName(s.type);
          entry["help"] = s.help;
          entry["key"] = s.key;
          settings[py::str(s.name)] = entry;
        }
        py::dict out;
        out["id"] = info.id;
        out["short_name"] = info.shortName;
        out["inputs"] = info.inputs;
        out["settings"] = settings;
        return out;
      },
      py::arg("command"));
  m.def(
      "command_run",
      [](const std::string& id, const py::object& inputs, const py::object& settings) {
        const auto& info = Info(id);
        auto data = Take(zta::CreateCommandData(zelmar::kVolumeCommandDataClass));
        if (!settings.is_none()) {
          if (!py::isinstance<py::dict>(settings)) throw py::type_error("settings must be a dict of names to values");
          for (auto item : settings.cast<py::dict>())
            ApplySetting(info, py::str(item.first).cast<std::string>(), item.second, data->GetSettings());
        }
        std::vector<std::unique_ptr<zta::BaseObject>> objects;
        if (!inputs.is_none()) {
          for (auto item : py::iter(inputs)) {
            if (py::isinstance<PyVolume>(item)) {
              const auto& v = item.cast<PyVolume&>().GetGrid("an input volume");
              objects.push_back(Take(zelmar::CreateVolumeObject(ToScene(v))));
            } else if (py::isinstance<py::tuple>(item)) {
              objects.push_back(MeshInput(item.cast<py::tuple>()));
            } else {
              throw py::type_error("inputs are Volumes and (points, polygons) meshes");
            }
          }
        }
        for (const auto& o : objects) data->AddInput(o.get());
        zta::COMMANDRESULT state = zta::COMMANDRESULT::OK;
        RunReleased([&](const zta::ThreadRef& t) { state = Take(zta::InvokeCommand(info.id, *data, t)); });
        if (state == zta::COMMANDRESULT::SKIP)
          throw py::value_error(std::string(info.shortName) + " had nothing to do with these inputs and settings");
        if (state == zta::COMMANDRESULT::BREAK) throw std::runtime_error(std::string(info.shortName) + " was stopped");
        py::list out;
        for (zta::Int32 i = 0; i < data->GetOutputCount(); ++i) {
          const zta::BaseObject* op = data->GetOutput(i);
          if (const auto* poly = dynamic_cast<const zta::PolygonObject*>(op)) {
            out.append(PolygonObjectToArrays(*poly, true));
            continue;
          }
          const zelmar::Volume v = zelmar::GetObjectVolume(op);
          if (v.IsInitialized() && v.HasGrid()) out.append(std::make_shared<PyVolume>(ToOutside(v)));
        }
        return out;
      },
      py::arg("command"), py::arg("inputs") = py::none(), py::arg("settings") = py::none());
}

}  // namespace zvpy
