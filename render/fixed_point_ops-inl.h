// The handful of vector operations the fixed-point kernel is written in, on
// 16-bit lanes: 32 of them on AVX-512, 16 on AVX2, 8 on arm64 NEON. They are
// Highway operations under the names the kernel uses (lanes as signed or
// unsigned 16 bits as each one says); the few Highway lacks come from
// simd_extras-inl.h. The lane bookkeeping relies on byte shuffles, unpacks
// and packs working within 128-bit blocks, as they do on every one of these
// targets; only the number of blocks differs. Included once per Highway
// target; LUMO_FX_PRESENT says whether the target has the operations.
#if defined(LUMO_RENDER_FIXED_POINT_OPS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#undef LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#else
#define LUMO_RENDER_FIXED_POINT_OPS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "simd_extras-inl.h"

#undef LUMO_FX_PRESENT
#define LUMO_FX_PRESENT LUMO_SIMD_EXTRAS

HWY_BEFORE_NAMESPACE();
namespace lumo::render {
namespace HWY_NAMESPACE {
namespace fx {

#if LUMO_FX_PRESENT
namespace hn = hwy::HWY_NAMESPACE;
using D = hn::ScalableTag<int16_t>;
using DU = hn::RebindToUnsigned<D>;
using D32 = hn::Repartition<int32_t, D>;
using DU32 = hn::Repartition<uint32_t, D>;
using DU64 = hn::Repartition<uint64_t, D>;
using DF = hn::ScalableTag<float>;
using V = hn::Vec<D>;
using VF = hn::Vec<DF>;
constexpr size_t kLanes = HWY_LANES(int16_t);
constexpr size_t kFloats = HWY_LANES(float);

HWY_INLINE hn::Vec<DU> U16(V v) { return hn::BitCast(DU(), v); }
HWY_INLINE V S16(hn::Vec<DU> v) { return hn::BitCast(D(), v); }
HWY_INLINE hn::Vec<D32> S32(V v) { return hn::BitCast(D32(), v); }
HWY_INLINE V FromS32(hn::Vec<D32> v) { return hn::BitCast(D(), v); }

HWY_INLINE V Set(int16_t v) { return hn::Set(D(), v); }
HWY_INLINE V Zero() { return hn::Zero(D()); }
HWY_INLINE V Add16(V a, V b) { return hn::Add(a, b); }
HWY_INLINE V Sub16(V a, V b) { return hn::Sub(a, b); }
HWY_INLINE V AddSat16(V a, V b) { return hn::SaturatedAdd(a, b); }
HWY_INLINE V AddSatU16(V a, V b) { return S16(hn::SaturatedAdd(U16(a), U16(b))); }
HWY_INLINE V SubSatU16(V a, V b) { return S16(hn::SaturatedSub(U16(a), U16(b))); }
HWY_INLINE V Min16(V a, V b) { return hn::Min(a, b); }
HWY_INLINE V Max16(V a, V b) { return hn::Max(a, b); }
using extras::MulQ15;
// The high 16 bits of the unsigned 32-bit products.
HWY_INLINE V MulHighU16(V a, V b) { return S16(hn::MulHigh(U16(a), U16(b))); }
// (a + b + 1) / 2, unsigned.
HWY_INLINE V AvgU16(V a, V b) { return S16(hn::AverageRound(U16(a), U16(b))); }
HWY_INLINE V Add32(V a, V b) { return FromS32(hn::Add(S32(a), S32(b))); }
HWY_INLINE V UnpackLo16(V a, V b) { return hn::InterleaveLower(D(), a, b); }
HWY_INLINE V UnpackHi16(V a, V b) { return hn::InterleaveUpper(D(), a, b); }
HWY_INLINE V UnpackLo32(V a, V b) { return FromS32(hn::InterleaveLower(D32(), S32(a), S32(b))); }
HWY_INLINE V UnpackHi32(V a, V b) { return FromS32(hn::InterleaveUpper(D32(), S32(a), S32(b))); }
// Bytes of `a` picked by the bytes of `order` within each 128-bit block; an
// index with its top bit set gives 0.
HWY_INLINE V ShuffleBytes(V a, V order) { return hn::TableLookupBytesOr0(a, order); }
// Signed 16-bit products, adjacent pairs summed into 32-bit lanes.
HWY_INLINE V MulAddPairs(V a, V b) { return FromS32(extras::MulAddPairs(a, b)); }
// Signed 32-bit lanes of a, then of b (per block), saturated to unsigned 16 bits.
HWY_INLINE V PackUs32(V a, V b) { return extras::PackUs32(S32(a), S32(b)); }
// Per block, the sums of adjacent 32-bit lanes of a, then of b.
HWY_INLINE V AddPairs32(V a, V b) { return FromS32(extras::AddPairs32(S32(a), S32(b))); }
HWY_INLINE V And(V a, V b) { return hn::And(a, b); }
HWY_INLINE V Or(V a, V b) { return hn::Or(a, b); }
HWY_INLINE V Xor(V a, V b) { return hn::Xor(a, b); }
template <int n>
HWY_INLINE V Shl16(V v) {
  return hn::ShiftLeft<n>(v);
}
// Logical (zero-filling) right shifts.
template <int n>
HWY_INLINE V Shr16(V v) {
  return S16(hn::ShiftRight<n>(U16(v)));
}
template <int n>
HWY_INLINE V Shr32(V v) {
  return hn::BitCast(D(), hn::ShiftRight<n>(hn::BitCast(DU32(), v)));
}

// The same two 64-bit halves in every 128-bit block, read from a constant
// the width of the widest vector (so that it can be an instruction's memory
// operand).
template <uint64_t kHigh, uint64_t kLow>
HWY_INLINE V SetBlocks() {
  alignas(64) static constexpr uint64_t kBlocks[8] = {kLow, kHigh, kLow, kHigh,
                                                      kLow, kHigh, kLow, kHigh};
  static_assert(sizeof kBlocks >= kLanes * sizeof(int16_t), "one constant per lane");
  return hn::BitCast(D(), hn::Load(DU64(), kBlocks));
}
HWY_INLINE V Load(const void* p) { return hn::LoadU(D(), static_cast<const int16_t*>(p)); }
HWY_INLINE void Store(V v, void* p) { hn::StoreU(v, D(), static_cast<int16_t*>(p)); }
// acc + k where a >= b (signed 16-bit), acc elsewhere.
using extras::AddWhereGe;
// The 8 bytes at table + index * kScale, per 64-bit lane of `index`.
using extras::Gather64;
// The 16-bit lanes in reverse order.
HWY_INLINE V Reverse16(V v) { return hn::Reverse(D(), v); }

HWY_INLINE VF SetF(float v) { return hn::Set(DF(), v); }
HWY_INLINE VF AddF(VF a, VF b) { return hn::Add(a, b); }
HWY_INLINE VF MulF(VF a, VF b) { return hn::Mul(a, b); }
HWY_INLINE VF MinF(VF a, VF b) { return hn::Min(a, b); }
HWY_INLINE VF MaxF(VF a, VF b) { return hn::Max(a, b); }
// a * b + c and c - a * b, fused.
HWY_INLINE VF MulAddF(VF a, VF b, VF c) { return hn::MulAdd(a, b, c); }
HWY_INLINE VF NegMulAddF(VF a, VF b, VF c) { return hn::NegMulAdd(a, b, c); }
HWY_INLINE VF IotaF() { return hn::Iota(DF(), 0.0f); }
using extras::RsqrtF;
// `v` where `test` > 0, else 0.
HWY_INLINE VF IfPositiveF(VF test, VF v) { return hn::IfThenElseZero(hn::Gt(test, SetF(0)), v); }
// 1 where a >= b, else 0.
HWY_INLINE VF StepF(VF a, VF b) { return hn::IfThenElseZero(hn::Ge(a, b), SetF(1)); }
// Rounds to the nearest integer (ties to even) and stores the kFloats
// results as saturated 16-bit values.
using extras::StoreRoundedI16;
#endif  // LUMO_FX_PRESENT

}  // namespace fx
}  // namespace HWY_NAMESPACE
}  // namespace lumo::render
HWY_AFTER_NAMESPACE();

#endif  // LUMO_RENDER_FIXED_POINT_OPS_INL_H_
