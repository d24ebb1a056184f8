#pragma once
// Plain scalar luminance, written straight from the rules with no tables,
// no shared helpers and no threads: the oracle for the optimised kernels.

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace qzref {

template <class T>
T rgb2gray(T r, T g, T b) {
  double s = static_cast<double>(r) * 0.298936021293776 + static_cast<double>(g) * 0.587043074451121;
  s = s + static_cast<double>(b) * 0.114020904255103;
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    double v = static_cast<double>(r) * 0.298936021293776 + static_cast<double>(g) * 0.587043074451121 +
               (static_cast<double>(b) * 0.114020904255103 + 0.5);
    return static_cast<T>(std::trunc(v));
  } else if constexpr (std::is_floating_point_v<T>) {
    if (!(s >= 0)) return 0;
    if (s > 1) return 1;
    return static_cast<T>(s);
  } else {
    using L = std::numeric_limits<T>;
    double hi = static_cast<double>(L::max()), lo = static_cast<double>(L::min());
    if (std::isnan(s)) return 0;
    if (s > hi) return L::max();
    if (s < lo) return L::min();
    double t = s < 0 ? std::trunc(s - 0.5) : s > 0 ? std::trunc(s + 0.5) : 0.0;
    // A 64-bit sum equal to the bound 2^63 or 2^64 wraps as the processor's
    // conversion does.
    if (t >= 18446744073709551616.0) return 0;
    if (std::is_signed_v<T> && t >= 9223372036854775808.0) return L::min();
    if (!std::is_signed_v<T> && t >= 9223372036854775808.0)
      return static_cast<T>(static_cast<std::uint64_t>(t - 9223372036854775808.0) | (std::uint64_t{1} << 63));
    return static_cast<T>(static_cast<std::int64_t>(t));
  }
}

}  // namespace qzref
