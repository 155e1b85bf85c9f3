// The vectorised LUT blend. The baseline is branch-free loops over restrict
// pointers that the compiler turns into SIMD (SSE2 on x86-64, NEON on arm64;
// this file is built with the dynamic vectoriser cost model); on x86-64 an
// AVX2 kernel written with the compiler's intrinsics does 32 bytes a step.
// Lane for lane both do the scalar loop's arithmetic: products and sums
// rounded separately, in the same order.
#include "lut_blend.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#define LUMO_LUT_BLEND_AVX2 1
#include <immintrin.h>
#else
#define LUMO_LUT_BLEND_AVX2 0
#endif

namespace lumo {
namespace {

// out[p] = ((c0 L0[p] + c1 L1[p]) + c2 L2[p]) + c3 L3[p], on the first K
// terms, then lutByteFromFloat without branches.
template <int K>
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
    // Only the low byte of the saturated int32 is kept, so out-of-range
    // lanes can be replaced by in-range values with the same low byte before
    // converting: NaN and everything at or below -2^31 by -2^31 (INT32_MIN
    // and NaN's 0 both end in 0x00), everything at or above 2^31 by 255
    // (INT32_MAX ends in 0xFF). The order matters: NaN must meet the first.
    v = (v > -2147483648.0f) ? v : -2147483648.0f;
    v = (v < 2147483648.0f) ? v : 255.0f;
    out[p] = static_cast<uint8_t>(static_cast<int32_t>(v));
  }
}

#if LUMO_LUT_BLEND_AVX2
// Eight LUT bytes as floats.
__attribute__((target("avx2"), always_inline)) inline __m256 loadLanes(const uint8_t* p) {
  return _mm256_cvtepi32_ps(
      _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}

// foldTerms on whole 32-byte steps; returns how many bytes it wrote.
template <int K>
__attribute__((target("avx2"))) size_t foldTermsAvx2(const uint8_t* l0, const uint8_t* l1,
                                                     const uint8_t* l2, const uint8_t* l3,
                                                     const float c[4], uint8_t* out, size_t n) {
  const __m256 c0 = _mm256_set1_ps(c[0]);
  const __m256 c1 = _mm256_set1_ps(c[1]);
  const __m256 c2 = _mm256_set1_ps(c[2]);
  const __m256 c3 = _mm256_set1_ps(c[3]);
  // The same in-range replacements as in foldTerms.
  const __m256 low = _mm256_set1_ps(-2147483648.0f);
  const __m256 high = _mm256_set1_ps(2147483648.0f);
  const __m256 allOnes = _mm256_set1_ps(255.0f);
  const __m256i lowByte = _mm256_set1_epi32(0xFF);
  // packus works within 128-bit halves; this puts the four groups back in order.
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  size_t p = 0;
  for (; p + 32 <= n; p += 32) {
    __m256i word[4];
    for (size_t q = 0; q < 4; q++) {
      const size_t o = p + 8 * q;
      __m256 v =
          _mm256_add_ps(_mm256_mul_ps(c0, loadLanes(l0 + o)), _mm256_mul_ps(c1, loadLanes(l1 + o)));
      if (K > 2) v = _mm256_add_ps(v, _mm256_mul_ps(c2, loadLanes(l2 + o)));
      if (K > 3) v = _mm256_add_ps(v, _mm256_mul_ps(c3, loadLanes(l3 + o)));
      v = _mm256_blendv_ps(low, v, _mm256_cmp_ps(v, low, _CMP_GT_OQ));
      v = _mm256_blendv_ps(allOnes, v, _mm256_cmp_ps(v, high, _CMP_LT_OQ));
      word[q] = _mm256_and_si256(_mm256_cvttps_epi32(v), lowByte);
    }
    const __m256i halves = _mm256_packus_epi16(_mm256_packus_epi32(word[0], word[1]),
                                               _mm256_packus_epi32(word[2], word[3]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + p),
                        _mm256_permutevar8x32_epi32(halves, order));
  }
  return p;
}
#endif

// One fold: the AVX2 steps when asked for, the portable loop for the rest.
template <int K, bool kAvx2>
inline __attribute__((always_inline)) void fold(const uint8_t* l0, const uint8_t* l1,
                                                const uint8_t* l2, const uint8_t* l3,
                                                const float c[4], uint8_t* out, size_t n) {
  size_t done = 0;
#if LUMO_LUT_BLEND_AVX2
  if constexpr (kAvx2) done = foldTermsAvx2<K>(l0, l1, l2, l3, c, out, n);
#endif
  foldTerms<K>(l0 + done, l1 + done, l2 + done, l3 + done, c, out + done, n - done);
}

template <bool kAvx2>
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
      fold<3, kAvx2>(l[0], l[2], l[3], l[3], coef, out, n);
      break;
    }
    case 3: {
      const float coef[4] = {w[0] + w[1], w[2] + w[3], 0.0f, 0.0f};
      fold<2, kAvx2>(l[0], l[2], l[2], l[2], coef, out, n);
      break;
    }
    case 4:
      fold<4, kAvx2>(l[0], l[1], l[2], l[3], w, out, n);
      break;
    case 5: {
      const float coef[4] = {w[0] + w[2], w[1], w[3], 0.0f};
      fold<3, kAvx2>(l[0], l[1], l[3], l[3], coef, out, n);
      break;
    }
    case 6: {
      const float coef[4] = {w[0] + w[2], w[1] + w[3], 0.0f, 0.0f};
      fold<2, kAvx2>(l[0], l[1], l[1], l[1], coef, out, n);
      break;
    }
    default:
      break;
  }
}

void blendBaseline(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n) {
  blendCases<false>(blendCase, src, out, n);
}

#if LUMO_LUT_BLEND_AVX2
__attribute__((target("avx2"))) void blendAvx2(int blendCase, const LutBlendSources& src,
                                               uint8_t* out, size_t n) {
  blendCases<true>(blendCase, src, out, n);
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
