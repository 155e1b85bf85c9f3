// Fused LUT + style kernels, compiled once per instruction set and chosen at
// run time. Each vector lane carries one chroma sample's column: a 4:2:0 row
// pair is loaded as 16-bit lanes so that the low byte is the even pixel and
// the high byte the odd one, and every pixel of a lane shares its chroma.
#include "fused_kernels.h"

#include <algorithm>
#include <cmath>

#include "fixed_point_kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "fused_kernels.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "simd_extras-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumo::render {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using DF = hn::ScalableTag<float>;
using DI = hn::RebindToSigned<DF>;
using DU = hn::RebindToUnsigned<DF>;
using DU16 = hn::Rebind<uint16_t, DF>;
using VF = hn::Vec<DF>;
using VI = hn::Vec<DI>;
using VU = hn::Vec<DU>;

// Vectors live only in locals, arguments and references: SVE's vector types
// are sizeless and cannot be members of a struct or elements of an array.
// Colours therefore travel as three vectors, updated in place.

HWY_INLINE VF Clamp(VF v, VF lo, VF hi) { return hn::Min(hn::Max(v, lo), hi); }

HWY_INLINE VF ByteToFloat(VU v) {
  const DF df;
  const DI di;
  return hn::ConvertTo(df, hn::BitCast(di, v));
}

// Low and high byte of each 16-bit pair at `p`, as floats.
HWY_INLINE void LoadBytePairs(const uint8_t* p, VF& low, VF& high) {
  const DU16 d16;
  const DU du;
  const VU v = hn::PromoteTo(du, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(p)));
  low = ByteToFloat(hn::And(v, hn::Set(du, 0xFFu)));
  high = ByteToFloat(hn::ShiftRight<8>(v));
}

// Rounds half up and clamps to a byte; truncation is floor once non-negative.
HWY_INLINE VI ToByte(VF v) {
  const DF df;
  const DI di;
  return hn::ConvertTo(di, Clamp(hn::Add(v, hn::Set(df, 0.5f)), hn::Zero(df), hn::Set(df, 255.0f)));
}

HWY_INLINE void StoreBytePairs(VI low, VI high, uint8_t* p) {
  const DU16 d16;
  const VI packed = hn::Or(low, hn::ShiftLeft<8>(high));
  hn::StoreU(hn::DemoteTo(d16, packed), d16, reinterpret_cast<uint16_t*>(p));
}

// One 64-bit lattice pair per lane, split into its low and high 32 bits.
HWY_INLINE void GatherPairs(const uint64_t* HWY_RESTRICT table, VI index, VU& low, VU& high) {
  extras::GatherPairs(table, index, low, high);
}

// Byte `byte` of each 32-bit lane as a float.
HWY_INLINE VF ByteOfLane(VU v, int byte) { return ByteToFloat(extras::ByteOfLane(v, byte)); }

// Byte `byte` (0..7) of a packed pair split into `low` and `high`: channel
// ch of the pair's first point is byte ch, of its second byte 3 + ch.
HWY_INLINE VF PairByte(VU low, VU high, int byte) {
  return byte < 4 ? ByteOfLane(low, byte) : ByteOfLane(high, byte - 4);
}

// One channel of the tetrahedral interpolation between the corners c0 (low
// and high halves of `cornersLow/High`, first point), c1, c2 (the edge pair)
// and c3 (second corner point).
HWY_INLINE VF Interpolate(VU cornersLow, VU cornersHigh, VU edgesLow, VU edgesHigh, int ch, VF fmax,
                          VF fmid, VF fmin) {
  const VF c0 = PairByte(cornersLow, cornersHigh, ch);
  const VF c3 = PairByte(cornersLow, cornersHigh, 3 + ch);
  const VF c1 = PairByte(edgesLow, edgesHigh, ch);
  const VF c2 = PairByte(edgesLow, edgesHigh, 3 + ch);
  const VF v = hn::MulAdd(hn::Sub(c1, c0), fmax, c0);
  return hn::MulAdd(hn::Sub(c3, c2), fmin, hn::MulAdd(hn::Sub(c2, c1), fmid, v));
}

// Tetrahedral look-up of colours already in 0..255 (the fused chain always
// looks up first, on clamped input). One gather
// fetches the cell's low and high corners, a second the two corners in
// between for the tetrahedron the fractions select (FusedTables). Writes
// the looked-up colour to `outR`, `outG`, `outB`.
HWY_INLINE void Lookup(const FusedParams& p, VF r, VF g, VF b, VF& outR, VF& outG, VF& outB) {
  const DF df;
  const DI di;
  const VF scale = hn::Set(df, float(kLutSize - 1) / 255.0f);
  const VF xr = hn::Mul(r, scale);
  const VF xg = hn::Mul(g, scale);
  const VF xb = hn::Mul(b, scale);
  const VF lr = hn::Floor(xr), lg = hn::Floor(xg), lb = hn::Floor(xb);
  const VF fr = hn::Sub(xr, lr), fg = hn::Sub(xg, lg), fb = hn::Sub(xb, lb);
  // Cells run to 16 on each axis (FusedTables), so a colour at 255 needs no clamp.
  const VI cell = hn::ConvertTo(di, hn::MulAdd(lb, hn::Set(df, float(kLutSize * kLutSize)),
                                               hn::MulAdd(lg, hn::Set(df, float(kLutSize)), lr)));
  const auto rg = hn::RebindMask(di, hn::Ge(fr, fg));
  const auto gb = hn::RebindMask(di, hn::Ge(fg, fb));
  const auto rb = hn::RebindMask(di, hn::Ge(fr, fb));
  // Tetrahedron numbers as FusedTables lays them out.
  const VI tet = hn::IfThenElse(
      rg, hn::IfThenElse(gb, hn::Zero(di), hn::IfThenElse(rb, hn::Set(di, 1), hn::Set(di, 2))),
      hn::IfThenElse(gb, hn::IfThenElse(rb, hn::Set(di, 3), hn::Set(di, 4)), hn::Set(di, 5)));
  const VF fmax = hn::Max(fr, hn::Max(fg, fb));
  const VF fmin = hn::Min(fr, hn::Min(fg, fb));
  const VF fmid = hn::Max(hn::Min(fr, fg), hn::Min(hn::Max(fr, fg), fb));

  VU cornersLow, cornersHigh, edgesLow, edgesHigh;
  GatherPairs(p.corners, cell, cornersLow, cornersHigh);
  GatherPairs(p.edges, hn::Add(hn::ShiftLeft<3>(cell), tet), edgesLow, edgesHigh);
  outR = Interpolate(cornersLow, cornersHigh, edgesLow, edgesHigh, 0, fmax, fmid, fmin);
  outG = Interpolate(cornersLow, cornersHigh, edgesLow, edgesHigh, 1, fmax, fmid, fmin);
  outB = Interpolate(cornersLow, cornersHigh, edgesLow, edgesHigh, 2, fmax, fmid, fmin);
}

HWY_INLINE VF Luma(VF r, VF g, VF b) {
  const DF df;
  return hn::MulAdd(
      hn::Set(df, float(kRToY)), r,
      hn::MulAdd(hn::Set(df, float(kGToY)), g, hn::Mul(hn::Set(df, float(kBToY)), b)));
}

// LUT then style for one vector of pixels at columns `x` of a row whose
// squared normalised vertical offset is `dy2`. Replaces the colour `r`, `g`,
// `b` with the output colour and returns its luma (0..255).
HWY_INLINE VF ApplyChain(const FusedParams& p, VF& r, VF& g, VF& b, VF x, VF dy2) {
  const DF df;
  if (p.hasLut) {
    VF lr, lg, lb;
    Lookup(p, r, g, b, lr, lg, lb);
    if (p.strength == 1.0f) {
      r = lr;
      g = lg;
      b = lb;
    } else {
      const VF s = hn::Set(df, p.strength);
      r = hn::MulAdd(hn::Sub(lr, r), s, r);
      g = hn::MulAdd(hn::Sub(lg, g), s, g);
      b = hn::MulAdd(hn::Sub(lb, b), s, b);
    }
  }
  const VF luma = Luma(r, g, b);
  if (!p.hasStyle) return luma;
  const VF zero = hn::Zero(df), one = hn::Set(df, 1.0f);
  const VF dx = hn::MulAdd(hn::Set(df, p.ax), x, hn::Set(df, p.bx));
  const VF d = hn::Sqrt(hn::MulAdd(dx, dx, dy2));
  VF f;
  if (p.hardStep) {
    f = hn::IfThenElseZero(
        hn::Ge(hn::Mul(d, hn::Set(df, p.coordScale)), hn::Set(df, p.smoothStart)), one);
  } else {
    const VF t =
        Clamp(hn::MulAdd(d, hn::Set(df, p.stepScale), hn::Set(df, p.stepOffset)), zero, one);
    f = hn::Mul(hn::Mul(t, t), hn::NegMulAdd(hn::Set(df, 2.0f), t, hn::Set(df, 3.0f)));
  }
  // Protection and knee read the luma in 0..255 directly (their factors carry the 1/255).
  VF protect =
      Clamp(hn::MulAdd(hn::Set(df, p.protectScale), luma, hn::Set(df, p.preserveB)), zero, one);
  if (p.knee) {
    const VF h =
        Clamp(hn::MulAdd(hn::Set(df, p.kneeScale), luma, hn::Set(df, p.kneeOffset)), zero, one);
    protect = hn::Mul(protect, h);
  }
  const VF gain = hn::MulAdd(hn::Mul(hn::Set(df, p.valueScale), f), protect, one);
  r = hn::Mul(r, gain);
  g = hn::Mul(g, gain);
  b = hn::Mul(b, gain);
  return hn::Mul(luma, gain);
}

// One vector of pixels with luma `y` at columns `x`, with the block's chroma
// offsets `or`, `og`, `ob`: converted, clamped, put through the chain;
// returns the output luma bytes and adds the output colour to `sumR`,
// `sumG`, `sumB`.
HWY_INLINE VI RenderPixels(const FusedParams& p, VF y, VF x, VF dy2, VF offR, VF offG, VF offB,
                           VF& sumR, VF& sumG, VF& sumB) {
  const DF df;
  const VF zero = hn::Zero(df), top = hn::Set(df, 255.0f);
  VF r = Clamp(hn::Add(y, offR), zero, top);
  VF g = Clamp(hn::Add(y, offG), zero, top);
  VF b = Clamp(hn::Add(y, offB), zero, top);
  const VF luma = ApplyChain(p, r, g, b, x, dy2);
  sumR = hn::Add(sumR, r);
  sumG = hn::Add(sumG, g);
  sumB = hn::Add(sumB, b);
  return ToByte(luma);
}

// Renders one luma row of a row pair (written out so that the four pixel
// groups of a block can overlap).
HWY_INLINE void RenderRow(const FusedParams& p, const uint8_t* in, uint8_t* out, VF xEven, VF xOdd,
                          VF dy2, VF offR, VF offG, VF offB, VF& sumR, VF& sumG, VF& sumB) {
  VF yEven, yOdd;
  LoadBytePairs(in, yEven, yOdd);
  const VI even = RenderPixels(p, yEven, xEven, dy2, offR, offG, offB, sumR, sumG, sumB);
  const VI odd = RenderPixels(p, yOdd, xOdd, dy2, offR, offG, offB, sumR, sumG, sumB);
  StoreBytePairs(even, odd, out);
}

template <bool kPaired>
size_t FusedYuvRows(const FusedParams& p, const YuvRowPair& r, size_t start, size_t pairs) {
  const DF df;
  const size_t n = hn::Lanes(df);
  const VF mid = hn::Set(df, 128.0f);
  const VF lanes2 = hn::Mul(hn::Iota(df, 0.0f), hn::Set(df, 2.0f));
  const VF invCount = hn::Set(df, kPaired ? 0.25f : 0.5f);
  const VF dy2First = hn::Set(df, r.dy2[0]), dy2Second = hn::Set(df, r.dy2[1]);
  size_t x = start;
  for (; x + n <= pairs; x += n) {
    VF first, second;
    LoadBytePairs(r.chroma + 2 * x, first, second);
    const VF u = hn::Sub(r.inCrFirst ? second : first, mid);
    const VF v = hn::Sub(r.inCrFirst ? first : second, mid);
    // Chroma offsets of the RGB conversion, shared by the pixels of the block.
    const VF offR = hn::Mul(hn::Set(df, float(kCrToR)), v);
    const VF offG =
        hn::MulAdd(hn::Set(df, float(kCbToG)), u, hn::Mul(hn::Set(df, float(kCrToG)), v));
    const VF offB = hn::Mul(hn::Set(df, float(kCbToB)), u);
    const VF xEven = hn::Add(lanes2, hn::Set(df, float(2 * x)));
    const VF xOdd = hn::Add(xEven, hn::Set(df, 1.0f));
    VF sumR = hn::Zero(df), sumG = hn::Zero(df), sumB = hn::Zero(df);
    RenderRow(p, r.y[0] + 2 * x, r.outY[0] + 2 * x, xEven, xOdd, dy2First, offR, offG, offB, sumR,
              sumG, sumB);
    if (kPaired)
      RenderRow(p, r.y[1] + 2 * x, r.outY[1] + 2 * x, xEven, xOdd, dy2Second, offR, offG, offB,
                sumR, sumG, sumB);
    // Chroma is linear in RGB: the mean of the pixels' chroma is the chroma of their mean.
    const VF mr = hn::Mul(sumR, invCount), mg = hn::Mul(sumG, invCount);
    const VF mb = hn::Mul(sumB, invCount);
    const VF cb = hn::MulAdd(hn::Set(df, float(kRToCb)), mr,
                             hn::MulAdd(hn::Set(df, float(kGToCb)), mg,
                                        hn::MulAdd(hn::Set(df, float(kBToCb)), mb, mid)));
    const VF cr = hn::MulAdd(hn::Set(df, float(kRToCr)), mr,
                             hn::MulAdd(hn::Set(df, float(kGToCr)), mg,
                                        hn::MulAdd(hn::Set(df, float(kBToCr)), mb, mid)));
    const VI cbByte = ToByte(cb), crByte = ToByte(cr);
    if (r.outCrFirst) {
      StoreBytePairs(crByte, cbByte, r.outChroma + 2 * x);
    } else {
      StoreBytePairs(cbByte, crByte, r.outChroma + 2 * x);
    }
  }
  return x;
}

// Renders whole vectors of column pairs from `start`; returns where it stopped.
size_t FusedYuvRowPair(const FusedParams& params, const YuvRowPair& rows, size_t start,
                       size_t pairs) {
  // Local copies: the output stores cannot alias them, so the compiler keeps
  // the constants in registers.
  const FusedParams p = params;
  const YuvRowPair r = rows;
  return r.y[1] != nullptr ? FusedYuvRows<true>(p, r, start, pairs)
                           : FusedYuvRows<false>(p, r, start, pairs);
}

// Renders the first whole vectors of an RGBA row; returns how many pixels it did.
size_t FusedRgbaRow(const FusedParams& params, const uint8_t* in, uint8_t* out, float dy2,
                    size_t width) {
  const FusedParams p = params;
  const DF df;
  const DU du;
  const size_t n = hn::Lanes(df);
  const VU alphaMask = hn::Set(du, 0xFF000000u);
  const VF dy2v = hn::Set(df, dy2);
  size_t x = 0;
  for (; x + n <= width; x += n) {
    const VU px = hn::LoadU(du, reinterpret_cast<const uint32_t*>(in + 4 * x));
    VF r = ByteOfLane(px, 0), g = ByteOfLane(px, 1), b = ByteOfLane(px, 2);
    ApplyChain(p, r, g, b, hn::Add(hn::Iota(df, 0.0f), hn::Set(df, float(x))), dy2v);
    const VI rgb =
        hn::Or(ToByte(r), hn::Or(hn::ShiftLeft<8>(ToByte(g)), hn::ShiftLeft<16>(ToByte(b))));
    const VU result = hn::Or(hn::And(px, alphaMask), hn::BitCast(du, rgb));
    hn::StoreU(result, du, reinterpret_cast<uint32_t*>(out + 4 * x));
  }
  return x;
}

}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace lumo::render {

HWY_EXPORT(FusedYuvRowPair);
HWY_EXPORT(FusedRgbaRow);

bool fusedKernelsSupport(const EffectChain& chain) {
  if (chain.luts.size() > 1 || chain.styles.size() > 1) return false;
  return !(chain.order.size() == 2 && chain.order[0] == EffectKind::Style);
}

// Tetrahedron t of a cell walks from the low corner through the corners at
// kTetSteps[t][0] and kTetSteps[t][1] (lattice offsets) to the high corner.
static constexpr int kStepR = 1, kStepG = kLutSize, kStepB = kLutSize * kLutSize;
static constexpr int kTetSteps[6][2] = {
    {kStepR, kStepR + kStepG},  // r >= g >= b
    {kStepR, kStepR + kStepB},  // r >= b > g
    {kStepB, kStepB + kStepR},  // b > r >= g
    {kStepG, kStepG + kStepR},  // g > r >= b
    {kStepG, kStepG + kStepB},  // g >= b > r
    {kStepB, kStepB + kStepG},  // b > g > r
};

static uint64_t packPair(const LutLattice& lattice, int first, int second) {
  const uint8_t* a = &lattice[3 * size_t(first)];
  const uint8_t* b = &lattice[3 * size_t(second)];
  return uint64_t(a[0]) | uint64_t(a[1]) << 8 | uint64_t(a[2]) << 16 | uint64_t(b[0]) << 24 |
         uint64_t(b[1]) << 32 | uint64_t(b[2]) << 40;
}

FusedTables buildFusedTables(const LutLattice& lattice) {
  // One cell per lattice point: the cells at index 16 only ever see a zero
  // fraction along that axis, and their corners beyond the lattice repeat
  // its last point.
  constexpr int kCells = kLutSize;
  const auto point = [](int r, int g, int b) {
    const int last = kLutSize - 1;
    return std::min(r, last) + kStepG * std::min(g, last) + kStepB * std::min(b, last);
  };
  FusedTables t;
  t.corners.resize(size_t(kCells) * kCells * kCells);
  t.edges.resize(t.corners.size() * 8);
  for (int b = 0; b < kCells; ++b)
    for (int g = 0; g < kCells; ++g)
      for (int r = 0; r < kCells; ++r) {
        const size_t cell = size_t(r + kCells * (g + kCells * b));
        t.corners[cell] = packPair(lattice, point(r, g, b), point(r + 1, g + 1, b + 1));
        for (int tet = 0; tet < 6; ++tet) {
          const int* steps = kTetSteps[tet];
          const auto corner = [&](int step) {
            return point(r + (step % kStepG), g + (step / kStepG) % kLutSize, b + step / kStepB);
          };
          t.edges[8 * cell + tet] = packPair(lattice, corner(steps[0]), corner(steps[1]));
        }
      }
  return t;
}

FusedParams makeFusedParams(const ChainPlan& plan, const FusedTables& tables) {
  FusedParams p;
  const EffectChain& chain = *plan.chain;
  if (!chain.luts.empty() && chain.luts[0].hasLattice) {
    p.hasLut = true;
    p.strength = float(chain.luts[0].strength);
    p.corners = tables.corners.data();
    p.edges = tables.edges.data();
  }
  if (!chain.styles.empty() && !chain.styles[0].isIdentity()) {
    const StyleEffect& s = chain.styles[0];
    const RadialGeometry& g = plan.geometry[0];
    p.hasStyle = true;
    p.ax = float(g.ax);
    p.bx = float(g.bx);
    p.ay = float(g.ay);
    p.by = float(g.by);
    p.coordScale = float(s.coordScale);
    p.smoothStart = float(s.smoothStart);
    p.hardStep = s.smoothStart == s.smoothEnd;
    if (!p.hardStep) {
      // t = (d * scale - start) / (end - start) as one multiply-add.
      const double inv = 1.0 / (s.smoothEnd - s.smoothStart);
      p.stepScale = float(s.coordScale * inv);
      p.stepOffset = float(-s.smoothStart * inv);
    }
    p.valueScale = float(s.valueScale);
    p.protectScale = float(s.preserveK / 255.0);
    p.preserveB = float(s.preserveB);
    p.knee = s.preserveV != 0;
    if (p.knee) {
      // h = (T - luma / 255) / V as one multiply-add on luma.
      p.kneeScale = float(-1.0 / (255.0 * s.preserveV));
      p.kneeOffset = float(s.preserveT / s.preserveV);
    }
  }
  return p;
}

static float verticalOffsetSquared(const FusedParams& p, uint32_t y) {
  const float dy = p.ay * float(y) + p.by;
  return dy * dy;
}

static YuvRowPair rowPairAt(const FusedParams& params, const FrameView& in, const FrameView& out,
                            uint32_t y) {
  const bool paired = y + 1 < in.height;
  YuvRowPair r;
  r.y[0] = in.luma + y * in.lumaStride;
  r.y[1] = paired ? r.y[0] + in.lumaStride : nullptr;
  r.chroma = in.chroma + (y / 2) * in.chromaStride;
  r.outY[0] = out.luma + y * out.lumaStride;
  r.outY[1] = paired ? r.outY[0] + out.lumaStride : nullptr;
  r.outChroma = out.chroma + (y / 2) * out.chromaStride;
  r.inCrFirst = in.layout == FrameLayout::NV21;
  r.outCrFirst = out.layout == FrameLayout::NV21;
  r.dy2[0] = verticalOffsetSquared(params, y);
  r.dy2[1] = verticalOffsetSquared(params, y + 1);
  r.width = in.width;
  return r;
}

static void renderYuvRowPair(const FusedParams& params, const FixedPointParams& fixed,
                             const ChainPlan& plan, const FrameView& in, const FrameView& out,
                             uint32_t y, RadialRows& radial) {
  const size_t pairs = in.width / 2, blocksX = (in.width + 1) / 2;
  const YuvRowPair r = rowPairAt(params, in, out, y);
  const size_t fixedDone = renderFixedPointRowPair(fixed, params, r, pairs, radial);
  const size_t done = HWY_DYNAMIC_DISPATCH(FusedYuvRowPair)(params, r, fixedDone, pairs);
  for (size_t bx = done; bx < blocksX; ++bx)
    renderYuvBlock<float>(plan, in, out, uint32_t(bx), y / 2);
}

void renderFusedRows(const FusedParams& params, const FixedPointParams& fixed,
                     const ChainPlan& plan, const FrameView& in, const FrameView& out,
                     uint32_t rowBegin, uint32_t rowEnd, bool mirrored) {
  if (isYuv(in.layout)) {
    RadialRows radial;
    for (uint32_t y = rowBegin; y < rowEnd; y += 2) {
      radial.filled = false;
      radial.swapRows = false;
      renderYuvRowPair(params, fixed, plan, in, out, y, radial);
      const uint32_t mirror = in.height - 2 - y;
      if (!mirrored || mirror == y) continue;
      radial.swapRows = true;
      renderYuvRowPair(params, fixed, plan, in, out, mirror, radial);
    }
  } else {
    for (uint32_t y = rowBegin; y < rowEnd; ++y) {
      const uint8_t* src = in.luma + y * in.lumaStride;
      uint8_t* dst = out.luma + y * out.lumaStride;
      const size_t done = HWY_DYNAMIC_DISPATCH(FusedRgbaRow)(
          params, src, dst, verticalOffsetSquared(params, y), in.width);
      for (size_t x = done; x < in.width; ++x)
        renderRgbaPixel<float>(plan, in, out, uint32_t(x), y);
    }
  }
}

bool mirroredRowsPay(const FixedPointParams& fixed, const FrameView& in) {
  return fixed.usable && fixed.hasStyle && isYuv(in.layout) && in.height % 2 == 0;
}

const char* fusedKernelTarget() {
  const auto targets = hwy::SupportedAndGeneratedTargets();
  return targets.empty() ? "none" : hwy::TargetName(targets.front());
}

int64_t fusedKernelTargetsBuilt() { return HWY_TARGETS; }

}  // namespace lumo::render
#endif  // HWY_ONCE
