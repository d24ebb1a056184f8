// The resampling kernels: column and row bodies for real and complex data of
// the eight element types, their launchers and the per-type dispatch.
//
// All positions are computed as element indices and turned into addresses
// only at the access, so empty arrays (whose data pointers may be null) are
// never offset.  Offsets may have wrapped around modulo 2^64; adding them to
// an index wraps back for every valid index.

#include "resize/resize.hpp"

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "common/convert.hpp"
#include "parallel/loop.hpp"

namespace qz {
namespace {

// Sum over the taps, in tap order, of source element base + o[k] times w[k].
template <class E>
double weightedSum(E const* src, std::size_t base, double const* w, std::size_t const* o, std::size_t taps) {
  double acc = 0.0;
  for (std::size_t k = 0; k < taps; ++k) acc = acc + static_cast<double>(src[base + o[k]]) * w[k];
  return acc;
}

// The same on interleaved complex data: both parts take the same real weight
// and accumulate separately.
template <class E>
std::complex<E> weightedSumComplex(std::complex<E> const* src, std::size_t base, double const* w,
                                   std::size_t const* o, std::size_t taps) {
  double re = 0.0, im = 0.0;
  for (std::size_t k = 0; k < taps; ++k) {
    std::complex<E> const v = src[base + o[k]];
    re = re + static_cast<double>(v.real()) * w[k];
    im = im + static_cast<double>(v.imag()) * w[k];
  }
  return fromWeightedSum<E>(re, im);
}

template <class In>
using PartOf = typename std::remove_const_t<In>::value_type;

// Element pointers of the image and the result, typed for a kernel.
template <class In>
In const* sourceOf(ndArray_tag const* a) {
  if constexpr (std::is_arithmetic_v<std::remove_const_t<In>>)
    return static_cast<In const*>(ndGetData(a));
  else
    return ndGetComplexData<PartOf<In>>(a);
}

template <class Out>
Out* resultOf(ndArray_tag const* a) {
  if constexpr (std::is_arithmetic_v<Out>)
    return static_cast<Out*>(ndGetData(a));
  else
    return ndGetComplexData<PartOf<Out>>(a);
}

template <class Functor>
struct KernelIO;
template <template <class, class> class F, class I, class O>
struct KernelIO<F<I, O>> {
  using In = I;
  using Out = O;
};

// One output element: the weighted sum of its taps, converted to the
// element type (each part on its own for complex data).
template <class E>
E elementValue(E const* src, std::size_t base, double const* w, std::size_t const* o, std::size_t taps) {
  return fromWeightedSum<E>(weightedSum(src, base, w, o, taps));
}
template <class E>
std::complex<E> elementValue(std::complex<E> const* src, std::size_t base, double const* w, std::size_t const* o,
                             std::size_t taps) {
  return weightedSumComplex(src, base, w, o, taps);
}

// Column items [r.begin(), r.end()), one output element at a time.  The
// complex kernels run this way, and so do the real ones where the tiled
// path below does not apply.
template <class Kernel>
void resizeColumnItemsScalar(Kernel const& k, std::size_t first, std::size_t last) {
  for (std::size_t j = first; j != last; ++j) {
    std::size_t const s = j * k.srcRows, d = j * k.dstRows;
    for (std::size_t i = 0; i < k.dstRows; ++i)
      k.dst[d + i] = elementValue(k.src, s, k.weights + i * k.taps, k.offsets + i * k.taps, k.taps);
  }
}

// Output columns [first, last) over every row of every plane, one element at
// a time; the complex row kernels run this way.
template <class Kernel>
void resizeRowColumnsScalar(Kernel const& k, std::size_t first, std::size_t last) {
  for (std::size_t p = 0; p < k.planes; ++p)
    for (std::size_t r = 0; r < k.rows; ++r) {
      std::size_t const s = p * k.rows * k.srcCols + r, d = p * k.rows * k.dstCols + r;
      for (std::size_t i = first; i < last; ++i)
        k.dst[d + i * k.rows] = elementValue(k.src, s, k.weights + i * k.taps, k.offsets + i * k.taps, k.taps);
    }
}

// ---- Real kernels in vector-friendly loop orders ------------------------------
//
// Every element still gets the sum of its taps in tap order, starting from
// +0.0, each term a product added on its own (no fused multiply-add), and the
// conversion of fromWeightedSum.  Only the order in which elements are
// visited changes: the loops that run in vector lanes go across elements
// that are independent of each other.

// fromWeightedSum written as selections instead of branches, so that a loop
// of conversions can run in vector lanes.  It stores the same value for
// every sum: the two saturation tests are the same comparisons, and a NaN
// sum, which fails both, stores what the processor's truncation leaves.
template <class E>
inline E laneValue(double s) {
  if constexpr (std::is_same_v<E, double>) {
    return s;
  } else if constexpr (std::is_same_v<E, float>) {
    return static_cast<float>(s);
  } else {
    constexpr double lo = minAsDouble<E>(), hi = maxAsDouble<E>();
    double v;
    if constexpr (std::is_unsigned_v<E>)
      v = s + 0.5;
    else
      v = 0 > s ? s - 0.5 : s + 0.5;
    v = lo > v ? lo : v;
    v = v > hi ? hi : v;
    constexpr double nanValue = std::is_same_v<E, std::int32_t> ? lo : 0.0;
    v = v == v ? v : nanValue;
    // v now lies in [lo, hi], where the truncation is exact and defined.
    if constexpr (std::is_unsigned_v<E> && sizeof(E) == 4)
      return static_cast<E>(static_cast<std::int64_t>(v));
    else
      return static_cast<E>(static_cast<std::int32_t>(v));
  }
}

// Rows of one output column that the row kernel sums in registers at once.
constexpr std::size_t kRowTile = 16;

// n consecutive elements (n <= U) of one output column of the row kernel:
// tap k reads n consecutive source elements from base + o[k].  With n = U
// known at compile time the accumulators stay in registers.
template <std::size_t U, bool Full, class E>
inline void sumRowTile(E const* src, std::size_t base, double const* w, std::size_t const* o, std::size_t taps,
                       E* out, std::size_t n) {
  std::size_t const len = Full ? U : n;
  double acc[U];
  for (std::size_t u = 0; u < len; ++u) acc[u] = 0.0;
  for (std::size_t k = 0; k < taps; ++k) {
    std::size_t const from = base + o[k];
    double const wk = w[k];
    for (std::size_t u = 0; u < len; ++u) acc[u] = acc[u] + static_cast<double>(src[from + u]) * wk;
  }
  for (std::size_t u = 0; u < len; ++u) out[u] = laneValue<E>(acc[u]);
}

// Output columns [first, last) of the real row kernel.  A column of the
// image is contiguous, so each output column is computed down its rows in
// tiles, with contiguous loads and stores.  Short columns (an interleaved
// image's channels, say) go a pixel at a time.
template <class E>
void resizeRowColumnsReal(ResizeRows<E, E> const& k, std::size_t first, std::size_t last) {
  std::size_t const m = k.rows, t = k.taps;
  for (std::size_t p = 0; p < k.planes; ++p) {
    std::size_t const s = p * m * k.srcCols, d = p * m * k.dstCols;
    for (std::size_t i = first; i < last; ++i) {
      double const* w = k.weights + i * t;
      std::size_t const* o = k.offsets + i * t;
      E* out = k.dst + (d + i * m);
      if (m == 3) {
        sumRowTile<3, true>(k.src, s, w, o, t, out, 3);
        continue;
      }
      std::size_t r = 0;
      for (; r + kRowTile <= m; r += kRowTile) sumRowTile<kRowTile, true>(k.src, s + r, w, o, t, out + r, kRowTile);
      if (r < m) sumRowTile<kRowTile, false>(k.src, s + r, w, o, t, out + r, m - r);
    }
  }
}

// The column kernel on tiles of kColTile columns: a window of source rows of
// the tile is widened to double and interleaved (row-major across the
// tile's columns), so that each tap is one contiguous load for all columns;
// the results of kColOutputs positions are gathered per column and stored
// contiguously.  A window is bounded; outputs whose taps spread wider than
// kWindowRows source rows go one element at a time.
constexpr std::size_t kColTile = 8;
constexpr std::size_t kColOutputs = 64;
constexpr std::size_t kWindowRows = 512;

template <class E>
void resizeColumnTile(ResizeCols<E, E> const& k, std::size_t j) {
  std::size_t const m = k.srcRows, len = k.dstRows, t = k.taps;
  double window[kWindowRows * kColTile];
  E results[kColOutputs * kColTile];
  for (std::size_t i0 = 0; i0 < len; i0 += kColOutputs) {
    std::size_t const i1 = std::min(len, i0 + kColOutputs);
    std::size_t lo = SIZE_MAX, hi = 0;
    for (std::size_t e = i0 * t; e < i1 * t; ++e) {
      lo = std::min(lo, k.offsets[e]);
      hi = std::max(hi, k.offsets[e]);
    }
    if (t == 0) lo = hi = 0;
    if (hi - lo >= kWindowRows) {
      for (std::size_t c = 0; c < kColTile; ++c)
        for (std::size_t i = i0; i < i1; ++i)
          k.dst[(j + c) * len + i] = elementValue(k.src, (j + c) * m, k.weights + i * t, k.offsets + i * t, t);
      continue;
    }
    std::size_t const rows = t == 0 ? 0 : hi - lo + 1;
    for (std::size_t c = 0; c < kColTile; ++c) {
      std::size_t const from = (j + c) * m + lo;
      for (std::size_t r = 0; r < rows; ++r) window[r * kColTile + c] = static_cast<double>(k.src[from + r]);
    }
    for (std::size_t i = i0; i < i1; ++i) {
      double acc[kColTile];
      for (std::size_t c = 0; c < kColTile; ++c) acc[c] = 0.0;
      double const* w = k.weights + i * t;
      std::size_t const* o = k.offsets + i * t;
      for (std::size_t q = 0; q < t; ++q) {
        double const* row = window + (o[q] - lo) * kColTile;
        double const wq = w[q];
        for (std::size_t c = 0; c < kColTile; ++c) acc[c] = acc[c] + row[c] * wq;
      }
      for (std::size_t c = 0; c < kColTile; ++c) results[(i - i0) * kColTile + c] = laneValue<E>(acc[c]);
    }
    for (std::size_t c = 0; c < kColTile; ++c)
      for (std::size_t i = i0; i < i1; ++i) k.dst[(j + c) * len + i] = results[(i - i0) * kColTile + c];
  }
}

template <class E>
void resizeColumnItemsReal(ResizeCols<E, E> const& k, std::size_t first, std::size_t last) {
  std::size_t j = first;
  for (; j + kColTile <= last; j += kColTile) resizeColumnTile(k, j);
  resizeColumnItemsScalar(k, j, last);
}

}  // namespace

template <class In, class Out>
void ResizeCols<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  resizeColumnItemsReal(*this, r.begin(), r.end());
}

template <class In, class Out>
void ResizeColsComplex<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  resizeColumnItemsScalar(*this, r.begin(), r.end());
}

template <class In, class Out>
void ResizeRows<In, Out>::columns(std::size_t first, std::size_t last) const {
  resizeRowColumnsReal(*this, first, last);
}

template <class In, class Out>
void ResizeRows<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  // The blocks of a sub-range are adjacent output columns: one sweep over
  // the planes covers them all.
  columns(r.begin() * blockSize, r.end() * blockSize);
}

template <class In, class Out>
void ResizeRowsComplex<In, Out>::columns(std::size_t first, std::size_t last) const {
  resizeRowColumnsScalar(*this, first, last);
}

template <class In, class Out>
void ResizeRowsComplex<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  for (std::size_t b = r.begin(); b != r.end(); ++b) columns(b * blockSize, b * blockSize + blockSize);
}

template <class Functor>
void launchResizeCols(ResizeArgs const& a) {
  using IO = KernelIO<Functor>;
  Functor body{sourceOf<typename IO::In>(a.image), resultOf<typename IO::Out>(a.result),
               a.weights, a.offsets, a.rows, a.outLength, a.taps};
  std::size_t const items = a.cols * a.planes;
  if (items == 0) return;
  runParallel(tbb::blocked_range<std::size_t>(0, items, 1), body);
}

template <class Functor>
void launchResizeRows(ResizeArgs const& a) {
  using IO = KernelIO<Functor>;
  Functor body{sourceOf<typename IO::In>(a.image), resultOf<typename IO::Out>(a.result),
               a.weights, a.offsets, a.cols, a.outLength, a.taps, a.rows, a.planes, kResizeBlock};
  std::size_t const blocks = a.outLength / kResizeBlock;
  if (blocks != 0) runParallel(tbb::blocked_range<std::size_t>(0, blocks, 1), body);
  // The columns after the last whole block, on the calling thread once the
  // parallel part has finished.
  body.columns(blocks * kResizeBlock, a.outLength);
}

template <class E>
void dispatchResize(ResizeArgs const& a) {
  using C = std::complex<E>;
  if (a.isComplex) {
    if (a.dim == 1)
      launchResizeCols<ResizeColsComplex<C const, C>>(a);
    else
      launchResizeRows<ResizeRowsComplex<C const, C>>(a);
  } else {
    if (a.dim == 1)
      launchResizeCols<ResizeCols<E, E>>(a);
    else
      launchResizeRows<ResizeRows<E, E>>(a);
  }
}

#define QZ_INSTANTIATE_RESIZE(E)                                                                              \
  template struct ResizeCols<E, E>;                                                                           \
  template struct ResizeRows<E, E>;                                                                           \
  template struct ResizeColsComplex<std::complex<E> const, std::complex<E>>;                                  \
  template struct ResizeRowsComplex<std::complex<E> const, std::complex<E>>;                                  \
  template void launchResizeCols<ResizeCols<E, E>>(ResizeArgs const&);                                        \
  template void launchResizeRows<ResizeRows<E, E>>(ResizeArgs const&);                                        \
  template void launchResizeCols<ResizeColsComplex<std::complex<E> const, std::complex<E>>>(ResizeArgs const&); \
  template void launchResizeRows<ResizeRowsComplex<std::complex<E> const, std::complex<E>>>(ResizeArgs const&); \
  template void dispatchResize<E>(ResizeArgs const&);
QZ_FOR_EACH_RESIZE_TYPE(QZ_INSTANTIATE_RESIZE)
#undef QZ_INSTANTIATE_RESIZE

}  // namespace qz
