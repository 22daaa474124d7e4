#include "host/ui/statusbar.h"

#include <algorithm>
#include <mutex>

namespace zta {

namespace {
std::mutex g_mutex;
StatusState g_state;
}  // namespace

void StatusSetText(const String& text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_state.text = text;
  ++g_state.changes;
}

void StatusSetSpin() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_state.bar = STATUSBAR::SPIN;
  ++g_state.changes;
}

void StatusSetBar(Int32 percent) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_state.bar = STATUSBAR::PERCENT;
  g_state.percent = std::clamp(percent, 0, 100);
  ++g_state.changes;
}

void StatusClear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_state.text.clear();
  g_state.bar = STATUSBAR::OFF;
  g_state.percent = 0;
  ++g_state.changes;
}

StatusState GetStatusState() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_state;
}

}  // namespace zta
