// The vectorised LUT blend: branch-free loops over restrict pointers that
// the compiler turns into SIMD (SSE on x86-64, NEON on arm64; this file is
// built with the dynamic vectoriser cost model). Lane for lane the same
// arithmetic as the scalar loop: products and sums rounded separately, in the
// same order.
#include "lut_blend.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

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
    // NaN and everything at or below -2^31 become -2^31: INT32_MIN, whose
    // low byte (0) is also the low byte of the 0 that NaN stands for.
    v = (v > -2147483648.0f) ? v : -2147483648.0f;
    // Lanes at or past 2^31 saturate to INT32_MAX, low byte 0xFF; they are
    // zeroed before converting so that every conversion is in range.
    const bool high = v >= 2147483648.0f;
    const int32_t whole = static_cast<int32_t>(high ? 0.0f : v);
    out[p] = static_cast<uint8_t>(high ? 0xFF : whole);
  }
}

}  // namespace

// On x86-64 the kernel is also built for AVX2 (twice the lanes) and the
// loader picks the variant the CPU runs.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
void blendLutVector(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n) {
  const uint8_t* const* l = src.lut;
  const float* w = src.weight;
  switch (blendCase) {
    case 1:
      std::memcpy(out, l[0], n);
      break;
    case 2: {
      const float coef[4] = {w[0] + w[1], w[2], w[3], 0.0f};
      foldTerms<3>(l[0], l[2], l[3], l[3], coef, out, n);
      break;
    }
    case 3: {
      const float coef[4] = {w[0] + w[1], w[2] + w[3], 0.0f, 0.0f};
      foldTerms<2>(l[0], l[2], l[2], l[2], coef, out, n);
      break;
    }
    case 4:
      foldTerms<4>(l[0], l[1], l[2], l[3], w, out, n);
      break;
    case 5: {
      const float coef[4] = {w[0] + w[2], w[1], w[3], 0.0f};
      foldTerms<3>(l[0], l[1], l[3], l[3], coef, out, n);
      break;
    }
    case 6: {
      const float coef[4] = {w[0] + w[2], w[1] + w[3], 0.0f, 0.0f};
      foldTerms<2>(l[0], l[1], l[1], l[1], coef, out, n);
      break;
    }
    default:
      break;
  }
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
