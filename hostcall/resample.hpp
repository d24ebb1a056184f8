#pragma once
// Resampling an image in both dimensions with the imresize built-in: one
// call per dimension, with weights and indices from the host-side filters.

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <vector>

#include "filters.hpp"
#include "qzhost/runtime.hpp"

namespace qzcall {

// Runs imresize on (image, weights, indices, dimension) and returns its
// output; each host supplies its own, to report warnings and errors its way.
using ImresizeRunner = std::function<qzhost::ArrayPtr(ndArray_tag const* image, ndArray_tag const* weights,
                                                      ndArray_tag const* indices, ndArray_tag const* dim)>;

// A real double scalar: the count and dimension arguments built-ins take.
qzhost::ArrayPtr scalar(double v);

// A filter's tables as the T-by-L double arrays imresize takes.
struct FilterArrays {
  qzhost::ArrayPtr weights, indices;
};
FilterArrays filterArrays(qzfilters::Filter const& f);

struct ResampleRequest {
  std::size_t rows = 0, cols = 0;           // output size
  double rowScale = 1, colScale = 1;        // output over input length
  qzfilters::Method method = qzfilters::Method::Bicubic;
  bool antialias = true;
};

// The limits of a resampling, the same for every host: the largest image
// the file readers accept.
constexpr std::size_t kMaxResizeSide = std::size_t{1} << 16;
constexpr std::size_t kMaxResizePixels = std::size_t{1} << 26;

// A resampling that cannot or should not be done; the message says why and
// states the limit.
struct ResizeError : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// The request for resampling an inRows-by-inCols image by a scale, or to a
// size.  Throws ResizeError for an empty image, a scale that is not a
// positive finite number, an output side shorter than 1 pixel (in * scale
// < 1) or longer than kMaxResizeSide, an output of more than
// kMaxResizePixels pixels, and a filter of more than
// qzfilters::kMaxFilterEntries weights.
ResampleRequest planResize(std::size_t inRows, std::size_t inCols, double scale, qzfilters::Method method,
                           bool antialias);
ResampleRequest planResize(std::size_t inRows, std::size_t inCols, std::size_t outRows, std::size_t outCols,
                           qzfilters::Method method, bool antialias);

// The order of the two passes: the dimension reduced more goes first, so
// that the second pass works on the smaller image.  On a tie the width goes
// first when enlarging and second when shrinking: for an interleaved image
// the width pass is the slower kernel shape, and this runs it on the smaller
// image.  Both layouts use the same order, so they give the same result.
bool widthFirst(ResampleRequest const& r);

// Resamples in both dimensions, in the order of widthFirst.  Throws
// std::invalid_argument for an empty image or output.
qzhost::ArrayPtr resample(ndArray_tag const* image, ResampleRequest const& r, ImresizeRunner const& run);

// The same for an image whose pixels are interleaved, `channels` samples
// each, and whose rows follow one another (a C-ordered H x W x C array): in
// memory that is the column-major C-by-W-by-H array, and `image` holds those
// H*W*C elements under any dimensions.  Both passes resample along
// dimension 2 of a view of the same memory, so nothing is transposed: the
// width pass on (C, W, H), the height pass on (C*W, H).  The result is
// interleaved the same way, with dimensions (C, W', H').  Throws
// std::invalid_argument for an empty image or output, or an image that does
// not hold H*W*C elements.
qzhost::ArrayPtr resampleInterleaved(ndArray_tag const* image, std::size_t height, std::size_t width,
                                     std::size_t channels, ResampleRequest const& r, ImresizeRunner const& run);

// The array's data under other dimensions with the same number of
// elements; the view owns the array and releases it with itself.
qzhost::ArrayPtr reshaped(qzhost::ArrayPtr a, std::vector<std::size_t> dims);

}  // namespace qzcall
