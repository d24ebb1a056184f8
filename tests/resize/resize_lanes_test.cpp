// The resampling kernels' vector paths against the plain rule, under every
// instruction set compiled in: every element type, weights that include
// NaN, infinities and sums far past the type's range, no taps, short and
// odd lengths, complex parts (stride 2), and runs that start and end off
// vector boundaries.  Outputs start as a sentinel, so a write outside the
// range shows.

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "reference/resize_reference.hpp"
#include "resize/resize_lanes.hpp"
#include "resize_support.hpp"
#include "targets.hpp"

namespace {

using qztest::forEachTarget;

template <class E>
std::vector<E> sources(std::mt19937_64& rng, std::size_t n) {
  std::vector<E> v(n);
  using L = std::numeric_limits<E>;
  for (auto& x : v) {
    if constexpr (std::is_floating_point_v<E>)
      x = rng() % 8 == 0 ? L::max() : static_cast<E>(std::uniform_real_distribution<double>(-300, 300)(rng));
    else
      x = rng() % 4 == 0 ? (rng() % 2 ? L::min() : L::max()) : static_cast<E>(rng());
  }
  return v;
}

// Weights around 1 with now and then NaN, an infinity, a huge value (the sum
// leaves every type's range) or a negative zero.
std::vector<double> weights(std::mt19937_64& rng, std::size_t n) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  double const special[] = {std::numeric_limits<double>::quiet_NaN(), kInf, -kInf, 1e300, -1e300, -0.0, 1e9, -1e9};
  std::vector<double> w(n);
  for (auto& x : w)
    x = rng() % 16 == 0 ? special[rng() % 8] : std::uniform_real_distribution<double>(-0.75, 1.5)(rng);
  return w;
}

template <class E>
E plain(E const* src, std::size_t base, double const* w, std::size_t const* o, std::size_t scale, std::size_t taps) {
  double acc = 0.0;
  for (std::size_t k = 0; k < taps; ++k) acc = acc + static_cast<double>(src[base + o[k] * scale]) * w[k];
  return qzref::resizeValue<E>(acc);
}

using resizetest::sameValue;

constexpr std::size_t kTaps[] = {0, 1, 3, 8, 17};

template <class E>
void checkRowColumns(std::mt19937_64& rng) {
  E const kSentinel = static_cast<E>(77);
  std::size_t const cols = 9;
  for (std::size_t scale : {1, 2})
    for (std::size_t rows : {1, 3, 7, 8, 17, 31, 33, 70})
      for (std::size_t taps : kTaps)
        for (std::size_t start : {0, 1, 5}) {  // the column's first row, on and off vector boundaries
          std::size_t const m = start + rows;
          auto const src = sources<E>(rng, scale * m * cols);
          auto const w = weights(rng, taps);
          std::vector<std::size_t> o(taps);
          for (auto& x : o) x = (rng() % cols) * m;
          std::vector<E> out(scale * rows + 2, kSentinel);
          qz::resizeRowColumn<E>(src.data(), scale * start, w.data(), o.data(), scale, taps, out.data() + 1,
                                 scale * rows);
          ASSERT_TRUE(sameValue(out.front(), kSentinel) && sameValue(out.back(), kSentinel)) << "wrote outside its column";
          for (std::size_t r = 0; r < scale * rows; ++r)
            ASSERT_TRUE(sameValue(out[1 + r], plain(src.data(), scale * start + r, w.data(), o.data(), scale, taps)))
                << "type " << typeid(E).name() << " scale " << scale << " rows " << rows << " taps " << taps
                << " start " << start << " row " << r;
        }
}

template <class E>
void checkColumnItems(std::mt19937_64& rng) {
  E const kSentinel = static_cast<E>(77);
  // The last shape's taps spread over more rows than a window holds.
  struct Shape {
    std::size_t m, len;
  } const shapes[] = {{5, 7}, {12, 8}, {40, 17}, {3000, 9}};
  for (auto const& s : shapes)
    for (std::size_t taps : kTaps)
      for (auto range : {std::pair<std::size_t, std::size_t>{0, 21}, {3, 14}, {5, 5}, {1, 2}}) {
        std::size_t const items = 21;
        auto const src = sources<E>(rng, s.m * items);
        auto const w = weights(rng, taps * s.len);
        std::vector<std::size_t> o(taps * s.len);
        for (auto& x : o) x = rng() % s.m;
        std::vector<E> dst(s.len * items, kSentinel);
        qz::resizeColumnItems<E>(src.data(), dst.data(), w.data(), o.data(), s.m, s.len, taps, range.first,
                                 range.second);
        for (std::size_t j = 0; j < items; ++j)
          for (std::size_t i = 0; i < s.len; ++i) {
            bool const inside = j >= range.first && j < range.second;
            E const want = inside ? plain(src.data(), j * s.m, w.data() + i * taps, o.data() + i * taps, 1, taps)
                                  : kSentinel;
            ASSERT_TRUE(sameValue(dst[j * s.len + i], want))
                << "type " << typeid(E).name() << " rows " << s.m << " len " << s.len << " taps " << taps
                << " items [" << range.first << ", " << range.second << ") item " << j << " position " << i;
          }
      }
}

// Short columns, lanes across output columns: every plane, runs of columns
// starting off vector boundaries, and taps spread wider than a run's span
// (the plain rule's turn).
template <class E>
void checkNarrowColumns(std::mt19937_64& rng) {
  E const kSentinel = static_cast<E>(77);
  for (std::size_t m : {1, 2, 3, 7})
    for (std::size_t srcCols : {5, 3000})
      for (std::size_t taps : {0, 1, 3, 8, 17, 40})
        for (auto range : {std::pair<std::size_t, std::size_t>{0, 17}, {3, 12}, {8, 8}, {1, 2}}) {
          std::size_t const planes = 2, len = 17;
          auto const src = sources<E>(rng, m * srcCols * planes);
          auto const w = weights(rng, taps * len);
          std::vector<std::size_t> o(taps * len);
          for (auto& x : o) x = (rng() % srcCols) * m;
          std::vector<E> dst(m * len * planes, kSentinel);
          qz::resizeRowColumnsNarrow<E>(src.data(), dst.data(), w.data(), o.data(), m, srcCols, len, taps, planes,
                                        range.first, range.second);
          for (std::size_t p = 0; p < planes; ++p)
            for (std::size_t i = 0; i < len; ++i)
              for (std::size_t r = 0; r < m; ++r) {
                bool const inside = i >= range.first && i < range.second;
                E const want = inside ? plain(src.data(), p * m * srcCols + r, w.data() + i * taps,
                                              o.data() + i * taps, 1, taps)
                                      : kSentinel;
                ASSERT_TRUE(sameValue(dst[(p * len + i) * m + r], want))
                    << "type " << typeid(E).name() << " rows " << m << " columns " << srcCols << " taps " << taps
                    << " range [" << range.first << ", " << range.second << ") plane " << p << " column " << i
                    << " row " << r;
              }
        }
}

template <class E>
void checkType() {
  std::mt19937_64 rng(sizeof(E) * 131 + std::is_signed_v<E>);
  forEachTarget([&] {
    checkRowColumns<E>(rng);
    checkColumnItems<E>(rng);
    checkNarrowColumns<E>(rng);
  });
}

TEST(ResizeLanesTest, EveryTypeStoresThePlainRuleUnderEveryInstructionSet) {
  checkType<double>();
  checkType<float>();
  checkType<unsigned char>();
  checkType<unsigned short>();
  checkType<unsigned int>();
  checkType<signed char>();
  checkType<short>();
  checkType<int>();
}

}  // namespace
