#pragma once
// Resampling an image in both dimensions with the imresize built-in: one
// call per dimension, with weights and indices from the host-side filters.

#include <cstddef>
#include <functional>
#include <stdexcept>

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

// The dimension reduced more is resampled first, so that the second pass
// works on the smaller image.  Throws std::invalid_argument for an empty
// image or output.
qzhost::ArrayPtr resample(ndArray_tag const* image, ResampleRequest const& r, ImresizeRunner const& run);

}  // namespace qzcall
