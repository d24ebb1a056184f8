// grayto8 and ind2rgb8: the order of the checks, the values at every
// rounding and clamping boundary, each vector kernel (every instruction set
// compiled in, every sub-range length 0..70) against the plain references,
// ind2rgb8 against its reference whatever the thread count, and both
// gateways' handling of shapes and of complex, sparse and lazy arrays.

#include <tbb/global_control.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "common/streaming.hpp"
#include "indexed/grayto8.hpp"
#include "indexed/ind2rgb8.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"
#include "reference/ind2rgb8_reference.hpp"
#include "targets.hpp"

namespace {

using IndexedTest = qztest::HostTest;
using Bytes = std::vector<std::uint8_t>;
using qztest::kInf, qztest::kNaN;

// The key of the identifier raised, once its catalog is checked; the first
// slot must still be empty, as every check comes before the output is created.
std::string errorOf(qzhost::Gateway fn, std::vector<ndArray_tag const*> inputs) {
  std::vector<qztest::ArrayPtr> slots(1);
  std::string id = qztest::errorOf([&] { qzhost::call(fn, 1, slots.data(), int(inputs.size()), inputs.data()); });
  std::string const catalog = fn == pximages::_grayto8 ? "ORRERY:images:grayto8:" : "ORRERY:images:ind2rgb8:";
  EXPECT_TRUE(slots[0] == nullptr && id.rfind(catalog, 0) == 0) << id;
  return id.substr(catalog.size());
}

// The gateway's output for one array, checked to have the expected dimensions.
Bytes bytesOf(qzhost::Gateway fn, std::vector<ndArray_tag const*> in, std::vector<std::size_t> dims) {
  auto out = qztest::call(fn, 0, in);  // the first slot is filled whatever is asked
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), dims);
  return qztest::valuesOf<std::uint8_t>(out[0].get());
}

// Each class the gateway takes, in each form and down to a single element:
// the output has the input's shape; a complex image converts its real
// parts (the kernels read every class at that stride) and warns once per
// call; a sparse image's stored values come first, in storage order, then
// zeros.  Single rounds v*255 + 0.5 in single precision: the float just
// below 1/510 gives 1, and 0x1.020202p-1 gives 129 (128.99999994 in double).
TEST_F(IndexedTest, Grayto8TakesEachClassAndForm) {
  using V = std::vector<std::size_t>;
  // clang-format off
  struct {
    qztest::ArrayPtr in;
    V dims;
    Bytes want;
  } const rows[] = {
      {qztest::makeFrom<double>({1, 5}, {0.5, 0.998, 0.999, kNaN, 1.0 / 510}), {1, 5}, {128, 254, 255, 0, 1}},
      {qztest::makeFrom<float>({3, 1}, {1, 0x1.0101p-9f, 0x1.020202p-1f}), {3, 1}, {255, 1, 129}},
      {qztest::makeFrom<std::uint16_t>({1, 5}, {128, 129, 385, 386, 65535}), {1, 5}, {0, 1, 1, 2, 255}},
      {qztest::makeFrom<double>({1, 1}, {1}), {1, 1}, {255}},
      {qztest::makeFrom<double>({1, 3}, {0.5, 9, 1, -1, kNaN, 0.2}, true), {1, 3}, {128, 255, 0}},
      {qzhost::makeArray(ndclass::Single, {0, 3, 2}), {0, 3, 2}, {}},
      {qzhost::makeArray(ndclass::UInt16, {1, 2, 1, 3}), {1, 2, 1, 3}, Bytes(6, 0)},
      {qztest::makeLazyFrom<double>({2, 1, 2}, {0, 0.25, 0.75, 1}), {2, 1, 2}, {0, 64, 191, 255}},
      // 0.5 at (2, 0), 1 at (0, 2) and NaN at (1, 2).
      {qzhost::makeSparse(4, 3, {0, 1, 1, 3}, {2, 0, 1}, {0.5, 1, kNaN}), {4, 3},
       {128, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {qzhost::makeSparse(2, 2, {0, 0, 2}, {0, 1}, {1, 7, 0.25, 7}, true), {2, 2}, {255, 64, 0, 0}},
  };
  // clang-format on
  qzhost::takeWarnings();
  for (auto const& r : rows) EXPECT_EQ(bytesOf(pximages::_grayto8, {r.in.get()}, r.dims), r.want) << r.dims.size();
  auto const warnings = qzhost::takeWarnings();
  ASSERT_EQ(warnings.size(), 2u);  // the two complex rows
  for (auto const& w : warnings) EXPECT_EQ(w.identifier, "ORRERY:images:grayto8:ignoringImaginaryPartOfInput");
}

// run(b, e, out) fills elements [b, e) of each n-element plane of an output
// holding 0xA5, on every target; want(j) is element j's byte.  Stray
// writes show as well.
template <class Run, class Want>
void expectEveryTarget(std::size_t n, std::size_t planes, Run run, Want want) {
  qztest::forEachTarget([&] {
    for (auto [b, e] : qztest::boundaryRanges(n)) {
      Bytes out(planes * n, 0xA5);
      run(b, e, out.data());
      for (std::size_t j = 0; j < out.size(); ++j)
        ASSERT_EQ(+out[j], j % n >= b && j % n < e ? int(want(j)) : 0xA5) << "[" << b << ", " << e << ") element " << j;
    }
  });
}

// grayto8's kernel on both strides (real and complex input), and on an
// output large enough for the streaming stores, starting one byte past an
// aligned address so that it has a head and a tail.
template <class T, class Rule>
void expectGrayto8KernelLike(std::vector<T> const& values, Rule rule) {
  for (std::size_t stride : {1, 2}) {
    expectEveryTarget(
        values.size() / stride, 1,
        [&](std::size_t b, std::size_t e, std::uint8_t* out) {
          qz::convertGrayToBytes(values.data() + b * stride, e - b, stride, out + b);
        },
        [&](std::size_t j) { return rule(values[j * stride]); });
    std::size_t const count = qz::kStreamedBytes + 77;
    std::vector<T> large(count * stride);
    for (std::size_t j = 0; j < large.size(); ++j) large[j] = values[j % values.size()];
    Bytes want(count + 2, 0xA5);
    for (std::size_t j = 0; j < count; ++j) want[j + 1] = rule(large[j * stride]);
    qztest::forEachTarget([&] {
      Bytes out(count + 2, 0xA5);
      qz::convertGrayToBytes(large.data(), count, stride, out.data() + 1);
      auto const bad = std::mismatch(out.begin(), out.end(), want.begin());
      ASSERT_TRUE(bad.first == out.end()) << "streamed, byte " << bad.first - out.begin() << " of " << count + 2;
    });
  }
}

TEST(IndexedKernelTest, Grayto8OfEveryClassMatchesTheReferenceOnEveryKernel) {
  std::mt19937_64 rng(257);
  auto sample = [&](auto one) {  // specials, each side of every half-way point, and random values
    using T = decltype(one);
    using L = std::numeric_limits<T>;
    std::vector<T> v = {0, -T(0), 1, -1, 2, L::denorm_min(), L::max(), L::lowest(), T(kInf), T(-kInf), T(kNaN)};
    v.push_back(-T(kNaN));
    for (int byte = -1; byte < 256; ++byte) {
      T const halfWay = (T(byte) + T(0.5)) / T(255);
      for (T to : {T(-2), halfWay, T(2)}) v.push_back(std::nextafter(halfWay, to));
    }
    for (int i = 0; i < 2000; ++i) v.push_back(T(std::uniform_real_distribution<double>(-0.1, 1.1)(rng)));
    return v;
  };
  expectGrayto8KernelLike(sample(0.0), qzref::unitToByte);  // the same rule for every double
  expectGrayto8KernelLike(sample(0.0f), [](float v) {
    float const t = v * 255.0f + 0.5f;  // both steps in single precision
    return std::isnan(v) || t < 0 ? 0 : t > 255 ? 255 : int(t);
  });
  std::vector<std::uint16_t> words(65536);
  for (std::size_t u = 0; u < words.size(); ++u) words[u] = static_cast<std::uint16_t>(u);
  std::shuffle(words.begin(), words.end(), rng);
  expectGrayto8KernelLike(words, [](std::uint16_t u) { return (u + 128) / 257; });  // 257 is odd: no ties
}

TEST_F(IndexedTest, ChecksRunInOrderAndStopAtTheFirstFailure) {
  auto a = [](ndClassID c, std::vector<std::size_t> dims) { return qzhost::makeArray(c, dims); };
  auto x = a(ndclass::Double, {1, 2}), map = a(ndclass::Double, {2, 3}), x16 = a(ndclass::Int16, {2, 2});
  auto hostX = a(20, {2, 2}), map16by4 = a(ndclass::Int16, {2, 4}), x3d = a(ndclass::Double, {2, 2, 2});
  auto map3d = a(ndclass::Double, {2, 3, 2}), emptyMap = a(ndclass::Double, {0, 3});
  auto map3by1 = a(ndclass::Double, {3, 1}), emptyMap4 = a(ndclass::Double, {0, 4});
  auto sparseX = qzhost::makeSparse(2, 2, {0, 1, 1}, {0}, {1.0}),
       sparseMap = qzhost::makeSparse(2, 3, {0, 1, 1, 2}, {0, 1}, {0.5, 0.5});
  // clang-format off
  std::pair<std::vector<ndArray_tag const*>, char const*> const rows[] = {
      {{}, "wrongNumInputs"}, {{x.get()}, "wrongNumInputs"}, {{x.get(), map.get(), map.get()}, "wrongNumInputs"},
      {{x16.get(), map16by4.get()}, "invalidInputType"}, {{hostX.get(), map.get()}, "invalidInputType"},
      {{map3d.get(), map.get()}, "inputNot2D"}, {{x3d.get(), map16by4.get()}, "inputNot2D"},
      {{sparseX.get(), map16by4.get()}, "sparseInput"}, {{x.get(), map16by4.get()}, "invalidMapSize"},
      {{x.get(), emptyMap4.get()}, "invalidMapSize"}, {{x.get(), map3d.get()}, "invalidMapSize"},
      {{x.get(), map3by1.get()}, "invalidMapSize"}, {{x.get(), sparseMap.get()}, "sparseMap"},
      {{x.get(), emptyMap.get()}, "emptyMap"},
  };
  // clang-format on
  for (std::size_t i = 0; i < std::size(rows); ++i)
    EXPECT_EQ(errorOf(pximages::_ind2rgb8, rows[i].first), rows[i].second) << "row " << i;
  for (ndClassID c : {ndclass::Single, ndclass::Logical, ndclass::Char, ndclass::Int8, ndclass::Int16, ndclass::Int32,
                      ndclass::Int64, ndclass::UInt64}) {
    auto badX = a(c, {2, 2}), badMap = a(c, {2, 3}), badWideMap = a(c, {2, 4});
    EXPECT_EQ(errorOf(pximages::_ind2rgb8, {badX.get(), emptyMap.get()}), "invalidInputType") << c;
    EXPECT_EQ(errorOf(pximages::_ind2rgb8, {x.get(), badMap.get()}), "invalidMapType") << c;
    EXPECT_EQ(errorOf(pximages::_ind2rgb8, {x.get(), badWideMap.get()}), "invalidMapSize") << c;  // size before class
    if (c != ndclass::Single) { EXPECT_EQ(errorOf(pximages::_grayto8, {badX.get()}), "invalidType") << c; }
  }
  // grayto8 counts its inputs, then checks the class; a complex image of a
  // refused class is refused before any warning.
  EXPECT_EQ(errorOf(pximages::_grayto8, {}), "tooFewInputs");
  EXPECT_EQ(errorOf(pximages::_grayto8, {x16.get(), x.get()}), "tooManyInputs");
  EXPECT_EQ(errorOf(pximages::_grayto8, {qzhost::makeArray(ndclass::UInt8, {2, 2}, true).get()}), "invalidType");
  EXPECT_TRUE(qzhost::takeWarnings().empty());
}

template <class T>
Bytes ind2rgb8(std::size_t m, std::size_t n, std::vector<T> x, std::size_t k, std::vector<double> map,
               bool complex = false) {
  auto const form = qzhost::DimForm::Lazy;  // completed by the gateway before it is measured
  auto xa = qztest::makeFrom<T>({m, n}, x, complex, form), ma = qztest::makeFrom<double>({k, 3}, map, complex, form);
  return bytesOf(pximages::_ind2rgb8, {xa.get(), ma.get()}, {m, n, 3});
}

// k rows, a third of the intensities at the byte rule's edges.
std::vector<double> randomMap(std::mt19937_64& rng, std::size_t k) {
  double const specials[] = {kNaN, kInf, -kInf, -0.0, -1, 1, 2, 0.5, 1.0 / 510, 0.998, 0.999, 254.5 / 255};
  std::vector<double> map(3 * k);
  for (auto& v : map) v = rng() % 3 ? std::uniform_real_distribution<double>(-0.2, 1.2)(rng) : specials[rng() % 12];
  return map;
}

// Images large enough to be split (the grain is 10000 elements), their
// first values at the index rules' edges.
template <class T>
void expectLookupLikeTheReference(std::mt19937_64& rng, std::size_t m, std::size_t n, std::size_t k, std::vector<T> x) {
  x.resize(m * n);
  for (std::size_t i = 0; i < x.size(); ++i)
    if (x[i] == T(0))
      x[i] = std::is_integral_v<T> ? T(rng() % (k + 5)) : T(std::uniform_real_distribution<double>(-2, k + 2.0)(rng));
  auto const map = randomMap(rng, k);
  Bytes want(3 * x.size());
  for (std::size_t j = 0; j < want.size(); ++j)
    want[j] = qzref::ind2rgb8(x[j % x.size()], map.data(), k, int(j / x.size()));
  for (std::size_t threads : {1, 2, 4}) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    EXPECT_EQ(ind2rgb8<T>(m, n, x, k, map), want) << threads << " threads, class " << ndClassOf<T>::value;
  }
}

TEST_F(IndexedTest, Ind2rgb8MatchesTheReferenceWhateverTheThreadCount) {
  std::mt19937_64 rng(4242);
  std::vector<double> const doubles = {
      -0.5, -3, kNaN, -kInf, kInf, 1e300, 0.999, 1, 1.49, 1.5, 2.5, 3.4999, 36.5, 37, 37.1,
  };
  expectLookupLikeTheReference<double>(rng, 211, 307, 37, doubles);
  expectLookupLikeTheReference<std::uint8_t>(rng, 300, 101, 200, {199, 200, 201, 255});
  expectLookupLikeTheReference<std::uint16_t>(rng, 97, 1031, 1000, {999, 1000, 1001, 65535});
  expectLookupLikeTheReference<std::uint32_t>(rng, 20011, 2, 3, {2, 3, 4, UINT32_MAX});  // at most one split
  expectLookupLikeTheReference<double>(rng, 1, 40000, 1, doubles);  // one row; one colour for every pixel
  expectLookupLikeTheReference<std::uint32_t>(rng, 1, 1, 1, {7});     // a single pixel is looked up too
  expectLookupLikeTheReference<std::uint16_t>(rng, 5, 0, 1, {});
  // Complex arrays are read as consecutive stored values, both parts alike.
  EXPECT_EQ(ind2rgb8<double>(1, 2, {1, 2, 3, 4}, 2, {0, 1, 0.5, 0, 1, 1, 9, 9, 9, 9, 9, 9}, true),
            (Bytes{0, 255, 128, 0, 255, 255}));
}

// Every index byte (each of 0..255, then random) through the byte tables of
// maps of k rows, in pieces of whole columns of every length 0..70.
TEST(IndexedKernelTest, ByteIndexLookupMatchesTheReferenceOnEveryKernel) {
  std::mt19937_64 rng(8);
  for (std::size_t k : {1, 2, 17, 256, 300}) {
    auto const map = randomMap(rng, k);
    std::size_t const n = 600;
    Bytes tables(3 * k), index(n);
    qz::convertMapColumn(map.data(), 3 * k, tables.data());  // the three columns are contiguous
    qz::ComputeFunctorUintArray<std::uint8_t> const body{tables.data(), tables.data() + k, tables.data() + 2 * k, k};
    for (std::size_t j = 0; j < n; ++j) index[j] = static_cast<std::uint8_t>(j < 256 ? j : rng());
    auto run = [&](std::size_t b, std::size_t e, std::uint8_t* out) {
      body(qz::LookupRange<std::uint8_t>(
          raster::SplittableArrayWrapper<std::uint8_t>(index.data() + b, e - b, 1, e - b, qz::kLookupGrain),
          raster::SplittableRGBArrayWrapper<unsigned char>(out + b, 3 * (e - b), 1, 3 * n, qz::kLookupGrain, n,
                                                           e - b)));
    };
    expectEveryTarget(n, 3, run,
                      [&](std::size_t j) { return qzref::ind2rgb8(index[j % n], map.data(), k, int(j / n)); });
  }
}

}  // namespace
