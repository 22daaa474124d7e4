// Force-included into the fuzzing build. Debian's clang 14 lacks the builtin
// that GCC 12's <source_location> needs, so that header declares nothing
// there; this supplies the same type from the builtins clang has.
#pragma once
#include <version>

#if defined(__clang__) && !defined(__cpp_lib_source_location)
namespace std {
struct source_location {
  static constexpr source_location current(const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
                                           unsigned line = __builtin_LINE()) noexcept {
    source_location s;
    s.file_ = file;
    s.function_ = function;
    s.line_ = line;
    return s;
  }
  constexpr const char* file_name() const noexcept { return file_; }
  constexpr const char* function_name() const noexcept { return function_; }
  constexpr unsigned line() const noexcept { return line_; }
  constexpr unsigned column() const noexcept { return 0; }

 private:
  const char* file_ = "";
  const char* function_ = "";
  unsigned line_ = 0;
};
}  // namespace std
#endif
