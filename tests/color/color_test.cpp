// rgb2gray and rgb2hsv: every class and path against the references, both
// through the gateways and through each vector kernel (every instruction set
// compiled in) on sub-ranges of both layouts; all 2^24 byte triples on
// every kernel (gray also on them as words); the NaN rules and the hue
// carried within one body call.

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>

#include "color/rgb2gray.hpp"
#include "color/rgb2hsv.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"
#include "reference/rgb2gray_reference.hpp"
#include "reference/rgb2hsv_reference.hpp"
#include "targets.hpp"

namespace {

using ColorTest = qztest::HostTest;
using Ranges = std::vector<std::pair<std::size_t, std::size_t>>;

// 3p channel values: for floating types half at the edge of a test the
// rules make (NaN of both signs, infinities, signed zeros, subnormals, one
// unit either side of 0.5 and 1), for integers a quarter at their extremes.
template <class T>
std::vector<T> channelValues(std::size_t p, std::mt19937_64& rng) {
  using L = std::numeric_limits<T>;
  std::vector<T> out(3 * p), edges = {T(0), T(1), L::min(), L::max(), L::lowest(), static_cast<T>(L::max() - 1)};
  if constexpr (!L::is_integer)
    edges.insert(edges.end(), {-T(0), -T(1), T(0.5), T(2), L::denorm_min(), -L::denorm_min(), L::infinity(),
                               -L::infinity(), L::quiet_NaN(), -L::quiet_NaN(), std::nextafter(T(0.5), T(0)),
                               std::nextafter(T(0.5), T(1)), std::nextafter(T(1), T(0)), std::nextafter(T(1), T(2))});
  std::uniform_real_distribution<double> unit(-0.25, 1.25);
  for (auto& v : out)
    v = rng() % (L::is_integer ? 4 : 2) ? (L::is_integer ? T(rng()) : T(unit(rng))) : edges[rng() % edges.size()];
  return out;
}

// body(input, output, planar, b, e) runs a kernel on pixels [b, e) of an
// output filled with 7; want(b, e) is the planar output expected (channel c
// of pixel i at c*p + i), 7 outside the range, so stray writes show.  k
// outputs per pixel; the interleaved layout puts them at k*i + c.
template <class Out, class In, class Body, class Want>
void expectEveryTarget(std::vector<In> const& planar, std::size_t p, std::size_t k, Ranges const& ranges, Body body,
                       Want want) {
  std::vector<In> triples(3 * p);
  for (std::size_t j = 0; j < 3 * p; ++j) triples[3 * (j % p) + j / p] = planar[j];
  std::vector<Out> got(k * p);
  for (auto [b, e] : ranges) {
    std::vector<Out> const w = want(b, e);
    qztest::forEachTarget([&] {
      for (bool isPlanar : {true, false}) {
        std::fill(got.begin(), got.end(), Out(7));
        body(isPlanar ? planar.data() : triples.data(), got.data(), isPlanar, b, e);
        std::size_t at = 0, j = 0;  // at in the planar order, j where the kernel put it
        for (; at < w.size(); ++at)
          if (j = isPlanar ? at : k * (at % p) + at / p; std::memcmp(&got[j], &w[at], sizeof(Out)) != 0) break;
        ASSERT_EQ(at, w.size()) << (isPlanar ? "planar [" : "interleaved [") << b << ", " << e << ") element " << at
                                << ": " << +got[j] << " want " << +w[at];
      }
    });
    if (::testing::Test::HasFatalFailure()) return;
  }
}

// The planar output of one body call on [b, e) (7 elsewhere).  A pixel with
// two or three NaN channels stores the hue last computed in the call, 0
// before any.
template <class Out, class In>
std::vector<Out> hsvWant(std::vector<In> const& planar, std::size_t p, Out scale, std::size_t b, std::size_t e) {
  std::vector<Out> w(3 * p, Out(7));
  Out hue = 0;
  for (std::size_t i = b; i < e; ++i) {
    In const r = planar[i], g = planar[p + i], bl = planar[2 * p + i];
    qzref::Hsv<Out> x;
    if constexpr (std::is_same_v<In, std::uint8_t>)
      x = qzref::rgb2hsvBytes(r, g, bl);
    else
      x = qzref::rgb2hsvFloating<Out>(Out(r) / scale, Out(g) / scale, Out(bl) / scale);
    hue = x.carriesHue ? hue : x.h;
    w[i] = hue, w[p + i] = x.s, w[2 * p + i] = x.v;
  }
  return w;
}

template <class Body, class In, class Out>
void expectHsvLikeTheReference(std::vector<In> const& planar, std::size_t p, Out scale, Ranges const& ranges) {
  auto run = [&](In const* in, Out* out, bool isPlanar, std::size_t b, std::size_t e) {
    Body{in, p, scale, out, isPlanar}({b, e});
  };
  expectEveryTarget<Out>(planar, p, 3, ranges, run,
                         [&](std::size_t b, std::size_t e) { return hsvWant(planar, p, scale, b, e); });
}

// The gateway's output for the p pixels `values` of class T, held in a lazy
// array (completed by the gateway before it is measured): of Out's class
// and byte for byte `want`.
template <class Out, class T>
void expectGatewayGives(qzhost::Gateway fn, std::vector<T> const& values, std::size_t p, std::vector<Out> const& want) {
  auto in = qztest::makeLazyFrom<T>({p, 1, 3}, values);
  auto out = qztest::call(fn, 1, {in.get()});
  ASSERT_EQ(ndGetClassID(out[0].get()), ndClassOf<Out>::value);
  EXPECT_EQ(0, std::memcmp(qzhost::dataOf<Out>(out[0].get()), want.data(), want.size() * sizeof(Out)));
}

// Every class through both gateways and each kernel on every target (gray, and HSV
// where the class has a path) against the references, on values at the
// rules' edges and random ones, over sub-ranges of both layouts.
template <class... T>
void expectEveryClassLikeTheReferences() {
  (
      [] {
        SCOPED_TRACE(::testing::Message() << "class " << ndClassOf<T>::value);
        std::mt19937_64 rng(sizeof(T) * 977 + std::is_signed_v<T>);
        std::size_t const p = 1031;
        auto planar = channelValues<T>(p, rng);
        auto ranges = qztest::boundaryRanges(p);
        for (std::size_t c = 0; c < 3; ++c) planar[c * p] = std::numeric_limits<T>::max();  // a gray sum at the bound
        if constexpr (std::is_floating_point_v<T>) {
          // One NaN channel with the other two both 0, both 1 or neither, then a
          // run of pixels with two or three NaN channels, carrying one hue across
          // vectors and their boundaries (and starting at 0 where a range opens).
          T const nan = std::numeric_limits<T>::quiet_NaN(),
                  flat[][3] = {{nan, 0, 0}, {1, nan, 1}, {-0.0, 0, nan}, {nan, 2, 2}};
          for (std::size_t i = 490; i < 540; ++i)
            for (std::size_t c = 0; c < 3; ++c)
              planar[c * p + i] = i < 500 ? flat[i % 4][c] : c != i % 3 || i % 5 == 0 ? nan : planar[c * p + i];
          for (std::size_t b : {480, 499, 503, 520})
            for (std::size_t e : {b, b + 9, b + 33, std::size_t{560}}) ranges.emplace_back(b, e);
        }
        // The gateway clamps the floating classes only; the kernels must give
        // the plain rule's values with the other setting too.  Unclamped, the
        // sign of a NaN sum is the compiler's choice of operand order, so that
        // run has finite channels only.
        for (bool clamp : {std::is_floating_point_v<T>, !std::is_floating_point_v<T>}) {
          std::vector<T> values = planar, want(p);
          for (T& v : values) v = clamp || std::isfinite(double(v)) ? v : T(2);
          for (std::size_t i = 0; i < p; ++i)
            want[i] = qzref::rgb2gray<T>(values[i], values[p + i], values[2 * p + i], clamp);
          if (clamp == std::is_floating_point_v<T>) expectGatewayGives(pximages::_rgb2gray, values, p, want);
          if (!clamp) {
            // Every channel is finite here, so no pixel carries a hue and how
            // the call is split cannot show.  Each class goes to its path and
            // scale; a class without one gives zeros.
            using Out = std::conditional_t<std::is_same_v<T, float>, float, double>;
            Out const scale = std::is_integral_v<T> ? Out(std::numeric_limits<T>::max()) : Out(1);
            bool const hasPath = std::is_floating_point_v<T> || std::is_same_v<T, std::uint8_t> ||
                                 std::is_same_v<T, std::uint16_t>;
            expectGatewayGives(pximages::_rgb2hsv, values, p,
                               hasPath ? hsvWant(values, p, scale, 0, p) : std::vector<Out>(3 * p, Out(0)));
          }
          auto run = [&](T const* input, T* output, bool isPlanar, std::size_t b, std::size_t e) {
            qz::convertrgb2gray<T>{input, p, clamp, output, isPlanar}({b, e});
          };
          expectEveryTarget<T>(values, p, 1, ranges, run, [&](std::size_t b, std::size_t e) {
            std::vector<T> w(p, T(7));
            std::copy(want.begin() + b, want.begin() + e, w.begin() + b);
            return w;
          });
        }
        if constexpr (std::is_floating_point_v<T>)
          expectHsvLikeTheReference<qz::convertrgb2hsv<T, T>>(planar, p, T(1), ranges);
        if constexpr (std::is_same_v<T, std::uint16_t>)
          expectHsvLikeTheReference<qz::convertrgb2hsv<unsigned short, double>>(planar, p, 65535.0, ranges);
        if constexpr (std::is_same_v<T, std::uint8_t>)
          expectHsvLikeTheReference<qz::convertrgb2hsvU8>(planar, p, 255.0, ranges);
      }(),
      ...);
}

TEST_F(ColorTest, EveryClassMatchesTheReferencesOnEveryKernel) {
  expectEveryClassLikeTheReferences<double, float, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t,
                                    std::uint32_t, std::int64_t, std::uint64_t>();
  // A single pixel is converted like any other.
  expectGatewayGives<std::uint8_t, std::uint8_t>(pximages::_rgb2gray, {255, 0, 0}, 1, {76});
  expectGatewayGives<double, std::uint8_t>(pximages::_rgb2hsv, {255, 0, 0}, 1, {0, 1, 1});
}

TEST(ColorKernelTest, AllByteTriplesMatchTheReferencesOnEveryKernel) {
#ifdef QZ_SANITIZED
  constexpr unsigned kChunkStep = 5;  // chunks 0, 5, 10, 15 of the 16: a sample keeps the sanitizer build quick
#else
  constexpr unsigned kChunkStep = 1;
#endif
  std::size_t const p = std::size_t{1} << 20;
  std::vector<std::uint8_t> bytes(3 * p), gray(p);  // and the same colours as words, doubles and singles:
  std::vector<std::uint16_t> words(3 * p), grayWords(p);
  std::vector<double> doubles(3 * p);
  std::vector<float> singles(3 * p);
  for (std::uint32_t chunk = 0; chunk < 16; chunk += kChunkStep) {  // red's high nibble
    for (std::size_t j = 0; j < 3 * p; ++j) {
      bytes[j] = static_cast<std::uint8_t>(((chunk << 20) + j % p) >> (16 - 8 * (j / p)));
      words[j] = static_cast<std::uint16_t>(257 * bytes[j]);
      doubles[j] = bytes[j] / 255.0;
      singles[j] = static_cast<float>(doubles[j]);
    }
    for (std::size_t i = 0; i < p; ++i) {
      gray[i] = qzref::rgb2gray(bytes[i], bytes[p + i], bytes[2 * p + i]);
      grayWords[i] = qzref::rgb2gray(words[i], words[p + i], words[2 * p + i]);
    }
    auto run = [&](auto const* in, auto* out, bool planar, std::size_t b, std::size_t e) {
      qz::convertrgb2gray<std::remove_pointer_t<decltype(out)>>{in, p, false, out, planar}({b, e});
    };
    expectEveryTarget<std::uint8_t>(bytes, p, 1, {{0, p}}, run, [&](std::size_t, std::size_t) { return gray; });
    expectEveryTarget<std::uint16_t>(words, p, 1, {{0, p}}, run, [&](std::size_t, std::size_t) { return grayWords; });
    expectHsvLikeTheReference<qz::convertrgb2hsvU8>(bytes, p, 255.0, {{0, p}});
    expectHsvLikeTheReference<qz::convertrgb2hsv<unsigned short, double>>(words, p, 65535.0, {{0, p}});
    expectHsvLikeTheReference<qz::convertrgb2hsv<double, double>>(doubles, p, 1.0, {{0, p}});
    expectHsvLikeTheReference<qz::convertrgb2hsv<float, float>>(singles, p, 1.0f, {{0, p}});
  }
}

}  // namespace
