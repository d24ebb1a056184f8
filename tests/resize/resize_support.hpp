#pragma once
// Shared helpers of the imresize suites: building the four arguments and
// calling the gateway.

#include <cmath>
#include <limits>
#include <random>
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

// Random samples, a quarter (an eighth when floating) at the type's
// extremes, and weights around 1 with now and then NaN, an infinity, a
// negative zero or a value that takes any sum far past every type's range.
template <class E>
std::vector<E> randomSamples(std::mt19937_64& rng, std::size_t n) {
  using L = std::numeric_limits<E>;
  std::vector<E> v(n);
  for (auto& x : v)
    x = rng() % (std::is_floating_point_v<E> ? 8 : 4) == 0 ? (rng() % 2 ? L::lowest() : L::max())
        : std::is_floating_point_v<E> ? static_cast<E>(std::uniform_real_distribution<double>(-300, 300)(rng))
                                      : static_cast<E>(rng());
  return v;
}

inline std::vector<double> randomWeights(std::mt19937_64& rng, std::size_t n) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  double const special[] = {std::numeric_limits<double>::quiet_NaN(), kInf, -kInf, 1e300, -1e300, -0.0, 1e9, -1e9};
  std::vector<double> w(n);
  for (auto& x : w) x = rng() % 16 == 0 ? special[rng() % 8] : std::uniform_real_distribution<double>(-0.75, 1.5)(rng);
  return w;
}

}  // namespace resizetest
