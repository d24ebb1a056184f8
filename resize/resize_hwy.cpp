// The resampling kernels' inner loops in vector lanes, one copy per
// instruction set (see qz_simd in CMakeLists.txt), chosen at run time.
//
// A lane is one output element.  It starts from +0.0 and adds each tap's
// product (source widened exactly to double, times the weight; a separate
// multiply and add) in tap order, as the plain rule does, and converts the
// sum with fromWeightedSum's comparisons as masks: every instruction set
// stores the plain rule's bits.  Elements that do not fill a vector take
// the plain rule.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "resize/resize_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "hwy/cache_control.h"

#include "common/convert.hpp"
#include "common/simd-inl.hpp"
#include "resize/resize_lanes.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace {

// One element by the plain rule.
template <class E>
E PlainElement(E const* src, std::size_t base, double const* w, std::size_t const* o, std::size_t scale,
               std::size_t taps) {
  double acc = 0.0;
  for (std::size_t k = 0; k < taps; ++k) acc = acc + static_cast<double>(src[base + o[k] * scale]) * w[k];
  return fromWeightedSum<E>(acc);
}

// Lanes(d) consecutive elements of type E from p, widened exactly to double.
template <class E, class D>
HWY_INLINE hn::Vec<D> LoadWidened(D d, E const* HWY_RESTRICT p) {
  return WidenToDouble(d, hn::LoadU(hn::Rebind<E, D>(), p));
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
// AVX-512's saturating narrowings of int32 lanes to 8 or 16 bits: one
// instruction where the portable demotion packs and permutes.  Unsigned
// types see only non-negative lanes here, so the unsigned saturation of
// the bits is the value's.  (The zeroing forms, every lane selected: the
// plain forms' headers leave a value the compiler takes as uninitialised.)
template <class E>
HWY_INLINE __m128i NarrowSaturated(__m256i i) {
  if constexpr (std::is_same_v<E, std::uint8_t>) return _mm256_maskz_cvtusepi32_epi8(0xFF, i);
  if constexpr (std::is_same_v<E, std::int8_t>) return _mm256_maskz_cvtsepi32_epi8(0xFF, i);
  if constexpr (std::is_same_v<E, std::uint16_t>) return _mm256_maskz_cvtusepi32_epi16(0xFF, i);
  return _mm256_maskz_cvtsepi32_epi16(0xFF, i);
}
template <class E>
HWY_INLINE __m128i NarrowSaturated(__m128i i) {
  if constexpr (std::is_same_v<E, std::uint8_t>) return _mm_maskz_cvtusepi32_epi8(0xF, i);
  if constexpr (std::is_same_v<E, std::int8_t>) return _mm_maskz_cvtsepi32_epi8(0xF, i);
  if constexpr (std::is_same_v<E, std::uint16_t>) return _mm_maskz_cvtusepi32_epi16(0xF, i);
  return _mm_maskz_cvtsepi32_epi16(0xF, i);
}
#endif

// fromWeightedSum of every lane of s, stored as Lanes(d) elements of E.
// The integer rule: unsigned types add 0.5, signed types add 0.5 with the
// sum's sign (-0.0 counts as non-negative); then "min > v" gives min and
// "v > max" gives max, and a NaN, which fails both, stores what the
// processor's truncation leaves (0, or INT32_MIN for int32); anything else
// truncates, exactly, since it lies within the type's range.
template <class E, class D>
HWY_INLINE void StoreSum(D d, hn::Vec<D> s, E* HWY_RESTRICT out) {
  hn::Rebind<E, D> de;
  hn::Rebind<std::int32_t, D> di;
  if constexpr (std::is_same_v<E, double>) {
    hn::StoreU(s, d, out);
  } else if constexpr (std::is_same_v<E, float>) {
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
    // The portable targets' narrowing saturates at the largest float where
    // the hardware's (and the rule's) rounds to infinity: narrow lane by lane.
    HWY_ALIGN double lanes[hn::MaxLanes(d)];
    hn::Store(s, d, lanes);
    for (std::size_t i = 0; i < hn::Lanes(d); ++i) out[i] = static_cast<float>(lanes[i]);
#else
    hn::StoreU(hn::DemoteTo(de, s), de, out);  // rounds to nearest, overflows to infinity
#endif
  } else {
    auto const zero = hn::Zero(d), half = hn::Set(d, 0.5);
    auto v = std::is_unsigned_v<E> ? hn::Add(s, half)
                                   : hn::IfThenElse(hn::Lt(s, zero), hn::Sub(s, half), hn::Add(s, half));
    if constexpr (sizeof(E) <= 2) {
      // The demotions to int32 and on to E saturate, which is the range
      // test: only NaN needs one of its own (and the low side of unsigned
      // types, where it comes with the same test).
      v = std::is_unsigned_v<E> ? hn::IfThenElseZero(hn::Ge(v, zero), v) : hn::IfThenZeroElse(hn::IsNaN(v), v);
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
      if constexpr (hn::MaxLanes(d) == 4 || hn::MaxLanes(d) == 8) {
        auto narrow = hn::Zero(de);
        narrow.raw = NarrowSaturated<E>(hn::DemoteTo(di, v).raw);
        hn::StoreU(narrow, de, out);
        return;
      }
#endif
      hn::StoreU(hn::DemoteTo(de, hn::DemoteTo(di, v)), de, out);
    } else {
      auto const lo = hn::Set(d, minAsDouble<E>()), hi = hn::Set(d, maxAsDouble<E>());
      v = hn::IfThenElse(hn::Lt(v, lo), lo, v);
      v = hn::IfThenElse(hn::Gt(v, hi), hi, v);
      auto const number = hn::Eq(v, v);
      v = std::is_same_v<E, std::int32_t> ? hn::IfThenElse(number, v, lo) : hn::IfThenElseZero(number, v);
      if constexpr (std::is_same_v<E, std::uint32_t>) {
        // Beyond int32: truncate (exact), shift into the signed range,
        // convert and shift the bits back.
        auto const i = hn::DemoteTo(di, hn::Sub(hn::Trunc(v), hn::Set(d, 2147483648.0)));
        hn::StoreU(hn::Xor(hn::BitCast(de, i), hn::Set(de, 0x80000000u)), de, out);
      } else {
        hn::StoreU(hn::DemoteTo(di, v), di, out);
      }
    }
  }
}

template <class E>
void RowColumn(E const* HWY_RESTRICT src, std::size_t base, double const* HWY_RESTRICT w,
               std::size_t const* HWY_RESTRICT o, std::size_t scale, std::size_t taps, E* HWY_RESTRICT out,
               std::size_t rows) {
  hn::ScalableTag<double> d;
  std::size_t const n = hn::Lanes(d);
  std::size_t r = 0;
  // Four vectors of rows at a time: four independent sums per tap.
  for (; r + 4 * n <= rows; r += 4 * n) {
    auto a0 = hn::Zero(d), a1 = hn::Zero(d), a2 = hn::Zero(d), a3 = hn::Zero(d);
    for (std::size_t k = 0; k < taps; ++k) {
      E const* p = src + (base + o[k] * scale + r);
      auto const wk = hn::Set(d, w[k]);
      a0 = hn::Add(a0, hn::Mul(LoadWidened(d, p), wk));
      a1 = hn::Add(a1, hn::Mul(LoadWidened(d, p + n), wk));
      a2 = hn::Add(a2, hn::Mul(LoadWidened(d, p + 2 * n), wk));
      a3 = hn::Add(a3, hn::Mul(LoadWidened(d, p + 3 * n), wk));
    }
    StoreSum(d, a0, out + r);
    StoreSum(d, a1, out + r + n);
    StoreSum(d, a2, out + r + 2 * n);
    StoreSum(d, a3, out + r + 3 * n);
  }
  for (; r + n <= rows; r += n) {
    auto a = hn::Zero(d);
    for (std::size_t k = 0; k < taps; ++k)
      a = hn::Add(a, hn::Mul(LoadWidened(d, src + (base + o[k] * scale + r)), hn::Set(d, w[k])));
    StoreSum(d, a, out + r);
  }
  for (; r < rows; ++r) out[r] = PlainElement(src, base + r, w, o, scale, taps);
}

// The column kernel, and the row kernel for columns of a few elements (an
// interleaved image's width pass, where a column is one pixel's channels),
// on tiles of items.  An item's source starts at item * srcStride
// and its output at item * dstStride; output position i has m consecutive
// elements from i * m, element c the weighted sum of the source elements at
// offsets[i * taps + k] + c (offsets count elements).  The column kernel is
// m = 1 with a column per item; the narrow row kernel has a plane per item.
//
// A window of the tile's source elements is widened to double and
// interleaved across the tile's items, so that a tap is one vector load for
// all of them; the results of a run of output positions are kept per item
// and stored contiguously.  A run takes as many positions as the window
// holds the taps of (up to kMaxRun elements): long runs also keep the
// window's stores well ahead of the vector loads that read them.  A
// position whose taps alone spread wider than the window takes the plain
// rule.
constexpr std::size_t kWindowRows = 1024;
constexpr std::size_t kMaxRun = 512;
constexpr std::size_t kMaxLanes = HWY_MAX_BYTES / sizeof(double);

// Positions [i0, i1) whose taps all fall in the window's elements
// [lo, lo + span), or one position (plain) too wide for the window.
struct WindowRun {
  std::size_t i0, i1, lo, span;
  bool plain;
};
constexpr std::size_t kRunsPerBatch = 64;

// The runs from position i0 on (up to last), at most kRunsPerBatch of them;
// returns where the next batch starts.  They depend on the filter only, so
// one batch serves every tile.
inline std::size_t PlanRuns(std::size_t const* HWY_RESTRICT offsets, std::size_t last, std::size_t taps,
                            std::size_t m, std::size_t i0, WindowRun* runs, std::size_t& count) {
  count = 0;
  while (i0 < last && count < kRunsPerBatch) {
    std::size_t lo = taps != 0 ? offsets[i0 * taps] : 0, hi = lo, i1 = i0;
    for (; i1 < last && (i1 - i0 + 1) * m <= kMaxRun; ++i1) {
      std::size_t nlo = lo, nhi = hi;
      for (std::size_t e = i1 * taps; e < (i1 + 1) * taps; ++e) {
        nlo = std::min(nlo, offsets[e]);
        nhi = std::max(nhi, offsets[e]);
      }
      if (nhi - nlo + m > kWindowRows) break;
      lo = nlo;
      hi = nhi;
    }
    if (i1 == i0)
      runs[count++] = {i0, i0 + 1, 0, 0, true};
    else
      runs[count++] = {i0, i1, lo, taps == 0 ? 0 : hi - lo + m, false};
    i0 = runs[count - 1].i1;
  }
  return i0;
}

#if HWY_TARGET != HWY_SCALAR
// Four vectors of four doubles, v[c] holding elements r..r+3 of item c,
// become t[q] holding element r+q of items 0..3.
template <class D>
HWY_INLINE void Transpose4(D d, hn::Vec<D> const* v, hn::Vec<D>* t) {
  auto const a0 = hn::InterleaveLower(d, v[0], v[1]), a1 = hn::InterleaveUpper(d, v[0], v[1]);
  auto const a2 = hn::InterleaveLower(d, v[2], v[3]), a3 = hn::InterleaveUpper(d, v[2], v[3]);
  t[0] = hn::ConcatLowerLower(d, a2, a0);
  t[1] = hn::ConcatLowerLower(d, a3, a1);
  t[2] = hn::ConcatUpperUpper(d, a2, a0);
  t[3] = hn::ConcatUpperUpper(d, a3, a1);
}
#endif

// The sums of a tile, one group's lanes to each group's results.
template <std::size_t kGroups, class D, class V, class E>
HWY_INLINE void StoreGroups(D d, V a, E (*results)[kMaxRun * 4], std::size_t at) {
  if constexpr (kGroups == 2) {
#if HWY_TARGET != HWY_SCALAR
    StoreSum(d, hn::LowerHalf(d, a), results[0] + at);
    StoreSum(d, hn::UpperHalf(d, a), results[1] + at);
#endif
  } else {
    StoreSum(d, a, results[0] + at);
  }
}

template <class E>
void TiledItems(E const* HWY_RESTRICT src, E* HWY_RESTRICT dst, double const* HWY_RESTRICT weights,
                std::size_t const* HWY_RESTRICT offsets, std::size_t m, std::size_t srcStride, std::size_t dstStride,
                std::size_t iFirst, std::size_t iLast, std::size_t taps, std::size_t first, std::size_t last) {
  // Items go in groups of up to four (d), whose results return to their
  // items by one de-interleaving load; a tile is one group, or two where a
  // vector holds eight doubles, the sums then running on both at once.  A
  // single group then takes four of the items left over.
  hn::CappedTag<double, 4> d;
  constexpr std::size_t kGroups = hn::MaxLanes(hn::ScalableTag<double>()) >= 8 && hn::MaxLanes(d) == 4 ? 2 : 1;
  std::size_t const n = hn::Lanes(d);
  HWY_ALIGN double window[kWindowRows * kMaxLanes];
  E results[kGroups][kMaxRun * 4];
  WindowRun runs[kRunsPerBatch];
  std::size_t count = 0;
  auto plain = [&](std::size_t j, std::size_t i) {
    for (std::size_t c = 0; c < m; ++c)
      dst[j * dstStride + i * m + c] = PlainElement(src, j * srcStride + c, weights + i * taps, offsets + i * taps, 1,
                                                    taps);
  };
  // Items [j, j + groups * n) over the runs of the current batch.
  auto tile = [&](auto groups, std::size_t j) {
    constexpr std::size_t kTileGroups = decltype(groups)::value;
    hn::CappedTag<double, 4 * kTileGroups> dt;
    std::size_t const nt = hn::Lanes(dt);
    for (std::size_t q = 0; q < count; ++q) {
      WindowRun const run = runs[q];
      if (run.plain) {
        for (std::size_t c = 0; c < nt; ++c) plain(j + c, run.i0);
        continue;
      }
      // The window: element r of the run's span for item c at r * nt + c.
      E const* from = src + (j * srcStride + run.lo);
      std::size_t r = 0;
#if HWY_TARGET != HWY_SCALAR
      if constexpr (hn::MaxLanes(d) == 4) {
        for (; r + 4 <= run.span; r += 4)
          for (std::size_t g = 0; g < kTileGroups; ++g) {
            E const* at = from + 4 * g * srcStride + r;
            hn::Vec<decltype(d)> v[4] = {LoadWidened(d, at), LoadWidened(d, at + srcStride),
                                         LoadWidened(d, at + 2 * srcStride), LoadWidened(d, at + 3 * srcStride)};
            hn::Vec<decltype(d)> t[4];
            Transpose4(d, v, t);
            for (std::size_t u = 0; u < 4; ++u) hn::Store(t[u], d, window + (r + u) * nt + 4 * g);
          }
      } else if constexpr (hn::MaxLanes(d) == 2) {
        for (; r + 2 <= run.span; r += 2)
          hn::StoreInterleaved2(LoadWidened(d, from + r), LoadWidened(d, from + srcStride + r), d, window + r * 2);
      }
#endif
      for (; r < run.span; ++r)
        for (std::size_t c = 0; c < nt; ++c) window[r * nt + c] = static_cast<double>(from[c * srcStride + r]);
      // Element e of the run is element e % m of position i0 + e / m.
      std::size_t e = 0;
      for (std::size_t i = run.i0; i < run.i1; ++i) {
        double const* w = weights + i * taps;
        std::size_t const* o = offsets + i * taps;
        for (std::size_t c = 0; c < m; ++c, ++e) {
          auto a = hn::Zero(dt);
          for (std::size_t k = 0; k < taps; ++k)
            a = hn::Add(a, hn::Mul(hn::Load(dt, window + (o[k] - run.lo + c) * nt), hn::Set(dt, w[k])));
          StoreGroups<kTileGroups>(d, a, results, e * n);
        }
      }
      // Back to items: an interleaving load of four outputs' lanes gives
      // four outputs of each item of a group.
      hn::Rebind<E, decltype(d)> de;
      for (std::size_t g = 0; g < kTileGroups; ++g) {
        E const* res = results[g];
        E* to = dst + ((j + g * n) * dstStride + run.i0 * m);
        std::size_t t = 0;
        if constexpr (hn::MaxLanes(d) == 4) {
          for (; t + 4 <= e; t += 4) {
            hn::Vec<decltype(de)> v0, v1, v2, v3;
            hn::LoadInterleaved4(de, res + t * 4, v0, v1, v2, v3);
            hn::StoreU(v0, de, to + t);
            hn::StoreU(v1, de, to + dstStride + t);
            hn::StoreU(v2, de, to + 2 * dstStride + t);
            hn::StoreU(v3, de, to + 3 * dstStride + t);
          }
        } else if constexpr (hn::MaxLanes(d) == 2) {
          for (; t + 2 <= e; t += 2) {
            hn::Vec<decltype(de)> v0, v1;
            hn::LoadInterleaved2(de, res + t * 2, v0, v1);
            hn::StoreU(v0, de, to + t);
            hn::StoreU(v1, de, to + dstStride + t);
          }
        }
        for (std::size_t c = 0; c < n; ++c)
          for (std::size_t u = t; u < e; ++u) to[c * dstStride + u] = res[u * n + c];
      }
    }
  };
  std::size_t const nt = kGroups * n;
  std::size_t const tiled = first + (last - first) / nt * nt;
  std::size_t const grouped = kGroups > 1 && last - tiled >= n ? tiled + n : tiled;
  for (std::size_t next = iFirst; next < iLast && first < grouped;) {
    next = PlanRuns(offsets, iLast, taps, m, next, runs, count);
    for (std::size_t j = first; j < tiled; j += nt) tile(std::integral_constant<std::size_t, kGroups>(), j);
    if (grouped > tiled) tile(std::integral_constant<std::size_t, 1>(), tiled);
  }
  for (std::size_t j = grouped; j < last; ++j)
    for (std::size_t i = iFirst; i < iLast; ++i) plain(j, i);
}

// Enlargements, where each run of Lanes consecutive output elements of an
// item draws on few consecutive source elements: a lane is one output
// element, the run's source elements are loaded once as one vector (two
// where AVX-512 can pick from a pair), each tap's lanes are picked from them
// by a lane permutation, and the sums come out in the item's own order,
// with no transposes.  The items are as in TiledItems (output element e of
// an item is channel e % m of position e / m), elements [eFirst, eLast) of
// items [first, last); srcLength is the length of an item's source.  The
// filter is rearranged a batch of runs at a time (per run and tap, a vector
// of lane indices and one of weights).  Returns false, having written
// nothing, where the filter does not fit.
constexpr std::size_t kLookupEntries = 2048;  // lanes of a batch's arrangement
constexpr std::size_t kLookupItems = 16;      // items swept per run
constexpr std::size_t kPrefetchAhead = 512;   // bytes

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
constexpr bool kPairTables = true;
#else
constexpr bool kPairTables = false;
#endif

// The lanes of lo (index below Lanes) or hi (index - Lanes) the indices name.
template <bool kPair, class D>
HWY_INLINE hn::Vec<D> PickLanes(D d, hn::Vec<D> lo, hn::Vec<D> hi, std::int64_t const* HWY_RESTRICT index) {
  if constexpr (kPair) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
    auto const i = hn::Load(hn::RebindToSigned<D>(), index);
    lo.raw = _mm512_permutex2var_pd(lo.raw, i.raw, hi.raw);
#endif
    return lo;
  } else {
    (void)hi;
    return hn::TableLookupLanes(lo, hn::SetTableIndices(d, index));
  }
}

// kTaps is the tap count when it is known at compile time (0 when not):
// bicubic enlargements have four, and then a run's lane indices stay in
// registers for all the items of a sweep instead of being loaded for each.
template <bool kPair, std::size_t kTaps, class E>
void LookupRuns(E const* HWY_RESTRICT src, E* HWY_RESTRICT dst, std::size_t srcStride, std::size_t dstStride,
                std::size_t eFirst, std::size_t runs, std::size_t anyTaps, std::size_t first, std::size_t last,
                std::size_t const* HWY_RESTRICT base, std::int64_t const* HWY_RESTRICT lanes,
                double const* HWY_RESTRICT factors) {
  std::size_t const taps = kTaps ? kTaps : anyTaps;
  hn::ScalableTag<double> d;
  std::size_t const n = hn::Lanes(d);
  // A few items at a time, so that the arrangement is read once per sweep
  // and each item's lines stay in cache from one run to the next.
  for (std::size_t j0 = first; j0 < last; j0 += kLookupItems) {
    std::size_t const j1 = std::min(last, j0 + kLookupItems);
    for (std::size_t g = 0; g < runs; ++g) {
      std::int64_t const* HWY_RESTRICT index = lanes + g * taps * n;
      double const* HWY_RESTRICT factor = factors + g * taps * n;
      for (std::size_t j = j0; j < j1; ++j) {
        E const* from = src + (j * srcStride + base[g]);
        hwy::Prefetch(from + kPrefetchAhead / sizeof(E));
        auto const lo = LoadWidened(d, from);
        auto const hi = kPair ? LoadWidened(d, from + n) : lo;
        auto term = [&](std::size_t k) {
          return hn::Mul(PickLanes<kPair>(d, lo, hi, index + k * n), hn::Load(d, factor + k * n));
        };
        // The sum starts at +0; for an integer result it can start at the
        // first term instead, as the two differ only in the sign of a zero
        // sum, which rounds to the same integer.
        auto a = std::is_integral_v<E> ? term(0) : hn::Add(hn::Zero(d), term(0));
        for (std::size_t k = 1; k < taps; ++k) a = hn::Add(a, term(k));
        StoreSum(d, a, dst + (j * dstStride + eFirst + g * n));
      }
    }
  }
}

template <class E>
bool LookupItems(E const* HWY_RESTRICT src, E* HWY_RESTRICT dst, double const* HWY_RESTRICT weights,
                 std::size_t const* HWY_RESTRICT offsets, std::size_t m, std::size_t srcStride,
                 std::size_t srcLength, std::size_t dstStride, std::size_t eFirst, std::size_t eLast,
                 std::size_t taps, std::size_t first, std::size_t last) {
  hn::ScalableTag<double> d;
  std::size_t const n = hn::Lanes(d);
  std::size_t const runs = (eLast - eFirst) / n;
  std::size_t const width = kPairTables && n == 8 ? 2 * n : n;  // the widest table a run may use
  if (n < 4 || taps == 0 || taps * n > kLookupEntries || runs == 0) return false;
  auto source = [&](std::size_t e, std::size_t k) { return offsets[e / m * taps + k] + e % m; };
  auto lowest = [&](std::size_t g, std::size_t& hi) {  // of run g's sources; hi their highest
    std::size_t const e0 = eFirst + g * n;
    std::size_t lo = source(e0, 0);
    hi = lo;
    for (std::size_t e = e0; e < e0 + n; ++e)
      for (std::size_t k = 0; k < taps; ++k) {
        lo = std::min(lo, source(e, k));
        hi = std::max(hi, source(e, k));
      }
    return lo;
  };
  std::size_t span = 0;  // the widest run's
  for (std::size_t g = 0; g < runs; ++g) {
    std::size_t hi = 0;
    std::size_t const lo = lowest(g, hi);
    if (hi >= srcLength || hi - lo >= width) return false;
    span = std::max(span, hi - lo + 1);
  }
  std::size_t const table = span <= n ? n : width;
  if (srcLength < table) return false;  // the vector loads stay inside the item's source
  // The arrangement of a batch of runs at a time, on the stack.
  std::size_t const batch = kLookupEntries / (taps * n);
  HWY_ALIGN std::int64_t lanes[kLookupEntries];
  HWY_ALIGN double factors[kLookupEntries];
  std::size_t base[kLookupEntries / 4];
  for (std::size_t g0 = 0; g0 < runs; g0 += batch) {
    std::size_t const count = std::min(batch, runs - g0);
    for (std::size_t b = 0; b < count; ++b) {
      std::size_t hi = 0;
      base[b] = std::min(lowest(g0 + b, hi), srcLength - table);
      for (std::size_t k = 0; k < taps; ++k)
        for (std::size_t c = 0; c < n; ++c) {
          std::size_t const at = (b * taps + k) * n + c, e = eFirst + (g0 + b) * n + c;
          lanes[at] = static_cast<std::int64_t>(source(e, k) - base[b]);
          factors[at] = weights[e / m * taps + k];
        }
    }
    std::size_t const e0 = eFirst + g0 * n;
    auto sweep = [&](auto pair, auto knownTaps) {
      LookupRuns<decltype(pair)::value, decltype(knownTaps)::value>(src, dst, srcStride, dstStride, e0, count, taps,
                                                                     first, last, base, lanes, factors);
    };
    using Four = std::integral_constant<std::size_t, 4>;
    using Any = std::integral_constant<std::size_t, 0>;
    using Pair = std::bool_constant<kPairTables>;
    if (table == n)
      taps == 4 ? sweep(std::false_type(), Four()) : sweep(std::false_type(), Any());
    else
      taps == 4 ? sweep(Pair(), Four()) : sweep(Pair(), Any());
  }
  for (std::size_t j = first; j < last; ++j)
    for (std::size_t e = eFirst + runs * n; e < eLast; ++e)
      dst[j * dstStride + e] = PlainElement(src, j * srcStride + e % m, weights + e / m * taps,
                                            offsets + e / m * taps, 1, taps);
  return true;
}

template <class E>
void ColumnItems(E const* src, E* dst, double const* weights, std::size_t const* offsets, std::size_t srcRows,
                 std::size_t dstRows, std::size_t taps, std::size_t first, std::size_t last) {
  if (!LookupItems(src, dst, weights, offsets, 1, srcRows, srcRows, dstRows, 0, dstRows, taps, first, last))
    TiledItems(src, dst, weights, offsets, 1, srcRows, dstRows, 0, dstRows, taps, first, last);
}

template <class E>
void RowColumnsNarrow(E const* src, E* dst, double const* weights, std::size_t const* offsets, std::size_t rows,
                      std::size_t srcCols, std::size_t dstCols, std::size_t taps, std::size_t planes,
                      std::size_t first, std::size_t last) {
  if (!LookupItems(src, dst, weights, offsets, rows, rows * srcCols, rows * srcCols, rows * dstCols, first * rows,
                   last * rows, taps, 0, planes))
    TiledItems(src, dst, weights, offsets, rows, rows * srcCols, rows * dstCols, first, last, taps, 0, planes);
}

}  // namespace

#define QZ_RESIZE_LANES(E, Name)                                                                               \
  void RowColumn##Name(E const* src, std::size_t base, double const* w, std::size_t const* o,                  \
                       std::size_t scale, std::size_t taps, E* out, std::size_t rows) {                      \
    RowColumn(src, base, w, o, scale, taps, out, rows);                                                        \
  }                                                                                                            \
  void ColumnItems##Name(E const* src, E* dst, double const* weights, std::size_t const* offsets,             \
                         std::size_t srcRows, std::size_t dstRows, std::size_t taps, std::size_t first,        \
                         std::size_t last) {                                                                   \
    ColumnItems(src, dst, weights, offsets, srcRows, dstRows, taps, first, last);                              \
  }                                                                                                            \
  void RowColumnsNarrow##Name(E const* src, E* dst, double const* weights, std::size_t const* offsets,        \
                              std::size_t rows, std::size_t srcCols, std::size_t dstCols, std::size_t taps,    \
                              std::size_t planes, std::size_t first, std::size_t last) {                       \
    RowColumnsNarrow(src, dst, weights, offsets, rows, srcCols, dstCols, taps, planes, first, last);           \
  }
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_RESIZE_LANES)
#undef QZ_RESIZE_LANES

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qz {

#define QZ_RESIZE_DISPATCH(E, Name)                                                                              \
  HWY_EXPORT(RowColumn##Name);                                                                                 \
  HWY_EXPORT(ColumnItems##Name);                                                                               \
  HWY_EXPORT(RowColumnsNarrow##Name);                                                                          \
  template <>                                                                                                  \
  void resizeRowColumnsNarrow<E>(E const* src, E* dst, double const* weights, std::size_t const* offsets,     \
                                 std::size_t rows, std::size_t srcCols, std::size_t dstCols, std::size_t taps, \
                                 std::size_t planes, std::size_t first, std::size_t last) {                    \
    HWY_DYNAMIC_DISPATCH(RowColumnsNarrow##Name)(src, dst, weights, offsets, rows, srcCols, dstCols, taps,     \
                                                 planes, first, last);                                         \
  }                                                                                                            \
  template <>                                                                                                  \
  void resizeRowColumn<E>(E const* src, std::size_t base, double const* w, std::size_t const* o,               \
                          std::size_t scale, std::size_t taps, E* out, std::size_t rows) {                    \
    HWY_DYNAMIC_DISPATCH(RowColumn##Name)(src, base, w, o, scale, taps, out, rows);                            \
  }                                                                                                            \
  template <>                                                                                                  \
  void resizeColumnItems<E>(E const* src, E* dst, double const* weights, std::size_t const* offsets,          \
                            std::size_t srcRows, std::size_t dstRows, std::size_t taps, std::size_t first,     \
                            std::size_t last) {                                                                \
    HWY_DYNAMIC_DISPATCH(ColumnItems##Name)(src, dst, weights, offsets, srcRows, dstRows, taps, first, last);  \
  }
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_RESIZE_DISPATCH)
#undef QZ_RESIZE_DISPATCH

}  // namespace qz
#endif  // HWY_ONCE
