#include "modules/volumes/source/helper/progresshandler.h"

#include <mutex>
#include <new>

#include "host/ui/mainthreadqueue.h"
#include "host/ui/statusbar.h"

namespace zelmar {

zta::Result<std::shared_ptr<ProgressHandler>> ProgressHandler::Get() {
  static std::mutex mutex;
  static std::shared_ptr<ProgressHandler> handler;
  std::lock_guard<std::mutex> lock(mutex);
  if (!handler) {
    try {
      handler = std::make_shared<ProgressHandler>();
    } catch (const std::bad_alloc&) {
      return zta::IllegalStateError("Illegal state: Progress Handler was not initialized");
    }
  }
  return handler;
}

void ProgressHandler::SetActive(bool active) {
  std::lock_guard<SpinLock> lock(lock_);
  active_ = active;
}

void ProgressHandler::SetTitle(const std::string& title) {
  std::lock_guard<SpinLock> lock(lock_);
  title_ = title;
}

void ProgressHandler::SetStepCount(int64_t n) {
  if (n <= 0) return;
  std::lock_guard<SpinLock> lock(lock_);
  stepCount_ = n;
  stepSize_ = 100 / n;
}

void ProgressHandler::SetStepProgress(int64_t p, bool trigger) {
  std::lock_guard<SpinLock> lock(lock_);
  stepPercent_ = p;
  percent_ = currentStep_ * stepSize_ + int64_t(double(p) / 100.0 * double(stepSize_));
  if (trigger) Post(Job::BAR);
}

void ProgressHandler::NextStep(bool trigger) {
  std::lock_guard<SpinLock> lock(lock_);
  if (currentStep_ >= stepCount_ - 1) return;
  ++currentStep_;
  stepPercent_ = 0;
  percent_ = currentStep_ * stepSize_;
  if (trigger) Post(Job::BAR);
}

void ProgressHandler::SetSpinning() {
  std::lock_guard<SpinLock> lock(lock_);
  Post(Job::SPIN);
}

void ProgressHandler::TriggerProgressDisplay() {
  std::lock_guard<SpinLock> lock(lock_);
  Post(Job::BAR);
}

void ProgressHandler::ClearProgress(bool keep) {
  std::lock_guard<SpinLock> lock(lock_);
  Post(Job::CLEAR);
  if (!keep) {
    stepCount_ = 1;
    currentStep_ = 0;
    stepSize_ = 100;
    stepPercent_ = 0;
    percent_ = 0;
    active_ = false;
    title_.clear();
  }
}

ProgressHandler::State ProgressHandler::GetState() const {
  std::lock_guard<SpinLock> lock(lock_);
  return {stepCount_, currentStep_, stepSize_, stepPercent_, percent_, active_, title_};
}

void ProgressHandler::Post(Job job) {
  if (!active_) return;
  // The job keeps the handler alive. It reads the fields when it runs, so a
  // display may lag the numbers but never shows a stale step; it copies them
  // under the lock because a string cannot be read while another thread
  // writes it.
  std::shared_ptr<ProgressHandler> self = weak_from_this().lock();
  if (!self) return;  // only a shared handler can outlive its jobs
  zta::MainThreadQueue::Get().Post([self, job] {
    if (job == Job::CLEAR) {
      zta::StatusClear();
      return;
    }
    const State s = self->GetState();
    const bool showText = !s.title.empty() || !zta::GetStatusState().text.empty();
    if (job == Job::SPIN) {
      if (showText) zta::StatusSetText(s.title);
      zta::StatusSetSpin();
    } else {
      if (showText) zta::StatusSetText(s.title + " " + std::to_string(s.percent) + "%");
      zta::StatusSetBar(int32_t(s.percent));
    }
  });
}

}  // namespace zelmar
