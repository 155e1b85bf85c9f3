// An effect chain bound to one frame's geometry, and the per-pixel and
// per-block rendering it implies, written once for any arithmetic type.
#pragma once

#include <cstdint>
#include <vector>

#include "color_math.h"
#include "effect_chain.h"
#include "frame_view.h"

namespace lumo::render {

struct ChainPlan {
  const EffectChain* chain = nullptr;
  std::vector<RadialGeometry> geometry;  // one per style effect

  ChainPlan(const EffectChain& c, uint32_t width, uint32_t height) : chain(&c) {
    for (const StyleEffect& s : c.styles)
      geometry.push_back(RadialGeometry::make(s, width, height));
  }
};

template <typename T>
inline Rgb<T> applyChain(const ChainPlan& plan, uint32_t x, uint32_t y, Rgb<T> c) {
  size_t lut = 0, style = 0;
  for (EffectKind kind : plan.chain->order) {
    if (kind == EffectKind::Lut) {
      c = applyLut(plan.chain->luts[lut++], c);
    } else {
      const RadialGeometry& g = plan.geometry[style];
      const T dx = T(g.ax) * T(x) + T(g.bx), dy = T(g.ay) * T(y) + T(g.by);
      c = applyStyle(plan.chain->styles[style++], std::sqrt(dx * dx + dy * dy), c);
    }
  }
  return c;
}

// Byte offsets of Cb and Cr inside a chroma pair.
inline int cbOffset(FrameLayout layout) { return layout == FrameLayout::NV21 ? 1 : 0; }
inline int crOffset(FrameLayout layout) { return layout == FrameLayout::NV21 ? 0 : 1; }

// Renders the 2x2 block (bx, by) of a 4:2:0 frame (fewer pixels at odd
// edges). All inputs are read before anything is written, so `in` and `out`
// may be the same frame.
template <typename T>
inline void renderYuvBlock(const ChainPlan& plan, const FrameView& in, const FrameView& out,
                           uint32_t bx, uint32_t by) {
  const uint32_t x0 = 2 * bx, y0 = 2 * by;
  const uint32_t nx = std::min<uint32_t>(2, in.width - x0),
                 ny = std::min<uint32_t>(2, in.height - y0);
  const uint8_t* pair = in.chroma + by * in.chromaStride + 2 * bx;
  const T cb = T(pair[cbOffset(in.layout)]), cr = T(pair[crOffset(in.layout)]);
  T luma[2][2] = {};
  for (uint32_t j = 0; j < ny; ++j)
    for (uint32_t i = 0; i < nx; ++i) luma[j][i] = T(in.luma[(y0 + j) * in.lumaStride + x0 + i]);
  T sumCb = 0, sumCr = 0;
  for (uint32_t j = 0; j < ny; ++j) {
    for (uint32_t i = 0; i < nx; ++i) {
      const Rgb<T> c = applyChain(plan, x0 + i, y0 + j, yuvToRgb(luma[j][i], cb, cr));
      out.luma[(y0 + j) * out.lumaStride + x0 + i] = toByte(lumaOf(c));
      sumCb += cbOf(c);
      sumCr += crOf(c);
    }
  }
  const T count = T(nx * ny);
  uint8_t* outPair = out.chroma + by * out.chromaStride + 2 * bx;
  outPair[cbOffset(out.layout)] = toByte(sumCb / count);
  outPair[crOffset(out.layout)] = toByte(sumCr / count);
}

template <typename T>
inline void renderRgbaPixel(const ChainPlan& plan, const FrameView& in, const FrameView& out,
                            uint32_t x, uint32_t y) {
  const uint8_t* p = in.luma + y * in.lumaStride + 4 * size_t(x);
  const uint8_t alpha = p[3];
  const Rgb<T> c = applyChain(plan, x, y, Rgb<T>{T(p[0]), T(p[1]), T(p[2])});
  uint8_t* q = out.luma + y * out.lumaStride + 4 * size_t(x);
  q[0] = toByte(c.r);
  q[1] = toByte(c.g);
  q[2] = toByte(c.b);
  q[3] = alpha;
}

}  // namespace lumo::render
