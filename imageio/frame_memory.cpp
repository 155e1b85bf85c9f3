// Frame memory from the kernel in whole mappings for large blocks, with the
// last few freed blocks kept for the next frames.
#include "frame_memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace lumo {
namespace {

// Below this a block comes from the heap: its pages are few and often reused.
constexpr size_t kMappedFrom = size_t{1} << 20;
constexpr size_t kHugePage = size_t{2} << 20;
// A session decodes, renders and encodes frames of one size over and over;
// fresh pages for each frame cost the kernel a clearing pass and, on
// virtual machines that hand memory back to their host, a fault per page
// on top. A few freed blocks are therefore kept and handed out again:
// enough for the frames in flight of a pipelined session (read ahead,
// rendering, written behind), bounded so that a long session's memory
// stays flat.
constexpr size_t kKeptBlocks = 6;
constexpr size_t kKeptBytes = size_t{256} << 20;

size_t mappedBytes(size_t bytes) { return (bytes + kHugePage - 1) & ~(kHugePage - 1); }

struct Block {
  void* p;
  size_t size;
};

struct KeptBlocks {
  std::mutex mutex;
  std::vector<Block> blocks;

  void* take(size_t size) {
    std::lock_guard<std::mutex> lock(mutex);
    for (auto it = blocks.begin(); it != blocks.end(); ++it)
      if (it->size == size) {
        void* p = it->p;
        blocks.erase(it);
        return p;
      }
    return nullptr;
  }
  bool keep(void* p, size_t size) {
    std::lock_guard<std::mutex> lock(mutex);
    size_t bytes = size;
    for (const Block& b : blocks) bytes += b.size;
    if (blocks.size() == kKeptBlocks || bytes > kKeptBytes) return false;
    blocks.push_back({p, size});
    return true;
  }
};

// Never destroyed: blocks may be freed by threads still running at exit.
KeptBlocks& kept() {
  static KeptBlocks* blocks = new KeptBlocks;
  return *blocks;
}

void* mapBlock(size_t size) {
  // Mapped one huge page larger than needed and trimmed, so that the block
  // starts on a huge-page boundary and every stretch of it can be one.
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

}  // namespace

void* frameAlloc(size_t bytes) {
  if (bytes < kMappedFrom) {
    // Cleared here rather than by calloc: calloc's fresh-top shortcut leaves
    // the heap's layout drifting over a long session of small frames.
    if (void* p = std::malloc(bytes ? bytes : 1)) return std::memset(p, 0, bytes);
    throw std::bad_alloc();
  }
  const size_t size = mappedBytes(bytes);
  // A kept block holds an earlier frame: clearing its warm pages is far
  // cheaper than the kernel clearing fresh ones.
  if (void* p = kept().take(size)) return std::memset(p, 0, size);
  return mapBlock(size);
}

void frameFree(void* p, size_t bytes) noexcept {
  if (p == nullptr) return;
  if (bytes < kMappedFrom) {
    std::free(p);
    return;
  }
  const size_t size = mappedBytes(bytes);
  if (!kept().keep(p, size)) munmap(p, size);
}

}  // namespace lumo
