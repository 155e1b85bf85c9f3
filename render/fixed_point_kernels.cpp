// 16-bit fixed-point kernel for 4:2:0 frames. Each 16-bit lane is one chroma
// column; its even and odd pixels on both rows share the chroma offsets.
// Written for AVX-512 (32 lanes), AVX2 (16 lanes) and arm64's 128-bit NEON
// (8 lanes) in the operations of fixed_point_ops-inl.h; the fixed 128-bit
// SVE2 target runs the NEON build. Other instruction sets (SVE at its
// variable or 256-bit width among them, whose float kernels already execute
// fewer instructions) report no columns done.
#include "fixed_point_kernels.h"

#include <algorithm>
#include <cmath>

#include "color_math.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "fixed_point_kernels.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "fixed_point_ops-inl.h"

#undef LUMO_FX_NEON_BUILD
#if HWY_ARCH_ARM_A64 && HWY_TARGET == HWY_SVE2_128 && (HWY_TARGETS & HWY_NEON)
#define LUMO_FX_NEON_BUILD 1
#else
#define LUMO_FX_NEON_BUILD 0
#endif

#if LUMO_FX_NEON_BUILD
namespace lumo::render::N_NEON {
size_t FixedPointRowPair(const FixedPointParams& p, const FusedParams& fused,
                         const YuvRowPair& rows, size_t pairs, RadialRows& radial);
}  // namespace lumo::render::N_NEON
#endif

HWY_BEFORE_NAMESPACE();
namespace lumo::render {
namespace HWY_NAMESPACE {

#if LUMO_FX_PRESENT

using fx::kLanes;
using fx::V;
using fx::VF;

// Q15 constants: mulhrs(x, k) is x * k / 32768 rounded half up.
constexpr int16_t q15(double v) { return int16_t(v * 32768.0 + (v < 0 ? -0.5 : 0.5)); }

using fx::MulQ15;
using fx::Set;

// Lattice positions are Q12 lattice units, code value x 16/255 x 4096, in
// unsigned 16 bits: 255 saturates to the top of cell 15, one 4096th short of
// the last lattice point.

// A luma byte moved to the high byte (Y << 8) to its lattice position:
// Y * 256 * 256/255, with 256/255 = 1 + 257/65536 to well within a unit.
HWY_INLINE V LumaPosition(V y8) { return fx::Add16(y8, fx::MulHighU16(y8, Set(257))); }

// A chroma offset as the two saturating steps that add it to a position and
// clamp the sum to the lattice, which is the clamp of the colour to 0..255.
struct Offset {
  V up, down;
};

// From the offset at half scale (signed, so that it fits 16 bits).
HWY_INLINE Offset SplitOffset(V half) {
  const V zero = fx::Zero();
  return {fx::Shl16<1>(fx::Max16(half, zero)),
          fx::Shl16<1>(fx::Max16(fx::Sub16(zero, half), zero))};
}

HWY_INLINE V Position(V luma, const Offset& o) {
  return fx::SubSatU16(fx::AddSatU16(luma, o.up), o.down);
}

// A lattice position back to a Q7 colour: x 255/(16 * 4096) x 128.
HWY_INLINE V PositionToQ7(V x) { return fx::MulHighU16(x, Set(int16_t(32640))); }

struct Rgb16 {
  V r, g, b;
};

struct Tables {
  const uint64_t* rg;
  const uint32_t* b;
};

// Dot products of one group of pixels, one per 64-bit lane (8 on AVX-512,
// 4 on AVX2, 2 on NEON): corners per channel widened to 16 bits against the
// four weights, leaving c0 w0 + c1 w1 and c2 w2 + c3 w3 in the two halves
// of each lane.
struct GroupSums {
  V r, g, b;
};

HWY_INLINE GroupSums GroupDot(const Tables& t, V index, V weights) {
  // Bytes 0-3 (red, or blue in the second table) and 4-7 (green) of each
  // 64-bit lane, zero-extended to 16 bits.
  const V low = fx::SetBlocks<0x800b800a80098008, 0x8003800280018000>();
  const V high = fx::SetBlocks<0x800f800e800d800c, 0x8007800680058004>();
  const V rg = fx::Gather64<8>(t.rg, index);
  // 8 bytes from a 4-byte entry: the upper half (the next entry) is unused.
  const V b = fx::Gather64<4>(t.b, index);
  return {fx::MulAddPairs(fx::ShuffleBytes(rg, low), weights),
          fx::MulAddPairs(fx::ShuffleBytes(rg, high), weights),
          fx::MulAddPairs(fx::ShuffleBytes(b, low), weights)};
}

// Adds the two halves of the dot products of groups 0 and 1 (32-bit lanes
// back in the order of the 16-bit lanes they came from) and scales Q12 x
// code to Q8.
HWY_INLINE V FinishDot(V group0, V group1) { return fx::Shr32<4>(fx::AddPairs32(group0, group1)); }

// Packs two halves of Q8 results (unsigned, up to 65280) back into the
// 16-bit lane order they were unpacked from (packus undoes the unpacking)
// and rounds them to Q7: avg(x, 0) is (x + 1) / 2.
HWY_INLINE V PackQ7(V low, V high) { return fx::AvgU16(fx::PackUs32(low, high), fx::Zero()); }

// Tetrahedral look-up of a vector of lattice positions; returns the colours in Q7.
HWY_INLINE Rgb16 Lookup(const Tables& t, V xr, V xg, V xb) {
  const V fracMask = Set(0x0FFF);
  const V fr = fx::And(xr, fracMask), fg = fx::And(xg, fracMask), fb = fx::And(xb, fracMask);
  // Entry cell * 8 + code, where the code's bits say r >= g, g >= b and
  // r >= b: six of the eight codes occur, one per tetrahedron.
  const V cell8 = fx::Or(
      fx::And(fx::Shr16<9>(xr), Set(0x0078)),
      fx::Or(fx::And(fx::Shr16<5>(xg), Set(0x0780)), fx::And(fx::Shr16<1>(xb), Set(0x7800))));
  V index = fx::AddWhereGe(cell8, fr, fg, 1);
  index = fx::AddWhereGe(index, fg, fb, 2);
  index = fx::AddWhereGe(index, fr, fb, 4);

  const V fmax = fx::Max16(fr, fx::Max16(fg, fb));
  const V fmin = fx::Min16(fr, fx::Min16(fg, fb));
  const V fmid = fx::Max16(fx::Min16(fr, fg), fx::Min16(fx::Max16(fr, fg), fb));
  const V w0 = fx::Sub16(Set(4096), fmax), w1 = fx::Sub16(fmax, fmid), w2 = fx::Sub16(fmid, fmin);
  const V w01Low = fx::UnpackLo16(w0, w1), w01High = fx::UnpackHi16(w0, w1);
  const V w23Low = fx::UnpackLo16(w2, fmin), w23High = fx::UnpackHi16(w2, fmin);
  const V zero = fx::Zero();
  const V indexLow = fx::UnpackLo16(index, zero), indexHigh = fx::UnpackHi16(index, zero);

  // Groups: 16-bit lanes 8j+0,1 / 8j+2,3 / 8j+4,5 / 8j+6,7 of each block j.
  const GroupSums g0 = GroupDot(t, fx::UnpackLo32(indexLow, zero), fx::UnpackLo32(w01Low, w23Low));
  const GroupSums g1 = GroupDot(t, fx::UnpackHi32(indexLow, zero), fx::UnpackHi32(w01Low, w23Low));
  const GroupSums g2 =
      GroupDot(t, fx::UnpackLo32(indexHigh, zero), fx::UnpackLo32(w01High, w23High));
  const GroupSums g3 =
      GroupDot(t, fx::UnpackHi32(indexHigh, zero), fx::UnpackHi32(w01High, w23High));
  return {PackQ7(FinishDot(g0.r, g1.r), FinishDot(g2.r, g3.r)),
          PackQ7(FinishDot(g0.g, g1.g), FinishDot(g2.g, g3.g)),
          PackQ7(FinishDot(g0.b, g1.b), FinishDot(g2.b, g3.b))};
}

struct Offsets {
  Offset r, g, b;
};

// Output colours are Q6 with a style effect (its gain may double them) and
// Q7 without one.
template <bool kStyle>
constexpr int kOutputShift = kStyle ? 6 : 7;

// Luma weights summing to exactly 1 in Q15, so that gray stays gray.
constexpr int16_t kLumaR = q15(kRToY), kLumaG = q15(kGToY);
constexpr int16_t kLumaB = int16_t(32768 - kLumaR - kLumaG);

struct Output {
  V luma;     // gain applied
  Rgb16 rgb;  // gain applied
};

// One vector of pixels (luma bytes in the high byte of each lane) with their
// chroma offsets, through the chain.
template <bool kBlend, bool kStyle, bool kKnee>
HWY_INLINE Output Pixels(const FixedPointParams& p, const Tables& t, V y8, const Offsets& offsets,
                         V radial) {
  const V luma8 = LumaPosition(y8);
  const V xr = Position(luma8, offsets.r), xg = Position(luma8, offsets.g),
          xb = Position(luma8, offsets.b);
  Rgb16 c = Lookup(t, xr, xg, xb);
  if (kBlend) {
    const Rgb16 in{PositionToQ7(xr), PositionToQ7(xg), PositionToQ7(xb)};
    const V s = Set(p.strength);
    c.r = fx::Add16(in.r, MulQ15(fx::Sub16(c.r, in.r), s));
    c.g = fx::Add16(in.g, MulQ15(fx::Sub16(c.g, in.g), s));
    c.b = fx::Add16(in.b, MulQ15(fx::Sub16(c.b, in.b), s));
  }
  const V luma = fx::Add16(MulQ15(c.r, Set(kLumaR)),
                           fx::Add16(MulQ15(c.g, Set(kLumaG)), MulQ15(c.b, Set(kLumaB))));
  if (!kStyle) return {luma, c};
  // Half the gain in Q15, so that a Q7 colour times it is the output in Q6.
  V halfGain = Set(16384);
  {
    const V top = Set(4095), zero = fx::Zero();
    const V protect = fx::Min16(
        fx::Max16(fx::AddSat16(MulQ15(luma, Set(p.protectA)), Set(p.protectB)), zero), top);
    V weight = fx::Shl16<2>(protect);  // Q14
    if (kKnee) {
      const V knee =
          fx::Min16(fx::Max16(fx::AddSat16(MulQ15(luma, Set(p.kneeA)), Set(p.kneeB)), zero), top);
      weight = MulQ15(fx::Shl16<3>(protect), fx::Shl16<2>(knee));
    }
    halfGain = fx::Add16(halfGain, MulQ15(radial, weight));
  }
  return {MulQ15(luma, halfGain),
          {MulQ15(c.r, halfGain), MulQ15(c.g, halfGain), MulQ15(c.b, halfGain)}};
}

// An output value to a byte, rounded half up; inputs are never negative.
// The values are already quantised, so a tie (exactly half way) happens
// once in 64 or 128 samples, not never as in the continuous model: callers
// lower every other sample by one step first, so that half the ties round
// down and the output carries no bias.
template <bool kStyle>
HWY_INLINE V ToByte(V v) {
  return fx::Min16(MulQ15(v, Set(int16_t(1 << (15 - kOutputShift<kStyle>)))), Set(255));
}

HWY_INLINE V JoinBytes(V low, V high) { return fx::Or(low, fx::Shl16<8>(high)); }

HWY_INLINE Rgb16 Average(const Rgb16& a, const Rgb16& b) {
  return {fx::AvgU16(a.r, b.r), fx::AvgU16(a.g, b.g), fx::AvgU16(a.b, b.b)};
}

// Renders one luma row of kLanes column pairs; returns the mean output colour
// of its two pixels per column.
template <bool kBlend, bool kStyle, bool kKnee>
HWY_INLINE Rgb16 Row(const FixedPointParams& p, const Tables& t, const uint8_t* in, uint8_t* out,
                     const Offsets& offsets, const int16_t* radialEven, const int16_t* radialOdd) {
  const V pixels = fx::Load(in);
  const V even = fx::Shl16<8>(pixels);
  const V odd = fx::And(pixels, Set(int16_t(0xFF00)));
  V radialE = fx::Zero(), radialO = fx::Zero();
  if (kStyle) {
    radialE = fx::Load(radialEven);
    radialO = fx::Load(radialOdd);
  }
  const Output e = Pixels<kBlend, kStyle, kKnee>(p, t, even, offsets, radialE);
  const Output o = Pixels<kBlend, kStyle, kKnee>(p, t, odd, offsets, radialO);
  fx::Store(JoinBytes(ToByte<kStyle>(e.luma), ToByte<kStyle>(fx::Sub16(o.luma, Set(1)))), out);
  return Average(e.rgb, o.rgb);
}

// Chroma (0..255) of a mean output colour.
template <bool kStyle>
HWY_INLINE V Chroma(const Rgb16& m, double kr, double kg, double kb) {
  const V v = fx::Add16(Set(int16_t(128 << kOutputShift<kStyle>)),
                        fx::Add16(MulQ15(m.r, Set(q15(kr))),
                                  fx::Add16(MulQ15(m.g, Set(q15(kg))), MulQ15(m.b, Set(q15(kb))))));
  // Every other column lowered by one step (see ToByte).
  const V alternate = fx::SetBlocks<0x0001000000010000, 0x0001000000010000>();
  return fx::Max16(ToByte<kStyle>(fx::Sub16(v, alternate)), fx::Zero());
}

// The style's radial factor (value scale times the smoothstep of the
// distance) in Q15 at pixels x0, x0 + 2, ... for `count` pixels (a multiple of 16).
void RadialSamples(const FusedParams& p, float dy2, size_t x0, size_t count, int16_t* out) {
  const VF lanes2 = fx::MulF(fx::IotaF(), fx::SetF(2.0f));
  const VF zero = fx::SetF(0.0f), one = fx::SetF(1.0f);
  const VF half = fx::SetF(0.5f), three = fx::SetF(3.0f);
  const VF scale = fx::SetF(p.valueScale * 32768.0f);
  for (size_t i = 0; i < count; i += fx::kFloats) {
    const VF x = fx::AddF(lanes2, fx::SetF(float(x0 + 2 * i)));
    const VF dx = fx::MulAddF(fx::SetF(p.ax), x, fx::SetF(p.bx));
    const VF d2 = fx::MulAddF(dx, dx, fx::SetF(dy2));
    // sqrt as d2 * rsqrt(d2) with one Newton step: well inside the Q15
    // result's resolution and several times the throughput of a divide-unit
    // square root. d2 = 0 (the exact centre) gives 0 * inf: masked to 0.
    const VF y0 = fx::RsqrtF(d2);
    const VF y1 = fx::MulF(fx::MulF(half, y0), fx::NegMulAddF(fx::MulF(d2, y0), y0, three));
    const VF d = fx::IfPositiveF(d2, fx::MulF(d2, y1));
    VF f;
    if (p.hardStep) {
      f = fx::StepF(fx::MulF(d, fx::SetF(p.coordScale)), fx::SetF(p.smoothStart));
    } else {
      const VF s = fx::MinF(
          fx::MaxF(fx::MulAddF(d, fx::SetF(p.stepScale), fx::SetF(p.stepOffset)), zero), one);
      f = fx::MulF(fx::MulF(s, s), fx::NegMulAddF(fx::SetF(2.0f), s, three));
    }
    fx::StoreRoundedI16(fx::MulF(f, scale), out + i);
  }
}

// Radial factors of the even and odd pixels of the first `columns` column
// pairs of a row of `pairs` pairs. On an even width the row is its own
// mirror image (pixel x and width - 1 - x lie equally far from the centre):
// the odd pixels are the even ones read backwards, half the work.
void RadialRow(const FusedParams& p, float dy2, size_t pairs, size_t columns, bool evenWidth,
               int16_t* even, int16_t* odd) {
  const size_t padded = (pairs + 15) / 16 * 16;
  if (!evenWidth) {
    RadialSamples(p, dy2, 0, padded, even);
    RadialSamples(p, dy2, 1, padded, odd);
    return;
  }
  RadialSamples(p, dy2, 0, padded, even);
  // odd[k] = even[pairs - 1 - k]
  for (size_t k = 0; k < columns; k += kLanes)
    fx::Store(fx::Reverse16(fx::Load(even + (pairs - kLanes - k))), odd + k);
}

template <bool kBlend, bool kStyle, bool kKnee>
size_t FixedPointRows(const FixedPointParams& fixed, const FusedParams& fused,
                      const YuvRowPair& rows, size_t pairs, RadialRows& radial) {
  const size_t columns = pairs / kLanes * kLanes;
  if (columns == 0) return 0;
  const FixedPointParams p = fixed;
  const YuvRowPair r = rows;
  const Tables t{p.rg, p.b};
  const bool paired = r.y[1] != nullptr;
  // Radial factors of both rows, padded to whole 16-column steps; kept
  // for the mirror-image row pair when the caller says so.
  const int16_t* radialRows[2][2] = {};
  if (kStyle) {
    const size_t stride = (pairs + 15) / 16 * 16;
    if (!radial.filled) {
      radial.values.resize(4 * stride);
      for (int row = 0; row < (paired ? 2 : 1); ++row) {
        int16_t* even = radial.values.data() + 2 * row * stride;
        RadialRow(fused, r.dy2[row], pairs, columns, r.width == 2 * pairs, even, even + stride);
      }
      radial.filled = true;
    }
    for (int row = 0; row < 2; ++row) {
      const int16_t* even = radial.values.data() + 2 * (radial.swapRows ? 1 - row : row) * stride;
      radialRows[row][0] = even;
      radialRows[row][1] = even + stride;
    }
  }
  const V centre = Set(int16_t(0x8000)), highByte = Set(int16_t(0xFF00));
  for (size_t x = 0; x < columns; x += kLanes) {
    // Chroma centred and scaled by 256: (byte - 128) << 8.
    const V pairsIn = fx::Load(r.chroma + 2 * x);
    const V first = fx::Xor(fx::Shl16<8>(pairsIn), centre);
    const V second = fx::Xor(fx::And(pairsIn, highByte), centre);
    const V u = r.inCrFirst ? second : first, v = r.inCrFirst ? first : second;
    // Offsets in lattice units at half scale: (byte - 128) * 256 times the
    // coefficient times 128/255.
    constexpr double kHalf = 128.0 / 255.0;
    const Offsets offsets{SplitOffset(MulQ15(v, Set(q15(kCrToR * kHalf)))),
                          SplitOffset(fx::Add16(MulQ15(u, Set(q15(kCbToG * kHalf))),
                                                MulQ15(v, Set(q15(kCrToG * kHalf))))),
                          SplitOffset(MulQ15(u, Set(q15(kCbToB * kHalf))))};
    const auto radialAt = [&](int row, int parity) {
      return kStyle ? radialRows[row][parity] + x : nullptr;
    };
    Rgb16 mean = Row<kBlend, kStyle, kKnee>(p, t, r.y[0] + 2 * x, r.outY[0] + 2 * x, offsets,
                                            radialAt(0, 0), radialAt(0, 1));
    if (paired) {
      const Rgb16 lower = Row<kBlend, kStyle, kKnee>(p, t, r.y[1] + 2 * x, r.outY[1] + 2 * x,
                                                     offsets, radialAt(1, 0), radialAt(1, 1));
      // avg rounds up, and each row's mean already did: lowering one side
      // by a step makes this one round down, so the block mean is unbiased.
      const V one = Set(1);
      mean = Average(mean, {fx::SubSatU16(lower.r, one), fx::SubSatU16(lower.g, one),
                            fx::SubSatU16(lower.b, one)});
    }
    const V cb = Chroma<kStyle>(mean, kRToCb, kGToCb, kBToCb);
    const V cr = Chroma<kStyle>(mean, kRToCr, kGToCr, kBToCr);
    fx::Store(r.outCrFirst ? JoinBytes(cr, cb) : JoinBytes(cb, cr), r.outChroma + 2 * x);
  }
  return columns;
}

bool FixedPointKernelPresent() { return true; }

size_t FixedPointRowPair(const FixedPointParams& p, const FusedParams& fused,
                         const YuvRowPair& rows, size_t pairs, RadialRows& radial) {
  // One instantiation per switch so that the pixel loop has no branches.
  if (!p.hasStyle)
    return p.blend ? FixedPointRows<true, false, false>(p, fused, rows, pairs, radial)
                   : FixedPointRows<false, false, false>(p, fused, rows, pairs, radial);
  if (p.knee)
    return p.blend ? FixedPointRows<true, true, true>(p, fused, rows, pairs, radial)
                   : FixedPointRows<false, true, true>(p, fused, rows, pairs, radial);
  return p.blend ? FixedPointRows<true, true, false>(p, fused, rows, pairs, radial)
                 : FixedPointRows<false, true, false>(p, fused, rows, pairs, radial);
}

#elif LUMO_FX_NEON_BUILD

// SVE's vectors are sizeless and cannot travel in the kernel's structs;
// NEON instructions run on every SVE2 core, so this target uses that build.
bool FixedPointKernelPresent() { return true; }

size_t FixedPointRowPair(const FixedPointParams& p, const FusedParams& fused,
                         const YuvRowPair& rows, size_t pairs, RadialRows& radial) {
  return N_NEON::FixedPointRowPair(p, fused, rows, pairs, radial);
}

#else

bool FixedPointKernelPresent() { return false; }

size_t FixedPointRowPair(const FixedPointParams&, const FusedParams&, const YuvRowPair&, size_t,
                         RadialRows&) {
  return 0;
}

#endif

}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace lumo::render {

HWY_EXPORT(FixedPointKernelPresent);
HWY_EXPORT(FixedPointRowPair);

bool fixedPointKernelPresent() { return HWY_DYNAMIC_DISPATCH(FixedPointKernelPresent)(); }

namespace {

constexpr int kStepG = kLutSize, kStepB = kLutSize * kLutSize;
// Tetrahedron t walks from the low corner through these two corners (as
// steps along r, g, b) to the high corner.
constexpr int kTetSteps[6][2][3] = {
    {{1, 0, 0}, {1, 1, 0}},  // r >= g >= b
    {{1, 0, 0}, {1, 0, 1}},  // r >= b > g
    {{0, 0, 1}, {1, 0, 1}},  // b > r >= g
    {{0, 1, 0}, {1, 1, 0}},  // g > r >= b
    {{0, 1, 0}, {0, 1, 1}},  // g >= b > r
    {{0, 0, 1}, {0, 1, 1}},  // b > g > r
};
// The kernel's code (1: r >= g, 2: g >= b, 4: r >= b) to the tetrahedron;
// codes 3 and 4 cannot occur and repeat tetrahedron 0.
constexpr int kCodeTet[8] = {5, 2, 4, 0, 0, 1, 3, 0};

bool fits(double v, double limit) { return std::isfinite(v) && std::fabs(v) < limit; }

int16_t toQ(double v, double scale) { return int16_t(std::lround(v * scale)); }

}  // namespace

FixedPointTables buildFixedPointTables(const LutLattice& lattice) {
  constexpr int kCells = 16;
  FixedPointTables t;
  t.rg.resize(size_t(kCells) * kCells * kCells * 8);
  t.b.resize(t.rg.size() + 1);  // the last entry's 8-byte fetch stays inside
  for (int b = 0; b < kCells; ++b)
    for (int g = 0; g < kCells; ++g)
      for (int r = 0; r < kCells; ++r) {
        const size_t cell = size_t(r | g << 4 | b << 8);
        for (int code = 0; code < 8; ++code) {
          const int tet = kCodeTet[code];
          const int* s1 = kTetSteps[tet][0];
          const int* s2 = kTetSteps[tet][1];
          const int corners[4] = {r + kStepG * g + kStepB * b,
                                  (r + s1[0]) + kStepG * (g + s1[1]) + kStepB * (b + s1[2]),
                                  (r + s2[0]) + kStepG * (g + s2[1]) + kStepB * (b + s2[2]),
                                  (r + 1) + kStepG * (g + 1) + kStepB * (b + 1)};
          uint64_t rg = 0;
          uint32_t blue = 0;
          for (int k = 0; k < 4; ++k) {
            const uint8_t* point = &lattice[3 * size_t(corners[k])];
            rg |= uint64_t(point[0]) << (8 * k) | uint64_t(point[1]) << (8 * (k + 4));
            blue |= uint32_t(point[2]) << (8 * k);
          }
          t.rg[cell * 8 + code] = rg;
          t.b[cell * 8 + code] = blue;
        }
      }
  return t;
}

FixedPointParams makeFixedPointParams(const FusedParams& fused, const EffectChain& chain,
                                      const FixedPointTables& tables) {
  FixedPointParams p;
  if (!fused.hasLut || tables.rg.empty()) return p;
  const double strength = fused.strength;
  if (!(strength >= 0 && strength <= 1)) return p;
  // A strength within half a Q15 step of 1 is 1: 32768 does not fit the
  // 16-bit factor (it would wrap to -1 and mirror the look).
  const long q15Strength = std::lround(strength * 32768);
  p.blend = q15Strength < 32768;
  p.strength = int16_t(std::min(q15Strength, 32767L));
  p.rg = tables.rg.data();
  p.b = tables.b.data();
  if (fused.hasStyle) {
    const StyleEffect& s = chain.styles[0];
    // mulhrs(Q7 luma, K * kLumaToQ12) is K times the luma in 0..1, in Q12.
    constexpr double kLumaToQ12 = 4096.0 * 256.0 / 255.0;
    // Every factor must stay inside 16 bits: the gain below 2 and the
    // protection's slope and offset below 8 in Q12.
    if (!fits(s.valueScale, 0.999) || !fits(s.preserveK, 7.9) || !fits(s.preserveB, 7.9)) return p;
    p.hasStyle = true;
    p.protectA = toQ(s.preserveK * kLumaToQ12, 1.0);
    p.protectB = toQ(s.preserveB, 4096);
    p.knee = fused.knee;
    if (p.knee) {
      const double slope = -1.0 / s.preserveV, offset = s.preserveT / s.preserveV;
      if (!fits(slope, 7.9) || !fits(offset, 7.9)) return p;
      p.kneeA = toQ(slope * kLumaToQ12, 1.0);
      p.kneeB = toQ(offset, 4096);
    }
  }
  p.usable = true;
  return p;
}

size_t renderFixedPointRowPair(const FixedPointParams& fixed, const FusedParams& fused,
                               const YuvRowPair& rows, size_t pairs, RadialRows& radial) {
  if (!fixed.usable) return 0;
  return HWY_DYNAMIC_DISPATCH(FixedPointRowPair)(fixed, fused, rows, pairs, radial);
}

}  // namespace lumo::render
#endif  // HWY_ONCE
