// rgb2gray: the values each class must produce, agreement with the plain
// scalar reference (all 2^24 byte triples), independence from how the work
// is split, and the gateway's array handling.

#include <cmath>
#include <limits>
#include <random>

#include <tbb/global_control.h>

#include "color/rgb2gray.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"
#include "reference/rgb2gray_reference.hpp"

namespace {

using qztest::HostTest;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

template <class T>
T grayOf(T r, T g, T b) {
  auto in = qztest::makeFrom<T>({1, 1, 3}, {r, g, b});
  auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
  EXPECT_EQ(ndGetClassID(out[0].get()), ndClassOf<T>::value);
  return qztest::valuesOf<T>(out[0].get()).at(0);
}

template <class T>
struct Case {
  T r, g, b, expected;
};

using Rgb2grayTest = HostTest;

TEST_F(Rgb2grayTest, FloatingClassesClampTheSumToTheUnitRange) {
  Case<double> doubles[] = {
      {1, 1, 1, 1.0},         {2, 0, 0, 0.597872042587552}, {4, 4, 4, 1.0},  {-1, 0, 0, 0.0},
      {kNaN, 0, 0, 0.0},      {0, 0, kNaN, 0.0},            {kInf, 0, 0, 1}, {-kInf, 1, 1, 0},
      {kInf, -kInf, 0, 0.0},  {0, 0, 1, 0.114020904255103}, {0.5, 0.5, 0.5, 0.5},
  };
  for (auto const& c : doubles)
    EXPECT_EQ(grayOf(c.r, c.g, c.b), c.expected) << c.r << "," << c.g << "," << c.b;

  Case<float> singles[] = {{1, 1, 1, 1.0f}, {4, 4, 4, 1.0f}, {-1, 0, 0, 0.0f}, {NAN, 0, 0, 0.0f},
                           {2, 0, 0, static_cast<float>(0.597872042587552)}};
  for (auto const& c : singles) EXPECT_EQ(grayOf(c.r, c.g, c.b), c.expected) << c.r;
}

TEST_F(Rgb2grayTest, IntegerClassesRoundAndSaturate) {
  EXPECT_EQ(grayOf<std::uint8_t>(255, 255, 255), 255);
  EXPECT_EQ(grayOf<std::uint8_t>(1, 1, 1), 1);
  EXPECT_EQ(grayOf<std::uint8_t>(0, 0, 0), 0);
  EXPECT_EQ(grayOf<std::uint8_t>(255, 0, 0), 76);  // 76.2286854...
  EXPECT_EQ(grayOf<std::uint8_t>(0, 255, 0), 150);  // 149.696...
  EXPECT_EQ(grayOf<std::int16_t>(-100, -100, -100), -100);
  EXPECT_EQ(grayOf<std::int8_t>(127, 127, 127), 127);
  EXPECT_EQ(grayOf<std::int8_t>(-128, -128, -128), -128);
  EXPECT_EQ(grayOf<std::int8_t>(-128, 0, 0), -38);  // -38.26..., away from zero only past the half
  EXPECT_EQ(grayOf<std::uint16_t>(65535, 65535, 65535), 65535);
  EXPECT_EQ(grayOf<std::int32_t>(INT32_MIN, INT32_MIN, INT32_MIN), INT32_MIN);
  EXPECT_EQ(grayOf<std::int32_t>(INT32_MAX, INT32_MAX, INT32_MAX), INT32_MAX);
  EXPECT_EQ(grayOf<std::uint32_t>(UINT32_MAX, UINT32_MAX, UINT32_MAX), UINT32_MAX);
  EXPECT_EQ(grayOf<std::int64_t>(INT64_MIN, INT64_MIN, INT64_MIN), INT64_MIN);
  EXPECT_EQ(grayOf<std::int64_t>(-3, -3, -4), -3);  // -3.114
  EXPECT_EQ(grayOf<std::uint64_t>(1000, 0, 0), 299u);
}

TEST_F(Rgb2grayTest, SixtyFourBitSumsAtTheBoundWrapAround) {
  // Each channel at the maximum becomes 2^63 (2^64) as a double, the sum
  // equals the bound exactly, passes the strict saturation test and wraps.
  EXPECT_EQ(grayOf<std::int64_t>(INT64_MAX, INT64_MAX, INT64_MAX), INT64_MIN);
  EXPECT_EQ(grayOf<std::uint64_t>(UINT64_MAX, UINT64_MAX, UINT64_MAX), 0u);
  // Just below the bound nothing wraps.
  std::uint64_t big = std::uint64_t{1} << 63;
  EXPECT_EQ(grayOf<std::uint64_t>(big, big, big), big);
}

// Random images of every class against the reference, through the gateway.
template <class T>
void compareRandom(std::mt19937_64& rng, std::size_t m, std::size_t n) {
  std::vector<T> data(m * n * 3);
  for (auto& v : data) {
    if constexpr (std::is_floating_point_v<T>) {
      v = static_cast<T>(std::uniform_real_distribution<double>(-0.25, 1.25)(rng));
    } else {
      v = static_cast<T>(rng());
    }
  }
  auto in = qztest::makeFrom<T>({m, n, 3}, data);
  auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
  auto got = qztest::valuesOf<T>(out[0].get());
  std::size_t p = m * n, bad = 0;
  for (std::size_t i = 0; i < p; ++i) {
    T want = qzref::rgb2gray<T>(data[i], data[p + i], data[2 * p + i]);
    if (std::memcmp(&want, &got[i], sizeof(T)) != 0 && ++bad < 5)
      ADD_FAILURE() << "class " << ndClassOf<T>::value << " pixel " << i << ": got " << +got[i] << " want " << +want;
  }
  EXPECT_EQ(bad, 0u);
}

TEST_F(Rgb2grayTest, EveryClassMatchesTheReference) {
  std::mt19937_64 rng(20261122);
  for (auto [m, n] : {std::pair<std::size_t, std::size_t>{1, 1}, {37, 53}, {256, 301}}) {
    compareRandom<double>(rng, m, n);
    compareRandom<float>(rng, m, n);
    compareRandom<std::int8_t>(rng, m, n);
    compareRandom<std::uint8_t>(rng, m, n);
    compareRandom<std::int16_t>(rng, m, n);
    compareRandom<std::uint16_t>(rng, m, n);
    compareRandom<std::int32_t>(rng, m, n);
    compareRandom<std::uint32_t>(rng, m, n);
    compareRandom<std::int64_t>(rng, m, n);
    compareRandom<std::uint64_t>(rng, m, n);
  }
}

TEST_F(Rgb2grayTest, AllByteTriplesMatchTheReference) {
#ifdef QZ_SANITIZED
  constexpr std::uint32_t kStep = 97;  // a strided sample keeps the sanitizer build quick
#else
  constexpr std::uint32_t kStep = 1;
#endif
  std::size_t const p = (std::size_t{1} << 24) / kStep;
  std::vector<std::uint8_t> data(3 * p);
  for (std::size_t i = 0; i < p; ++i) {
    std::uint32_t c = static_cast<std::uint32_t>(i) * kStep;
    data[i] = static_cast<std::uint8_t>(c >> 16);
    data[p + i] = static_cast<std::uint8_t>(c >> 8);
    data[2 * p + i] = static_cast<std::uint8_t>(c);
  }
  auto in = qztest::makeFrom<std::uint8_t>({p, 1, 3}, data);
  auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
  auto const* got = qzhost::dataOf<std::uint8_t>(out[0].get());
  std::size_t bad = 0;
  for (std::size_t i = 0; i < p; ++i)
    if (got[i] != qzref::rgb2gray<std::uint8_t>(data[i], data[p + i], data[2 * p + i]) && ++bad < 5)
      ADD_FAILURE() << "triple " << +data[i] << "," << +data[p + i] << "," << +data[2 * p + i];
  EXPECT_EQ(bad, 0u);
}

// The body computes each pixel independently: any split of the range, any
// thread count and the interleaved form give the same bytes.
template <class T>
void checkSplitIndependence(std::vector<T> const& planar, std::size_t p) {
  std::vector<T> whole(p), pieces(p), interleaved(p), triples(3 * p);
  for (std::size_t i = 0; i < p; ++i)
    for (int c = 0; c < 3; ++c) triples[3 * i + c] = planar[c * p + i];
  qz::convertrgb2gray<T> body{planar.data(), p, std::is_floating_point_v<T>, whole.data(), true};
  body(tbb::blocked_range<std::size_t>(0, p));
  body.output = pieces.data();
  for (std::size_t b = 0, step = 1; b < p; b += step, step = step * 2 + 1)
    body(tbb::blocked_range<std::size_t>(b, std::min(p, b + step)));
  EXPECT_EQ(pieces, whole);
  qz::convertrgb2gray<T> inter{triples.data(), p, std::is_floating_point_v<T>, interleaved.data(), false};
  inter(tbb::blocked_range<std::size_t>(0, p));
  EXPECT_EQ(interleaved, whole);
  for (int threads : {1, 2, 4}) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
    std::vector<T> launched(p);
    qz::launchRgb2Gray<T>(planar.data(), p, launched.data(), true);
    EXPECT_EQ(launched, whole) << threads << " threads";
  }
}

TEST_F(Rgb2grayTest, ResultsDoNotDependOnTheSplitTheThreadsOrTheLayout) {
  std::mt19937 rng(7);
  std::size_t const p = 100003;
  std::vector<std::uint8_t> bytes(3 * p);
  std::vector<double> doubles(3 * p);
  std::vector<std::int16_t> shorts(3 * p);
  for (std::size_t i = 0; i < 3 * p; ++i) {
    bytes[i] = static_cast<std::uint8_t>(rng());
    doubles[i] = std::uniform_real_distribution<double>(-0.5, 1.5)(rng);
    shorts[i] = static_cast<std::int16_t>(rng());
  }
  checkSplitIndependence(bytes, p);
  checkSplitIndependence(doubles, p);
  checkSplitIndependence(shorts, p);
}

TEST_F(Rgb2grayTest, OutputIsMByNOfTheInputClass) {
  auto in = qzhost::makeArray(ndclass::UInt16, {4, 5, 3});
  auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{4, 5}));
  EXPECT_EQ(ndGetClassID(out[0].get()), ndclass::UInt16);
  EXPECT_FALSE(ndIsComplex(out[0].get()));
}

TEST_F(Rgb2grayTest, EmptyImagesGiveEmptyOutputs) {
  for (auto dims : {std::vector<std::size_t>{0, 7, 3}, {5, 0, 3}}) {
    auto in = qzhost::makeArray(ndclass::Double, dims);
    auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
    EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{dims[0], dims[1]}));
    EXPECT_EQ(ndGetData(out[0].get()), nullptr);
  }
}

TEST_F(Rgb2grayTest, LazilyHeldInputsAreCompletedBeforeTheyAreMeasured) {
  auto in = qztest::makeLazyFrom<std::uint8_t>({1, 2, 3}, {255, 0, 0, 255, 0, 0});
  auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), (std::vector<std::uint8_t>{76, 150}));
}

TEST_F(Rgb2grayTest, ClassesOutsideTheNumericOnesGetAnUnfilledOutput) {
  for (ndClassID c : {ndclass::Logical, ndclass::Char}) {
    auto in = qzhost::makeArray(c, {2, 3, 3});
    auto out = qztest::call(pximages::_rgb2gray, 1, {in.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), c);
    EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{2, 3}));
  }
  // The host cannot create a numeric array of a host-defined class.
  auto in = qzhost::makeArray(20, {2, 3, 3});
  EXPECT_QZ_ERROR(qztest::call(pximages::_rgb2gray, 1, {in.get()}), "qzhost:cannotCreateClass");
}

TEST_F(Rgb2grayTest, FillsTheFirstSlotWhateverIsAskedAndReleasesItsOldArrayOnce) {
  auto in = qztest::makeFrom<double>({1, 1, 3}, {1, 1, 1});
  std::vector<qzhost::ArrayPtr> slots(1);
  slots[0] = qzhost::makeArray(ndclass::Double, {9, 9});
  std::size_t arrays = qzhost::liveArrays();
  ndArray_tag const* inputs[] = {in.get()};
  qzhost::call(pximages::_rgb2gray, 0, slots.data(), 1, inputs);
  EXPECT_EQ(qzhost::liveArrays(), arrays);  // the old one went, the new one came
  EXPECT_EQ(qzhost::dataOf<double>(slots[0].get())[0], 1.0);

  // A shared array in the slot loses one reference and stays usable.
  qzhost::ArrayPtr kept = qzhost::makeArray(ndclass::Double, {2, 2});
  qzhost::share(kept.get());
  slots[0].reset(kept.get());
  qzhost::call(pximages::_rgb2gray, 1, slots.data(), 1, inputs);
  EXPECT_EQ(qzhost::referenceCount(kept.get()), 1u);
  EXPECT_EQ(qzhost::dimsOf(kept.get()), (std::vector<std::size_t>{2, 2}));
}

}  // namespace
