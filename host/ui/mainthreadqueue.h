#pragma once
// Jobs that must run on the main thread. Any thread posts; the main thread
// (zvol's loop, a test) drains. A build without the application has no
// event loop, so whoever owns the main thread calls Drain.
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "host/core/types.h"

namespace zta {

class MainThreadQueue {
 public:
  using Job = std::function<void()>;

  // The process's queue.
  static MainThreadQueue& Get();

  // Appends a job; it runs at the next Drain, in posting order.
  void Post(Job job);
  // Runs the jobs posted so far, and those they post in turn; returns how
  // many ran. From a thread other than the main one it runs nothing.
  Int64 Drain();
  Int64 GetPendingCount() const;

  // The thread that drains: the one named here, else the first that calls Drain.
  void SetMainThread(std::thread::id id);
  bool IsMainThread() const;

 private:
  MainThreadQueue();
  mutable std::mutex mutex_;
  std::vector<Job> jobs_;
  std::thread::id main_;
};

// Runs `job` now on the main thread, or posts it from any other.
void ExecuteOnMainThread(MainThreadQueue::Job job);

}  // namespace zta
