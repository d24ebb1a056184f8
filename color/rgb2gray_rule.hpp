#pragma once
// The per-pixel luminance rule, written plainly: the reference for the
// vector kernels, which also use it for the pixels left over at the end of a
// range and for the element types they do not vectorise.

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "color/rgb2gray.hpp"
#include "common/convert.hpp"

namespace qz {
namespace grayrule {

template <class T>
T fromSum(double s, bool clamp) {
  if (clamp) {
    if (!(s >= 0))
      s = 0;  // also NaN
    else if (s > 1)
      s = 1;
  }
  if constexpr (std::is_floating_point_v<T>)
    return static_cast<T>(s);
  else
    return saturateRoundHalfAway<T>(s);
}

template <class T>
T pixel(T r, T g, T b, bool clamp) {
  double s = static_cast<double>(r) * kGrayRed + static_cast<double>(g) * kGrayGreen;
  s = s + static_cast<double>(b) * kGrayBlue;
  return fromSum<T>(s, clamp);
}

// The sum of the three table entries never exceeds 255.5 (255.50000000000003
// at white), so truncation alone keeps it in a byte and rounds halves up.
inline std::uint8_t pixelOfBytes(GrayWeightTables const& t, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  return static_cast<std::uint8_t>(t.red[r] + t.green[g] + t.blue[b]);
}

// Pixels [b, e) one at a time.
template <class T>
void line(T const* __restrict input, std::size_t p, bool clamp, T* __restrict output, bool planar, std::size_t b,
          std::size_t e) {
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    auto const& t = grayWeightTables();
    if (planar)
      for (std::size_t i = b; i != e; ++i) output[i] = pixelOfBytes(t, input[i], input[p + i], input[2 * p + i]);
    else
      for (std::size_t i = b; i != e; ++i)
        output[i] = pixelOfBytes(t, input[3 * i], input[3 * i + 1], input[3 * i + 2]);
  } else {
    if (planar)
      for (std::size_t i = b; i != e; ++i) output[i] = pixel(input[i], input[p + i], input[2 * p + i], clamp);
    else
      for (std::size_t i = b; i != e; ++i) output[i] = pixel(input[3 * i], input[3 * i + 1], input[3 * i + 2], clamp);
  }
}

}  // namespace grayrule
}  // namespace qz
