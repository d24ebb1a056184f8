#pragma once
// What the image readers share: the size check made before any memory is
// taken for pixels, and the turn from a file's row-major interleaved
// samples into the built-ins' column-major planes.

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "image_io.hpp"

namespace qzcli {

// Refuses an image larger than the limits allow, naming its size.
void checkImageSize(std::string const& path, char const* format, std::size_t w, std::size_t h,
                    ReadLimits const& limits);

// How a reader hands over its pixels: as the built-ins' column-major
// planes, or in the file's own order (rows one after another, each pixel's
// channels together), which as a column-major array is channels-by-W-by-H.
enum class PixelOrder { Planar, Interleaved };

// Row-major interleaved samples (the files' order) into column-major planes,
// or kept in that order for the interleaved layout; channelsOut is 1 (gray)
// or 3 (RGB), the first channels of each pixel.
template <class T>
qzhost::ArrayPtr toHost(T const* rows, std::size_t height, std::size_t width, std::size_t channelsIn,
                        std::size_t channelsOut, PixelOrder layout) {
  if (layout == PixelOrder::Interleaved) {
    auto a = qzhost::makeArray(ndClassOf<T>::value, {channelsOut * width, height});
    T* out = qzhost::dataOf<T>(a.get());
    if (channelsIn == channelsOut) {
      std::memcpy(out, rows, height * width * channelsIn * sizeof(T));
    } else {
      for (std::size_t p = 0; p < height * width; ++p)
        for (std::size_t c = 0; c < channelsOut; ++c) out[p * channelsOut + c] = rows[p * channelsIn + c];
    }
    return a;
  }
  std::vector<std::size_t> dims{height, width};
  if (channelsOut == 3) dims.push_back(3);
  auto a = qzhost::makeArray(ndClassOf<T>::value, dims);
  T* out = qzhost::dataOf<T>(a.get());
  std::size_t plane = height * width;
  for (std::size_t y = 0; y < height; ++y)
    for (std::size_t x = 0; x < width; ++x)
      for (std::size_t c = 0; c < channelsOut; ++c)
        out[c * plane + x * height + y] = rows[(y * width + x) * channelsIn + c];
  return a;
}

template <class T>
qzhost::ArrayPtr toPlanar(T const* rows, std::size_t height, std::size_t width, std::size_t channelsIn,
                          std::size_t channelsOut) {
  return toHost(rows, height, width, channelsIn, channelsOut, PixelOrder::Planar);
}

}  // namespace qzcli
