#pragma once
// Adapts a host thread reference (null allowed) to OpenVDB's interrupter contract.
#include "host/core/thread.h"

namespace zelmar {

class ThreadInterrupter {
 public:
  explicit ThreadInterrupter(zta::ThreadRef thread) : thread_(std::move(thread)) {}
  void start(const char* = nullptr) {}
  void end() {}
  bool wasInterrupted(int = -1) const { return thread_ && thread_->TestBreak(); }

 private:
  zta::ThreadRef thread_;
};

}  // namespace zelmar
