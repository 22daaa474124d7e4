#include "host/ui/parallel.h"

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

#include <memory>
#include <mutex>

namespace zta {

namespace {
std::mutex g_mutex;
std::unique_ptr<tbb::global_control> g_limit;
Int32 g_max = 0;
}  // namespace

void ParallelForRange(Int64 begin, Int64 end, const std::function<void(Int64, Int64)>& fn, Int64 grain) {
  if (end <= begin) return;
  const tbb::blocked_range<Int64> range(begin, end, size_t(grain > 0 ? grain : 1));
  if (grain > 0) {
    tbb::parallel_for(range, [&](const tbb::blocked_range<Int64>& r) { fn(r.begin(), r.end()); },
                      tbb::simple_partitioner());
  } else {
    tbb::parallel_for(range, [&](const tbb::blocked_range<Int64>& r) { fn(r.begin(), r.end()); });
  }
}

void ParallelFor(Int64 begin, Int64 end, const std::function<void(Int64)>& fn, Int64 grain) {
  ParallelForRange(begin, end, [&](Int64 b, Int64 e) {
    for (Int64 i = b; i < e; ++i) fn(i);
  }, grain);
}

void SetMaxThreads(Int32 count) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_limit.reset();
  g_max = count > 0 ? count : 0;
  if (g_max > 0) g_limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, size_t(g_max));
}

Int32 GetMaxThreads() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_max;
}

}  // namespace zta
