#include "host/ui/progressdialog.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "host/ui/hostmode.h"
#include "host/ui/mainthreadqueue.h"
#include "host/ui/statusbar.h"

namespace zta {

namespace {
std::mutex g_mutex;
std::function<bool(const String&, Float)> g_cancel;
// How often the waiting thread looks at the work.
constexpr Int64 kLookMs = 20;
}  // namespace

void SetProgressCancelCallback(std::function<bool(const String&, Float)> cancel) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_cancel = std::move(cancel);
}

// ---- ProgressThread

ProgressThread::ProgressThread(String name) : name_(std::move(name)) {}

ProgressThread::~ProgressThread() {
  End();
  if (thread_.joinable()) thread_.join();
}

bool ProgressThread::Start(std::function<void(ZTAThread*)> work) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (running_ || !work) return false;
  if (thread_.joinable()) thread_.join();
  running_ = true;
  thread_ = std::thread([this, work = std::move(work)] {
    work(this);
    std::lock_guard<std::mutex> l(mutex_);
    running_ = false;
    done_.notify_all();
  });
  return true;
}

bool ProgressThread::WaitFor(Int64 ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  done_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return !running_; });
  return !running_;
}

bool ProgressThread::IsRunning() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return running_;
}

// ---- ProgressDialog

bool ProgressDialog::Open(const ThreadRef& stop) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    percent_ = 0.0;
    error_.reset();
    cancelled_ = false;
  }
  ProgressThread thread;
  if (!thread.Start([this](ZTAThread* t) { Main(t); })) return false;
  std::function<bool(const String&, Float)> cancel;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    cancel = g_cancel;
  }
  const bool show = IsInteractive();
  bool asked = false;
  for (;;) {
    const bool done = thread.WaitFor(kLookMs);
    // This thread is the main one while the dialog is open.
    MainThreadQueue::Get().Drain();
    if (done) break;
    const Float percent = GetPercent();
    if (!asked && ((stop && stop->TestBreak()) || (cancel && cancel(GetTitle(), percent)))) {
      asked = true;
      thread.End();
      std::lock_guard<std::mutex> lock(mutex_);
      cancelled_ = true;
    }
    if (show) {
      StatusSetText(GetTitle());
      StatusSetBar(Int32(std::lround(percent * 100.0)));
    }
  }
  if (show) StatusClear();
  return !WasCancelled() && !GetError();
}

void ProgressDialog::SetPercent(Float fraction) {
  std::lock_guard<std::mutex> lock(mutex_);
  percent_ = std::clamp(fraction, 0.0, 1.0);
}

Float ProgressDialog::GetPercent() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return percent_;
}

void ProgressDialog::SetTitle(const String& title) {
  std::lock_guard<std::mutex> lock(mutex_);
  title_ = title;
}

String ProgressDialog::GetTitle() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return title_;
}

void ProgressDialog::SetError(const Error& error) {
  std::lock_guard<std::mutex> lock(mutex_);
  error_ = error;
}

std::optional<Error> ProgressDialog::GetError() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return error_;
}

bool ProgressDialog::WasCancelled() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return cancelled_;
}

}  // namespace zta
