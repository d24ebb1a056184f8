#pragma once
// Shared helpers of the imresize suites: building the four arguments and
// calling the gateway.

#include <cmath>
#include <cstring>
#include <type_traits>
#include <vector>

#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

namespace resizetest {

using qzhost::ArrayPtr;

// Calls imresize on (a, taps-by-len weights w, indices x, dimension dim).
inline ArrayPtr resizeCall(ndArray_tag const* a, std::vector<double> const& w, std::vector<double> const& x,
                           std::size_t taps, std::size_t len, double dim) {
  auto wa = qztest::makeFrom<double>({taps, len}, w);
  auto xa = qztest::makeFrom<double>({taps, len}, x);
  auto da = qztest::makeFrom<double>({1, 1}, {dim});
  auto out = qztest::call(pximages::_imresize, 1, {a, wa.get(), xa.get(), da.get()}, 1);
  return std::move(out[0]);
}

// Equal as stored values: NaN matches any NaN, zeros must agree in sign.
template <class T>
bool sameValue(T a, T b) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return a == b && std::signbit(a) == std::signbit(b);
  } else {
    return a == b;
  }
}

template <class T>
bool sameBytes(std::vector<T> const& a, std::vector<T> const& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

}  // namespace resizetest
