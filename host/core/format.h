#pragma once
// The host's "@" formatting: each "@" in the pattern takes the next argument.
#include <sstream>
#include <string>
#include <string_view>

namespace zta {

namespace detail {
inline void FormatInto(std::ostringstream& out, std::string_view pattern) { out << pattern; }

template <typename A, typename... Rest>
void FormatInto(std::ostringstream& out, std::string_view pattern, const A& a, const Rest&... rest) {
  const auto at = pattern.find('@');
  if (at == std::string_view::npos) {
    out << pattern;
    return;
  }
  out << pattern.substr(0, at) << a;
  FormatInto(out, pattern.substr(at + 1), rest...);
}
}  // namespace detail

template <typename... Args>
std::string FormatString(std::string_view pattern, const Args&... args) {
  std::ostringstream out;
  out.precision(15);
  detail::FormatInto(out, pattern, args...);
  return out.str();
}

}  // namespace zta
