#pragma once
// The inputs of the benchmarks.  The bundled photo (data/coffee.png,
// 600x400) is scaled to 12 megapixels by the library itself, once, at
// start-up; everything else is derived from it the first time a benchmark
// asks for it, and kept for the rest of the run.
//
// Only the thread that runs the benchmarks may call these: the caches are
// not locked.

#include <cstddef>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"
#include "resample.hpp"

namespace qzbench {

using qzcall::scalar;

// About 12 megapixels: the sample photo enlarged about 7.07 times.
constexpr std::size_t kRows = 2832;
constexpr std::size_t kCols = 4240;

// Ends the program with "qzimages_bench: WHAT" on stderr.
[[noreturn]] void fail(std::string const& what);

// Calls a built-in through the host's call path.  An error the built-in
// raises ends the program with "CONTEXT: IDENTIFIER: TEXT".
void call(std::string const& context, qzhost::Gateway fn, int numOutputs, qzhost::ArrayPtr* outputs,
          std::vector<ndArray_tag const*> const& inputs);

// The 12-megapixel photo, kRows-by-kCols-by-3, in class cls: uint8 as scaled,
// uint16 as v*257, single and double as v/255, so every class spans its range.
ndArray_tag const* photo(ndClassID cls);

// The photo's luminance (rgb2gray), kRows-by-kCols, in class cls.
ndArray_tag const* gray(ndClassID cls);

// imresize's bicubic filter along dimension dim (1: rows, 2: columns) of
// the photo at scale s: T-by-L weights and 1-based source indices, and dim
// as a double scalar.
struct ResizeFilter {
  qzhost::ArrayPtr weights, indices, dim;
  std::size_t outLength = 0;
};
ResizeFilter const& resizeFilter(int dim, double scale);

// The photo quantised to 256 colours by cq: its kRows-by-kCols uint8 indices
// (0-based), the same indices as doubles (1-based), and the 256-by-3 double
// colour map in [0, 1].
struct IndexedPhoto {
  qzhost::ArrayPtr index8, indexDouble, map;
};
IndexedPhoto const& indexedPhoto();

// Bytes of element data an array holds (both parts when complex).
std::size_t bytesOf(ndArray_tag const* a);

// "uint8 2832x4240x3".
std::string describe(ndClassID cls, std::vector<std::size_t> const& dims);
std::string describe(ndArray_tag const* a);

}  // namespace qzbench
