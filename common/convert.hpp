#pragma once
// Rounding and saturation of double results into element types.  The plain
// per-element rules convert through these, so NaN and out-of-range values
// never reach an undefined conversion.  The one direct cast outside this
// file is the rgb2gray byte path (rgb2gray_rule.hpp), whose table sum always
// lies in [0, 255.5].  The vector kernels (*_hwy.cpp) use the processor's
// truncating conversions in lanes, but only on values they have already
// saturated (and NaN already replaced), so they store what these rules store.
// Where built-ins deliberately differ (NaN results, the order of saturation
// and rounding, 64-bit wrap-around), each rule has its own name.

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace qz {

inline constexpr double kTwo63 = 9223372036854775808.0;

// The processor's truncating double -> int64 conversion: toward zero, and
// the "integer indefinite" 0x8000000000000000 for NaN, infinities and
// anything outside the int64 range.
inline std::int64_t truncToInt64(double v) {
  // No double lies strictly between -2^63 - 1 and -2^63, so [-2^63, 2^63) is
  // exactly the set of doubles whose truncation fits.
  if (v >= -kTwo63 && v < kTwo63) return static_cast<std::int64_t>(v);
  return std::numeric_limits<std::int64_t>::min();
}

// The two-branch double -> uint64 conversion of x86-64 code: values from
// 2^63 up are reduced by 2^63, truncated and given back their top bit; the
// rest truncate as int64 (so negatives wrap and NaN gives 2^63).
inline std::uint64_t truncToUInt64(double v) {
  if (v >= kTwo63) return static_cast<std::uint64_t>(truncToInt64(v - kTwo63)) ^ (std::uint64_t{1} << 63);
  return static_cast<std::uint64_t>(truncToInt64(v));
}

// Largest and smallest values of an integer type, as doubles.  The 64-bit
// maxima round up to 2^63 and 2^64.
template <class T>
constexpr double maxAsDouble() {
  return static_cast<double>(std::numeric_limits<T>::max());
}
template <class T>
constexpr double minAsDouble() {
  return static_cast<double>(std::numeric_limits<T>::min());
}

// Rounds half away from zero after saturating, with NaN giving 0.  The
// bounds are compared with a strict test, so for 64-bit types a value of
// exactly 2^63 (signed) or 2^64 (unsigned) passes and wraps around as the
// processor's conversion does: int64 gives its minimum, uint64 gives 0.
template <class T>
T saturateRoundHalfAway(double s) {
  static_assert(std::is_integral_v<T>);
  if (s != s) return 0;
  if (s > maxAsDouble<T>()) return std::numeric_limits<T>::max();
  if constexpr (std::is_signed_v<T>) {
    if (s < minAsDouble<T>()) return std::numeric_limits<T>::min();
    if (s < 0) return static_cast<T>(truncToInt64(s - 0.5));
    if (s > 0) return static_cast<T>(truncToInt64(s + 0.5));
    return 0;
  } else {
    if (s < 0) return 0;
    return static_cast<T>(truncToUInt64(s + 0.5));
  }
}

// A floating intensity in [0, 1] as a byte: trunc(v*255 + 0.5); NaN and
// negatives give 0, values above 1 give 255.
inline std::uint8_t unitToByte(double v) {
  if (v != v || v < 0) return 0;
  if (v > 1) return 255;
  return static_cast<std::uint8_t>(v * 255.0 + 0.5);
}

// ---- Weighted sums back into element types (resampling and kin) -----------
//
// These mirror the processor's 32-bit truncating conversion rather than the
// NaN-to-zero rule above: a NaN sum fails every saturation test and reaches
// the truncation, whose "integer indefinite" result decides what is stored.

// The processor's truncating double -> int32 conversion: toward zero, and
// INT32_MIN for NaN, infinities and anything whose truncation does not fit.
inline std::int32_t truncToInt32(double v) {
  // (-2^31 - 1, 2^31) is exactly the set of doubles whose truncation fits.
  if (v > -2147483649.0 && v < 2147483648.0) return static_cast<std::int32_t>(v);
  return std::numeric_limits<std::int32_t>::min();
}

// Unsigned 8-, 16- and 32-bit results: add 0.5, saturate, truncate.  The
// truncation goes through 64 bits and keeps the low bits, so a NaN sum
// (the indefinite 0x8000000000000000) stores 0.
template <class T>
T saturateRoundHalfUp(double s) {
  static_assert(std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) <= 4);
  double const v = s + 0.5;
  if (0 > v) return 0;
  if (v > maxAsDouble<T>()) return std::numeric_limits<T>::max();
  return static_cast<T>(static_cast<std::uint64_t>(truncToInt64(v)));
}

// Signed 8-, 16- and 32-bit results: add 0.5 with the sign of the sum (-0.0
// counts as non-negative), saturate, truncate through 32 bits keeping the low
// bits.  A NaN sum therefore stores INT32_MIN for int32 and 0 for the
// narrower types.
template <class T>
T saturateRoundHalfAwayIndefinite(double s) {
  static_assert(std::is_integral_v<T> && std::is_signed_v<T> && sizeof(T) <= 4);
  double const v = 0 > s ? s - 0.5 : s + 0.5;
  if (minAsDouble<T>() > v) return std::numeric_limits<T>::min();
  if (v > maxAsDouble<T>()) return std::numeric_limits<T>::max();
  return static_cast<T>(truncToInt32(v));
}

// A double sum as element type T: floating types keep it (float rounds to
// nearest, overflowing to infinity), unsigned types round halves up, signed
// types round halves away from zero; integers saturate.  With no terms the
// sum is +0.0 and every type stores 0.
template <class T>
T fromWeightedSum(double s) {
  if constexpr (std::is_same_v<T, double>)
    return s;
  else if constexpr (std::is_same_v<T, float>)
    return static_cast<float>(s);
  else if constexpr (std::is_unsigned_v<T>)
    return saturateRoundHalfUp<T>(s);
  else
    return saturateRoundHalfAwayIndefinite<T>(s);
}

// Complex sums: each part converted on its own, with its own sign and its
// own saturation.
template <class T>
std::complex<T> fromWeightedSum(double re, double im) {
  return std::complex<T>(fromWeightedSum<T>(re), fromWeightedSum<T>(im));
}

// ---- Grayscale intensities to bytes ------------------------------------------

// Grayscale scaling compares after the rounding offset is added:
// t = v*255 + 0.5, then t > 255 gives 255, t < 0 gives 0, otherwise trunc(t).
// In double precision this agrees with unitToByte for every input.
inline std::uint8_t offsetUnitToByte(double v) {
  if (v != v) return 0;
  double const t = v * 255.0 + 0.5;
  if (t > 255.0) return 255;
  if (t < 0.0) return 0;
  return static_cast<std::uint8_t>(t);
}

// The same rule with the product and the sum each rounded to single
// precision.  That rounding can carry a value just below a half-way point
// up to it (the float just below 1/510 gives 1, where the double computation
// on the same value gives 0), so single input must not be widened first.
inline std::uint8_t offsetUnitToByteSingle(float v) {
  if (v != v) return 0;
  float const t = v * 255.0f + 0.5f;
  if (t > 255.0f) return 255;
  if (t < 0.0f) return 0;
  return static_cast<std::uint8_t>(t);
}

// u/257 rounded to the nearest integer, as u times the double nearest
// 1/257, plus 0.5, truncated.  This is exact for every 16-bit u (257 is odd,
// so no quotient lies half-way), and 65535 gives 255 with no clamp needed.
inline std::uint8_t uint16ToByte(std::uint16_t u) {
  return static_cast<std::uint8_t>(static_cast<double>(u) * (1.0 / 257.0) + 0.5);
}

}  // namespace qz
