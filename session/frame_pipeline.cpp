// Read-ahead, write-behind and buffer reuse around the frame loop.
#include "frame_pipeline.h"

#include <cstring>
#include <utility>

namespace lumo {

FramePrefetch::FramePrefetch(const std::vector<SessionFrame>& frames, std::string baseDir,
                             size_t ahead)
    : m_frames(frames), m_baseDir(std::move(baseDir)), m_ahead(ahead) {}

FrameImage FramePrefetch::get(size_t i) {
  if (m_ahead == 0) return loadFrameImage(m_frames[i], m_baseDir);
  // Frame i and the `ahead` after it are under way; the oldest is frame i.
  while (m_next < m_frames.size() && m_next <= i + m_ahead) {
    m_pending.push_back(std::async(
        std::launch::async, [this, k = m_next] { return loadFrameImage(m_frames[k], m_baseDir); }));
    ++m_next;
  }
  std::future<FrameImage> next = std::move(m_pending.front());
  m_pending.pop_front();
  return next.get();
}

BackgroundWrites::~BackgroundWrites() {
  // Waits for writes still running (their errors no longer matter: the
  // session is being abandoned) so nothing writes into a removed folder.
  for (auto& f : m_pending)
    if (f.valid()) f.wait();
}

void BackgroundWrites::submit(std::function<void()> write) {
  if (m_inFlight == 0) {
    write();
    return;
  }
  while (m_pending.size() >= m_inFlight) {
    std::future<void> oldest = std::move(m_pending.front());
    m_pending.pop_front();
    oldest.get();
  }
  m_pending.push_back(std::async(std::launch::async, std::move(write)));
}

void BackgroundWrites::drain() {
  while (!m_pending.empty()) {
    std::future<void> oldest = std::move(m_pending.front());
    m_pending.pop_front();
    oldest.get();
  }
}

std::unique_ptr<hostsim::ImageBuffer> BufferPool::take(const Geometry& g, std::string* error) {
  auto& free = m_free[Key{int(g.format), g.width, g.height, g.stride, g.scanline}];
  if (free.empty()) return hostsim::ImageBuffer::allocate(g, error);
  std::unique_ptr<hostsim::ImageBuffer> buffer = std::move(free.back());
  free.pop_back();
  std::memset(buffer->data(), 0, buffer->size());
  return buffer;
}

void BufferPool::give(std::unique_ptr<hostsim::ImageBuffer> buffer) {
  if (!buffer) return;
  const Geometry& g = buffer->geometry();
  auto& free = m_free[Key{int(g.format), g.width, g.height, g.stride, g.scanline}];
  if (free.size() < kKeepPerGeometry) free.push_back(std::move(buffer));
}

}  // namespace lumo
