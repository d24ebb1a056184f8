// The column-splitting ranges: when they split, where, and that a parallel
// loop over them visits every column exactly once.

#include <atomic>
#include <numeric>

#include <tbb/global_control.h>

#include "parallel/loop.hpp"
#include "parallel/raster.hpp"
#include "qztest.hpp"

namespace {

using Array = raster::SplittableArrayWrapper<int>;
using Rgb = raster::SplittableRGBArrayWrapper<unsigned char>;

TEST(RasterArrayTest, DivisibilityFollowsColumnsAndGrain) {
  struct Row {
    std::size_t rows, columns, grain;
    bool divisible;
  } rows[] = {
      {1000, 1, 1, false},  // one column never splits
      {1, 1, 1, false},     {5, 2, 5, true},   // two columns of exactly the grain
      {5, 2, 6, false},     // two columns smaller than the grain
      {4, 3, 4, true},      {4, 3, 5, false},  // the right piece would hold one column of 4
      {0, 8, 1, false},     // no rows: pieces would be empty
      {1, 5, 2, true},      {10, 2, 1, true},
  };
  int dummy = 0;
  for (auto const& r : rows) {
    Array a(&dummy, r.rows * r.columns, r.rows, r.columns, r.grain);
    EXPECT_EQ(a.is_divisible(), r.divisible) << r.rows << "x" << r.columns << " grain " << r.grain;
  }
}

TEST(RasterArrayTest, FiveColumnsSplitThreeLeftAndTwoRight) {
  std::vector<int> data(7 * 5);
  Array left(data.data(), 35, 7, 5, 1);
  Array right(left, tbb::split());
  EXPECT_EQ(left.data, data.data());
  EXPECT_EQ(left.columns, 3u);
  EXPECT_EQ(left.count, 21u);
  EXPECT_EQ(right.data, data.data() + 21);
  EXPECT_EQ(right.columns, 2u);
  EXPECT_EQ(right.count, 14u);
  EXPECT_EQ(right.rows, 7u);
  EXPECT_EQ(right.grain, 1u);
}

TEST(RasterRgbTest, CountIsHalvedIndependentlyOfTheColumns) {
  for (std::size_t m : {1u, 2u, 7u}) {
    std::vector<unsigned char> data(3 * m * 5);
    Rgb left(data.data(), 15 * m, m, 15, 1, 5 * m, 5);
    Rgb right(left, tbb::split());
    EXPECT_EQ(right.count, 15 * m / 2) << "M=" << m;
    EXPECT_EQ(left.count, 15 * m - 15 * m / 2);
    EXPECT_EQ(left.columns, 3u);
    EXPECT_EQ(right.columns, 2u);
    EXPECT_EQ(right.data, data.data() + 3 * m);
    EXPECT_EQ(right.planeSize, 5 * m);
    EXPECT_EQ(right.hostColumns, 15u);
  }
}

TEST(RasterRgbTest, DivisibilityUsesAThirdOfTheCount) {
  unsigned char dummy = 0;
  EXPECT_FALSE(Rgb(&dummy, 3 * 9, 9, 3, 1, 9, 1).is_divisible());  // one column
  EXPECT_TRUE(Rgb(&dummy, 3 * 18, 9, 6, 1, 18, 2).is_divisible());
  EXPECT_FALSE(Rgb(&dummy, 3 * 18, 9, 6, 10, 18, 2).is_divisible());  // columns below the grain
  EXPECT_TRUE(Rgb(&dummy, 3 * 20, 10, 6, 10, 20, 2).is_divisible());
}

TEST(RasterPairTest, BothMembersSplitAtTheSameColumn) {
  for (std::size_t columns = 1; columns <= 17; ++columns) {
    std::size_t const m = 3;
    std::vector<int> x(m * columns);
    std::vector<unsigned char> rgb(3 * m * columns);
    using Pair = raster::SplittablePair<Array, Rgb>;
    // Split repeatedly down the left side and check every piece pairs up.
    Pair whole(Array(x.data(), m * columns, m, columns, 1),
               Rgb(rgb.data(), 3 * m * columns, m, 3 * columns, 1, m * columns, columns));
    while (whole.is_divisible()) {
      Pair right(whole, tbb::split());
      EXPECT_EQ(right.first.columns, right.second.columns);
      EXPECT_EQ(right.first.data - x.data(), right.second.data - rgb.data());
      EXPECT_EQ(whole.first.columns, whole.second.columns);
    }
    EXPECT_EQ(whole.first.data, x.data());
  }
}

// A parallel loop over a pair covers every column of both views exactly once,
// whatever the thread count.
struct MarkColumns {
  std::atomic<int>* visits;
  std::size_t rows;
  int const* base;
  void operator()(raster::SplittablePair<raster::SplittableArrayWrapper<int const>, Rgb> const& r) const {
    EXPECT_EQ(r.first.count % rows, 0u);
    std::size_t first = static_cast<std::size_t>(r.first.data - base) / rows;
    for (std::size_t c = 0; c < r.first.columns; ++c) visits[first + c]++;
  }
};

TEST(RasterPairTest, ParallelLoopVisitsEveryColumnOnce) {
  std::size_t const m = 100, n = 1237;
  std::vector<int> x(m * n);
  std::vector<unsigned char> rgb(3 * m * n);
  for (int threads : {1, 2, 4}) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
    std::vector<std::atomic<int>> visits(n);
    raster::SplittablePair<raster::SplittableArrayWrapper<int const>, Rgb> range(
        raster::SplittableArrayWrapper<int const>(x.data(), m * n, m, n, 1),
        Rgb(rgb.data(), 3 * m * n, m, 3 * n, 1, m * n, n));
    qz::runParallel(range, MarkColumns{visits.data(), m, x.data()});
    for (std::size_t c = 0; c < n; ++c) ASSERT_EQ(visits[c].load(), 1) << "column " << c << ", " << threads << " threads";
  }
}

}  // namespace
