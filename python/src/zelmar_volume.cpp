// zelmar.volume._zelmar_volume: the native module of 21 functions that reach
// what the generic bridge does not: accessors, the tools' records that hold
// pointers, and the check of polygon indices. Every wrapper takes its
// arguments as a tuple and checks their count first, as the host's
// interpreter calls them.
#include <cstring>

#include "bridge.h"
#include "host/core/format.h"

namespace zvpy {

zelmar::GRIDTYPE GridTypeFromName(const std::string& name) {
  using zelmar::GRIDTYPE;
  for (GRIDTYPE t : {GRIDTYPE::FLOAT, GRIDTYPE::DOUBLE, GRIDTYPE::INT32, GRIDTYPE::INT64, GRIDTYPE::VEC3I,
                     GRIDTYPE::VEC3S, GRIDTYPE::VEC3D, GRIDTYPE::STRING, GRIDTYPE::BOOL})
    if (name == zelmar::GridTypeName(t)) return t;
  if (name == "float32") return GRIDTYPE::FLOAT;
  if (name == "float64") return GRIDTYPE::DOUBLE;
  return GRIDTYPE::NONE;
}

py::capsule MakeOwnedCapsule(void* pointer, const char* dataType, py::handle owner) {
  PyObject* cap = PyCapsule_New(pointer, dataType, [](PyObject* c) {
    Py_XDECREF(static_cast<PyObject*>(PyCapsule_GetContext(c)));
  });
  if (!cap) throw py::error_already_set();
  Py_XINCREF(owner.ptr());
  PyCapsule_SetContext(cap, owner.ptr());
  return py::reinterpret_steal<py::capsule>(cap);
}

void* CapsulePointer(const py::handle& obj, const char* dataType) {
  if (!obj || !py::hasattr(obj, "_data")) throw py::type_error("expected generic capsule");
  py::object data = obj.attr("_data");
  if (!PyCapsule_CheckExact(data.ptr())) throw py::type_error("expected generic capsule");
  const char* name = PyCapsule_GetName(data.ptr());
  if (!name || std::strcmp(name, dataType) != 0) throw py::type_error("expected generic capsule");
  void* p = PyCapsule_GetPointer(data.ptr(), name);
  if (!p) throw py::error_already_set();
  return p;
}

namespace {

void RequireArgs(const py::args& args, size_t count) {
  if (args.size() < count)
    throw py::type_error(zta::FormatString("expected at least @ argument(s), got @", count, args.size()));
}

// A capsule accessor, or the null-pointer error for one already freed.
zelmar::GridAccessorBase& Accessor(const py::handle& obj) {
  auto* holder = static_cast<AccessorHolder*>(CapsulePointer(obj, kAccessorDataType));
  if (!holder->accessor) Raise(zta::NullptrError("the accessor has been freed"));
  return *holder->accessor;
}

FilterSettingsRecord& FilterSettingsOf(const py::handle& obj) {
  return *static_cast<FilterSettingsRecord*>(CapsulePointer(obj, kFilterSettingsDataType));
}
FieldSampleRecord& FieldSampleOf(const py::handle& obj) {
  return *static_cast<FieldSampleRecord*>(CapsulePointer(obj, kFieldSampleDataType));
}

zta::IntVector32 CoordArg(const py::handle& obj) {
  std::vector<int64_t> v;
  try {
    v = obj.cast<std::vector<int64_t>>();
  } catch (const py::cast_error&) {
    throw py::type_error("a coordinate must be three integers");
  }
  if (v.size() != 3) throw py::value_error("a coordinate must be three integers");
  for (int64_t x : v)
    if (x < INT32_MIN || x > INT32_MAX) throw py::value_error("a coordinate is out of the range of int32");
  return {int32_t(v[0]), int32_t(v[1]), int32_t(v[2])};
}

zelmar::VOLUMESAMPLER SamplerArg(const py::handle& obj) {
  int64_t s = 0;
  try {
    s = py::int_(py::reinterpret_borrow<py::object>(obj)).cast<int64_t>();
  } catch (const py::error_already_set&) {
    throw py::type_error("the sampler must be VolumeSampler or 1, 2, 3");
  }
  if (s < 1 || s > 3) throw py::value_error("the sampler must be 1 (nearest), 2 (linear) or 3 (quadratic), got " + std::to_string(s));
  return zelmar::VOLUMESAMPLER(s);
}

template <typename T>
py::object ToPython(const T& v) {
  if constexpr (std::is_same_v<T, zta::IntVector32> || std::is_same_v<T, zta::Vector32> ||
                std::is_same_v<T, zta::Vector64>)
    return py::make_tuple(v.x, v.y, v.z);
  else
    return py::cast(v);
}

template <typename T>
T FromPython(const py::handle& obj) {
  try {
    if constexpr (std::is_same_v<T, bool>) {
      if (!PyBool_Check(obj.ptr()) && !py::isinstance<py::int_>(obj)) throw py::cast_error();
      return obj.cast<bool>();
    } else if constexpr (std::is_integral_v<T>) {
      if (!py::isinstance<py::int_>(obj) && !py::hasattr(obj, "__index__")) throw py::cast_error();
      const auto big = py::int_(py::reinterpret_borrow<py::object>(obj)).cast<long long>();
      if (big < std::numeric_limits<T>::min() || big > std::numeric_limits<T>::max())
        throw py::value_error("the value does not fit the accessor's type");
      return T(big);
    } else if constexpr (std::is_floating_point_v<T>) {
      return T(py::float_(py::reinterpret_borrow<py::object>(obj)).cast<double>());
    } else {
      using E = decltype(T{}.x);
      auto v = obj.cast<std::vector<E>>();
      if (v.size() != 3) throw py::cast_error();
      return T(v[0], v[1], v[2]);
    }
  } catch (const py::cast_error&) {
    throw py::type_error(std::string("the value must be a ") +
                         zelmar::GridTypeName(zelmar::kGridTypeOf<T>) + " for this accessor");
  } catch (const py::error_already_set&) {
    throw py::type_error(std::string("the value must be a ") +
                         zelmar::GridTypeName(zelmar::kGridTypeOf<T>) + " for this accessor");
  }
}

// Calls `f` with the accessor cast to its value type, in the binding's order
// of types.
template <typename F>
py::object Dispatch(zelmar::GridAccessorBase& base, F&& f) {
  using zelmar::GRIDTYPE;
  switch (base.GetDataType()) {
    case GRIDTYPE::INT64: return f(static_cast<zelmar::GridAccessorInterface<int64_t>&>(base));
    case GRIDTYPE::INT32: return f(static_cast<zelmar::GridAccessorInterface<int32_t>&>(base));
    case GRIDTYPE::DOUBLE: return f(static_cast<zelmar::GridAccessorInterface<double>&>(base));
    case GRIDTYPE::FLOAT: return f(static_cast<zelmar::GridAccessorInterface<float>&>(base));
    case GRIDTYPE::BOOL: return f(static_cast<zelmar::GridAccessorInterface<bool>&>(base));
    case GRIDTYPE::VEC3I: return f(static_cast<zelmar::GridAccessorInterface<zta::IntVector32>&>(base));
    case GRIDTYPE::VEC3S: return f(static_cast<zelmar::GridAccessorInterface<zta::Vector32>&>(base));
    case GRIDTYPE::VEC3D: return f(static_cast<zelmar::GridAccessorInterface<zta::Vector64>&>(base));
    default:
      throw py::type_error(zta::FormatString("datatype @ is not supported", zelmar::GridTypeName(base.GetDataType())));
  }
}

zelmar::GRIDTYPE DataTypeArg(const py::handle& obj) {
  if (py::isinstance<py::str>(obj)) return GridTypeFromName(obj.cast<std::string>());
  try {
    return zelmar::GRIDTYPE(py::int_(py::reinterpret_borrow<py::object>(obj)).cast<int32_t>());
  } catch (const py::error_already_set&) {
    throw py::type_error("the data type must be a GridType or a type name such as 'float'");
  }
}

}  // namespace

void BindZelmarVolume(py::module_& parent) {
  py::module_ m = parent.def_submodule("_zelmar_volume", "The native module net.zelmar.volume.pymodules._zelmar_volume.");

  m.def("VolumeToolsInterface_CheckPolyIndexValidityAndReturn", [](py::args a) -> py::object {
    RequireArgs(a, 2);
    py::handle polys = a[0];
    if (!py::isinstance<py::array>(polys)) throw py::type_error("got array of different type");
    auto arr = py::reinterpret_borrow<py::array>(polys);
    if (!arr.dtype().is(py::dtype::of<uint32_t>()) || arr.ndim() != 2 || arr.shape(1) != 4)
      throw py::type_error("got array of different type");
    const auto count = As<int64_t>(a[1], "an int point count");
    auto view = py::array_t<uint32_t>(arr).unchecked<2>();
    std::vector<zelmar::VolumeConversionPolygon> native(size_t(view.shape(0)));
    for (py::ssize_t i = 0; i < view.shape(0); ++i) native[size_t(i)] = {view(i, 0), view(i, 1), view(i, 2), view(i, 3)};
    Check(zelmar::VolumeToolsInterface::CheckPolyIndexValidity(native, count));
    return polys.cast<py::object>();
  });

  m.def("FilterSettings_SetSplineData", [](py::args a) {
    RequireArgs(a, 2);
    auto& rec = FilterSettingsOf(a[0]);
    if (a[1].is_none()) {
      rec.settings.remapCurve.reset();
      return;
    }
    auto& spline = As<PySpline&>(a[1], "a Spline");
    // A copy: later edits of the Python curve do not reach the settings.
    rec.settings.remapCurve = std::make_shared<zta::SplineData>(*spline.spline);
  });
  m.def("FilterSettings_GetSplineData", [](py::args a) -> py::object {
    RequireArgs(a, 1);
    auto& rec = FilterSettingsOf(a[0]);
    if (!rec.settings.remapCurve) return py::none();
    PySpline s;
    s.spline = std::make_shared<zta::SplineData>(*rec.settings.remapCurve);
    return py::cast(std::move(s));
  });

  m.def("FieldSampleData_SetFieldList", [](py::args a) {
    RequireArgs(a, 2);
    auto& rec = FieldSampleOf(a[0]);
    if (a[1].is_none()) {
      rec.data.fields.reset();
      return;
    }
    auto& list = As<PyFieldList&>(a[1], "a FieldList");
    rec.data.fields = std::make_shared<zta::FieldList>(*list.fields);
  });
  m.def("FieldSampleData_GetFieldList", [](py::args a) -> py::object {
    RequireArgs(a, 1);
    auto& rec = FieldSampleOf(a[0]);
    if (!rec.data.fields) return py::none();
    PyFieldList l;
    l.fields = std::make_shared<zta::FieldList>(*rec.data.fields);
    return py::cast(std::move(l));
  });
  m.def("FieldSampleData_SetFieldOwner", [](py::args a) {
    RequireArgs(a, 2);
    auto& rec = FieldSampleOf(a[0]);
    py::object objType = py::module_::import("zelmar._native").attr("SceneObject");
    if (!a[1].is_none() && !py::isinstance(a[1], objType)) throw py::type_error("the field owner must be a SceneObject");
    rec.owner = py::reinterpret_borrow<py::object>(a[1]);
  });
  m.def("FieldSampleData_GetFieldOwner", [](py::args a) -> py::object {
    RequireArgs(a, 1);
    return FieldSampleOf(a[0]).owner;
  });
  m.def("FieldSampleData_SetDoc", [](py::args a) {
    RequireArgs(a, 2);
    auto& rec = FieldSampleOf(a[0]);
    py::object docType = py::module_::import("zelmar._native").attr("Document");
    if (!a[1].is_none() && !py::isinstance(a[1], docType)) throw py::type_error("the document must be a Document");
    rec.doc = py::reinterpret_borrow<py::object>(a[1]);
  });
  m.def("FieldSampleData_GetDoc", [](py::args a) -> py::object {
    RequireArgs(a, 1);
    return FieldSampleOf(a[0]).doc;
  });

  m.def("GridAccessorInterface_Create", [](py::args a) -> py::object {
    RequireArgs(a, 1);
    EnsureModuleStarted();
    auto created = Take(zelmar::GridAccessorCreationImpl::Create(DataTypeArg(a[0])));
    auto* holder = new AccessorHolder{std::move(created)};
    PyObject* cap = PyCapsule_New(holder, kAccessorDataType,
                                  [](PyObject* c) { delete static_cast<AccessorHolder*>(PyCapsule_GetPointer(c, kAccessorDataType)); });
    if (!cap) {
      delete holder;
      throw py::error_already_set();
    }
    py::object capsuleType = py::module_::import("zelmar._native").attr("Capsule");
    return capsuleType(py::reinterpret_steal<py::object>(cap), kAccessorDataType);
  });
  m.def("GridAccessorInterface_Free", [](py::args a) {
    RequireArgs(a, 1);
    auto* holder = static_cast<AccessorHolder*>(CapsulePointer(a[0], kAccessorDataType));
    if (!holder->accessor) Raise(zta::NullptrError("the accessor has been freed"));
    holder->accessor.reset();
  });
  m.def("GridAccessorInterface_Init", [](py::args a) {
    RequireArgs(a, 3);
    auto& acc = Accessor(a[0]);
    const auto& vol = As<PyVolume&>(a[1], "a Volume").Get();
    Check(acc.Init(vol, SamplerArg(a[2])));
  });
  m.def("GridAccessorInterface_InitWithWriteAccess", [](py::args a) {
    RequireArgs(a, 2);
    auto& acc = Accessor(a[0]);
    auto& vol = As<PyVolume&>(a[1], "a Volume").GetWritable();
    Check(acc.InitWithWriteAccess(vol, acc.GetSampler()));
  });
  m.def("GridAccessorInterface_SetSampler", [](py::args a) {
    RequireArgs(a, 2);
    auto& acc = Accessor(a[0]);
    Check(acc.SetSampler(SamplerArg(a[1])));
  });
  m.def("GridAccessorInterface_GetCoords", [](py::args a) -> py::object {
    RequireArgs(a, 2);
    auto& acc = Accessor(a[0]);
    return ToPython(acc.GetCoords(RequireVector(a[1], "position")));
  });
  m.def("GridAccessorInterface_SetActiveState", [](py::args a) {
    RequireArgs(a, 3);
    auto& acc = Accessor(a[0]);
    const auto coord = CoordArg(a[1]);
    Check(acc.SetActiveState(coord, As<bool>(a[2], "a bool")));
  });
  m.def("GridAccessorInterface_SetValueOnly", [](py::args a) {
    RequireArgs(a, 3);
    auto& acc = Accessor(a[0]);
    const auto coord = CoordArg(a[1]);
    Dispatch(acc, [&](auto& typed) -> py::object {
      using T = typename std::decay_t<decltype(typed)>::ValueType;
      Check(typed.SetValueOnly(coord, FromPython<T>(a[2])));
      return py::none();
    });
  });
  m.def("GridAccessorInterface_SetValue", [](py::args a) {
    RequireArgs(a, 3);
    auto& acc = Accessor(a[0]);
    const auto coord = CoordArg(a[1]);
    Dispatch(acc, [&](auto& typed) -> py::object {
      using T = typename std::decay_t<decltype(typed)>::ValueType;
      Check(typed.SetValue(coord, FromPython<T>(a[2])));
      return py::none();
    });
  });
  m.def("GridAccessorInterface_GetActiveState", [](py::args a) -> bool {
    RequireArgs(a, 2);
    auto& acc = Accessor(a[0]);
    return acc.GetActiveState(CoordArg(a[1]));
  });
  m.def("GridAccessorInterface_GetValueIntVector32", [](py::args a) -> py::object {
    RequireArgs(a, 2);
    auto& acc = Accessor(a[0]);
    const auto coord = CoordArg(a[1]);
    return Dispatch(acc, [&](auto& typed) -> py::object { return ToPython(typed.GetValueIntVector32(coord)); });
  });
  m.def("GridAccessorInterface_GetValueVector", [](py::args a) -> py::object {
    RequireArgs(a, 2);
    auto& acc = Accessor(a[0]);
    const auto pos = RequireVector(a[1], "position");
    return Dispatch(acc, [&](auto& typed) -> py::object { return ToPython(typed.GetValueVector(pos)); });
  });
}

}  // namespace zvpy
