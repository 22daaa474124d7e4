#include <GLFW/glfw3.h>

#include "host/ui/viewwindow.h"

namespace zta {

struct ViewWindow::State {
  GLFWwindow* window = nullptr;
  ViewInput input;
  double lastX = 0, lastY = 0;
  bool havePointer = false;
};

namespace {

ViewWindow::State* StateOf(GLFWwindow* w) { return static_cast<ViewWindow::State*>(glfwGetWindowUserPointer(w)); }

void OnCursor(GLFWwindow* w, double x, double y) {
  ViewWindow::State* s = StateOf(w);
  if (s->havePointer) {
    const double dx = x - s->lastX, dy = y - s->lastY;
    const bool left = glfwGetMouseButton(w, GLFW_MOUSE_BUTTON_LEFT) == GLFW_PRESS;
    const bool shift = glfwGetKey(w, GLFW_KEY_LEFT_SHIFT) == GLFW_PRESS || glfwGetKey(w, GLFW_KEY_RIGHT_SHIFT) == GLFW_PRESS;
    const bool other = glfwGetMouseButton(w, GLFW_MOUSE_BUTTON_MIDDLE) == GLFW_PRESS ||
                       glfwGetMouseButton(w, GLFW_MOUSE_BUTTON_RIGHT) == GLFW_PRESS;
    if (other || (left && shift)) s->input.panX += dx, s->input.panY += dy;
    else if (left) s->input.orbitX += dx, s->input.orbitY += dy;
  }
  s->lastX = x, s->lastY = y, s->havePointer = true;
}

void OnScroll(GLFWwindow* w, double, double dy) { StateOf(w)->input.zoom += dy; }

void OnKey(GLFWwindow* w, int key, int, int action, int) {
  if (action != GLFW_PRESS && action != GLFW_REPEAT) return;
  auto& keys = StateOf(w)->input.keys;
  switch (key) {
    case GLFW_KEY_F:
    case GLFW_KEY_HOME: keys.push_back(VIEWKEY::FRAME_ALL); break;
    case GLFW_KEY_RIGHT:
    case GLFW_KEY_PERIOD: keys.push_back(VIEWKEY::NEXT_FRAME); break;
    case GLFW_KEY_LEFT:
    case GLFW_KEY_COMMA: keys.push_back(VIEWKEY::PREVIOUS_FRAME); break;
    case GLFW_KEY_ESCAPE:
    case GLFW_KEY_Q: keys.push_back(VIEWKEY::QUIT); break;
    default: break;
  }
}

void OnResize(GLFWwindow* w, int, int) { StateOf(w)->input.resized = true; }

}  // namespace

Result<std::unique_ptr<ViewWindow>> ViewWindow::Create(Int32 width, Int32 height, const std::string& title) {
  glfwSetErrorCallback(nullptr);
  if (!glfwInit()) {
    const char* why = nullptr;
    glfwGetError(&why);
    return IllegalStateError(std::string("no display to open a window on") + (why ? ": " + std::string(why) : ""));
  }
  glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
  glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
  glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
  glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
  GLFWwindow* window = glfwCreateWindow(width, height, title.c_str(), nullptr, nullptr);
  if (!window) {
    const char* why = nullptr;
    glfwGetError(&why);
    glfwTerminate();
    return IllegalStateError(std::string("no OpenGL driver: cannot open an OpenGL 3.3 window") +
                             (why ? ": " + std::string(why) : ""));
  }
  std::unique_ptr<ViewWindow> view(new ViewWindow());
  view->state_ = std::make_unique<State>();
  view->state_->window = window;
  glfwSetWindowUserPointer(window, view->state_.get());
  glfwSetCursorPosCallback(window, OnCursor);
  glfwSetScrollCallback(window, OnScroll);
  glfwSetKeyCallback(window, OnKey);
  glfwSetFramebufferSizeCallback(window, OnResize);
  glfwMakeContextCurrent(window);
  glfwSwapInterval(1);
  return view;
}

ViewWindow::~ViewWindow() {
  if (state_ && state_->window) glfwDestroyWindow(state_->window);
  glfwTerminate();
}

bool ViewWindow::ShouldClose() const { return glfwWindowShouldClose(state_->window); }

ViewInput ViewWindow::Wait(double seconds) {
  glfwWaitEventsTimeout(seconds);
  ViewInput input = std::move(state_->input);
  state_->input = {};
  return input;
}

Int32 ViewWindow::GetWidth() const {
  int w = 0, h = 0;
  glfwGetFramebufferSize(state_->window, &w, &h);
  return w;
}

Int32 ViewWindow::GetHeight() const {
  int w = 0, h = 0;
  glfwGetFramebufferSize(state_->window, &w, &h);
  return h;
}

void ViewWindow::Show() { glfwSwapBuffers(state_->window); }

}  // namespace zta
