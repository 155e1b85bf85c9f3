// The handful of vector operations the fixed-point kernel is written in, for
// 512-bit (AVX-512), 256-bit (AVX2) and 128-bit (arm64 NEON) registers. The
// x86 widths work in 128-bit blocks alike (byte shuffles, unpacks, packs,
// two-source float shuffles), which is what the kernel's lane bookkeeping
// relies on; only the number of blocks differs. The NEON set is that one
// block, each x86 operation rebuilt from NEON instructions with the same
// results. Included once per Highway target; LUMO_FX_PRESENT says whether
// the target has the operations.
#if defined(LUMO_RENDER_FIXED_POINT_OPS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#undef LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#else
#define LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#if HWY_ARCH_ARM_A64
#include <arm_neon.h>
#endif

#undef LUMO_FX_PRESENT
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX2 || \
    (HWY_ARCH_ARM_A64 && (HWY_TARGET == HWY_NEON || HWY_TARGET == HWY_SVE2_128))
#define LUMO_FX_PRESENT 1
#else
#define LUMO_FX_PRESENT 0
#endif

HWY_BEFORE_NAMESPACE();
namespace lumo::render {
namespace HWY_NAMESPACE {
namespace fx {

// Operations spelled alike at both widths: `P` is the intrinsics' prefix
// (_mm512, _mm256), `S` the integer register suffix (si512, si256).
#define LUMO_FX_BINARY(Name, P, op) \
  HWY_INLINE V Name(V a, V b) { return P##_##op(a, b); }
#define LUMO_FX_SHIFT(Name, P, op) \
  template <int n>                 \
  HWY_INLINE V Name(V v) {         \
    return P##_##op(v, n);         \
  }
#define LUMO_FX_COMMON(P, S)                                                \
  HWY_INLINE V Set(int16_t v) { return P##_set1_epi16(v); }                 \
  HWY_INLINE V Zero() { return P##_setzero_##S(); }                         \
  LUMO_FX_BINARY(Add16, P, add_epi16)                                       \
  LUMO_FX_BINARY(Sub16, P, sub_epi16)                                       \
  LUMO_FX_BINARY(AddSat16, P, adds_epi16)                                   \
  LUMO_FX_BINARY(AddSatU16, P, adds_epu16)                                  \
  LUMO_FX_BINARY(SubSatU16, P, subs_epu16)                                  \
  LUMO_FX_BINARY(Min16, P, min_epi16)                                       \
  LUMO_FX_BINARY(Max16, P, max_epi16)                                       \
  LUMO_FX_BINARY(MulQ15, P, mulhrs_epi16)                                   \
  LUMO_FX_BINARY(MulHighU16, P, mulhi_epu16)                                \
  LUMO_FX_BINARY(AvgU16, P, avg_epu16)                                      \
  LUMO_FX_BINARY(Add32, P, add_epi32)                                       \
  LUMO_FX_BINARY(UnpackLo16, P, unpacklo_epi16)                             \
  LUMO_FX_BINARY(UnpackHi16, P, unpackhi_epi16)                             \
  LUMO_FX_BINARY(UnpackLo32, P, unpacklo_epi32)                             \
  LUMO_FX_BINARY(UnpackHi32, P, unpackhi_epi32)                             \
  LUMO_FX_BINARY(ShuffleBytes, P, shuffle_epi8)                             \
  LUMO_FX_BINARY(MulAddPairs, P, madd_epi16)                                \
  LUMO_FX_BINARY(PackUs32, P, packus_epi32)                                 \
  LUMO_FX_BINARY(And, P, and_##S)                                           \
  LUMO_FX_BINARY(Or, P, or_##S)                                             \
  LUMO_FX_BINARY(Xor, P, xor_##S)                                           \
  LUMO_FX_SHIFT(Shl16, P, slli_epi16)                                       \
  LUMO_FX_SHIFT(Shr16, P, srli_epi16)                                       \
  LUMO_FX_SHIFT(Shr32, P, srli_epi32)                                       \
  HWY_INLINE VF SetF(float v) { return P##_set1_ps(v); }                    \
  HWY_INLINE VF AddF(VF a, VF b) { return P##_add_ps(a, b); }               \
  HWY_INLINE VF MulF(VF a, VF b) { return P##_mul_ps(a, b); }               \
  HWY_INLINE VF MinF(VF a, VF b) { return P##_min_ps(a, b); }               \
  HWY_INLINE VF MaxF(VF a, VF b) { return P##_max_ps(a, b); }               \
  HWY_INLINE VF MulAddF(VF a, VF b, VF c) { return P##_fmadd_ps(a, b, c); } \
  HWY_INLINE VF NegMulAddF(VF a, VF b, VF c) { return P##_fnmadd_ps(a, b, c); }

#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL

using V = __m512i;
using VF = __m512;
constexpr size_t kLanes = 32;  // 16-bit lanes
constexpr size_t kFloats = 16;
LUMO_FX_COMMON(_mm512, si512)

// The same two 64-bit halves in every 128-bit block.
HWY_INLINE V SetBlocks(uint64_t high, uint64_t low) {
  return _mm512_set_epi64(int64_t(high), int64_t(low), int64_t(high), int64_t(low), int64_t(high),
                          int64_t(low), int64_t(high), int64_t(low));
}
HWY_INLINE V Load(const void* p) { return _mm512_loadu_si512(p); }
HWY_INLINE void Store(V v, void* p) { _mm512_storeu_si512(p, v); }
template <int imm>
HWY_INLINE V ShuffleDwords(V a, V b) {
  return _mm512_castps_si512(
      _mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), imm));
}
// acc + k where a >= b (signed 16-bit), acc elsewhere.
HWY_INLINE V AddWhereGe(V acc, V a, V b, int16_t k) {
  return _mm512_mask_add_epi16(acc, _mm512_cmpge_epi16_mask(a, b), acc, Set(k));
}
// The 8 bytes at table + index * kScale, per 64-bit lane of `index`.
template <int kScale>
HWY_INLINE V Gather64(const void* table, V index) {
  return _mm512_i64gather_epi64(index, table, kScale);
}
// The 16-bit lanes in reverse order.
HWY_INLINE V Reverse16(V v) {
  const V order = _mm512_set_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18,
                                   19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
  return _mm512_permutexvar_epi16(order, v);
}

HWY_INLINE VF IotaF() {
  return _mm512_setr_ps(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}
HWY_INLINE VF ApproxRsqrtF(VF v) { return _mm512_rsqrt14_ps(v); }
// `v` where `test` > 0, else 0.
HWY_INLINE VF IfPositiveF(VF test, VF v) {
  return _mm512_maskz_mov_ps(_mm512_cmp_ps_mask(test, _mm512_setzero_ps(), _CMP_GT_OQ), v);
}
// 1 where a >= b, else 0.
HWY_INLINE VF StepF(VF a, VF b) {
  return _mm512_maskz_mov_ps(_mm512_cmp_ps_mask(a, b, _CMP_GE_OQ), _mm512_set1_ps(1.0f));
}
// Rounds to the nearest integer and stores the kFloats results as
// saturated 16-bit values.
HWY_INLINE void StoreRoundedI16(VF v, int16_t* p) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm512_cvtsepi32_epi16(_mm512_cvtps_epi32(v)));
}

#elif HWY_TARGET == HWY_AVX2

using V = __m256i;
using VF = __m256;
constexpr size_t kLanes = 16;
constexpr size_t kFloats = 8;
LUMO_FX_COMMON(_mm256, si256)

HWY_INLINE V SetBlocks(uint64_t high, uint64_t low) {
  return _mm256_set_epi64x(int64_t(high), int64_t(low), int64_t(high), int64_t(low));
}
HWY_INLINE V Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
HWY_INLINE void Store(V v, void* p) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
template <int imm>
HWY_INLINE V ShuffleDwords(V a, V b) {
  return _mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), imm));
}
HWY_INLINE V AddWhereGe(V acc, V a, V b, int16_t k) {
  // a >= b is not (b > a).
  return _mm256_add_epi16(acc, _mm256_andnot_si256(_mm256_cmpgt_epi16(b, a), Set(k)));
}
template <int kScale>
HWY_INLINE V Gather64(const void* table, V index) {
  return _mm256_i64gather_epi64(static_cast<const long long*>(table), index, kScale);
}
HWY_INLINE V Reverse16(V v) {
  // Words reversed within each 128-bit block, then the blocks swapped.
  const V order = _mm256_set_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14, 1, 0, 3, 2,
                                  5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
  return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, order), 0x4E);
}

HWY_INLINE VF IotaF() { return _mm256_setr_ps(0, 1, 2, 3, 4, 5, 6, 7); }
HWY_INLINE VF ApproxRsqrtF(VF v) { return _mm256_rsqrt_ps(v); }
HWY_INLINE VF IfPositiveF(VF test, VF v) {
  return _mm256_and_ps(_mm256_cmp_ps(test, _mm256_setzero_ps(), _CMP_GT_OQ), v);
}
HWY_INLINE VF StepF(VF a, VF b) {
  return _mm256_and_ps(_mm256_cmp_ps(a, b, _CMP_GE_OQ), _mm256_set1_ps(1.0f));
}
HWY_INLINE void StoreRoundedI16(VF v, int16_t* p) {
  const __m256i q = _mm256_cvtps_epi32(v);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p),
                   _mm_packs_epi32(_mm256_castsi256_si128(q), _mm256_extracti128_si256(q, 1)));
}

#elif HWY_ARCH_ARM_A64 && (HWY_TARGET == HWY_NEON || HWY_TARGET == HWY_SVE2_128)

// One 128-bit block. NEON instructions are part of every arm64 core, so the
// fixed 128-bit SVE2 target runs this code too. (SVE's gathers could replace
// the scalar fetches of Gather64 there, but this compiler moves values
// between NEON and SVE types only through memory.)
using V = int16x8_t;
using VF = float32x4_t;
constexpr size_t kLanes = 8;
constexpr size_t kFloats = 4;

HWY_INLINE uint16x8_t U16(V v) { return vreinterpretq_u16_s16(v); }
HWY_INLINE V S16(uint16x8_t v) { return vreinterpretq_s16_u16(v); }

HWY_INLINE V Set(int16_t v) { return vdupq_n_s16(v); }
HWY_INLINE V Zero() { return vdupq_n_s16(0); }
HWY_INLINE V Add16(V a, V b) { return vaddq_s16(a, b); }
HWY_INLINE V Sub16(V a, V b) { return vsubq_s16(a, b); }
HWY_INLINE V AddSat16(V a, V b) { return vqaddq_s16(a, b); }
HWY_INLINE V AddSatU16(V a, V b) { return S16(vqaddq_u16(U16(a), U16(b))); }
HWY_INLINE V SubSatU16(V a, V b) { return S16(vqsubq_u16(U16(a), U16(b))); }
HWY_INLINE V Min16(V a, V b) { return vminq_s16(a, b); }
HWY_INLINE V Max16(V a, V b) { return vmaxq_s16(a, b); }
// a * b / 32768 rounded half up, as x86's mulhrs, except that -32768 *
// -32768 saturates to 32767 where x86 wraps to -32768. The kernel never
// multiplies two such values: in every product one side is a colour, a
// luma, a weight or a gain (never negative), a difference of two Q7
// colours (above -32768) or a coefficient below 1 in magnitude.
HWY_INLINE V MulQ15(V a, V b) { return vqrdmulhq_s16(a, b); }
// The high 16 bits of the unsigned 32-bit products.
HWY_INLINE V MulHighU16(V a, V b) {
  const uint32x4_t low = vmull_u16(vget_low_u16(U16(a)), vget_low_u16(U16(b)));
  const uint32x4_t high = vmull_high_u16(U16(a), U16(b));
  return S16(vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high)));
}
// (a + b + 1) / 2, unsigned.
HWY_INLINE V AvgU16(V a, V b) { return S16(vrhaddq_u16(U16(a), U16(b))); }
HWY_INLINE V Add32(V a, V b) {
  return vreinterpretq_s16_s32(vaddq_s32(vreinterpretq_s32_s16(a), vreinterpretq_s32_s16(b)));
}
HWY_INLINE V UnpackLo16(V a, V b) { return vzip1q_s16(a, b); }
HWY_INLINE V UnpackHi16(V a, V b) { return vzip2q_s16(a, b); }
HWY_INLINE V UnpackLo32(V a, V b) {
  return vreinterpretq_s16_s32(vzip1q_s32(vreinterpretq_s32_s16(a), vreinterpretq_s32_s16(b)));
}
HWY_INLINE V UnpackHi32(V a, V b) {
  return vreinterpretq_s16_s32(vzip2q_s32(vreinterpretq_s32_s16(a), vreinterpretq_s32_s16(b)));
}
// Bytes of `a` picked by the bytes of `order`; an index with its top bit
// set is out of the table's range and gives 0, as on x86.
HWY_INLINE V ShuffleBytes(V a, V order) {
  return vreinterpretq_s16_u8(vqtbl1q_u8(vreinterpretq_u8_s16(a), vreinterpretq_u8_s16(order)));
}
// Signed 16-bit products, adjacent pairs summed into 32-bit lanes.
HWY_INLINE V MulAddPairs(V a, V b) {
  const int32x4_t low = vmull_s16(vget_low_s16(a), vget_low_s16(b));
  const int32x4_t high = vmull_high_s16(a, b);
  return vreinterpretq_s16_s32(vpaddq_s32(low, high));
}
// Signed 32-bit lanes of a, then of b, saturated to unsigned 16 bits.
HWY_INLINE V PackUs32(V a, V b) {
  return S16(vqmovun_high_s32(vqmovun_s32(vreinterpretq_s32_s16(a)), vreinterpretq_s32_s16(b)));
}
HWY_INLINE V And(V a, V b) { return vandq_s16(a, b); }
HWY_INLINE V Or(V a, V b) { return vorrq_s16(a, b); }
HWY_INLINE V Xor(V a, V b) { return veorq_s16(a, b); }
template <int n>
HWY_INLINE V Shl16(V v) {
  return vshlq_n_s16(v, n);
}
// Logical (zero-filling) right shifts.
template <int n>
HWY_INLINE V Shr16(V v) {
  return S16(vshrq_n_u16(U16(v), n));
}
template <int n>
HWY_INLINE V Shr32(V v) {
  return vreinterpretq_s16_u32(vshrq_n_u32(vreinterpretq_u32_s16(v), n));
}

HWY_INLINE V SetBlocks(uint64_t high, uint64_t low) {
  return vreinterpretq_s16_u64(vcombine_u64(vcreate_u64(low), vcreate_u64(high)));
}
HWY_INLINE V Load(const void* p) {
  return vreinterpretq_s16_u8(vld1q_u8(static_cast<const uint8_t*>(p)));
}
HWY_INLINE void Store(V v, void* p) { vst1q_u8(static_cast<uint8_t*>(p), vreinterpretq_u8_s16(v)); }
// x86's two-source float shuffle for the two immediates the kernel uses:
// the even (0x88) or odd (0xDD) 32-bit lanes of a, then those of b.
template <int imm>
HWY_INLINE V ShuffleDwords(V a, V b) {
  static_assert(imm == 0x88 || imm == 0xDD, "only the even or odd lanes");
  const uint32x4_t a32 = vreinterpretq_u32_s16(a), b32 = vreinterpretq_u32_s16(b);
  return vreinterpretq_s16_u32(imm == 0x88 ? vuzp1q_u32(a32, b32) : vuzp2q_u32(a32, b32));
}
HWY_INLINE V AddWhereGe(V acc, V a, V b, int16_t k) {
  return vaddq_s16(acc, vandq_s16(S16(vcgeq_s16(a, b)), Set(k)));
}
// No gather instruction: each of the two 64-bit lanes is a scalar load at
// the index moved out of the vector.
template <int kScale>
HWY_INLINE V Gather64(const void* table, V index) {
  const uint64x2_t i = vreinterpretq_u64_s16(index);
  const uint8_t* base = static_cast<const uint8_t*>(table);
  uint64_t low, high;
  std::memcpy(&low, base + vgetq_lane_u64(i, 0) * kScale, sizeof low);
  std::memcpy(&high, base + vgetq_lane_u64(i, 1) * kScale, sizeof high);
  return vreinterpretq_s16_u64(vcombine_u64(vcreate_u64(low), vcreate_u64(high)));
}
HWY_INLINE V Reverse16(V v) {
  // Words reversed within each 64-bit half, then the halves swapped.
  const V halves = vrev64q_s16(v);
  return vextq_s16(halves, halves, 4);
}

HWY_INLINE VF SetF(float v) { return vdupq_n_f32(v); }
HWY_INLINE VF AddF(VF a, VF b) { return vaddq_f32(a, b); }
HWY_INLINE VF MulF(VF a, VF b) { return vmulq_f32(a, b); }
HWY_INLINE VF MinF(VF a, VF b) { return vminq_f32(a, b); }
HWY_INLINE VF MaxF(VF a, VF b) { return vmaxq_f32(a, b); }
// a * b + c and c - a * b, fused.
HWY_INLINE VF MulAddF(VF a, VF b, VF c) { return vfmaq_f32(c, a, b); }
HWY_INLINE VF NegMulAddF(VF a, VF b, VF c) { return vfmsq_f32(c, a, b); }
HWY_INLINE VF IotaF() {
  static constexpr float kIota[4] = {0, 1, 2, 3};
  return vld1q_f32(kIota);
}
// NEON's estimate has about 8 bits where x86's have 12 or 14; one Newton
// step here brings it to about 16, so that the caller's own step leaves it
// as exact as on x86.
HWY_INLINE VF ApproxRsqrtF(VF v) {
  const VF y = vrsqrteq_f32(v);
  return vmulq_f32(y, vrsqrtsq_f32(vmulq_f32(v, y), y));
}
HWY_INLINE VF IfPositiveF(VF test, VF v) {
  return vreinterpretq_f32_u32(
      vandq_u32(vcgtq_f32(test, vdupq_n_f32(0.0f)), vreinterpretq_u32_f32(v)));
}
HWY_INLINE VF StepF(VF a, VF b) {
  return vreinterpretq_f32_u32(
      vandq_u32(vcgeq_f32(a, b), vreinterpretq_u32_f32(vdupq_n_f32(1.0f))));
}
// Rounds to nearest (ties to even, as x86's default) and saturates.
HWY_INLINE void StoreRoundedI16(VF v, int16_t* p) { vst1_s16(p, vqmovn_s32(vcvtnq_s32_f32(v))); }

#endif

#undef LUMO_FX_COMMON
#undef LUMO_FX_SHIFT
#undef LUMO_FX_BINARY

}  // namespace fx
}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#endif  // LUMO_RENDER_FIXED_POINT_OPS_INL_H_
