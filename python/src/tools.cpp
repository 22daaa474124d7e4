// The operations of VolumeToolsInterface with numpy arrays. Volumes stand in
// the frame of .vdb files, so positions, meshes and matrices go to the tools
// as given; only what comes out of a scene is mirrored on the way out.
#include <cstring>

#include "bridge.h"
#include "host/objects/polygonobject.h"
#include "zelmar/pointstovolume.h"

namespace zvpy {

namespace {

using VolPtr = std::shared_ptr<PyVolume>;
VolPtr Wrap(zelmar::Volume v) { return std::make_shared<PyVolume>(std::move(v)); }

// pybind11 lets None through for a shared_ptr argument.
const PyVolume& Vol(const VolPtr& p, const char* what) {
  if (!p) throw py::type_error(std::string(what) + " must be a Volume, got None");
  return *p;
}

// A result without grid is how several tools say the input was of the wrong
// kind; Python gets the reason.
VolPtr Require(zelmar::Volume v, const std::string& what) {
  if (!v.IsInitialized() || !v.HasGrid()) throw py::value_error(what);
  return Wrap(std::move(v));
}

void RequireClass(const zelmar::Volume& v, zelmar::GRIDCLASS c, const char* op) {
  if (v.GetGridClass() != c)
    throw py::value_error(std::string(op) + " needs a " + zelmar::GridClassName(c) + ", got a " +
                          zelmar::GridClassName(v.GetGridClass()));
}
void RequireType(const zelmar::Volume& v, std::initializer_list<zelmar::GRIDTYPE> types, const char* op) {
  for (auto t : types)
    if (v.GetGridType() == t) return;
  std::string names;
  for (auto t : types) names += std::string(names.empty() ? "" : " or ") + zelmar::GridTypeName(t);
  throw py::value_error(std::string(op) + " needs a " + names + " grid, got " + zelmar::GridTypeName(v.GetGridType()));
}

double PositiveArg(double v, const char* what) {
  if (!std::isfinite(v) || v <= 0) throw py::value_error(std::string(what) + " must be a positive number");
  return v;
}
int32_t BandArg(int v, const char* what) {
  if (v < 1) throw py::value_error(std::string(what) + " must be at least 1");
  return v;
}

template <typename E>
E Choice(const std::string& s, std::initializer_list<std::pair<const char*, E>> choices, const char* what) {
  std::string names;
  for (const auto& [n, e] : choices) {
    if (s == n) return e;
    names += std::string(names.empty() ? "" : ", ") + "'" + n + "'";
  }
  throw py::value_error(std::string(what) + " must be one of " + names + ", got '" + s + "'");
}

// Polygons (M, 3) or (M, 4); in a (M, 4) array a fourth index below 0 or
// equal to the third marks a triangle.
std::vector<zelmar::VolumeConversionPolygon> PolygonsArg(const py::handle& obj, size_t pointCount) {
  auto idx = RequireIndices(obj, "polygons", {3, 4});
  const py::ssize_t w = idx.shape(1);
  const int64_t* d = idx.data();
  std::vector<zelmar::VolumeConversionPolygon> out(size_t(idx.shape(0)));
  for (size_t i = 0; i < out.size(); ++i) {
    int64_t v[4] = {d[w * i], d[w * i + 1], d[w * i + 2], w == 4 ? d[w * i + 3] : -1};
    if (w == 4 && v[3] == v[2]) v[3] = -1;
    for (int k = 0; k < 4; ++k) {
      if (k == 3 && v[3] < 0) continue;
      if (v[k] < 0 || uint64_t(v[k]) >= pointCount)
        throw py::value_error("polygon " + std::to_string(i) + " has the index " + std::to_string(v[k]) +
                              ", outside the " + std::to_string(pointCount) + " points");
    }
    if (v[3] < 0) out[i] = {uint32_t(v[0]), uint32_t(v[1]), uint32_t(v[2]), zelmar::VolumeConversionPolygon::TRIANGLE};
    else out[i] = {uint32_t(v[0]), uint32_t(v[1]), uint32_t(v[2]), uint32_t(v[3])};
  }
  return out;
}

}  // namespace

// Tools also used by the scene binding.
py::tuple PolygonObjectToArrays(const zta::PolygonObject& poly, bool mirror) {
  const int32_t np = poly.GetPointCount();
  const zta::Vector* pts = poly.GetPointR();
  py::array_t<double> points({py::ssize_t(np), py::ssize_t(3)});
  double* p = points.mutable_data();
  const zta::Matrix mg = poly.GetMg();
  for (int32_t i = 0; i < np; ++i) {
    auto q = mg.TransformPoint(pts[i]);
    if (mirror) q = Mirror(q);
    p[3 * i] = q.x;
    p[3 * i + 1] = q.y;
    p[3 * i + 2] = q.z;
  }
  const int32_t nq = poly.GetPolygonCount();
  const zta::CPolygon* polys = poly.GetPolygonR();
  bool anyQuad = false;
  for (int32_t i = 0; i < nq && !anyQuad; ++i) anyQuad = !polys[i].IsTriangle();
  const py::ssize_t w = anyQuad ? 4 : 3;
  py::array_t<int64_t> out({py::ssize_t(nq), w});
  int64_t* o = out.mutable_data();
  for (int32_t i = 0; i < nq; ++i) {
    const auto& c = polys[i];
    // The mesher winds outward by the right-hand rule in the grid's own
    // frame; a mesh mirrored out of the scene turns the other way round.
    if (!mirror) {
      o[w * i] = c.a;
      o[w * i + 1] = c.b;
      o[w * i + 2] = c.c;
      if (w == 4) o[w * i + 3] = c.IsTriangle() ? -1 : c.d;
    } else if (c.IsTriangle()) {
      o[w * i] = c.c;
      o[w * i + 1] = c.b;
      o[w * i + 2] = c.a;
      if (w == 4) o[w * i + 3] = -1;
    } else {
      o[w * i] = c.d;
      o[w * i + 1] = c.c;
      o[w * i + 2] = c.b;
      o[w * i + 3] = c.a;
    }
  }
  return py::make_tuple(points, out);
}

void BindTools(py::module_& m) {
  m.def(
      "sphere",
      [](double radius, py::object center, double voxelSize, int halfWidth) {
        PositiveArg(radius, "radius");
        PositiveArg(voxelSize, "voxel_size");
        BandArg(halfWidth, "half_width");
        const zta::Vector c = RequireVector(center, "center");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::CreateSphereVolume(radius, c, voxelSize, halfWidth, t, nullptr);
        }));
      },
      py::arg("radius"), py::arg("center") = py::make_tuple(0, 0, 0), py::arg("voxel_size") = 0.1,
      py::arg("half_width") = 3, "A level set sphere.");
  m.def(
      "platonic",
      [](int faces, double size, py::object center, double voxelSize, int halfWidth) {
        if (faces != 4 && faces != 6 && faces != 8 && faces != 12 && faces != 20)
          throw py::value_error("faces must be 4, 6, 8, 12 or 20");
        PositiveArg(size, "size");
        PositiveArg(voxelSize, "voxel_size");
        BandArg(halfWidth, "half_width");
        const zta::Vector c = RequireVector(center, "center");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::CreatePlatonicVolume(faces, size, c, voxelSize, halfWidth, t, nullptr);
        }));
      },
      py::arg("faces"), py::arg("size"), py::arg("center") = py::make_tuple(0, 0, 0), py::arg("voxel_size") = 0.1,
      py::arg("half_width") = 3, "A level set of a platonic solid with 4, 6, 8, 12 or 20 faces.");
  m.def(
      "empty",
      [](const std::string& type, py::object background) {
        EnsureModuleStarted();
        if (type == "float") return Wrap(Take(zelmar::VolumeToolsInterface::CreateNewFloat32Volume(As<float>(background, "a number as background"))));
        if (type == "vec3s") {
          const auto b = background.is_none() ? zta::Vector() : RequireVector(background, "background");
          return Wrap(Take(zelmar::VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(b))));
        }
        throw py::value_error("type must be 'float' or 'vec3s'");
      },
      py::arg("type") = "float", py::arg("background") = 0.0, "An empty float or vec3s volume at unit voxel size.");

  m.def(
      "from_dense",
      [](const py::handle& array, double voxelSize, py::object origin, const std::string& gridClass, double background,
         double tolerance) {
        PositiveArg(voxelSize, "voxel_size");
        if (!py::isinstance<py::array>(array)) throw py::type_error("array must be a numpy array");
        auto arr = py::reinterpret_borrow<py::array>(array);
        if (arr.dtype().kind() != 'f') throw py::type_error("array must hold floats, got dtype " + std::string(py::str(arr.dtype())));
        const bool vec = arr.ndim() == 4 && arr.shape(3) == 3;
        if (arr.ndim() != 3 && !vec) throw py::value_error("array must have shape (X, Y, Z) or (X, Y, Z, 3)");
        if (!(arr.flags() & py::array::c_style)) throw py::value_error("array must be C-contiguous; pass numpy.ascontiguousarray(array)");
        const zta::Vector o = RequireVector(origin, "origin");
        if (!std::isfinite(background)) throw py::value_error("background must be finite");
        auto d = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(array);
        const double* v = d.data();
        for (py::ssize_t i = 0; i < d.size(); ++i)
          if (!std::isfinite(v[i])) throw py::value_error("array holds a value that is not finite");
        EnsureModuleStarted();
        zelmar::Volume vol = vec ? Take(zelmar::VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(float(background))))
                                 : Take(zelmar::VolumeToolsInterface::CreateNewFloat32Volume(float(background)));
        auto py = Wrap(vol);
        if (gridClass == "level set") vol.SetGridClass(zelmar::GRIDCLASS::SDF);
        else if (gridClass == "fog volume") vol.SetGridClass(zelmar::GRIDCLASS::FOG);
        else if (gridClass != "unknown") throw py::value_error("grid_class must be 'level set', 'fog volume' or 'unknown'");
        zta::Matrix t = zta::MatrixScale(zta::Vector(voxelSize));
        t.off = o;
        vol.SetGridTransform(t);
        const size_t nx = size_t(arr.shape(0)), ny = size_t(arr.shape(1)), nz = size_t(arr.shape(2));
        const int w = vec ? 3 : 1;
        RunReleased([&](const zta::ThreadRef&) {
          auto write = [&](auto tag) {
            using T = decltype(tag);
            auto acc = Take(zelmar::GridAccessorCreationImpl::Create<T>());
            Check(acc->InitWithWriteAccess(vol, zelmar::VOLUMESAMPLER::NEAREST));
            for (size_t i = 0; i < nx; ++i)
              for (size_t j = 0; j < ny; ++j)
                for (size_t k = 0; k < nz; ++k) {
                  const double* x = v + ((i * ny + j) * nz + k) * w;
                  bool differs = false;
                  for (int c = 0; c < w; ++c) differs = differs || std::abs(x[c] - background) > tolerance;
                  if (!differs) continue;
                  const zta::IntVector32 ijk{int32_t(i), int32_t(j), int32_t(k)};
                  if constexpr (std::is_same_v<T, float>) Check(acc->SetValue(ijk, float(x[0])));
                  else Check(acc->SetValue(ijk, zta::Vector32(float(x[0]), float(x[1]), float(x[2]))));
                }
          };
          if (vec) write(zta::Vector32{});
          else write(float{});
        });
        // The cached boxes follow the new voxels.
        py->volume = Take(vol.Clone());
        return py;
      },
      py::arg("array"), py::arg("voxel_size") = 1.0, py::arg("origin") = py::make_tuple(0, 0, 0),
      py::arg("grid_class") = "unknown", py::arg("background") = 0.0, py::arg("tolerance") = 0.0,
      "A float (X, Y, Z) or vec3s (X, Y, Z, 3) volume from a dense array; array[0, 0, 0] is the voxel at `origin`.\n"
      "Voxels whose value differs from the background by more than `tolerance` become active.");

  m.def(
      "mesh_to_volume",
      [](const py::handle& points, const py::handle& polygons, double voxelSize, int exteriorBand, int interiorBand,
         bool fillInterior, bool unsignedDistance, const ProgressCallback& progress) {
        PositiveArg(voxelSize, "voxel_size");
        BandArg(exteriorBand, "exterior_band");
        BandArg(interiorBand, "interior_band");
        auto pts = RequirePoints(points, "points");
        std::vector<zta::Vector> vertices(size_t(pts.shape(0)));
        std::memcpy(static_cast<void*>(vertices.data()), pts.data(), vertices.size() * sizeof(zta::Vector));
        const auto polys = PolygonsArg(polygons, vertices.size());
        if (polys.empty()) throw py::value_error("the mesh has no polygons");
        auto flags = unsignedDistance ? zelmar::POLYGONCONVERSIONFLAGS::UNSIGNED_DISTANCE_FIELD : zelmar::POLYGONCONVERSIONFLAGS::NONE;
        const int32_t interior = fillInterior ? zelmar::VolumeToolsInterface::kFillInteriorBand : interiorBand;
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::MeshToVolume(vertices, polys, zta::Matrix(), voxelSize, interior, exteriorBand,
                                                            t, flags, nullptr);
        }, progress));
      },
      py::arg("points"), py::arg("polygons"), py::arg("voxel_size"), py::arg("exterior_band") = 3,
      py::arg("interior_band") = 3, py::arg("fill_interior") = false, py::arg("unsigned") = false,
      py::arg("progress") = nullptr,
      "A level set of a mesh: points (N, 3), polygons (M, 3) or (M, 4) (a fourth index -1 marks a triangle).");

  m.def(
      "close_holes",
      [](const py::handle& points, const py::handle& polygons) {
        auto pts = RequirePoints(points, "points");
        const auto polys = PolygonsArg(polygons, size_t(pts.shape(0)));
        if (pts.shape(0) > INT32_MAX || polys.size() > size_t(INT32_MAX)) throw py::value_error("the mesh is too large");
        EnsureModuleStarted();
        auto poly = zta::PolygonObject::Alloc(int32_t(pts.shape(0)), int32_t(polys.size()));
        if (!poly) throw std::bad_alloc();
        std::memcpy(static_cast<void*>(poly->GetPointW()), pts.data(), size_t(pts.shape(0)) * sizeof(zta::Vector));
        zta::CPolygon* q = poly->GetPolygonW();
        for (size_t i = 0; i < polys.size(); ++i) {
          const auto& p = polys[i];
          q[i] = p.IsTriangle() ? zta::CPolygon(int32_t(p.a), int32_t(p.b), int32_t(p.c))
                                : zta::CPolygon(int32_t(p.a), int32_t(p.b), int32_t(p.c), int32_t(p.d));
        }
        bool closed = false;
        RunReleased([&](const zta::ThreadRef&) { closed = Take(zelmar::ClosePolygonObject(poly.get(), nullptr, false)); });
        py::tuple mesh = PolygonObjectToArrays(*poly, false);
        return py::make_tuple(mesh[0], mesh[1], closed);
      },
      py::arg("points"), py::arg("polygons"),
      "(points, polygons, closed): the mesh with near points merged and its holes filled, as before meshing;\n"
      "`closed` tells whether holes were found. The arrays given are not changed.");
  m.def(
      "volume_to_mesh",
      [](const VolPtr& vol, double iso, double adaptivity) {
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        RequireType(v, {zelmar::GRIDTYPE::FLOAT, zelmar::GRIDTYPE::DOUBLE}, "volume_to_mesh");
        if (!std::isfinite(iso)) throw py::value_error("iso must be finite");
        if (!(adaptivity >= 0 && adaptivity <= 1)) throw py::value_error("adaptivity must be between 0 and 1");
        std::unique_ptr<zta::PolygonObject> poly;
        RunReleased([&](const zta::ThreadRef&) { poly = Take(zelmar::VolumeToolsInterface::VolumeToMesh(v, iso, adaptivity)); });
        if (!poly) throw py::value_error("the volume gave no mesh");
        return PolygonObjectToArrays(*poly, false);
      },
      py::arg("volume"), py::arg("iso") = 0.0, py::arg("adaptivity") = 0.0,
      "(points (N, 3), polygons (M, 3|4)) of the surface at `iso`; outward normals by the right-hand rule.\n"
      "Mixed meshes come as (M, 4) with -1 as the fourth index of triangles.");

  m.def(
      "points_to_volume",
      [](const py::handle& points, const py::handle& radii, const py::object& velocities, double voxelSize, int halfWidth,
         double velocityScale, const ProgressCallback& progress) {
        PositiveArg(voxelSize, "voxel_size");
        BandArg(halfWidth, "half_width");
        auto pts = RequirePoints(points, "points");
        const size_t n = size_t(pts.shape(0));
        std::vector<double> r(n);
        if (py::isinstance<py::float_>(radii) || py::isinstance<py::int_>(radii)) {
          std::fill(r.begin(), r.end(), radii.cast<double>());
        } else {
          if (!py::isinstance<py::array>(radii)) throw py::type_error("radii must be a number or a numpy array (N,)");
          auto ra = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(radii);
          if (!ra || ra.ndim() != 1 || size_t(ra.shape(0)) != n) throw py::value_error("radii must have shape (N,) like points");
          std::copy(ra.data(), ra.data() + n, r.begin());
        }
        for (double x : r)
          if (!std::isfinite(x) || x < 0) throw py::value_error("radii must be finite and not negative");
        std::optional<py::array_t<double, py::array::c_style>> vel;
        if (!velocities.is_none()) {
          vel = RequirePoints(velocities, "velocities");
          if (size_t(vel->shape(0)) != n) throw py::value_error("velocities must have shape (N, 3) like points");
        }
        EnsureModuleStarted();
        auto list = Take(zelmar::PointsToVolumeListInterface::Create(nullptr));
        const double* p = pts.data();
        for (size_t i = 0; i < n; ++i) {
          const zta::Vector v = vel ? zta::Vector(vel->data()[3 * i], vel->data()[3 * i + 1], vel->data()[3 * i + 2]) : zta::Vector();
          Check(list.AppendPoint({p[3 * i], p[3 * i + 1], p[3 * i + 2]}, r[i], v));
        }
        std::vector<zelmar::PointsToVolumeListInterface> lists{list};
        return Require(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::PointsToVolume(lists, voxelSize, halfWidth, t, nullptr, velocityScale);
        }, progress), "the points gave no volume");
      },
      py::arg("points"), py::arg("radii"), py::arg("velocities") = py::none(), py::arg("voxel_size") = 0.1,
      py::arg("half_width") = 3, py::arg("velocity_scale") = 0.0, py::arg("progress") = nullptr,
      "A level set of spheres at points (N, 3) with radii (N,) or one radius; trails along velocities when velocity_scale is not 0.");

  m.def(
      "boolean",
      [](const VolPtr& a, const VolPtr& b, const std::string& op) {
        const auto type = Choice<zelmar::BOOLTYPE>(op, {{"union", zelmar::BOOLTYPE::UNION}, {"difference", zelmar::BOOLTYPE::DIFFERENCE},
                                                        {"intersection", zelmar::BOOLTYPE::INTERSECTION}}, "op");
        const zelmar::Volume va = Vol(a, "a").GetGrid("a");
        const zelmar::Volume vb = Vol(b, "b").GetGrid("b");
        RequireClass(va, zelmar::GRIDCLASS::SDF, "boolean");
        RequireClass(vb, zelmar::GRIDCLASS::SDF, "boolean");
        RequireType(va, {zelmar::GRIDTYPE::FLOAT, zelmar::GRIDTYPE::DOUBLE}, "boolean");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::BoolVolumes(va, vb, type, t);
        }));
      },
      py::arg("a"), py::arg("b"), py::arg("op") = "union", "Union, difference (a minus b) or intersection of two level sets.");
  m.def(
      "mix",
      [](const VolPtr& a, const VolPtr& b, const std::string& op) {
        const auto type = Choice<zelmar::MIXTYPE>(op, {{"normal", zelmar::MIXTYPE::NORMAL}, {"max", zelmar::MIXTYPE::MAXIMUM},
                                                       {"min", zelmar::MIXTYPE::MINIMUM}, {"add", zelmar::MIXTYPE::ADD},
                                                       {"subtract", zelmar::MIXTYPE::SUBTRACT}, {"multiply", zelmar::MIXTYPE::MULTIPLY},
                                                       {"divide", zelmar::MIXTYPE::DIVIDE}}, "op");
        const zelmar::Volume va = Vol(a, "a").GetGrid("a");
        const zelmar::Volume vb = Vol(b, "b").GetGrid("b");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::MixVolumes(va, vb, type, t);
        }));
      },
      py::arg("a"), py::arg("b"), py::arg("op") = "add", "Mixes b into a voxel by voxel (b resampled into a's frame).");
  m.def(
      "vector_mix",
      [](const VolPtr& a, const VolPtr& b, const std::string& op) {
        const auto type = Choice<zelmar::MIXVECTORTYPE>(op, {{"normal", zelmar::MIXVECTORTYPE::NORMAL}, {"add", zelmar::MIXVECTORTYPE::ADD},
                                                             {"subtract", zelmar::MIXVECTORTYPE::SUBTRACT}, {"cross", zelmar::MIXVECTORTYPE::CROSS}}, "op");
        const zelmar::Volume va = Vol(a, "a").GetGrid("a");
        const zelmar::Volume vb = Vol(b, "b").GetGrid("b");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::MixVectorVolumes(va, vb, type, t);
        }));
      },
      py::arg("a"), py::arg("b"), py::arg("op") = "add");
  m.def(
      "blend",
      [](const VolPtr& a, const VolPtr& b, double weight) {
        if (!std::isfinite(weight)) throw py::value_error("weight must be finite");
        const zelmar::Volume va = Vol(a, "a").GetGrid("a");
        const zelmar::Volume vb = Vol(b, "b").GetGrid("b");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::BlendVolumes(va, vb, weight, t);
        }));
      },
      py::arg("a"), py::arg("b"), py::arg("weight") = 0.5, "a * weight + b * (1 - weight), index by index.");
  m.def(
      "resample",
      [](const VolPtr& vol, const py::object& transform, const std::string& interpolation) {
        const auto type = Choice<zelmar::RESAMPLEINTERPOLATIONTYPE>(
            interpolation, {{"nearest", zelmar::RESAMPLEINTERPOLATIONTYPE::NEAREST}, {"linear", zelmar::RESAMPLEINTERPOLATIONTYPE::LINEAR},
                            {"quadratic", zelmar::RESAMPLEINTERPOLATIONTYPE::QUADRATIC}}, "interpolation");
        const zta::Matrix m = ArrayToMatrix(transform, "transform");
        if (std::abs(m.Det()) < 1e-300) throw py::value_error("transform must not be singular");
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::ResampleVolume(v, m, type, t);
        }));
      },
      py::arg("volume"), py::arg("transform"), py::arg("interpolation") = "linear", "The volume on a new index-to-world transform (4x4).");

  m.def(
      "sdf_filter",
      [](const VolPtr& vol, const std::string& filter, int64_t iterations, int width, double offset, double strength,
         const py::object& mask, const ProgressCallback& progress) {
        zelmar::SDFFilterSettings s;
        s.filterType = Choice<zelmar::SDFFILTERTYPE>(
            filter, {{"gaussian", zelmar::SDFFILTERTYPE::GAUSSIAN}, {"dilate", zelmar::SDFFILTERTYPE::DILATE},
                     {"erode", zelmar::SDFFILTERTYPE::ERODE}, {"mean", zelmar::SDFFILTERTYPE::MEANVALUE},
                     {"median", zelmar::SDFFILTERTYPE::MEDIANVALUE}, {"mean_curvature", zelmar::SDFFILTERTYPE::MEANCURVATURE},
                     {"laplacian_flow", zelmar::SDFFILTERTYPE::LAPLACIANFLOW}, {"renormalize", zelmar::SDFFILTERTYPE::RENORMALIZE},
                     {"open", zelmar::SDFFILTERTYPE::OPEN}, {"close", zelmar::SDFFILTERTYPE::CLOSE},
                     {"track", zelmar::SDFFILTERTYPE::TRACK}, {"resize", zelmar::SDFFILTERTYPE::RESIZE}}, "filter");
        if (iterations < 0 || width < 1) throw py::value_error("iterations must not be negative and width must be at least 1");
        if (!std::isfinite(offset) || !std::isfinite(strength)) throw py::value_error("offset and strength must be finite");
        s.iterations = iterations;
        s.stencilWidth = width;
        s.offset = float(offset);
        s.strength = strength;
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        RequireClass(v, zelmar::GRIDCLASS::SDF, "sdf_filter");
        zelmar::Volume maskVolume;
        if (!mask.is_none()) maskVolume = As<PyVolume&>(mask, "a Volume as mask").GetGrid("mask");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::ApplySDFFilterToVolume(v, s, t, maskVolume, nullptr);
        }, progress));
      },
      py::arg("volume"), py::arg("filter"), py::arg("iterations") = 1, py::arg("width") = 1, py::arg("offset") = 0.0,
      py::arg("strength") = 1.0, py::arg("mask") = py::none(), py::arg("progress") = nullptr,
      "A level set filter: gaussian, dilate, erode, mean, median, mean_curvature, laplacian_flow, renormalize, open, close, track, resize.");
  m.def(
      "filter",
      [](const VolPtr& vol, const FilterSettingsRecord& settings, const py::object& mask) {
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        RequireType(v, {zelmar::GRIDTYPE::FLOAT, zelmar::GRIDTYPE::VEC3S}, "filter");
        zelmar::Volume maskVolume;
        if (!mask.is_none()) maskVolume = As<PyVolume&>(mask, "a Volume as mask").GetGrid("mask");
        const zelmar::FilterSettings s = settings.settings;
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::ApplyFilterToVolume(v, s, t, maskVolume, nullptr);
        }));
      },
      py::arg("volume"), py::arg("settings"), py::arg("mask") = py::none(), "A value filter of a float or vec3s volume.");
  m.def(
      "sdf_to_fog",
      [](const VolPtr& vol, double cutoff) {
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        RequireClass(v, zelmar::GRIDCLASS::SDF, "sdf_to_fog");
        if (!std::isfinite(cutoff) || cutoff < 0) throw py::value_error("cutoff must be a number not below 0");
        // 0 takes the whole inner band, as zvol's --cutoff does.
        const double c = cutoff > 0.0 ? cutoff : double(std::numeric_limits<float>::max());
        return Require(Take(zelmar::VolumeToolsInterface::ConvertSDFToFog(v, c)), "sdf_to_fog gave no grid");
      },
      py::arg("volume"), py::arg("cutoff") = 0.0,
      "A fog volume of a level set: density 1 at `cutoff` world units inside (0: the whole inner band).");
  m.def(
      "fog_to_sdf",
      [](const VolPtr& vol, double iso, const ProgressCallback& progress) {
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        RequireType(v, {zelmar::GRIDTYPE::FLOAT, zelmar::GRIDTYPE::DOUBLE}, "fog_to_sdf");
        return Require(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::ConvertFogToSDF(v, iso, t);
        }, progress), "fog_to_sdf gave no grid: nothing crosses the iso value");
      },
      py::arg("volume"), py::arg("iso") = 0.5, py::arg("progress") = nullptr, "A level set through the surface of a fog volume at `iso`.");
  auto derived = [&m](const char* name, auto fn, std::initializer_list<zelmar::GRIDTYPE> types, const char* doc) {
    std::vector<zelmar::GRIDTYPE> ts(types);
    m.def(
        name,
        [fn, ts, name](const VolPtr& vol) {
          const zelmar::Volume v = Vol(vol, "volume").GetGrid();
          bool ok = false;
          std::string names;
          for (auto t : ts) {
            ok = ok || v.GetGridType() == t;
            names += std::string(names.empty() ? "" : " or ") + zelmar::GridTypeName(t);
          }
          if (!ok) throw py::value_error(std::string(name) + " needs a " + names + " grid, got " + zelmar::GridTypeName(v.GetGridType()));
          return Require(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) { return fn(v, t); }),
                         std::string(name) + " gave no grid");
        },
        py::arg("volume"), doc);
  };
  derived("vector_to_fog", &zelmar::VolumeToolsInterface::ConvertVectorToFog,
          {zelmar::GRIDTYPE::VEC3S, zelmar::GRIDTYPE::VEC3D}, "The length of each vector.");
  derived("gradient", &zelmar::VolumeToolsInterface::CreateGradientVolume, {zelmar::GRIDTYPE::FLOAT, zelmar::GRIDTYPE::DOUBLE},
          "The gradient of a scalar volume, in the file's axes.");
  derived("curl", &zelmar::VolumeToolsInterface::CreateCurlVolume, {zelmar::GRIDTYPE::VEC3S, zelmar::GRIDTYPE::VEC3D}, "");
  derived("mean_curvature", &zelmar::VolumeToolsInterface::CreateMeanCurvatureVolume,
          {zelmar::GRIDTYPE::FLOAT, zelmar::GRIDTYPE::DOUBLE}, "");
  derived("normalize", &zelmar::VolumeToolsInterface::NormalizeVectorVolume, {zelmar::GRIDTYPE::VEC3S, zelmar::GRIDTYPE::VEC3D}, "");
  m.def(
      "rotate_vectors",
      [](const VolPtr& vol, const py::object& axis, double angle) {
        const zelmar::Volume v = Vol(vol, "volume").GetGrid();
        RequireType(v, {zelmar::GRIDTYPE::VEC3S, zelmar::GRIDTYPE::VEC3D}, "rotate_vectors");
        const zta::Vector ax = RequireVector(axis, "axis");
        if (!std::isfinite(angle)) throw py::value_error("angle must be finite");
        return Wrap(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::RotateVectorVolume(v, ax, angle, t, nullptr);
        }));
      },
      py::arg("volume"), py::arg("axis"), py::arg("angle"), "Rotates each vector by `angle` radians about `axis`.");
}

}  // namespace zvpy
