#pragma once
// Helpers shared by the test suites: typed arrays, gateway calls through the
// host's call path, error expectations and a fixture that proves a test left
// no scratch block or array alive.

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qztest {

using qzhost::ArrayPtr;

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInf = std::numeric_limits<double>::infinity();

// A real (or complex, with interleaved values) array of T's class holding
// `values` in column-major order, its dimensions held in the given form (a
// lazy array's are completed only by the code under test).
template <class T>
ArrayPtr makeFrom(std::vector<std::size_t> dims, std::vector<T> const& values, bool complex = false,
                  qzhost::DimForm form = qzhost::DimForm::Full) {
  std::size_t n = complex ? 2 : 1;
  for (auto d : dims) n *= d;
  EXPECT_EQ(values.size(), n) << "test data does not match the array size";
  ArrayPtr a = qzhost::makeArray(ndClassOf<T>::value, std::move(dims), complex, form);
  if (n && values.size() == n) std::memcpy(ndGetData(a.get()), values.data(), n * sizeof(T));
  return a;
}

template <class T>
ArrayPtr makeLazyFrom(std::vector<std::size_t> dims, std::vector<T> const& values) {
  return makeFrom(std::move(dims), values, false, qzhost::DimForm::Lazy);
}

template <class T>
std::vector<T> valuesOf(ndArray_tag const* a) {
  T const* p = qzhost::dataOf<T>(a);
  std::size_t n = ndGetNumberOfElements(a) * (ndIsComplex(a) ? 2 : 1);
  return p ? std::vector<T>(p, p + n) : std::vector<T>{};
}

// Calls a gateway through the host's call path with `slots` empty output
// slots and returns them.
inline std::vector<ArrayPtr> call(qzhost::Gateway fn, int numOutputs, std::vector<ndArray_tag const*> inputs,
                                  std::size_t slots = 2) {
  std::vector<ArrayPtr> out(slots);
  qzhost::call(fn, numOutputs, out.data(), static_cast<int>(inputs.size()), inputs.data());
  return out;
}

// The identifier of the host error the statement raised, or "" if none.
template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (qzhost::HostError const& e) {
    return e.identifier();
  }
  return "";
}

// Checks that the test left no ndMalloc block, no array and no interface
// misuse behind.
class HostTest : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(qzhost::liveBlocks(), blocks_) << "scratch blocks left alive";
    EXPECT_EQ(qzhost::liveArrays(), arrays_) << "arrays left alive";
    EXPECT_EQ(qzhost::contractViolations(), violations_) << "array interface misused";
  }

 private:
  std::size_t blocks_ = qzhost::liveBlocks(), arrays_ = qzhost::liveArrays(),
              violations_ = qzhost::contractViolations();
};

}  // namespace qztest

#define EXPECT_QZ_ERROR(stmt, id) EXPECT_EQ(::qztest::errorOf([&] { stmt; }), std::string(id))
