// Dithering onto a colour map: both nearest-colour searches against an
// exhaustive one of our own, Floyd-Steinberg diffusion worked out by hand
// and by an independent script, and what cannot be mapped.

#include <algorithm>
#include <random>
#include <stdexcept>

#include "dither.hpp"
#include "qztest.hpp"

using Map = std::vector<std::uint8_t>;  // K-by-3, column-major

static Map randomMap(std::size_t k, std::mt19937& rng, int step = 1) {
  Map m(3 * k);
  for (auto& v : m) v = static_cast<std::uint8_t>(int(rng() % unsigned(256 / step)) * step);
  return m;
}

// Least squared distance; of equal ones, the first.
static std::size_t nearest(Map const& map, int r, int g, int b) {
  std::size_t const k = map.size() / 3;
  std::vector<int> d(k);
  for (std::size_t i = 0; i < k; ++i)
    d[i] = (r - map[i]) * (r - map[i]) + (g - map[k + i]) * (g - map[k + i]) +
           (b - map[2 * k + i]) * (b - map[2 * k + i]);
  return std::size_t(std::min_element(d.begin(), d.end()) - d.begin());
}

TEST(NearestColourTest, BothSearchesFindTheNearestAndTheLowestIndexOfEqualOnes) {
  std::mt19937 rng(2024);
  // Repeated colours are equally near everywhere, and halfway between the
  // levels of a lattice several colours are.
  Map const maps[] = {{7, 200, 90}, Map(15, 128), randomMap(8, rng, 128), randomMap(200, rng, 32),
                      randomMap(256, rng), randomMap(1000, rng)};
  std::vector<int> levels{255};
  for (int v = 0; v < 256; v += 8) levels.push_back(v + v / 8 % 8);  // every cell, at each place within one
  for (int v = 16; v < 256; v += 32) levels.push_back(v);
  for (auto const& map : maps) {
    std::size_t const k = map.size() / 3;
    qzcall::NearestColour fast(map.data(), k);
    for (int r : levels)
      for (int g : levels)
        for (int b : levels) {
          std::size_t const want = nearest(map, r, g, b);
          ASSERT_EQ(qzcall::nearestColourPlain(map.data(), k, r, g, b), want) << k << ": " << r << " " << g << " " << b;
          ASSERT_EQ(fast(r, g, b), want) << k << ": " << r << " " << g << " " << b;
        }
    ASSERT_EQ(fast.cellsFilled(), 32u * 32u * 32u);
    // The point of the cells: a query scans a handful of colours, not all
    // (about 2.4 on average for 256 random ones).
    EXPECT_TRUE(k != 256 || fast.coloursListed() < 6 * fast.cellsFilled()) << fast.coloursListed();
  }
}

TEST(DitherTest, DiffusesErrorsAsWorkedOut) {
  struct { std::size_t m, n; Map image, map, index; } const cases[] = {  // column-major
      // 100 -> black, error 100; 100 + 700/16 = 144 -> white, error -111;
      // 100 - 777/16 rounds down to 51 -> black.
      {1, 3, Map(9, 100), {0, 255, 0, 255, 0, 255}, {0, 1, 0}},
      // 8 -> 0, error 8; 8 + 56/16 = 11.5 rounds up to 12, nearer 23 than 0.
      {1, 2, Map(6, 8), {0, 23, 0, 23, 0, 23}, {0, 1}},
      {1, 1, Map(3, 0), {0, 1, 0, 1, 0, 1}, {0}},  // black stays black
      // From an independent script of the same rule.
      {3, 4, {241, 233, 184, 229, 210, 113, 213, 30,  149, 76,  77,  254, 160, 1,   65,  148, 33,  122,
              57,  119, 141, 72,  87,  206, 175, 127, 253, 198, 204, 129, 14,  209, 130, 223, 71,  202},
       {20, 200, 90, 250, 40, 30, 220, 250, 60, 90, 140, 10}, {1, 1, 1, 2, 1, 2, 1, 2, 1, 2, 0, 2}},
  };
  for (auto const& c : cases) {
    auto out = qzcall::ditherToMap(qztest::makeFrom<std::uint8_t>({c.m, c.n, 3}, c.image).get(),
                                   qztest::makeFrom<std::uint8_t>({c.map.size() / 3, 3}, c.map).get());
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out.get()), c.index);
  }
}

TEST(DitherTest, RefusesWhatItCannotMap) {
  auto u8 = [](std::vector<std::size_t> dims, bool complex = false) {
    return qzhost::makeArray(ndclass::UInt8, dims, complex);
  };
  qzhost::ArrayPtr const bad[][2] = {
      {u8({2, 2}), u8({1, 3})}, {u8({2, 2, 4}), u8({1, 3})}, {u8({2, 2, 3}, true), u8({1, 3})},
      {qzhost::makeArray(ndclass::Double, {2, 2, 3}), u8({1, 3})}, {u8({2, 2, 3}), u8({0, 3})},
      {u8({2, 2, 3}), u8({1, 4})}, {u8({2, 2, 3}), u8({1, 3}, true)}, {u8({1, 1, 3}), u8({65537, 3})},
      {u8({2, 2, 3}), qzhost::makeArray(ndclass::UInt16, {1, 3})}, {u8({2, 2, 3}), u8({1, 3, 2})},
  };
  for (auto const& b : bad) EXPECT_THROW(qzcall::ditherToMap(b[0].get(), b[1].get()), std::invalid_argument);
  // The largest map, all one colour: a uint16 index, the first of equals.
  auto out = qzcall::ditherToMap(u8({1, 1, 3}).get(), u8({65536, 3}).get());
  EXPECT_EQ(qztest::valuesOf<std::uint16_t>(out.get()), std::vector<std::uint16_t>{0});
}
