// The resampling kernels: the stored value of every integer type at the
// rounding and saturation edges (exact halves, which random data never
// hits); the plain reference on random data of every type under every
// instruction set compiled in, with and without taps, real and complex, for
// random filters and enlargements (and the result's shape, class and
// complexity); and work items that write only their own outputs.

#include <algorithm>
#include <random>
#include <tuple>

#include "builtin_args.hpp"
#include "reference/resize_reference.hpp"
#include "resize/imresize.hpp"
#include "resize/resize.hpp"
#include "targets.hpp"

namespace {

using ResizeKernelsTest = qztest::HostTest;

// A source of 1 times a weight is the sum itself, resampled to 9 positions
// along a column and along a row (one parallel block of 8 and the tail, so
// both the vector and the plain conversion): every integer type must store
// it as the reference does (unsigned types round halves up, signed ones away
// from zero, and all saturate) at the rounding and saturation edges of every
// type.  Random weights never land on these exact halves; sums far past
// every range, infinite or NaN, which they give often, are left to the
// reference comparison below.
TEST_F(ResizeKernelsTest, IntegerTypesRoundAndSaturateTheSum) {
  double const sums[] = {0.49,    0.5,          -0.4,          -0.5,          126.5,        127.5,
                         -128.5,  254.4,        254.5,         -32767.5,      32766.5,      65534.4,
                         65534.5, 2147483646.5, -2147483647.5, -2147483648.4, 4294967294.4, 4294967294.5};
  auto check = [&](auto zero) {
    using T = decltype(zero);
    auto const one = qztest::makeFrom<T>({1, 1}, {1});
    for (double w : sums)
      for (int dim : {1, 2}) {
        auto const got = qztest::resizeCall(one.get(), std::vector<double>(9, w), std::vector<double>(9, 1), 1, 9, dim);
        EXPECT_EQ(qztest::valuesOf<T>(got.get()), std::vector<T>(9, qzref::resizeValue<T>(w)))
            << "class " << ndClassOf<T>::value << " dim " << dim << " sum " << w;
      }
  };
  std::apply([&](auto... z) { (check(z), ...); },
             std::tuple<std::uint8_t, std::uint16_t, std::uint32_t, std::int8_t, std::int16_t, std::int32_t>{});
}

using Table = qzfilters::Filter;  // taps-by-len weights and 1-based positions

// Random weights (now and then NaN, infinite or huge) at random positions
// among `in`, a third with a fraction the gateway truncates.
Table randomTable(std::mt19937_64& rng, std::size_t in, std::size_t taps, std::size_t len) {
  Table t{taps, len, qztest::randomWeights(rng, taps * len), std::vector<double>(taps * len)};
  for (std::size_t e = 0; e < t.indices.size(); ++e)
    t.indices[e] = static_cast<double>(1 + rng() % in) + (e % 3 == 0 ? rng() % 999 / 1000.0 : 0.0);
  return t;
}

// An enlargement's positions, each output's taps near its own place and
// reflected at the ends, with random weights: the kernels take these in
// lane-permuting form, from one vector or from a pair, with the common
// bicubic four taps or any other count.
Table enlargement(std::mt19937_64& rng, std::size_t in, double scale, qzfilters::Method method) {
  auto const f = qzfilters::makeFilter(in, qzfilters::outputLength(in, scale), scale, method, true);
  return {f.taps, f.outLength, qztest::randomWeights(rng, f.weights.size()), f.indices};
}

std::vector<Table> tablesFor(std::mt19937_64& rng, std::size_t in) {
  std::vector<Table> tables;
  for (std::size_t len : {0, 1, 7, 17})
    for (std::size_t taps : {0, 1, 3, 8}) tables.push_back(randomTable(rng, in, taps, len));
  using M = qzfilters::Method;
  for (auto [scale, method] :
       {std::pair{5.0, M::Bicubic}, {1.6, M::Bicubic}, {4.0, M::Bilinear}, {3.0, M::Nearest}, {2.0, M::Lanczos3}})
    tables.push_back(enlargement(rng, in, scale, method));
  return tables;
}

// Every stored value must be the reference's (any NaN for a NaN), in an
// array of the image's class, complexity and planes, the resized dimension
// len long.
template <class E>
void compareWithReference(std::mt19937_64& rng, std::size_t m, std::size_t n, std::size_t p, Table const& t, int dim,
                          bool complex) {
  auto const src = qztest::randomSamples<E>(rng, m * n * p * (complex ? 2 : 1));
  auto a = qztest::makeFrom<E>({m, n, p}, src, complex);
  auto const out = qztest::resizeCall(a.get(), t.weights, t.indices, t.taps, t.outLength, dim);
  auto const got = qztest::valuesOf<E>(out.get());
  auto const want = qzref::resize<E>(src, m, n, p, complex, t.weights, t.indices, t.taps, t.outLength, dim);
  std::vector<std::size_t> dims = {dim == 1 ? t.outLength : m, dim == 1 ? n : t.outLength};
  if (p > 1) dims.push_back(p);
  EXPECT_TRUE(qzhost::dimsOf(out.get()) == dims && ndGetClassID(out.get()) == ndClassOf<E>::value &&
              ndIsComplex(out.get()) == complex &&
              std::equal(got.begin(), got.end(), want.begin(), qztest::sameValue<E>))
      << "class " << ndClassOf<E>::value << " " << m << "x" << n << "x" << p << " taps " << t.taps << " len "
      << t.outLength << " dim " << dim << " complex " << complex;
}

// The shapes reach every kernel path: columns of every length against the
// vector width, columns of fewer rows than a vector holds, and planes enough
// for tiles of eight and of four.  (How the parallel loop splits the items
// decides which of them form tiles; the work items below take fixed ranges.)
TEST_F(ResizeKernelsTest, EveryTypeMatchesTheReferenceUnderEveryInstructionSet) {
  std::mt19937_64 rng(0x1e512e);
  std::tuple<std::size_t, std::size_t, std::size_t> const shapes[] = {
      {1, 1, 1}, {3, 9, 2}, {7, 400, 1}, {8, 5, 1}, {17, 13, 2}, {70, 3, 1}, {3000, 2, 1}, {3, 9, 13}};
  auto check = [&](auto zero) {
    for (auto [m, n, p] : shapes)
      for (int dim : {1, 2})
        for (Table const& t : tablesFor(rng, dim == 1 ? m : n))
          for (bool complex : {false, true}) compareWithReference<decltype(zero)>(rng, m, n, p, t, dim, complex);
  };
  qztest::forEachTarget([&] {
    std::apply([&](auto... z) { (check(z), ...); },
               std::tuple<double, float, std::uint8_t, std::uint16_t, std::uint32_t, std::int8_t, std::int16_t,
                          std::int32_t>{});
  });
}

// Column items and blocks of row columns write exactly the outputs they are
// given, from ranges on and off vector and tile boundaries: a body that also
// wrote its neighbours' (with the same values) would still match the
// reference, but race with them.  Which elements are written does not
// depend on the element type.
TEST(ResizeWorkItemTest, ItemsWriteOnlyTheirOwnOutputs) {
  using E = std::int16_t;
  std::mt19937_64 rng(7);
  // With no taps, the tables are empty (their data pointers null): a kernel
  // must not read them.
  struct {
    std::size_t m, n, p;
    int dim;
    std::size_t taps;  // at random positions,
    double scale;      // or, if not 0, an enlargement's
  } const cases[] = {
      // clang-format off
      // Column items: in tiles, some positions' taps spread wider than a
      // tile's window; none; an enlargement.
      {1500, 21, 1, 1, 3, 0}, {40, 21, 1, 1, 0, 0}, {40, 21, 1, 1, 0, 2.4},
      // A pixel's channels, with the planes as items, the same three ways.
      {3, 600, 13, 2, 3, 0}, {3, 9, 13, 2, 0, 0}, {3, 9, 13, 2, 0, 2.4},
      // Longer columns, down each.
      {33, 5, 2, 2, 3, 0},
      // clang-format on
  };
  qztest::forEachTarget([&] {
    for (auto const& c : cases) {
      std::size_t const in = c.dim == 1 ? c.m : c.n;
      Table const t =
          c.scale != 0 ? enlargement(rng, in, c.scale, qzfilters::Method::Bilinear) : randomTable(rng, in, c.taps, 21);
      std::size_t const len = t.outLength, items = c.dim == 1 ? c.n * c.p : len;
      auto const src = qztest::randomSamples<E>(rng, c.m * c.n * c.p);
      auto const want = qzref::resize<E>(src, c.m, c.n, c.p, false, t.weights, t.indices, t.taps, len, c.dim);
      std::vector<std::size_t> o(t.indices.size());
      qz::buildResizeOffsets(t.indices.data(), o.size(), c.dim, c.m, o.data());
      for (auto [first, last] : {std::pair{std::size_t{0}, items}, {3, 14}, {2, 15}, {5, 5}, {1, 2}, {8, 16}}) {
        SCOPED_TRACE(testing::Message() << c.m << "x" << c.n << "x" << c.p << " dim " << c.dim << " taps " << t.taps
                                        << " from " << first << " to " << last);
        std::vector<E> dst(want.size(), E(77));
        if (c.dim == 1) {
          qz::ResizeCols<E, E>{src.data(), dst.data(), t.weights.data(), o.data(), c.m, len, t.taps}({first, last});
        } else {
          qz::ResizeRows<E, E> rows{src.data(), dst.data(), t.weights.data(), o.data(), c.n, len, t.taps, c.m, c.p, 8};
          // Whole blocks go through the parallel body, the rest as a run.
          first % 8 == 0 && last % 8 == 0 ? rows({first / 8, last / 8}) : rows.columns(first, last);
        }
        for (std::size_t e = 0; e < dst.size(); ++e) {
          std::size_t const item = c.dim == 1 ? e / len : e / c.m % len;
          ASSERT_EQ(dst[e], item >= first && item < last ? want[e] : E(77)) << "element " << e;
        }
      }
    }
  });
}

}  // namespace
