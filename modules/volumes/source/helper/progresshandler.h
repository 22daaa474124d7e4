#pragma once
// ProgressHandler: the one process-wide progress record. Any thread sets
// steps and percentages; the status bar is touched only by jobs posted to the
// host's main-thread queue, and only while the handler is active.
#include <atomic>
#include <memory>
#include <string>

#include "host/core/result.h"
#include "modules/volumes/source/main.h"

namespace zelmar {

class ProgressHandler : public std::enable_shared_from_this<ProgressHandler> {
 public:
  // The shared handler; the first call creates it.
  static zta::Result<std::shared_ptr<ProgressHandler>> Get();

  void SetActive(bool active);
  void SetTitle(const std::string& title);
  // For n above 0: n steps of 100 / n percent each (integer division).
  void SetStepCount(int64_t n);
  void SetStepProgress(int64_t p, bool trigger);
  // Moves to the next step, never past the last.
  void NextStep(bool trigger);
  void SetSpinning();
  void TriggerProgressDisplay();
  // Posts the clear job when active; unless `keep`, resets every field.
  void ClearProgress(bool keep);

  // A snapshot of the fields, taken under the lock.
  struct State {
    int64_t stepCount, currentStep, stepSize, stepPercent, percent;
    bool active;
    std::string title;
  };
  State GetState() const;

  ProgressHandler() = default;

 private:
  class SpinLock {
   public:
    void lock() {
      while (flag_.test_and_set(std::memory_order_acquire)) YieldCpu();
    }
    void unlock() { flag_.clear(std::memory_order_release); }

   private:
    std::atomic_flag flag_ = ATOMIC_FLAG_INIT;
  };
  enum class Job { SPIN, BAR, CLEAR };
  // Called with lock_ held.
  void Post(Job job);

  mutable SpinLock lock_;
  int64_t stepCount_ = 1;
  int64_t currentStep_ = 0;
  int64_t stepSize_ = 100;
  int64_t stepPercent_ = 0;
  int64_t percent_ = 0;
  bool active_ = false;
  std::string title_;
};

}  // namespace zelmar
