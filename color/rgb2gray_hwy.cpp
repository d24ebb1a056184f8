// rgb2gray in vector lanes, one copy per instruction set (see qz_simd in
// CMakeLists.txt), chosen at run time.
//
// Each lane does the plain rule's double operations in the plain rule's
// order (two products summed, then the third product added; the same clamp
// or rounding and saturation), so every pixel gets the plain rule's bits.
// Bytes are the exception: their table sum is reproduced by a 22-bit fixed
// point sum, which the tests check against the table on all 2^24 triples.
// 16-bit samples reach their products by a multiply-add with no conversion
// (TimesFromBig), which rounds each product exactly as the rule does.
// The 64-bit integer classes, whose conversions to and from double have no
// vector form here, and the clamp settings the gateway never uses, take the
// plain rule.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "color/rgb2gray_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "color/rgb2gray.hpp"
#include "color/rgb2gray_rule.hpp"
#include "common/simd-inl.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace {

// For bytes: trunc(red[r] + green[g] + blue[b]) of the weight tables equals
// (r*kR + g*kG + b*kB + kC) >> 22 for every triple.  The weights sum to 2^22
// and the largest sum, 255*2^22 + kC, stays below 2^31.
constexpr std::uint32_t kFixedRed = 1253829, kFixedGreen = 2462237, kFixedBlue = 478238, kFixedHalf = 2097144;
constexpr int kFixedShift = 22;

void GrayBytes(std::uint8_t const* HWY_RESTRICT in, std::size_t p, std::uint8_t* HWY_RESTRICT out, bool planar,
               std::size_t b, std::size_t e) {
  hn::ScalableTag<std::uint32_t> d;
  hn::Rebind<std::uint8_t, decltype(d)> d8;
  hn::Rebind<std::int32_t, decltype(d)> di;
  auto const wr = hn::Set(d, kFixedRed), wg = hn::Set(d, kFixedGreen), wb = hn::Set(d, kFixedBlue);
  auto const half = hn::Set(d, kFixedHalf);
  auto grayOf = [&](std::size_t i) {
    hn::Vec<decltype(d8)> r8, g8, b8;
    LoadRgb(d8, in, p, planar, i, r8, g8, b8);
    auto s = hn::Add(hn::Mul(hn::PromoteTo(d, r8), wr), hn::Mul(hn::PromoteTo(d, g8), wg));
    s = hn::Add(hn::Add(s, hn::Mul(hn::PromoteTo(d, b8), wb)), half);
    return hn::DemoteTo(d8, hn::BitCast(di, hn::ShiftRight<kFixedShift>(s)));
  };
  // Not streamed: parallel sub-ranges writing into a block the runtime has
  // just reused, often still in the caches, measured slower that way.
  StoreVectors(d8, out, b, e, false, grayOf,
               [&](std::size_t from, std::size_t to) { grayrule::line(in, p, false, out, planar, from, to); });
}

// Where fused multiply-add is native (never emulated by a multiply and an
// add, which would round twice), 16-bit samples skip the conversion to
// double; see TimesFromBig.
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2 && HWY_NATIVE_FMA
#define QZ_GRAY_WORDS_BY_FMA 1
#else
#define QZ_GRAY_WORDS_BY_FMA 0
#endif

#if QZ_GRAY_WORDS_BY_FMA
// A 16-bit sample x times a weight w, rounded once as the plain product is,
// with no conversion on the way: the lane whose bits are kTwoTo52Bits | x
// holds the double 2^52 + x, and fma(2^52 + x, w, -2^52 w) rounds the exact
// (2^52 + x) w - 2^52 w = x w once (2^52 w is exact), which is what the
// plain x * w does.  The rule's products and sums are not fused: the two
// sums that follow stay roundings of their own.  Converting x costs more
// than the multiply-add here: a quarter of the kernel's time.
constexpr std::uint64_t kTwoTo52Bits = 0x4330000000000000;  // the double 2^52

// x w from the lanes 2^52 + x.
template <class D>
HWY_INLINE hn::Vec<D> TimesFromBig(D d, hn::Vec<D> big, double w) {
  return hn::MulAdd(big, hn::Set(d, w), hn::Set(d, -0x1p52 * w));
}

// x w for a vector of 16-bit samples, zero-extended into the lanes 2^52 + x.
template <class D>
HWY_INLINE hn::Vec<D> WordTimes(D d, hn::Vec<hn::Rebind<std::uint16_t, D>> x, double w) {
  hn::RebindToUnsigned<D> du;
#if HWY_TARGET <= HWY_AVX3
  hn::Vec<decltype(du)> const wide{_mm512_maskz_cvtepu16_epi64(0xFF, x.raw)};
#else
  hn::Vec<decltype(du)> const wide{_mm256_cvtepu16_epi64(x.raw)};
#endif
  return TimesFromBig(d, hn::BitCast(d, hn::Or(wide, hn::Set(du, kTwoTo52Bits))), w);
}
#endif

// The rule's sum of the weighted samples, widened to d's doubles: the red
// and green products summed, then the blue product added.
template <class D, class V>
HWY_INLINE hn::Vec<D> WeightedSum(D d, V r, V g, V b) {
#if QZ_GRAY_WORDS_BY_FMA
  if constexpr (std::is_same_v<hn::TFromV<V>, std::uint16_t>) {
    auto const s = hn::Add(WordTimes(d, r, kGrayRed), WordTimes(d, g, kGrayGreen));
    return hn::Add(s, WordTimes(d, b, kGrayBlue));
  }
#endif
  auto const s = hn::Add(hn::Mul(WidenToDouble(d, r), hn::Set(d, kGrayRed)),
                         hn::Mul(WidenToDouble(d, g), hn::Set(d, kGrayGreen)));
  return hn::Add(s, hn::Mul(WidenToDouble(d, b), hn::Set(d, kGrayBlue)));
}

#if QZ_GRAY_WORDS_BY_FMA && HWY_TARGET <= HWY_AVX3
// The gray of the 32 pixels from i on, from three planes of 16-bit samples,
// a 512-bit register per plane.  The lanes 2^52 + x are built by in-lane
// unpacks, cheaper here than the zero-extension across lanes, which leave
// each 128-bit lane's eight pixels split over the four vectors of doubles
// in pairs (0 1, 2 3, 4 5, 6 7); the shuffle and pack at the end put them
// back in order.  The products are TimesFromBig's and the sums the rule's.
// t = s + 0.5 is truncated by adding 2^52 rounded down, which leaves
// floor(t) (t is positive and below 2^16) in the low 32 bits of its lane.
HWY_INLINE void GrayWords32(std::uint16_t const* HWY_RESTRICT in, std::size_t p, std::uint16_t* HWY_RESTRICT out,
                            std::size_t i) {
  __m512i const zero = _mm512_setzero_si512(), exponent = _mm512_set1_epi32(kTwoTo52Bits >> 32);
  double const weights[3] = {kGrayRed, kGrayGreen, kGrayBlue};
  __m512d sums[4];
  for (int c = 0; c < 3; ++c) {
    __m512i const x = _mm512_loadu_si512(in + c * p + i);
    __m512i const lo = _mm512_unpacklo_epi16(x, zero), hi = _mm512_unpackhi_epi16(x, zero);
    __m512i const big[4] = {_mm512_maskz_unpacklo_epi32(0xFFFF, lo, exponent),
                            _mm512_maskz_unpackhi_epi32(0xFFFF, lo, exponent),
                            _mm512_maskz_unpacklo_epi32(0xFFFF, hi, exponent),
                            _mm512_maskz_unpackhi_epi32(0xFFFF, hi, exponent)};
    for (int k = 0; k < 4; ++k) {
      __m512d const product = TimesFromBig(hn::Full512<double>(), hn::Vec512<double>{_mm512_castsi512_pd(big[k])},
                                           weights[c]).raw;
      sums[k] = c == 0 ? product : _mm512_add_pd(sums[k], product);
    }
  }
  __m512 low[4];
  for (int k = 0; k < 4; ++k) {
    __m512d const t = _mm512_add_pd(sums[k], _mm512_set1_pd(0.5));
    low[k] = _mm512_castpd_ps(_mm512_maskz_add_round_pd(0xFF, t, _mm512_set1_pd(0x1p52),
                                                        _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC));
  }
  // The even 32-bit halves, pixels 0-3 and 4-7 of each 128-bit lane, then
  // packed to 16 bits (no value needs the pack's saturation).
  __m512i const first = _mm512_castps_si512(_mm512_shuffle_ps(low[0], low[1], _MM_SHUFFLE(2, 0, 2, 0)));
  __m512i const second = _mm512_castps_si512(_mm512_shuffle_ps(low[2], low[3], _MM_SHUFFLE(2, 0, 2, 0)));
  _mm512_storeu_si512(out + i, _mm512_packus_epi32(first, second));
}
#endif

template <class T>
void GrayWidened(T const* HWY_RESTRICT in, std::size_t p, T* HWY_RESTRICT out, bool planar, std::size_t b,
                 std::size_t e) {
  hn::ScalableTag<double> d;
  hn::Rebind<T, decltype(d)> dt;
  auto grayOf = [&](std::size_t i) {
    hn::Vec<decltype(dt)> rt, gt, bt;
    LoadRgb(dt, in, p, planar, i, rt, gt, bt);
    auto const s = WeightedSum(d, rt, gt, bt);
    if constexpr (std::is_same_v<T, double>) {
      return ClampToUnit(d, s);
    } else if constexpr (std::is_same_v<T, float>) {
      return hn::DemoteTo(dt, ClampToUnit(d, s));
    } else if constexpr (std::is_same_v<T, std::uint16_t>) {
      // The weights are positive and sum to 1, so s lies in [0, 65535 + 1e-10]
      // and NaN cannot arise: the rule's saturation never applies, and
      // trunc(s + 0.5) is already a uint16.
      auto const rounded = TruncateInRange(d, hn::Add(s, hn::Set(d, 0.5)));
      return hn::TruncateTo(dt, hn::BitCast(hn::Rebind<std::uint32_t, decltype(d)>(), rounded));
    } else {
      return SaturateRoundHalfAway<T>(d, s);
    }
  };
  auto rule = [&](std::size_t from, std::size_t to) {
    grayrule::line(in, p, std::is_floating_point_v<T>, out, planar, from, to);
  };
#if QZ_GRAY_WORDS_BY_FMA && HWY_TARGET <= HWY_AVX3
  if constexpr (std::is_same_v<T, std::uint16_t>) {
    if (planar) {
      std::size_t i = b;
      for (; i + 32 <= e; i += 32) GrayWords32(in, p, out, i);
      rule(i, e);
      return;
    }
  }
#endif
  StoreVectors(dt, out, b, e, false, grayOf, rule);
}

template <class T>
void GrayKernel(T const* in, std::size_t p, T* out, bool planar, std::size_t b, std::size_t e) {
  GrayWidened<T>(in, p, out, planar, b, e);
}
void GrayKernel(std::uint8_t const* in, std::size_t p, std::uint8_t* out, bool planar, std::size_t b,
                std::size_t e) {
  GrayBytes(in, p, out, planar, b, e);
}

}  // namespace

#define QZ_GRAY_LINE(T, C)                                                                               \
  void GrayLine##C(T const* in, std::size_t p, T* out, bool planar, std::size_t b, std::size_t e) {      \
    GrayKernel(in, p, out, planar, b, e);                                                                \
  }
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_GRAY_LINE)
#undef QZ_GRAY_LINE

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();
#undef QZ_GRAY_WORDS_BY_FMA

#if HWY_ONCE
namespace qz {

#define QZ_GRAY_DISPATCH(T, C)                                                                           \
  HWY_EXPORT(GrayLine##C);                                                                              \
  template <>                                                                                          \
  void rgb2grayLine<T>(T const* input, std::size_t pixels, bool clamp, T* output, bool planar,         \
                       std::size_t begin, std::size_t end) {                                          \
    if (clamp == std::is_floating_point_v<T>)                                                          \
      HWY_DYNAMIC_DISPATCH(GrayLine##C)(input, pixels, output, planar, begin, end);                     \
    else                                                                                               \
      grayrule::line(input, pixels, clamp, output, planar, begin, end);                                \
  }
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_GRAY_DISPATCH)
#undef QZ_GRAY_DISPATCH

// No vector form: the plain rule.
#define QZ_GRAY_PLAIN(T)                                                                                \
  template <>                                                                                          \
  void rgb2grayLine<T>(T const* input, std::size_t pixels, bool clamp, T* output, bool planar,         \
                       std::size_t begin, std::size_t end) {                                          \
    grayrule::line(input, pixels, clamp, output, planar, begin, end);                                  \
  }
QZ_GRAY_PLAIN(std::int64_t)
QZ_GRAY_PLAIN(std::uint64_t)
#undef QZ_GRAY_PLAIN

}  // namespace qz
#endif  // HWY_ONCE
