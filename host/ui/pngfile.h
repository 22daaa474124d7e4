#pragma once
// PNG pictures, RGBA with 8 bits a channel, top row first.
#include <cstdint>
#include <string>
#include <vector>

#include "host/core/result.h"
#include "host/core/types.h"

namespace zta {

struct Picture {
  Int32 width = 0;
  Int32 height = 0;
  std::vector<uint8_t> rgba;
  const uint8_t* At(Int32 x, Int32 y) const { return rgba.data() + (size_t(y) * size_t(width) + size_t(x)) * 4; }
};

// Writes the file whole or not at all: a failure leaves no file.
Result<void> WritePng(const std::string& path, const Picture& picture);
Result<Picture> ReadPng(const std::string& path);

}  // namespace zta
