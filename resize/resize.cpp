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
#include "resize/resize_lanes.hpp"

namespace qz {
namespace {

// The weighted sum of an output element's taps on interleaved complex data,
// in tap order from +0.0: both parts take the same real weight and
// accumulate separately, each converted on its own.  (The real kernels'
// plain rule is beside their vector forms, in resize_hwy.cpp.)
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

// Complex column items [r.begin(), r.end()), one output element at a time.
template <class Kernel>
void resizeColumnItemsScalar(Kernel const& k, std::size_t first, std::size_t last) {
  for (std::size_t j = first; j != last; ++j) {
    std::size_t const s = j * k.srcRows, d = j * k.dstRows;
    for (std::size_t i = 0; i < k.dstRows; ++i)
      k.dst[d + i] = weightedSumComplex(k.src, s, k.weights + i * k.taps, k.offsets + i * k.taps, k.taps);
  }
}

// Output columns [first, last) of the row kernel.  A column of the image is
// contiguous, so each output column is computed down its rows, with
// contiguous loads and stores, in vector lanes.  Complex columns are their
// interleaved parts, twice as many reals, each part summed and converted on
// its own.
// Columns shorter than this (a pixel's channels, say), down which a vector
// would be mostly empty, go through the tiled kernel with the planes as its
// items instead.
constexpr std::size_t kNarrowRows = 8;

template <class E, class Kernel>
void resizeRowColumnsLanes(Kernel const& k, std::size_t first, std::size_t last) {
  constexpr std::size_t parts = std::is_arithmetic_v<std::remove_const_t<typename KernelIO<Kernel>::In>> ? 1 : 2;
  auto const* src = reinterpret_cast<E const*>(k.src);
  auto* dst = reinterpret_cast<E*>(k.dst);
  std::size_t const m = k.rows, t = k.taps;
  if (parts == 1 && m < kNarrowRows) {
    resizeRowColumnsNarrow<E>(src, dst, k.weights, k.offsets, m, k.srcCols, k.dstCols, t, k.planes, first, last);
    return;
  }
  for (std::size_t p = 0; p < k.planes; ++p) {
    std::size_t const s = p * m * k.srcCols, d = p * m * k.dstCols;
    for (std::size_t i = first; i < last; ++i)
      resizeRowColumn<E>(src, parts * s, k.weights + i * t, k.offsets + i * t, parts, t, dst + parts * (d + i * m),
                         parts * m);
  }
}

}  // namespace

template <class In, class Out>
void ResizeCols<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  resizeColumnItems<In>(src, dst, weights, offsets, srcRows, dstRows, taps, r.begin(), r.end());
}

template <class In, class Out>
void ResizeColsComplex<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  resizeColumnItemsScalar(*this, r.begin(), r.end());
}

template <class In, class Out>
void ResizeRows<In, Out>::columns(std::size_t first, std::size_t last) const {
  resizeRowColumnsLanes<In>(*this, first, last);
}

template <class In, class Out>
void ResizeRows<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  // The blocks of a sub-range are adjacent output columns: one sweep over
  // the planes covers them all.
  columns(r.begin() * blockSize, r.end() * blockSize);
}

template <class In, class Out>
void ResizeRowsComplex<In, Out>::columns(std::size_t first, std::size_t last) const {
  resizeRowColumnsLanes<PartOf<In>>(*this, first, last);
}

template <class In, class Out>
void ResizeRowsComplex<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  columns(r.begin() * blockSize, r.end() * blockSize);
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

#define QZ_INSTANTIATE_RESIZE(E, C) QZ_RESIZE_INSTANCES(, E)
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_INSTANTIATE_RESIZE)
#undef QZ_INSTANTIATE_RESIZE

}  // namespace qz
