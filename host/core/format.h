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

// The text with line breaks and other control characters written as
// escapes, so that an error quoting a file's names or bytes stays one line.
inline std::string OneLine(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '\n') out += "\\n";
    else if (c == '\t') out += "\\t";
    else if (c == '\r') out += "\\r";
    else if (u < 0x20 || u == 0x7f) {
      const char* hex = "0123456789abcdef";
      out += "\\x";
      out += hex[u >> 4];
      out += hex[u & 15];
    } else out += c;
  }
  return out;
}

}  // namespace zta
