#pragma once
// Resampling along one dimension: every output element along the resized
// dimension is a weighted sum of `taps` source elements of the same column
// (column kernels) or the same row (row kernels) of the same plane.  The sum
// is formed in double, tap by tap in a fixed order, and converted back with
// qz::fromWeightedSum.
//
// Weights and offsets are taps-by-outLength, column-major: column i holds
// the taps of output position i.  Offsets are 0-based element offsets along
// the resized dimension; for the row kernels they already carry the column
// stride (rows).  Complex data is interleaved and offsets count complex
// elements.

#include <complex>
#include <cstddef>
#include <cstdint>

#include <tbb/blocked_range.h>

#include "common/numeric_types.hpp"
#include "ndarray/ndarray.hpp"

namespace qz {

// One resampling job as the gateway hands it to the per-class dispatch.
struct ResizeArgs {
  ndArray_tag const* image;  // A
  ndArray_tag* result;       // already owned by the output slot
  std::size_t rows;          // M
  std::size_t cols;          // N
  std::size_t planes;        // P
  std::size_t outLength;     // L
  std::size_t taps;          // T
  std::size_t const* offsets;
  double const* weights;
  std::int32_t dim;  // 1: along columns; anything else: along rows
  bool isComplex;
};

// Along dimension 1.  Item j is column j mod N of plane j div N; the columns
// of all planes are consecutive, so item j reads src + j*srcRows and writes
// dst + j*dstRows.
template <class In, class Out>
struct ResizeCols {
  In const* src;
  Out* dst;
  double const* weights;
  std::size_t const* offsets;
  std::size_t srcRows;  // M
  std::size_t dstRows;  // L
  std::size_t taps;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
};

template <class In, class Out>
struct ResizeColsComplex {
  In const* src;
  Out* dst;
  double const* weights;
  std::size_t const* offsets;
  std::size_t srcRows;
  std::size_t dstRows;
  std::size_t taps;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
};

// Along dimension 2.  Item b is the block of blockSize output columns
// starting at b*blockSize, swept over every row of every plane so that the
// block's weights and offsets stay in cache.  columns() computes any run of
// output columns the same way; the launcher uses it for the tail.
template <class In, class Out>
struct ResizeRows {
  In const* src;
  Out* dst;
  double const* weights;
  std::size_t const* offsets;
  std::size_t srcCols;  // N
  std::size_t dstCols;  // L
  std::size_t taps;
  std::size_t rows;    // M
  std::size_t planes;  // P
  std::size_t blockSize;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
  void columns(std::size_t first, std::size_t last) const;
};

template <class In, class Out>
struct ResizeRowsComplex {
  In const* src;
  Out* dst;
  double const* weights;
  std::size_t const* offsets;
  std::size_t srcCols;
  std::size_t dstCols;
  std::size_t taps;
  std::size_t rows;
  std::size_t planes;
  std::size_t blockSize;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
  void columns(std::size_t first, std::size_t last) const;
};

// Output columns per row-kernel work item.
inline constexpr std::size_t kResizeBlock = 8;

// Runs a column kernel over the N*P columns in parallel (nothing when there
// are none).
template <class Functor>
void launchResizeCols(ResizeArgs const& a);

// Runs a row kernel over the whole blocks of kResizeBlock output columns in
// parallel, then the remaining columns on the calling thread.
template <class Functor>
void launchResizeRows(ResizeArgs const& a);

// Chooses the kernel for element type E from complexity and dimension.
template <class E>
void dispatchResize(ResizeArgs const& a);

// The 32 kernel instances (four functors, eight element types) and their
// launchers: declared here (EXTERN is extern) and defined in resize.cpp
// (EXTERN empty).
#define QZ_RESIZE_KERNELS(EXTERN, Cols, Rows, In, Out)                  \
  EXTERN template struct Cols<In, Out>;                                  \
  EXTERN template struct Rows<In, Out>;                                  \
  EXTERN template void launchResizeCols<Cols<In, Out>>(ResizeArgs const&); \
  EXTERN template void launchResizeRows<Rows<In, Out>>(ResizeArgs const&);
#define QZ_RESIZE_INSTANCES(EXTERN, E)                                                              \
  QZ_RESIZE_KERNELS(EXTERN, ResizeCols, ResizeRows, E, E)                                           \
  QZ_RESIZE_KERNELS(EXTERN, ResizeColsComplex, ResizeRowsComplex, std::complex<E> const, std::complex<E>) \
  EXTERN template void dispatchResize<E>(ResizeArgs const&);
#define QZ_DECLARE_RESIZE(E, C) QZ_RESIZE_INSTANCES(extern, E)
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_DECLARE_RESIZE)
#undef QZ_DECLARE_RESIZE

}  // namespace qz
