// The vectorised LUT blend: plain loops over restrict pointers that the
// compiler turns into SIMD (SSE2 or AVX2 on x86-64, NEON on arm64; this file
// is built with the dynamic vectoriser cost model). The same loops are
// compiled twice on x86-64, once for the baseline and once for AVX2, and the
// CPU picks. Lane for lane they do the scalar loop's arithmetic: products
// and sums rounded separately, in the same order.
#include "lut_blend.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#define LUMO_LUT_BLEND_AVX2 1
#else
#define LUMO_LUT_BLEND_AVX2 0
#endif

namespace lumo {
namespace {

// out[p] = ((c0 L0[p] + c1 L1[p]) + c2 L2[p]) + c3 L3[p], on the first K
// terms, then lutByteFromFloat without branches. kClamp false is for
// coefficients that keep every sum well inside the int32 range, where the
// conversion needs no guard (see inRange).
template <int K, bool kClamp>
inline __attribute__((always_inline)) void foldTerms(const uint8_t* __restrict l0,
                                                     const uint8_t* __restrict l1,
                                                     const uint8_t* __restrict l2,
                                                     const uint8_t* __restrict l3, const float c[4],
                                                     uint8_t* __restrict out, size_t n) {
  const float c0 = c[0];
  const float c1 = c[1];
  const float c2 = c[2];
  const float c3 = c[3];
  for (size_t p = 0; p < n; p++) {
    float v = c0 * float(l0[p]) + c1 * float(l1[p]);
    if (K > 2) v = v + c2 * float(l2[p]);
    if (K > 3) v = v + c3 * float(l3[p]);
    if (kClamp) {
      // Only the low byte of the saturated int32 is kept, so out-of-range
      // lanes can be replaced by in-range values with the same low byte
      // before converting: NaN and everything at or below -2^31 by -2^31
      // (INT32_MIN and NaN's 0 both end in 0x00), everything at or above
      // 2^31 by 255 (INT32_MAX ends in 0xFF). The order matters: NaN must
      // meet the first.
      v = (v > -2147483648.0f) ? v : -2147483648.0f;
      v = (v < 2147483648.0f) ? v : 255.0f;
    }
    out[p] = static_cast<uint8_t>(static_cast<int32_t>(v));
  }
}

// True when no sum of K terms can leave (-2^31, 2^31): bytes are at most
// 255, and a bound of 2^30 leaves room for every rounding step. NaN and
// infinite coefficients fail the test.
template <int K>
bool inRange(const float c[4]) {
  double bound = 0;
  for (int k = 0; k < K; k++) bound += 255.0 * std::fabs(double(c[k]));
  return bound < 1073741824.0;
}

template <int K>
inline __attribute__((always_inline)) void fold(const uint8_t* l0, const uint8_t* l1,
                                                const uint8_t* l2, const uint8_t* l3,
                                                const float c[4], uint8_t* out, size_t n) {
  if (inRange<K>(c)) {
    foldTerms<K, false>(l0, l1, l2, l3, c, out, n);
  } else {
    foldTerms<K, true>(l0, l1, l2, l3, c, out, n);
  }
}

inline __attribute__((always_inline)) void blendCases(int blendCase, const LutBlendSources& src,
                                                      uint8_t* out, size_t n) {
  const uint8_t* const* l = src.lut;
  const float* w = src.weight;
  switch (blendCase) {
    case 1:
      std::memcpy(out, l[0], n);
      break;
    case 2: {
      const float coef[4] = {w[0] + w[1], w[2], w[3], 0.0f};
      fold<3>(l[0], l[2], l[3], l[3], coef, out, n);
      break;
    }
    case 3: {
      const float coef[4] = {w[0] + w[1], w[2] + w[3], 0.0f, 0.0f};
      fold<2>(l[0], l[2], l[2], l[2], coef, out, n);
      break;
    }
    case 4:
      fold<4>(l[0], l[1], l[2], l[3], w, out, n);
      break;
    case 5: {
      const float coef[4] = {w[0] + w[2], w[1], w[3], 0.0f};
      fold<3>(l[0], l[1], l[3], l[3], coef, out, n);
      break;
    }
    case 6: {
      const float coef[4] = {w[0] + w[2], w[1] + w[3], 0.0f, 0.0f};
      fold<2>(l[0], l[1], l[1], l[1], coef, out, n);
      break;
    }
    default:
      break;
  }
}

void blendBaseline(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n) {
  blendCases(blendCase, src, out, n);
}

#if LUMO_LUT_BLEND_AVX2
// The same loops in 256-bit registers.
__attribute__((target("avx2"))) void blendAvx2(int blendCase, const LutBlendSources& src,
                                               uint8_t* out, size_t n) {
  blendCases(blendCase, src, out, n);
}
#endif

}  // namespace

bool lutKernelAvailable(LutKernel kernel) {
  switch (kernel) {
    case LutKernel::kBaseline:
      return true;
    case LutKernel::kAvx2:
#if LUMO_LUT_BLEND_AVX2
      return __builtin_cpu_supports("avx2");
#else
      return false;
#endif
  }
  return false;
}

void blendLutVectorWith(LutKernel kernel, int blendCase, const LutBlendSources& src, uint8_t* out,
                        size_t n) {
#if LUMO_LUT_BLEND_AVX2
  if (kernel == LutKernel::kAvx2) {
    blendAvx2(blendCase, src, out, n);
    return;
  }
#endif
  (void)kernel;
  blendBaseline(blendCase, src, out, n);
}

void blendLutVector(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n) {
  static const LutKernel best =
      lutKernelAvailable(LutKernel::kAvx2) ? LutKernel::kAvx2 : LutKernel::kBaseline;
  blendLutVectorWith(best, blendCase, src, out, n);
}

bool lutBlendForcedScalar() {
  static const bool forced = [] {
    const char* value = std::getenv("LUMO_FORCE_SCALAR");
    return value != nullptr && std::strcmp(value, "1") == 0;
  }();
  return forced;
}

void blendLut(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n) {
  if (lutBlendForcedScalar()) {
    blendLutReference(blendCase, src, out, n);
  } else {
    blendLutVector(blendCase, src, out, n);
  }
}

}  // namespace lumo
