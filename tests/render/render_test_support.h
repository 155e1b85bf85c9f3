// Test images, lattices and guarded buffers shared by the renderer tests
// and benchmarks.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "effect_chain.h"
#include "frame_view.h"

namespace lumo::render::testing {

// Memory whose last byte sits right before an inaccessible page, so that a
// read or write past the end faults.
class GuardedBuffer {
public:
  explicit GuardedBuffer(size_t size) : m_size(size) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    m_mapped = ((size + page - 1) / page + 1) * page;
    m_base = static_cast<uint8_t*>(
        mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(m_base + m_mapped - page, page, PROT_NONE);
    m_data = m_base + m_mapped - page - size;
  }
  ~GuardedBuffer() { munmap(m_base, m_mapped); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  uint8_t* data() const { return m_data; }
  size_t size() const { return m_size; }

private:
  size_t m_size, m_mapped;
  uint8_t* m_base;
  uint8_t* m_data;
};

// One image in guarded memory: the luma (or RGBA) plane and the chroma plane
// each end at a guard page; rows carry `rowPadding` bytes after the pixels.
class TestImage {
public:
  TestImage(FrameLayout layout, uint32_t width, uint32_t height, size_t rowPadding = 0)
      : m_view{layout, width, height} {
    const size_t pixelBytes = layout == FrameLayout::RGBA ? 4 : 1;
    m_view.lumaStride = width * pixelBytes + rowPadding;
    m_luma = std::make_unique<GuardedBuffer>(m_view.lumaStride * (height - 1) + width * pixelBytes);
    m_view.luma = m_luma->data();
    if (isYuv(layout)) {
      const size_t chromaRow = 2 * size_t((width + 1) / 2);
      m_view.chromaStride = chromaRow + rowPadding;
      m_chroma =
          std::make_unique<GuardedBuffer>(m_view.chromaStride * ((height + 1) / 2 - 1) + chromaRow);
      m_view.chroma = m_chroma->data();
    }
  }
  const FrameView& view() const { return m_view; }
  std::vector<GuardedBuffer*> buffers() const {
    if (!m_chroma) return {m_luma.get()};
    return {m_luma.get(), m_chroma.get()};
  }
  // Every byte, padding included: random, or the same as `other`'s.
  void fill(std::mt19937& rng) {
    for (GuardedBuffer* b : buffers()) std::generate_n(b->data(), b->size(), std::ref(rng));
  }
  void copyFrom(const TestImage& other) {
    for (size_t i = 0; i < buffers().size(); ++i)
      std::memcpy(buffers()[i]->data(), other.buffers()[i]->data(), buffers()[i]->size());
  }
  // The luma sample or RGBA pixel at (x, y), and the chroma pair of block (bx, by).
  uint8_t* at(uint32_t x, uint32_t y) const {
    return m_view.luma + y * m_view.lumaStride + (isYuv(m_view.layout) ? 1 : 4) * size_t(x);
  }
  uint8_t* chromaAt(uint32_t bx, uint32_t by) const {
    return m_view.chroma + by * m_view.chromaStride + 2 * size_t(bx);
  }

private:
  FrameView m_view;
  std::unique_ptr<GuardedBuffer> m_luma, m_chroma;
};

// Lattice whose point (i, j, k) holds f(level(i), level(j), level(k)), where
// level(n) is the input code value of lattice step n.
template <typename F>
LutLattice makeLattice(F f) {
  LutLattice lattice{};
  for (int b = 0; b < kLutSize; ++b)
    for (int g = 0; g < kLutSize; ++g)
      for (int r = 0; r < kLutSize; ++r) {
        const double step = 255.0 / (kLutSize - 1);
        const auto out = f(r * step, g * step, b * step);
        uint8_t* p = &lattice[3 * size_t(r + kLutSize * (g + kLutSize * b))];
        for (int ch = 0; ch < 3; ++ch)
          p[ch] = uint8_t(std::lround(std::min(255.0, std::max(0.0, out[ch]))));
      }
  return lattice;
}

inline LutLattice identityLattice() {
  return makeLattice([](double r, double g, double b) { return std::array<double, 3>{r, g, b}; });
}

inline LutLattice randomLattice(std::mt19937& rng) {
  LutLattice lattice{};
  for (uint8_t& v : lattice) v = uint8_t(rng());
  return lattice;
}

inline EffectChain lutChain(const LutLattice& lattice, double strength = 1.0) {
  EffectChain chain;
  chain.order.push_back(EffectKind::Lut);
  chain.luts.push_back(LutEffect{strength, true, lattice});
  return chain;
}

inline void addStyle(EffectChain& chain, const StyleEffect& style) {
  chain.order.push_back(EffectKind::Style);
  chain.styles.push_back(style);
}

// An output sample as the model writes it: rounded half up, clamped once.
inline uint8_t roundHalfUp(double v) {
  return uint8_t(std::clamp(std::floor(v + 0.5), 0.0, 255.0));
}

}  // namespace lumo::render::testing
