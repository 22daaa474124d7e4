// Outside the address sanitizer a request for more memory than the machine
// could ever map fails with std::bad_alloc, which the readers turn into an
// error line. The sanitizer's operator new aborts on any request above 1 TiB
// instead, so a file that states such a size would end the run at a line
// that never crashes for users. A target that includes this (once per
// program) gets the system's behaviour back for those requests; smaller
// ones go to the sanitizer's allocator as before.
#pragma once
#include <cstddef>
#include <cstdlib>
#include <new>

namespace zvfuzz {
constexpr std::size_t kLargestRequest = std::size_t(1) << 40;

inline void* TryAllocate(std::size_t n) noexcept { return n <= kLargestRequest ? std::malloc(n ? n : 1) : nullptr; }

inline void* Allocate(std::size_t n) {
  void* p = TryAllocate(n);
  if (!p) throw std::bad_alloc();
  return p;
}
}  // namespace zvfuzz

void* operator new(std::size_t n) { return zvfuzz::Allocate(n); }
void* operator new[](std::size_t n) { return zvfuzz::Allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return zvfuzz::TryAllocate(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return zvfuzz::TryAllocate(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
