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
constexpr int16_t kQ7Max = 255 * 128;

HWY_INLINE V Set(int16_t v) { return _mm512_set1_epi16(v); }
HWY_INLINE V MulQ15(V a, V b) { return _mm512_mulhrs_epi16(a, b); }
HWY_INLINE V ClampQ7(V v) {
  return _mm512_min_epi16(_mm512_max_epi16(v, _mm512_setzero_si512()), Set(kQ7Max));
}

// Q7 colour to Q12 lattice units (x 16/255): r * 256 * 256/255, with
// 256/255 = 1 + 257/65536 to well within a unit; 255 saturates to the top of
// cell 15, one 4096th short of the last lattice point.
HWY_INLINE V LatticePosition(V q7) {
  const V q8 = _mm512_slli_epi16(q7, 1);
  return _mm512_adds_epu16(q8, _mm512_mulhi_epu16(q8, Set(257)));
}

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
// code to Q7.
HWY_INLINE V FinishDot(V group0, V group1) {
  const __m512 a = _mm512_castsi512_ps(group0), b = _mm512_castsi512_ps(group1);
  const V first = _mm512_castps_si512(_mm512_shuffle_ps(a, b, 0x88));
  const V second = _mm512_castps_si512(_mm512_shuffle_ps(a, b, 0xDD));
  return _mm512_srai_epi32(_mm512_add_epi32(_mm512_add_epi32(first, second), _mm512_set1_epi32(16)),
                           5);
}

// Tetrahedral look-up of 32 colours in Q7; returns the lattice colours in Q7.
HWY_INLINE Rgb16 Lookup(const Tables& t, const Rgb16& c) {
  const V xr = LatticePosition(c.r), xg = LatticePosition(c.g), xb = LatticePosition(c.b);
  const V fracMask = Set(0x0FFF);
  const V fr = _mm512_and_si512(xr, fracMask), fg = _mm512_and_si512(xg, fracMask),
          fb = _mm512_and_si512(xb, fracMask);
  const V cell =
      _mm512_or_si512(_mm512_srli_epi16(xr, 12),
                      _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi16(xg, 8), Set(0x00F0)),
                                      _mm512_and_si512(_mm512_srli_epi16(xb, 4), Set(0x0F00))));
  const __mmask32 rg = _mm512_cmpge_epi16_mask(fr, fg);
  const __mmask32 gb = _mm512_cmpge_epi16_mask(fg, fb);
  const __mmask32 rb = _mm512_cmpge_epi16_mask(fr, fb);
  // Tetrahedron numbers as the tables lay them out (see kTetSteps).
  const V redFirst = _mm512_mask_blend_epi16(gb, _mm512_mask_blend_epi16(rb, Set(2), Set(1)),
                                             _mm512_setzero_si512());
  const V greenFirst =
      _mm512_mask_blend_epi16(gb, Set(5), _mm512_mask_blend_epi16(rb, Set(4), Set(3)));
  const V tet = _mm512_mask_blend_epi16(rg, greenFirst, redFirst);
  const V index = _mm512_or_si512(_mm512_slli_epi16(cell, 3), tet);

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
  // packs undoes the 16-to-32-bit unpacking: the lanes come back in order.
  return {_mm512_packs_epi32(FinishDot(g0.r, g1.r), FinishDot(g2.r, g3.r)),
          _mm512_packs_epi32(FinishDot(g0.g, g1.g), FinishDot(g2.g, g3.g)),
          _mm512_packs_epi32(FinishDot(g0.b, g1.b), FinishDot(g2.b, g3.b))};
}

struct Output {
  V luma;     // Q6, gain applied
  Rgb16 rgb;  // Q6, gain applied
};

// One vector of pixels: Q7 luma plus the chroma offsets, through the chain.
HWY_INLINE Output Pixels(const FixedPointParams& p, const Tables& t, V y, const Rgb16& offsets,
                         V radial) {
  const Rgb16 in{ClampQ7(_mm512_adds_epi16(y, offsets.r)), ClampQ7(_mm512_adds_epi16(y, offsets.g)),
                 ClampQ7(_mm512_adds_epi16(y, offsets.b))};
  Rgb16 c = Lookup(t, in);
  if (p.blend) {
    const V s = Set(p.strength);
    c.r = _mm512_add_epi16(in.r, MulQ15(_mm512_sub_epi16(c.r, in.r), s));
    c.g = _mm512_add_epi16(in.g, MulQ15(_mm512_sub_epi16(c.g, in.g), s));
    c.b = _mm512_add_epi16(in.b, MulQ15(_mm512_sub_epi16(c.b, in.b), s));
  }
  const V luma = _mm512_add_epi16(
      MulQ15(c.r, Set(q15(kRToY))),
      _mm512_add_epi16(MulQ15(c.g, Set(q15(kGToY))), MulQ15(c.b, Set(q15(kBToY)))));
  // Half the gain in Q15, so that a Q7 colour times it is the output in Q6.
  V halfGain = Set(16384);
  if (p.hasStyle) {
    const V top = Set(4095), zero = _mm512_setzero_si512();
    const V protect = _mm512_min_epi16(
        _mm512_max_epi16(_mm512_adds_epi16(MulQ15(luma, Set(p.protectA)), Set(p.protectB)), zero),
        top);
    V weight = _mm512_slli_epi16(protect, 2);  // Q14
    if (p.knee) {
      const V knee = _mm512_min_epi16(
          _mm512_max_epi16(_mm512_adds_epi16(MulQ15(luma, Set(p.kneeA)), Set(p.kneeB)), zero), top);
      weight = MulQ15(_mm512_slli_epi16(protect, 3), _mm512_slli_epi16(knee, 2));
    }
    halfGain = _mm512_add_epi16(halfGain, MulQ15(radial, weight));
  }
  return {MulQ15(luma, halfGain),
          {MulQ15(c.r, halfGain), MulQ15(c.g, halfGain), MulQ15(c.b, halfGain)}};
}

// Q6 to a byte, rounded half up; inputs are never negative.
HWY_INLINE V ToByte(V q6) { return _mm512_min_epi16(MulQ15(q6, Set(512)), Set(255)); }

HWY_INLINE V JoinBytes(V low, V high) { return _mm512_or_si512(low, _mm512_slli_epi16(high, 8)); }

HWY_INLINE Rgb16 Average(const Rgb16& a, const Rgb16& b) {
  return {_mm512_avg_epu16(a.r, b.r), _mm512_avg_epu16(a.g, b.g), _mm512_avg_epu16(a.b, b.b)};
}

// Renders one luma row of 32 column pairs; returns the mean output colour
// of its two pixels per column (Q6).
HWY_INLINE Rgb16 Row(const FixedPointParams& p, const Tables& t, const uint8_t* in, uint8_t* out,
                     const Rgb16& offsets, const int16_t* radialEven, const int16_t* radialOdd) {
  const V pixels = _mm512_loadu_si512(in);
  const V mask = Set(0x7F80);
  const V even = _mm512_and_si512(_mm512_slli_epi16(pixels, 7), mask);
  const V odd = _mm512_and_si512(_mm512_srli_epi16(pixels, 1), mask);
  V radialE = _mm512_setzero_si512(), radialO = _mm512_setzero_si512();
  if (p.hasStyle) {
    radialE = _mm512_loadu_si512(radialEven);
    radialO = _mm512_loadu_si512(radialOdd);
  }
  const Output e = Pixels(p, t, even, offsets, radialE);
  const Output o = Pixels(p, t, odd, offsets, radialO);
  _mm512_storeu_si512(out, JoinBytes(ToByte(e.luma), ToByte(o.luma)));
  return Average(e.rgb, o.rgb);
}

// Chroma (0..255) of a mean Q6 colour.
HWY_INLINE V Chroma(const Rgb16& m, double kr, double kg, double kb) {
  const V q6 = _mm512_add_epi16(
      Set(128 * 64),
      _mm512_add_epi16(MulQ15(m.r, Set(q15(kr))),
                       _mm512_add_epi16(MulQ15(m.g, Set(q15(kg))), MulQ15(m.b, Set(q15(kb))))));
  return _mm512_max_epi16(ToByte(q6), _mm512_setzero_si512());
}

// The style's radial factor (value scale times the smoothstep of the
// distance) in Q15 for the even and odd pixels of `columns` column pairs.
void RadialRow(const FusedParams& p, float dy2, size_t columns, int16_t* even, int16_t* odd) {
  const __m512 lanes2 = _mm512_mul_ps(
      _mm512_setr_ps(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15), _mm512_set1_ps(2.0f));
  const __m512 zero = _mm512_setzero_ps(), one = _mm512_set1_ps(1.0f);
  const __m512 scale = _mm512_set1_ps(p.valueScale * 32768.0f);
  for (size_t c = 0; c < columns; c += 16) {
    for (int parity = 0; parity < 2; ++parity) {
      const __m512 x = _mm512_add_ps(lanes2, _mm512_set1_ps(float(2 * c + parity)));
      const __m512 dx = _mm512_fmadd_ps(_mm512_set1_ps(p.ax), x, _mm512_set1_ps(p.bx));
      const __m512 d = _mm512_sqrt_ps(_mm512_fmadd_ps(dx, dx, _mm512_set1_ps(dy2)));
      __m512 f;
      if (p.hardStep) {
        const __mmask16 past = _mm512_cmp_ps_mask(_mm512_mul_ps(d, _mm512_set1_ps(p.coordScale)),
                                                  _mm512_set1_ps(p.smoothStart), _CMP_GE_OQ);
        f = _mm512_maskz_mov_ps(past, one);
      } else {
        const __m512 s = _mm512_min_ps(_mm512_max_ps(_mm512_fmadd_ps(d, _mm512_set1_ps(p.stepScale),
                                                                     _mm512_set1_ps(p.stepOffset)),
                                                     zero),
                                       one);
        f = _mm512_mul_ps(_mm512_mul_ps(s, s),
                          _mm512_fnmadd_ps(_mm512_set1_ps(2.0f), s, _mm512_set1_ps(3.0f)));
      }
      const __m512i q = _mm512_cvtps_epi32(_mm512_mul_ps(f, scale));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>((parity == 0 ? even : odd) + c),
                          _mm512_cvtsepi32_epi16(q));
    }
  }
}

size_t FixedPointRowPair(const FixedPointParams& fixed, const FusedParams& fused,
                         const YuvRowPair& rows, size_t pairs) {
  constexpr size_t kLanes = 32;
  const size_t columns = pairs / kLanes * kLanes;
  if (columns == 0) return 0;
  const FixedPointParams p = fixed;
  const YuvRowPair r = rows;
  const Tables t{p.rg, p.b};
  const bool paired = r.y[1] != nullptr;
  // Radial factors of both rows, padded to whole 16-column steps.
  thread_local std::vector<int16_t> radial;
  const int16_t* radialRows[2][2] = {};
  if (p.hasStyle) {
    radial.resize(4 * columns);
    for (int row = 0; row < (paired ? 2 : 1); ++row) {
      int16_t* even = radial.data() + 2 * row * columns;
      RadialRow(fused, r.dy2[row], columns, even, even + columns);
      radialRows[row][0] = even;
      radialRows[row][1] = even + columns;
    }
  }
  const V centre = Set(int16_t(0x8000)), highByte = Set(int16_t(0xFF00));
  for (size_t x = 0; x < columns; x += kLanes) {
    // Chroma centred and scaled by 256: (byte - 128) << 8.
    const V pairsIn = _mm512_loadu_si512(r.chroma + 2 * x);
    const V first = _mm512_xor_si512(_mm512_slli_epi16(pairsIn, 8), centre);
    const V second = _mm512_xor_si512(_mm512_and_si512(pairsIn, highByte), centre);
    const V u = r.inCrFirst ? second : first, v = r.inCrFirst ? first : second;
    // Offsets in Q7; each Q15 factor is half the coefficient (x 256 / 128).
    const Rgb16 offsets{
        MulQ15(v, Set(q15(kCrToR / 2))),
        _mm512_add_epi16(MulQ15(u, Set(q15(kCbToG / 2))), MulQ15(v, Set(q15(kCrToG / 2)))),
        MulQ15(u, Set(q15(kCbToB / 2)))};
    const auto radialAt = [&](int row, int parity) {
      return p.hasStyle ? radialRows[row][parity] + x : nullptr;
    };
    Rgb16 mean =
        Row(p, t, r.y[0] + 2 * x, r.outY[0] + 2 * x, offsets, radialAt(0, 0), radialAt(0, 1));
    if (paired) {
      const Rgb16 second =
          Row(p, t, r.y[1] + 2 * x, r.outY[1] + 2 * x, offsets, radialAt(1, 0), radialAt(1, 1));
      mean = Average(mean, second);
    }
    const V cb = Chroma(mean, kRToCb, kGToCb, kBToCb);
    const V cr = Chroma(mean, kRToCr, kGToCr, kBToCr);
    _mm512_storeu_si512(r.outChroma + 2 * x, r.outCrFirst ? JoinBytes(cr, cb) : JoinBytes(cb, cr));
  }
  return columns;
}

#else

size_t FixedPointRowPair(const FixedPointParams&, const FusedParams&, const YuvRowPair&, size_t) {
  return 0;
}

#endif

}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace lumo::render {

HWY_EXPORT(FixedPointRowPair);

namespace {

constexpr int kStepG = kLutSize, kStepB = kLutSize * kLutSize;
// Tetrahedron t walks from the low corner through these two corners (as
// steps along r, g, b) to the high corner; the same numbering as the fused
// kernels' tables and masks.
constexpr int kTetSteps[6][2][3] = {
    {{1, 0, 0}, {1, 1, 0}},  // r >= g >= b
    {{1, 0, 0}, {1, 0, 1}},  // r >= b > g
    {{0, 0, 1}, {1, 0, 1}},  // b > r >= g
    {{0, 1, 0}, {1, 1, 0}},  // g > r >= b
    {{0, 1, 0}, {0, 1, 1}},  // g >= b > r
    {{0, 0, 1}, {0, 1, 1}},  // b > g > r
};

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
        for (int tet = 0; tet < 6; ++tet) {
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
          t.rg[cell * 8 + tet] = rg;
          t.b[cell * 8 + tet] = blue;
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
                               const YuvRowPair& rows, size_t pairs) {
  if (!fixed.usable) return 0;
  return HWY_DYNAMIC_DISPATCH(FixedPointRowPair)(fixed, fused, rows, pairs);
}

}  // namespace lumo::render
#endif  // HWY_ONCE
