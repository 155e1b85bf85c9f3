// The few vector operations the renderer needs that Highway 1.0 lacks, or
// has with results that differ between instruction sets. This is the one
// place with code per instruction set; everything else is Highway. Each
// operation states its result exactly, and every target computes that result
// (the kernels' outputs are the same bytes on x86-64 and arm64):
//   MulQ15         Highway's MulFixedPoint15 saturates -32768 * -32768 on Arm
//                  and wraps it on x86; here it wraps everywhere.
//   MulAddPairs    products summed in adjacent pairs, in lane order (the
//                  ReorderWidenMulAccumulate of Highway 1.0 leaves the order
//                  to the target).
//   PackUs32       signed 32-bit lanes to unsigned 16 bits with saturation,
//                  per 128-bit block like the unpacks it undoes (Highway 1.0
//                  has no two-vector demotion to uint16).
//   AddPairs32     per 128-bit block, the sums of adjacent 32-bit lanes of a,
//                  then of b (no pairwise add in Highway 1.0).
//   RsqrtF         reciprocal square root estimate of at least 12 bits (Arm's
//                  estimate has 8; one Newton step brings it to about 16).
//   AddWhereGe     acc + k where a >= b: AVX-512 adds under the compare's
//                  mask in one instruction; Highway 1.0 has no masked add.
//   Gather64       8 bytes per 64-bit lane at table + index * scale, scale 4
//                  or 8: Highway 1.0 scales gather indices by the lane size
//                  only, where x86 gathers take the scale for free.
//   StoreRoundedI16 floats rounded to nearest (ties to even) and stored as
//                  saturated 16-bit integers: Highway 1.0's NearestInt and
//                  DemoteTo add range fix-ups and lane permutes on x86 that
//                  its conversions do not need here.
// Those are defined where the fixed-point kernel runs (LUMO_SIMD_EXTRAS);
// these two on every target, for the float kernels:
//   GatherPairs    one 64-bit entry per 32-bit lane index, split into its low
//                  and high 32 bits: Highway 1.0 gathers need indices as wide
//                  as the data, so the indices are widened first, half a
//                  vector at a time, except on AVX-512, whose gathers take
//                  32-bit indices (a plain load on the one-lane target).
//   ByteOfLane     byte `byte` of each 32-bit lane, zero-extended: one byte
//                  shuffle, which the one-lane target does not have.
// Included once per Highway target, after <hwy/highway.h>.
#if defined(LUMO_RENDER_SIMD_EXTRAS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef LUMO_RENDER_SIMD_EXTRAS_INL_H_
#undef LUMO_RENDER_SIMD_EXTRAS_INL_H_
#else
#define LUMO_RENDER_SIMD_EXTRAS_INL_H_
#endif

#include <hwy/highway.h>

#if HWY_ARCH_ARM_A64
#include <arm_neon.h>
#endif

#undef LUMO_SIMD_EXTRAS
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX2 || \
    (HWY_ARCH_ARM_A64 && HWY_TARGET == HWY_NEON)
#define LUMO_SIMD_EXTRAS 1
#else
#define LUMO_SIMD_EXTRAS 0
#endif

HWY_BEFORE_NAMESPACE();
namespace lumo::render {
namespace HWY_NAMESPACE {
namespace extras {
namespace hn = hwy::HWY_NAMESPACE;

template <class DU, class VI = hn::Vec<hn::RebindToSigned<DU>>, class VU = hn::Vec<DU>>
HWY_INLINE void GatherPairsOf(DU du, const uint64_t* HWY_RESTRICT table, VI index, VU& low,
                              VU& high) {
#if HWY_TARGET == HWY_SCALAR
  const uint64_t v = table[hn::GetLane(index)];
  low = hn::Set(du, uint32_t(v));
  high = hn::Set(du, uint32_t(v >> 32));
#elif HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  // AVX-512 gathers 64-bit values with 32-bit indices: no widening.
  const VU first{_mm512_i32gather_epi64(_mm512_castsi512_si256(index.raw), table, 8)};
  const VU second{_mm512_i32gather_epi64(_mm512_extracti64x4_epi64(index.raw, 1), table, 8)};
  low = hn::ConcatEven(du, second, first);
  high = hn::ConcatOdd(du, second, first);
#else
  const hn::Half<hn::RebindToSigned<DU>> dh;
  const hn::Repartition<int64_t, DU> di64;
  const hn::Repartition<uint64_t, DU> du64;
  const VU first =
      hn::BitCast(du, hn::GatherIndex(du64, table, hn::PromoteTo(di64, hn::LowerHalf(dh, index))));
  const VU second =
      hn::BitCast(du, hn::GatherIndex(du64, table, hn::PromoteTo(di64, hn::UpperHalf(dh, index))));
  low = hn::ConcatEven(du, second, first);
  high = hn::ConcatOdd(du, second, first);
#endif
}

template <class VI, class VU>
HWY_INLINE void GatherPairs(const uint64_t* HWY_RESTRICT table, VI index, VU& low, VU& high) {
  GatherPairsOf(hn::DFromV<VU>(), table, index, low, high);
}

template <class VU>
HWY_INLINE VU ByteOfLane(VU v, int byte) {
  const hn::DFromV<VU> du;
#if HWY_TARGET == HWY_SCALAR
  return hn::And(hn::ShiftRightSame(v, 8 * byte), hn::Set(du, 0xFFu));
#else
  const hn::Repartition<uint8_t, decltype(du)> du8;
  // Shuffle indices count bytes within 16-byte blocks; 0x80 clears a byte.
  const VU lane = hn::And(hn::Iota(du, 0), hn::Set(du, 3u));
  const VU index = hn::Or(hn::Add(hn::ShiftLeft<2>(lane), hn::Set(du, uint32_t(byte))),
                          hn::Set(du, 0x80808000u));
  return hn::BitCast(du, hn::TableLookupBytesOr0(hn::BitCast(du8, v), hn::BitCast(du8, index)));
#endif
}

#if LUMO_SIMD_EXTRAS
using D16 = hn::ScalableTag<int16_t>;
using D32 = hn::Repartition<int32_t, D16>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;
using VF = hn::Vec<hn::ScalableTag<float>>;

// a * b / 32768 rounded half up; -32768 * -32768 wraps to -32768.
HWY_INLINE V16 MulQ15(V16 a, V16 b) {
#if HWY_ARCH_X86
  return hn::MulFixedPoint15(a, b);  // pmulhrsw wraps
#else
  const D16 d;
  const V16 min = hn::Set(d, int16_t(-32768));
  // Saturated to 32767 only there: one more step wraps it.
  const auto both = hn::And(hn::Eq(a, min), hn::Eq(b, min));
  return hn::Add(hn::MulFixedPoint15(a, b), hn::IfThenElseZero(both, hn::Set(d, int16_t(1))));
#endif
}

// Lane i of the result: a[2i] b[2i] + a[2i+1] b[2i+1], signed.
HWY_INLINE V32 MulAddPairs(V16 a, V16 b) {
#if HWY_TARGET == HWY_AVX2
  return V32{_mm256_madd_epi16(a.raw, b.raw)};
#elif HWY_ARCH_X86
  return V32{_mm512_madd_epi16(a.raw, b.raw)};
#else
  return V32{vpaddq_s32(vmull_s16(vget_low_s16(a.raw), vget_low_s16(b.raw)),
                        vmull_high_s16(a.raw, b.raw))};
#endif
}

// Per 128-bit block: a's four lanes, then b's, saturated to 0..65535.
HWY_INLINE V16 PackUs32(V32 a, V32 b) {
#if HWY_TARGET == HWY_AVX2
  return V16{_mm256_packus_epi32(a.raw, b.raw)};
#elif HWY_ARCH_X86
  return V16{_mm512_packus_epi32(a.raw, b.raw)};
#else
  return V16{vreinterpretq_s16_u16(vqmovun_high_s32(vqmovun_s32(a.raw), b.raw))};
#endif
}

// Per 128-bit block: a0 + a1, a2 + a3, b0 + b1, b2 + b3.
HWY_INLINE V32 AddPairs32(V32 a, V32 b) {
#if HWY_TARGET == HWY_AVX2
  const __m256 fa = _mm256_castsi256_ps(a.raw), fb = _mm256_castsi256_ps(b.raw);
  return V32{_mm256_add_epi32(_mm256_castps_si256(_mm256_shuffle_ps(fa, fb, 0x88)),
                              _mm256_castps_si256(_mm256_shuffle_ps(fa, fb, 0xDD)))};
#elif HWY_ARCH_X86
  const __m512 fa = _mm512_castsi512_ps(a.raw), fb = _mm512_castsi512_ps(b.raw);
  return V32{_mm512_add_epi32(_mm512_castps_si512(_mm512_shuffle_ps(fa, fb, 0x88)),
                              _mm512_castps_si512(_mm512_shuffle_ps(fa, fb, 0xDD)))};
#else
  return V32{vpaddq_s32(a.raw, b.raw)};
#endif
}

HWY_INLINE VF RsqrtF(VF v) {
  const VF y = hn::ApproximateReciprocalSqrt(v);
#if HWY_ARCH_X86
  return y;  // 12 bits (AVX2) or 14 (AVX-512)
#else
  return VF{vmulq_f32(y.raw, vrsqrtsq_f32(vmulq_f32(v.raw, y.raw), y.raw))};
#endif
}

HWY_INLINE V16 AddWhereGe(V16 acc, V16 a, V16 b, int16_t k) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  return V16{_mm512_mask_add_epi16(acc.raw, _mm512_cmpge_epi16_mask(a.raw, b.raw), acc.raw,
                                   _mm512_set1_epi16(k))};
#else
  return hn::Add(acc, hn::IfThenZeroElse(hn::Lt(a, b), hn::Set(D16(), k)));
#endif
}

template <int kScale>
HWY_INLINE V16 Gather64(const void* table, V16 index) {
  static_assert(kScale == 4 || kScale == 8, "4- or 8-byte entries");
#if HWY_TARGET == HWY_AVX2
  return V16{_mm256_i64gather_epi64(static_cast<const long long*>(table), index.raw, kScale)};
#elif HWY_ARCH_X86
  return V16{_mm512_i64gather_epi64(index.raw, table, kScale)};
#else
  const hn::Repartition<uint64_t, D16> d;
  const auto i = hn::BitCast(hn::RebindToSigned<decltype(d)>(), index);
  return hn::BitCast(D16(), hn::GatherOffset(d, static_cast<const uint64_t*>(table),
                                             hn::ShiftLeft < kScale == 8 ? 3 : 2 > (i)));
#endif
}

HWY_INLINE void StoreRoundedI16(VF v, int16_t* p) {
#if HWY_TARGET == HWY_AVX2
  const __m256i q = _mm256_cvtps_epi32(v.raw);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p),
                   _mm_packs_epi32(_mm256_castsi256_si128(q), _mm256_extracti128_si256(q, 1)));
#elif HWY_ARCH_X86
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p),
                      _mm512_cvtsepi32_epi16(_mm512_cvtps_epi32(v.raw)));
#else
  const hn::Rebind<int16_t, hn::ScalableTag<float>> d16;
  hn::StoreU(hn::DemoteTo(d16, hn::NearestInt(v)), d16, p);
#endif
}
#endif  // LUMO_SIMD_EXTRAS

}  // namespace extras
}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#endif  // LUMO_RENDER_SIMD_EXTRAS_INL_H_
