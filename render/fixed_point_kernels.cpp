// 16-bit fixed-point kernel for 4:2:0 frames. Each 16-bit lane is one chroma
// column; its even and odd pixels on both rows share the chroma offsets.
// Written for AVX-512 (byte shuffles, 64-bit gathers, 16-bit multiplies on
// 32 lanes); other instruction sets report no columns done.
#include "fixed_point_kernels.h"

#include <algorithm>
#include <cmath>

#include "color_math.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "fixed_point_kernels.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace lumo::render {
namespace HWY_NAMESPACE {

#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL

using V = __m512i;

// Q15 constants: mulhrs(x, k) is x * k / 32768 rounded half up.
constexpr int16_t q15(double v) { return int16_t(v * 32768.0 + (v < 0 ? -0.5 : 0.5)); }

HWY_INLINE V Set(int16_t v) { return _mm512_set1_epi16(v); }
HWY_INLINE V MulQ15(V a, V b) { return _mm512_mulhrs_epi16(a, b); }

// Lattice positions are Q12 lattice units, code value x 16/255 x 4096, in
// unsigned 16 bits: 255 saturates to the top of cell 15, one 4096th short of
// the last lattice point.

// A luma byte moved to the high byte (Y << 8) to its lattice position:
// Y * 256 * 256/255, with 256/255 = 1 + 257/65536 to well within a unit.
HWY_INLINE V LumaPosition(V y8) { return _mm512_add_epi16(y8, _mm512_mulhi_epu16(y8, Set(257))); }

// A chroma offset as the two saturating steps that add it to a position and
// clamp the sum to the lattice, which is the clamp of the colour to 0..255.
struct Offset {
  V up, down;
};

// From the offset at half scale (signed, so that it fits 16 bits).
HWY_INLINE Offset SplitOffset(V half) {
  const V zero = _mm512_setzero_si512();
  return {_mm512_slli_epi16(_mm512_max_epi16(half, zero), 1),
          _mm512_slli_epi16(_mm512_max_epi16(_mm512_sub_epi16(zero, half), zero), 1)};
}

HWY_INLINE V Position(V luma, const Offset& o) {
  return _mm512_subs_epu16(_mm512_adds_epu16(luma, o.up), o.down);
}

// A lattice position back to a Q7 colour: x 255/(16 * 4096) x 128.
HWY_INLINE V PositionToQ7(V x) { return _mm512_mulhi_epu16(x, Set(int16_t(32640))); }

struct Rgb16 {
  V r, g, b;
};

struct Tables {
  const uint64_t* rg;
  const uint64_t* b;
};

// Dot products of one group of 8 pixels (64-bit lanes): corners per channel
// widened to 16 bits against the four weights, leaving c0 w0 + c1 w1 and
// c2 w2 + c3 w3 in the two halves of each lane.
struct GroupSums {
  V r, g, b;
};

HWY_INLINE GroupSums GroupDot(const Tables& t, V index, V weights) {
  // Bytes 0-3 (red, or blue in the second table) and 4-7 (green) of each
  // 64-bit lane, zero-extended to 16 bits.
  const V low = _mm512_set_epi64(0x800b800a80098008, 0x8003800280018000, 0x800b800a80098008,
                                 0x8003800280018000, 0x800b800a80098008, 0x8003800280018000,
                                 0x800b800a80098008, 0x8003800280018000);
  const V high = _mm512_set_epi64(0x800f800e800d800c, 0x8007800680058004, 0x800f800e800d800c,
                                  0x8007800680058004, 0x800f800e800d800c, 0x8007800680058004,
                                  0x800f800e800d800c, 0x8007800680058004);
  const V rg = _mm512_i64gather_epi64(index, t.rg, 8);
  const V b = _mm512_i64gather_epi64(index, t.b, 8);
  return {_mm512_madd_epi16(_mm512_shuffle_epi8(rg, low), weights),
          _mm512_madd_epi16(_mm512_shuffle_epi8(rg, high), weights),
          _mm512_madd_epi16(_mm512_shuffle_epi8(b, low), weights)};
}

// Adds the two halves of the dot products of groups 0 and 1 (32-bit lanes
// back in the order of the 16-bit lanes they came from) and scales Q12 x
// code to Q8.
HWY_INLINE V FinishDot(V group0, V group1) {
  const __m512 a = _mm512_castsi512_ps(group0), b = _mm512_castsi512_ps(group1);
  const V first = _mm512_castps_si512(_mm512_shuffle_ps(a, b, 0x88));
  const V second = _mm512_castps_si512(_mm512_shuffle_ps(a, b, 0xDD));
  return _mm512_srli_epi32(_mm512_add_epi32(first, second), 4);
}

// Packs two halves of Q8 results (unsigned, up to 65280) back into the
// 16-bit lane order they were unpacked from (packus undoes the unpacking)
// and rounds them to Q7: avg(x, 0) is (x + 1) / 2.
HWY_INLINE V PackQ7(V low, V high) {
  return _mm512_avg_epu16(_mm512_packus_epi32(low, high), _mm512_setzero_si512());
}

// Tetrahedral look-up of 32 lattice positions; returns the colours in Q7.
HWY_INLINE Rgb16 Lookup(const Tables& t, V xr, V xg, V xb) {
  const V fracMask = Set(0x0FFF);
  const V fr = _mm512_and_si512(xr, fracMask), fg = _mm512_and_si512(xg, fracMask),
          fb = _mm512_and_si512(xb, fracMask);
  // Entry cell * 8 + code, where the code's bits say r >= g, g >= b and
  // r >= b: six of the eight codes occur, one per tetrahedron.
  const V cell8 =
      _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi16(xr, 9), Set(0x0078)),
                      _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi16(xg, 5), Set(0x0780)),
                                      _mm512_and_si512(_mm512_srli_epi16(xb, 1), Set(0x7800))));
  V index = _mm512_mask_add_epi16(cell8, _mm512_cmpge_epi16_mask(fr, fg), cell8, Set(1));
  index = _mm512_mask_add_epi16(index, _mm512_cmpge_epi16_mask(fg, fb), index, Set(2));
  index = _mm512_mask_add_epi16(index, _mm512_cmpge_epi16_mask(fr, fb), index, Set(4));

  const V fmax = _mm512_max_epi16(fr, _mm512_max_epi16(fg, fb));
  const V fmin = _mm512_min_epi16(fr, _mm512_min_epi16(fg, fb));
  const V fmid =
      _mm512_max_epi16(_mm512_min_epi16(fr, fg), _mm512_min_epi16(_mm512_max_epi16(fr, fg), fb));
  const V w0 = _mm512_sub_epi16(Set(4096), fmax), w1 = _mm512_sub_epi16(fmax, fmid),
          w2 = _mm512_sub_epi16(fmid, fmin);
  const V w01Low = _mm512_unpacklo_epi16(w0, w1), w01High = _mm512_unpackhi_epi16(w0, w1);
  const V w23Low = _mm512_unpacklo_epi16(w2, fmin), w23High = _mm512_unpackhi_epi16(w2, fmin);
  const V zero = _mm512_setzero_si512();
  const V indexLow = _mm512_unpacklo_epi16(index, zero),
          indexHigh = _mm512_unpackhi_epi16(index, zero);

  // Groups: 16-bit lanes 8j+0,1 / 8j+2,3 / 8j+4,5 / 8j+6,7 of each block j.
  const GroupSums g0 =
      GroupDot(t, _mm512_unpacklo_epi32(indexLow, zero), _mm512_unpacklo_epi32(w01Low, w23Low));
  const GroupSums g1 =
      GroupDot(t, _mm512_unpackhi_epi32(indexLow, zero), _mm512_unpackhi_epi32(w01Low, w23Low));
  const GroupSums g2 =
      GroupDot(t, _mm512_unpacklo_epi32(indexHigh, zero), _mm512_unpacklo_epi32(w01High, w23High));
  const GroupSums g3 =
      GroupDot(t, _mm512_unpackhi_epi32(indexHigh, zero), _mm512_unpackhi_epi32(w01High, w23High));
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

struct Output {
  V luma;     // gain applied
  Rgb16 rgb;  // gain applied
};

// One vector of pixels: Q7 luma plus the chroma offsets, through the chain.
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
    c.r = _mm512_add_epi16(in.r, MulQ15(_mm512_sub_epi16(c.r, in.r), s));
    c.g = _mm512_add_epi16(in.g, MulQ15(_mm512_sub_epi16(c.g, in.g), s));
    c.b = _mm512_add_epi16(in.b, MulQ15(_mm512_sub_epi16(c.b, in.b), s));
  }
  const V luma = _mm512_add_epi16(
      MulQ15(c.r, Set(q15(kRToY))),
      _mm512_add_epi16(MulQ15(c.g, Set(q15(kGToY))), MulQ15(c.b, Set(q15(kBToY)))));
  if (!kStyle) return {luma, c};
  // Half the gain in Q15, so that a Q7 colour times it is the output in Q6.
  V halfGain = Set(16384);
  {
    const V top = Set(4095), zero = _mm512_setzero_si512();
    const V protect = _mm512_min_epi16(
        _mm512_max_epi16(_mm512_adds_epi16(MulQ15(luma, Set(p.protectA)), Set(p.protectB)), zero),
        top);
    V weight = _mm512_slli_epi16(protect, 2);  // Q14
    if (kKnee) {
      const V knee = _mm512_min_epi16(
          _mm512_max_epi16(_mm512_adds_epi16(MulQ15(luma, Set(p.kneeA)), Set(p.kneeB)), zero), top);
      weight = MulQ15(_mm512_slli_epi16(protect, 3), _mm512_slli_epi16(knee, 2));
    }
    halfGain = _mm512_add_epi16(halfGain, MulQ15(radial, weight));
  }
  return {MulQ15(luma, halfGain),
          {MulQ15(c.r, halfGain), MulQ15(c.g, halfGain), MulQ15(c.b, halfGain)}};
}

// An output value to a byte, rounded half up; inputs are never negative.
template <bool kStyle>
HWY_INLINE V ToByte(V v) {
  return _mm512_min_epi16(MulQ15(v, Set(int16_t(1 << (15 - kOutputShift<kStyle>)))), Set(255));
}

HWY_INLINE V JoinBytes(V low, V high) { return _mm512_or_si512(low, _mm512_slli_epi16(high, 8)); }

HWY_INLINE Rgb16 Average(const Rgb16& a, const Rgb16& b) {
  return {_mm512_avg_epu16(a.r, b.r), _mm512_avg_epu16(a.g, b.g), _mm512_avg_epu16(a.b, b.b)};
}

// Renders one luma row of 32 column pairs; returns the mean output colour
// of its two pixels per column.
template <bool kBlend, bool kStyle, bool kKnee>
HWY_INLINE Rgb16 Row(const FixedPointParams& p, const Tables& t, const uint8_t* in, uint8_t* out,
                     const Offsets& offsets, const int16_t* radialEven, const int16_t* radialOdd) {
  const V pixels = _mm512_loadu_si512(in);
  const V even = _mm512_slli_epi16(pixels, 8);
  const V odd = _mm512_and_si512(pixels, Set(int16_t(0xFF00)));
  V radialE = _mm512_setzero_si512(), radialO = _mm512_setzero_si512();
  if (kStyle) {
    radialE = _mm512_loadu_si512(radialEven);
    radialO = _mm512_loadu_si512(radialOdd);
  }
  const Output e = Pixels<kBlend, kStyle, kKnee>(p, t, even, offsets, radialE);
  const Output o = Pixels<kBlend, kStyle, kKnee>(p, t, odd, offsets, radialO);
  _mm512_storeu_si512(out, JoinBytes(ToByte<kStyle>(e.luma), ToByte<kStyle>(o.luma)));
  return Average(e.rgb, o.rgb);
}

// Chroma (0..255) of a mean output colour.
template <bool kStyle>
HWY_INLINE V Chroma(const Rgb16& m, double kr, double kg, double kb) {
  const V v = _mm512_add_epi16(
      Set(int16_t(128 << kOutputShift<kStyle>)),
      _mm512_add_epi16(MulQ15(m.r, Set(q15(kr))),
                       _mm512_add_epi16(MulQ15(m.g, Set(q15(kg))), MulQ15(m.b, Set(q15(kb))))));
  return _mm512_max_epi16(ToByte<kStyle>(v), _mm512_setzero_si512());
}

// The style's radial factor (value scale times the smoothstep of the
// distance) in Q15 at pixels x0, x0 + 2, ... for `count` pixels (a multiple of 16).
void RadialSamples(const FusedParams& p, float dy2, size_t x0, size_t count, int16_t* out) {
  const __m512 lanes2 = _mm512_mul_ps(
      _mm512_setr_ps(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15), _mm512_set1_ps(2.0f));
  const __m512 zero = _mm512_setzero_ps(), one = _mm512_set1_ps(1.0f);
  const __m512 half = _mm512_set1_ps(0.5f), three = _mm512_set1_ps(3.0f);
  const __m512 scale = _mm512_set1_ps(p.valueScale * 32768.0f);
  for (size_t i = 0; i < count; i += 16) {
    const __m512 x = _mm512_add_ps(lanes2, _mm512_set1_ps(float(x0 + 2 * i)));
    const __m512 dx = _mm512_fmadd_ps(_mm512_set1_ps(p.ax), x, _mm512_set1_ps(p.bx));
    const __m512 d2 = _mm512_fmadd_ps(dx, dx, _mm512_set1_ps(dy2));
    // sqrt as d2 * rsqrt(d2) with one Newton step: well inside the Q15
    // result's resolution and several times the throughput of a divide-unit
    // square root. d2 = 0 (the exact centre) gives 0 * inf: masked to 0.
    const __m512 y0 = _mm512_rsqrt14_ps(d2);
    const __m512 y1 =
        _mm512_mul_ps(_mm512_mul_ps(half, y0), _mm512_fnmadd_ps(_mm512_mul_ps(d2, y0), y0, three));
    const __m512 d = _mm512_maskz_mul_ps(_mm512_cmp_ps_mask(d2, zero, _CMP_GT_OQ), d2, y1);
    __m512 f;
    if (p.hardStep) {
      const __mmask16 past = _mm512_cmp_ps_mask(_mm512_mul_ps(d, _mm512_set1_ps(p.coordScale)),
                                                _mm512_set1_ps(p.smoothStart), _CMP_GE_OQ);
      f = _mm512_maskz_mov_ps(past, one);
    } else {
      const __m512 s = _mm512_min_ps(
          _mm512_max_ps(
              _mm512_fmadd_ps(d, _mm512_set1_ps(p.stepScale), _mm512_set1_ps(p.stepOffset)), zero),
          one);
      f = _mm512_mul_ps(_mm512_mul_ps(s, s), _mm512_fnmadd_ps(_mm512_set1_ps(2.0f), s, three));
    }
    const __m512i q = _mm512_cvtps_epi32(_mm512_mul_ps(f, scale));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm512_cvtsepi32_epi16(q));
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
  const V reverse = _mm512_set_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17,
                                     18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
  // odd[k] = even[pairs - 1 - k]
  for (size_t k = 0; k < columns; k += 32) {
    const V source = _mm512_loadu_si512(even + (pairs - 32 - k));
    _mm512_storeu_si512(odd + k, _mm512_permutexvar_epi16(reverse, source));
  }
}

template <bool kBlend, bool kStyle, bool kKnee>
size_t FixedPointRows(const FixedPointParams& fixed, const FusedParams& fused,
                      const YuvRowPair& rows, size_t pairs, RadialRows& radial) {
  constexpr size_t kLanes = 32;
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
    const V pairsIn = _mm512_loadu_si512(r.chroma + 2 * x);
    const V first = _mm512_xor_si512(_mm512_slli_epi16(pairsIn, 8), centre);
    const V second = _mm512_xor_si512(_mm512_and_si512(pairsIn, highByte), centre);
    const V u = r.inCrFirst ? second : first, v = r.inCrFirst ? first : second;
    // Offsets in lattice units at half scale: (byte - 128) * 256 times the
    // coefficient times 128/255.
    constexpr double kHalf = 128.0 / 255.0;
    const Offsets offsets{SplitOffset(MulQ15(v, Set(q15(kCrToR * kHalf)))),
                          SplitOffset(_mm512_add_epi16(MulQ15(u, Set(q15(kCbToG * kHalf))),
                                                       MulQ15(v, Set(q15(kCrToG * kHalf))))),
                          SplitOffset(MulQ15(u, Set(q15(kCbToB * kHalf))))};
    const auto radialAt = [&](int row, int parity) {
      return kStyle ? radialRows[row][parity] + x : nullptr;
    };
    Rgb16 mean = Row<kBlend, kStyle, kKnee>(p, t, r.y[0] + 2 * x, r.outY[0] + 2 * x, offsets,
                                            radialAt(0, 0), radialAt(0, 1));
    if (paired) {
      const Rgb16 second = Row<kBlend, kStyle, kKnee>(p, t, r.y[1] + 2 * x, r.outY[1] + 2 * x,
                                                      offsets, radialAt(1, 0), radialAt(1, 1));
      mean = Average(mean, second);
    }
    const V cb = Chroma<kStyle>(mean, kRToCb, kGToCb, kBToCb);
    const V cr = Chroma<kStyle>(mean, kRToCr, kGToCr, kBToCr);
    _mm512_storeu_si512(r.outChroma + 2 * x, r.outCrFirst ? JoinBytes(cr, cb) : JoinBytes(cb, cr));
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
  t.b.resize(t.rg.size());
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
          uint64_t rg = 0, blue = 0;
          for (int k = 0; k < 4; ++k) {
            const uint8_t* point = &lattice[3 * size_t(corners[k])];
            rg |= uint64_t(point[0]) << (8 * k) | uint64_t(point[1]) << (8 * (k + 4));
            blue |= uint64_t(point[2]) << (8 * k);
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
  p.blend = strength < 1;
  p.strength = toQ(strength, 32768);
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
