// grayto8's three conversions in vector lanes, one copy per instruction set,
// chosen at run time.  Still one pass on the calling thread.
//
// Double and single lanes do the scalar rule's operations in its order and
// precision (v*255, + 0.5), then one test and one cap take the place of the
// rule's two saturation tests: NaN and t < 0 give 0, and t is capped at 256,
// so the truncation to int32 is always in range; the signed packing of the
// int32 lanes into bytes then saturates 256 to 255, which is what the rule
// gives any t above 255.  uint16 uses the identity
// trunc(u*(1/257) + 0.5) = (mulhi(u, 65281) + 128) >> 8, in 16-bit lanes,
// which the tests check on all 65,536 values.
//
// The kernel is bound by memory on large images, so every store writes one
// whole vector of bytes, packed from several vectors of values, and a large
// output is written with non-temporal stores: the caller does not read it
// back at once, and the stores then skip reading the output's lines in
// before overwriting them.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "indexed/grayto8_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include <cstdint>

#include "hwy/highway.h"

#include "common/convert.hpp"
#include "common/simd-inl.hpp"
#include "indexed/grayto8.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
#define QZ_GRAY_VECTOR 1

// Loads the values j .. j+Lanes(d)-1 of a stride-1 or stride-2 (real parts
// of complex) sequence.
template <class D>
HWY_INLINE hn::Vec<D> LoadStrided(D d, hn::TFromD<D> const* HWY_RESTRICT in, std::size_t stride, std::size_t j) {
  if (stride == 1) return hn::LoadU(d, in + j);
  hn::Vec<D> re, im;
  hn::LoadInterleaved2(d, in + 2 * j, re, im);
  return re;
}

using DB = hn::ScalableTag<std::uint8_t>;  // one whole vector of result bytes
using DI = hn::ScalableTag<std::int32_t>;  // a quarter of them as int32 lanes

// Four int32 vectors, each lane in [0, 256], as one vector of bytes in lane
// order (256 saturates to 255).  The x86 packs work within 128-bit blocks,
// so the wider targets put the 4-byte groups back in order afterwards.
HWY_INLINE hn::Vec<DB> PackBytes(hn::Vec<DI> a, hn::Vec<DI> b, hn::Vec<DI> c, hn::Vec<DI> d) {
#if HWY_TARGET <= HWY_AVX3
  __m512i const bytes = _mm512_packus_epi16(_mm512_packs_epi32(a.raw, b.raw), _mm512_packs_epi32(c.raw, d.raw));
  __m512i const order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  return hn::Vec<DB>{_mm512_permutexvar_epi32(order, bytes)};
#elif HWY_TARGET == HWY_AVX2
  __m256i const bytes = _mm256_packus_epi16(_mm256_packs_epi32(a.raw, b.raw), _mm256_packs_epi32(c.raw, d.raw));
  return hn::Vec<DB>{_mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7))};
#else
  return hn::Vec<DB>{_mm_packus_epi16(_mm_packs_epi32(a.raw, b.raw), _mm_packs_epi32(c.raw, d.raw))};
#endif
}

// t = v*255 + 0.5 in v's precision; NaN and t < 0 give 0, the rest is capped
// at 256.
template <class D>
HWY_INLINE hn::Vec<D> CappedOffsetUnit(D d, hn::Vec<D> v) {
  using F = hn::TFromD<D>;
  auto const t = hn::Add(hn::Mul(v, hn::Set(d, F(255))), hn::Set(d, F(0.5)));
  return hn::IfThenElseZero(hn::Ge(t, hn::Zero(d)), hn::Min(t, hn::Set(d, F(256))));
}

// The int32 lanes of Lanes(DI) values from j on.  The truncations cannot
// overflow: the values are in [0, 256].
HWY_INLINE hn::Vec<DI> Int32Of(float const* HWY_RESTRICT in, std::size_t stride, std::size_t j) {
  hn::ScalableTag<float> d;
  return TruncateInRange(d, CappedOffsetUnit(d, LoadStrided(d, in, stride, j)));
}

HWY_INLINE hn::Vec<DI> Int32Of(double const* HWY_RESTRICT in, std::size_t stride, std::size_t j) {
  hn::Rebind<double, hn::Half<DI>> d;
  std::size_t const n = hn::Lanes(d);
  auto const lo = TruncateInRange(d, CappedOffsetUnit(d, LoadStrided(d, in, stride, j)));
  auto const hi = TruncateInRange(d, CappedOffsetUnit(d, LoadStrided(d, in, stride, j + n)));
  return hn::Combine(DI(), hi, lo);
}

// The bytes of Lanes(DB) values from j on.  The loads go in address order
// (not in that of the arguments' evaluation), which the hardware prefetcher
// follows best.
template <class T>
HWY_INLINE hn::Vec<DB> BytesOf(T const* HWY_RESTRICT in, std::size_t stride, std::size_t j) {
  std::size_t const n = hn::Lanes(DI());
  auto const a = Int32Of(in, stride, j);
  auto const b = Int32Of(in, stride, j + n);
  auto const c = Int32Of(in, stride, j + 2 * n);
  return PackBytes(a, b, c, Int32Of(in, stride, j + 3 * n));
}

HWY_INLINE hn::Vec<DB> BytesOf(std::uint16_t const* HWY_RESTRICT in, std::size_t stride, std::size_t j) {
  hn::ScalableTag<std::uint16_t> d;
  hn::Half<DB> dh;
  auto const factor = hn::Set(d, std::uint16_t{65281}), half = hn::Set(d, std::uint16_t{128});
  auto byteOf = [&](std::size_t at) {
    return hn::TruncateTo(dh, hn::ShiftRight<8>(hn::Add(hn::MulHigh(LoadStrided(d, in, stride, at), factor), half)));
  };
  auto const lo = byteOf(j);
  return hn::Combine(DB(), byteOf(j + hn::Lanes(d)), lo);
}
#endif

// Converts values [0, count) into bytes, whole byte vectors where they fit,
// the rest by the scalar rule.
template <class T, class Rule>
void ToBytes(T const* HWY_RESTRICT in, std::size_t count, std::size_t stride, std::uint8_t* HWY_RESTRICT out,
             Rule rule) {
  auto byRule = [&](std::size_t from, std::size_t to) {
    for (std::size_t j = from; j < to; ++j) out[j] = rule(in[j * stride]);
  };
#ifdef QZ_GRAY_VECTOR
  auto bytesOf = [&](std::size_t j) { return BytesOf(in, stride, j); };
  StoreVectors(DB(), out, 0, count, count >= kStreamedBytes, bytesOf, byRule);
#else
  byRule(0, count);
#endif
}

}  // namespace

void GrayToBytesF64(double const* HWY_RESTRICT in, std::size_t count, std::size_t stride,
                    std::uint8_t* HWY_RESTRICT out) {
  ToBytes(in, count, stride, out, offsetUnitToByte);
}

void GrayToBytesF32(float const* HWY_RESTRICT in, std::size_t count, std::size_t stride,
                    std::uint8_t* HWY_RESTRICT out) {
  ToBytes(in, count, stride, out, offsetUnitToByteSingle);
}

void GrayToBytesU16(std::uint16_t const* HWY_RESTRICT in, std::size_t count, std::size_t stride,
                    std::uint8_t* HWY_RESTRICT out) {
  ToBytes(in, count, stride, out, uint16ToByte);
}

#undef QZ_GRAY_VECTOR

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qz {

HWY_EXPORT(GrayToBytesF64);
HWY_EXPORT(GrayToBytesF32);
HWY_EXPORT(GrayToBytesU16);

void convertGrayToBytes(double const* in, std::size_t count, std::size_t stride, std::uint8_t* out) {
  HWY_DYNAMIC_DISPATCH(GrayToBytesF64)(in, count, stride, out);
}
void convertGrayToBytes(float const* in, std::size_t count, std::size_t stride, std::uint8_t* out) {
  HWY_DYNAMIC_DISPATCH(GrayToBytesF32)(in, count, stride, out);
}
void convertGrayToBytes(std::uint16_t const* in, std::size_t count, std::size_t stride, std::uint8_t* out) {
  HWY_DYNAMIC_DISPATCH(GrayToBytesU16)(in, count, stride, out);
}

}  // namespace qz
#endif  // HWY_ONCE
