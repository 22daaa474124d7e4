#pragma once
// GL contexts that a BaseDraw draws into: an offscreen picture through EGL,
// which needs no display (Mesa's software renderer serves a machine without
// a graphics device). No GL header here.
#include <memory>

#include "host/core/result.h"
#include "host/core/types.h"

namespace zta {

class OffscreenContext {
 public:
  // A current GL 3.3 core context drawing into a picture of the given size.
  // An error in words when the machine has no usable GL driver.
  static Result<std::unique_ptr<OffscreenContext>> Create(Int32 width, Int32 height);
  ~OffscreenContext();
  OffscreenContext(const OffscreenContext&) = delete;
  OffscreenContext& operator=(const OffscreenContext&) = delete;

 private:
  OffscreenContext() = default;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zta
