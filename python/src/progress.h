#pragma once
// The thread reference of a call run by RunReleased: the tools poll it for
// stopping, and the binding's own loops and the module's tools leave their
// progress in it for the waiting thread to hand to a Python callback.
#include <algorithm>
#include <atomic>
#include <memory>

#include "host/core/thread.h"
#include "modules/volumes/source/helper/threadprogress.h"

namespace zvpy {

class ProgressThread : public zta::ZTAThread, public zelmar::ThreadProgressListener {
 public:
  // Fraction done of the binding's own loop in [0, 1]; below 0 while unknown.
  std::atomic<double> fraction{-1.0};
  // The last fraction a tool reported of its own work; below 0 before any.
  // A call that runs several tools (a scene's evaluation) hears each from 0.
  std::atomic<double> toolFraction{-1.0};

  void OnProgress(double f) override { toolFraction.store(std::clamp(f, 0.0, 1.0), std::memory_order_relaxed); }
};

// Leaves `done` of `total` in the thread, when it is a ProgressThread.
inline void ReportProgress(const zta::ThreadRef& thread, double done, double total) {
  if (auto* p = dynamic_cast<ProgressThread*>(thread.get()); p && total > 0)
    p->fraction.store(std::min(1.0, done / total), std::memory_order_relaxed);
}

}  // namespace zvpy
