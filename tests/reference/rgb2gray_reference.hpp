#pragma once
// Luminance of one pixel straight from the weights and the rounding rules,
// with no tables, no shared helpers and no threads: the oracle for every
// kernel.

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace qzref {

// clamp limits the sum to [0, 1] before it is stored; the gateway sets it
// for the floating classes only.  The byte tables take no clamp.
template <class T>
T rgb2gray(T r, T g, T b, bool clamp = !std::numeric_limits<T>::is_integer) {
  using L = std::numeric_limits<T>;
  double const dr = double(r) * 0.298936021293776, dg = double(g) * 0.587043074451121,
               db = double(b) * 0.114020904255103;
  // Bytes sum three table entries, the rounding offset folded into blue's.
  if constexpr (std::is_same_v<T, std::uint8_t>) return T(std::trunc(dr + dg + (db + 0.5)));
  double s = (dr + dg) + db;
  if (clamp) s = s >= 0 ? std::fmin(s, 1.0) : 0.0;  // NaN fails s >= 0
  if constexpr (!L::is_integer) return T(s);
  if (std::isnan(s) || s < double(L::min())) return std::isnan(s) ? 0 : L::min();
  if (s > double(L::max())) return L::max();
  double const t = s < 0 ? std::trunc(s - 0.5) : s > 0 ? std::trunc(s + 0.5) : 0.0;
  // The bound test is strict, so a 64-bit sum of exactly 2^63 (signed) or
  // 2^64 (unsigned) gets through and wraps as the processor converts it.
  if (t >= 0x1p64 || (L::is_signed && t >= 0x1p63)) return t >= 0x1p64 ? 0 : L::min();
  return L::is_signed ? T(std::int64_t(t)) : T(std::uint64_t(t));
}

}  // namespace qzref
