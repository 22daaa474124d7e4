#include "zelmar/memorylimit.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <string>

namespace zelmar {

namespace {

std::atomic<uint64_t> g_memoryLimit{0};

// A cgroup v2 limit's room ("max" when there is none), else 0.
uint64_t ControlGroupRoom() {
  std::ifstream maxFile("/sys/fs/cgroup/memory.max"), currentFile("/sys/fs/cgroup/memory.current");
  std::string max;
  uint64_t current = 0;
  if (!(maxFile >> max) || max == "max" || !(currentFile >> current)) return 0;
  const uint64_t limit = std::strtoull(max.c_str(), nullptr, 10);
  return limit > current ? limit - current : 1;
}

}  // namespace

void MemoryLimitInterface::SetLimit(uint64_t bytes) { g_memoryLimit.store(bytes, std::memory_order_relaxed); }

uint64_t MemoryLimitInterface::GetLimit() { return g_memoryLimit.load(std::memory_order_relaxed); }

uint64_t MemoryLimitInterface::GetAvailable() {
  std::ifstream meminfo("/proc/meminfo");
  std::string key, unit;
  uint64_t kb = 0, available = 0;
  while (meminfo >> key >> kb >> unit)
    if (key == "MemAvailable:") available = kb * 1024;
  if (const uint64_t room = ControlGroupRoom(); room > 0) available = available ? std::min(available, room) : room;
  return available;
}

}  // namespace zelmar
