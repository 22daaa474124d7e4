#pragma once
// The host's parallel-for: [begin, end) split over the worker threads.
#include <functional>

#include "host/core/types.h"

namespace zta {

// Calls fn(i) for every i in [begin, end), in parallel, and returns when all
// are done. A grain of 0 lets the scheduler choose the chunk size.
void ParallelFor(Int64 begin, Int64 end, const std::function<void(Int64)>& fn, Int64 grain = 0);
// Calls fn(chunkBegin, chunkEnd) over disjoint chunks that cover the range.
void ParallelForRange(Int64 begin, Int64 end, const std::function<void(Int64, Int64)>& fn, Int64 grain = 0);
// Caps the worker threads of the host's parallel work (0: no cap). zvol's
// --threads sets it.
void SetMaxThreads(Int32 count);
Int32 GetMaxThreads();

}  // namespace zta
