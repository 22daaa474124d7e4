// Scenes: documents read and written in either file form, and their objects
// by path. An object stays valid as long as its document lives; the Python
// object keeps the document alive.
#include "bridge.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"
#include "host/core/format.h"
#include "host/modeling/modeling.h"
#include "host/objects/polygonobject.h"
#include "host/scene/description.h"
#include "host/scene/execution.h"
#include "host/scene/gedata.h"
#include "host/scene/parameters.h"
#include "zelmar/volumecommands.h"
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>

#include "zelmar/fileframe.h"

namespace zvpy {

namespace {

// Scene work is not safe from several threads at once (documents, their
// caches and the host's registries are shared), so it goes one call at a
// time. A thread that holds the GIL lets it go while it waits, since the
// call it waits for needs the GIL now and then.
std::mutex g_sceneMutex;

class SceneLock {
 public:
  SceneLock() : lock_(g_sceneMutex, std::defer_lock) {
    if (PyGILState_Check()) {
      py::gil_scoped_release release;
      lock_.lock();
    } else {
      lock_.lock();
    }
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

struct PyDocument {
  std::shared_ptr<zta::BaseDocument> doc;
};

struct PySceneObject {
  std::shared_ptr<zta::BaseDocument> doc;  // keeps the object alive
  zta::BaseObject* op = nullptr;
};

std::string PathOf(const zta::BaseObject* op) {
  std::string path = op->GetName();
  for (auto* up = op->GetUp(); up; up = up->GetUp()) path = up->GetName() + "/" + path;
  return path;
}

void Walk(const std::shared_ptr<zta::BaseDocument>& doc, py::list& out) {
  // An explicit stack keeps deep hierarchies off the C++ stack.
  std::vector<zta::BaseObject*> stack;
  std::vector<zta::BaseObject*> roots;
  for (auto* op = doc->GetFirstObject(); op; op = op->GetNext()) roots.push_back(op);
  for (auto it = roots.rbegin(); it != roots.rend(); ++it) stack.push_back(*it);
  while (!stack.empty()) {
    auto* op = stack.back();
    stack.pop_back();
    out.append(PySceneObject{doc, op});
    std::vector<zta::BaseObject*> kids;
    for (auto* c = op->GetDown(); c; c = c->GetNext()) kids.push_back(c);
    for (auto it = kids.rbegin(); it != kids.rend(); ++it) stack.push_back(*it);
  }
}

// The id of a parameter by the symbol its description gives it.
zta::DescID ParameterId(zta::BaseObject* op, const std::string& name) {
  zta::Description desc;
  if (!zta::GetNodeDescription(op, desc)) throw py::key_error("the object '" + op->GetName() + "' has no description");
  const zta::DescID* id = desc.FindIdent(name);
  if (!id) throw py::key_error("the object '" + op->GetName() + "' has no parameter '" + name + "'");
  return *id;
}

std::vector<std::string> ParameterNames(zta::BaseObject* op) {
  std::vector<std::string> out;
  zta::Description desc;
  if (!zta::GetNodeDescription(op, desc)) return out;
  for (zta::Int32 i = 0; i < desc.GetCount(); ++i) {
    const zta::String ident = desc.GetSettings(i).GetString(zta::DESC_IDENT);
    if (!ident.empty()) out.push_back(ident);
  }
  return out;
}

py::object GeDataToPython(const zta::GeData& d) {
  switch (d.GetType()) {
    case zta::DATATYPE::INT32: return py::int_(d.GetInt32());
    case zta::DATATYPE::INT64: return py::int_(d.GetInt64());
    case zta::DATATYPE::BOOL: return py::bool_(d.GetBool());
    case zta::DATATYPE::FLOAT: return py::float_(d.GetFloat());
    case zta::DATATYPE::VECTOR: {
      const auto v = d.GetVector();
      return py::make_tuple(v.x, v.y, v.z);
    }
    case zta::DATATYPE::MATRIX: return MatrixToArray(d.GetMatrix());
    case zta::DATATYPE::STRING: return py::str(d.GetString());
    case zta::DATATYPE::TIME: return py::float_(d.GetTime().Get());
    case zta::DATATYPE::CUSTOM:
      // Curves and field lists come as copies that the tools' records take.
      if (const auto* spline = dynamic_cast<const zta::SplineData*>(d.GetCustomData())) {
        PySpline out;
        out.spline = std::make_shared<zta::SplineData>(*spline);
        return py::cast(std::move(out));
      }
      if (const auto* fields = dynamic_cast<const zta::FieldList*>(d.GetCustomData())) {
        PyFieldList out;
        out.fields = std::make_shared<zta::FieldList>(*fields);
        return py::cast(std::move(out));
      }
      return py::none();
    default: return py::none();
  }
}

// A Python value as the type the parameter holds now.
zta::GeData PythonToGeData(const zta::GeData& current, const py::handle& v, const std::string& name) {
  try {
    switch (current.GetType()) {
      case zta::DATATYPE::INT32:
        if (!py::isinstance<py::int_>(v)) break;
        return zta::GeData(v.cast<zta::Int32>());
      case zta::DATATYPE::INT64:
        if (!py::isinstance<py::int_>(v)) break;
        return zta::GeData(v.cast<zta::Int64>());
      case zta::DATATYPE::BOOL:
        if (!PyBool_Check(v.ptr()) && !py::isinstance<py::int_>(v)) break;
        return zta::GeData(v.cast<bool>());
      case zta::DATATYPE::FLOAT: {
        if (!py::isinstance<py::float_>(v) && !py::isinstance<py::int_>(v)) break;
        const double f = v.cast<double>();
        if (!std::isfinite(f)) throw py::value_error("parameter '" + name + "' must be finite");
        return zta::GeData(zta::Float(f));
      }
      case zta::DATATYPE::VECTOR: return zta::GeData(RequireVector(v, name.c_str()));
      case zta::DATATYPE::MATRIX: return zta::GeData(ArrayToMatrix(v, name.c_str()));
      case zta::DATATYPE::STRING:
        if (!py::isinstance<py::str>(v)) break;
        return zta::GeData(v.cast<std::string>());
      case zta::DATATYPE::CUSTOM:
        if (dynamic_cast<const zta::SplineData*>(current.GetCustomData()) && py::isinstance<PySpline>(v))
          return zta::GeData(std::shared_ptr<const zta::CustomDataType>(
              std::make_shared<zta::SplineData>(*v.cast<PySpline&>().spline)));
        if (dynamic_cast<const zta::FieldList*>(current.GetCustomData()) && py::isinstance<PyFieldList>(v))
          return zta::GeData(std::shared_ptr<const zta::CustomDataType>(
              std::make_shared<zta::FieldList>(*v.cast<PyFieldList&>().fields)));
        break;
      default:
        throw py::type_error("parameter '" + name + "' cannot be set from Python");
    }
  } catch (const py::cast_error&) {
  }
  throw py::type_error("parameter '" + name + "' does not take a " + std::string(py::str(v.get_type().attr("__name__"))));
}

// What the objects of `first` and its siblings show, as free objects in
// world space: a volume object's copy, the current state of anything else
// that shows geometry; a null gives what its children show.
void Gather(zta::BaseDocument& doc, zta::BaseObject* first, const zta::ThreadRef& thread,
            std::vector<std::unique_ptr<zta::BaseObject>>& out) {
  for (zta::BaseObject* op = first; op; op = op->GetNext()) {
    const bool volume = zelmar::GetObjectVolume(op).IsInitialized();
    const bool geometry = op->GetType() == zta::HOST_TYPE_POLYGON || op->GetType() == zta::HOST_TYPE_SPLINE ||
                          op->GetType() == zta::HOST_TYPE_LINE;
    if (!volume && !geometry && !op->GetCache() && !op->GetDeformCache()) {
      Gather(doc, op->GetDown(), thread, out);
      continue;
    }
    std::unique_ptr<zta::BaseObject> copy;
    if (volume) {
      copy.reset(static_cast<zta::BaseObject*>(op->GetClone(zta::COPYFLAGS_NO_HIERARCHY).release()));
      if (!copy) throw std::runtime_error("out of memory copying " + op->GetName());
    } else {
      zta::ModelingCommandData data;
      data.doc = &doc;
      data.op = op;
      data.objects = {op};
      data.thread = thread;
      Check(zta::SendModelingCommand(zta::MCOMMAND_CURRENTSTATETOOBJECT, data));
      if (data.result.empty()) continue;
      copy = std::move(data.result.front());
    }
    if (auto* up = dynamic_cast<zta::BaseObject*>(op->GetUp())) copy->SetMl(up->GetMg() * copy->GetMl());
    copy->SetName(PathOf(op));
    out.push_back(std::move(copy));
  }
}

void CollectVolumes(const zta::BaseObject* op, std::vector<std::pair<std::string, zelmar::Volume>>& out) {
  for (; op; op = op->GetNext()) {
    const zelmar::Volume v = zelmar::GetObjectVolume(op);
    if (v.IsInitialized() && v.HasGrid()) out.emplace_back(op->GetName(), v);
    CollectVolumes(op->GetDown(), out);
  }
}

void CollectPolygons(const zta::BaseObject* op, std::vector<std::pair<std::string, const zta::PolygonObject*>>& out) {
  for (; op; op = op->GetNext()) {
    if (const auto* p = dynamic_cast<const zta::PolygonObject*>(op)) out.emplace_back(op->GetName(), p);
    CollectPolygons(op->GetDown(), out);
  }
}

// Evaluates the document at `frame` on the calling thread.
std::vector<std::unique_ptr<zta::BaseObject>> EvaluateAt(zta::BaseDocument& doc, int64_t frame, const zta::ThreadRef& thread) {
  doc.SetTime(zta::BaseTime(frame, doc.GetFps()));
  const bool done = zta::ExecutePasses(&doc, thread);
  if (thread && thread->TestBreak()) throw std::runtime_error("evaluation stopped");
  if (!done) throw std::runtime_error("evaluation stopped");
  std::vector<std::unique_ptr<zta::BaseObject>> shown;
  Gather(doc, doc.GetFirstObject(), thread, shown);
  return shown;
}

std::string TempName() {
  static std::atomic<uint64_t> n{0};
  return std::to_string(::getpid()) + "-" + std::to_string(n.fetch_add(1));
}

// A scene volume brought into the frame of .vdb files: written as a file
// (which mirrors) and read back in the file's own frame.
zelmar::Volume ToOutsideFrame(const zelmar::Volume& v) {
  namespace fs = std::filesystem;
  const fs::path temp = fs::temp_directory_path() / (".zelmar-frame-" + TempName() + ".vdb");
  struct Remove {
    fs::path p;
    ~Remove() {
      std::error_code ec;
      fs::remove(p, ec);
    }
  } remove{temp};
  const auto url = zta::Url::FromSystemPath(temp.string());
  Check(zelmar::VolumeToolsInterface::SaveVDBFile(url, 1.0, {v}, {}));
  return Take(zelmar::FileFrameInterface::LoadGrid(url, 0));
}

}  // namespace

py::tuple PolygonObjectToArrays(const zta::PolygonObject& poly, bool mirror);

std::shared_ptr<zta::BaseDocument> DocumentOf(const py::handle& obj) {
  if (py::isinstance<PyDocument>(obj)) return obj.cast<PyDocument&>().doc;
  if (py::isinstance<PySceneObject>(obj)) return obj.cast<PySceneObject&>().doc;
  return nullptr;
}

std::string ObjectPath(const zta::BaseObject* op) { return PathOf(op); }

void BindScene(py::module_& m) {
  py::class_<PySceneObject>(m, "SceneObject", "An object of a Document.")
      .def_property_readonly("name", [](const PySceneObject& o) { return o.op->GetName(); })
      .def_property_readonly("path", [](const PySceneObject& o) { return PathOf(o.op); })
      .def_property_readonly("type_id", [](const PySceneObject& o) { return o.op->GetType(); })
      .def_property_readonly("children", [](const PySceneObject& o) {
        py::list out;
        for (auto* c = o.op->GetDown(); c; c = c->GetNext()) out.append(PySceneObject{o.doc, c});
        return out;
      })
      .def_property_readonly("global_matrix", [](const PySceneObject& o) { return MatrixToArray(Mirror(o.op->GetMg())); },
                             "The object's global matrix in the outside (right-handed) frame.")
      .def_property_readonly("parameters", [](const PySceneObject& o) { return ParameterNames(o.op); },
                             "The names of the object's parameters, as its description gives them.")
      .def(
          "get",
          [](const PySceneObject& o, const std::string& name) {
            SceneLock lock;
            zta::GeData value;
            if (!zta::GetParameter(o.op, ParameterId(o.op, name), value)) throw py::key_error("parameter '" + name + "' could not be read");
            // A field list's linked layers stand where their objects stand now.
            if (const auto* fields = dynamic_cast<const zta::FieldList*>(value.GetCustomData())) {
              PyFieldList out;
              out.fields = std::make_shared<zta::FieldList>(fields->Resolve(o.doc.get()));
              return py::cast(std::move(out));
            }
            return GeDataToPython(value);
          },
          py::arg("name"), "A parameter by its description name. Vectors and matrices are as the scene holds them.")
      .def(
          "set",
          [](const PySceneObject& o, const std::string& name, const py::object& v) {
            SceneLock lock;
            const zta::DescID id = ParameterId(o.op, name);
            zta::GeData current;
            if (!zta::GetParameter(o.op, id, current)) throw py::key_error("parameter '" + name + "' could not be read");
            const zta::GeData value = PythonToGeData(current, v, name);
            if (!zta::SetParameter(o.op, id, value)) throw py::value_error("parameter '" + name + "' refused the value");
          },
          py::arg("name"), py::arg("value"), "Sets a parameter by its description name; the value keeps the parameter's type.")
      .def_property_readonly("volume", [](const PySceneObject& o) -> py::object {
        SceneLock lock;
        const zelmar::Volume v = zelmar::GetObjectVolume(o.op);
        if (!v.IsInitialized() || !v.HasGrid()) return py::none();
        return py::cast(std::make_shared<PyVolume>(ToOutsideFrame(v)));
      }, "The volume a volume object holds, in the frame of .vdb files; None for other objects.")
      .def("__repr__", [](const PySceneObject& o) { return "<zelmar.SceneObject '" + PathOf(o.op) + "'>"; });

  py::class_<PyDocument>(m, "Document", "A scene: its objects, read from and written to .zscene or .json files.")
      .def(py::init([] {
        EnsureModuleStarted();
        return PyDocument{std::shared_ptr<zta::BaseDocument>(zta::BaseDocument::Alloc())};
      }))
      .def_static(
          "load",
          [](const std::string& path) {
            EnsureModuleStarted();
            std::unique_ptr<zta::BaseDocument> doc;
            SceneLock lock;
            {
              py::gil_scoped_release release;
              auto r = zta::IsJsonScenePath(path) ? zta::LoadDocumentJson(path) : zta::LoadDocument(path);
              if (r) doc = std::move(r.GetValue());
              else {
                py::gil_scoped_acquire acquire;
                Raise(r.GetError());
              }
            }
            return PyDocument{std::shared_ptr<zta::BaseDocument>(std::move(doc))};
          },
          py::arg("path"), "Reads a scene: the native form (.zscene) or JSON (.json).")
      .def(
          "save",
          [](PyDocument& d, const std::string& path) {
            SceneLock lock;
            py::gil_scoped_release release;
            auto r = zta::IsJsonScenePath(path) ? zta::SaveDocumentJson(d.doc.get(), path) : zta::SaveDocument(d.doc.get(), path);
            if (!r) {
              py::gil_scoped_acquire acquire;
              Raise(r.GetError());
            }
          },
          py::arg("path"), "Writes the scene; the form follows the extension.")
      .def("objects", [](const PyDocument& d) {
        py::list out;
        Walk(d.doc, out);
        return out;
      }, "Every object, depth first in the order of the object list.")
      .def(
          "find",
          [](const PyDocument& d, const std::string& path) {
            py::list all;
            Walk(d.doc, all);
            for (auto item : all) {
              auto& o = item.cast<PySceneObject&>();
              if (PathOf(o.op) == path) return o;
            }
            throw py::key_error("no object '" + path + "' in the document");
          },
          py::arg("path"), "The object at a path of names joined by '/'.")
      .def(
          "evaluate",
          [](PyDocument& d, int64_t frame, const ProgressCallback& progress) {
            std::vector<std::unique_ptr<zta::BaseObject>> shown;
            // The objects shown are copies, free of the document once made.
            RunReleased([&](const zta::ThreadRef& t) {
              SceneLock lock;
              shown = EvaluateAt(*d.doc, frame, t);
            }, progress);
            std::vector<std::pair<std::string, zelmar::Volume>> volumes;
            std::vector<std::pair<std::string, const zta::PolygonObject*>> meshes;
            for (const auto& op : shown) {
              CollectVolumes(op.get(), volumes);
              CollectPolygons(op.get(), meshes);
            }
            py::dict outVolumes, outMeshes;
            // Names may repeat; the later ones get "#2", "#3", ... in the order shown.
            auto key = [](py::dict& d, const std::string& name) {
              std::string k = name;
              for (int n = 2; d.contains(py::str(k)); ++n) k = name + "#" + std::to_string(n);
              return py::str(k);
            };
            for (const auto& [name, v] : volumes) outVolumes[key(outVolumes, name)] = std::make_shared<PyVolume>(ToOutsideFrame(v));
            for (const auto& [name, p] : meshes) outMeshes[key(outMeshes, name)] = PolygonObjectToArrays(*p, true);
            py::dict out;
            out["volumes"] = outVolumes;
            out["meshes"] = outMeshes;
            return out;
          },
          py::arg("frame"), py::arg("progress") = nullptr,
          "Evaluates the scene at `frame`: {'volumes': {path: Volume}, 'meshes': {path: (points, polygons)}},\n"
          "in the outside (right-handed) frame.")
      .def(
          "export_frame",
          [](PyDocument& d, int64_t frame, const std::string& path) {
            namespace fs = std::filesystem;
            const fs::path target(path);
            const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
            std::error_code ec;
            if (!fs::is_directory(folder, ec)) throw py::value_error("the folder of " + path + " does not exist");
            const fs::path temp = folder / ("." + target.filename().string() + ".zelmar-" + TempName() + ".vdb");
            RunReleased([&](const zta::ThreadRef& t) {
              SceneLock lock;
              auto shown = EvaluateAt(*d.doc, frame, t);
              std::vector<std::pair<std::string, zelmar::Volume>> named;
              for (const auto& op : shown) CollectVolumes(op.get(), named);
              if (named.empty()) throw py::value_error(zta::FormatString("the scene holds no volume at frame @", frame));
              std::vector<zelmar::Volume> volumes;
              for (auto& [n, v] : named) volumes.push_back(v);
              auto r = zelmar::VolumeToolsInterface::SaveVDBFile(zta::Url::FromSystemPath(temp.string()), 1.0, volumes, {});
              std::error_code e2;
              if (!r) {
                fs::remove(temp, e2);
                throw std::runtime_error(r.GetError().GetMessage());
              }
              if (t->TestBreak()) {
                fs::remove(temp, e2);
                throw std::runtime_error("evaluation stopped");
              }
              fs::rename(temp, target, e2);
              if (e2) {
                fs::remove(temp, e2);
                throw std::runtime_error("could not write " + path);
              }
            });
          },
          py::arg("frame"), py::arg("path"),
          "Evaluates the scene at `frame` and writes its volumes to a .vdb file atomically, as `zvol scene eval` does.")
      .def_property_readonly("fps", [](const PyDocument& d) { return d.doc->GetFps(); })
      .def_property_readonly("path", [](const PyDocument& d) { return d.doc->GetDocumentPath(); })
      .def_property_readonly("name", [](const PyDocument& d) { return d.doc->GetDocumentName(); });
}

}  // namespace zvpy
