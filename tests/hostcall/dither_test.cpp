// Dithering onto a colour map: the fast nearest-colour search against the
// plain one, and Floyd-Steinberg's diffusion on small images worked out by
// hand and by an independent script.

#include <algorithm>
#include <numeric>
#include <random>
#include <stdexcept>

#include "dither.hpp"
#include "qztest.hpp"

namespace {

using Map = std::vector<std::uint8_t>;  // K-by-3, column-major

Map fromColours(std::vector<std::array<int, 3>> const& colours) {
  std::size_t k = colours.size();
  Map m(3 * k);
  for (std::size_t i = 0; i < k; ++i)
    for (std::size_t c = 0; c < 3; ++c) m[c * k + i] = static_cast<std::uint8_t>(colours[i][c]);
  return m;
}

Map randomMap(std::size_t k, std::mt19937& rng) {
  Map m(3 * k);
  for (auto& v : m) v = static_cast<std::uint8_t>(rng() & 255);
  return m;
}

// Colours on a lattice of step 32, repeated and shuffled: points halfway
// between lattice levels are equally near to several colours, and repeated
// colours are equally near everywhere, so the lowest-index rule decides.
Map latticeWithRepeats(std::mt19937& rng) {
  std::vector<std::array<int, 3>> colours;
  for (int i = 0; i < 200; ++i)
    colours.push_back({static_cast<int>(rng() % 8) * 32, static_cast<int>(rng() % 8) * 32,
                       static_cast<int>(rng() % 8) * 32});
  return fromColours(colours);
}

TEST(NearestColourTest, AgreesWithThePlainSearchTiesIncluded) {
  std::mt19937 rng(2024);
  struct Case {
    char const* name;
    Map map;
  } const cases[] = {
      {"one colour", fromColours({{7, 200, 90}})},
      {"five equal colours", fromColours({{128, 128, 128}, {128, 128, 128}, {128, 128, 128}, {128, 128, 128}, {128, 128, 128}})},
      {"the cube's corners", fromColours({{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 0}, {255, 0, 255},
                                          {0, 255, 255}, {255, 255, 255}})},
      {"lattice with repeats", latticeWithRepeats(rng)},
      {"256 random colours", randomMap(256, rng)},
      {"1000 random colours", randomMap(1000, rng)},
  };
  // A grid through every cell, the lattice's halfway levels and both ends.
  std::vector<int> levels;
#ifdef QZ_SANITIZED
  int const step = 17;
#else
  int const step = 5;
#endif
  for (int v = 0; v < 256; v += step) levels.push_back(v);
  for (int v = 16; v < 256; v += 32) levels.push_back(v);
  levels.push_back(255);
  for (auto const& c : cases) {
    std::size_t const k = c.map.size() / 3;
    qzcall::NearestColour fast(c.map.data(), k);
    std::size_t wrong = 0;
    for (int r : levels)
      for (int g : levels)
        for (int b : levels) {
          std::size_t want = qzcall::nearestColourPlain(c.map.data(), k, r, g, b);
          std::size_t got = fast(r, g, b);
          if (got != want && wrong++ < 5)
            ADD_FAILURE() << c.name << ": (" << r << ", " << g << ", " << b << ") gave colour " << got << ", nearest is "
                          << want;
        }
    EXPECT_EQ(wrong, 0u) << c.name;
  }
}

// The point of the cells: a query looks at a handful of colours, not all.
TEST(NearestColourTest, CellListsAreShortFor256Colours) {
  std::mt19937 rng(99);
  Map map = randomMap(256, rng);
  qzcall::NearestColour fast(map.data(), 256);
  for (int r = 0; r < 256; r += 8)
    for (int g = 0; g < 256; g += 8)
      for (int b = 0; b < 256; b += 8) fast(r, g, b);
  ASSERT_EQ(fast.cellsFilled(), 32u * 32u * 32u);
  double perCell = double(fast.coloursListed()) / double(fast.cellsFilled());
  EXPECT_GE(perCell, 1.0);
  EXPECT_LT(perCell, 6.0);  // about 2.4 for this map
}

qzhost::ArrayPtr planes(std::size_t m, std::size_t n, std::vector<std::uint8_t> const& v) {
  return qztest::makeFrom<std::uint8_t>({m, n, 3}, v);
}

TEST(DitherTest, DiffusesErrorsAsWorkedOut) {
  struct Case {
    char const* name;
    std::size_t m, n;
    std::vector<std::uint8_t> image;  // column-major planes
    std::vector<std::array<int, 3>> colours;
    std::vector<int> index;  // column-major
  } const cases[] = {
      // 100 -> black, error 100; 100 + 700/16 = 144 -> white, error -111;
      // 100 - 777/16 = 51 -> black.
      {"one gray row", 1, 3, std::vector<std::uint8_t>(9, 100), {{0, 0, 0}, {255, 255, 255}}, {0, 1, 0}},
      // From an independent script of the same rule.
      {"3x4 colour",
       3,
       4,
       {241, 233, 184, 229, 210, 113, 213, 30, 149, 76, 77, 254, 160, 1, 65, 148, 33, 122,
        57, 119, 141, 72, 87, 206, 175, 127, 253, 198, 204, 129, 14, 209, 130, 223, 71, 202},
       {{20, 40, 60}, {200, 30, 90}, {90, 220, 140}, {250, 250, 10}},
       {1, 1, 1, 2, 1, 2, 1, 2, 1, 2, 0, 2}},
  };
  for (auto const& c : cases) {
    Map map = fromColours(c.colours);
    auto m = qztest::makeFrom<std::uint8_t>({c.colours.size(), 3}, map);
    auto out = qzcall::ditherToMap(planes(c.m, c.n, c.image).get(), m.get());
    EXPECT_EQ(qzhost::dimsOf(out.get()), (std::vector<std::size_t>{c.m, c.n})) << c.name;
    auto got = qztest::valuesOf<std::uint8_t>(out.get());
    EXPECT_EQ(std::vector<int>(got.begin(), got.end()), c.index) << c.name;
  }
}

// Error diffusion keeps the mean: on black and white only, a flat gray
// comes out with the share of white pixels its level asks for, up to what
// leaves through the image's edges.
TEST(DitherTest, FlatGraysKeepTheirLevelOnBlackAndWhite) {
  auto bw = qztest::makeFrom<std::uint8_t>({2, 3}, fromColours({{0, 0, 0}, {255, 255, 255}}));
  std::size_t const side = 64;
  for (int level : {1, 64, 100, 128, 200, 254}) {
    auto img = planes(side, side, std::vector<std::uint8_t>(3 * side * side, static_cast<std::uint8_t>(level)));
    auto idx = qztest::valuesOf<std::uint8_t>(qzcall::ditherToMap(img.get(), bw.get()).get());
    double mean = 255.0 * std::accumulate(idx.begin(), idx.end(), 0.0) / double(idx.size());
    EXPECT_NEAR(mean, level, 3.0) << "level " << level;
  }
}

TEST(DitherTest, ManyColoursGiveAUint16IndexIntoTheMap) {
  std::mt19937 rng(5);
  std::size_t const k = 300, m = 17, n = 23;
  Map map = randomMap(k, rng);
  std::vector<std::uint8_t> pixels(3 * m * n);
  for (auto& v : pixels) v = static_cast<std::uint8_t>(rng() & 255);
  auto out = qzcall::ditherToMap(planes(m, n, pixels).get(), qztest::makeFrom<std::uint8_t>({k, 3}, map).get());
  ASSERT_EQ(ndGetClassID(out.get()), ndclass::UInt16);
  auto idx = qztest::valuesOf<std::uint16_t>(out.get());
  EXPECT_LT(*std::max_element(idx.begin(), idx.end()), k);
  // The first pixel is owed no error: it gets its own nearest colour.
  EXPECT_EQ(idx[0], qzcall::nearestColourPlain(map.data(), k, pixels[0], pixels[m * n], pixels[2 * m * n]));
}

TEST(DitherTest, RefusesWhatItCannotMap) {
  auto rgb = planes(2, 2, std::vector<std::uint8_t>(12, 9));
  auto map = qztest::makeFrom<std::uint8_t>({1, 3}, {1, 2, 3});
  auto gray = qztest::makeFrom<std::uint8_t>({2, 2}, std::vector<std::uint8_t>(4, 9));
  auto doubles = qztest::makeFrom<double>({2, 2, 3}, std::vector<double>(12, 0.5));
  auto empty = qztest::makeFrom<std::uint8_t>({0, 3}, {});
  auto wide = qztest::makeFrom<std::uint8_t>({1, 4}, {1, 2, 3, 4});
  auto map16 = qztest::makeFrom<std::uint16_t>({1, 3}, {1, 2, 3});
  std::pair<ndArray_tag const*, ndArray_tag const*> const bad[] = {
      {gray.get(), map.get()}, {doubles.get(), map.get()}, {rgb.get(), empty.get()},
      {rgb.get(), wide.get()}, {rgb.get(), map16.get()}};
  for (auto const& [image, colours] : bad) EXPECT_THROW(qzcall::ditherToMap(image, colours), std::invalid_argument);
  EXPECT_NO_THROW(qzcall::ditherToMap(rgb.get(), map.get()));
}

}  // namespace
