#pragma once
// One pixel of an indexed image straight from the map's doubles: no byte
// tables, no ranges, no threads.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace qzref {

// A map intensity as a byte; also grayscale's rule for double intensities.
inline std::uint8_t unitToByte(double v) {
  return std::isnan(v) || v < 0 ? 0 : v > 1 ? 255 : static_cast<std::uint8_t>(std::trunc(v * 255.0 + 0.5));
}

// Channel c (0 red, 1 green, 2 blue) for index x in a column-major k-by-3
// map.  Doubles count from 1 and round half up, integers count from 0; both
// clamp to the map.
template <class T>
std::uint8_t ind2rgb8(T x, double const* map, std::size_t k, int c) {
  std::size_t row = 0;
  if constexpr (std::is_floating_point_v<T>)
    row = !(x >= 1) ? 0 : x > static_cast<double>(k) ? k - 1 : static_cast<std::size_t>(std::floor(x + 0.5)) - 1;
  else
    row = static_cast<std::uint64_t>(x) < k ? static_cast<std::size_t>(x) : k - 1;
  return unitToByte(map[static_cast<std::size_t>(c) * k + row]);
}

}  // namespace qzref
