// Memory for frame images. A 12 MP frame is 18 MB: taken from the heap it
// arrives as untouched pages that fault in one by one when first written,
// and a vector clears it on top. On the machines the tool runs on (virtual
// ones above all) those faults cost more than the frame's copies, so large
// blocks are mapped whole, populated in one call and reused from frame to
// frame; and nothing clears memory that already arrives as zeros. Large
// blocks are shared memory files, as a camera host's buffers are, so that
// the simulated host takes a frame as its buffer without copying it (huge
// pages only where the system gives them to shared memory).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

namespace lumo {

// Zeroed, populated memory of at least `bytes`; frameFree with the same size.
void* frameAlloc(size_t bytes);
void frameFree(void* p, size_t bytes) noexcept;
// The shared memory file behind a block from frameAlloc (the block starts
// at its offset 0), or -1 for a small block from the heap. Valid until the
// block is freed.
int frameMemoryFd(const void* p);
// Gives the kept blocks back to the system. The kernel returns a block's
// pages in the unmap, a few milliseconds per 12 MP frame; left kept, that
// happens at the process's exit, after everything else. A session that
// has read and rendered its last frame calls this while its last writes
// run, so the cost overlaps them.
void frameMemoryTrim() noexcept;

// An allocator whose memory arrives zeroed and whose elements are left as
// they are by resize() and the like (default-initialised), so that a fresh
// image is not cleared twice and a buffer about to be overwritten is not
// cleared at all.
template <class T>
struct FrameAllocator {
  using value_type = T;
  FrameAllocator() = default;
  template <class U>
  FrameAllocator(const FrameAllocator<U>&) noexcept {}

  T* allocate(size_t n) {
    if (n > SIZE_MAX / sizeof(T)) throw std::bad_alloc();
    return static_cast<T*>(frameAlloc(n * sizeof(T)));
  }
  void deallocate(T* p, size_t n) noexcept { frameFree(p, n * sizeof(T)); }

  template <class U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }

  template <class U>
  bool operator==(const FrameAllocator<U>&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(const FrameAllocator<U>&) const noexcept {
    return false;
  }
};

// A frame's bytes. resize() on a fresh one gives zeros without writing them;
// on one that already held bytes the new tail is left undefined. Copies go
// through memcpy: with an allocator of its own a vector copies element by
// element, a byte at a time.
class FrameBytes : public std::vector<uint8_t, FrameAllocator<uint8_t>> {
  using Base = std::vector<uint8_t, FrameAllocator<uint8_t>>;

public:
  using Base::Base;
  FrameBytes() = default;
  FrameBytes(const FrameBytes& other) : Base() { copyFrom(other); }
  FrameBytes(FrameBytes&&) noexcept = default;
  FrameBytes& operator=(const FrameBytes& other) {
    if (this != &other) copyFrom(other);
    return *this;
  }
  FrameBytes& operator=(FrameBytes&&) noexcept = default;
  ~FrameBytes() = default;

  // `size` bytes left as they are: a reused block keeps an earlier frame's
  // contents. Only for a buffer its writer fills whole.
  static FrameBytes forOverwrite(size_t size);

private:
  void copyFrom(const FrameBytes& other) {
    Base::resize(other.size());
    if (!other.empty()) std::memcpy(data(), other.data(), other.size());
  }
};

}  // namespace lumo
