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
