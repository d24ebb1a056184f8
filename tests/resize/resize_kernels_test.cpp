// The resampling kernels: the stored value of every integer type at the
// rounding and saturation edges (exact halves, which random data never
// hits), the plain reference on random data of every type, with and without
// taps, real and complex (and the result's shape, class and complexity),
// and row work items that write only their own columns.

#include <algorithm>
#include <random>
#include <tuple>

#include "builtin_args.hpp"
#include "reference/resize_reference.hpp"
#include "resize/resize.hpp"

namespace {

using qztest::HostTest;
using qztest::resizeCall;
using qztest::sameValue;

using ResizeValueTest = HostTest;

// A source of 1 times a weight is the sum itself, resampled to 9 positions
// along a column and along a row (one parallel block of 8 and the tail, so
// both the vector and the plain conversion): every integer type must store
// it as the reference does (unsigned types round halves up, signed ones away
// from zero, and all saturate) at the rounding and saturation edges of every
// type.  Random weights never land on these exact halves; sums far past
// every range, infinite or NaN, which they give often, are left to the
// reference comparison below.
TEST_F(ResizeValueTest, IntegerTypesRoundAndSaturateTheSum) {
  double const sums[] = {0.49,    0.5,          -0.4,          -0.5,          126.5,        127.5,
                         -128.5,  254.4,        254.5,         -32767.5,      32766.5,      65534.4,
                         65534.5, 2147483646.5, -2147483647.5, -2147483648.4, 4294967294.4, 4294967294.5};
  auto check = [&](auto zero) {
    using T = decltype(zero);
    auto const one = qztest::makeFrom<T>({1, 1}, {1});
    for (double w : sums)
      for (int dim : {1, 2}) {
        auto const got = resizeCall(one.get(), std::vector<double>(9, w), std::vector<double>(9, 1.0), 1, 9, dim);
        EXPECT_EQ(qztest::valuesOf<T>(got.get()), std::vector<T>(9, qzref::resizeValue<T>(w)))
            << "class " << ndClassOf<T>::value << " dim " << dim << " sum " << w;
      }
  };
  std::apply([&](auto... z) { (check(z), ...); },
             std::tuple<std::uint8_t, std::uint16_t, std::uint32_t, std::int8_t, std::int16_t, std::int32_t>{});
}

// Random images and weights, and valid 1-based positions, a third with a
// fraction the gateway truncates: every stored value must be the
// reference's (any NaN for a NaN), in an array of the image's class,
// complexity and planes, the resized dimension len long.
template <class E>
void compareWithReference(std::mt19937_64& rng, std::size_t m, std::size_t n, std::size_t p, std::size_t taps,
                          std::size_t len, int dim, bool complex) {
  auto const src = qztest::randomSamples<E>(rng, m * n * p * (complex ? 2 : 1));
  auto const w = qztest::randomWeights(rng, taps * len);
  std::vector<double> x(taps * len);
  for (std::size_t e = 0; e < x.size(); ++e)
    x[e] = static_cast<double>(1 + rng() % (dim == 1 ? m : n)) + (e % 3 == 0 ? rng() % 999 / 1000.0 : 0.0);
  auto a = qztest::makeFrom<E>({m, n, p}, src, complex);
  auto const out = resizeCall(a.get(), w, x, taps, len, dim);
  auto const got = qztest::valuesOf<E>(out.get());
  auto const want = qzref::resize<E>(src, m, n, p, complex, w, x, taps, len, dim);
  std::vector<std::size_t> dims = {dim == 1 ? len : m, dim == 1 ? n : len};
  if (p > 1) dims.push_back(p);
  EXPECT_TRUE(qzhost::dimsOf(out.get()) == dims && ndGetClassID(out.get()) == ndClassOf<E>::value &&
              ndIsComplex(out.get()) == complex && got.size() == want.size() &&
              std::equal(got.begin(), got.end(), want.begin(), sameValue<E>))
      << "class " << ndClassOf<E>::value << " " << m << "x" << n << "x" << p << " taps " << taps << " len " << len
      << " dim " << dim << " complex " << complex;
}

using ResizeReferenceTest = HostTest;

// The shapes reach every kernel path (the vector paths themselves are held
// to the plain rule under every instruction set in resize_lanes_test.cpp).
TEST_F(ResizeReferenceTest, EveryTypeMatchesTheReference) {
  std::mt19937_64 rng(0x1e512e);
  std::tuple<std::size_t, std::size_t, std::size_t> const shapes[] = {{1, 1, 1},   {3, 9, 2},  {7, 400, 1}, {8, 5, 1},
                                                                      {17, 13, 2}, {70, 3, 1}, {3000, 2, 1}};
  auto check = [&](auto zero) {
    for (auto [m, n, p] : shapes)
      for (std::size_t len : {0, 1, 7, 17})
        for (std::size_t taps : {0, 1, 3, 8})
          for (int dim : {1, 2})
            for (bool complex : {false, true})
              compareWithReference<decltype(zero)>(rng, m, n, p, taps, len, dim, complex);
  };
  std::apply(
      [&](auto... z) { (check(z), ...); },
      std::tuple<double, float, std::uint8_t, std::uint16_t, std::uint32_t, std::int8_t, std::int16_t, std::int32_t>{});
}

// A row item writes exactly its block of 8 output columns in every row and
// plane, and columns() exactly the columns it is given: a body that also
// wrote its neighbours' columns (with the same values) would still match the
// reference, but race with them.
TEST(ResizeWorkItemTest, RowItemsWriteOnlyTheirOwnColumns) {
  std::size_t const m = 3, n = 4, p = 2, taps = 2, len = 19;
  std::vector<int> src(m * n * p);
  for (std::size_t e = 0; e < src.size(); ++e) src[e] = static_cast<int>(e + 1);
  std::vector<double> w(taps * len, 1.0);
  std::vector<std::size_t> offsets(taps * len);
  for (std::size_t e = 0; e < taps * len; ++e) offsets[e] = (e % n) * m;
  constexpr int kUntouched = -77;
  std::vector<int> dst(m * len * p, kUntouched);
  qz::ResizeRows<int, int> rows{src.data(), dst.data(), w.data(), offsets.data(), n, len, taps, m, p, 8};
  rows(tbb::blocked_range<std::size_t>(1, 2));  // columns 8..15
  rows.columns(17, 18);
  for (std::size_t plane = 0; plane < p; ++plane)
    for (std::size_t c = 0; c < len; ++c)
      for (std::size_t r = 0; r < m; ++r) {
        // Taps of position c read source columns 2c and 2c+1, modulo n.
        auto at = [&](std::size_t col) { return src[(plane * n + col % n) * m + r]; };
        bool const written = (c >= 8 && c < 16) || c == 17;
        EXPECT_EQ(dst[(plane * len + c) * m + r], written ? at(2 * c) + at(2 * c + 1) : kUntouched) << plane << c << r;
      }
}

}  // namespace
