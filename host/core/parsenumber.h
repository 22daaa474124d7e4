#pragma once
// Numbers in text files read by the host (point rows, PLY).
#include <charconv>
#include <string_view>

namespace zta {

// A whole word as a number ("1.5", "+2", "-3e4", "nan"); false for anything else.
inline bool ParseNumber(std::string_view s, double* out) {
  const char* b = s.data();
  const char* e = b + s.size();
  if (b != e && *b == '+') ++b;
  auto r = std::from_chars(b, e, *out);
  return r.ec == std::errc() && r.ptr == e && b != e;
}

}  // namespace zta
