// cq: the gateway's checks in order, how the colour count is read, the
// outputs it writes for each number asked and the class of the index image;
// the quantiser against the plain reference quantiser (exact on small
// images, rounding included on a large picture), its single-precision
// square-sum tables, 64-bit channel sums, and a box variance taken as a
// magnitude, which a whole run cannot reach.

#include <malloc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <random>

#include "builtin_args.hpp"
#include "quantize/quantize.hpp"
#include "reference/cq_reference.hpp"
#include "targets.hpp"

namespace {

using qzhost::ArrayPtr;
using qztest::args;
using qztest::scalar;
using CqGatewayTest = qztest::HostTest;
using QuantizeTest = qztest::HostTest;

using Rgb = std::array<std::uint8_t, 3>;

struct CqResult {
  std::vector<Rgb> map;
  ndClassID indexClass = 0;
  std::vector<std::size_t> indexDims;
  std::vector<std::uint16_t> index;  // widened from uint8 when narrow
};

// Calls cq asking for both outputs and reads them back.
CqResult runCq(ndArray_tag const* image, double colors) {
  auto k = scalar(colors);
  auto out = qztest::call(pximages::_cq, 2, {image, k.get()});
  auto const dims = qzhost::dimsOf(out[0].get());
  auto const bytes = qztest::valuesOf<std::uint8_t>(out[0].get());
  EXPECT_TRUE(ndGetClassID(out[0].get()) == ndclass::UInt8 && dims.size() == 2 && dims[1] == 3);
  CqResult r{{}, ndGetClassID(out[1].get()), qzhost::dimsOf(out[1].get()), {}};
  for (std::size_t i = 0; i < dims[0]; ++i) r.map.push_back({bytes[i], bytes[dims[0] + i], bytes[2 * dims[0] + i]});
  if (r.indexClass == ndclass::UInt8)
    for (auto v : qztest::valuesOf<std::uint8_t>(out[1].get())) r.index.push_back(v);
  else
    r.index = qztest::valuesOf<std::uint16_t>(out[1].get());
  return r;
}

using qztest::kInf, qztest::kNaN;
constexpr double kTwo64 = 18446744073709551616.0;

ArrayPtr image(std::vector<std::size_t> dims, ndClassID cls = ndclass::UInt8, bool complex = false,
               qzhost::DimForm form = qzhost::DimForm::Full) {
  return qzhost::makeArray(cls, std::move(dims), complex, form);
}
ArrayPtr rgb() { return image({2, 2, 3}); }

// Each case is wrong in the way its key names; where a second fault is
// added, the earlier check must win.
TEST_F(CqGatewayTest, ChecksRunInOrderAndTheFirstFailureWins) {
  // clang-format off
  struct {
    char const* key;
    std::function<std::vector<ArrayPtr>()> inputs;
  } const cases[] = {
      {"twoInputsRequired", [] { return args(); }},
      {"twoInputsRequired", [] { return args(rgb()); }},
      {"twoInputsRequired", [] { return args(image({2, 2}, ndclass::Double), scalar(kNaN), scalar(1)); }},
      {"firstInputMustBeUint8", [] { return args(image({2, 2, 3}, ndclass::Double), scalar(4)); }},
      {"firstInputMustBeUint8", [] { return args(image({2, 2}, ndclass::Logical, true), scalar(-1)); }},
      {"firstInputMustNotBeComplex", [] { return args(image({2, 2}, ndclass::UInt8, true), scalar(4)); }},
      {"firstInputMustBe3DUint8", [] { return args(image({4, 3}), scalar(4)); }},
      {"firstInputMustBe3DUint8",
       [] { return args(image({4, 3}, ndclass::UInt8, false, qzhost::DimForm::Compact), scalar(4)); }},
      {"firstInputMustBe3DUint8", [] { return args(image({4, 3, 3, 2}), scalar(kNaN)); }},
      {"firstInputMustBeMbyNby3", [] { return args(image({4, 3, 4}), scalar(4)); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<float>({1, 1}, {4.0f})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({1, 2}, {4, 4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({2, 1}, {4, 4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({1, 1, 2}, {4, 4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), image({1, 0}, ndclass::Double)); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({1, 2}, {4, 0, 4, 0}, true)); }},
      {"secondInputMustNotBeComplex", [] { return args(rgb(), qztest::makeFrom<double>({1, 1}, {-4, 0}, true)); }},
      {"numColorsMustBeNonNegative", [] { return args(rgb(), scalar(-0.5)); }},
      {"tooManyColors", [] { return args(rgb(), scalar(kNaN)); }},
      {"tooManyColors", [] { return args(rgb(), scalar(65537)); }},
      {"tooManyColors", [] { return args(rgb(), scalar(std::nextafter(kTwo64, 0.0))); }},
  };
  // clang-format on
  int row = 0;
  for (auto const& c : cases) {
    std::vector<ArrayPtr> owned = c.inputs();
    std::vector<ndArray_tag const*> inputs;
    for (auto const& a : owned) inputs.push_back(a.get());
    EXPECT_QZ_ERROR(qztest::call(pximages::_cq, 2, inputs), std::string("ORRERY:images:cq:") + c.key) << row++;
  }
}

// The count is truncated toward zero by the processor's two-branch unsigned
// conversion (which takes infinity and 2^64 and beyond to 0), then held
// against 65536; eight colours in eight cells show how many came through.
TEST_F(CqGatewayTest, TheCountIsReadAsTheProcessorsUnsignedConversionDoes) {
  std::vector<std::uint8_t> planar(24);
  for (std::size_t j = 0; j < 24; ++j) planar[j] = (j % 8 >> j / 8) & 1 ? 200 : 16;
  auto eight = qztest::makeFrom<std::uint8_t>({2, 4, 3}, planar);
  struct {
    double value;
    std::size_t rows;
  } const cases[] = {{2.9, 2}, {5.99, 5}, {0.5, 0}, {-0.0, 0}, {kInf, 0}, {kTwo64, 0}, {1e300, 0}, {65536.7, 8}};
  for (auto const& c : cases) EXPECT_EQ(runCq(eight.get(), c.value).map.size(), c.rows) << c.value;
}

TEST_F(CqGatewayTest, ZeroColoursGiveAnEmptyMapAndEmptyImagesOneBlackColour) {
  auto some = qztest::makeFrom<std::uint8_t>({2, 3, 3}, {1, 250, 1, 0, 99, 5, 2, 0, 2, 0, 99, 200, 3, 9, 3, 0, 99, 5});
  // Blocks from the allocator arrive filled, not zeroed, for this call: the
  // index must not be read from a label table no box has written.
  mallopt(M_PERTURB, 0x5A);
  CqResult r = runCq(some.get(), 0);
  mallopt(M_PERTURB, 0);
  EXPECT_TRUE(r.map.empty());
  EXPECT_EQ(r.indexClass, ndclass::UInt8);
  EXPECT_EQ(r.index, std::vector<std::uint16_t>(6, 0));
  for (auto dims : {std::vector<std::size_t>{0, 4, 3}, {5, 0, 3}}) {
    CqResult e = runCq(image(dims).get(), 65536);
    EXPECT_EQ(e.map, (std::vector<Rgb>{{0, 0, 0}}));
    EXPECT_EQ(e.indexDims, (std::vector<std::size_t>{dims[0], dims[1]}));
  }
}

// Only the requested outputs are written: a slot beyond them keeps what it
// held, and what a written slot held is released exactly once.
TEST_F(CqGatewayTest, WritesTheIndexImageOnlyWhenMoreThanOneOutputIsAsked) {
  auto image = qztest::makeLazyFrom<std::uint8_t>({1, 2, 3}, {0, 255, 0, 255, 0, 255});
  auto k = qztest::makeLazyFrom<double>({1, 1}, {4});
  ndArray_tag const* inputs[] = {image.get(), k.get()};
  for (int numOutputs : {0, 1, 2, 3}) {
    std::vector<ArrayPtr> slots(3);
    for (auto& s : slots) s = qzhost::makeArray(ndclass::Double, {7, 7});
    ndArray_tag* before[3] = {slots[0].get(), slots[1].get(), slots[2].get()};
    std::size_t arrays = qzhost::liveArrays();
    qzhost::call(pximages::_cq, numOutputs, slots.data(), 2, inputs);
    EXPECT_EQ(qzhost::liveArrays(), arrays) << numOutputs;
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(slots[0].get()), (std::vector<std::uint8_t>{0, 255, 0, 255, 0, 255}));
    if (numOutputs > 1)
      EXPECT_EQ(qztest::valuesOf<std::uint8_t>(slots[1].get()), (std::vector<std::uint8_t>{0, 1}));
    else
      EXPECT_EQ(slots[1].get(), before[1]) << numOutputs;
    EXPECT_EQ(slots[2].get(), before[2]) << numOutputs;
  }
}

// A smooth picture with grain, as a photograph is: long runs of pixels in
// one cell, a lopsided histogram and square sums far past 2^24.
std::vector<std::uint8_t> smoothPlanes(std::size_t m, std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> grain(0, 5);
  std::vector<std::uint8_t> planar(3 * m * n);
  for (std::size_t j = 0; j < planar.size(); ++j) {
    double const y = double(j % m) / m, x = double(j / m % n) / n, c = double(j / (m * n));
    double const v = 128 + 110 * std::sin(6 * x * (c + 1) + 3 * y * c) * std::cos(4 * y - c) + grain(rng);
    planar[j] = static_cast<std::uint8_t>(std::clamp(v, 0.0, 255.0));
  }
  return planar;
}

std::vector<std::uint8_t> randomPlanes(std::mt19937& rng, std::size_t pixels, int maxValue) {
  std::uniform_int_distribution<int> v(0, maxValue);
  std::vector<std::uint8_t> planar(3 * pixels);
  for (auto& x : planar) x = static_cast<std::uint8_t>(v(rng));
  return planar;
}

// The histogram tables of a planar image.
std::unique_ptr<qz::MomentTables> momentsOf(std::vector<std::uint8_t> const& planar) {
  std::size_t const pixels = planar.size() / 3;
  auto m = std::make_unique<qz::MomentTables>();
  std::vector<std::uint16_t> labels(pixels);
  qz::clearMoments(*m);
  qz::buildColorHistogram(*m, planar.data(), planar.data() + pixels, planar.data() + 2 * pixels, pixels, labels.data());
  return m;
}

void expectSameAsReference(std::vector<std::uint8_t> const& planar, std::size_t m, std::size_t n, std::size_t K) {
  qzref::Result want = qzref::quantize(planar, m * n, K);
  auto image = qztest::makeFrom<std::uint8_t>({m, n, 3}, planar);
  CqResult got = runCq(image.get(), static_cast<double>(K));
  EXPECT_EQ(got.map, want.colors) << m << "x" << n << " K=" << K;
  EXPECT_EQ(got.index, want.labels) << m << "x" << n << " K=" << K;
  EXPECT_EQ(got.indexClass, want.colors.size() > 256 ? ndclass::UInt16 : ndclass::UInt8);
  // The quantiser on its own relabels its 16-bit buffer in place.
  std::size_t const p = m * n;
  std::vector<std::uint8_t> r(K), g(K), b(K);
  std::vector<std::uint16_t> labels(p);
  std::uint8_t const* red = planar.data();
  EXPECT_EQ(qz::quantizeColors(red, red + p, red + 2 * p, p, r.data(), g.data(), b.data(), K, labels.data(), true),
            want.colors.size());
  EXPECT_EQ(labels, want.labels);
}

// Below 2^23 in total every float square sum is an exact integer, so the run
// is fixed by exact statistics and must match colour for colour and label for
// label, ties included: the highest score with the lowest index, red before
// green before blue, the lower part of a cut keeping its slot.
TEST_F(QuantizeTest, SmallImagesMatchTheReferenceExactly) {
  std::mt19937 rng(2026);
  struct Shape {
    std::size_t m, n;
    int maxValue;
  };
  for (Shape s : {Shape{5, 8, 255}, Shape{20, 30, 63}, Shape{31, 29, 40}, Shape{50, 50, 24}})
    for (int rep = 0; rep < 3; ++rep) {
      auto planar = randomPlanes(rng, s.m * s.n, s.maxValue);
      for (std::size_t K : {1, 2, 3, 5, 13, 40, 1000}) expectSameAsReference(planar, s.m, s.n, K);
    }
  // The corners of a cube of cells, twice each: every cut score and box
  // variance ties.
  std::vector<std::uint8_t> corners(3 * 16);
  for (std::size_t p = 0; p < 16; ++p)
    for (int c = 0; c < 3; ++c) corners[c * 16 + p] = (p >> c) & 1 ? 48 : 16;
  for (std::size_t K : {2, 3, 4, 5, 7, 8, 9}) expectSameAsReference(corners, 4, 4, K);
  // 256 and 257 occupied cells, each a colour of its own, with more asked:
  // the index class follows the number of colours that came out.
  for (std::size_t cells : {256, 257}) {
    std::vector<std::uint8_t> grid(3 * cells);
    for (std::size_t p = 0; p < cells; ++p) grid[p] = std::uint8_t(p % 32 * 8), grid[cells + p] = std::uint8_t(p / 4);
    ASSERT_EQ(qzref::quantize(grid, cells, 1000).colors.size(), cells);
    expectSameAsReference(grid, 1, cells, 1000);
  }
}

// On a picture of this size the float square sums round; the reference
// follows the same single-precision recurrence for them and takes
// everything else from exact scans.
TEST_F(QuantizeTest, ALargePictureMatchesTheReference) {
  auto const picture = smoothPlanes(400, 600, 1);
  for (std::size_t K : {2, 24, 64}) expectSameAsReference(picture, 400, 600, K);
}

// Each square-sum entry must be the single-precision result of the running
// recurrence, not a wider or reassociated one; a megapixel pushes the sums
// far past 2^24.  Every instruction set's histogram pass, which keeps a run
// of pixels in one cell in a register, must give the same bits, and the same
// exact counts and channel sums per cell.  The second image is a random
// megapixel, then a cell whose channel sums pass 32 bits (beyond one flush
// of the packed sums), then another cell last, alone in a one-pixel block.
TEST_F(QuantizeTest, HistogramTablesAreExactAndRoundInSinglePrecisionOnEveryKernel) {
  std::mt19937 rng(99);
  std::size_t const pixels = (std::size_t{1} << 24) + (1 << 21) + 513, head = 1 << 20;
  std::vector<std::uint8_t> big(3 * pixels, 255), random = randomPlanes(rng, head, 255);
  for (std::size_t c = 0; c < 3; ++c) std::copy_n(random.begin() + c * head, head, big.begin() + c * pixels);
  big[pixels - 1] = 0;
  for (auto const& planar : {smoothPlanes(300, 451, 2), std::move(big)}) {
    qzref::Histogram h(planar.data(), planar.size() / 3);
    qztest::forEachTarget([&] {
      auto m = momentsOf(planar);
      std::size_t bad = 0;
      for (int r = 0; r < 32; ++r)
        for (int g = 0; g < 32; ++g)
          for (int b = 0; b < 32; ++b) {
            qzref::CellStats const want = h.stats(qzref::Box{{r, g, b}, {r + 1, g + 1, b + 1}});
            int const cell = qz::cellCode(r + 1, g + 1, b + 1);
            bad += m->weight[cell] != want.count || m->red[cell] != want.red || m->green[cell] != want.green ||
                   m->blue[cell] != want.blue;
          }
      qz::accumulateMoments(*m);
      for (int r = 0; r <= 32; ++r)
        for (int g = 0; g <= 32; ++g)
          for (int b = 0; b <= 32; ++b)
            bad += m->squares[qz::cellCode(r, g, b)] != h.total[r][g][b];
      EXPECT_EQ(bad, 0u);
    });
  }
}

// A square sum below its squared-mean term (rounding does this on real
// images) still scores the size of the difference.
TEST_F(QuantizeTest, BoxVarianceIsTakenAsAMagnitude) {
  auto m = std::make_unique<qz::MomentTables>();
  qz::clearMoments(*m);
  int const cell = qz::cellCode(1, 1, 1);
  m->weight[cell] = 3;
  m->red[cell] = 30;
  m->green[cell] = 3;
  m->squares[cell] = 300.0f;  // 900 + 9 over 3 is 303
  qz::accumulateMoments(*m);
  EXPECT_EQ(qz::boxVariance(*m, qz::ColorBox{0, 1, 0, 1, 0, 1, 1}), 3.0f);
}

// The cell codes and square sums of all 2^24 colours on every instruction
// set; the start moves with the red value, so that the vector loop begins
// off alignment and leaves tails of every length to the plain rule.
TEST(QuantizeKernelTest, CellCodesAndSquaresOfEveryColourOnEveryKernel) {
  std::size_t const plane = 1 << 16;
  std::vector<std::uint8_t> r(plane), g(plane), b(plane);
  std::vector<std::uint16_t> codes(plane);
  std::vector<float> squares(plane);
  for (std::size_t p = 0; p < plane; ++p) g[p] = static_cast<std::uint8_t>(p >> 8), b[p] = static_cast<std::uint8_t>(p);
  qztest::forEachTarget([&] {
    for (int red = 0; red < 256; ++red) {
      std::fill(r.begin(), r.end(), static_cast<std::uint8_t>(red));
      std::size_t const first = red % 19;
      std::fill(codes.begin(), codes.end(), 0xA5A5);
      qz::cellCodesAndSquares(&r[first], &g[first], &b[first], plane - first, &codes[first], &squares[first]);
      for (std::size_t p = 0; p < plane; ++p) {
        int const want = ((red >> 3) + 1) * 1089 + ((g[p] >> 3) + 1) * 33 + (b[p] >> 3) + 1;
        ASSERT_EQ(codes[p], p < first ? 0xA5A5 : want) << red << " " << +g[p] << " " << +b[p];
        float const square = float(red * red + g[p] * g[p] + b[p] * b[p]);
        ASSERT_TRUE(p < first || squares[p] == square) << red << " " << +g[p] << " " << +b[p];
      }
    }
  });
}

}  // namespace
