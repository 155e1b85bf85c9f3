// Byte-wise blend of up to four stored 3D LUTs: a vectorised kernel and the
// plain scalar loop it must match bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumo {

// The four LUT indices name the corners of the lux/CCT cell in the order
// lower-lux/lower-CCT (a), lower/upper (b), upper/lower (c), upper/upper (d).
// The cases read a LUT that occurs twice only once, its weights summed:
//   1: a = b = c = d             copy of LUT a
//   2: a = b, c != d             ((wA + wB) La + wC Lc) + wD Ld
//   3: a = b, c = d              (wA + wB) La + (wC + wD) Lc
//   4: a != b, a != c            ((wA La + wB Lb) + wC Lc) + wD Ld
//   5: a != b, a = c, b != d     ((wA + wC) La + wB Lb) + wD Ld
//   6: a != b, a = c, b = d      (wA + wC) La + (wB + wD) Lb
int lutBlendCase(uint16_t a, uint16_t b, uint16_t c, uint16_t d);

// LUT blocks and weights of the corners a, b, c, d.
struct LutBlendSources {
  const uint8_t* lut[4];
  float weight[4];
};

// Float to LUT byte: truncate toward zero to int32 (NaN gives 0, values
// past the int32 range saturate), then keep the low 8 bits. No rounding and
// no clamping to 0..255: 255.9 gives 255, 256.5 gives 0, -1.5 gives 255.
uint8_t lutByteFromFloat(float value);

// Writes n bytes of the blend of `blendCase` into out. Every product and sum
// is rounded on its own, left to right as in the table above.
void blendLutReference(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n);
void blendLutVector(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n);

// The vector kernels: the compiler-vectorised loops for the baseline (SSE2,
// NEON) and, on x86-64, the same loops for AVX2. blendLutVector uses the
// best one the CPU runs; tests and benchmarks run each one that is available.
enum class LutKernel { kBaseline, kAvx2 };
bool lutKernelAvailable(LutKernel kernel);
void blendLutVectorWith(LutKernel kernel, int blendCase, const LutBlendSources& src, uint8_t* out,
                        size_t n);

// The vector kernel unless LUMO_FORCE_SCALAR=1 was set when the process
// first blended.
void blendLut(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n);
bool lutBlendForcedScalar();

}  // namespace lumo
