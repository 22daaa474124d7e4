#pragma once
// The thread reference of a call run by RunReleased: the tools poll it for
// stopping, and the binding's own loops leave their progress in it for the
// waiting thread to hand to a Python callback.
#include <algorithm>
#include <atomic>
#include <memory>

#include "host/core/thread.h"

namespace zvpy {

class ProgressThread : public zta::ZTAThread {
 public:
  // Fraction done in [0, 1]; below 0 while unknown.
  std::atomic<double> fraction{-1.0};
};

// Leaves `done` of `total` in the thread, when it is a ProgressThread.
inline void ReportProgress(const zta::ThreadRef& thread, double done, double total) {
  if (auto* p = dynamic_cast<ProgressThread*>(thread.get()); p && total > 0)
    p->fraction.store(std::min(1.0, done / total), std::memory_order_relaxed);
}

}  // namespace zvpy
