// rgb2gray: the per-pixel conversion for every numeric class and its gateway.

#include "color/rgb2gray.hpp"

#include <type_traits>

#include "common/convert.hpp"
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

template <class T>
T grayFromSum(double s, bool clamp) {
  if (clamp) {
    if (!(s >= 0))
      s = 0;  // also NaN
    else if (s > 1)
      s = 1;
  }
  if constexpr (std::is_floating_point_v<T>)
    return static_cast<T>(s);
  else
    return saturateRoundHalfAway<T>(s);
}

template <class T>
T grayOf(T r, T g, T b, bool clamp) {
  double s = static_cast<double>(r) * kGrayRed + static_cast<double>(g) * kGrayGreen;
  s = s + static_cast<double>(b) * kGrayBlue;
  return grayFromSum<T>(s, clamp);
}

// The sum of the three table entries never exceeds 255.5 (255.50000000000003
// at white), so truncation alone keeps it in a byte and rounds halves up.
inline std::uint8_t grayOfBytes(GrayWeightTables const& t, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  return static_cast<std::uint8_t>(t.red[r] + t.green[g] + t.blue[b]);
}

}  // namespace

GrayWeightTables const& grayWeightTables() { return kGrayWeightTables; }

template <class T>
void convertrgb2gray<T>::operator()(tbb::blocked_range<std::size_t> const& r) const {
  std::size_t const b = r.begin(), e = r.end(), p = pixels;
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    auto const& t = kGrayWeightTables;
    if (planar)
      for (std::size_t i = b; i != e; ++i) output[i] = grayOfBytes(t, input[i], input[p + i], input[2 * p + i]);
    else
      for (std::size_t i = b; i != e; ++i)
        output[i] = grayOfBytes(t, input[3 * i], input[3 * i + 1], input[3 * i + 2]);
  } else {
    if (planar)
      for (std::size_t i = b; i != e; ++i) output[i] = grayOf(input[i], input[p + i], input[2 * p + i], clamp);
    else
      for (std::size_t i = b; i != e; ++i)
        output[i] = grayOf(input[3 * i], input[3 * i + 1], input[3 * i + 2], clamp);
  }
}

template <class T>
void launchRgb2Gray(T const* input, std::size_t pixels, T* output, bool planar) {
  convertrgb2gray<T> body{input, pixels, std::is_floating_point_v<T>, output, planar};
  if (pixels == 0) return;
  runParallel(tbb::blocked_range<std::size_t>(0, pixels), body);
}

#define QZ_INSTANTIATE_RGB2GRAY(T)      \
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
    case ndclass::Double: launchOn<double>(a, out, pixels); break;
    case ndclass::Single: launchOn<float>(a, out, pixels); break;
    case ndclass::Int8: launchOn<std::int8_t>(a, out, pixels); break;
    case ndclass::UInt8: launchOn<std::uint8_t>(a, out, pixels); break;
    case ndclass::Int16: launchOn<std::int16_t>(a, out, pixels); break;
    case ndclass::UInt16: launchOn<std::uint16_t>(a, out, pixels); break;
    case ndclass::Int32: launchOn<std::int32_t>(a, out, pixels); break;
    case ndclass::UInt32: launchOn<std::uint32_t>(a, out, pixels); break;
    case ndclass::Int64: launchOn<std::int64_t>(a, out, pixels); break;
    case ndclass::UInt64: launchOn<std::uint64_t>(a, out, pixels); break;
    default: break;  // outside the numeric classes the output stays as created
  }
}

}  // namespace pximages
