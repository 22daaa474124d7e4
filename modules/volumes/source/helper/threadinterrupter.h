#pragma once
// Adapts a host thread reference (null allowed) to OpenVDB's interrupter
// contract. The percentages that OpenVDB's tools pass go on to a thread that
// listens for progress.
#include <algorithm>

#include "host/core/thread.h"
#include "modules/volumes/source/helper/threadprogress.h"

namespace zelmar {

class ThreadInterrupter {
 public:
  explicit ThreadInterrupter(zta::ThreadRef thread) : thread_(std::move(thread)) {}
  void start(const char* = nullptr) {}
  void end() {}
  bool wasInterrupted(int percent = -1) const {
    if (percent >= 0) ReportThreadProgress(thread_, std::min(percent, 100) / 100.0);
    return thread_ && thread_->TestBreak();
  }

 private:
  zta::ThreadRef thread_;
};

}  // namespace zelmar
