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

}  // namespace

HsvReciprocalTables const& hsvReciprocalTables() { return kHsvReciprocalTables; }

template <class In, class Out>
void convertrgb2hsv<In, Out>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  rgb2hsvLine(input, pixels, scale, output, planar, r.begin(), r.end());
}

template struct convertrgb2hsv<double, double>;
template struct convertrgb2hsv<float, float>;
template struct convertrgb2hsv<unsigned short, double>;

void convertrgb2hsvU8::operator()(tbb::blocked_range<std::size_t> const& r) const {
  rgb2hsvLine(input, pixels, output, planar, r.begin(), r.end());
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
