#include "host/ui/hostmode.h"

#include <atomic>

namespace zta {

namespace {
std::atomic<Int32> g_mode{HOSTMODE_LIBRARY};
}  // namespace

Int32 GetHostMode() { return g_mode.load(); }
void SetHostMode(Int32 mode) { g_mode.store(mode); }
bool IsInteractive() {
  const Int32 mode = GetHostMode();
  return mode != HOSTMODE_COMMANDLINE && mode != HOSTMODE_LIBRARY;
}

}  // namespace zta
