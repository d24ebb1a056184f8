// Host-side resampling filters: normalised, reflected into the image, exact
// at scale 1 and symmetric.

#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include "filters.hpp"

namespace {

using qzfilters::Method;

constexpr Method kMethods[] = {Method::Nearest, Method::Bilinear, Method::Bicubic,
                               Method::Lanczos2, Method::Lanczos3, Method::Box};

TEST(FiltersTest, WeightsSumToOneAndIndicesStayInside) {
  for (Method m : kMethods)
    for (double s : {0.1, 0.25, 0.5, 0.7, 1.0, 1.5, 2.0, 3.3})
      for (bool aa : {true, false})
        for (std::size_t in : {1u, 2u, 7u, 64u}) {
          std::size_t out = qzfilters::outputLength(in, s);
          auto f = qzfilters::makeFilter(in, out, s, m, aa);
          ASSERT_EQ(f.weights.size(), f.taps * out);
          for (std::size_t x = 0; x < out; ++x) {
            double sum = 0;
            for (std::size_t t = 0; t < f.taps; ++t) {
              sum += f.weights[x * f.taps + t];
              double i = f.indices[x * f.taps + t];
              ASSERT_TRUE(i >= 1 && i <= static_cast<double>(in) && i == std::floor(i)) << i;
            }
            EXPECT_NEAR(sum, 1.0, 1e-12) << qzfilters::methodName(m) << " s=" << s << " in=" << in << " x=" << x;
          }
        }
}

TEST(FiltersTest, ScaleOneIsTheIdentity) {
  for (Method m : kMethods) {
    auto f = qzfilters::makeFilter(9, 9, 1.0, m, true);
    ASSERT_EQ(f.taps, 1u) << qzfilters::methodName(m);
    for (std::size_t x = 0; x < 9; ++x) {
      EXPECT_EQ(f.weights[x], 1.0);
      EXPECT_EQ(f.indices[x], static_cast<double>(x + 1));
    }
  }
}

// The weight each input sample receives from output x, summed over taps.
std::map<double, double> weightByIndex(qzfilters::Filter const& f, std::size_t x) {
  std::map<double, double> out;
  for (std::size_t t = 0; t < f.taps; ++t)
    if (f.weights[x * f.taps + t] != 0) out[f.indices[x * f.taps + t]] += f.weights[x * f.taps + t];
  return out;
}

TEST(FiltersTest, SymmetricKernelsGiveMirroredWeights) {
  for (Method m : {Method::Bilinear, Method::Bicubic, Method::Lanczos3, Method::Lanczos2})
    for (double s : {0.5, 0.25, 2.0, 1.5}) {
      std::size_t const in = 20, out = qzfilters::outputLength(in, s);
      auto f = qzfilters::makeFilter(in, out, s, m, true);
      for (std::size_t x = 0; x < out; ++x) {
        auto here = weightByIndex(f, x), there = weightByIndex(f, out - 1 - x);
        ASSERT_EQ(here.size(), there.size()) << qzfilters::methodName(m) << " s=" << s << " x=" << x;
        for (auto [i, w] : here) EXPECT_NEAR(w, there[static_cast<double>(in + 1) - i], 1e-12) << "index " << i;
      }
    }
}

TEST(FiltersTest, KnownTables) {
  // Halving with a box filter averages pairs.
  auto box = qzfilters::makeFilter(4, 2, 0.5, Method::Box, true);
  ASSERT_EQ(box.taps, 2u);
  EXPECT_EQ(box.weights, (std::vector<double>{0.5, 0.5, 0.5, 0.5}));
  EXPECT_EQ(box.indices, (std::vector<double>{1, 2, 3, 4}));
  // Doubling with bilinear: output 1 sits at input 0.75, reflected to 1.
  auto lin = qzfilters::makeFilter(2, 4, 2.0, Method::Bilinear, true);
  ASSERT_EQ(lin.taps, 2u);
  EXPECT_EQ(lin.weights[0] + lin.weights[1], 1.0);
  EXPECT_EQ(lin.indices[0], 1.0);  // position 0 reflects to 1
  EXPECT_EQ(lin.weights[2 * 1], 0.75);  // output 2 at u = 1.25: 0.75 of input 1
  // Nearest never widens, even when shrinking.
  EXPECT_EQ(qzfilters::makeFilter(8, 2, 0.25, Method::Nearest, true).taps, 1u);
}

TEST(FiltersTest, RefusesMeaninglessRequests) {
  EXPECT_THROW(qzfilters::makeFilter(0, 4, 1.0, Method::Box, true), std::invalid_argument);
  EXPECT_THROW(qzfilters::makeFilter(4, 0, 1.0, Method::Box, true), std::invalid_argument);
  EXPECT_THROW(qzfilters::makeFilter(4, 4, 0.0, Method::Box, true), std::invalid_argument);
  EXPECT_THROW(qzfilters::makeFilter(4, 4, NAN, Method::Box, true), std::invalid_argument);
  // Absurd scales: taps beyond any integer, positions beyond exact doubles,
  // tables beyond the limit; none may reach a conversion to an integer.
  EXPECT_THROW(qzfilters::makeFilter(600, 1, 1e-19, Method::Bicubic, true), std::invalid_argument);
  EXPECT_THROW(qzfilters::makeFilter(600, 1, 1e-300, Method::Box, false), std::invalid_argument);
  EXPECT_THROW(qzfilters::makeFilter(600, 1, 1e-16, Method::Box, false), std::invalid_argument);
  EXPECT_EQ(qzfilters::makeFilter(600, 1, 1e-14, Method::Box, false).outLength, 1u);
  EXPECT_THROW(qzfilters::makeFilter(1, 1048577, 1.0, Method::Bilinear, true), std::invalid_argument);
  EXPECT_EQ(qzfilters::makeFilter(1, 1048576, 1.0, Method::Bilinear, true).outLength, 1048576u);  // 4 taps: 2^22
  EXPECT_EQ(qzfilters::filterTaps(0.5, Method::Lanczos3, true), 14.0);
  EXPECT_EQ(qzfilters::filterTaps(0.5, Method::Lanczos3, false), 8.0);
  EXPECT_EQ(qzfilters::outputLength(10, 1e300), std::size_t{1} << 53);
  EXPECT_EQ(qzfilters::outputLength(3, 0.1), 1u);
  EXPECT_FALSE(qzfilters::parseMethod("cubic").has_value());
  EXPECT_EQ(qzfilters::parseMethod("lanczos3"), Method::Lanczos3);
}

}  // namespace
