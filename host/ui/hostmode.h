#pragma once
// How the host runs: whether a person watches (progress and dialogs shown)
// or not. Front ends say which at start; the default is a library embedded in
// another program, which shows nothing.
#include "host/core/types.h"

namespace zta {

enum : Int32 {
  HOSTMODE_INTERACTIVE = 0,  // a person at the screen or terminal
  HOSTMODE_COMMANDLINE = 2,  // run from a script or with output redirected
  HOSTMODE_LIBRARY = 3,      // inside another program: tests, the Python package
};

Int32 GetHostMode();
void SetHostMode(Int32 mode);
// Neither of the two modes without a person.
bool IsInteractive();

}  // namespace zta
