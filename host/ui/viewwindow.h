#pragma once
// A window with a GL context for a live view (GLFW). The mouse and keys
// arrive as one record per wait; what they mean is the viewer's choice.
// No GL header here.
#include <memory>
#include <string>
#include <vector>

#include "host/core/result.h"
#include "host/core/types.h"

namespace zta {

enum class VIEWKEY { NONE, FRAME_ALL, NEXT_FRAME, PREVIOUS_FRAME, QUIT };

struct ViewInput {
  // Pointer movement in pixels while a button was held: the left button
  // orbits, the middle or right one (or shift with the left) pans.
  double orbitX = 0, orbitY = 0;
  double panX = 0, panY = 0;
  // Wheel steps, positive away from the user.
  double zoom = 0;
  std::vector<VIEWKEY> keys;
  bool resized = false;
  bool Any() const { return orbitX || orbitY || panX || panY || zoom || resized || !keys.empty(); }
};

class ViewWindow {
 public:
  // A window with a current GL 3.3 core context; an error in words when there
  // is no display or no driver.
  static Result<std::unique_ptr<ViewWindow>> Create(Int32 width, Int32 height, const std::string& title);
  ~ViewWindow();
  ViewWindow(const ViewWindow&) = delete;
  ViewWindow& operator=(const ViewWindow&) = delete;

  bool ShouldClose() const;
  // Waits at most `seconds` for input, then returns what came.
  ViewInput Wait(double seconds);
  // The size of the picture in pixels.
  Int32 GetWidth() const;
  Int32 GetHeight() const;
  void Show();

  // What the window's callbacks fill.
  struct State;

 private:
  ViewWindow() = default;
  std::unique_ptr<State> state_;
};

}  // namespace zta
