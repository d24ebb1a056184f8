#pragma once
// Plain scalar lookup of one pixel of an indexed image, straight from the
// map's doubles: no byte tables, no ranges, no threads.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace qzref {

inline std::uint8_t mapIntensityToByte(double v) {
  if (std::isnan(v) || v < 0) return 0;
  if (v > 1) return 255;
  return static_cast<std::uint8_t>(std::trunc(v * 255.0 + 0.5));
}

// The 0-based map row for an index value: doubles count from 1 and round
// half up, integers count from 0; both clamp to the map.
inline std::size_t mapRowOf(double x, std::size_t k) {
  if (std::isnan(x) || x < 1) return 0;
  if (x > static_cast<double>(k)) return k - 1;
  return static_cast<std::size_t>(std::floor(x + 0.5)) - 1;
}
inline std::size_t mapRowOf(std::uint64_t u, std::size_t k) { return u < k ? u : k - 1; }

// Channel c (0 red, 1 green, 2 blue) of the colour for index value x in a
// column-major k-by-3 map.
template <class T>
std::uint8_t ind2rgb8(T x, double const* map, std::size_t k, int c) {
  std::size_t row;
  if constexpr (std::is_floating_point_v<T>)
    row = mapRowOf(static_cast<double>(x), k);
  else
    row = mapRowOf(static_cast<std::uint64_t>(x), k);
  return mapIntensityToByte(map[static_cast<std::size_t>(c) * k + row]);
}

}  // namespace qzref
