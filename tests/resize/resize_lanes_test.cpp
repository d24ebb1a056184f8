// The resampling kernels' vector paths against the plain rule, under every
// instruction set compiled in: every element type, weights with NaN,
// infinities and sums far past the type's range, no taps, short and odd
// lengths, complex parts (stride 2), and runs that start and end off vector
// boundaries.  Outputs start as a sentinel, so a write outside the range
// shows.

#include "resize/resize_lanes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "builtin_args.hpp"
#include "reference/resize_reference.hpp"
#include "targets.hpp"

namespace {

using Range = std::pair<std::size_t, std::size_t>;

std::vector<std::size_t> offsets(std::mt19937_64& rng, std::size_t n, std::size_t count, std::size_t step) {
  std::vector<std::size_t> o(n);
  for (auto& x : o) x = (rng() % count) * step;
  return o;
}

template <class E>
E plain(E const* src, double const* w, std::size_t const* o, std::size_t scale, std::size_t taps) {
  double acc = 0.0;
  for (std::size_t k = 0; k < taps; ++k) acc = acc + static_cast<double>(src[o[k] * scale]) * w[k];
  return qzref::resizeValue<E>(acc);
}

// Every element of `out` is want(e) where inside(e), else still the sentinel.
template <class E, class In, class Want>
void expectOnly(std::vector<E> const& out, In inside, Want want) {
  for (std::size_t e = 0; e < out.size(); ++e)
    ASSERT_TRUE(qztest::sameValue(out[e], inside(e) ? want(e) : E(77))) << "element " << e;
}

// No taps, one, an odd count, bicubic's four (the common enlargement, which
// a kernel may well specialise), a vector's worth and more.
constexpr std::size_t kTaps[] = {0, 1, 3, 4, 8, 17};

template <class E>
void checkType() {
  std::mt19937_64 rng(sizeof(E) * 131 + std::is_signed_v<E>);
  qztest::forEachTarget([&] {
    // One output column down its rows, starting on and off vector boundaries.
    for (std::size_t scale : {1, 2})
      for (std::size_t rows : {1, 3, 7, 8, 17, 31, 33, 70})
        for (std::size_t taps : kTaps)
          for (std::size_t start : {0, 1, 5}) {
            SCOPED_TRACE(testing::Message() << "column: scale " << scale << " rows " << rows << " taps " << taps);
            std::size_t const m = start + rows, cols = 9;
            auto const src = qztest::randomSamples<E>(rng, scale * m * cols);
            auto const w = qztest::randomWeights(rng, taps);
            auto const o = offsets(rng, taps, cols, m);
            std::vector<E> out(scale * rows + 2, E(77));
            qz::resizeRowColumn<E>(src.data(), scale * start, w.data(), o.data(), scale, taps, out.data() + 1,
                                   scale * rows);
            expectOnly(
                out, [&](std::size_t e) { return e > 0 && e <= scale * rows; },
                [&](std::size_t e) {
                  return plain(src.data() + scale * start + e - 1, w.data(), o.data(), scale, taps);
                });
          }
    // Column items, a tile at a time; the last random shape's taps spread
    // over more rows than a window holds.  Enlargements (each output's taps
    // within `near` rows of its place, some at the last rows) take the
    // lane-permuting form instead, from one vector or from a pair.
    using Shape = std::tuple<std::size_t, std::size_t, std::size_t>;  // rows, length, near (0: anywhere)
    for (auto [m, len, near] : {Shape{5, 7, 0}, {12, 8, 0}, {40, 17, 0}, {3000, 9, 0}, {12, 30, 4}, {8, 21, 4},
                                {40, 100, 10}})
      for (std::size_t taps : kTaps)
        for (auto [first, last] : {Range{0, 21}, {3, 14}, {5, 5}, {1, 2}}) {
          SCOPED_TRACE(testing::Message()
                       << "items: rows " << m << " len " << len << " taps " << taps << " from " << first);
          auto const src = qztest::randomSamples<E>(rng, m * 21);
          auto const w = qztest::randomWeights(rng, taps * len);
          auto o = offsets(rng, taps * len, m, 1);
          for (std::size_t e = 0; near && e < o.size(); ++e) o[e] = std::min(m - 1, e / taps * m / len + rng() % near);
          std::vector<E> dst(len * 21, E(77));
          qz::resizeColumnItems<E>(src.data(), dst.data(), w.data(), o.data(), m, len, taps, first, last);
          expectOnly(
              dst, [&](std::size_t e) { return e / len >= first && e / len < last; },
              [&](std::size_t e) {
                return plain(src.data() + e / len * m, w.data() + e % len * taps, o.data() + e % len * taps, 1, taps);
              });
        }
    // Short columns (a pixel's channels), a tile of planes at a time: runs
    // off vector boundaries, and taps spread wider than a window (the plain
    // rule's turn); an enlargement's near taps take the lane-permuting form.
    for (std::size_t m : {1, 2, 3, 7})
      for (auto [srcCols, near] : {std::pair<std::size_t, bool>{5, false}, {3000, false}, {9, true}})
        for (std::size_t taps : {0, 1, 3, 4, 8, 17, 40})
          for (auto [first, last] : {Range{0, 17}, {3, 12}, {8, 8}, {1, 2}}) {
            SCOPED_TRACE(testing::Message()
                         << "narrow: rows " << m << " columns " << srcCols << " taps " << taps << " from " << first);
            std::size_t const planes = 13, len = 17;  // tiles of eight and of four planes, and one more
            auto const src = qztest::randomSamples<E>(rng, m * srcCols * planes);
            auto const w = qztest::randomWeights(rng, taps * len);
            auto o = offsets(rng, taps * len, srcCols, m);
            for (std::size_t e = 0; near && e < o.size(); ++e)
              o[e] = std::min(srcCols - 1, e / taps * srcCols / len + rng() % 3) * m;
            std::vector<E> dst(m * len * planes, E(77));
            qz::resizeRowColumnsNarrow<E>(src.data(), dst.data(), w.data(), o.data(), m, srcCols, len, taps, planes,
                                          first, last);
            auto column = [&](std::size_t e) { return e / m % len; };
            expectOnly(
                dst, [&](std::size_t e) { return column(e) >= first && column(e) < last; },
                [&](std::size_t e) {
                  std::size_t const plane = e / (m * len), row = e % m;
                  return plain(src.data() + plane * m * srcCols + row, w.data() + column(e) * taps,
                               o.data() + column(e) * taps, 1, taps);
                });
          }
  });
}

TEST(ResizeLanesTest, EveryTypeStoresThePlainRuleUnderEveryInstructionSet) {
  checkType<double>(), checkType<float>(), checkType<unsigned char>(), checkType<unsigned short>();
  checkType<unsigned int>(), checkType<signed char>(), checkType<short>(), checkType<int>();
}

}  // namespace
