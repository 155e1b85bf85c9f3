// Bytes the process has allocated and not freed, from the allocator that is
// actually in use (the sanitizer's under AddressSanitizer and ThreadSanitizer,
// glibc's otherwise),
// so that repeated-cycle tests can bound growth in every build.
#pragma once

#include <cstddef>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)  // GCC
#define LUMO_TEST_SANITIZER_HEAP 1
#elif defined(__has_feature)  // clang
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LUMO_TEST_SANITIZER_HEAP 1
#endif
#endif

#ifdef LUMO_TEST_SANITIZER_HEAP
// From the sanitizer runtime; GCC ships no header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

namespace lumotest {

inline size_t heapInUse() {
#ifdef LUMO_TEST_SANITIZER_HEAP
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

// Cycles a repeated-cycle test runs: LUMO_SOAK_CYCLES overrides `fallback`
// for a long run.
inline int soakCycles(int fallback) {
  const char* text = std::getenv("LUMO_SOAK_CYCLES");
  return text != nullptr && std::atoi(text) > 0 ? std::atoi(text) : fallback;
}

}  // namespace lumotest
