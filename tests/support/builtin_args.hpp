#pragma once
// Building the inputs of whole built-in calls in the suites that call all
// six: argument lists, random arrays and imresize's filter tables.

#include <random>
#include <utility>
#include <vector>

#include "filters.hpp"
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

}  // namespace qztest
