#include "host/ui/mainthreadqueue.h"

#include <exception>

#include "host/core/diagnostics.h"

namespace zta {

MainThreadQueue::MainThreadQueue() = default;

MainThreadQueue& MainThreadQueue::Get() {
  static MainThreadQueue queue;
  return queue;
}

void MainThreadQueue::Post(Job job) {
  if (!job) return;
  std::lock_guard<std::mutex> lock(mutex_);
  jobs_.push_back(std::move(job));
}

Int64 MainThreadQueue::Drain() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (main_ == std::thread::id()) main_ = std::this_thread::get_id();
    if (main_ != std::this_thread::get_id()) return 0;
  }
  Int64 ran = 0;
  for (;;) {
    std::vector<Job> batch;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      batch.swap(jobs_);
    }
    if (batch.empty()) return ran;
    for (Job& job : batch) {
      // One failing job must not keep the others from running.
      try {
        job();
      } catch (const std::exception& e) {
        DiagnosticOutput("main-thread job failed: @", e.what());
      } catch (...) {
        DiagnosticOutput("main-thread job failed");
      }
      ++ran;
    }
  }
}

Int64 MainThreadQueue::GetPendingCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return Int64(jobs_.size());
}

void MainThreadQueue::SetMainThread(std::thread::id id) {
  std::lock_guard<std::mutex> lock(mutex_);
  main_ = id;
}

bool MainThreadQueue::IsMainThread() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return main_ != std::thread::id() && main_ == std::this_thread::get_id();
}

void ExecuteOnMainThread(MainThreadQueue::Job job) {
  if (!job) return;
  if (MainThreadQueue::Get().IsMainThread()) job();
  else MainThreadQueue::Get().Post(std::move(job));
}

}  // namespace zta
