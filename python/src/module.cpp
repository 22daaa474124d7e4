// The extension zelmar._native: module start, the shared helpers, and the
// parts of the binding.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

#include <pthread.h>

#include <filesystem>

#include "common.h"
#include "progress.h"
#include "host/scene/description.h"
#include "modules/volumes/source/helper/progresshandler.h"
#include "modules/volumes/source/main.h"

namespace zvpy {

namespace {
// An error met on a worker thread, which holds no GIL to make a Python
// exception with; RunReleased raises it on the calling thread.
struct WorkerError {
  zta::Error error;
};
}  // namespace

void Raise(const zta::Error& error) {
  if (!PyGILState_Check()) throw WorkerError{error};
  const std::string& text = error.GetMessage().empty() ? std::string(zta::ErrorKindName(error.GetKind()))
                                                       : error.GetMessage();
  switch (error.GetKind()) {
    case zta::ErrorKind::IllegalArgument:
    case zta::ErrorKind::NullPointer:
      throw py::value_error(text);
    case zta::ErrorKind::InputOutput:
      PyErr_SetString(PyExc_OSError, text.c_str());
      throw py::error_already_set();
    case zta::ErrorKind::OutOfMemory:
      PyErr_SetString(PyExc_MemoryError, text.c_str());
      throw py::error_already_set();
    default:
      throw std::runtime_error(text);
  }
}

namespace {
std::once_flag g_startOnce;
std::string g_moduleFolder = ZV_BIN_DIR;
bool g_started = false;
std::string g_startError;
}  // namespace

void EnsureModuleStarted() {
  std::call_once(g_startOnce, [] {
    // The host finds its descriptions beside its program; Python's program
    // is the interpreter, so the package names the folder: "res/host" beside
    // an installed module, the source tree's in a build.
    std::error_code ec;
    const std::filesystem::path installed = std::filesystem::path(g_moduleFolder) / "res" / "host";
    zta::SetHostResourceFolder(std::filesystem::is_directory(installed / "description", ec) ? installed.string()
                                                                                           : std::string(ZV_HOST_RES));
    auto r = zelmar::StartModuleStandalone(g_moduleFolder);
    g_started = r.IsOk();
    if (!r) g_startError = r.GetError().GetMessage();
  });
  if (!g_started) throw std::runtime_error("the volume module could not start: " + g_startError);
}

py::array_t<double, py::array::c_style> RequirePoints(const py::handle& obj, const char* what, py::ssize_t width,
                                                      bool finite) {
  if (!py::isinstance<py::array>(obj))
    throw py::type_error(std::string(what) + " must be a numpy array, got " + std::string(py::str(obj.get_type().attr("__name__"))));
  auto arr = py::reinterpret_borrow<py::array>(obj);
  const char kind = arr.dtype().kind();
  if (kind != 'f')
    throw py::type_error(std::string(what) + " must be an array of floats (float32 or float64), got dtype " +
                         std::string(py::str(arr.dtype())));
  if (arr.ndim() != 2 || arr.shape(1) != width)
    throw py::value_error(std::string(what) + " must have shape (N, " + std::to_string(width) + "), got " +
                          std::string(py::str(py::tuple(py::cast(std::vector<py::ssize_t>(arr.shape(), arr.shape() + arr.ndim()))))));
  if (!(arr.flags() & py::array::c_style))
    throw py::value_error(std::string(what) + " must be C-contiguous; pass numpy.ascontiguousarray(" + what + ")");
  auto out = py::array_t<double, py::array::c_style>::ensure(arr);
  if (!out) throw py::error_already_set();
  if (finite) {
    const double* d = out.data();
    const py::ssize_t n = out.size();
    for (py::ssize_t i = 0; i < n; ++i)
      if (!std::isfinite(d[i]))
        throw py::value_error(std::string(what) + " holds a value that is not finite (NaN or infinity) in row " +
                              std::to_string(i / width));
  }
  return out;
}

py::array_t<int64_t, py::array::c_style> RequireIndices(const py::handle& obj, const char* what,
                                                        std::vector<py::ssize_t> widths) {
  if (!py::isinstance<py::array>(obj))
    throw py::type_error(std::string(what) + " must be a numpy array of integers");
  auto arr = py::reinterpret_borrow<py::array>(obj);
  const char kind = arr.dtype().kind();
  if (kind != 'i' && kind != 'u')
    throw py::type_error(std::string(what) + " must be an array of integers, got dtype " + std::string(py::str(arr.dtype())));
  bool widthOk = false;
  for (auto w : widths) widthOk = widthOk || (arr.ndim() == 2 && arr.shape(1) == w);
  if (!widthOk) {
    std::string ws;
    for (auto w : widths) ws += (ws.empty() ? "" : "|") + std::to_string(w);
    throw py::value_error(std::string(what) + " must have shape (N, " + ws + ")");
  }
  if (!(arr.flags() & py::array::c_style))
    throw py::value_error(std::string(what) + " must be C-contiguous; pass numpy.ascontiguousarray(" + what + ")");
  auto out = py::array_t<int64_t, py::array::c_style>::ensure(arr);
  if (!out) throw py::error_already_set();
  return out;
}

zta::Vector RequireVector(const py::handle& obj, const char* what) {
  std::vector<double> v;
  try {
    v = obj.cast<std::vector<double>>();
  } catch (const py::cast_error&) {
    throw py::type_error(std::string(what) + " must be three numbers");
  }
  if (v.size() != 3) throw py::value_error(std::string(what) + " must be three numbers, got " + std::to_string(v.size()));
  for (double x : v)
    if (!std::isfinite(x)) throw py::value_error(std::string(what) + " must be finite");
  return {v[0], v[1], v[2]};
}

py::array_t<double> MatrixToArray(const zta::Matrix& m) {
  py::array_t<double> out({4, 4});
  auto r = out.mutable_unchecked<2>();
  const zta::Vector rows[4] = {m.v1, m.v2, m.v3, m.off};
  for (int i = 0; i < 4; ++i) {
    r(i, 0) = rows[i].x;
    r(i, 1) = rows[i].y;
    r(i, 2) = rows[i].z;
    r(i, 3) = i == 3 ? 1.0 : 0.0;
  }
  return out;
}

zta::Matrix ArrayToMatrix(const py::handle& obj, const char* what) {
  auto arr = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(obj);
  if (!arr || arr.ndim() != 2 || arr.shape(0) != 4 || arr.shape(1) != 4)
    throw py::value_error(std::string(what) + " must be a 4x4 matrix");
  auto r = arr.unchecked<2>();
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      if (!std::isfinite(r(i, j))) throw py::value_error(std::string(what) + " must be finite");
  if (r(0, 3) != 0 || r(1, 3) != 0 || r(2, 3) != 0 || r(3, 3) != 1)
    throw py::value_error(std::string(what) + " must be affine (last column 0, 0, 0, 1)");
  zta::Matrix m;
  m.v1 = {r(0, 0), r(0, 1), r(0, 2)};
  m.v2 = {r(1, 0), r(1, 1), r(1, 2)};
  m.v3 = {r(2, 0), r(2, 1), r(2, 2)};
  m.off = {r(3, 0), r(3, 1), r(3, 2)};
  return m;
}

namespace {
// The threads long calls run on, kept for the next call. A thread that ends
// hands its oneTBB task pool back through TBB's own allocator, out of the
// sight of ThreadSanitizer, and a new one joins TBB's arena again: both each
// call, when Python threads call at once. A call never waits for a thread:
// when none is idle, one more is started.
class CallThreads {
 public:
  static CallThreads& Get() {
    // Never destroyed: idle threads still wait on it while the process ends.
    static CallThreads* const threads = new CallThreads;
    return *threads;
  }

  void Run(std::function<void()> call) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(std::move(call));
    if (calls_.size() > idle_) {
      std::thread(&CallThreads::Serve, this).detach();
    } else {
      wake_.notify_one();
    }
  }

 private:
  // More idle threads than this end after their call.
  static constexpr size_t kKeptIdle = 16;

  CallThreads() {
    // A forked child has none of the parent's threads.
    pthread_atfork([] { Get().mutex_.lock(); }, [] { Get().mutex_.unlock(); },
                   [] {
                     CallThreads& t = Get();
                     t.idle_ = 0;
                     t.calls_.clear();
                     t.mutex_.unlock();
                   });
  }

  void Serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      if (calls_.empty()) {
        if (idle_ >= kKeptIdle) return;
        ++idle_;
        wake_.wait(lock, [this] { return !calls_.empty(); });
        --idle_;
      }
      std::function<void()> call = std::move(calls_.front());
      calls_.pop_front();
      lock.unlock();
      call();
      call = nullptr;  // what the call held goes before the thread waits again
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> calls_;
  size_t idle_ = 0;
};
}  // namespace

void RunReleased(const std::function<void(const zta::ThreadRef&)>& work, const ProgressCallback& progress) {
  EnsureModuleStarted();
  auto progressThread = std::make_shared<ProgressThread>();
  zta::ThreadRef thread = progressThread;
  std::exception_ptr failure;
  // The waiting thread wakes when the work ends, not at its next poll: a
  // short call costs no more than the thread it runs on.
  std::mutex doneMutex;
  std::condition_variable doneSignal;
  bool done = false;
  bool interrupted = false;
  // The Python error that stops the work, held until the worker is done.
  PyObject *errType = nullptr, *errValue = nullptr, *errTrace = nullptr;
  std::shared_ptr<zelmar::ProgressHandler> handler;
  zelmar::ProgressHandler::State handlerAtStart{};
  if (progress) {
    auto h = zelmar::ProgressHandler::Get();
    if (h) {
      handler = h.GetValue();
      handlerAtStart = handler->GetState();
    }
  }
  // What the callback is told, from the finest source that speaks: the
  // binding's own loop; else the module's step record (a builder's rows, once
  // it moves during this call) refined by the tool at work within the step;
  // else the tool alone. It never goes back.
  int64_t stepOfTool = handlerAtStart.currentStep;
  auto fractionNow = [&]() -> double {
    const double own = progressThread->fraction.load(std::memory_order_relaxed);
    if (own >= 0) return own;
    const double tool = std::max(0.0, progressThread->toolFraction.load(std::memory_order_relaxed));
    if (handler) {
      const auto s = handler->GetState();
      const bool moved = s.currentStep != handlerAtStart.currentStep || s.percent != handlerAtStart.percent ||
                         s.stepCount != handlerAtStart.stepCount;
      if (moved) {
        // A tool's fraction belongs to the step it was heard in.
        if (s.currentStep != stepOfTool) {
          stepOfTool = s.currentStep;
          progressThread->toolFraction.store(-1.0, std::memory_order_relaxed);
          return double(s.percent) / 100.0;
        }
        return std::min(1.0, (double(s.percent) + tool * double(s.stepSize)) / 100.0);
      }
    }
    return tool;
  };
  {
    py::gil_scoped_release release;
    CallThreads::Get().Run([&] {
      try {
        work(thread);
      } catch (...) {
        failure = std::current_exception();
      }
      std::lock_guard<std::mutex> lock(doneMutex);
      done = true;
      doneSignal.notify_all();
    });
    int64_t lastPercent = -1;
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(doneMutex);
        if (doneSignal.wait_for(lock, std::chrono::milliseconds(20), [&] { return done; })) break;
      }
      py::gil_scoped_acquire acquire;
      if (!interrupted && PyErr_CheckSignals() != 0) {
        interrupted = true;
        thread->End();
        PyErr_Fetch(&errType, &errValue, &errTrace);
      }
      if (progress && !interrupted) {
        const int64_t p = int64_t(fractionNow() * 1000);
        if (p > lastPercent) {
          lastPercent = p;
          try {
            progress(double(p) / 1000.0);
          } catch (py::error_already_set& e) {
            e.restore();
            // A callback that raises stops the work and its error is raised.
            interrupted = true;
            thread->End();
            PyErr_Fetch(&errType, &errValue, &errTrace);
          }
        }
      }
    }
    if (progress && !interrupted && !failure && lastPercent != 1000) {
      py::gil_scoped_acquire acquire;
      try {
        progress(1.0);
      } catch (py::error_already_set& e) {
        e.restore();
        interrupted = true;
        PyErr_Fetch(&errType, &errValue, &errTrace);
      }
    }
  }
  if (interrupted) {
    if (errType) PyErr_Restore(errType, errValue, errTrace);
    else PyErr_SetNone(PyExc_KeyboardInterrupt);
    throw py::error_already_set();
  }
  if (failure) {
    try {
      std::rethrow_exception(failure);
    } catch (const WorkerError& e) {
      Raise(e.error);
    }
  }
}

}  // namespace zvpy

namespace zvpy {
void BindCommands(py::module_& m);
void BindFields(py::module_& m);
}

PYBIND11_MODULE(_native, m) {
  m.doc() = "Native part of the zelmar package; use the modules of zelmar instead.";
  m.def(
      "_set_module_folder", [](const std::string& folder) { zvpy::g_moduleFolder = folder; },
      "Where the module's resources (\"res\") are; before the first volume only.");
  m.def("_start", &zvpy::EnsureModuleStarted);
  zvpy::BindZelmarVolume(m);
  zvpy::BindVolume(m);
  zvpy::BindAccessors(m);
  zvpy::BindTools(m);
  zvpy::BindScene(m);
  zvpy::BindCommands(m);
  zvpy::BindFields(m);
}
