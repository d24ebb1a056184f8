#pragma once
// The real resampling kernels' inner loops in vector lanes, one copy per
// instruction set, the best the processor has chosen at run time.  Each lane
// is one output element and does the plain rule's operations in the plain
// rule's order: a double sum starting at +0.0, each tap's product added on
// its own in tap order, then fromWeightedSum's conversion.  Elements that do
// not fill a vector go through the plain rule itself.

#include <cstddef>

#include "common/numeric_types.hpp"

namespace qz {

// Rows [0, rows) of one output column of the row kernel: out[r] is the sum
// over k of src[base + o[k] * scale + r] * w[k].  scale is 1 for real data;
// complex data passes its interleaved parts as 2*rows reals with scale 2, so
// that each part is summed and converted on its own.
template <class E>
void resizeRowColumn(E const* src, std::size_t base, double const* w, std::size_t const* o, std::size_t scale,
                     std::size_t taps, E* out, std::size_t rows);

// Output columns [first, last) of the row kernel over every plane, for
// columns of a few rows (fewer than a vector holds): the lanes run across
// planes, a tile of them at a time, instead of down one column; or, for an
// enlargement, along the planes' output elements.
template <class E>
void resizeRowColumnsNarrow(E const* src, E* dst, double const* weights, std::size_t const* offsets,
                            std::size_t rows, std::size_t srcCols, std::size_t dstCols, std::size_t taps,
                            std::size_t planes, std::size_t first, std::size_t last);

// Column items [first, last) of the column kernel (item j reads the srcRows
// elements from j*srcRows and writes the dstRows from j*dstRows), a tile of
// columns at a time, or, for an enlargement, down each column.
template <class E>
void resizeColumnItems(E const* src, E* dst, double const* weights, std::size_t const* offsets,
                       std::size_t srcRows, std::size_t dstRows, std::size_t taps, std::size_t first,
                       std::size_t last);

#define QZ_DECLARE_RESIZE_LANES(E, C)                                                                       \
  template <>                                                                                              \
  void resizeRowColumn<E>(E const*, std::size_t, double const*, std::size_t const*, std::size_t, std::size_t, \
                          E*, std::size_t);                                                                \
  template <>                                                                                              \
  void resizeColumnItems<E>(E const*, E*, double const*, std::size_t const*, std::size_t, std::size_t,      \
                            std::size_t, std::size_t, std::size_t);                                \
  template <>                                                                                              \
  void resizeRowColumnsNarrow<E>(E const*, E*, double const*, std::size_t const*, std::size_t, std::size_t, \
                                 std::size_t, std::size_t, std::size_t, std::size_t, std::size_t);
QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_DECLARE_RESIZE_LANES)
#undef QZ_DECLARE_RESIZE_LANES

}  // namespace qz
