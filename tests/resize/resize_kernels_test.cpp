// The resampling kernels: the stored value of every integer type at the
// rounding and saturation edges (exact halves, which random data never
// hits), the plain reference on random data of every type, with and without
// taps, real and complex, and row work items that write only their own
// columns.

#include <algorithm>
#include <limits>
#include <random>
#include <tuple>

#include "reference/resize_reference.hpp"
#include "resize/resize.hpp"
#include "resize_support.hpp"

namespace {

using qztest::HostTest;
using resizetest::resizeCall;
using resizetest::sameValue;
constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t kU32 = std::numeric_limits<std::uint32_t>::max();

// Sources at positions 1..taps, resampled to 9 identical positions along a
// column and along a row (one parallel block of 8 and the tail): every
// position must store `want`.
template <class T>
void expectStored(std::vector<T> const& src, std::vector<double> const& w, T want) {
  std::size_t const n = src.size(), taps = w.size(), len = 9;
  std::vector<double> ws, xs;
  for (std::size_t i = 0; i < len; ++i)
    for (std::size_t k = 0; k < taps; ++k) ws.push_back(w[k]), xs.push_back(static_cast<double>(k + 1));
  for (int dim : {1, 2}) {
    auto a = qztest::makeFrom<T>(dim == 1 ? std::vector<std::size_t>{n, 1} : std::vector<std::size_t>{1, n}, src);
    auto got = qztest::valuesOf<T>(resizeCall(a.get(), ws, xs, taps, len, dim).get());
    ASSERT_EQ(got.size(), len);
    for (std::size_t e = 0; e < got.size(); ++e)
      EXPECT_EQ(+got[e], +want) << "class " << ndClassOf<T>::value << " dim " << dim << " w " << w[0] << " at " << e;
  }
}

using ResizeValueTest = HostTest;

// One source of 1 times a weight: the sum itself, stored as each integer
// type.  Unsigned types round halves up, signed ones away from zero; all
// saturate.  (Sums far past every range, infinite or NaN, which the random
// weights below produce often, are left to the reference comparison.)
TEST_F(ResizeValueTest, IntegerTypesRoundAndSaturateTheSum) {
  using Row = std::tuple<double, std::uint8_t, std::uint16_t, std::uint32_t, std::int8_t, std::int16_t, std::int32_t>;
  // clang-format off
  Row const rows[] = {
      {0.49, 0, 0, 0, 0, 0, 0}, {0.5, 1, 1, 1, 1, 1, 1}, {-0.4, 0, 0, 0, 0, 0, 0}, {-0.5, 0, 0, 0, -1, -1, -1},
      {126.5, 127, 127, 127, 127, 127, 127}, {127.5, 128, 128, 128, 127, 128, 128}, {-128.5, 0, 0, 0, -128, -129, -129},
      {254.4, 254, 254, 254, 127, 254, 254}, {254.5, 255, 255, 255, 127, 255, 255},
      {-32767.5, 0, 0, 0, -128, -32768, -32768}, {32766.5, 255, 32767, 32767, 127, 32767, 32767},
      {65534.4, 255, 65534, 65534, 127, 32767, 65534}, {65534.5, 255, 65535, 65535, 127, 32767, 65535},
      {2147483646.5, 255, 65535, 2147483647u, 127, 32767, kMax}, {-2147483647.5, 0, 0, 0, -128, -32768, kMin},
      {-2147483648.4, 0, 0, 0, -128, -32768, kMin}, {4294967294.4, 255, 65535, 4294967294u, 127, 32767, kMax},
      {4294967294.5, 255, 65535, kU32, 127, 32767, kMax},
  };
  // clang-format on
  for (auto const& [w, u8, u16, u32, i8, i16, i32] : rows) {
    expectStored<std::uint8_t>({1}, {w}, u8), expectStored<std::uint16_t>({1}, {w}, u16);
    expectStored<std::uint32_t>({1}, {w}, u32), expectStored<std::int8_t>({1}, {w}, i8);
    expectStored<std::int16_t>({1}, {w}, i16), expectStored<std::int32_t>({1}, {w}, i32);
  }
}

// Random images and weights, and valid 1-based positions, a third with a
// fraction the gateway truncates: every stored value must be the
// reference's (any NaN for a NaN).
template <class E>
void compareWithReference(std::mt19937_64& rng, std::size_t m, std::size_t n, std::size_t p, std::size_t taps,
                                    std::size_t len, int dim, bool complex) {
  auto const src = resizetest::randomSamples<E>(rng, m * n * p * (complex ? 2 : 1));
  auto const w = resizetest::randomWeights(rng, taps * len);
  std::vector<double> x(taps * len);
  for (std::size_t e = 0; e < x.size(); ++e)
    x[e] = static_cast<double>(1 + rng() % (dim == 1 ? m : n)) + (e % 3 == 0 ? rng() % 999 / 1000.0 : 0.0);
  auto a = qztest::makeFrom<E>({m, n, p}, src, complex);
  auto got = qztest::valuesOf<E>(resizeCall(a.get(), w, x, taps, len, dim).get());
  auto const want = qzref::resize<E>(src, m, n, p, complex, w, x, taps, len, dim);
  EXPECT_TRUE(got.size() == want.size() && std::equal(got.begin(), got.end(), want.begin(), sameValue<E>))
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
