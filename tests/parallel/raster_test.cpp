// The column-splitting ranges: when they split, where, and that a parallel
// loop over a pair of them visits every column of both exactly once.

#include <atomic>
#include <tuple>

#include <tbb/global_control.h>

#include "parallel/loop.hpp"
#include "parallel/raster.hpp"
#include "qztest.hpp"

using Array = raster::SplittableArrayWrapper<int const>;
using Rgb = raster::SplittableRGBArrayWrapper<unsigned char>;
using Pair = raster::SplittablePair<Array, Rgb>;

// Whole views of an M-by-N image and of the three planes of its output.
static Pair pairOf(int const* x, unsigned char* rgb, std::size_t m, std::size_t n, std::size_t grain) {
  return Pair(Array(x, m * n, m, n, grain), Rgb(rgb, 3 * m * n, m, 3 * n, grain, m * n, n));
}

TEST(RasterTest, PiecesKeepWholeColumnsAndTheGrain) {
  std::tuple<std::size_t, std::size_t, std::size_t, bool> const rows[] = {
      {1000, 1, 1, false},  // one column never splits
      {5, 2, 5, true},      // two pieces of exactly the grain
      {5, 2, 6, false},     {4, 3, 5, false}, {1, 5, 2, true}, {1, 1, 1, false}, {0, 8, 1, false},
  };
  int xs[3] = {};
  unsigned char cs[9] = {};
  for (auto const& [m, n, grain, divisible] : rows) {
    Pair const p = pairOf(xs, cs, m, n, grain);
    EXPECT_TRUE(p.first.is_divisible() == divisible && p.second.is_divisible() == divisible) << m << "x" << n;
    EXPECT_TRUE(p.first.empty() == (m * n == 0) && p.second.empty() == (m * n == 0)) << m << "x" << n;
  }
  // The planes' count is halved on its own, so an odd split is uneven: the
  // left two columns of a 1-by-3 view keep 5 of the 9 elements, too few to
  // split again, where the matching index view could.
  Pair left = pairOf(xs, cs, 1, 3, 1), right(left, tbb::split());
  EXPECT_TRUE(left.first.is_divisible());
  EXPECT_FALSE(left.is_divisible());
}

TEST(RasterTest, AParallelLoopVisitsEveryColumnOnceWhateverTheThreadCount) {
  std::size_t const m = 7, n = 1237;
  std::vector<int> x(m * n);
  std::vector<unsigned char> rgb(3 * m * n);
  for (std::size_t threads : {1, 2, 4}) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    std::vector<std::atomic<int>> visits(n);
    qz::runParallel(pairOf(x.data(), rgb.data(), m, n, 1), [&](Pair const& r) {
      // The pieces of both views stay whole columns of the same place.
      std::size_t const first = std::size_t(r.first.data - x.data()) / m;
      EXPECT_EQ(r.first.count, m * r.first.columns);
      EXPECT_EQ(r.second.columns, r.first.columns);
      EXPECT_EQ(r.second.data, rgb.data() + first * m);
      for (std::size_t c = 0; c < r.first.columns; ++c) visits[first + c]++;
    });
    for (std::size_t c = 0; c < n; ++c) ASSERT_EQ(visits[c].load(), 1) << "column " << c << ", threads " << threads;
  }
}
