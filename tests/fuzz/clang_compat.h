// Force-included into the fuzzing build. Debian's clang 14 lacks the builtin
// that GCC 12's <source_location> needs, so that header declares nothing
// there; this supplies the same type from the builtins clang has. Its layout
// is GCC's (one pointer to file, function, line, column), so objects of the
// two compilers can share a call that takes one, as when a fuzz target links
// clang's objects of some module sources with GCC's of the rest.
#pragma once
#include <version>

#if defined(__clang__) && !defined(__cpp_lib_source_location)
#include <cstring>
#include <mutex>
#include <set>

namespace std {
struct source_location {
 private:
  struct __impl {
    const char* _M_file_name;
    const char* _M_function_name;
    unsigned _M_line;
    unsigned _M_column;
    bool operator<(const __impl& o) const {
      if (_M_line != o._M_line) return _M_line < o._M_line;
      if (const int c = strcmp(_M_file_name, o._M_file_name)) return c < 0;
      return strcmp(_M_function_name, o._M_function_name) < 0;
    }
  };
  // One record per place, kept for the life of the process as GCC's static ones are.
  static const __impl* __intern(const char* file, const char* function, unsigned line) {
    static std::mutex lock;
    static std::set<__impl> places;
    const std::lock_guard<std::mutex> hold(lock);
    return &*places.insert(__impl{file, function, line, 0}).first;
  }

 public:
  static source_location current(const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
                                 unsigned line = __builtin_LINE()) noexcept {
    source_location s;
    s._M_impl = __intern(file, function, line);
    return s;
  }
  constexpr source_location() noexcept {}
  constexpr const char* file_name() const noexcept { return _M_impl ? _M_impl->_M_file_name : ""; }
  constexpr const char* function_name() const noexcept { return _M_impl ? _M_impl->_M_function_name : ""; }
  constexpr unsigned line() const noexcept { return _M_impl ? _M_impl->_M_line : 0u; }
  constexpr unsigned column() const noexcept { return 0; }

 private:
  const __impl* _M_impl = nullptr;
};
}  // namespace std
#endif
