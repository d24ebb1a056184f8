#pragma once
// What the image readers share: the size check made before any memory is
// taken for pixels, and the turn from a file's row-major interleaved
// samples into the built-ins' column-major planes.

#include <cstddef>
#include <string>
#include <vector>

#include "image_io.hpp"

namespace qzcli {

// Refuses an image larger than the limits allow, naming its size.
void checkImageSize(std::string const& path, char const* format, std::size_t w, std::size_t h,
                    ReadLimits const& limits);

// Row-major interleaved samples (the files' order) into column-major planes;
// channelsOut is 1 (gray) or 3 (RGB), the first channels of each pixel.
template <class T>
qzhost::ArrayPtr toPlanar(T const* rows, std::size_t height, std::size_t width, std::size_t channelsIn,
                          std::size_t channelsOut) {
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

}  // namespace qzcli
