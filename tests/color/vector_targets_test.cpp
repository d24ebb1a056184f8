// The vector paths of rgb2gray and rgb2hsv against the plain per-pixel rules,
// under every instruction set compiled in: all 2^24 byte triples, floating
// values at the edges of every test the rules make (NaN, infinities, signed
// zeros, subnormals, one unit either side of 0, 0.5 and 1), random data, and
// every sub-range length 0..70 from starts on and off vector boundaries.
// Outputs start as a sentinel pattern, so a write outside the range shows.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "color/rgb2gray.hpp"
#include "color/rgb2gray_rule.hpp"
#include "color/rgb2hsv.hpp"
#include "color/rgb2hsv_rule.hpp"
#include "targets.hpp"

namespace {

#ifdef QZ_SANITIZED
constexpr unsigned kChunkStep = 5;  // chunks 0, 5, 10, 15 of the 16: a sample keeps the sanitizer build quick
#else
constexpr unsigned kChunkStep = 1;
#endif

template <class T>
std::vector<T> edgeValues() {
  using L = std::numeric_limits<T>;
  std::vector<T> v = {T(0), -T(0), T(1), -T(1), T(0.5), L::denorm_min(), -L::denorm_min(), L::min(),
                      L::min() / 4, std::nextafter(T(0.5), T(0)), std::nextafter(T(0.5), T(1)),
                      std::nextafter(T(1), T(0)), std::nextafter(T(1), T(2)), T(2), L::max(), L::lowest(),
                      L::infinity(), -L::infinity(), L::quiet_NaN(), L::quiet_NaN(), -L::quiet_NaN(),
                      T(0.25), T(0.75)};
  return v;
}

// n pixels' channels: half of them edge values (floating types) or extremes
// (integers), the rest random.
template <class T>
std::vector<T> channelValues(std::size_t count, std::mt19937_64& rng) {
  std::vector<T> out(count);
  if constexpr (std::is_floating_point_v<T>) {
    auto const edges = edgeValues<T>();
    std::uniform_real_distribution<double> unit(-0.25, 1.25);
    for (auto& v : out) v = rng() % 2 ? edges[rng() % edges.size()] : static_cast<T>(unit(rng));
  } else {
    using L = std::numeric_limits<T>;
    T const extremes[] = {L::min(), L::max(), T(0), T(1), static_cast<T>(L::max() - 1)};
    for (auto& v : out) v = rng() % 4 == 0 ? extremes[rng() % 5] : static_cast<T>(rng());
  }
  return out;
}

template <class T>
std::vector<T> interleave(std::vector<T> const& planar, std::size_t p) {
  std::vector<T> out(3 * p);
  for (std::size_t i = 0; i < p; ++i)
    for (std::size_t c = 0; c < 3; ++c) out[3 * i + c] = planar[c * p + i];
  return out;
}

template <class T>
std::size_t firstDifference(std::vector<T> const& a, std::vector<T> const& b) {
  if (std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0) return a.size();
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::memcmp(&a[i], &b[i], sizeof(T)) != 0) return i;
  return a.size();
}

// rgb2gray's body on [b, e) against the plain rule, both layouts.
template <class T>
void expectGrayLikeTheRule(std::vector<T> const& planar, std::size_t p, std::size_t b, std::size_t e) {
  bool const clamp = std::is_floating_point_v<T>;
  auto const triples = interleave(planar, p);
  for (bool isPlanar : {true, false}) {
    T const* in = isPlanar ? planar.data() : triples.data();
    std::vector<T> want(p, T(7)), got(p, T(7));
    qz::grayrule::line(in, p, clamp, want.data(), isPlanar, b, e);
    qz::convertrgb2gray<T>{in, p, clamp, got.data(), isPlanar}(tbb::blocked_range<std::size_t>(b, e));
    std::size_t const at = firstDifference(got, want);
    ASSERT_EQ(at, p) << (isPlanar ? "planar" : "interleaved") << " [" << b << ", " << e << ") pixel " << at
                     << ": " << +got[at] << " want " << +want[at];
  }
}

template <class T>
void grayOnEveryTarget() {
  SCOPED_TRACE(::testing::Message() << "element size " << sizeof(T));
  std::mt19937_64 rng(sizeof(T) * 977 + std::is_signed_v<T>);
  std::size_t const p = 1031;
  auto const planar = channelValues<T>(3 * p, rng);
  qztest::forEachTarget([&] {
    for (auto [b, e] : qztest::boundaryRanges(p)) expectGrayLikeTheRule(planar, p, b, e);
  });
}

TEST(VectorTargetsTest, GrayOfEveryClassMatchesTheRule) {
  grayOnEveryTarget<double>();
  grayOnEveryTarget<float>();
  grayOnEveryTarget<std::int8_t>();
  grayOnEveryTarget<std::uint8_t>();
  grayOnEveryTarget<std::int16_t>();
  grayOnEveryTarget<std::uint16_t>();
  grayOnEveryTarget<std::int32_t>();
  grayOnEveryTarget<std::uint32_t>();
  grayOnEveryTarget<std::int64_t>();
  grayOnEveryTarget<std::uint64_t>();
}

// The 2^24 triples in 16 chunks of 2^20 (one per high nibble of red).
template <class F>
void forEachByteTripleChunk(F&& check) {
  std::size_t const p = std::size_t{1} << 20;
  std::vector<std::uint8_t> planar(3 * p);
  for (unsigned chunk = 0; chunk < 16; chunk += kChunkStep) {
    for (std::size_t i = 0; i < p; ++i) {
      std::uint32_t const c = (chunk << 20) | static_cast<std::uint32_t>(i);
      planar[i] = static_cast<std::uint8_t>(c >> 16);
      planar[p + i] = static_cast<std::uint8_t>(c >> 8);
      planar[2 * p + i] = static_cast<std::uint8_t>(c);
    }
    check(planar, p);
  }
}

TEST(VectorTargetsTest, GrayOfAllByteTriplesMatchesTheTables) {
  forEachByteTripleChunk([](std::vector<std::uint8_t> const& planar, std::size_t p) {
    qztest::forEachTarget([&] { expectGrayLikeTheRule(planar, p, 0, p); });
  });
}

// rgb2hsv's body on [b, e) against the plain rule started with hue 0, as a
// body call starts, both layouts.
template <class Body, class In, class Out>
void expectHsvLikeTheRule(std::vector<In> const& planar, std::size_t p, Out scale, std::size_t b, std::size_t e) {
  auto const triples = interleave(planar, p);
  for (bool isPlanar : {true, false}) {
    In const* in = isPlanar ? planar.data() : triples.data();
    std::vector<Out> want(3 * p, Out(7)), got(3 * p, Out(7));
    if constexpr (std::is_same_v<In, std::uint8_t>)
      qz::hsvrule::lineOfBytes(in, p, want.data(), isPlanar, b, e);
    else
      qz::hsvrule::line(in, p, scale, want.data(), isPlanar, b, e, Out(0));
    Body{in, p, scale, got.data(), isPlanar}(tbb::blocked_range<std::size_t>(b, e));
    std::size_t const at = firstDifference(got, want);
    ASSERT_EQ(at, 3 * p) << (isPlanar ? "planar" : "interleaved") << " [" << b << ", " << e << ") element "
                         << at << ": " << got[at] << " want " << want[at];
  }
}

template <class Body, class In, class Out>
void hsvOnEveryTarget(Out scale) {
  SCOPED_TRACE(::testing::Message() << "input size " << sizeof(In));
  std::mt19937_64 rng(sizeof(In) * 31 + 5);
  std::size_t const p = 1031;
  auto planar = channelValues<In>(3 * p, rng);
  if constexpr (std::is_floating_point_v<In>) {
    // Runs of pixels with two or three NaN channels, so the carried hue
    // crosses vectors and vector boundaries.
    for (std::size_t i = 500; i < 540; ++i)
      for (std::size_t c = 0; c < 3; ++c)
        if (c != i % 3 || i % 5 == 0) planar[c * p + i] = std::numeric_limits<In>::quiet_NaN();
  }
  qztest::forEachTarget([&] {
    for (auto [b, e] : qztest::boundaryRanges(p)) expectHsvLikeTheRule<Body>(planar, p, scale, b, e);
    for (std::size_t b : {480, 499, 503, 520})
      for (std::size_t e : {b, b + 9, b + 33, std::size_t{560}, p}) expectHsvLikeTheRule<Body>(planar, p, scale, b, e);
  });
}

TEST(VectorTargetsTest, HsvOfEveryPathMatchesTheRule) {
  hsvOnEveryTarget<qz::convertrgb2hsv<double, double>, double>(1.0);
  hsvOnEveryTarget<qz::convertrgb2hsv<float, float>, float>(1.0f);
  hsvOnEveryTarget<qz::convertrgb2hsv<unsigned short, double>, unsigned short>(65535.0);
  hsvOnEveryTarget<qz::convertrgb2hsvU8, std::uint8_t>(255.0);
  // A scale other than one divides every channel first, as the rule does.
  hsvOnEveryTarget<qz::convertrgb2hsv<double, double>, double>(3.0);
  hsvOnEveryTarget<qz::convertrgb2hsv<float, float>, float>(0.7f);
}

TEST(VectorTargetsTest, HsvOfAllByteTriplesMatchesTheRule) {
  // Each chunk's reference is computed once per layout; 24 bytes out per
  // pixel make these buffers the large ones.
  std::vector<double> want(3 << 20), got(3 << 20);
  forEachByteTripleChunk([&](std::vector<std::uint8_t> const& planar, std::size_t p) {
    auto const triples = interleave(planar, p);
    for (bool isPlanar : {true, false}) {
      std::uint8_t const* in = isPlanar ? planar.data() : triples.data();
      qz::hsvrule::lineOfBytes(in, p, want.data(), isPlanar, 0, p);
      qztest::forEachTarget([&] {
        std::fill(got.begin(), got.end(), 7.0);
        qz::convertrgb2hsvU8{in, p, 255.0, got.data(), isPlanar}(tbb::blocked_range<std::size_t>(0, p));
        std::size_t const at = firstDifference(got, want);
        ASSERT_EQ(at, got.size()) << (isPlanar ? "planar" : "interleaved") << " element " << at;
      });
    }
  });
}

TEST(VectorTargetsTest, EveryInstructionSetOfTheBuildIsExercised) {
  // The portable fallback always runs; the others as the processor allows,
  // and nothing outside the set the build asks for.
  std::vector<std::int64_t> seen;
  qztest::forEachTarget([&] { seen.push_back(hwy::SupportedTargets()); });
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back(), HWY_BASELINE_SCALAR);
  for (std::int64_t t : seen)
    EXPECT_EQ(t & ~(HWY_BASELINE_SCALAR | HWY_SSE4 | HWY_AVX2 | HWY_AVX3), 0) << hwy::TargetName(t);
}

}  // namespace
