// Vector forms of the conversions in common/convert.hpp, compiled once per
// instruction set.  Include from a *_hwy.cpp after "hwy/highway.h" (or from
// inside its HWY_TARGET_INCLUDE pass): the header re-enters once per target,
// as Highway's own -inl headers do.
//
// Every helper gives, lane by lane, the bits of its scalar counterpart: the
// same IEEE operations in the same order, only the tests that pick a branch
// become masks.

#if defined(QZ_COMMON_SIMD_INL_HPP_) == defined(HWY_TARGET_TOGGLE)
#ifdef QZ_COMMON_SIMD_INL_HPP_
#undef QZ_COMMON_SIMD_INL_HPP_
#else
#define QZ_COMMON_SIMD_INL_HPP_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "common/streaming.hpp"
#include "hwy/cache_control.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Element types that widen to double lanes exactly and come back through a
// 32-bit integer (or are floating): everything but the 64-bit integers.
template <class T>
inline constexpr bool kWidensToDouble = std::is_floating_point_v<T> || sizeof(T) <= 4;

// The Lanes(d) elements of v (a vector of T with as many lanes as d), each
// widened exactly to d's type: double, or float for float (unchanged).
template <class D, class V>
HWY_INLINE hn::Vec<D> WidenToDouble(D d, V v) {
  using T = hn::TFromV<V>;
  static_assert(kWidensToDouble<T>);
  if constexpr (std::is_same_v<T, hn::TFromD<D>>) {
    return v;
  } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, std::int32_t>) {
    return hn::PromoteTo(d, v);
  } else if constexpr (std::is_same_v<T, std::uint32_t>) {
    // Through 64 bits: every uint32 is a non-negative int64, converted exactly.
    hn::Rebind<std::uint64_t, D> du64;
    return hn::ConvertTo(d, hn::BitCast(hn::RebindToSigned<decltype(du64)>(), hn::PromoteTo(du64, v)));
  } else {
    return hn::PromoteTo(d, hn::PromoteTo(hn::Rebind<std::int32_t, D>(), v));
  }
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
namespace x86 {
// The truncating conversions to int32 as the instruction set has them, by
// register width.
HWY_INLINE __m128i TruncToInt32(__m128 v) { return _mm_cvttps_epi32(v); }
HWY_INLINE __m128i TruncToInt32(__m128d v) { return _mm_cvttpd_epi32(v); }
#if HWY_TARGET <= HWY_AVX2
HWY_INLINE __m256i TruncToInt32(__m256 v) { return _mm256_cvttps_epi32(v); }
HWY_INLINE __m128i TruncToInt32(__m256d v) { return _mm256_cvttpd_epi32(v); }
#endif
#if HWY_TARGET <= HWY_AVX3
// (The zero-masking forms with every lane kept: the plain ones start from an
// undefined register, which the compiler warns of.)
HWY_INLINE __m512i TruncToInt32(__m512 v) { return _mm512_maskz_cvttps_epi32(0xFFFF, v); }
HWY_INLINE __m256i TruncToInt32(__m512d v) { return _mm512_maskz_cvttpd_epi32(0xFF, v); }
#endif
}  // namespace x86
#endif

// trunc(v) in int32 lanes, for lanes known to lie within int32's range: on
// x86 the conversion instruction alone, without the clamp or fix-up that the
// general conversions spend on lanes out of range.
template <class D>
HWY_INLINE hn::Vec<hn::Rebind<std::int32_t, D>> TruncateInRange(D, hn::Vec<D> v) {
  hn::Rebind<std::int32_t, D> di;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
  return hn::Vec<decltype(di)>{x86::TruncToInt32(v.raw)};
#else
  if constexpr (sizeof(hn::TFromD<D>) == 4)
    return hn::ConvertTo(di, v);
  else
    return hn::DemoteTo(di, v);
#endif
}

// The doubles of s (already integral, within [-2^31, 2^31)) as T's lanes;
// the integer demotions saturate, which these values never need.
template <class T, class D>
HWY_INLINE hn::Vec<hn::Rebind<T, D>> DemoteIntegral(D, hn::Vec<D> s) {
  auto const i = hn::DemoteTo(hn::Rebind<std::int32_t, D>(), s);  // truncates; exact here
  if constexpr (std::is_same_v<T, std::int32_t>)
    return i;
  else
    return hn::DemoteTo(hn::Rebind<T, D>(), i);
}

// saturateRoundHalfAway<T> for the integer types of at most 32 bits: NaN
// gives 0, values beyond the type saturate, the rest round half away from
// zero (s - 0.5 or s + 0.5 by the sign of s, then truncate).  Rounding before
// saturating changes nothing: s at most max gives s + 0.5 below max + 1.
template <class T, class D>
HWY_INLINE hn::Vec<hn::Rebind<T, D>> SaturateRoundHalfAway(D d, hn::Vec<D> s) {
  static_assert(std::is_integral_v<T> && sizeof(T) <= 4);
  auto const half = hn::Set(d, 0.5);
  auto const hi = hn::Set(d, static_cast<double>(std::numeric_limits<T>::max()));
  if constexpr (std::is_signed_v<T>) {
    auto const lo = hn::Set(d, static_cast<double>(std::numeric_limits<T>::min()));
    auto t = hn::IfThenElse(hn::Lt(s, hn::Zero(d)), hn::Sub(s, half), hn::Add(s, half));
    t = hn::Min(hn::Max(t, lo), hi);
    t = hn::IfThenZeroElse(hn::IsNaN(s), t);
    return DemoteIntegral<T>(d, t);
  } else {
    // s < 0 and NaN fail s >= 0 and give 0.
    auto t = hn::IfThenElseZero(hn::Ge(s, hn::Zero(d)), hn::Min(hn::Add(s, half), hi));
    if constexpr (sizeof(T) == 4) {
      // Beyond int32: floor (exact), shift into the signed range, convert and
      // shift the bits back.
      t = hn::Sub(hn::Floor(t), hn::Set(d, 2147483648.0));
      hn::Rebind<std::uint32_t, D> du32;
      return hn::Xor(hn::BitCast(du32, hn::DemoteTo(hn::Rebind<std::int32_t, D>(), t)),
                     hn::Set(du32, 0x80000000u));
    } else {
      return DemoteIntegral<T>(d, t);
    }
  }
}

// The unit-range clamp of floating results: NaN and negatives give 0 (a
// -0.0 stays), above 1 gives 1.
template <class D>
HWY_INLINE hn::Vec<D> ClampToUnit(D d, hn::Vec<D> s) {
  auto const kept = hn::IfThenElseZero(hn::Ge(s, hn::Zero(d)), s);
  return hn::IfThenElse(hn::Gt(kept, hn::Set(d, 1.0)), hn::Set(d, 1.0), kept);
}

// One vector of red, green and blue samples from pixel i on: from three
// planes p elements apart, or from interleaved triples.
template <class DIn>
HWY_INLINE void LoadRgb(DIn d, hn::TFromD<DIn> const* HWY_RESTRICT in, std::size_t p, bool planar, std::size_t i,
                        hn::Vec<DIn>& r, hn::Vec<DIn>& g, hn::Vec<DIn>& b) {
  if (planar) {
    r = hn::LoadU(d, in + i);
    g = hn::LoadU(d, in + p + i);
    b = hn::LoadU(d, in + 2 * p + i);
  } else {
    hn::LoadInterleaved3(d, in + 3 * i, r, g, b);
  }
}

// Fills out[b, e) with f(i), the vector of lanes of dt for elements i ..
// i+Lanes(dt)-1, at every whole vector, and the rest with rule(from, to).
// With `stream`, the vectors from the first aligned one on are written with
// non-temporal stores, where a vector is a whole register (a narrower one
// would stream past its lanes) and `out` is aligned to its element type (or
// no vector of it is aligned).
template <class D, class F, class Rule>
HWY_INLINE void StoreVectors(D dt, hn::TFromD<D>* HWY_RESTRICT out, std::size_t b, std::size_t e, bool stream, F f,
                             Rule rule) {
  using T = hn::TFromD<D>;
  std::size_t const n = hn::Lanes(dt);
  std::size_t i = b;
  if (stream && hn::MaxLanes(dt) * sizeof(T) >= 16 && reinterpret_cast<std::uintptr_t>(out) % sizeof(T) == 0) {
    i = std::min(e, b + elementsToAlignment(out + b, n * sizeof(T)));
    rule(b, i);
    for (; i + n <= e; i += n) hn::Stream(f(i), dt, out + i);
    hwy::FlushStream();  // seen by every thread before the caller's next store
  } else {
    for (; i + n <= e; i += n) hn::StoreU(f(i), dt, out + i);
  }
  rule(i, e);
}

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard
