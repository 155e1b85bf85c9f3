// Frame memory from the kernel in whole mappings for large blocks, with the
// last few freed blocks kept for the next frames. Large blocks are shared
// memory files, so that the simulated camera host can hand a frame to the
// plugin as a buffer of its own without copying it.
#include "frame_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

namespace lumo {
namespace {

// Below this a block comes from the heap: its pages are few and often reused.
constexpr size_t kMappedFrom = size_t{1} << 20;
constexpr size_t kPage = size_t{4} << 10;
// A session decodes, renders and encodes frames of one size over and over;
// fresh pages for each frame cost the kernel a clearing pass and, on
// virtual machines that hand memory back to their host, a fault per page
// on top. A few freed blocks are therefore kept and handed out again:
// enough for the frames in flight of a pipelined session (read ahead,
// rendering, written behind), bounded so that a long session's memory
// stays flat.
constexpr size_t kKeptBlocks = 6;
constexpr size_t kKeptBytes = size_t{256} << 20;

size_t mappedBytes(size_t bytes) { return (bytes + kPage - 1) & ~(kPage - 1); }

struct Block {
  void* p;
  size_t size;
  int fd;
};

// The mapped blocks handed out (by address, for frameMemoryFd) and the
// freed ones kept for reuse.
struct Blocks {
  std::mutex mutex;
  std::map<const void*, Block> live;
  std::vector<Block> kept;

  void* take(size_t size) {
    std::lock_guard<std::mutex> lock(mutex);
    for (auto it = kept.begin(); it != kept.end(); ++it)
      if (it->size == size) {
        const Block b = *it;
        kept.erase(it);
        live[b.p] = b;
        return b.p;
      }
    return nullptr;
  }
  void add(const Block& b) {
    std::lock_guard<std::mutex> lock(mutex);
    live[b.p] = b;
  }
  // The block behind `p`, kept for reuse when there is room (true).
  bool release(void* p, Block& block) {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = live.find(p);
    if (it == live.end()) return false;
    block = it->second;
    live.erase(it);
    size_t bytes = block.size;
    for (const Block& b : kept) bytes += b.size;
    if (kept.size() == kKeptBlocks || bytes > kKeptBytes) return false;
    kept.push_back(block);
    return true;
  }
  int fdOf(const void* p) {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = live.find(p);
    return it == live.end() ? -1 : it->second.fd;
  }
};

// Never destroyed: blocks may be freed by threads still running at exit.
Blocks& blocks() {
  static Blocks* b = new Blocks;
  return *b;
}

Block mapBlock(size_t size) {
  const int fd = memfd_create("lumo-frame", MFD_CLOEXEC);
  if (fd < 0) throw std::bad_alloc();
  if (ftruncate(fd, off_t(size)) != 0) {
    close(fd);
    throw std::bad_alloc();
  }
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) {
    close(fd);
    throw std::bad_alloc();
  }
  // Advice only: huge pages where the system gives them to shared memory,
  // and the pages populated for writing in one call rather than faulted in
  // one by one (kernels before 5.14 fault them in as usual).
  madvise(p, size, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
  madvise(p, size, MADV_POPULATE_WRITE);
#endif
  return {p, size, fd};
}

void unmapBlock(const Block& b) {
  munmap(b.p, b.size);
  close(b.fd);
}

// Set while FrameBytes::forOverwrite allocates on this thread.
thread_local bool t_forOverwrite = false;

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
  if (void* p = blocks().take(size)) return t_forOverwrite ? p : std::memset(p, 0, size);
  const Block b = mapBlock(size);
  blocks().add(b);
  return b.p;
}

void frameFree(void* p, size_t bytes) noexcept {
  if (p == nullptr) return;
  if (bytes < kMappedFrom) {
    std::free(p);
    return;
  }
  Block b{};
  if (blocks().release(p, b) || b.p == nullptr) return;
  unmapBlock(b);
}

FrameBytes FrameBytes::forOverwrite(size_t size) {
  struct Scope {
    Scope() { t_forOverwrite = true; }
    ~Scope() { t_forOverwrite = false; }
  };
  FrameBytes bytes;
  {
    const Scope scope;
    bytes.resize(size);
  }
  return bytes;
}

void frameMemoryTrim() noexcept {
  std::vector<Block> kept;
  {
    std::lock_guard<std::mutex> lock(blocks().mutex);
    kept.swap(blocks().kept);
  }
  for (const Block& b : kept) unmapBlock(b);
}

int frameMemoryFd(const void* p) { return p == nullptr ? -1 : blocks().fdOf(p); }

}  // namespace lumo
