#pragma once
// Plain scalar hue, saturation and value of one byte triple, written
// straight from the rules with no tables and no threads: the oracle for the
// byte path, which swaps channels and multiplies by tabulated reciprocals.

#include <cmath>

namespace qzref {

struct Hsv {
  double h, s, v;
};

inline Hsv rgb2hsvBytes(int r, int g, int b) {
  int v, x, y, m;
  double k;
  if (!(b > g)) {
    if (g > r) {
      v = g, x = r, y = b, k = -0.3333333333333333;
    } else {
      v = r, x = g, y = b, k = 0.0;
    }
    m = b < x ? b : x;
  } else if (b > r) {
    v = b, x = r, y = g, k = -0.3333333333333333 + 1.0;
    m = g < r ? g : r;
  } else {
    v = r, x = b, y = g, k = -1.0;
    m = g;
  }
  int const chroma = v - m;
  double h = 0.0, s = 0.0;
  if (chroma != 0) h = std::fabs((x - y) * (1 / (chroma * 6.0)) + k);
  if (v != 0) s = chroma * (1.0 / v);
  return {h, s, v / 255.0};
}

}  // namespace qzref

namespace qzref {

// The floating paths (double, or single in single precision) on channels
// already divided by the scale, for pixels without NaN.  The maximum is
// found with ties going to red, then green; a red maximum counts from
// magenta (offset -1) when blue exceeds green.
template <class T>
Hsv rgb2hsvFloating(T r, T g, T b) {
  T const third = sizeof(T) == 8 ? T(-0.3333333333333333) : T(-0.33333334f);
  T const twoThirds = sizeof(T) == 8 ? T(0.6666666666666667) : T(0.6666666f);
  T v = r;
  int largest = 0;
  if (g > v) v = g, largest = 1;
  if (b > v) v = b, largest = 2;
  T m = r;
  if (g < m) m = g;
  if (b < m) m = b;
  T const delta = v - m;
  T h = 0;
  if (delta != 0) {
    T const sixDelta = T(6) * delta;
    if (largest == 1)
      h = (r - b) / sixDelta + third;
    else if (largest == 2)
      h = (r - g) / sixDelta + twoThirds;
    else if (b > g)
      h = (b - g) / sixDelta + T(-1);
    else
      h = (g - b) / sixDelta;
    h = std::fabs(h);
  }
  T const s = v == 0 ? T(0) : delta / v;
  return {static_cast<double>(h), static_cast<double>(s), static_cast<double>(v)};
}

}  // namespace qzref
