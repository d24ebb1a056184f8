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

// fromWeightedSum of every lane of s, stored as Lanes(d) elements of E.
// The integer rule: unsigned types add 0.5, signed types add 0.5 with the
// sum's sign (-0.0 counts as non-negative); then "min > v" gives min and
// "v > max" gives max, and a NaN, which fails both, stores what the
// processor's truncation leaves (0, or INT32_MIN for int32); anything else
// truncates, exactly, since it lies within the type's range.
template <class E, class D>
HWY_INLINE void StoreSum(D d, hn::Vec<D> s, E* HWY_RESTRICT out) {
  hn::Rebind<E, D> de;
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
    auto const lo = hn::Set(d, minAsDouble<E>()), hi = hn::Set(d, maxAsDouble<E>());
    hn::Vec<D> v;
    if constexpr (std::is_unsigned_v<E>)
      v = hn::Add(s, half);
    else
      v = hn::IfThenElse(hn::Lt(s, zero), hn::Sub(s, half), hn::Add(s, half));
    v = hn::IfThenElse(hn::Lt(v, lo), lo, v);
    v = hn::IfThenElse(hn::Gt(v, hi), hi, v);
    auto const number = hn::Eq(v, v);
    v = std::is_same_v<E, std::int32_t> ? hn::IfThenElse(number, v, lo) : hn::IfThenElseZero(number, v);
    hn::Rebind<std::int32_t, D> di;
    if constexpr (std::is_same_v<E, std::uint32_t>) {
      // Beyond int32: truncate (exact), shift into the signed range, convert
      // and shift the bits back.
      auto const i = hn::DemoteTo(di, hn::Sub(hn::Trunc(v), hn::Set(d, 2147483648.0)));
      hn::StoreU(hn::Xor(hn::BitCast(de, i), hn::Set(de, 0x80000000u)), de, out);
    } else if constexpr (std::is_same_v<E, std::int32_t>) {
      hn::StoreU(hn::DemoteTo(di, v), di, out);
    } else {
      hn::StoreU(hn::DemoteTo(de, hn::DemoteTo(di, v)), de, out);
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

// The row kernel when a column is shorter than a vector (an interleaved
// image's width pass, where a column is one pixel's channels): the lanes run
// across the elements of a run of output columns, (column, row) in storage
// order.  For each tap, a lane's source element and weight come from tables
// built once per run and used for every plane; each plane's source span is
// widened to double once and the lanes gather from it.  Runs whose taps are
// too many or spread too wide for the tables take the plain rule.
constexpr std::size_t kRunLanes = 256;
constexpr std::size_t kMaxRunTaps = 32;
constexpr std::size_t kSpanElements = 4096;

template <class E>
void RowColumnsNarrow(E const* HWY_RESTRICT src, E* HWY_RESTRICT dst, double const* HWY_RESTRICT weights,
                      std::size_t const* HWY_RESTRICT offsets, std::size_t rows, std::size_t srcCols,
                      std::size_t dstCols, std::size_t taps, std::size_t planes, std::size_t first,
                      std::size_t last) {
  hn::ScalableTag<double> d;
  hn::RebindToSigned<decltype(d)> di;
  std::size_t const n = hn::Lanes(d), m = rows;
  HWY_ALIGN std::int64_t index[kMaxRunTaps * kRunLanes];
  HWY_ALIGN double weight[kMaxRunTaps * kRunLanes];
  HWY_ALIGN double span[kSpanElements];
  std::size_t const perRun = m == 0 ? 1 : std::max<std::size_t>(1, kRunLanes / m);
  for (std::size_t i0 = first; i0 < last;) {
    std::size_t const i1 = std::min(last, i0 + perRun), lanes = (i1 - i0) * m;
    std::size_t lo = 0, hi = 0;
    if (taps != 0) {
      lo = hi = offsets[i0 * taps];
      for (std::size_t e = i0 * taps; e < i1 * taps; ++e) {
        lo = std::min(lo, offsets[e]);
        hi = std::max(hi, offsets[e]);
      }
    }
    if (taps > kMaxRunTaps || hi - lo >= kSpanElements - m) {
      for (std::size_t p = 0; p < planes; ++p)
        for (std::size_t i = i0; i < i1; ++i)
          for (std::size_t r = 0; r < m; ++r)
            dst[p * m * dstCols + i * m + r] =
                PlainElement(src, p * m * srcCols + r, weights + i * taps, offsets + i * taps, 1, taps);
      i0 = i1;
      continue;
    }
    for (std::size_t k = 0; k < taps; ++k)
      for (std::size_t i = i0; i < i1; ++i)
        for (std::size_t r = 0; r < m; ++r) {
          std::size_t const lane = (i - i0) * m + r;
          index[k * kRunLanes + lane] = static_cast<std::int64_t>(offsets[i * taps + k] - lo + r);
          weight[k * kRunLanes + lane] = weights[i * taps + k];
        }
    std::size_t const width = taps == 0 ? 0 : hi - lo + m;
    for (std::size_t p = 0; p < planes; ++p) {
      E const* from = src + (p * m * srcCols + lo);
      for (std::size_t e = 0; e < width; ++e) span[e] = static_cast<double>(from[e]);
      E* out = dst + (p * m * dstCols + i0 * m);
      std::size_t lane = 0;
      for (; lane + n <= lanes; lane += n) {
        auto a = hn::Zero(d);
        for (std::size_t k = 0; k < taps; ++k)
          a = hn::Add(a, hn::Mul(hn::GatherIndex(d, span, hn::Load(di, index + k * kRunLanes + lane)),
                                 hn::Load(d, weight + k * kRunLanes + lane)));
        StoreSum(d, a, out + lane);
      }
      for (; lane < lanes; ++lane) {
        std::size_t const i = i0 + lane / m, r = lane % m;
        out[lane] = PlainElement(src, p * m * srcCols + r, weights + i * taps, offsets + i * taps, 1, taps);
      }
    }
    i0 = i1;
  }
}

// The column kernel on tiles of Lanes(d) columns.  A window of source rows
// of the tile is widened to double and interleaved across the tile's
// columns, so that a tap is one vector load for all of them; the results of
// a run of output positions are kept per column and stored contiguously.
// A run takes as many outputs as the window holds the taps of (up to
// kMaxRun): long runs also keep the window's scalar stores well ahead of the
// vector loads that read them.  An output whose taps alone spread wider
// than the window takes the plain rule.
constexpr std::size_t kWindowRows = 1024;
constexpr std::size_t kMaxRun = 512;
constexpr std::size_t kMaxLanes = HWY_MAX_BYTES / sizeof(double);

// A run of outputs [i0, i1) whose taps all fall in the window's rows
// [lo, lo + span); a run of one output wider than the window has span 0 and
// takes the plain rule.
struct WindowRun {
  std::size_t i0, i1, lo, span;
};
constexpr std::size_t kRunsPerBatch = 64;

// The runs from output i0 on, at most kRunsPerBatch of them; returns where
// the next batch starts.  They depend on the filter only, so one batch
// serves every tile of columns.
inline std::size_t PlanRuns(std::size_t const* HWY_RESTRICT offsets, std::size_t dstRows, std::size_t taps,
                            std::size_t i0, WindowRun* runs, std::size_t& count) {
  count = 0;
  while (i0 < dstRows && count < kRunsPerBatch) {
    std::size_t lo = taps != 0 ? offsets[i0 * taps] : 0, hi = lo, i1 = i0;
    for (; i1 < dstRows && i1 - i0 < kMaxRun; ++i1) {
      std::size_t nlo = lo, nhi = hi;
      for (std::size_t e = i1 * taps; e < (i1 + 1) * taps; ++e) {
        nlo = std::min(nlo, offsets[e]);
        nhi = std::max(nhi, offsets[e]);
      }
      if (nhi - nlo >= kWindowRows) break;
      lo = nlo;
      hi = nhi;
    }
    if (i1 == i0)
      runs[count++] = {i0, i0 + 1, 0, 0};
    else
      runs[count++] = {i0, i1, lo, taps == 0 ? 0 : hi - lo + 1};
    i0 = std::max(i1, i0 + 1);
  }
  return i0;
}

template <class E>
void ColumnItems(E const* HWY_RESTRICT src, E* HWY_RESTRICT dst, double const* HWY_RESTRICT weights,
                 std::size_t const* HWY_RESTRICT offsets, std::size_t srcRows, std::size_t dstRows, std::size_t taps,
                 std::size_t first, std::size_t last) {
  // Up to four columns a tile: their rows go into the window as one
  // interleaving store of four vectors.
  hn::CappedTag<double, 4> d;
  std::size_t const n = hn::Lanes(d);
  HWY_ALIGN double window[kWindowRows * kMaxLanes];
  E results[kMaxRun * kMaxLanes];
  WindowRun runs[kRunsPerBatch];
  std::size_t const tiled = first + (last - first) / n * n;
  for (std::size_t next = 0; next < dstRows && first < tiled;) {
    std::size_t count = 0;
    next = PlanRuns(offsets, dstRows, taps, next, runs, count);
    for (std::size_t j = first; j < tiled; j += n) {
      for (std::size_t q = 0; q < count; ++q) {
        std::size_t const i0 = runs[q].i0, i1 = runs[q].i1, lo = runs[q].lo, span = runs[q].span;
        if (span == 0 && taps != 0) {
          for (std::size_t c = 0; c < n; ++c)
            dst[(j + c) * dstRows + i0] =
                PlainElement(src, (j + c) * srcRows, weights + i0 * taps, offsets + i0 * taps, 1, taps);
          continue;
        }
        E const* column = src + (j * srcRows + lo);
        std::size_t r = 0;
        if constexpr (hn::MaxLanes(d) == 4) {
          for (; r + 4 <= span; r += 4)
            hn::StoreInterleaved4(LoadWidened(d, column + r), LoadWidened(d, column + srcRows + r),
                                  LoadWidened(d, column + 2 * srcRows + r),
                                  LoadWidened(d, column + 3 * srcRows + r), d, window + r * 4);
        } else if constexpr (hn::MaxLanes(d) == 2) {
          for (; r + 2 <= span; r += 2)
            hn::StoreInterleaved2(LoadWidened(d, column + r), LoadWidened(d, column + srcRows + r), d,
                                  window + r * 2);
        }
        for (; r < span; ++r)
          for (std::size_t c = 0; c < n; ++c) window[r * n + c] = static_cast<double>(column[c * srcRows + r]);
        for (std::size_t i = i0; i < i1; ++i) {
          double const* w = weights + i * taps;
          std::size_t const* o = offsets + i * taps;
          auto a = hn::Zero(d);
          for (std::size_t k = 0; k < taps; ++k)
            a = hn::Add(a, hn::Mul(hn::Load(d, window + (o[k] - lo) * n), hn::Set(d, w[k])));
          StoreSum(d, a, results + (i - i0) * n);
        }
        // Back to columns: an interleaving load of four outputs' lanes gives
        // four outputs of each column.
        hn::Rebind<E, decltype(d)> de;
        std::size_t i = i0;
        if constexpr (hn::MaxLanes(d) == 4) {
          for (; i + 4 <= i1; i += 4) {
            hn::Vec<decltype(de)> v0, v1, v2, v3;
            hn::LoadInterleaved4(de, results + (i - i0) * 4, v0, v1, v2, v3);
            hn::StoreU(v0, de, dst + (j * dstRows + i));
            hn::StoreU(v1, de, dst + ((j + 1) * dstRows + i));
            hn::StoreU(v2, de, dst + ((j + 2) * dstRows + i));
            hn::StoreU(v3, de, dst + ((j + 3) * dstRows + i));
          }
        } else if constexpr (hn::MaxLanes(d) == 2) {
          for (; i + 2 <= i1; i += 2) {
            hn::Vec<decltype(de)> v0, v1;
            hn::LoadInterleaved2(de, results + (i - i0) * 2, v0, v1);
            hn::StoreU(v0, de, dst + (j * dstRows + i));
            hn::StoreU(v1, de, dst + ((j + 1) * dstRows + i));
          }
        }
        for (std::size_t c = 0; c < n; ++c)
          for (std::size_t t = i; t < i1; ++t) dst[(j + c) * dstRows + t] = results[(t - i0) * n + c];
      }
    }
  }
  for (std::size_t j = tiled; j < last; ++j)
    for (std::size_t i = 0; i < dstRows; ++i)
      dst[j * dstRows + i] = PlainElement(src, j * srcRows, weights + i * taps, offsets + i * taps, 1, taps);
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
