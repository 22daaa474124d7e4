#pragma once
// The Python objects that stand for the system's records: volumes, the
// tools' settings records, splines and field lists, and the generic capsule.
#include <memory>

#include "common.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumetools.h"

namespace zvpy {

// A Volume of Python. Its grid is held in the frame of .vdb files (right-
// handed), so index coordinates and world positions are those that OpenVDB's
// own Python module shows for the same file. release() lets the grid go;
// the object then refuses every use.
struct PyVolume {
  zelmar::Volume volume;
  bool released = false;

  explicit PyVolume(zelmar::Volume v) : volume(std::move(v)) {}
  const zelmar::Volume& Get() const {
    if (released) throw py::value_error("the volume has been released");
    if (!volume.IsInitialized()) throw py::value_error("volume was not initialized");
    return volume;
  }
  zelmar::Volume& GetWritable() {
    Get();
    return volume;
  }
  // A volume that must hold a grid.
  const zelmar::Volume& GetGrid(const char* what = "volume") const {
    const zelmar::Volume& v = Get();
    if (!v.HasGrid()) throw py::value_error(std::string(what) + " has no grid");
    return v;
  }
};

// `obj` as a T, or a TypeError that names what was expected and what came.
template <typename T>
T As(const py::handle& obj, const char* what) {
  try {
    return obj.cast<T>();
  } catch (const py::cast_error&) {
    throw py::type_error(std::string("expected ") + what + ", got " +
                         std::string(py::str(obj.get_type().attr("__name__"))));
  }
}

// The names of value types as files and zvol spell them.
zelmar::GRIDTYPE GridTypeFromName(const std::string& name);

struct PySpline {
  std::shared_ptr<zta::SplineData> spline = std::make_shared<zta::SplineData>();
};

struct PyFieldList {
  std::shared_ptr<zta::FieldList> fields = std::make_shared<zta::FieldList>();
};

// FieldSampleData with the owner object and document that field sampling
// reads beside it; both are Python objects of the scene binding.
struct FieldSampleRecord {
  zelmar::FieldSampleData data;
  py::object owner = py::none();
  py::object doc = py::none();
};

struct FilterSettingsRecord {
  zelmar::FilterSettings settings;
};

// Where a generic capsule's pointer lives: a record the capsule owns, or one
// kept alive by the Python object that owns it.
struct AccessorHolder {
  zelmar::GridAccessorBaseRef accessor;
};

inline constexpr const char* kAccessorDataType = "net.zelmar.volume.datatype.gridaccessorbaseref";
inline constexpr const char* kFilterSettingsDataType = "net.zelmar.volume.datatype.filtersettings";
inline constexpr const char* kFieldSampleDataType = "net.zelmar.volume.datatype.fieldsampledata";

// A PyCapsule named `dataType` that points to `pointer` and keeps `owner`
// alive for as long as it lives.
py::capsule MakeOwnedCapsule(void* pointer, const char* dataType, py::handle owner);

// The pointer of a generic capsule (an object whose attribute "_data" holds a
// PyCapsule of `dataType`); "expected generic capsule" otherwise.
void* CapsulePointer(const py::handle& obj, const char* dataType);

}  // namespace zvpy
