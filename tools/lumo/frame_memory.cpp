// Frame memory from the kernel in whole mappings for large blocks.
#include "frame_memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace lumo {
namespace {

// Below this a block comes from the heap: its pages are few and often reused.
constexpr size_t kMappedFrom = size_t{1} << 20;
constexpr size_t kHugePage = size_t{2} << 20;

size_t mappedBytes(size_t bytes) { return (bytes + kHugePage - 1) & ~(kHugePage - 1); }

}  // namespace

void* frameAlloc(size_t bytes) {
  if (bytes < kMappedFrom) {
    // Cleared here rather than by calloc: calloc's fresh-top shortcut leaves
    // the heap's layout drifting over a long session of small frames.
    if (void* p = std::malloc(bytes ? bytes : 1)) return std::memset(p, 0, bytes);
    throw std::bad_alloc();
  }
  // Mapped one huge page larger than needed and trimmed, so that the block
  // starts on a huge-page boundary and every stretch of it can be one.
  const size_t size = mappedBytes(bytes);
  void* raw =
      mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) throw std::bad_alloc();
  const uintptr_t begin = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t aligned = (begin + kHugePage - 1) & ~uintptr_t(kHugePage - 1);
  if (aligned > begin) munmap(raw, aligned - begin);
  if (const size_t tail = begin + kHugePage - aligned; tail > 0)
    munmap(reinterpret_cast<void*>(aligned + size), tail);
  void* p = reinterpret_cast<void*>(aligned);
  // Both are advice: without huge pages or the populate call (kernels
  // before 5.14) the pages fault in as usual.
  madvise(p, size, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
  madvise(p, size, MADV_POPULATE_WRITE);
#endif
  return p;
}

void frameFree(void* p, size_t bytes) noexcept {
  if (p == nullptr) return;
  if (bytes < kMappedFrom)
    std::free(p);
  else
    munmap(p, mappedBytes(bytes));
}

}  // namespace lumo
