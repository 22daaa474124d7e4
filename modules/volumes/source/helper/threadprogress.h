#pragma once
// How far the work on a thread has come, for a caller that shows it. Tools
// report the fraction of their own work in [0, 1] on the thread they were
// given; a thread that does not listen costs one failed cast per report.
#include "host/core/thread.h"

namespace zelmar {

class ThreadProgressListener {
 public:
  virtual ~ThreadProgressListener() = default;
  // Any thread of the work may call it, several at once.
  virtual void OnProgress(double fraction) = 0;
};

inline void ReportThreadProgress(const zta::ThreadRef& thread, double fraction) {
  if (auto* listener = dynamic_cast<ThreadProgressListener*>(thread.get())) listener->OnProgress(fraction);
}

}  // namespace zelmar
