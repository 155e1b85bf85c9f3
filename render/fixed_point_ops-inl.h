// The handful of vector operations the fixed-point kernel is written in, for
// 512-bit (AVX-512) and 256-bit (AVX2) registers. Both widths work in
// 128-bit blocks alike (byte shuffles, unpacks, packs, two-source float
// shuffles), which is what the kernel's lane bookkeeping relies on; only the
// number of blocks differs. Included once per Highway target.
#if defined(LUMO_RENDER_FIXED_POINT_OPS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#undef LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#else
#define LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

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

#endif

#undef LUMO_FX_COMMON
#undef LUMO_FX_SHIFT
#undef LUMO_FX_BINARY

}  // namespace fx
}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#endif  // LUMO_RENDER_FIXED_POINT_OPS_INL_H_
