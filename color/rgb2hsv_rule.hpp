#pragma once
// The per-pixel HSV rules, written plainly: the reference for the vector
// kernels, which also use them for the pixels left at the end of a range and
// for any vector of pixels holding a NaN.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "color/rgb2hsv.hpp"

namespace qz {
namespace hsvrule {

template <class T>
struct Hsv {
  T h, s, v;
};

// The hue stored for a pixel with a NaN channel when one is computed at all:
// a quiet NaN with the sign bit set.
template <class T>
T negativeQuietNaN() {
  if constexpr (std::is_same_v<T, double>)
    return doubleFromBits(0xFFF8000000000000u);
  else
    return floatFromBits(0xFFC00000u);
}

// One pixel without NaN.  The tests and their order decide every tie: equal
// channels fall to red before green before blue, and a red maximum with
// green >= blue takes offset 0 (so saturated red is hue 0, never 1).
template <class T>
Hsv<T> hsvOf(T r, T g, T b) {
  T v, x, y, m, k;
  if (!(b > g)) {
    if (g > r) {
      v = g, x = r, y = b, k = HsvOffsets<T>::greenMax();
    } else {
      v = r, x = g, y = b, k = 0;
    }
    m = b < x ? b : x;
  } else if (b > r) {
    v = b, x = r, y = g, k = HsvOffsets<T>::blueMax();
    m = g < r ? g : r;
  } else {
    v = r, x = b, y = g, k = -1;
    m = g;
  }
  T const delta = v - m;
  T const h = delta == 0 ? T(0) : std::fabs((x - y) / (T(6) * delta) + k);
  T const s = v == 0 ? T(0) : delta / v;
  return {h, s, v};
}

// A pixel with at least one NaN channel.  Value and saturation come from the
// channels that are not NaN.  With one NaN the hue is 0 when the other two
// are both 0 or both 1 and a negative NaN otherwise, and it becomes the
// running hue; with two or three NaN channels no hue is computed and the
// running hue (the last one this body call computed) is stored instead.
template <class T>
Hsv<T> hsvOfNaN(T const (&c)[3], T& runningHue) {
  int nans = 0;
  T v = c[0], m = c[0];  // stays NaN when all three are
  bool seen = false;
  for (T ch : c) {
    if (ch != ch) {
      ++nans;
    } else if (!seen) {
      v = m = ch;
      seen = true;
    } else {
      if (ch > v) v = ch;
      if (ch < m) m = ch;
    }
  }
  T const s = v == 0 ? T(0) : (v - m) / v;
  if (nans == 1) {
    T const a = c[0] != c[0] ? c[1] : c[0];
    T const b = c[2] != c[2] ? c[1] : c[2];
    bool const grey = (a == 0 && b == 0) || (a == 1 && b == 1);
    runningHue = grey ? T(0) : negativeQuietNaN<T>();
  }
  return {runningHue, s, v};
}

inline Hsv<double> hsvOfBytes(HsvReciprocalTables const& t, int r, int g, int b) {
  double k = 0;
  if (g < b) {
    k = -1.0;
    std::swap(g, b);
  }
  if (r < g) {
    k = HsvOffsets<double>::greenMax() - k;
    std::swap(r, g);
  }
  // r is now the maximum.
  int const chroma = r - (b < g ? b : g);
  int const d = g - b;
  return {std::fabs(d * t.sixth[chroma] + k), chroma * t.recip[r], t.unit[r]};
}

template <class T>
void store(T* out, std::size_t pixels, bool planar, std::size_t i, Hsv<T> const& p) {
  if (planar) {
    out[i] = p.h;
    out[pixels + i] = p.s;
    out[2 * pixels + i] = p.v;
  } else {
    out[3 * i] = p.h;
    out[3 * i + 1] = p.s;
    out[3 * i + 2] = p.v;
  }
}

// Pixels [b, e) one at a time.  runningHue is the hue the body call
// computed last before b (0 when b opens the call); see hsvOfNaN.
template <class In, class Out>
void line(In const* __restrict input, std::size_t p, Out scale, Out* __restrict output, bool planar, std::size_t b,
          std::size_t e, Out runningHue) {
  for (std::size_t i = b; i != e; ++i) {
    std::size_t const at0 = planar ? i : 3 * i, at1 = planar ? p + i : 3 * i + 1, at2 = planar ? 2 * p + i : 3 * i + 2;
    Out const c[3] = {static_cast<Out>(input[at0]) / scale, static_cast<Out>(input[at1]) / scale,
                      static_cast<Out>(input[at2]) / scale};
    if constexpr (std::is_floating_point_v<In>) {
      if (c[0] != c[0] || c[1] != c[1] || c[2] != c[2]) {
        store(output, p, planar, i, hsvOfNaN(c, runningHue));
        continue;
      }
    }
    Hsv<Out> const hsv = hsvOf(c[0], c[1], c[2]);
    runningHue = hsv.h;
    store(output, p, planar, i, hsv);
  }
}

inline void lineOfBytes(std::uint8_t const* __restrict input, std::size_t p, double* __restrict output, bool planar,
                        std::size_t b, std::size_t e) {
  auto const& t = hsvReciprocalTables();
  if (planar)
    for (std::size_t i = b; i != e; ++i)
      store(output, p, true, i, hsvOfBytes(t, input[i], input[p + i], input[2 * p + i]));
  else
    for (std::size_t i = b; i != e; ++i)
      store(output, p, false, i, hsvOfBytes(t, input[3 * i], input[3 * i + 1], input[3 * i + 2]));
}

}  // namespace hsvrule
}  // namespace qz
