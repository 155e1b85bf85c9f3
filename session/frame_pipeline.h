// Overlapping the work around the plugin: while the host hands frame n to
// the plugin, frames n+1... are read and converted and the outputs of frames
// n-1... are encoded and written, each on its own thread. The plugin itself
// still sees every frame in session order, one call at a time, on the
// calling thread; errors surface at the frame they belong to.
#pragma once

#include <hostsim/image_buffer.h>

#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "frame_source.h"

namespace lumo {

// Frames read ahead of the one being processed. With `ahead` 0 every frame
// is read when asked for, on the calling thread.
class FramePrefetch {
public:
  FramePrefetch(const std::vector<SessionFrame>& frames, std::string baseDir, size_t ahead);
  // Frame i's image (frames must be asked for in order); rethrows its
  // reading error.
  FrameImage get(size_t i);

private:
  const std::vector<SessionFrame>& m_frames;
  std::string m_baseDir;
  size_t m_ahead;
  size_t m_next = 0;  // first frame not yet started
  std::deque<std::future<FrameImage>> m_pending;
};

// Writes done behind the frame loop, at most `inFlight` at a time (0: each
// runs at once on the calling thread). A failed write is rethrown by the
// next submit or by drain.
class BackgroundWrites {
public:
  explicit BackgroundWrites(size_t inFlight) : m_inFlight(inFlight) {}
  ~BackgroundWrites();
  void submit(std::function<void()> write);
  void drain();

private:
  size_t m_inFlight;
  std::deque<std::future<void>> m_pending;
};

// Host buffers for frames too small to live in frame memory of their own
// (those are lent to the host as they are), kept for reuse across frames of
// the same geometry. A reused buffer is cleared, so the plugin meets exactly
// what a new one would hold.
class BufferPool {
public:
  using Key = std::tuple<int, uint32_t, uint32_t, uint32_t, uint32_t>;
  std::unique_ptr<hostsim::ImageBuffer> take(const Geometry& geometry, std::string* error);
  void give(std::unique_ptr<hostsim::ImageBuffer> buffer);

private:
  static constexpr size_t kKeepPerGeometry = 4;
  std::map<Key, std::vector<std::unique_ptr<hostsim::ImageBuffer>>> m_free;
};

}  // namespace lumo
