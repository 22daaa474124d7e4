#pragma once
// A progress dialog: work that runs on a thread of its own (a
// ProgressThread, polled through TestBreak) while the caller's thread waits
// in the dialog, runs the jobs posted to the main thread and shows how far
// the work has come. A person may cancel: the progress policy answers for
// them, and a thread reference the caller passes (Ctrl-C in zvol) also stops
// the work.
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/core/types.h"

namespace zta {

// A thread of the host that runs one piece of work.
class ProgressThread : public ZTAThread {
 public:
  explicit ProgressThread(String name = "Progress Thread");
  ~ProgressThread() override;
  const String& GetName() const { return name_; }
  // False when it runs already.
  bool Start(std::function<void(ZTAThread* thread)> work);
  // True once the work has returned; waits at most `ms` milliseconds.
  bool WaitFor(Int64 ms);
  bool IsRunning() const;

 private:
  String name_;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::condition_variable done_;
  bool running_ = false;
};

class ProgressDialog {
 public:
  virtual ~ProgressDialog() = default;
  // Runs Main and returns when it has. False when cancelled, or when Main
  // reported an error (GetError).
  bool Open(const ThreadRef& stop = nullptr);

  // Any thread: how far the work is, from 0 to 1.
  void SetPercent(Float fraction);
  Float GetPercent() const;
  void SetTitle(const String& title);
  String GetTitle() const;
  void SetError(const Error& error);
  std::optional<Error> GetError() const;
  bool WasCancelled() const;

 protected:
  // The work, on the progress thread; it polls thread->TestBreak().
  virtual void Main(ZTAThread* thread) = 0;

 private:
  mutable std::mutex mutex_;
  Float percent_ = 0.0;
  String title_;
  std::optional<Error> error_;
  bool cancelled_ = false;
};

// How a person answers progress dialogs: asked while the work runs with the
// title and the progress; true cancels. Without one, people wait.
void SetProgressCancelCallback(std::function<bool(const String& title, Float percent)> cancel);

}  // namespace zta
