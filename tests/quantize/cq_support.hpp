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

struct CqResult {
  std::vector<Rgb> map;
  ndClassID indexClass = 0;
  std::vector<std::size_t> indexDims;
  std::vector<std::uint16_t> index;  // widened from uint8 when narrow
};

// Calls cq asking for both outputs and reads them back.
inline CqResult runCq(ndArray_tag const* image, double colors) {
  auto k = qztest::makeFrom<double>({1, 1}, {colors});
  auto out = qztest::call(pximages::_cq, 2, {image, k.get()});
  CqResult r;
  auto dims = qzhost::dimsOf(out[0].get());
  EXPECT_EQ(ndGetClassID(out[0].get()), ndclass::UInt8);
  EXPECT_EQ(dims, (std::vector<std::size_t>{dims[0], 3}));
  auto bytes = qztest::valuesOf<std::uint8_t>(out[0].get());
  for (std::size_t k2 = 0; k2 < dims[0]; ++k2)
    r.map.push_back({bytes[k2], bytes[dims[0] + k2], bytes[2 * dims[0] + k2]});
  ndArray_tag const* index = out[1].get();
  r.indexClass = ndGetClassID(index);
  r.indexDims = qzhost::dimsOf(index);
  if (r.indexClass == ndclass::UInt8)
    for (auto v : qztest::valuesOf<std::uint8_t>(index)) r.index.push_back(v);
  else
    r.index = qztest::valuesOf<std::uint16_t>(index);
  return r;
}

}  // namespace cqtest
