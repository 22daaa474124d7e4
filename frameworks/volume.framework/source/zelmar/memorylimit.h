#pragma once
// Work whose memory can be told from its input before it starts ends with an
// error instead of thrashing or being killed half-way: loading a .vdb grid
// into the scene's frame, whose mirror turns the faces of active tiles into
// leaves. The limit is the memory available unless a front end sets another.
#include <cstdint>

#include "zelmar/api.h"

namespace zelmar {

class ZELMAR_API MemoryLimitInterface {
 public:
  MemoryLimitInterface() = delete;

  // 0: the memory available (the default); UINT64_MAX: no check.
  static void SetLimit(uint64_t bytes);
  static uint64_t GetLimit();
  // What the system can give this process now: the kernel's estimate of
  // available memory, capped by the control group's room when there is one;
  // 0 when neither can be read.
  static uint64_t GetAvailable();
};

}  // namespace zelmar
