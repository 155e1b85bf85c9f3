// Frame rendering: path choice, row bands, the thread pool.
#include "frame_renderer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "chain_plan.h"
#include "fused_kernels.h"
#include "reference_renderer.h"

namespace lumo::render {

RenderOptions renderOptionsFromEnvironment() {
  RenderOptions options;
  const char* reference = std::getenv("LUMO_RENDER_REFERENCE");
  if (reference != nullptr && std::strcmp(reference, "1") == 0)
    options.path = RenderPath::Reference;
  const unsigned hardware = std::max(1u, std::thread::hardware_concurrency());
  options.threads = std::min(8u, hardware);
  const char* fixedPoint = std::getenv("LUMO_RENDER_FIXED_POINT");
  if (fixedPoint != nullptr && std::strcmp(fixedPoint, "0") == 0) options.fixedPoint = false;
  if (const char* threads = std::getenv("LUMO_RENDER_THREADS")) {
    const long n = std::strtol(threads, nullptr, 10);
    if (n >= 1 && n <= 64) options.threads = size_t(n);
  }
  return options;
}

FrameRenderer::FrameRenderer(RenderOptions options)
    : m_options(options),
      m_pool(std::make_unique<ThreadPool>(std::max<size_t>(1, options.threads))) {}

void FrameRenderer::setChain(EffectChain chain) {
  m_chain = std::move(chain);
  m_tables = {};
  m_fixedTables = {};
  if (!m_chain.luts.empty() && m_chain.luts[0].hasLattice) rebuildTables(m_chain.luts[0].lattice);
}

void FrameRenderer::rebuildTables(const LutLattice& lattice) {
  m_tables = buildFusedTables(lattice);
  m_fixedTables = buildFixedPointTables(lattice);
}

void FrameRenderer::setLattice(size_t lutIndex, const uint8_t* bytes) {
  if (lutIndex >= m_chain.luts.size()) return;
  LutEffect& lut = m_chain.luts[lutIndex];
  std::memcpy(lut.lattice.data(), bytes, kLutBytes);
  lut.hasLattice = true;
  if (lutIndex == 0) rebuildTables(lut.lattice);
}

void copyFrame(const FrameView& in, const FrameView& out) {
  const size_t rowBytes = in.layout == FrameLayout::RGBA ? 4 * size_t(in.width) : in.width;
  for (uint32_t y = 0; y < in.height; ++y)
    std::memmove(out.luma + y * out.lumaStride, in.luma + y * in.lumaStride, rowBytes);
  if (!isYuv(in.layout)) return;
  const uint32_t chromaRows = (in.height + 1) / 2;
  const size_t chromaBytes = 2 * size_t((in.width + 1) / 2);
  const bool swap = in.layout != out.layout;
  for (uint32_t y = 0; y < chromaRows; ++y) {
    const uint8_t* src = in.chroma + y * in.chromaStride;
    uint8_t* dst = out.chroma + y * out.chromaStride;
    if (!swap) {
      std::memmove(dst, src, chromaBytes);
      continue;
    }
    for (size_t x = 0; x < chromaBytes; x += 2) {
      const uint8_t first = src[x], second = src[x + 1];
      dst[x] = second;
      dst[x + 1] = first;
    }
  }
}

std::string FrameRenderer::render(const FrameView& in, const FrameView& out) {
  if (std::string why = checkFrameView(in); !why.empty()) return "input: " + why;
  if (std::string why = checkFrameView(out); !why.empty()) return "output: " + why;
  if (in.width != out.width || in.height != out.height) return "input and output sizes differ";
  if (isYuv(in.layout) != isYuv(out.layout)) return "input and output colour families differ";
  if (m_chain.empty()) {
    if (in.luma != out.luma || in.chroma != out.chroma || in.layout != out.layout)
      copyFrame(in, out);
    return {};
  }

  const ChainPlan plan(m_chain, in.width, in.height);
  const bool fused = m_options.path == RenderPath::Fused && fusedKernelsSupport(m_chain);
  m_lastPath = fused ? RenderPath::Fused : RenderPath::Reference;
  const FusedParams params = fused ? makeFusedParams(plan, m_tables) : FusedParams{};
  const FixedPointParams fixed = fused && m_options.fixedPoint
                                     ? makeFixedPointParams(params, m_chain, m_fixedTables)
                                     : FixedPointParams{};

  m_lastFixedPoint = fixed.usable && isYuv(in.layout) && fixedPointKernelPresent();

  // Bands of whole row pairs, a few per thread so a slow thread does not
  // hold the others up; small frames stay on fewer threads.
  constexpr uint32_t kMinBandRows = 16;
  // Mirrored: bands over the top half's row pairs, each also rendering the
  // mirror images of its pairs.
  const bool mirrored = mirroredRowsPay(fixed, in);
  const uint32_t rowPairs = mirrored ? (in.height / 2 + 1) / 2 : (in.height + 1) / 2;
  const uint32_t bandHeight = mirrored ? 2 * rowPairs : in.height;
  const size_t wanted = m_pool->threads() == 1 ? 1 : 4 * m_pool->threads();
  const uint32_t bands =
      uint32_t(std::clamp<size_t>(rowPairs * 2 / kMinBandRows, 1, std::max<size_t>(1, wanted)));
  const uint32_t pairsPerBand = (rowPairs + bands - 1) / bands;
  m_pool->run(bands, [&](size_t band) {
    const uint32_t begin = std::min(bandHeight, uint32_t(band) * pairsPerBand * 2);
    const uint32_t end = std::min(bandHeight, begin + pairsPerBand * 2);
    if (begin >= end) return;
    if (fused) {
      renderFusedRows(params, fixed, plan, in, out, begin, end, mirrored);
    } else {
      renderReferenceRows(plan, in, out, begin, end);
    }
  });
  return {};
}

}  // namespace lumo::render
