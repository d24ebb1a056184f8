// Host-side resampling filters: normalised, reflected into the image, exact
// at scale 1, symmetric, and refusing what cannot be tabulated.

#include <cmath>
#include <map>
#include <stdexcept>

#include <gtest/gtest.h>

#include "filters.hpp"

using qzfilters::Method;

TEST(FiltersTest, WeightsSumToOneStayInsideAreMirroredAndScaleOneIsTheIdentity) {
  for (Method m : {Method::Nearest, Method::Bilinear, Method::Bicubic, Method::Lanczos2, Method::Lanczos3, Method::Box})
    for (double s : {0.1, 0.25, 0.5, 0.7, 1.0, 1.5, 2.0, 3.3})
      for (std::size_t in : {1u, 2u, 7u, 20u}) {
        std::size_t const out = qzfilters::outputLength(in, s);
        auto const f = qzfilters::makeFilter(in, out, s, m, in != 7);  // antialiased but for 7
        SCOPED_TRACE(testing::Message() << qzfilters::methodName(m) << " s=" << s << " in=" << in);
        std::vector<std::map<double, double>> byIndex(out);  // the weight each input gets from output x
        for (std::size_t x = 0; x < out; ++x) {
          double sum = 0;
          for (std::size_t t = 0; t < f.taps; ++t) {
            double const w = f.weights[x * f.taps + t], i = f.indices[x * f.taps + t];
            ASSERT_TRUE(i >= 1 && i <= double(in) && i == std::floor(i)) << i;
            sum += w;
            byIndex[x][i] += w;
            EXPECT_TRUE(s != 1.0 || (f.taps == 1 && w == 1.0 && i == double(x + 1))) << x;
          }
          EXPECT_NEAR(sum, 1.0, 1e-12) << x;
        }
        // Where the output spans the input exactly, the kernels that break
        // no ties give mirrored tables.
        bool const mirrored = m != Method::Nearest && m != Method::Box && double(out) == double(in) * s;
        for (std::size_t x = 0; x < out && mirrored; ++x)
          for (auto [i, w] : byIndex[x]) EXPECT_NEAR(w, byIndex[out - 1 - x][double(in + 1) - i], 1e-12) << x;
      }
}

TEST(FiltersTest, WorkedTablesAndRefusals) {
  auto box = qzfilters::makeFilter(4, 2, 0.5, Method::Box, true);  // halving averages pairs
  EXPECT_EQ(box.weights, (std::vector<double>{0.5, 0.5, 0.5, 0.5}));
  EXPECT_EQ(box.indices, (std::vector<double>{1, 2, 3, 4}));
  // Doubling: output 1 sits at input 0.75, reflected to 1; output 2 at 1.25
  // takes 0.75 of input 1.
  auto lin = qzfilters::makeFilter(2, 4, 2.0, Method::Bilinear, true);
  EXPECT_TRUE(lin.taps == 2 && lin.indices[0] == 1.0 && lin.weights[2] == 0.75);
  EXPECT_EQ(qzfilters::makeFilter(8, 2, 0.25, Method::Nearest, true).taps, 1u);  // never widens
  EXPECT_EQ(qzfilters::filterTaps(0.5, Method::Lanczos3, true), 14.0);
  EXPECT_EQ(qzfilters::filterTaps(0.5, Method::Lanczos3, false), 8.0);
  EXPECT_EQ(qzfilters::outputLength(10, 1e300), std::size_t{1} << 53);
  EXPECT_EQ(qzfilters::outputLength(3, 0.1), 1u);
  // Absurd scales (taps beyond any integer, positions beyond exact doubles)
  // must not reach a conversion to an integer; tables stop at 2^22 entries.
  std::tuple<std::size_t, std::size_t, double, Method, bool, bool> const rows[] = {
      {0, 4, 1.0, Method::Box, true, true},          {4, 0, 1.0, Method::Box, true, true},
      {4, 4, 0.0, Method::Box, true, true},          {4, 4, NAN, Method::Box, true, true},
      {600, 1, 1e-19, Method::Bicubic, true, true},  {600, 1, 1e-300, Method::Box, false, true},
      {600, 1, 1e-16, Method::Box, false, true},     {600, 1, 1e-14, Method::Box, false, false},
      {1, 1048577, 1.0, Method::Bilinear, true, true}, {1, 1048576, 1.0, Method::Bilinear, true, false},
  };
  for (auto const& [in, out, scale, method, aa, refused] : rows) {
    try {
      EXPECT_EQ(qzfilters::makeFilter(in, out, scale, method, aa).outLength, out);
      EXPECT_FALSE(refused) << in << " to " << out << " at " << scale;
    } catch (std::invalid_argument const&) {
      EXPECT_TRUE(refused) << in << " to " << out << " at " << scale;
    }
  }
}
