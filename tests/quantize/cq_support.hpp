#pragma once
// Building cq's inputs and reading its outputs in the tests.

#include <array>
#include <cstdint>
#include <vector>

#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

namespace cqtest {

using Rgb = std::array<std::uint8_t, 3>;

// An M-by-N-by-3 uint8 image from pixels in column-major order.
inline qzhost::ArrayPtr rgbImage(std::size_t m, std::size_t n, std::vector<Rgb> const& pixels) {
  std::vector<std::uint8_t> planar(3 * m * n);
  for (std::size_t p = 0; p < m * n; ++p)
    for (std::size_t c = 0; c < 3; ++c) planar[c * m * n + p] = pixels.at(p)[c];
  return qztest::makeFrom<std::uint8_t>({m, n, 3}, planar);
}

inline qzhost::ArrayPtr scalar(double v) { return qztest::makeFrom<double>({1, 1}, {v}); }

struct CqResult {
  std::vector<Rgb> map;
  ndClassID indexClass = 0;
  std::vector<std::size_t> indexDims;
  std::vector<std::uint16_t> index;  // widened from uint8 when narrow
  bool operator==(CqResult const& o) const {
    return map == o.map && indexClass == o.indexClass && indexDims == o.indexDims && index == o.index;
  }
};

// Calls cq asking for both outputs and reads them back.
inline CqResult runCq(ndArray_tag const* image, double colors) {
  auto k = scalar(colors);
  auto out = qztest::call(pximages::_cq, 2, {image, k.get()});
  CqResult r;
  ndArray_tag const* map = out[0].get();
  EXPECT_EQ(ndGetClassID(map), ndclass::UInt8);
  auto dims = qzhost::dimsOf(map);
  EXPECT_EQ(dims.size(), 2u);
  EXPECT_EQ(dims[1], 3u);
  auto bytes = qztest::valuesOf<std::uint8_t>(map);
  std::size_t rows = dims[0];
  for (std::size_t k2 = 0; k2 < rows; ++k2) r.map.push_back({bytes[k2], bytes[rows + k2], bytes[2 * rows + k2]});
  ndArray_tag const* index = out[1].get();
  if (!index) {
    ADD_FAILURE() << "no index image";
    return r;
  }
  r.indexClass = ndGetClassID(index);
  r.indexDims = qzhost::dimsOf(index);
  if (r.indexClass == ndclass::UInt8) {
    for (auto v : qztest::valuesOf<std::uint8_t>(index)) r.index.push_back(v);
  } else {
    r.index = qztest::valuesOf<std::uint16_t>(index);
  }
  return r;
}

}  // namespace cqtest
