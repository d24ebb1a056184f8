#pragma once
// Hue, saturation and value of one pixel, case by case from whichever
// channel is largest (ties to red, then green), with no tables, no swaps and
// no threads: the oracle for every rgb2hsv kernel.

#include <algorithm>
#include <cmath>
#include <limits>

namespace qzref {

// carriesHue: two or three channels are NaN, so the pixel computes no hue
// and stores the one its body call computed last (0 if none).
template <class T>
struct Hsv {
  T h, s, v;
  bool carriesHue = false;
};

// Byte channels, multiplied by reciprocals as the byte tables hold them.
inline Hsv<double> rgb2hsvBytes(int r, int g, int b) {
  int const hi = std::max({r, g, b}), chroma = hi - std::min({r, g, b});
  double const sixth = chroma ? 1 / (chroma * 6.0) : 0.0;
  double const h = r == hi   ? (b > g ? std::fabs((b - g) * sixth - 1.0) : (g - b) * sixth)  // back from magenta
                   : g == hi ? std::fabs((r - b) * sixth + -0x1.5555555555555p-2)
                             : std::fabs((r - g) * sixth + 0x1.5555555555556p-1);
  return {h, hi ? chroma * (1.0 / hi) : 0.0, hi / 255.0};
}

// Floating channels already divided by the scale, in T's own precision.
// With a NaN channel, value and saturation come from the others.
template <class T>
Hsv<T> rgb2hsvFloating(T r, T g, T b) {
  T hi = r, lo = r;  // all NaN: red's NaN throughout, as the arithmetic carries it
  int nans = 0;
  for (T x : {r, g, b}) {
    if (std::isnan(x)) ++nans;
    else if (std::isnan(hi)) hi = lo = x;
    else hi = x > hi ? x : hi, lo = x < lo ? x : lo;  // the first of equals stays
  }
  T const d = hi - lo, s = hi == 0 ? T(0) : d / hi, x = std::isnan(r) ? g : r, y = std::isnan(b) ? g : b;
  if (nans > 0)  // one NaN: hue 0 if the other two are both 0 or both 1, else a negative quiet NaN
    return {nans == 1 && x == y && (x == 0 || x == 1) ? T(0) : -std::numeric_limits<T>::quiet_NaN(), s, hi, nans > 1};
  bool const dbl = sizeof(T) == 8;
  T const greenOffset = dbl ? T(-0x1.5555555555555p-2) : T(-0x1.555556p-2f);
  T const blueOffset = dbl ? T(0x1.5555555555556p-1) : T(0x1.555554p-1f), six = T(6) * d;
  T const h = d == 0 ? T(0)
              : r == hi ? (b > g ? (b - g) / six + T(-1) : (g - b) / six)
              : g == hi ? (r - b) / six + greenOffset
                        : (r - g) / six + blueOffset;
  return {std::fabs(h), s, hi};
}

}  // namespace qzref
