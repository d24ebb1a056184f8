// grayto8's three conversions in vector lanes, one copy per instruction set,
// chosen at run time.  Still one pass on the calling thread.
//
// Double and single lanes do the scalar rule's operations in its order and
// precision (v*255, + 0.5, the two saturation tests, truncation).  uint16
// uses the integer identity trunc(u*(1/257) + 0.5) = ((u + 128)*65281) >> 24,
// which the tests check on all 65,536 values; its products stay below 2^32.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "indexed/grayto8_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "common/convert.hpp"
#include "common/simd-inl.hpp"
#include "indexed/grayto8.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace {

// Loads the values j .. j+Lanes(d)-1 of a stride-1 or stride-2 (real parts
// of complex) sequence.
template <class D>
HWY_INLINE hn::Vec<D> LoadStrided(D d, hn::TFromD<D> const* HWY_RESTRICT in, std::size_t stride, std::size_t j) {
  if (stride == 1) return hn::LoadU(d, in + j);
  hn::Vec<D> re, im;
  hn::LoadInterleaved2(d, in + 2 * j, re, im);
  return re;
}

template <class T, class Convert>
void scalarTail(T const* in, std::size_t j, std::size_t count, std::size_t stride, std::uint8_t* out, Convert c) {
  for (; j < count; ++j) out[j] = c(in[j * stride]);
}

}  // namespace

namespace {

// The floating classes: each lane by the unit-to-byte rule in T's precision.
template <class T, class Rule>
void FloatingToBytes(T const* HWY_RESTRICT in, std::size_t count, std::size_t stride, std::uint8_t* HWY_RESTRICT out,
                     Rule rule) {
  hn::ScalableTag<T> d;
  hn::Rebind<std::uint8_t, decltype(d)> d8;
  std::size_t const n = hn::Lanes(d);
  std::size_t j = 0;
  for (; j + n <= count; j += n) hn::StoreU(OffsetUnitToByte(d, LoadStrided(d, in, stride, j)), d8, out + j);
  scalarTail(in, j, count, stride, out, rule);
}

}  // namespace

void GrayToBytesF64(double const* HWY_RESTRICT in, std::size_t count, std::size_t stride,
                    std::uint8_t* HWY_RESTRICT out) {
  FloatingToBytes(in, count, stride, out, offsetUnitToByte);
}

void GrayToBytesF32(float const* HWY_RESTRICT in, std::size_t count, std::size_t stride,
                    std::uint8_t* HWY_RESTRICT out) {
  FloatingToBytes(in, count, stride, out, offsetUnitToByteSingle);
}

void GrayToBytesU16(std::uint16_t const* HWY_RESTRICT in, std::size_t count, std::size_t stride,
                    std::uint8_t* HWY_RESTRICT out) {
  hn::ScalableTag<std::uint32_t> d;
  hn::Rebind<std::uint16_t, decltype(d)> d16;
  hn::Rebind<std::uint8_t, decltype(d)> d8;
  hn::Rebind<std::int32_t, decltype(d)> di;
  std::size_t const n = hn::Lanes(d);
  auto const half = hn::Set(d, 128u), factor = hn::Set(d, 65281u);
  std::size_t j = 0;
  for (; j + n <= count; j += n) {
    auto const u = hn::PromoteTo(d, LoadStrided(d16, in, stride, j));
    auto const q = hn::ShiftRight<24>(hn::Mul(hn::Add(u, half), factor));
    hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, q)), d8, out + j);
  }
  scalarTail(in, j, count, stride, out, uint16ToByte);
}

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
