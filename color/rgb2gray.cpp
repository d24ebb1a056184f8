// rgb2gray: the per-pixel conversion for every numeric class and its gateway.

#include "color/rgb2gray.hpp"

#include <type_traits>

#include "ndarray/ndarray.hpp"
#include "parallel/loop.hpp"
#include "qzimages/qzimages.hpp"

namespace qz {
namespace {

GrayWeightTables buildGrayWeightTables() {
  GrayWeightTables t{};
  for (int v = 0; v < 256; ++v) {
    t.red[v] = v * kGrayRed;
    t.green[v] = v * kGrayGreen;
    t.blue[v] = v * kGrayBlue + 0.5;
  }
  return t;
}

GrayWeightTables const kGrayWeightTables = buildGrayWeightTables();

}  // namespace

GrayWeightTables const& grayWeightTables() { return kGrayWeightTables; }

template <class T>
void convertrgb2gray<T>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  rgb2grayLine<T>(input, pixels, clamp, output, planar, r.begin(), r.end());
}

template <class T>
void launchRgb2Gray(T const* input, std::size_t pixels, T* output, bool planar) {
  convertrgb2gray<T> body{input, pixels, std::is_floating_point_v<T>, output, planar};
  if (pixels == 0) return;
  runParallel(tbb::blocked_range<std::size_t>(0, pixels), body);
}

#define QZ_INSTANTIATE_RGB2GRAY(T, C)  \
  template struct convertrgb2gray<T>; \
  template void launchRgb2Gray<T>(T const*, std::size_t, T*, bool);
QZ_FOR_EACH_NUMERIC_TYPE(QZ_INSTANTIATE_RGB2GRAY)
#undef QZ_INSTANTIATE_RGB2GRAY

}  // namespace qz

namespace pximages {

namespace {
template <class T>
void launchOn(ndArray_tag const* in, ndArray_tag* out, std::size_t pixels) {
  qz::launchRgb2Gray<T>(static_cast<T const*>(ndGetData(in)), pixels, static_cast<T*>(ndGetData(out)), true);
}
}  // namespace

// The caller guarantees a real M-by-N-by-3 input; nothing is checked and
// nothing is raised here.
void _rgb2gray(int, OutputSlot* outputs, int, ndArray_tag const** inputs) {
  ndArray_tag const* a = inputs[0];
  ndClassID const cls = ndGetClassID(a);
  a->complete_opaque_dimensions();
  std::size_t const pixels = ndGetNumberOfElements(a) / 3;
  std::size_t const* dims = ndGetDimensions(a);
  outputs[0] = matrix::detail::do_create_uninitnumeric({dims, dims + 2}, cls, ndREAL);
  ndArray_tag* out = outputs[0].get();
  switch (cls) {
#define QZ_GRAY_CASE(T, C) \
  case ndclass::C: launchOn<T>(a, out, pixels); break;
    QZ_FOR_EACH_NUMERIC_TYPE(QZ_GRAY_CASE)
#undef QZ_GRAY_CASE
    default: break;  // outside the numeric classes the output stays as created
  }
}

}  // namespace pximages
