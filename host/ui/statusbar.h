#pragma once
// The status bar: a text and a bar that is off, spinning or at a percentage.
// Main thread only; other threads reach it through MainThreadQueue.
#include "host/core/types.h"

namespace zta {

enum class STATUSBAR : Int32 { OFF = 0, SPIN = 1, PERCENT = 2 };

struct StatusState {
  String text;
  STATUSBAR bar = STATUSBAR::OFF;
  Int32 percent = 0;
  // Raised on every change, so a display can tell when to redraw.
  UInt64 changes = 0;
};

void StatusSetText(const String& text);
void StatusSetSpin();
// Clamped into [0, 100].
void StatusSetBar(Int32 percent);
// Text empty, bar off.
void StatusClear();
StatusState GetStatusState();

}  // namespace zta
