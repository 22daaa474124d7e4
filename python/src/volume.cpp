// Volume and the records that cross as generic capsules.
#include <atomic>
#include <filesystem>
#include <random>

#include "bridge.h"
#include "host/core/url.h"
#include "zelmar/fileframe.h"
#include "zelmar/volumeiterators.h"

namespace zvpy {

namespace {

std::string UniqueName(const std::string& stem) {
  static std::atomic<uint64_t> counter{0};
  std::random_device rd;
  return stem + "-" + std::to_string(rd()) + "-" + std::to_string(counter.fetch_add(1));
}

int64_t GridIndexOf(const zta::Url& url, const py::object& grid, const std::string& where) {
  const auto names = Take(zelmar::VolumeToolsInterface::GetGridNamesFromFile(url));
  if (names.empty()) throw py::value_error(where + " holds no grid");
  if (grid.is_none()) {
    for (size_t i = 0; i < names.size(); ++i)
      if (!names[i].ends_with("~NotSupported")) return int64_t(i);
    throw py::value_error(where + " holds no grid that can be loaded");
  }
  if (py::isinstance<py::str>(grid)) {
    const auto name = grid.cast<std::string>();
    for (size_t i = 0; i < names.size(); ++i)
      if (names[i] == name) return int64_t(i);
    throw py::value_error("no grid '" + name + "' in " + where);
  }
  if (!py::isinstance<py::int_>(grid)) throw py::type_error("grid must be a name, an index or None");
  const auto index = grid.cast<int64_t>();
  if (index < 0 || size_t(index) >= names.size())
    throw py::value_error("grid index " + std::to_string(index) + " is out of range: " + where + " holds " +
                          std::to_string(names.size()) + " grid(s)");
  return index;
}

zelmar::GRIDCLASS GridClassArg(const py::handle& obj) {
  using zelmar::GRIDCLASS;
  if (py::isinstance<py::str>(obj)) {
    const auto s = obj.cast<std::string>();
    for (GRIDCLASS c : {GRIDCLASS::SDF, GRIDCLASS::FOG, GRIDCLASS::STAGGERED, GRIDCLASS::UNKNOWN})
      if (s == zelmar::GridClassName(c)) return c;
    if (s == "sdf" || s == "level_set") return GRIDCLASS::SDF;
    if (s == "fog" || s == "fog_volume") return GRIDCLASS::FOG;
    throw py::value_error("unknown grid class '" + s + "'; expected 'level set', 'fog volume', 'staggered' or 'unknown'");
  }
  throw py::type_error("the grid class must be a string such as 'level set' or 'fog volume'");
}

py::object DataToPython(const zta::Data& d) {
  if (auto* f = d.TryGet<double>()) return py::float_(*f);
  if (auto* f = d.TryGet<float>()) return py::float_(*f);
  if (auto* i = d.TryGet<int32_t>()) return py::int_(*i);
  if (auto* i = d.TryGet<int64_t>()) return py::int_(*i);
  if (auto* b = d.TryGet<bool>()) return py::bool_(*b);
  if (auto* s = d.TryGet<std::string>()) return py::str(*s);
  if (auto* v = d.TryGet<zta::Vector64>()) return py::make_tuple(v->x, v->y, v->z);
  if (auto* v = d.TryGet<zta::Vector32>()) return py::make_tuple(v->x, v->y, v->z);
  if (auto* v = d.TryGet<zta::IntVector32>()) return py::make_tuple(v->x, v->y, v->z);
  return py::none();
}

zta::DataDictionary MetadataArg(const py::object& meta) {
  zta::DataDictionary dict;
  if (meta.is_none()) return dict;
  if (!py::isinstance<py::dict>(meta)) throw py::type_error("metadata must be a dict of names to values");
  for (auto item : meta.cast<py::dict>()) {
    const auto key = py::str(item.first).cast<std::string>();
    py::handle v = item.second;
    if (PyBool_Check(v.ptr())) dict.Set(key, zta::Data(v.cast<bool>()));
    else if (py::isinstance<py::int_>(v)) dict.Set(key, zta::Data(v.cast<int64_t>()));
    else if (py::isinstance<py::float_>(v)) dict.Set(key, zta::Data(v.cast<double>()));
    else if (py::isinstance<py::str>(v)) dict.Set(key, zta::Data(v.cast<std::string>()));
    else throw py::type_error("metadata '" + key + "' must be a bool, int, float or str");
  }
  return dict;
}

}  // namespace

// Writes through a temporary file beside `path`, renamed into place, so a
// failed write leaves what stood there.
void SaveAtomic(const std::string& path, const std::vector<zelmar::Volume>& volumes, const zta::DataDictionary& meta) {
  namespace fs = std::filesystem;
  const fs::path target(path);
  const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) throw py::value_error("the folder of " + path + " does not exist");
  if (fs::is_directory(target, ec)) throw py::value_error(path + " is a folder");
  const fs::path temp = folder / ("." + target.filename().string() + "." + UniqueName("zelmar") + ".vdb");
  auto r = [&] {
    py::gil_scoped_release release;
    return zelmar::FileFrameInterface::SaveVDBFile(zta::Url::FromSystemPath(temp.string()), volumes, meta);
  }();
  if (!r) {
    fs::remove(temp, ec);
    Raise(r.GetError());
  }
  fs::rename(temp, target, ec);
  if (ec) {
    fs::remove(temp, ec);
    PyErr_SetString(PyExc_OSError, ("could not write " + path + ": " + ec.message()).c_str());
    throw py::error_already_set();
  }
}

std::vector<zelmar::Volume> VolumesArg(const py::handle& obj) {
  std::vector<zelmar::Volume> out;
  if (py::isinstance<PyVolume>(obj)) {
    out.push_back(obj.cast<PyVolume&>().GetGrid());
    return out;
  }
  for (auto item : py::iter(obj)) {
    if (!py::isinstance<PyVolume>(item)) throw py::type_error("expected Volume objects");
    out.push_back(item.cast<PyVolume&>().GetGrid());
  }
  return out;
}

py::bytes VolumesToBytes(const std::vector<zelmar::Volume>& volumes, const zta::DataDictionary& meta) {
  const std::string name = UniqueName("zelmar-python");
  Check(zelmar::FileFrameInterface::SaveVDBFile(zta::Url::Memory(name), volumes, meta));
  std::vector<char> bytes;
  zta::MemoryStore::Get(name, bytes);
  zta::MemoryStore::Erase(name);
  return py::bytes(bytes.data(), bytes.size());
}

void BindVolume(py::module_& m) {
  py::class_<PyVolume, std::shared_ptr<PyVolume>> vol(m, "Volume", R"doc(
One sparse voxel grid. The grid is held in the right-handed frame of .vdb
files: index coordinates and world positions are those that OpenVDB shows
for the same file. Operations never change their inputs; results may share
a grid with an input until one of them is written.)doc");

  vol.def_static(
         "load",
         [](const std::string& path, py::object grid) {
           EnsureModuleStarted();
           const auto url = zta::Url::FromSystemPath(path);
           if (zta::IoDetect(url) != zta::IODETECT::FILE) {
             PyErr_SetString(PyExc_FileNotFoundError, ("File could not be found: " + path).c_str());
             throw py::error_already_set();
           }
           const int64_t index = GridIndexOf(url, grid, path);
           py::gil_scoped_release release;
           return std::make_shared<PyVolume>(Take(zelmar::FileFrameInterface::LoadGrid(url, index)));
         },
         py::arg("path"), py::arg("grid") = py::none(),
         "Reads one grid of a .vdb file: by name, by index, or the first that can be read.")
      .def_static(
          "from_bytes",
          [](py::bytes data, py::object grid) {
            EnsureModuleStarted();
            const std::string text = data;
            const std::string name = UniqueName("zelmar-python");
            zta::MemoryStore::Put(name, std::vector<char>(text.begin(), text.end()));
            const auto url = zta::Url::Memory(name);
            struct Erase {
              std::string n;
              ~Erase() { zta::MemoryStore::Erase(n); }
            } erase{name};
            // A stream has no index of names: its grids are read one by one.
            std::vector<zelmar::Volume> volumes;
            for (int64_t i = 0;; ++i) {
              auto v = zelmar::FileFrameInterface::LoadGrid(url, i);
              if (!v) {
                if (i == 0) Raise(v.GetError());
                break;
              }
              if (!v.GetValue().HasGrid()) break;
              volumes.push_back(v.GetValue());
            }
            if (volumes.empty()) throw py::value_error("the bytes hold no grid");
            size_t index = 0;
            if (py::isinstance<py::str>(grid)) {
              const auto wanted = grid.cast<std::string>();
              index = volumes.size();
              for (size_t i = 0; i < volumes.size(); ++i)
                if (volumes[i].GetGridName() == wanted) index = i;
              if (index >= volumes.size()) throw py::value_error("no grid '" + wanted + "' in the bytes");
            } else if (!grid.is_none()) {
              const auto i = As<int64_t>(grid, "a grid name, index or None");
              if (i < 0 || size_t(i) >= volumes.size())
                throw py::value_error("grid index " + std::to_string(i) + " is out of range: the bytes hold " +
                                      std::to_string(volumes.size()) + " grid(s)");
              index = size_t(i);
            }
            return std::make_shared<PyVolume>(volumes[index]);
          },
          py::arg("data"), py::arg("grid") = py::none(), "A grid from the bytes that to_bytes() gives (an OpenVDB stream).")
      .def(
          "save",
          [](PyVolume& self, const std::string& path, py::object metadata) {
            SaveAtomic(path, {self.GetGrid()}, MetadataArg(metadata));
          },
          py::arg("path"), py::arg("metadata") = py::none(),
          "Writes the volume to a .vdb file, atomically: a failed write leaves what stood there.")
      .def(
          "to_bytes", [](PyVolume& self) { return VolumesToBytes({self.GetGrid()}, {}); },
          "The volume as an OpenVDB stream (io::Stream), as bytes.")
      .def(
          "copy", [](PyVolume& self) { return std::make_shared<PyVolume>(Take(self.Get().Clone())); },
          "A new volume that shares the grid until either is written.")
      .def("release", [](PyVolume& self) {
        self.volume = zelmar::Volume();
        self.released = true;
      }, "Lets the grid go now; the volume cannot be used afterwards.")
      .def_property_readonly("released", [](const PyVolume& self) { return self.released; })
      .def_property_readonly("has_grid", [](const PyVolume& self) { return self.Get().HasGrid(); })
      .def_property_readonly("grid_type", [](const PyVolume& self) { return std::string(zelmar::GridTypeName(self.Get().GetGridType())); },
                             "The value type: 'float', 'double', 'int32', 'int64', 'vec3i', 'vec3s', 'vec3d', 'string', 'bool' or 'none'.")
      .def_property(
          "grid_class", [](const PyVolume& self) { return std::string(zelmar::GridClassName(self.Get().GetGridClass())); },
          [](PyVolume& self, py::object c) {
            self.GetGrid();
            self.volume.SetGridClass(GridClassArg(c));
          },
          "'level set', 'fog volume', 'staggered' or 'unknown'.")
      .def_property(
          "name", [](const PyVolume& self) { return self.Get().GetGridName(); },
          [](PyVolume& self, const std::string& n) {
            self.GetGrid();
            self.volume.SetGridName(n);
          })
      .def_property(
          "transform", [](const PyVolume& self) { return MatrixToArray(self.GetGrid().GetGridTransform()); },
          [](PyVolume& self, py::object t) {
            const zta::Matrix m = ArrayToMatrix(t, "transform");
            if (std::abs(m.Det()) < 1e-300) throw py::value_error("transform must not be singular");
            self.GetGrid();
            self.volume.SetGridTransform(m);
          },
          "Index to world, 4x4, row vectors: rows x, y, z axes and the offset last (OpenVDB's layout).")
      .def_property_readonly("voxel_size", [](const PyVolume& self) {
        const auto s = self.GetGrid().GetGridTransform().GetScale();
        return py::make_tuple(s.x, s.y, s.z);
      })
      .def_property_readonly("active_voxel_count", [](const PyVolume& self) { return self.GetGrid().GetActiveVoxelCount(); })
      .def_property_readonly("active_voxel_dim", [](const PyVolume& self) {
        const auto d = self.GetGrid().GetActiveVoxelDim();
        return py::make_tuple(d.x, d.y, d.z);
      })
      .def_property_readonly("background", [](const PyVolume& self) { return DataToPython(self.GetGrid().GetBackground()); })
      .def_property_readonly("memory_bytes", [](const PyVolume& self) { return self.GetGrid().GetMemUsage(); })
      .def(
          "value_range",
          [](const PyVolume& self, bool includeBackground) {
            const auto r = self.GetGrid().GetMinMaxValues(includeBackground);
            return py::make_tuple(r.min, r.max);
          },
          py::arg("include_background") = false,
          "(min, max) of the active values (vector lengths for vector grids).")
      .def("__repr__", [](const PyVolume& self) {
        if (self.released) return std::string("<zelmar.Volume released>");
        if (!self.volume.HasGrid()) return std::string("<zelmar.Volume without grid>");
        return "<zelmar.Volume " + std::string(zelmar::GridTypeName(self.volume.GetGridType())) + " '" +
               self.volume.GetGridName() + "' " + zelmar::GridClassName(self.volume.GetGridClass()) + ", " +
               std::to_string(self.volume.GetActiveVoxelCount()) + " active voxels>";
      });

  m.def("save_volumes", [](const std::string& path, py::object volumes, py::object metadata) {
    SaveAtomic(path, VolumesArg(volumes), MetadataArg(metadata));
  }, py::arg("path"), py::arg("volumes"), py::arg("metadata") = py::none(), "Writes several volumes to one .vdb file, atomically.");
  m.def("load_volumes", [](const std::string& path) {
    EnsureModuleStarted();
    const auto url = zta::Url::FromSystemPath(path);
    if (zta::IoDetect(url) != zta::IODETECT::FILE) {
      PyErr_SetString(PyExc_FileNotFoundError, ("File could not be found: " + path).c_str());
      throw py::error_already_set();
    }
    const auto names = Take(zelmar::VolumeToolsInterface::GetGridNamesFromFile(url));
    py::list out;
    for (size_t i = 0; i < names.size(); ++i) {
      if (names[i].ends_with("~NotSupported")) continue;
      out.append(std::make_shared<PyVolume>(Take(zelmar::FileFrameInterface::LoadGrid(url, int64_t(i)))));
    }
    return out;
  }, py::arg("path"), "Every grid of a .vdb file that can be read, in the file's order.");
  m.def("grid_names", [](const std::string& path) {
    EnsureModuleStarted();
    return Take(zelmar::VolumeToolsInterface::GetGridNamesFromFile(zta::Url::FromSystemPath(path)));
  }, py::arg("path"));
  m.def("file_metadata", [](const std::string& path) {
    EnsureModuleStarted();
    const auto meta = Take(zelmar::VolumeToolsInterface::GetMetaDataFromFile(zta::Url::FromSystemPath(path)));
    py::list out;
    for (const auto& d : meta) {
      py::dict entry;
      for (const auto& [k, v] : d) entry[py::str(k)] = DataToPython(v);
      out.append(entry);
    }
    return out;
  }, py::arg("path"), "The metadata records of a .vdb file, one dict per record.");

  // The generic capsule: any object whose "_data" holds a PyCapsule.
  struct Capsule {
    py::object data;
    std::string dataType;
  };
  py::class_<Capsule>(m, "Capsule", "A generic capsule: '_data' holds the native pointer.")
      .def(py::init([](py::object data, std::string type) { return Capsule{std::move(data), std::move(type)}; }))
      .def_readonly("_data", &Capsule::data)
      .def_readonly("datatype", &Capsule::dataType)
      .def("__repr__", [](const Capsule& c) { return "<zelmar.Capsule " + c.dataType + ">"; });

  py::class_<PySpline>(m, "Spline", "A curve y(x) through knots, as the remap filter takes it.")
      .def(py::init<>())
      .def("set_range", [](PySpline& s, double x0, double x1, double y0, double y1) { s.spline->SetRange(x0, x1, y0, y1); })
      .def("insert_knot", [](PySpline& s, double x, double y, const std::string& kind) {
        zta::CURVEINTERPOLATION i = zta::CURVEINTERPOLATION::SMOOTH;
        if (kind == "linear") i = zta::CURVEINTERPOLATION::LINEAR;
        else if (kind == "step") i = zta::CURVEINTERPOLATION::STEP;
        else if (kind != "smooth") throw py::value_error("interpolation must be 'smooth', 'linear' or 'step'");
        return s.spline->InsertKnot(x, y, i);
      }, py::arg("x"), py::arg("y"), py::arg("interpolation") = "smooth")
      .def_property_readonly("knots", [](const PySpline& s) {
        py::list out;
        for (int i = 0; i < s.spline->GetKnotCount(); ++i) out.append(py::make_tuple(s.spline->GetKnot(i)->pos.x, s.spline->GetKnot(i)->pos.y));
        return out;
      })
      .def("__call__", [](const PySpline& s, double x) { return s.spline->GetPoint(x); })
      .def("__eq__", [](const PySpline& a, const PySpline& b) { return a.spline->IsEqual(*b.spline); });

  py::class_<PyFieldList>(m, "FieldList", "A list of field layers, as field sampling takes it.")
      .def(py::init<>())
      .def_property_readonly("layer_count", [](const PyFieldList& l) { return l.fields->GetLayerCount(); });

  py::class_<FilterSettingsRecord, std::shared_ptr<FilterSettingsRecord>>(m, "FilterSettings",
                                                                          "Settings of a value filter; a generic capsule.")
      .def(py::init<>())
      .def_property("filter_type", [](const FilterSettingsRecord& r) { return int32_t(r.settings.filterType); },
                    [](FilterSettingsRecord& r, int32_t t) {
                      if (t < 0 || t > 9) throw py::value_error("filter_type must be between 0 and 9");
                      r.settings.filterType = zelmar::FILTERTYPE(t);
                    })
      .def_property("iterations", [](const FilterSettingsRecord& r) { return r.settings.iterations; },
                    [](FilterSettingsRecord& r, int64_t v) {
                      if (v < 0) throw py::value_error("iterations must not be negative");
                      r.settings.iterations = v;
                    })
      .def_property("radius", [](const FilterSettingsRecord& r) { return r.settings.radius; },
                    [](FilterSettingsRecord& r, int32_t v) {
                      if (v < 0) throw py::value_error("radius must not be negative");
                      r.settings.radius = v;
                    })
      .def_property("offset", [](const FilterSettingsRecord& r) { return r.settings.offset; },
                    [](FilterSettingsRecord& r, float v) { r.settings.offset = v; })
      .def_property("strength", [](const FilterSettingsRecord& r) { return r.settings.strength; },
                    [](FilterSettingsRecord& r, double v) { r.settings.strength = v; })
      .def_property("remap", [](const FilterSettingsRecord& r) {
        return py::make_tuple(r.settings.remap_oldMin, r.settings.remap_oldMax, r.settings.remap_newMin, r.settings.remap_newMax);
      }, [](FilterSettingsRecord& r, std::tuple<double, double, double, double> t) {
        std::tie(r.settings.remap_oldMin, r.settings.remap_oldMax, r.settings.remap_newMin, r.settings.remap_newMax) = t;
      }, "(old_min, old_max, new_min, new_max)")
      .def_property("invert_center", [](const FilterSettingsRecord& r) { return r.settings.invertCenter; },
                    [](FilterSettingsRecord& r, double v) { r.settings.invertCenter = v; })
      .def_property_readonly("_data", [](py::object self) {
        return MakeOwnedCapsule(&self.cast<FilterSettingsRecord&>(), kFilterSettingsDataType, self);
      });

  py::class_<FieldSampleRecord, std::shared_ptr<FieldSampleRecord>>(m, "FieldSampleData",
                                                                    "What field sampling needs; a generic capsule.")
      .def(py::init<>())
      .def_property("flags", [](const FieldSampleRecord& r) { return r.data.flags; },
                    [](FieldSampleRecord& r, int32_t f) { r.data.flags = f; })
      .def_property_readonly("_data", [](py::object self) {
        return MakeOwnedCapsule(&self.cast<FieldSampleRecord&>(), kFieldSampleDataType, self);
      });
}

}  // namespace zvpy
