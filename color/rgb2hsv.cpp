// rgb2hsv: the per-pixel conversion for double, single, uint8 and uint16
// input and its gateway.

#include "color/rgb2hsv.hpp"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

#include "ndarray/ndarray.hpp"
#include "parallel/loop.hpp"
#include "qzimages/qzimages.hpp"

namespace qz {
namespace {

HsvReciprocalTables buildHsvReciprocalTables() {
  HsvReciprocalTables t{};
  for (int v = 1; v < 256; ++v) {
    t.sixth[v] = 1 / (v * 6.0);
    t.recip[v] = 1.0 / v;
    t.unit[v] = v / 255.0;
  }
  return t;
}

HsvReciprocalTables const kHsvReciprocalTables = buildHsvReciprocalTables();

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

}  // namespace

HsvReciprocalTables const& hsvReciprocalTables() { return kHsvReciprocalTables; }

template <class In, class Out>
void convertrgb2hsv<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  std::size_t const p = pixels;
  // The hue of the last pixel this call computed one for; see hsvOfNaN.
  Out runningHue = 0;
  for (std::size_t i = r.begin(); i != r.end(); ++i) {
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

template struct convertrgb2hsv<double, double>;
template struct convertrgb2hsv<float, float>;
template struct convertrgb2hsv<unsigned short, double>;

void convertrgb2hsvU8::operator()(tbb::blocked_range<std::size_t> const& r) const {
  auto const& t = kHsvReciprocalTables;
  std::size_t const p = pixels;
  if (planar)
    for (std::size_t i = r.begin(); i != r.end(); ++i)
      store(output, p, true, i, hsvOfBytes(t, input[i], input[p + i], input[2 * p + i]));
  else
    for (std::size_t i = r.begin(); i != r.end(); ++i)
      store(output, p, false, i, hsvOfBytes(t, input[3 * i], input[3 * i + 1], input[3 * i + 2]));
}

namespace {
template <class Body>
void launch(Body const& body) {
  if (body.pixels == 0) return;
  runParallel(tbb::blocked_range<std::size_t>(0, body.pixels), body);
}
}  // namespace

void launchRgb2Hsv(double const* input, std::size_t pixels, double* output, bool planar) {
  launch(convertrgb2hsv<double, double>{input, pixels, 1.0, output, planar});
}
void launchRgb2Hsv(float const* input, std::size_t pixels, float* output, bool planar) {
  launch(convertrgb2hsv<float, float>{input, pixels, 1.0f, output, planar});
}
void launchRgb2Hsv(std::uint8_t const* input, std::size_t pixels, double* output, bool planar) {
  launch(convertrgb2hsvU8{input, pixels, 255.0, output, planar});
}
void launchRgb2Hsv(std::uint16_t const* input, std::size_t pixels, double* output, bool planar) {
  launch(convertrgb2hsv<unsigned short, double>{input, pixels, 65535.0, output, planar});
}

}  // namespace qz

namespace pximages {

namespace {
template <class In, class Out>
void launchOn(ndArray_tag const* in, ndArray_tag* out, std::size_t pixels) {
  qz::launchRgb2Hsv(static_cast<In const*>(ndGetData(in)), pixels, static_cast<Out*>(ndGetData(out)), true);
}
}  // namespace

// The caller guarantees a real M-by-N-by-3 input; nothing is checked and
// nothing is raised here.  Classes without a conversion give a zero image.
void _rgb2hsv(int, OutputSlot* outputs, int, ndArray_tag const** inputs) {
  ndArray_tag const* a = inputs[0];
  ndClassID const cls = ndGetClassID(a);
  a->complete_opaque_dimensions();
  std::size_t const* dims = ndGetDimensions(a);
  // The output takes the first three dimensions.  An input with only two is
  // outside the contract; it gets an M-by-N output rather than a read past
  // its dimension vector.
  std::size_t const outDims[3] = {dims[0], dims[1], ndGetNumberOfDimensions(a) > 2 ? dims[2] : 1};
  cppcompat::detail::span::span<const std::size_t> const shape(outDims, outDims + 3);

  if (cls == ndclass::Single)
    outputs[0] = matrix::detail::do_create_uninitnumeric(shape, ndclass::Single, ndREAL);
  else
    outputs[0] = matrix::detail::do_create_numeric(shape, ndclass::Double, ndREAL);
  ndArray_tag* out = outputs[0].get();
  // numel/3 pixels for an M-by-N-by-3 input.  Bounded by the output so that
  // an input with more dimensions than three cannot write past it.
  std::size_t const pixels = std::min(ndGetNumberOfElements(a), ndGetNumberOfElements(out)) / 3;
  switch (cls) {
    case ndclass::Single: launchOn<float, float>(a, out, pixels); break;
    case ndclass::UInt8: launchOn<std::uint8_t, double>(a, out, pixels); break;
    case ndclass::UInt16: launchOn<std::uint16_t, double>(a, out, pixels); break;
    case ndclass::Double: launchOn<double, double>(a, out, pixels); break;
    default: break;  // the zero-filled double output stands
  }
}

}  // namespace pximages
