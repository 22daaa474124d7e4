#pragma once
// What every part of the binding shares: errors as Python exceptions, numpy
// checks, the outside frame, and long calls that release the GIL and stop
// on Ctrl-C.
#include <pybind11/functional.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/core/math.h"
#include "host/core/result.h"
#include "host/core/thread.h"
#include "zelmar/volume.h"

namespace zvpy {

namespace py = pybind11;

// Errors of the system keep their own text; bad arguments are ValueError,
// files OSError, the rest RuntimeError.
[[noreturn]] void Raise(const zta::Error& error);

template <typename T>
T Take(zta::Result<T> r) {
  if (!r) Raise(r.GetError());
  return std::move(r.GetValue());
}
inline void Check(const zta::Result<void>& r) {
  if (!r) Raise(r.GetError());
}

// The module is started once per process, before the first volume is made.
void EnsureModuleStarted();

// A float64 array of shape (N, width), C-contiguous, with finite values.
// `what` names the argument in the error text. Only float32 and float64
// arrays are taken: integers would silently mean something else for positions.
py::array_t<double, py::array::c_style> RequirePoints(const py::handle& obj, const char* what, py::ssize_t width = 3,
                                                      bool finite = true);
// An integer array of shape (N, width) as int64, C-contiguous.
py::array_t<int64_t, py::array::c_style> RequireIndices(const py::handle& obj, const char* what,
                                                        std::vector<py::ssize_t> widths);
// Three finite numbers.
zta::Vector RequireVector(const py::handle& obj, const char* what);

// The outside frame and the scene's differ by a mirror of the third axis.
inline zta::Vector Mirror(const zta::Vector& v) { return {v.x, v.y, -v.z}; }
inline zta::Matrix Mirror(const zta::Matrix& m) {
  const zta::Matrix s = zta::MatrixScale({1, 1, -1});
  return s * m * s;
}
// A 4x4 row-major numpy array (rows x, y, z, offset as OpenVDB prints them)
// and back.
py::array_t<double> MatrixToArray(const zta::Matrix& m);
zta::Matrix ArrayToMatrix(const py::handle& obj, const char* what);

// Reports progress as a fraction in [0, 1]; may be empty.
using ProgressCallback = std::function<void(double)>;

// Runs `work` on a worker thread while the calling thread waits without the
// GIL. The calling thread checks Python's signals every few hundredths of a
// second: a KeyboardInterrupt asks the work to stop through its thread
// reference, waits for it, and is raised. `progress` is called with the
// module's progress while the work runs.
void RunReleased(const std::function<void(const zta::ThreadRef&)>& work, const ProgressCallback& progress = {});

template <typename T>
T RunReleasedResult(const std::function<zta::Result<T>(const zta::ThreadRef&)>& work,
                    const ProgressCallback& progress = {}) {
  std::optional<zta::Result<T>> out;
  RunReleased([&](const zta::ThreadRef& t) { out.emplace(work(t)); }, progress);
  return Take(std::move(*out));
}

// Parts of the binding, each in its own file.
void BindZelmarVolume(py::module_& parent);
void BindVolume(py::module_& m);
void BindAccessors(py::module_& m);
void BindTools(py::module_& m);
void BindScene(py::module_& m);

}  // namespace zvpy
