// rgb2hsv: the sector offsets and every tie on all four paths, the byte
// path against the plain reference for all 2^24 triples, the NaN rules with
// the hue carried within one body call, independence from the split, the
// thread count and the layout, and the gateway's classes and shapes.

#include <cmath>
#include <limits>
#include <iterator>
#include <random>

#include <tbb/global_control.h>

#include "color/rgb2hsv.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"
#include "reference/rgb2hsv_reference.hpp"

namespace {

using Rgb2hsvTest = qztest::HostTest;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
auto bitsOf(T v) {
  std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t> b;
  std::memcpy(&b, &v, sizeof v);
  return b;
}

// One call of the gateway on planar data; returns the planar result.
template <class In, class Out>
std::vector<Out> hsvThroughGateway(std::size_t m, std::size_t n, std::vector<In> const& planar) {
  auto in = qztest::makeFrom<In>({m, n, 3}, planar);
  auto out = qztest::call(pximages::_rgb2hsv, 1, {in.get()});
  EXPECT_EQ(ndGetClassID(out[0].get()), ndClassOf<Out>::value);
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), qzhost::dimsOf(in.get()));
  return qztest::valuesOf<Out>(out[0].get());
}

TEST(Rgb2hsvOffsetsTest, SectorOffsetsHaveTheirBitPatterns) {
  EXPECT_EQ(bitsOf(qz::HsvOffsets<double>::greenMax()), 0xBFD5555555555555u);
  EXPECT_EQ(bitsOf(qz::HsvOffsets<double>::blueMax()), 0x3FE5555555555556u);
  EXPECT_EQ(bitsOf(qz::HsvOffsets<float>::greenMax()), 0xBEAAAAABu);
  EXPECT_EQ(bitsOf(qz::HsvOffsets<float>::blueMax()), 0x3F2AAAAAu);
  // The 2/3 offsets are one unit in the last place off the nearest value:
  // above it in double, below it in single.
  EXPECT_EQ(qz::HsvOffsets<double>::blueMax(), std::nextafter(2.0 / 3.0, 1.0));
  EXPECT_EQ(qz::HsvOffsets<float>::blueMax(), std::nextafter(2.0f / 3.0f, 0.0f));
  EXPECT_EQ(qz::HsvOffsets<double>::greenMax(), -1.0 / 3.0);
  EXPECT_EQ(qz::HsvOffsets<float>::greenMax(), -1.0f / 3.0f);
}

// Channels are multiples of 0.2, so the same colours are exact in bytes
// (x 255) and in 16-bit words (x 65535).  Ties between the largest channels
// go to red, then green; the nominal hue is the same either side of a tie,
// so the references (which fix the tie rule) decide the exact bits.
struct TieRow {
  double r, g, b, hue;
} const kTieRows[] = {
    {1, 0, 0, 0},  // saturated red is 0, never 1
    {0, 1, 0, 1.0 / 3},       {0, 0, 1, 2.0 / 3},
    {1, 1, 1, 0},             {0, 0, 0, 0},             {0.6, 0.6, 0.6, 0},
    {1, 1, 0, 1.0 / 6},       // red = green > blue: the red sector
    {1, 0, 1, 5.0 / 6},       // red = blue > green: red, counted from magenta
    {0, 1, 1, 0.5},           // green = blue > red: the green sector
    {0.6, 0.6, 0.2, 1.0 / 6}, {0.6, 0.2, 0.6, 5.0 / 6}, {0.2, 0.6, 0.6, 0.5},
    {1, 0.6, 0.6, 0},         {0.6, 1, 0.6, 1.0 / 3},   {0.6, 0.6, 1, 2.0 / 3},
    {1, 0.6, 0.2, 1.0 / 12},  {1, 0.2, 0.6, 11.0 / 12}, {0.6, 1, 0.2, 3.0 / 12},
    {0.2, 1, 0.6, 5.0 / 12},  {0.2, 0.6, 1, 7.0 / 12},  {0.6, 0.2, 1, 9.0 / 12},
};

TEST_F(Rgb2hsvTest, EverySectorAndTieOnEveryPath) {
  std::size_t const p = std::size(kTieRows);
  std::vector<double> d(3 * p);
  std::vector<float> f(3 * p);
  std::vector<std::uint8_t> u8(3 * p);
  std::vector<std::uint16_t> u16(3 * p);
  for (std::size_t i = 0; i < p; ++i) {
    double const c[3] = {kTieRows[i].r, kTieRows[i].g, kTieRows[i].b};
    for (int k = 0; k < 3; ++k) {
      d[k * p + i] = c[k];
      f[k * p + i] = static_cast<float>(c[k]);
      u8[k * p + i] = static_cast<std::uint8_t>(std::lround(c[k] * 255));
      u16[k * p + i] = static_cast<std::uint16_t>(std::lround(c[k] * 65535));
    }
  }
  auto hd = hsvThroughGateway<double, double>(p, 1, d);
  auto hf = hsvThroughGateway<float, float>(p, 1, f);
  auto h8 = hsvThroughGateway<std::uint8_t, double>(1, p, u8);
  auto h16 = hsvThroughGateway<std::uint16_t, double>(p, 1, u16);
  for (std::size_t i = 0; i < p; ++i) {
    TieRow const& row = kTieRows[i];
    SCOPED_TRACE(::testing::Message() << "(" << row.r << ", " << row.g << ", " << row.b << ")");
    auto wd = qzref::rgb2hsvFloating(row.r, row.g, row.b);
    auto wf = qzref::rgb2hsvFloating(f[i], f[p + i], f[2 * p + i]);
    auto w8 = qzref::rgb2hsvBytes(u8[i], u8[p + i], u8[2 * p + i]);
    double const got[4][3] = {{hd[i], hd[p + i], hd[2 * p + i]},
                              {hf[i], hf[p + i], hf[2 * p + i]},
                              {h8[i], h8[p + i], h8[2 * p + i]},
                              {h16[i], h16[p + i], h16[2 * p + i]}};
    qzref::Hsv const want[4] = {wd, wf, w8, wd};  // 16-bit words divide exactly to the double channels
    for (int path = 0; path < 4; ++path) {
      EXPECT_EQ(got[path][0], want[path].h) << "hue, path " << path;
      EXPECT_EQ(got[path][1], want[path].s) << "saturation, path " << path;
      EXPECT_EQ(got[path][2], want[path].v) << "value, path " << path;
      EXPECT_NEAR(got[path][0], row.hue, 1e-6) << "path " << path;
    }
  }
  // Primaries give the offsets themselves, in each path's own precision.
  EXPECT_EQ(hd[1], 0.3333333333333333);
  EXPECT_EQ(bitsOf(hd[2]), 0x3FE5555555555556u);
  EXPECT_EQ(bitsOf(h8[2]), 0x3FE5555555555556u);
  EXPECT_EQ(bitsOf(hf[1]), 0x3EAAAAABu);
  EXPECT_EQ(bitsOf(hf[2]), 0x3F2AAAAAu);
}

// Every byte triple, one red value per call, through all four paths: the
// byte path and the double and single paths (on x/255) bit for bit against
// the plain references, the 16-bit path at 257x bit for bit against the
// double path (the divisions agree exactly), and the byte path within
// rounding of the double path, so both choose the same sector.
TEST_F(Rgb2hsvTest, AllByteTriplesMatchTheReferences) {
#ifdef QZ_SANITIZED
  constexpr int kRedStep = 17;  // a strided sample keeps the sanitizer build quick
#else
  constexpr int kRedStep = 1;
#endif
  std::size_t const p = 65536;
  auto byteImage = qzhost::makeArray(ndclass::UInt8, {256, 256, 3});
  auto wordImage = qzhost::makeArray(ndclass::UInt16, {256, 256, 3});
  auto doubleImage = qzhost::makeArray(ndclass::Double, {256, 256, 3});
  auto singleImage = qzhost::makeArray(ndclass::Single, {256, 256, 3});
  auto* bytes = qzhost::dataOf<std::uint8_t>(byteImage.get());
  auto* words = qzhost::dataOf<std::uint16_t>(wordImage.get());
  auto* doubles = qzhost::dataOf<double>(doubleImage.get());
  auto* singles = qzhost::dataOf<float>(singleImage.get());
  std::size_t bad = 0;
  for (int red = 0; red < 256; red += kRedStep) {
    for (std::size_t i = 0; i < p; ++i) {
      int const c[3] = {red, static_cast<int>(i >> 8), static_cast<int>(i & 255)};
      for (int k = 0; k < 3; ++k) {
        bytes[k * p + i] = static_cast<std::uint8_t>(c[k]);
        words[k * p + i] = static_cast<std::uint16_t>(257 * c[k]);
        doubles[k * p + i] = c[k] / 255.0;
        singles[k * p + i] = static_cast<float>(c[k] / 255.0);
      }
    }
    auto o8 = qztest::call(pximages::_rgb2hsv, 1, {byteImage.get()}, 1);
    auto o16 = qztest::call(pximages::_rgb2hsv, 1, {wordImage.get()}, 1);
    auto od = qztest::call(pximages::_rgb2hsv, 1, {doubleImage.get()}, 1);
    auto of = qztest::call(pximages::_rgb2hsv, 1, {singleImage.get()}, 1);
    auto const* h8 = qzhost::dataOf<double>(o8[0].get());
    auto const* h16 = qzhost::dataOf<double>(o16[0].get());
    auto const* hd = qzhost::dataOf<double>(od[0].get());
    auto const* hf = qzhost::dataOf<float>(of[0].get());
    for (std::size_t i = 0; i < p && bad < 5; ++i) {
      std::size_t const at[3] = {i, p + i, 2 * p + i};
      auto const want8 = qzref::rgb2hsvBytes(bytes[at[0]], bytes[at[1]], bytes[at[2]]);
      auto const wantd = qzref::rgb2hsvFloating(doubles[at[0]], doubles[at[1]], doubles[at[2]]);
      auto const wantf = qzref::rgb2hsvFloating(singles[at[0]], singles[at[1]], singles[at[2]]);
      double const w8[3] = {want8.h, want8.s, want8.v}, wd[3] = {wantd.h, wantd.s, wantd.v},
                   wf[3] = {wantf.h, wantf.s, wantf.v};
      bool ok = true;
      for (std::size_t k = 0; k < 3; ++k) {
        ok = ok && bitsOf(h8[at[k]]) == bitsOf(w8[k]) && bitsOf(hd[at[k]]) == bitsOf(wd[k]);
        ok = ok && bitsOf(static_cast<double>(hf[at[k]])) == bitsOf(wf[k]);
        ok = ok && bitsOf(h16[at[k]]) == bitsOf(hd[at[k]]);
        ok = ok && std::fabs(h8[at[k]] - hd[at[k]]) <= 1e-14;
      }
      if (!ok && ++bad)
        ADD_FAILURE() << "triple " << red << "," << +bytes[p + i] << "," << +bytes[2 * p + i] << ": byte path "
                      << h8[i] << " " << h8[p + i] << " " << h8[2 * p + i] << " (reference " << want8.h << " "
                      << want8.s << " " << want8.v << "), double path " << hd[i] << " " << hd[p + i] << " "
                      << hd[2 * p + i] << " (reference " << wantd.h << " " << wantd.s << " " << wantd.v << ")";
    }
  }
  EXPECT_EQ(bad, 0u);
}

enum class Hue { Zero, NegativeNaN };

template <class T>
void expectNaNRules() {
  T const nan = std::numeric_limits<T>::quiet_NaN();
  T const negativeNaN = -std::numeric_limits<T>::quiet_NaN();
  struct Row {
    T r, g, b;
    Hue hue;
    T s, v;
  } const rows[] = {
      {nan, 0, 0, Hue::Zero, 0, 0},          {0, nan, 0, Hue::Zero, 0, 0},
      {1, 1, nan, Hue::Zero, 0, 1},          {nan, 1, 1, Hue::Zero, 0, 1},
      {T(0.5), T(0.5), nan, Hue::NegativeNaN, 0, T(0.5)},
      {nan, T(0.5), T(0.25), Hue::NegativeNaN, T(0.5), T(0.5)},
      {0, nan, 1, Hue::NegativeNaN, 1, 1},   {1, 0, nan, Hue::NegativeNaN, 1, 1},
      {nan, 2, 2, Hue::NegativeNaN, 0, 2},
      // Two or three NaN channels: no hue of their own; as the first pixel
      // of a body call they get 0.
      {nan, nan, T(0.4), Hue::Zero, 0, T(0.4)},  {nan, 0, nan, Hue::Zero, 0, 0},
      {T(0.5), nan, nan, Hue::Zero, 0, T(0.5)},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(::testing::Message() << "(" << row.r << ", " << row.g << ", " << row.b << ")");
    auto got = hsvThroughGateway<T, T>(1, 1, {row.r, row.g, row.b});
    EXPECT_EQ(bitsOf(got[0]), bitsOf(row.hue == Hue::Zero ? T(0) : negativeNaN));
    EXPECT_EQ(got[1], row.s);
    EXPECT_EQ(got[2], row.v);
  }
  auto allNaN = hsvThroughGateway<T, T>(1, 1, {nan, nan, nan});
  EXPECT_EQ(bitsOf(allNaN[0]), bitsOf(T(0)));
  EXPECT_TRUE(std::isnan(allNaN[1]));
  EXPECT_TRUE(std::isnan(allNaN[2]));
}

TEST_F(Rgb2hsvTest, NaNChannelsDoubleAndSingle) {
  EXPECT_EQ(bitsOf(-std::numeric_limits<double>::quiet_NaN()), 0xFFF8000000000000u);
  EXPECT_EQ(bitsOf(-std::numeric_limits<float>::quiet_NaN()), 0xFFC00000u);
  expectNaNRules<double>();
  expectNaNRules<float>();
}

// Pixels with two or three NaN channels store the hue that the same body
// call computed last, and 0 when they open the call.
template <class T>
void expectHueCarriedWithinACall(bool planar) {
  T const nan = std::numeric_limits<T>::quiet_NaN();
  T const rgb[][3] = {
      {1, T(0.5), 0},    // 0: main path
      {nan, nan, T(0.3)},  // 1: carries 0
      {nan, T(0.2), T(0.3)},  // 2: one NaN, negative NaN hue
      {nan, nan, nan},      // 3: carries 2
      {nan, 0, 0},          // 4: one NaN, grey: 0
      {T(0.2), nan, nan},   // 5: carries 4
      {0, 0, 1},            // 6: blue
      {nan, nan, 1},        // 7: carries 6
  };
  std::size_t const p = std::size(rgb);
  std::vector<T> in(3 * p);
  for (std::size_t i = 0; i < p; ++i)
    for (std::size_t k = 0; k < 3; ++k) in[planar ? k * p + i : 3 * i + k] = rgb[i][k];
  auto hueOf = [&](std::size_t i, std::vector<T> const& out) { return bitsOf(out[planar ? i : 3 * i]); };
  auto run = [&](std::size_t b, std::size_t e) {
    std::vector<T> out(3 * p, T(7));
    qz::convertrgb2hsv<T, T> body{in.data(), p, T(1), out.data(), planar};
    body(tbb::blocked_range<std::size_t>(b, e));
    return out;
  };
  auto const whole = run(0, p);
  auto const h0 = hueOf(0, whole), neg = bitsOf(-nan), zero = bitsOf(T(0)), blue = bitsOf(qz::HsvOffsets<T>::blueMax());
  EXPECT_NE(h0, zero);
  decltype(h0) const expected[] = {h0, h0, neg, neg, zero, zero, blue, blue};
  for (std::size_t i = 0; i < p; ++i) EXPECT_EQ(hueOf(i, whole), expected[i]) << "pixel " << i;

  // Opening a call, a carrying pixel gets 0; later ones follow the new start.
  EXPECT_EQ(hueOf(1, run(1, p)), zero);
  EXPECT_EQ(hueOf(3, run(1, p)), neg);
  EXPECT_EQ(hueOf(3, run(3, 4)), zero);
  EXPECT_EQ(hueOf(7, run(7, 8)), zero);
  EXPECT_EQ(hueOf(7, run(5, 8)), blue);
  EXPECT_EQ(hueOf(5, run(5, 8)), zero);
}

TEST_F(Rgb2hsvTest, HueIsCarriedWithinOneBodyCallOnly) {
  for (bool planar : {true, false}) {
    SCOPED_TRACE(planar ? "planar" : "interleaved");
    expectHueCarriedWithinACall<double>(planar);
    expectHueCarriedWithinACall<float>(planar);
  }
}

// Every pixel is computed on its own (no pixel here has two or three NaN
// channels): pieces, threads and the interleaved layout give the same bits.
template <class Body, class In, class Out>
void checkSplitIndependence(Body body, std::vector<In> const& planar, std::size_t p) {
  std::vector<Out> whole(3 * p), pieces(3 * p), interleavedOut(3 * p);
  std::vector<In> triples(3 * p);
  for (std::size_t i = 0; i < p; ++i)
    for (std::size_t c = 0; c < 3; ++c) triples[3 * i + c] = planar[c * p + i];
  body.input = planar.data();
  body.pixels = p;
  body.output = whole.data();
  body.planar = true;
  body(tbb::blocked_range<std::size_t>(0, p));
  body.output = pieces.data();
  for (std::size_t b = 0, step = 1; b < p; b += step, step = step * 2 + 1)
    body(tbb::blocked_range<std::size_t>(b, std::min(p, b + step)));
  EXPECT_EQ(0, std::memcmp(pieces.data(), whole.data(), whole.size() * sizeof(Out)));
  body.input = triples.data();
  body.output = interleavedOut.data();
  body.planar = false;
  body(tbb::blocked_range<std::size_t>(0, p));
  for (std::size_t i = 0; i < p; ++i)
    for (std::size_t c = 0; c < 3; ++c)
      ASSERT_EQ(bitsOf(interleavedOut[3 * i + c]), bitsOf(whole[c * p + i])) << "pixel " << i;
  for (int threads : {1, 2, 4}) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
    std::vector<Out> launched(3 * p);
    qz::launchRgb2Hsv(planar.data(), p, launched.data(), true);
    EXPECT_EQ(0, std::memcmp(launched.data(), whole.data(), whole.size() * sizeof(Out))) << threads << " threads";
  }
}

TEST_F(Rgb2hsvTest, ResultsDoNotDependOnTheSplitTheThreadsOrTheLayout) {
  std::mt19937 rng(11);
  std::size_t const p = 100003;
  std::vector<std::uint8_t> bytes(3 * p);
  std::vector<std::uint16_t> words(3 * p);
  std::vector<double> doubles(3 * p);
  std::vector<float> singles(3 * p);
  for (std::size_t i = 0; i < 3 * p; ++i) {
    bytes[i] = static_cast<std::uint8_t>(rng());
    words[i] = static_cast<std::uint16_t>(rng());
    doubles[i] = std::uniform_real_distribution<double>(-0.2, 1.2)(rng);
    singles[i] = static_cast<float>(doubles[i]);
  }
  for (std::size_t i = 0; i < p; i += 37) {  // one NaN channel: a hue of its own
    doubles[(i % 3) * p + i] = kNaN;
    singles[(i % 3) * p + i] = NAN;
  }
  checkSplitIndependence<qz::convertrgb2hsvU8, std::uint8_t, double>({}, bytes, p);
  checkSplitIndependence<qz::convertrgb2hsv<unsigned short, double>, std::uint16_t, double>(
      {nullptr, 0, 65535.0, nullptr, true}, words, p);
  checkSplitIndependence<qz::convertrgb2hsv<double, double>, double, double>({nullptr, 0, 1.0, nullptr, true},
                                                                              doubles, p);
  checkSplitIndependence<qz::convertrgb2hsv<float, float>, float, float>({nullptr, 0, 1.0f, nullptr, true}, singles,
                                                                          p);
}

TEST_F(Rgb2hsvTest, ClassesWithoutAConversionGiveADoubleZeroImage) {
  for (ndClassID c : {ndclass::Int16, ndclass::Int8, ndclass::Int32, ndclass::UInt32, ndclass::Int64,
                      ndclass::UInt64, ndclass::Logical, ndclass::Char}) {
    auto in = qzhost::makeArray(c, {2, 3, 3});
    std::memset(ndGetData(in.get()), 0x5A, 18 * qzhost::elementSize(c));
    auto out = qztest::call(pximages::_rgb2hsv, 1, {in.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndclass::Double) << c;
    EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{2, 3, 3}));
    EXPECT_EQ(qztest::valuesOf<double>(out[0].get()), std::vector<double>(18, 0.0)) << c;
  }
}

TEST_F(Rgb2hsvTest, OutputShapesAndDimensionForms) {
  for (ndClassID c : {ndclass::Double, ndclass::Single, ndclass::UInt8, ndclass::UInt16, ndclass::Int16}) {
    auto in = qzhost::makeArray(c, {0, 4, 3});
    auto out = qztest::call(pximages::_rgb2hsv, 1, {in.get()});
    EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{0, 4, 3}));
    EXPECT_EQ(ndGetClassID(out[0].get()), c == ndclass::Single ? ndclass::Single : ndclass::Double);
  }
  auto lazy = qztest::makeLazyFrom<std::uint8_t>({1, 2, 3}, {255, 0, 0, 255, 0, 0});
  auto out = qztest::call(pximages::_rgb2hsv, 0, {lazy.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{1, 2, 3}));
  EXPECT_EQ(qztest::valuesOf<double>(out[0].get()), (std::vector<double>{0, 0.3333333333333333, 1, 1, 1, 1}));
}

TEST_F(Rgb2hsvTest, InputsWithoutExactlyThreeDimensionsStayWithinTheOutput) {
  // Outside the caller's contract, but neither may write past the output:
  // four dimensions convert the first three planes, two give an M-by-N
  // output over numel/3 pixels.
  std::vector<double> four(24, 0.5);
  for (std::size_t i = 0; i < 4; ++i) four[i] = 1;  // red plane
  auto in4 = qztest::makeFrom<double>({2, 2, 3, 2}, four);
  auto out4 = qztest::call(pximages::_rgb2hsv, 1, {in4.get()});
  EXPECT_EQ(qzhost::dimsOf(out4[0].get()), (std::vector<std::size_t>{2, 2, 3}));
  EXPECT_EQ(qztest::valuesOf<double>(out4[0].get()),
            (std::vector<double>{0, 0, 0, 0, 0.5, 0.5, 0.5, 0.5, 1, 1, 1, 1}));
  auto in2 = qztest::makeFrom<float>({3, 2}, {1, 0, 0, 0, 0, 1});
  auto out2 = qztest::call(pximages::_rgb2hsv, 1, {in2.get()});
  EXPECT_EQ(qzhost::dimsOf(out2[0].get()), (std::vector<std::size_t>{3, 2}));
  EXPECT_EQ(qztest::valuesOf<float>(out2[0].get()),
            (std::vector<float>{0, qz::HsvOffsets<float>::blueMax(), 1, 1, 1, 1}));
}

}  // namespace
