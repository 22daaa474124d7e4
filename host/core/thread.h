#pragma once
// A thread reference of the host. Work that may take long polls TestBreak;
// whoever owns the work (a dialog, Ctrl-C in zvol, a test) asks it to stop.
#include <atomic>
#include <memory>

namespace zta {

class ZTAThread {
 public:
  virtual ~ZTAThread() = default;
  // True when the work should stop.
  virtual bool TestBreak() const { return stop_.load(std::memory_order_relaxed); }
  // Safe to call from a signal handler.
  void End() { stop_.store(true, std::memory_order_relaxed); }
  void Reset() { stop_.store(false, std::memory_order_relaxed); }

 private:
  std::atomic<bool> stop_{false};
  static_assert(std::atomic<bool>::is_always_lock_free);
};

using ThreadRef = std::shared_ptr<ZTAThread>;

}  // namespace zta
