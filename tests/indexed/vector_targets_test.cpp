// The vector paths of grayto8 and of ind2rgb8's byte-index lookup against
// the plain rules, under every instruction set compiled in: all 65,536
// uint16 values, floating values at the edges of the rules' tests, random
// data, both strides, every uint8 index through maps holding NaN, infinities
// and out-of-range intensities, and every length 0..70 from starts on and
// off vector boundaries.  Outputs start as a sentinel, so stray writes show.

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "common/convert.hpp"
#include "indexed/grayto8.hpp"
#include "indexed/ind2rgb8.hpp"
#include "reference/ind2rgb8_reference.hpp"
#include "targets.hpp"

namespace {

template <class T>
std::vector<T> edgeValues() {
  using L = std::numeric_limits<T>;
  std::vector<T> v = {T(0), -T(0), T(1), -T(1), T(0.5), L::denorm_min(), -L::denorm_min(), L::min(), L::max(),
                      L::lowest(), L::infinity(), -L::infinity(), L::quiet_NaN(), -L::quiet_NaN(), T(2)};
  // One unit either side of 0, 0.5, 1 and of every half-way point and
  // saturation threshold of the byte scale.
  for (T x : {T(0), T(0.5), T(1), T(1) / T(510), T(-1) / T(510), T(254.5) / T(255), T(127.5) / T(255)}) {
    v.push_back(std::nextafter(x, T(-2)));
    v.push_back(std::nextafter(x, T(2)));
  }
  for (int byte = 0; byte < 256; ++byte) v.push_back((T(byte) + T(0.5)) / T(255));
  return v;
}

template <class T, class Rule>
void grayto8OnEveryTarget(std::vector<T> const& values, Rule rule) {
  SCOPED_TRACE(::testing::Message() << "element size " << sizeof(T));
  for (std::size_t stride : {1, 2}) {
    std::size_t const count = values.size() / stride;
    std::vector<std::uint8_t> want(count, 0xA5);
    qztest::forEachTarget([&] {
      for (auto [b, e] : qztest::boundaryRanges(count)) {
        std::vector<std::uint8_t> got(count, 0xA5);
        for (std::size_t j = b; j < e; ++j) want[j] = rule(values[j * stride]);
        qz::convertGrayToBytes(values.data() + b * stride, e - b, stride, got.data() + b);
        for (std::size_t j = 0; j < count; ++j)
          ASSERT_EQ(+got[j], +(j >= b && j < e ? want[j] : 0xA5))
              << "stride " << stride << " [" << b << ", " << e << ") value " << +values[j * stride];
      }
    });
  }
}

template <class T>
std::vector<T> floatingSample(std::mt19937_64& rng) {
  auto v = edgeValues<T>();
  std::uniform_real_distribution<double> unit(-0.1, 1.1);
  for (int i = 0; i < 4000; ++i) v.push_back(static_cast<T>(unit(rng)));
  return v;
}

TEST(VectorTargetsTest, Grayto8MatchesTheRuleForEveryClass) {
  std::mt19937_64 rng(257);
  grayto8OnEveryTarget(floatingSample<double>(rng), qz::offsetUnitToByte);
  grayto8OnEveryTarget(floatingSample<float>(rng), qz::offsetUnitToByteSingle);
  std::vector<std::uint16_t> words(65536);
  for (std::size_t u = 0; u < words.size(); ++u) words[u] = static_cast<std::uint16_t>(u);
  std::shuffle(words.begin(), words.end(), rng);
  grayto8OnEveryTarget(words, qz::uint16ToByte);
}

TEST(VectorTargetsTest, EveryUint16ValueOnEveryTarget) {
  // In order this time, so each of the 65,536 values is checked whole in
  // one call of its own (the shuffled run mixes them across ranges).
  std::vector<std::uint16_t> words(65536);
  for (std::size_t u = 0; u < words.size(); ++u) words[u] = static_cast<std::uint16_t>(u);
  qztest::forEachTarget([&] {
    std::vector<std::uint8_t> got(words.size());
    qz::convertGrayToBytes(words.data(), words.size(), 1, got.data());
    for (std::size_t u = 0; u < words.size(); ++u) ASSERT_EQ(got[u], (u + 128) / 257) << "u = " << u;
  });
}

// Every index byte (each of 0..255 in the image, then random) through maps
// of k rows whose intensities include NaN, infinities, negatives and values
// above 1, looked up in pieces of whole columns of every length 0..70.
TEST(VectorTargetsTest, ByteIndexLookupMatchesTheReference) {
  std::mt19937_64 rng(8);
  double const nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  double const specials[] = {nan, inf, -inf, -0.0, -1, 1, 2, 0.5, 1.0 / 510, 0.998, 0.999};
  for (std::size_t k : {1, 2, 17, 255, 256, 300}) {
    SCOPED_TRACE(::testing::Message() << "k = " << k);
    std::vector<double> map(3 * k);
    for (auto& v : map) v = rng() % 3 ? std::uniform_real_distribution<double>(-0.2, 1.2)(rng) : specials[rng() % 11];
    std::vector<std::uint8_t> red(k), green(k), blue(k);
    qz::convertMapColumn(map.data(), k, red.data());
    qz::convertMapColumn(map.data() + k, k, green.data());
    qz::convertMapColumn(map.data() + 2 * k, k, blue.data());
    qz::ComputeFunctorUintArray<std::uint8_t> const body{red.data(), green.data(), blue.data(), k};
    std::size_t const n = 600;  // elements of the index image (one row of 600 columns)
    std::vector<std::uint8_t> index(n);
    for (std::size_t j = 0; j < n; ++j) index[j] = static_cast<std::uint8_t>(j < 256 ? j : rng());
    qztest::forEachTarget([&] {
      for (auto [b, e] : qztest::boundaryRanges(n)) {
        std::vector<std::uint8_t> out(3 * n, 0xA5);
        qz::LookupRange<std::uint8_t> piece(
            raster::SplittableArrayWrapper<std::uint8_t>(index.data() + b, e - b, 1, e - b, qz::kLookupGrain),
            raster::SplittableRGBArrayWrapper<unsigned char>(out.data() + b, 3 * (e - b), 1, 3 * n,
                                                             qz::kLookupGrain, n, e - b));
        body(piece);
        for (int c = 0; c < 3; ++c)
          for (std::size_t j = 0; j < n; ++j) {
            int const want = j >= b && j < e ? qzref::ind2rgb8(index[j], map.data(), k, c) : 0xA5;
            ASSERT_EQ(+out[c * n + j], want) << "[" << b << ", " << e << ") channel " << c << " index " << +index[j];
          }
      }
    });
  }
}

}  // namespace
