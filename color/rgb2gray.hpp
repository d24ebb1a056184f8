#pragma once
// Weighted luminance of RGB pixels.

#include <cstddef>
#include <cstdint>

#include <tbb/blocked_range.h>

#include "common/numeric_types.hpp"

namespace qz {

// The luminance weights; added as red + green, then + blue, they sum to
// exactly 1.0.
inline constexpr double kGrayRed = 0.298936021293776;
inline constexpr double kGrayGreen = 0.587043074451121;
inline constexpr double kGrayBlue = 0.114020904255103;

// The uint8 path's products, one per byte value, with the rounding offset
// folded into the blue table.  Filled once when the library loads.
struct GrayWeightTables {
  double red[256];
  double green[256];
  double blue[256];
};
GrayWeightTables const& grayWeightTables();

// Converts pixels [r.begin(), r.end()) of one image.  Planar input holds red,
// green and blue as three planes of `pixels` elements; interleaved input
// holds (r, g, b) triples.  clamp limits the weighted sum to [0, 1] before it
// is stored (floating classes).
template <class T>
struct convertrgb2gray {
  T const* input;
  std::size_t pixels;
  bool clamp;
  T* output;
  bool planar;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
};

// Converts pixels [begin, end) with the best instruction set the processor
// offers; the bits are those of the plain per-pixel rule (rgb2gray_rule.hpp)
// on every one.
template <class T>
void rgb2grayLine(T const* input, std::size_t pixels, bool clamp, T* output, bool planar, std::size_t begin,
                  std::size_t end);

// Runs convertrgb2gray over [0, pixels) in parallel, with the clamp of T's
// class.
template <class T>
void launchRgb2Gray(T const* input, std::size_t pixels, T* output, bool planar);

#define QZ_DECLARE_RGB2GRAY(T, C)                                          \
  extern template struct convertrgb2gray<T>;                               \
  extern template void launchRgb2Gray<T>(T const*, std::size_t, T*, bool); \
  template <>                                                              \
  void rgb2grayLine<T>(T const*, std::size_t, bool, T*, bool, std::size_t, std::size_t);
QZ_FOR_EACH_NUMERIC_TYPE(QZ_DECLARE_RGB2GRAY)
#undef QZ_DECLARE_RGB2GRAY

}  // namespace qz
