#include "zelmar/memorylimit.h"

#include "modules/volumes/source/helper/memoryneed.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
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

// "3.2 GiB".
std::string MemoryText(double bytes) {
  const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  int u = 0;
  for (; bytes >= 1024.0 && u < 6; ++u) bytes /= 1024.0;
  char text[48];
  std::snprintf(text, sizeof text, u == 0 ? "%.0f %s" : "%.1f %s", bytes, units[u]);
  return text;
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

std::string MemoryNeedRefusal(double bytes, const std::string& purpose) {
  const uint64_t stated = MemoryLimitInterface::GetLimit();
  if (stated == std::numeric_limits<uint64_t>::max()) return {};
  const uint64_t limit = stated ? stated : MemoryLimitInterface::GetAvailable();
  // Without a figure from the system there is nothing to hold the work to.
  if (limit == 0 || bytes <= double(limit)) return {};
  return "needs about " + MemoryText(bytes) + " " + purpose + ", more than the " + MemoryText(double(limit)) +
         (stated ? " the memory limit allows" : " of memory available");
}

}  // namespace zelmar
