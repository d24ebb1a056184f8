// The quantiser: exact cases, the moment tables against brute-force
// statistics, whole runs against the plain reference quantiser, invariants
// on the sample photos, and calls on several threads at once.

#include <algorithm>
#include <random>
#include <set>
#include <thread>

#include "common/scratch.hpp"
#include "cq_support.hpp"
#include "photos.hpp"
#include "quantize/quantize.hpp"
#include "reference/cq_reference.hpp"

namespace {

using cqtest::CqResult;
using cqtest::Rgb;
using cqtest::rgbImage;
using cqtest::runCq;
using QuantizeTest = qztest::HostTest;

std::vector<Rgb> repeat(std::vector<Rgb> const& colors, std::size_t times) {
  std::vector<Rgb> out;
  for (std::size_t t = 0; t < times; ++t) out.insert(out.end(), colors.begin(), colors.end());
  return out;
}

TEST_F(QuantizeTest, OneColourComesBackExactlyWhateverK) {
  for (Rgb c : {Rgb{0, 0, 0}, Rgb{255, 255, 255}, Rgb{7, 130, 249}}) {
    auto image = rgbImage(3, 5, std::vector<Rgb>(15, c));
    for (double K : {1.0, 2.0, 7.0, 65536.0}) {
      CqResult r = runCq(image.get(), K);
      EXPECT_EQ(r.map, std::vector<Rgb>{c}) << "K=" << K;
      EXPECT_EQ(r.index, std::vector<std::uint16_t>(15, 0));
    }
  }
}

TEST_F(QuantizeTest, OneColourIsTheTruncatedMeanOfAllPixels) {
  auto image = rgbImage(2, 2, {{0, 0, 0}, {255, 1, 10}, {255, 2, 10}, {255, 2, 11}});
  CqResult r = runCq(image.get(), 1);
  EXPECT_EQ(r.map, (std::vector<Rgb>{{191, 1, 7}}));  // 191.25, 1.25, 7.75
  EXPECT_EQ(r.index, std::vector<std::uint16_t>(4, 0));
}

TEST_F(QuantizeTest, TwoColoursInOneCellMergeIntoTheirFlooredMean) {
  auto image = rgbImage(2, 3, repeat({{0, 0, 0}, {7, 7, 7}}, 3));
  CqResult r = runCq(image.get(), 2);
  EXPECT_EQ(r.map, (std::vector<Rgb>{{3, 3, 3}}));
  EXPECT_EQ(r.index, std::vector<std::uint16_t>(6, 0));
}

// The lower part of a cut keeps the box's slot, so the colour that is lower
// along the cut axis comes first.
TEST_F(QuantizeTest, TwoColoursInDifferentCellsComeBackExactlyLowerFirst) {
  struct {
    Rgb a, b;
  } const cases[] = {
      {{5, 100, 5}, {5, 10, 5}},        // differ in green only
      {{9, 9, 200}, {9, 9, 8}},         // blue only
      {{255, 0, 0}, {0, 0, 0}},         // red only
      {{16, 240, 240}, {0, 248, 255}},  // all three: red wins a tie
  };
  for (auto const& c : cases) {
    auto image = rgbImage(1, 3, {c.a, c.b, c.a});
    for (double K : {2.0, 3.0, 300.0}) {
      CqResult r = runCq(image.get(), K);
      EXPECT_EQ(r.map, (std::vector<Rgb>{c.b, c.a})) << +c.a[0] << "," << +c.a[1] << "," << +c.a[2];
      EXPECT_EQ(r.index, (std::vector<std::uint16_t>{1, 0, 1}));
    }
  }
}

TEST_F(QuantizeTest, NeverMakesMoreColoursThanOccupiedCells) {
  // Five cells, two of them holding two colours each.
  std::vector<Rgb> px = {{0, 0, 0}, {6, 0, 0}, {100, 100, 100}, {40, 200, 90}, {41, 201, 91}, {255, 255, 0}, {0, 0, 255}};
  auto image = rgbImage(7, 1, px);
  CqResult r = runCq(image.get(), 50);
  std::set<Rgb> got(r.map.begin(), r.map.end());
  EXPECT_EQ(got, (std::set<Rgb>{{3, 0, 0}, {100, 100, 100}, {40, 200, 90}, {255, 255, 0}, {0, 0, 255}}));
  EXPECT_EQ(r.map.size(), 5u);
}

TEST_F(QuantizeTest, WithoutTheIndexImageTheLabelsKeepTheCellCodes) {
  std::vector<std::uint8_t> red = {0, 255, 8}, green = {0, 255, 17}, blue = {7, 255, 250};
  std::vector<std::uint16_t> labels(3);
  std::uint8_t r[4], g[4], b[4];
  std::size_t colors = qz::quantizeColors(red.data(), green.data(), blue.data(), 3, r, g, b, 4, labels.data(), false);
  EXPECT_EQ(colors, 3u);
  EXPECT_EQ(labels, (std::vector<std::uint16_t>{qz::cellCode(1, 1, 1), qz::cellCode(32, 32, 32),
                                                 qz::cellCode(2, 3, 32)}));
}

TEST_F(QuantizeTest, AnAxisCodeOutsideTheThreeIsAnInternalError) {
  qz::ScratchArray<qz::MomentTables> m(1, qz::ScratchFill::Zeroed);
  qz::ColorBox box{0, 32, 0, 32, 0, 32, 32768};
  for (qz::SplitAxis axis : {qz::SplitAxis{3}, qz::SplitAxis{255}}) {
    EXPECT_QZ_ERROR(qz::boxFixedPart(box, axis, m[0].weight), "ORRERY:images:cq:internalBadDirValue");
    EXPECT_QZ_ERROR(qz::boxMovingPart(box, axis, 5, m[0].red), "ORRERY:images:cq:internalBadDirValue");
  }
}

// A box whose square sum came out below its squared-mean term (rounding in
// the float tables does this on real images) still scores the size of the
// difference and stays eligible for splitting.
TEST_F(QuantizeTest, BoxVarianceIsTakenAsAMagnitude) {
  qz::ScratchArray<qz::MomentTables> m(1, qz::ScratchFill::Zeroed);
  int cell = qz::cellCode(1, 1, 1);
  m[0].weight[cell] = 3;
  m[0].red[cell] = 30;
  m[0].green[cell] = 3;
  m[0].squares[cell] = 300.0f;  // 900 + 9 over 3 is 303
  qz::accumulateMoments(m[0]);
  qz::ColorBox box{0, 1, 0, 1, 0, 1, 1};
  EXPECT_EQ(qz::boxVariance(m[0], box), 3.0f);
}

// ---- Moment tables against brute-force statistics --------------------------

std::vector<std::uint8_t> randomImage(std::mt19937& rng, std::size_t pixels, int maxValue) {
  std::uniform_int_distribution<int> v(0, maxValue);
  std::vector<std::uint8_t> planar(3 * pixels);
  for (auto& x : planar) x = static_cast<std::uint8_t>(v(rng));
  return planar;
}

struct Tables {
  qz::ScratchArray<qz::MomentTables> m{1, qz::ScratchFill::Uninitialised};
  std::vector<std::uint16_t> labels;
  Tables(std::vector<std::uint8_t> const& planar, std::size_t pixels) : labels(pixels) {
    qz::clearMoments(m[0]);
    qz::buildColorHistogram(m[0], planar.data(), planar.data() + pixels, planar.data() + 2 * pixels, pixels,
                            labels.data());
    qz::accumulateMoments(m[0]);
  }
};

qz::ColorBox randomBox(std::mt19937& rng) {
  std::uniform_int_distribution<int> c(0, 32);
  int v[6];
  for (int& x : v) x = c(rng);
  qz::ColorBox b{std::min(v[0], v[1]), std::max(v[0], v[1]), std::min(v[2], v[3]),
                 std::max(v[2], v[3]), std::min(v[4], v[5]), std::max(v[4], v[5]), 0};
  b.volume = (b.r1 - b.r0) * (b.g1 - b.g0) * (b.b1 - b.b0);
  return b;
}

qzref::Box asRef(qz::ColorBox const& b) { return qzref::Box{{b.r0, b.g0, b.b0}, {b.r1, b.g1, b.b1}}; }

void expectStatsMatch(qzref::CellStats const& want, qz::MomentTables const& m, qz::ColorBox const& box) {
  EXPECT_EQ(qz::boxSum(box, m.weight), want.count);
  EXPECT_EQ(qz::boxSum(box, m.red), want.red);
  EXPECT_EQ(qz::boxSum(box, m.green), want.green);
  EXPECT_EQ(qz::boxSum(box, m.blue), want.blue);
}

// Every box's count and channel sums, and every partial box a cut can form,
// equal the sums over the histogram cells inside it.
void checkIntegerStatistics(std::vector<std::uint8_t> const& planar, std::size_t pixels, std::mt19937& rng,
                            int boxes) {
  Tables t(planar, pixels);
  qz::MomentTables const& m = t.m[0];
  qzref::Histogram h(planar.data(), pixels);
  for (int i = 0; i < boxes; ++i) {
    qz::ColorBox box = randomBox(rng);
    if (i == 0) box = qz::ColorBox{0, 32, 0, 32, 0, 32, 32768};
    SCOPED_TRACE(::testing::Message() << "box (" << box.r0 << "," << box.r1 << "] (" << box.g0 << "," << box.g1
                                      << "] (" << box.b0 << "," << box.b1 << "]");
    expectStatsMatch(h.stats(asRef(box)), m, box);
    int const* lo[3] = {&box.b0, &box.g0, &box.r0};  // indexed by axis code
    int const* hi[3] = {&box.b1, &box.g1, &box.r1};
    int const refAxis[3] = {2, 1, 0};
    for (qz::SplitAxis axis : {qz::kAxisBlue, qz::kAxisGreen, qz::kAxisRed}) {
      for (int pos = *lo[axis]; pos <= *hi[axis]; ++pos) {
        qzref::Box lower = asRef(box);
        lower.hi[refAxis[axis]] = pos;
        qzref::CellStats want = h.stats(lower);
        EXPECT_EQ(qz::boxFixedPart(box, axis, m.weight) + qz::boxMovingPart(box, axis, pos, m.weight), want.count);
        EXPECT_EQ(qz::boxFixedPart(box, axis, m.red) + qz::boxMovingPart(box, axis, pos, m.red), want.red);
        EXPECT_EQ(qz::boxFixedPart(box, axis, m.green) + qz::boxMovingPart(box, axis, pos, m.green), want.green);
        EXPECT_EQ(qz::boxFixedPart(box, axis, m.blue) + qz::boxMovingPart(box, axis, pos, m.blue), want.blue);
      }
      // The cut scores use exact integer statistics only, so the plain
      // search must agree bit for bit.
      qzref::CellStats whole = h.stats(asRef(box));
      qz::Cut got = qz::bestCut(m, box, axis, *lo[axis] + 1, *hi[axis], whole.red, whole.green, whole.blue, whole.count);
      qzref::BestCut want = qzref::bestCut(h, asRef(box), refAxis[axis]);
      EXPECT_EQ(got.score, want.score) << "axis " << +axis;
      EXPECT_EQ(got.position, want.position) << "axis " << +axis;
    }
  }
}

TEST_F(QuantizeTest, BoxStatisticsMatchTheHistogramOnRandomImages) {
  std::mt19937 rng(4);
  for (int maxValue : {255, 63, 20}) {
    auto planar = randomImage(rng, 997, maxValue);
    checkIntegerStatistics(planar, 997, rng, 25);
  }
}

TEST_F(QuantizeTest, BoxStatisticsMatchTheHistogramOnAPhoto) {
  auto photo = qztest::loadSamplePhoto("chelsea.png");
  std::mt19937 rng(11);
  checkIntegerStatistics(photo.planar, photo.rows * photo.cols, rng, 12);
}

// The float square-sum table is where the quantiser's rounding lives: each
// entry must be the single-precision result of the stated recurrence, not a
// wider or reassociated one.  Large images push the sums far past 2^24.
TEST_F(QuantizeTest, SquareSumTablesRoundInSinglePrecision) {
  std::mt19937 rng(99);
  std::vector<std::pair<std::string, std::vector<std::uint8_t>>> images;
  for (auto const& name : qztest::samplePhotoNames()) images.emplace_back(name, qztest::loadSamplePhoto(name).planar);
  images.emplace_back("random", randomImage(rng, 1 << 20, 255));
  for (auto const& [name, planar] : images) {
    std::size_t const pixels = planar.size() / 3;
    Tables t(planar, pixels);
    qzref::Histogram h(planar.data(), pixels);
    std::size_t bad = 0;
    for (int r = 0; r <= 32; ++r)
      for (int g = 0; g <= 32; ++g)
        for (int b = 0; b <= 32; ++b) {
          float want = (r && g && b) ? h.floatTotal(r, g, b) : 0.0f;
          if (t.m[0].squares[qz::cellCode(r, g, b)] != want && ++bad < 4)
            ADD_FAILURE() << name << " cell " << r << "," << g << "," << b;
        }
    EXPECT_EQ(bad, 0u) << name;
  }
}

// One cell holding more pixels than a 32-bit channel sum can take: the counts
// and sums are exact 64-bit totals however the histogram pass carries them.
TEST_F(QuantizeTest, ChannelSumsStayExactPast32Bits) {
  std::size_t const pixels = (std::size_t{1} << 24) + 4099;  // 255 * pixels > 2^32
  std::vector<std::uint8_t> planar(3 * pixels, 255);
  planar[pixels - 1] = 0;  // one other cell last, so the big cell is not the final one touched
  qz::ScratchArray<qz::MomentTables> m(1, qz::ScratchFill::Uninitialised);
  qz::clearMoments(m[0]);
  std::vector<std::uint16_t> labels(pixels);
  qz::buildColorHistogram(m[0], planar.data(), planar.data() + pixels, planar.data() + 2 * pixels, pixels,
                          labels.data());
  auto const white = static_cast<std::size_t>(qz::cellCode(32, 32, 32));
  auto const n = static_cast<std::int64_t>(pixels - 1);
  EXPECT_EQ(m[0].weight[white], n);
  EXPECT_EQ(m[0].red[white], 255 * n);
  EXPECT_EQ(m[0].green[white], 255 * n);
  EXPECT_EQ(m[0].blue[white], 255 * n);
  auto const other = static_cast<std::size_t>(qz::cellCode(1, 32, 32));
  EXPECT_EQ(m[0].weight[other], 1);
  EXPECT_EQ(m[0].red[other], 0);
  EXPECT_EQ(m[0].green[other], 255);
  EXPECT_EQ(labels[pixels - 1], other);
}

// ---- Whole runs against the reference quantiser -------------------------------

void expectSameAsReference(std::vector<std::uint8_t> const& planar, std::size_t m, std::size_t n, std::size_t K,
                           char const* what) {
  std::size_t const pixels = m * n;
  qzref::Result want = qzref::quantize(planar, pixels, K);
  auto image = qztest::makeFrom<std::uint8_t>({m, n, 3}, planar);
  CqResult got = runCq(image.get(), static_cast<double>(K));
  ASSERT_EQ(got.map.size(), want.colors.size()) << what << " K=" << K;
  for (std::size_t k = 0; k < want.colors.size(); ++k)
    EXPECT_EQ(got.map[k], want.colors[k]) << what << " K=" << K << " colour " << k;
  std::size_t bad = 0;
  for (std::size_t p = 0; p < pixels; ++p)
    if (got.index[p] != want.labels[p] && ++bad < 4)
      ADD_FAILURE() << what << " K=" << K << " pixel " << p << ": " << got.index[p] << " want " << want.labels[p];
  EXPECT_EQ(bad, 0u);
}

std::uint64_t totalSquares(std::vector<std::uint8_t> const& planar) {
  std::uint64_t s = 0;
  for (auto v : planar) s += std::uint64_t(v) * v;
  return s;
}

// Below 2^23 in total, every float square sum the quantiser forms is an exact
// integer, so its run is fixed by exact statistics and the reference must
// reproduce it colour for colour and label for label, ties included.
TEST_F(QuantizeTest, SmallImagesMatchTheReferenceExactly) {
  std::mt19937 rng(2026);
  struct Shape {
    std::size_t m, n;
    int maxValue;
  };
#ifdef QZ_SANITIZED
  int const reps = 2;
#else
  int const reps = 6;
#endif
  for (Shape s : {Shape{5, 8, 255}, Shape{7, 6, 255}, Shape{20, 30, 63}, Shape{31, 29, 40}, Shape{50, 50, 24}}) {
    for (int rep = 0; rep < reps; ++rep) {
      auto planar = randomImage(rng, s.m * s.n, s.maxValue);
      ASSERT_LT(totalSquares(planar), std::uint64_t{1} << 23);
      for (std::size_t K : {1, 2, 3, 5, 8, 13, 40, 1000}) expectSameAsReference(planar, s.m, s.n, K, "random");
    }
  }
  // Symmetric colour sets, where cut scores and box variances tie.
  std::vector<Rgb> mirrored = {{16, 16, 16}, {48, 16, 16}, {16, 48, 16}, {16, 16, 48}, {48, 48, 16},
                               {48, 16, 48}, {16, 48, 48}, {48, 48, 48}};
  for (std::size_t K : {2, 3, 4, 5, 7, 8, 9}) {
    std::vector<std::uint8_t> planar(3 * 16);
    auto px = repeat(mirrored, 2);
    for (std::size_t p = 0; p < 16; ++p)
      for (int c = 0; c < 3; ++c) planar[c * 16 + p] = px[p][c];
    expectSameAsReference(planar, 4, 4, K, "mirrored");
  }
}

// On a real photo the float square sums round, and the reference follows
// the same single-precision recurrence for them while taking everything else
// from exact scans; the runs must still agree exactly.
TEST_F(QuantizeTest, APhotoMatchesTheReference) {
  auto photo = qztest::loadSamplePhoto("coffee.png");
#ifdef QZ_SANITIZED
  std::size_t const Ks[] = {2, 24};
#else
  std::size_t const Ks[] = {2, 7, 24, 64};
#endif
  for (std::size_t K : Ks) expectSameAsReference(photo.planar, photo.rows, photo.cols, K, "coffee");
}

// ---- Invariants on the sample photos ------------------------------------------

void checkInvariants(qztest::Photo const& photo, std::size_t K, std::string const& name) {
  SCOPED_TRACE(name + " K=" + std::to_string(K));
  std::size_t const pixels = photo.rows * photo.cols;
  auto image = qztest::photoArray(photo);
  CqResult r = runCq(image.get(), static_cast<double>(K));
  qzref::Histogram h(photo.planar.data(), pixels);
  std::size_t const colors = r.map.size();
  EXPECT_GE(colors, 1u);
  EXPECT_LE(colors, K);
  EXPECT_LE(colors, h.occupiedCells());
  EXPECT_EQ(r.indexClass, colors > 256 ? ndclass::UInt16 : ndclass::UInt8);
  ASSERT_EQ(r.index.size(), pixels);

  // Each colour is the floored mean of the pixels labelled with it, every
  // colour has pixels, and pixels of one cell share a label.
  std::vector<std::array<std::uint64_t, 4>> sums(colors, {0, 0, 0, 0});
  std::vector<int> labelOfCell(qz::kCellCount, -1);
  for (std::size_t p = 0; p < pixels; ++p) {
    std::uint16_t k = r.index[p];
    ASSERT_LT(k, colors) << "pixel " << p;
    std::uint8_t const px[3] = {photo.planar[p], photo.planar[pixels + p], photo.planar[2 * pixels + p]};
    for (int c = 0; c < 3; ++c) sums[k][c] += px[c];
    sums[k][3] += 1;
    int cell = qz::cellCode(qz::cellOf(px[0]), qz::cellOf(px[1]), qz::cellOf(px[2]));
    if (labelOfCell[cell] < 0) labelOfCell[cell] = k;
    ASSERT_EQ(labelOfCell[cell], k) << "pixel " << p << " split from its cell";
  }
  for (std::size_t k = 0; k < colors; ++k) {
    ASSERT_GT(sums[k][3], 0u) << "colour " << k << " has no pixels";
    Rgb mean{std::uint8_t(sums[k][0] / sums[k][3]), std::uint8_t(sums[k][1] / sums[k][3]),
             std::uint8_t(sums[k][2] / sums[k][3])};
    EXPECT_EQ(r.map[k], mean) << "colour " << k;
  }
}

TEST_F(QuantizeTest, PhotosKeepTheInvariants) {
#ifdef QZ_SANITIZED
  std::size_t const Ks[] = {1, 16, 300};
#else
  std::size_t const Ks[] = {1, 2, 16, 256, 257, 300, 4000, 65536};
#endif
  for (auto const& name : qztest::samplePhotoNames()) {
    auto photo = qztest::loadSamplePhoto(name);
    for (std::size_t K : Ks) checkInvariants(photo, K, name);
  }
}

// ---- Concurrency -----------------------------------------------------------------

TEST_F(QuantizeTest, ConcurrentCallsGiveTheSerialResults) {
  std::vector<qzhost::ArrayPtr> images;
  for (auto const& name : qztest::samplePhotoNames()) images.push_back(qztest::photoArray(qztest::loadSamplePhoto(name)));
  double const K = 300;  // past 256, so each call also runs the whole 16-bit path

  std::vector<CqResult> serial;
  for (auto const& im : images) serial.push_back(runCq(im.get(), K));

  for (int round = 0; round < 2; ++round) {
    std::vector<CqResult> parallel(images.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < images.size(); ++i)
      threads.emplace_back([&, i] { parallel[i] = runCq(images[i].get(), K); });
    for (auto& t : threads) t.join();
    for (std::size_t i = 0; i < images.size(); ++i) EXPECT_TRUE(parallel[i] == serial[i]) << "image " << i;
  }
}

}  // namespace
