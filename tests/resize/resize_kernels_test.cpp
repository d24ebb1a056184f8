// The resampling kernels: the stored value of every element type (rounding,
// saturation, NaN and infinite sums, no taps, complex parts), agreement with
// the plain reference on random data of every type, and independence from
// the split of the work and the thread count.

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include <tbb/global_control.h>

#include "common/convert.hpp"
#include "reference/resize_reference.hpp"
#include "resize/resize.hpp"
#include "resize_support.hpp"

namespace {

using qztest::HostTest;
using resizetest::resizeCall;
using resizetest::sameBytes;
using resizetest::sameValue;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// One output position: the taps' source elements (interleaved parts when
// complex), their weights and the stored value (one or two parts).  The
// source positions are 1..taps unless given.
template <class T>
struct Row {
  std::vector<T> src;
  std::vector<double> w;
  std::vector<T> expected;
  std::vector<double> idx;

  Row(std::vector<T> s, std::vector<double> weights, std::vector<T> want, std::vector<double> positions = {})
      : src(std::move(s)), w(std::move(weights)), expected(std::move(want)), idx(std::move(positions)) {}
};

template <class T>
std::string show(std::vector<T> const& v) {
  std::ostringstream s;
  for (T x : v) s << +x << " ";
  return s.str();
}

// Each row becomes a line of sources resampled to 9 identical output
// positions, along dimension 1 (a column) and along dimension 2 (a row, one
// parallel block of 8 and the tail), so the value is checked on every path.
template <class T>
void checkRows(std::vector<Row<T>> const& rows, bool complex = false) {
  std::size_t const parts = complex ? 2 : 1, len = 9;
  for (int dim : {1, 2})
    for (auto const& r : rows) {
      std::size_t const n = r.src.size() / parts, taps = r.w.size();
      std::vector<double> w, x;
      for (std::size_t i = 0; i < len; ++i)
        for (std::size_t k = 0; k < taps; ++k) {
          w.push_back(r.w[k]);
          x.push_back(r.idx.empty() ? static_cast<double>(k + 1) : r.idx[k]);
        }
      auto a = qztest::makeFrom<T>(dim == 1 ? std::vector<std::size_t>{n, 1} : std::vector<std::size_t>{1, n},
                                   r.src, complex);
      auto out = resizeCall(a.get(), w, x, taps, len, dim);
      auto got = qztest::valuesOf<T>(out.get());
      ASSERT_EQ(got.size(), len * parts);
      for (std::size_t i = 0; i < len; ++i)
        for (std::size_t part = 0; part < parts; ++part)
          EXPECT_TRUE(sameValue(got[i * parts + part], r.expected[part]))
              << "class " << ndClassOf<T>::value << " dim " << dim << " sources " << show(r.src) << "weights "
              << show(r.w) << "position " << i << ": got " << +got[i * parts + part] << ", want "
              << +r.expected[part];
    }
}

using ResizeValueTest = HostTest;

TEST_F(ResizeValueTest, UnsignedResultsRoundHalvesUpAndSaturate) {
  checkRows<std::uint8_t>({
      {{10, 20}, {0.5, 0.5}, {15}},
      {{1, 1}, {0.25, 0.25}, {1}},  // exactly one half
      {{1}, {0.49}, {0}},
      {{1}, {254.4}, {254}},
      {{1}, {254.5}, {255}},
      {{1}, {254.6}, {255}},
      {{100, 200}, {1, 1}, {255}},
      {{10}, {-1}, {0}},
      {{1}, {-0.4}, {0}},  // -0.4 + 0.5 is still non-negative
      {{1}, {-0.6}, {0}},
      {{1}, {kNaN}, {0}},
      {{0}, {kInf}, {0}},  // 0 * inf is NaN
      {{1, 1}, {kInf, -kInf}, {0}},
      {{1}, {kInf}, {255}},
      {{1}, {-kInf}, {0}},
  });
  checkRows<std::uint16_t>({
      {{3, 4}, {0.5, 0.5}, {4}},
      {{1}, {65534.4}, {65534}},
      {{1}, {65534.5}, {65535}},
      {{1}, {65535.4}, {65535}},
      {{1}, {1e6}, {65535}},
      {{2}, {-1}, {0}},
      {{1}, {kNaN}, {0}},
      {{1}, {kInf}, {65535}},
  });
  checkRows<std::uint32_t>({
      {{3}, {0.5}, {2}},
      {{1}, {4294967294.4}, {4294967294u}},
      {{1}, {4294967294.5}, {4294967295u}},
      {{4294967295u, 4294967295u}, {1, 1}, {4294967295u}},
      {{1}, {1e10}, {4294967295u}},
      {{1}, {-3}, {0}},
      {{1}, {kNaN}, {0}},
      {{1}, {kInf}, {4294967295u}},
      {{1}, {-kInf}, {0}},
  });
}

TEST_F(ResizeValueTest, SignedResultsRoundHalvesAwayFromZeroAndSaturate) {
  checkRows<std::int8_t>({
      {{-5}, {0.5}, {-3}},
      {{5}, {0.5}, {3}},
      {{-1}, {0.5}, {-1}},
      {{-4}, {0.1}, {0}},
      {{-100, -100}, {1, 1}, {-128}},
      {{1}, {126.5}, {127}},
      {{1}, {127.5}, {127}},
      {{1}, {-127.5}, {-128}},
      {{1}, {-128.5}, {-128}},
      {{1}, {kNaN}, {0}},
      {{1}, {kInf}, {127}},
      {{1}, {-kInf}, {-128}},
  });
  checkRows<std::int16_t>({
      {{-7}, {0.5}, {-4}},
      {{1}, {32766.5}, {32767}},
      {{1}, {-32767.5}, {-32768}},
      {{1}, {40000}, {32767}},
      {{1}, {-40000}, {-32768}},
      {{1}, {kNaN}, {0}},
  });
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  checkRows<std::int32_t>({
      {{-3}, {0.5}, {-2}},
      {{1}, {2147483646.5}, {kMax}},
      {{1}, {2147483647.4}, {kMax}},
      {{kMax, kMax}, {1, 1}, {kMax}},
      {{1}, {-2147483647.5}, {kMin}},
      {{1}, {-2147483648.4}, {kMin}},
      {{kMin}, {1}, {kMin}},
      {{1}, {-1e12}, {kMin}},
      {{1}, {kInf}, {kMax}},
      {{1}, {-kInf}, {kMin}},
      {{1}, {kNaN}, {kMin}},  // the processor's indefinite integer
      {{0, 5}, {kInf, 1}, {kMin}},
  });
}

TEST_F(ResizeValueTest, FloatingResultsKeepTheDoubleSum) {
  checkRows<double>({
      {{10, 20}, {0.5, 0.25}, {10}},
      // Taps are added in their own order, not in source order:
      // (1e16 - 1e16) + 1, where source order would lose the 1.
      {{1e16, 1, -1e16}, {1, 1, 1}, {1}, {1, 3, 2}},
      {{2}, {kInf}, {kInf}},
      {{1}, {kNaN}, {kNaN}},
      {{1, 1}, {kInf, -kInf}, {kNaN}},
      {{-3}, {0}, {0.0}},  // -0.0 added to the +0.0 start gives +0.0
  });
  checkRows<float>({
      // Summed in double, then narrowed once: in float the two 1s would vanish.
      {{16777216.0f, 1.0f, 1.0f}, {1, 1, 1}, {16777218.0f}},
      {{1.0f}, {0.1}, {0.1f}},
      {{1.0f}, {1e300}, {std::numeric_limits<float>::infinity()}},
      {{-1.0f}, {1e300}, {-std::numeric_limits<float>::infinity()}},
      {{1.0f}, {kNaN}, {NAN}},
  });
}

TEST_F(ResizeValueTest, ComplexPartsAreConvertedEachWithItsOwnSign) {
  checkRows<std::int16_t>({{{3, -3}, {0.5}, {2, -2}}}, true);
  checkRows<std::int8_t>({
                             {{-5, 5}, {0.5}, {-3, 3}},
                             {{100, -100}, {2}, {127, -128}},
                             {{1, 1}, {kNaN}, {0, 0}},
                         },
                         true);
  checkRows<std::uint8_t>({
                              {{10, 250, 11, 251}, {0.5, 0.5}, {11, 251}},
                              {{10, 200}, {-0.04}, {0, 0}},
                              {{3, 200}, {2}, {6, 255}},
                          },
                          true);
  checkRows<std::int32_t>({{{7, -7}, {kNaN}, {INT32_MIN, INT32_MIN}}}, true);
  checkRows<std::uint32_t>({{{7, 4000000000u}, {1.5}, {11, 4294967295u}}}, true);
  checkRows<float>({{{1.0f, -1.0f}, {1e300}, {INFINITY, -INFINITY}}}, true);
  checkRows<double>({{{1, 2, 3, 4}, {0.5, kNaN}, {kNaN, kNaN}}, {{1, 2, 3, 4}, {0.5, 1}, {3.5, 5}}}, true);
}

// With no taps every element of every type is 0, without the rounding offset.
template <class T>
void checkNoTaps() {
  for (bool complex : {false, true})
    for (int dim : {1, 2})
      for (std::size_t len : {std::size_t{3}, std::size_t{17}}) {
        std::size_t const parts = complex ? 2 : 1;
        std::vector<T> src(3 * 4 * 2 * parts, T(7));
        auto a = qztest::makeFrom<T>({3, 4, 2}, src, complex);
        auto out = resizeCall(a.get(), {}, {}, 0, len, dim);
        auto got = qztest::valuesOf<T>(out.get());
        EXPECT_EQ(got.size(), (dim == 1 ? len * 4 : 3 * len) * 2 * parts);
        EXPECT_TRUE(sameBytes(got, std::vector<T>(got.size(), T(0))))
            << "class " << ndClassOf<T>::value << " dim " << dim << " complex " << complex;
      }
}

TEST_F(ResizeValueTest, NoTapsGiveZeroForEveryType) {
  checkNoTaps<double>();
  checkNoTaps<float>();
  checkNoTaps<std::uint8_t>();
  checkNoTaps<std::uint16_t>();
  checkNoTaps<std::uint32_t>();
  checkNoTaps<std::int8_t>();
  checkNoTaps<std::int16_t>();
  checkNoTaps<std::int32_t>();
}

TEST(ResizeConvertTest, TruncationToInt32FollowsTheProcessor) {
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  struct {
    double v;
    std::int32_t want;
  } const rows[] = {
      {2.9, 2},           {-2.9, -2},         {-0.5, 0},         {2147483647.9, 2147483647},
      {-2147483648.9, kMin}, {2147483648.0, kMin}, {-2147483649.0, kMin}, {4294967297.0, kMin},
      {kNaN, kMin},       {kInf, kMin},       {-kInf, kMin},     {1e300, kMin},
  };
  for (auto const& r : rows) EXPECT_EQ(qz::truncToInt32(r.v), r.want) << r.v;
}

// ---- Agreement with the reference ------------------------------------------

template <class E>
std::vector<E> randomImage(std::mt19937_64& rng, std::size_t count) {
  std::vector<E> v(count);
  for (auto& x : v) {
    if constexpr (std::is_floating_point_v<E>)
      x = static_cast<E>(std::uniform_real_distribution<double>(-1000, 1000)(rng));
    else
      x = static_cast<E>(rng());
  }
  return v;
}

// Random weights (some sums saturate) and valid 1-based source positions,
// some with a fraction that the gateway truncates.
void randomFilter(std::mt19937_64& rng, std::size_t taps, std::size_t len, std::size_t srcLen,
                  std::vector<double>& w, std::vector<double>& x) {
  w.resize(taps * len);
  x.resize(taps * len);
  std::uniform_real_distribution<double> weight(-0.75, 1.5), fraction(0, 0.999);
  std::uniform_int_distribution<std::size_t> pos(1, srcLen);
  for (std::size_t e = 0; e < taps * len; ++e) {
    w[e] = weight(rng);
    x[e] = static_cast<double>(pos(rng)) + (e % 3 == 0 ? fraction(rng) : 0.0);
  }
}

// Resamples a random image through the gateway and compares every stored
// byte with the reference.  Returns the result for further comparison.
template <class E>
std::vector<E> compareWithReference(std::mt19937_64& rng, std::size_t m, std::size_t n, std::size_t p,
                                    std::size_t taps, std::size_t len, int dim, bool complex) {
  std::size_t const parts = complex ? 2 : 1;
  auto src = randomImage<E>(rng, m * n * p * parts);
  std::vector<double> w, x;
  randomFilter(rng, taps, len, dim == 1 ? m : n, w, x);
  auto a = qztest::makeFrom<E>({m, n, p}, src, complex);
  auto out = resizeCall(a.get(), w, x, taps, len, dim);
  auto got = qztest::valuesOf<E>(out.get());
  auto want = qzref::resize<E>(src, m, n, p, complex, w, x, taps, len, dim);
  EXPECT_EQ(ndGetClassID(out.get()), ndClassOf<E>::value);
  EXPECT_EQ(ndIsComplex(out.get()), complex);
  EXPECT_TRUE(sameBytes(got, want)) << "class " << ndClassOf<E>::value << " " << m << "x" << n << "x" << p
                                    << " taps " << taps << " len " << len << " dim " << dim << " complex "
                                    << complex;
  return got;
}

template <class E>
void compareShapes(std::mt19937_64& rng) {
  struct Shape {
    std::size_t m, n, p;
  } const shapes[] = {{1, 1, 1}, {5, 3, 1}, {7, 9, 3}, {16, 13, 2}};
  for (auto const& s : shapes)
    for (std::size_t len : {0, 1, 7, 8, 17})
      for (std::size_t taps : {0, 1, 3})
        for (int dim : {1, 2})
          for (bool complex : {false, true}) compareWithReference<E>(rng, s.m, s.n, s.p, taps, len, dim, complex);
}

using ResizeReferenceTest = HostTest;

TEST_F(ResizeReferenceTest, EveryTypeMatchesTheReference) {
  std::mt19937_64 rng(0x1e512e);
  compareShapes<double>(rng);
  compareShapes<float>(rng);
  compareShapes<std::uint8_t>(rng);
  compareShapes<std::uint16_t>(rng);
  compareShapes<std::uint32_t>(rng);
  compareShapes<std::int8_t>(rng);
  compareShapes<std::int16_t>(rng);
  compareShapes<std::int32_t>(rng);
}

// Large enough that both kernels split into many tasks; every thread count
// must give the same bytes, and the reference's.
TEST_F(ResizeReferenceTest, ResultsDoNotDependOnTheThreadCount) {
  for (int dim : {1, 2})
    for (bool complex : {false, true}) {
      std::vector<std::uint16_t> first16;
      std::vector<float> firstF;
      for (int threads : {1, 2, 4}) {
        tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
        std::mt19937_64 rng(77);  // the same data for every thread count
        auto u16 = compareWithReference<std::uint16_t>(rng, 64, 300, 3, 4, 171, dim, complex);
        auto f = compareWithReference<float>(rng, 40, 170, 3, 5, 203, dim, complex);
        if (threads == 1) {
          first16 = u16;
          firstF = f;
        } else {
          EXPECT_TRUE(sameBytes(u16, first16)) << threads << " threads, dim " << dim;
          EXPECT_TRUE(sameBytes(f, firstF)) << threads << " threads, dim " << dim;
        }
      }
    }
}

// ---- Work items ------------------------------------------------------------

// A row-kernel item writes exactly its block of 8 output columns in every
// row and plane, and columns() exactly the columns it is given; a column
// item writes exactly its own column.
TEST(ResizeWorkItemTest, ItemsWriteOnlyTheirOwnColumns) {
  std::size_t const m = 3, n = 4, p = 2, taps = 2, len = 19;
  std::vector<int> src(m * n * p);
  for (std::size_t e = 0; e < src.size(); ++e) src[e] = static_cast<int>(e + 1);
  std::vector<double> w(taps * len, 1.0);
  std::vector<std::size_t> rowOffsets(taps * len), colOffsets(taps * len);
  for (std::size_t e = 0; e < taps * len; ++e) {
    rowOffsets[e] = (e % n) * m;  // column e mod n
    colOffsets[e] = e % m;        // row e mod m
  }
  constexpr int kUntouched = -77;

  std::vector<int> dst(m * len * p, kUntouched);
  qz::ResizeRows<int, int> rows{src.data(), dst.data(), w.data(), rowOffsets.data(), n, len, taps, m, p, 8};
  rows(tbb::blocked_range<std::size_t>(1, 2));  // columns 8..15
  rows.columns(17, 18);
  for (std::size_t plane = 0; plane < p; ++plane)
    for (std::size_t c = 0; c < len; ++c)
      for (std::size_t r = 0; r < m; ++r) {
        bool const written = (c >= 8 && c < 16) || c == 17;
        int const v = dst[(plane * len + c) * m + r];
        EXPECT_EQ(v != kUntouched, written) << "plane " << plane << " column " << c << " row " << r;
        if (written) {
          // Taps of position c read source columns (2c) mod n and (2c+1) mod n.
          auto at = [&](std::size_t col) { return src[(plane * n + col) * m + r]; };
          EXPECT_EQ(v, at((2 * c) % n) + at((2 * c + 1) % n));
        }
      }

  std::vector<int> cols(len * n * p, kUntouched);
  qz::ResizeCols<int, int> colBody{src.data(), cols.data(), w.data(), colOffsets.data(), m, len, taps};
  colBody(tbb::blocked_range<std::size_t>(5, 6));  // plane 1, column 1
  for (std::size_t j = 0; j < n * p; ++j)
    for (std::size_t i = 0; i < len; ++i) {
      int const v = cols[j * len + i];
      EXPECT_EQ(v != kUntouched, j == 5) << "item " << j << " position " << i;
      if (j == 5) {
        EXPECT_EQ(v, src[5 * m + (2 * i) % m] + src[5 * m + (2 * i + 1) % m]);
      }
    }
}

}  // namespace
