#pragma once
// Building the inputs of whole built-in calls: argument lists, random
// arrays, imresize's arguments and the random samples and weights of the
// imresize suites.

#include <cmath>
#include <limits>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

#include "filters.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

namespace qztest {

// An argument list from owning handles, in order.
template <class... A>
std::vector<ArrayPtr> args(A... a) {
  std::vector<ArrayPtr> v;
  (v.push_back(std::move(a)), ...);
  return v;
}

inline ArrayPtr scalar(double v) { return makeFrom<double>({1, 1}, {v}); }

// An array of T's class with values drawn uniformly from [lo, hi) and
// converted to T (both parts when complex).
template <class T>
ArrayPtr randomArray(std::vector<std::size_t> dims, std::mt19937_64& rng, double lo, double hi, bool complex = false) {
  ArrayPtr a = qzhost::makeArray(ndClassOf<T>::value, std::move(dims), complex);
  std::size_t const n = ndGetNumberOfElements(a.get()) * (complex ? 2 : 1);
  std::uniform_real_distribution<double> u(lo, hi);
  T* d = qzhost::dataOf<T>(a.get());
  for (std::size_t e = 0; e < n; ++e) d[e] = static_cast<T>(u(rng));
  return a;
}

// The four inputs of imresize: the image, a bicubic filter (weights and
// source indices) from inLength to outLength, and the dimension.
inline std::vector<ArrayPtr> resizeArgs(ArrayPtr image, std::size_t inLength, std::size_t outLength, int dim) {
  auto f = qzfilters::makeFilter(inLength, outLength, static_cast<double>(outLength) / static_cast<double>(inLength),
                                 qzfilters::Method::Bicubic, true);
  return args(std::move(image), makeFrom<double>({f.taps, f.outLength}, f.weights),
              makeFrom<double>({f.taps, f.outLength}, f.indices), scalar(dim));
}

// Calls imresize on (a, taps-by-len weights w, indices x, dimension dim).
inline ArrayPtr resizeCall(ndArray_tag const* a, std::vector<double> const& w, std::vector<double> const& x,
                           std::size_t taps, std::size_t len, double dim) {
  auto in = args(makeFrom<double>({taps, len}, w), makeFrom<double>({taps, len}, x), scalar(dim));
  return std::move(call(pximages::_imresize, 1, {a, in[0].get(), in[1].get(), in[2].get()}, 1)[0]);
}

// Equal as stored values: NaN matches any NaN, zeros must agree in sign.
template <class T>
bool sameValue(T a, T b) {
  if constexpr (std::is_floating_point_v<T>)
    return std::isnan(a) || std::isnan(b) ? std::isnan(a) && std::isnan(b)
                                          : a == b && std::signbit(a) == std::signbit(b);
  return a == b;
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
  double const special[] = {kNaN, kInf, -kInf, 1e300, -1e300, -0.0, 1e9, -1e9};
  std::vector<double> w(n);
  for (auto& x : w) x = rng() % 16 == 0 ? special[rng() % 8] : std::uniform_real_distribution<double>(-0.75, 1.5)(rng);
  return w;
}

}  // namespace qztest
