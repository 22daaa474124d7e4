// Batched voxel access over numpy arrays: a million lookups are one call,
// spread over TBB's workers with one accessor per chunk (an accessor caches
// tree nodes and belongs to one thread), without the GIL, and stoppable.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>

#include "bridge.h"
#include "progress.h"
#include "zelmar/volumeiterators.h"

namespace zvpy {

namespace {

constexpr size_t kChunk = 16384;

bool IsVector(zelmar::GRIDTYPE t) {
  return t == zelmar::GRIDTYPE::VEC3I || t == zelmar::GRIDTYPE::VEC3S || t == zelmar::GRIDTYPE::VEC3D;
}

// The numpy dtype and the per-value width of a value type.
template <typename T>
struct Out;
template <> struct Out<float> { using E = float; static constexpr int w = 1; };
template <> struct Out<double> { using E = double; static constexpr int w = 1; };
template <> struct Out<int32_t> { using E = int32_t; static constexpr int w = 1; };
template <> struct Out<int64_t> { using E = int64_t; static constexpr int w = 1; };
template <> struct Out<bool> { using E = bool; static constexpr int w = 1; };
template <> struct Out<zta::IntVector32> { using E = int32_t; static constexpr int w = 3; };
template <> struct Out<zta::Vector32> { using E = float; static constexpr int w = 3; };
template <> struct Out<zta::Vector64> { using E = double; static constexpr int w = 3; };

template <typename T>
void Store(typename Out<T>::E* out, size_t i, const T& v) {
  if constexpr (Out<T>::w == 3) {
    out[3 * i] = v.x;
    out[3 * i + 1] = v.y;
    out[3 * i + 2] = v.z;
  } else {
    out[i] = v;
  }
}

template <typename T>
T Load(const double* in, size_t i) {
  if constexpr (Out<T>::w == 3) {
    using E = decltype(T{}.x);
    return T(E(in[3 * i]), E(in[3 * i + 1]), E(in[3 * i + 2]));
  } else {
    return T(in[i]);
  }
}

template <typename F>
auto WithType(zelmar::GRIDTYPE t, F&& f) {
  using zelmar::GRIDTYPE;
  switch (t) {
    case GRIDTYPE::FLOAT: return f(float{});
    case GRIDTYPE::DOUBLE: return f(double{});
    case GRIDTYPE::INT32: return f(int32_t{});
    case GRIDTYPE::INT64: return f(int64_t{});
    case GRIDTYPE::BOOL: return f(bool{});
    case GRIDTYPE::VEC3I: return f(zta::IntVector32{});
    case GRIDTYPE::VEC3S: return f(zta::Vector32{});
    case GRIDTYPE::VEC3D: return f(zta::Vector64{});
    default:
      throw py::type_error(std::string("grids of type ") + zelmar::GridTypeName(t) + " have no batched access");
  }
}

template <typename T>
py::array MakeOut(size_t n) {
  using E = typename Out<T>::E;
  if constexpr (Out<T>::w == 3) return py::array_t<E>({py::ssize_t(n), py::ssize_t(3)});
  else return py::array_t<E>(py::ssize_t(n));
}

zelmar::VOLUMESAMPLER SamplerName(const std::string& s) {
  if (s == "nearest") return zelmar::VOLUMESAMPLER::NEAREST;
  if (s == "linear") return zelmar::VOLUMESAMPLER::LINEAR;
  if (s == "quadratic") return zelmar::VOLUMESAMPLER::QUADRATIC;
  throw py::value_error("sampler must be 'nearest', 'linear' or 'quadratic', got '" + s + "'");
}

std::vector<zta::IntVector32> CoordsArg(const py::handle& obj) {
  auto idx = RequireIndices(obj, "coords", {3});
  const int64_t* d = idx.data();
  std::vector<zta::IntVector32> out(size_t(idx.shape(0)));
  for (size_t i = 0; i < out.size(); ++i) {
    for (int k = 0; k < 3; ++k)
      if (d[3 * i + k] < INT32_MIN || d[3 * i + k] > INT32_MAX)
        throw py::value_error("coords row " + std::to_string(i) + " is out of the range of int32");
    out[i] = {int32_t(d[3 * i]), int32_t(d[3 * i + 1]), int32_t(d[3 * i + 2])};
  }
  return out;
}

// Below this many samples the order of the positions is kept as it comes.
constexpr size_t kOrderFrom = 32768;

// The positions in an order that visits them leaf by leaf: random positions
// miss the accessor's node cache and the processor's on almost every lookup,
// and a counting sort by leaf (two passes, no comparisons) costs far less
// than those misses. Each entry is made by `make(i, indexPosition)` and
// carries its place i in the input, so results go back where they belong.
// Empty when the positions are too few for the order to pay. Any order gives
// the same values; only speed differs.
template <typename E, typename Make>
std::unique_ptr<E[]> LeafSorted(const double* p, size_t n, const zta::Matrix& toIndex, Make&& make) {
  if (n < kOrderFrom || n > UINT32_MAX) return nullptr;
  // The box of the positions, taken to leaf cells through its corners (the
  // map is affine), bounds every position's cell.
  zta::Vector wlo(p[0], p[1], p[2]), whi = wlo;
  for (size_t i = 0; i < n; ++i)
    for (int k = 0; k < 3; ++k) {
      wlo[k] = std::min(wlo[k], p[3 * i + k]);
      whi[k] = std::max(whi[k], p[3 * i + k]);
    }
  // Leaves are 8 voxels a side; far positions are held to the index range.
  constexpr double kLimit = 268435456.0;
  double lo[3] = {kLimit, kLimit, kLimit}, hi[3] = {-kLimit, -kLimit, -kLimit};
  for (int c = 0; c < 8; ++c) {
    const zta::Vector q = toIndex.TransformPoint({(c & 1) ? whi.x : wlo.x, (c & 2) ? whi.y : wlo.y, (c & 4) ? whi.z : wlo.z});
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::clamp(std::min(lo[k], std::floor((q[k] + 0.5) * 0.125)), -kLimit, kLimit);
      hi[k] = std::clamp(std::max(hi[k], std::floor((q[k] + 0.5) * 0.125)), -kLimit, kLimit);
    }
  }
  // Coarser cells when the box of leaves would need more counters than
  // there are positions.
  int shift = 0;
  auto cells = [&](int k) { return (int64_t(hi[k] - lo[k]) >> shift) + 1; };
  while (double(cells(0)) * double(cells(1)) * double(cells(2)) > double(n)) ++shift;
  const int64_t nx = cells(0), ny = cells(1), nz = cells(2);
  // From the box's corner the cell coordinates are not negative, so
  // truncation floors them.
  auto cellOf = [&](size_t i) {
    const zta::Vector q = toIndex.TransformPoint({p[3 * i], p[3 * i + 1], p[3 * i + 2]});
    int64_t c[3];
    for (int k = 0; k < 3; ++k) c[k] = int64_t(std::clamp((q[k] + 0.5) * 0.125 - lo[k], 0.0, 2.0 * kLimit)) >> shift;
    return uint32_t((std::min(c[0], nx - 1) * ny + std::min(c[1], ny - 1)) * nz + std::min(c[2], nz - 1));
  };
  std::unique_ptr<uint32_t[]> cell(new uint32_t[n]);
  std::vector<uint32_t> start(size_t(nx * ny * nz) + 1, 0);
  for (size_t i = 0; i < n; ++i) ++start[(cell[i] = cellOf(i)) + 1];
  for (size_t c = 1; c < start.size(); ++c) start[c] += start[c - 1];
  std::unique_ptr<E[]> sorted(new E[n]);
  for (size_t i = 0; i < n; ++i)
    sorted[start[cell[i]]++] = make(uint32_t(i), toIndex.TransformPoint({p[3 * i], p[3 * i + 1], p[3 * i + 2]}));
  return sorted;
}

// Runs `chunk(begin, end, accessor)` over [0, n) in parallel; stops between
// chunks when asked.
template <typename T, typename F>
void ForChunks(const zelmar::Volume& volume, zelmar::VOLUMESAMPLER sampler, size_t n, const zta::ThreadRef& thread,
               F&& chunk) {
  std::atomic<bool> failed{false};
  std::atomic<size_t> done{0};
  tbb::parallel_for(tbb::blocked_range<size_t>(0, n, kChunk), [&](const tbb::blocked_range<size_t>& r) {
    if (failed.load() || (thread && thread->TestBreak())) return;
    auto acc = zelmar::GridAccessorCreationImpl::Create<T>();
    if (!acc) return void(failed.store(true));
    if (!acc.GetValue()->Init(volume, sampler)) return void(failed.store(true));
    chunk(r.begin(), r.end(), *acc.GetValue());
    ReportProgress(thread, double(done.fetch_add(r.size()) + r.size()), double(n));
  });
  if (failed.load()) throw std::runtime_error("the grid could not be opened for reading");
}

}  // namespace

// The values at world positions, interpolated.
py::array Sample(const PyVolume& self, const py::handle& positions, const std::string& samplerName,
                 const ProgressCallback& progress) {
  const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
  const auto sampler = SamplerName(samplerName);
  auto pts = RequirePoints(positions, "positions");
  const size_t n = size_t(pts.shape(0));
  const double* p = pts.data();
  return WithType(volume.GetGridType(), [&](auto tag) -> py::array {
    using T = decltype(tag);
    py::array out = MakeOut<T>(n);
    auto* o = static_cast<typename Out<T>::E*>(out.mutable_data());
    const zta::Matrix toIndex = volume.GetGridTransform().GetInverse();
    RunReleased([&](const zta::ThreadRef& thread) {
      if (sampler == zelmar::VOLUMESAMPLER::NEAREST) {
        // Nearest samples go by index: the grid's inverse matrix and
        // OpenVDB's rounding of worldToIndexCellCentered.
        struct Entry {
          zta::IntVector32 c;
          uint32_t i;
        };
        // Far positions are held to the index range rather than overflow it.
        auto round = [](double x) { return int32_t(std::clamp(std::floor(x + 0.5), -2147483648.0, 2147483647.0)); };
        const auto sorted = LeafSorted<Entry>(p, n, toIndex, [&](uint32_t i, const zta::Vector& q) {
          return Entry{{round(q.x), round(q.y), round(q.z)}, i};
        });
        ForChunks<T>(volume, sampler, n, thread, [&](size_t b, size_t e, zelmar::GridAccessorInterface<T>& acc) {
          if (sorted) {
            for (size_t k = b; k < e; ++k) Store<T>(o, sorted[k].i, acc.GetValueIntVector32(sorted[k].c));
            return;
          }
          for (size_t i = b; i < e; ++i) {
            const zta::Vector q = toIndex.TransformPoint({p[3 * i], p[3 * i + 1], p[3 * i + 2]});
            Store<T>(o, i, acc.GetValueIntVector32({round(q.x), round(q.y), round(q.z)}));
          }
        });
        return;
      }
      struct Entry {
        zta::Vector w;
        uint32_t i;
      };
      const auto sorted = LeafSorted<Entry>(p, n, toIndex, [&](uint32_t i, const zta::Vector&) {
        return Entry{{p[3 * i], p[3 * i + 1], p[3 * i + 2]}, i};
      });
      ForChunks<T>(volume, sampler, n, thread, [&](size_t b, size_t e, zelmar::GridAccessorInterface<T>& acc) {
        if (sorted) {
          for (size_t k = b; k < e; ++k) Store<T>(o, sorted[k].i, acc.GetValueVector(sorted[k].w));
          return;
        }
        for (size_t i = b; i < e; ++i) Store<T>(o, i, acc.GetValueVector({p[3 * i], p[3 * i + 1], p[3 * i + 2]}));
      });
    }, progress);
    return out;
  });
}

py::array GetValues(const PyVolume& self, const py::handle& coords) {
  const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
  const auto c = CoordsArg(coords);
  return WithType(volume.GetGridType(), [&](auto tag) -> py::array {
    using T = decltype(tag);
    py::array out = MakeOut<T>(c.size());
    auto* o = static_cast<typename Out<T>::E*>(out.mutable_data());
    RunReleased([&](const zta::ThreadRef& thread) {
      ForChunks<T>(volume, zelmar::VOLUMESAMPLER::NEAREST, c.size(), thread,
                   [&](size_t b, size_t e, zelmar::GridAccessorInterface<T>& acc) {
                     for (size_t i = b; i < e; ++i) Store<T>(o, i, acc.GetValueIntVector32(c[i]));
                   });
    });
    return out;
  });
}

py::array GetActive(const PyVolume& self, const py::handle& coords) {
  const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
  const auto c = CoordsArg(coords);
  py::array_t<bool> out(py::ssize_t(c.size()));
  bool* o = out.mutable_data();
  WithType(volume.GetGridType(), [&](auto tag) {
    using T = decltype(tag);
    RunReleased([&](const zta::ThreadRef& thread) {
      ForChunks<T>(volume, zelmar::VOLUMESAMPLER::NEAREST, c.size(), thread,
                   [&](size_t b, size_t e, zelmar::GridAccessorInterface<T>& acc) {
                     for (size_t i = b; i < e; ++i) o[i] = acc.GetActiveState(c[i]);
                   });
    });
    return 0;
  });
  return out;
}

// Writes values (and, with `activate`, the active state). The grid is made
// unique first, so copies that shared it keep their values. Bad input is
// refused before the first write.
void SetValues(PyVolume& self, const py::handle& coords, const py::handle& values, bool activate) {
  auto& volume = self.GetWritable();
  if (!volume.HasGrid()) throw py::value_error("volume has no grid");
  const auto c = CoordsArg(coords);
  const auto type = volume.GetGridType();
  const int width = IsVector(type) ? 3 : 1;
  if (!py::isinstance<py::array>(values)) throw py::type_error("values must be a numpy array");
  auto varr = py::reinterpret_borrow<py::array>(values);
  const char kind = varr.dtype().kind();
  if (kind != 'f' && kind != 'i' && kind != 'u' && kind != 'b')
    throw py::type_error("values must be numbers, got dtype " + std::string(py::str(varr.dtype())));
  const bool shapeOk = width == 1 ? (varr.ndim() == 1 && size_t(varr.shape(0)) == c.size())
                                  : (varr.ndim() == 2 && size_t(varr.shape(0)) == c.size() && varr.shape(1) == 3);
  if (!shapeOk)
    throw py::value_error(std::string("values must have shape ") + (width == 1 ? "(N,)" : "(N, 3)") +
                          " with N the number of coords (" + std::to_string(c.size()) + ")");
  auto v = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(values);
  const double* d = v.data();
  for (py::ssize_t i = 0; i < v.size(); ++i)
    if (!std::isfinite(d[i])) throw py::value_error("values hold a value that is not finite");
  WithType(type, [&](auto tag) {
    using T = decltype(tag);
    auto acc = Take(zelmar::GridAccessorCreationImpl::Create<T>());
    Check(acc->InitWithWriteAccess(volume, zelmar::VOLUMESAMPLER::NEAREST));
    for (size_t i = 0; i < c.size(); ++i) {
      if (activate) Check(acc->SetValue(c[i], Load<T>(d, i)));
      else Check(acc->SetValueOnly(c[i], Load<T>(d, i)));
    }
    return 0;
  });
}

void SetActive(PyVolume& self, const py::handle& coords, const py::handle& states) {
  auto& volume = self.GetWritable();
  if (!volume.HasGrid()) throw py::value_error("volume has no grid");
  const auto c = CoordsArg(coords);
  auto s = py::array_t<bool, py::array::c_style | py::array::forcecast>::ensure(states);
  if (!s || s.ndim() != 1 || size_t(s.shape(0)) != c.size())
    throw py::value_error("states must have shape (N,) with N the number of coords");
  WithType(volume.GetGridType(), [&](auto tag) {
    using T = decltype(tag);
    auto acc = Take(zelmar::GridAccessorCreationImpl::Create<T>());
    Check(acc->InitWithWriteAccess(volume, zelmar::VOLUMESAMPLER::NEAREST));
    for (size_t i = 0; i < c.size(); ++i) Check(acc->SetActiveState(c[i], s.data()[i]));
    return 0;
  });
}

// Index coordinates and values of the active voxels; active tiles are given
// voxel by voxel.
py::tuple ActiveVoxels(const PyVolume& self) {
  const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
  // Tiles spread out voxel by voxel can outgrow any memory; values() gives them whole.
  if (volume.GetActiveVoxelCount() > (int64_t(1) << 31))
    throw py::value_error("the volume has " + std::to_string(volume.GetActiveVoxelCount()) +
                          " active voxels, too many to list one by one; values() lists its tiles whole");
  return WithType(volume.GetGridType(), [&](auto tag) -> py::tuple {
    using T = decltype(tag);
    std::vector<zta::IntVector32> coords;
    std::vector<T> values;
    RunReleased([&](const zta::ThreadRef& thread) {
      auto it = Take(zelmar::GridIteratorCreationImpl::Create<T>(zelmar::GRIDITERATORTYPE::ACTIVE));
      Check(it->Init(volume));
      coords.reserve(size_t(volume.GetActiveVoxelCount()));
      values.reserve(size_t(volume.GetActiveVoxelCount()));
      size_t step = 0;
      for (; it->IsValid(); it->MoveNext()) {
        if ((++step & 0xFFFF) == 0 && thread->TestBreak()) return;
        const auto c = it->GetCoords();
        const T v = it->GetValue();
        const int depth = it->GetDepth();
        if (depth >= 3) {
          coords.push_back(c);
          values.push_back(v);
          continue;
        }
        // Tiles of the first, second and root levels span 8, 128 and 4096 voxels a side.
        const int32_t span = depth == 2 ? 8 : depth == 1 ? 128 : 4096;
        for (int32_t i = 0; i < span; ++i)
          for (int32_t j = 0; j < span; ++j)
            for (int32_t k = 0; k < span; ++k) {
              coords.push_back({c.x + i, c.y + j, c.z + k});
              values.push_back(v);
            }
      }
    });
    py::array_t<int32_t> outC({py::ssize_t(coords.size()), py::ssize_t(3)});
    auto* oc = outC.mutable_data();
    for (size_t i = 0; i < coords.size(); ++i) {
      oc[3 * i] = coords[i].x;
      oc[3 * i + 1] = coords[i].y;
      oc[3 * i + 2] = coords[i].z;
    }
    py::array outV = MakeOut<T>(values.size());
    auto* ov = static_cast<typename Out<T>::E*>(outV.mutable_data());
    for (size_t i = 0; i < values.size(); ++i) Store<T>(ov, i, values[i]);
    return py::make_tuple(outC, outV);
  });
}

// The walk of an iterator over the active, inactive or all values, tiles as
// one entry each: coordinates, values and depths (3 a voxel, 2 to 0 tiles of
// the internal levels and the root).
py::tuple WalkValues(const PyVolume& self, const std::string& which) {
  const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
  zelmar::GRIDITERATORTYPE kind = zelmar::GRIDITERATORTYPE::ACTIVE;
  if (which == "inactive") kind = zelmar::GRIDITERATORTYPE::INACTIVE;
  else if (which == "all") kind = zelmar::GRIDITERATORTYPE::ALL;
  else if (which != "active") throw py::value_error("which must be 'active', 'inactive' or 'all', got '" + which + "'");
  return WithType(volume.GetGridType(), [&](auto tag) -> py::tuple {
    using T = decltype(tag);
    std::vector<zta::IntVector32> coords;
    std::vector<T> values;
    std::vector<int8_t> depths;
    RunReleased([&](const zta::ThreadRef& thread) {
      auto it = Take(zelmar::GridIteratorCreationImpl::Create<T>(kind));
      Check(it->Init(volume));
      size_t step = 0;
      for (; it->IsValid(); it->MoveNext()) {
        if ((++step & 0xFFFF) == 0 && thread->TestBreak()) return;
        coords.push_back(it->GetCoords());
        values.push_back(it->GetValue());
        depths.push_back(int8_t(it->GetDepth()));
      }
    });
    py::array_t<int32_t> outC({py::ssize_t(coords.size()), py::ssize_t(3)});
    static_assert(sizeof(zta::IntVector32) == 3 * sizeof(int32_t));
    std::memcpy(outC.mutable_data(), coords.data(), coords.size() * sizeof(zta::IntVector32));
    py::array outV = MakeOut<T>(values.size());
    auto* ov = static_cast<typename Out<T>::E*>(outV.mutable_data());
    for (size_t i = 0; i < values.size(); ++i) Store<T>(ov, i, values[i]);
    py::array_t<int8_t> outD(py::ssize_t(depths.size()));
    std::memcpy(outD.mutable_data(), depths.data(), depths.size());
    return py::make_tuple(outC, outV, outD);
  });
}

// The index box of the active values (tiles whole), from a walk over them:
// the box a Volume caches is taken when its grid is set, before any write.
std::optional<std::pair<zta::IntVector32, zta::IntVector32>> ActiveBox(const zelmar::Volume& volume) {
  return WithType(volume.GetGridType(), [&](auto tag) {
    using T = decltype(tag);
    std::optional<std::pair<zta::IntVector32, zta::IntVector32>> box;
    auto it = Take(zelmar::GridIteratorCreationImpl::Create<T>(zelmar::GRIDITERATORTYPE::ACTIVE));
    Check(it->Init(volume));
    for (; it->IsValid(); it->MoveNext()) {
      const auto c = it->GetCoords();
      const int depth = it->GetDepth();
      const int32_t span = depth >= 3 ? 1 : depth == 2 ? 8 : depth == 1 ? 128 : 4096;
      const zta::IntVector32 hi{c.x + span - 1, c.y + span - 1, c.z + span - 1};
      if (!box) {
        box.emplace(c, hi);
        continue;
      }
      for (int k = 0; k < 3; ++k) {
        box->first[k] = std::min(box->first[k], c[k]);
        box->second[k] = std::max(box->second[k], hi[k]);
      }
    }
    return box;
  });
}

// The values of every voxel of an index box (inclusive), as an array
// indexed [i, j, k] from the box's minimum.
py::array ToDense(const PyVolume& self, const py::object& bbox) {
  const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
  zta::IntVector32 lo, hi;
  if (bbox.is_none()) {
    const auto box = ActiveBox(volume);
    if (!box) throw py::value_error("the volume has no active voxels; give a bbox");
    lo = box->first;
    hi = box->second;
  } else {
    auto b = RequireIndices(py::array::ensure(bbox), "bbox", {3});
    if (b.shape(0) != 2) throw py::value_error("bbox must be [[min i, j, k], [max i, j, k]]");
    for (int k = 0; k < 3; ++k) {
      lo[k] = int32_t(b.data()[k]);
      hi[k] = int32_t(b.data()[3 + k]);
      if (hi[k] < lo[k]) throw py::value_error("bbox maximum must not be below its minimum");
    }
  }
  const size_t nx = size_t(hi.x - lo.x + 1), ny = size_t(hi.y - lo.y + 1), nz = size_t(hi.z - lo.z + 1);
  if (double(nx) * double(ny) * double(nz) > 2e9) throw py::value_error("the dense box is too large");
  return WithType(volume.GetGridType(), [&](auto tag) -> py::array {
    using T = decltype(tag);
    using E = typename Out<T>::E;
    std::vector<py::ssize_t> shape = {py::ssize_t(nx), py::ssize_t(ny), py::ssize_t(nz)};
    if (Out<T>::w == 3) shape.push_back(3);
    py::array_t<E> out(shape);
    E* o = out.mutable_data();
    const size_t n = nx * ny * nz;
    RunReleased([&](const zta::ThreadRef& thread) {
      ForChunks<T>(volume, zelmar::VOLUMESAMPLER::NEAREST, n, thread,
                   [&](size_t b, size_t e, zelmar::GridAccessorInterface<T>& acc) {
                     for (size_t idx = b; idx < e; ++idx) {
                       const int32_t k = int32_t(idx % nz), j = int32_t((idx / nz) % ny), i = int32_t(idx / (ny * nz));
                       Store<T>(o, idx, acc.GetValueIntVector32({lo.x + i, lo.y + j, lo.z + k}));
                     }
                   });
    });
    return py::array(out);
  });
}

void BindAccessors(py::module_& m) {
  auto vol = py::reinterpret_borrow<py::class_<PyVolume, std::shared_ptr<PyVolume>>>(m.attr("Volume"));
  vol.def("sample", &Sample, py::arg("positions"), py::arg("sampler") = "linear", py::arg("progress") = nullptr,
          "Values at world positions (N, 3), interpolated by 'nearest', 'linear' or 'quadratic', in one call.")
      .def("get_values", &GetValues, py::arg("coords"), "Values at index coordinates (N, 3).")
      .def("get_active", &GetActive, py::arg("coords"), "Active states at index coordinates (N, 3).")
      .def("set_values", &SetValues, py::arg("coords"), py::arg("values"), py::arg("activate") = true,
           "Writes values at index coordinates; with activate, the voxels become active.")
      .def("set_active", &SetActive, py::arg("coords"), py::arg("states"))
      .def("values", &WalkValues, py::arg("which") = "active",
           "(coords (N, 3) int32, values, depths (N,) int8) of a walk over the 'active', 'inactive' or 'all' values;\n"
           "a tile comes once, at its first voxel, with its depth (3 a voxel, 2 a leaf-sized tile, ...).")
      .def("active_voxels", &ActiveVoxels, "(coords (N, 3) int32, values) of the active voxels, tiles voxel by voxel.")
      .def("to_dense", &ToDense, py::arg("bbox") = py::none(),
           "Values of every voxel of an index box [[min], [max]] (inclusive; the active box by default).")
      .def_property_readonly(
          "index_bbox",
          [](const PyVolume& self) -> py::object {
            const auto box = ActiveBox(self.GetGrid());
            if (!box) return py::none();
            py::array_t<int32_t> out({2, 3});
            auto r = out.mutable_unchecked<2>();
            for (int k = 0; k < 3; ++k) {
              r(0, k) = box->first[k];
              r(1, k) = box->second[k];
            }
            return out;
          },
          "Index-space box of the active values, [[min], [max]], both inclusive; None without active values.")
      .def_property_readonly(
          "world_bbox",
          [](const PyVolume& self) -> py::object {
            const auto& v = self.GetGrid();
            const auto box = ActiveBox(v);
            if (!box) return py::none();
            const zta::Matrix m = v.GetGridTransform();
            zta::Vector lo(1e300), hi(-1e300);
            for (int c = 0; c < 8; ++c) {
              const zta::Vector p = m.TransformPoint({(c & 1) ? box->second.x + 0.5 : box->first.x - 0.5,
                                                      (c & 2) ? box->second.y + 0.5 : box->first.y - 0.5,
                                                      (c & 4) ? box->second.z + 0.5 : box->first.z - 0.5});
              for (int k = 0; k < 3; ++k) {
                lo[k] = std::min(lo[k], p[k]);
                hi[k] = std::max(hi[k], p[k]);
              }
            }
            py::array_t<double> out({2, 3});
            auto r = out.mutable_unchecked<2>();
            for (int k = 0; k < 3; ++k) {
              r(0, k) = lo[k];
              r(1, k) = hi[k];
            }
            return out;
          },
          "World-space box around the active values (their outer faces), [[min], [max]]; None without active values.")
      .def(
          "world_to_index",
          [](const PyVolume& self, const py::handle& positions) {
            const zelmar::Volume volume = self.GetGrid();  // a reference of its own: release() may run meanwhile
            auto pts = RequirePoints(positions, "positions");
            const zta::Matrix inv = volume.GetGridTransform().GetInverse();
            py::array_t<double> out({pts.shape(0), py::ssize_t(3)});
            double* o = out.mutable_data();
            const double* p = pts.data();
            for (py::ssize_t i = 0; i < pts.shape(0); ++i) {
              const auto q = inv.TransformPoint({p[3 * i], p[3 * i + 1], p[3 * i + 2]});
              o[3 * i] = q.x;
              o[3 * i + 1] = q.y;
              o[3 * i + 2] = q.z;
            }
            return out;
          },
          py::arg("positions"), "World positions to (fractional) index coordinates.");
}

}  // namespace zvpy
