// The colour quantiser: histogram, prefix sums, greedy box splitting,
// labelling and the box means.  Serial; every call works on its own moment
// tables, so calls on different threads do not interact.

#include "quantize/quantize.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "common/scratch.hpp"
#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"

namespace qz {
namespace {

constexpr std::int32_t kTopCell = kCellSide - 1;  // 32

inline std::size_t at(std::int32_t r, std::int32_t g, std::int32_t b) {
  return static_cast<std::size_t>(cellCode(r, g, b));
}

// The eight-term inclusion-exclusion, evaluated left to right: the order
// fixes the rounding of the float square sums.  The integer tables hold
// non-negative totals of at most 255 per pixel, so no term comes near the
// 64-bit range.
template <class V>
V boxSumOf(ColorBox const& x, V const* t) {
  return t[at(x.r1, x.g1, x.b1)] - t[at(x.r1, x.g1, x.b0)] - t[at(x.r1, x.g0, x.b1)] + t[at(x.r1, x.g0, x.b0)] -
         t[at(x.r0, x.g1, x.b1)] + t[at(x.r0, x.g1, x.b0)] + t[at(x.r0, x.g0, x.b1)] - t[at(x.r0, x.g0, x.b0)];
}

inline std::int32_t volumeOf(ColorBox const& x) { return (x.r1 - x.r0) * (x.g1 - x.g0) * (x.b1 - x.b0); }

// Sum of squared channel sums over the count, in single precision.
inline float separation(std::int64_t r, std::int64_t g, std::int64_t b, std::int64_t w) {
  float const fr = static_cast<float>(r), fg = static_cast<float>(g), fb = static_cast<float>(b);
  return ((fr * fr + fg * fg) + fb * fb) / static_cast<float>(w);
}

[[noreturn]] void badAxis() { ndErrMsgId(ORRERY::images::cq::internalBadDirValue()); }

}  // namespace

void clearMoments(MomentTables& m) {
  std::fill(std::begin(m.weight), std::end(m.weight), 0);
  std::fill(std::begin(m.red), std::end(m.red), 0);
  std::fill(std::begin(m.green), std::end(m.green), 0);
  std::fill(std::begin(m.blue), std::end(m.blue), 0);
  std::fill(std::begin(m.squares), std::end(m.squares), 0.0f);
}

namespace {

// Pixels per histogram chunk: small enough that a chunk's cell codes and
// squares stay in the first-level cache between its two passes.
constexpr std::size_t kHistogramChunk = 2048;

// Pixels per flush of the packed 32-bit sums into the 64-bit tables: a cell's
// channel sum stays below 255 * kFlushPixels < 2^32, so no half of a packed
// word ever carries into the other.
constexpr std::size_t kFlushPixels = 16u << 20;
static_assert(255.0 * kFlushPixels < 4294967296.0, "a packed channel sum could overflow its half");

// Adds the packed sums of both tables into the moment tables and clears
// them.
void flushPacked(MomentTables& m, PackedSums* sums) {
  for (std::size_t c = 0; c < static_cast<std::size_t>(kCellCount); ++c) {
    for (PackedSums* x : {&sums[c], &sums[kCellCount + c]}) {
      m.red[c] += static_cast<std::int64_t>(x->redGreen & 0xffffffffu);
      m.green[c] += static_cast<std::int64_t>(x->redGreen >> 32);
      m.blue[c] += static_cast<std::int64_t>(x->blueCount & 0xffffffffu);
      m.weight[c] += static_cast<std::int64_t>(x->blueCount >> 32);
      *x = PackedSums{0, 0};
    }
  }
}

}  // namespace

// Bound by memory operations: the labels of eight (bytes) or four (16 bits)
// pixels go out through one 64-bit store, from the codes of one or two
// 64-bit loads (the first pixel in the low bits, as little-endian memory
// holds them).  Each group is loaded whole before it is stored, so out may
// be codes itself.
template <class L>
void relabelGroups(std::uint16_t const* codes, std::size_t count, L const* __restrict cellLabel, L* out) {
  std::size_t p = 0;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  constexpr int kPerStore = 8 / sizeof(L);
  for (; p + kPerStore <= count; p += kPerStore) {
    std::uint64_t in[kPerStore / 4], word = 0;
    std::memcpy(in, codes + p, sizeof in);
    for (int i = 0; i < kPerStore; ++i)
      word |= std::uint64_t{cellLabel[(in[i / 4] >> (16 * (i % 4))) & 0xffffu]} << (8 * sizeof(L) * i);
    std::memcpy(out + p, &word, sizeof word);
  }
#endif
  for (; p < count; ++p) out[p] = cellLabel[codes[p]];
}

void relabelPixels(std::uint16_t const* codes, std::size_t count, std::uint16_t const* cellLabel,
                   std::uint16_t* out) {
  relabelGroups(codes, count, cellLabel, out);
}

void relabelPixels(std::uint16_t const* codes, std::size_t count, std::uint8_t const* cellLabel, std::uint8_t* out) {
  relabelGroups(codes, count, cellLabel, out);
}

void buildColorHistogram(MomentTables& m, std::uint8_t const* red, std::uint8_t const* green,
                         std::uint8_t const* blue, std::size_t pixelCount, std::uint16_t* labels) {
  ScratchArray<PackedSums> sums(2 * static_cast<std::size_t>(kCellCount), ScratchFill::Zeroed);
  float squares[kHistogramChunk];
  std::size_t sinceFlush = 0;
  for (std::size_t start = 0; start < pixelCount; start += kHistogramChunk) {
    std::size_t const n = std::min(kHistogramChunk, pixelCount - start);
    std::uint8_t const *r = red + start, *g = green + start, *b = blue + start;
    std::uint16_t* code = labels + start;
    cellCodesAndSquares(r, g, b, n, code, squares);
    addPixelsToCells(code, r, g, b, squares, n, sums.get(), m.squares);
    sinceFlush += n;
    if (sinceFlush + kHistogramChunk > kFlushPixels) {
      flushPacked(m, sums.get());
      sinceFlush = 0;
    }
  }
  flushPacked(m, sums.get());
}

// One cell of one table: the sum along b so far (line), the sum over the
// g-b rectangle so far (area), then the prefix sum over r from the cell
// below.  The tables are independent, so doing them one after another per
// cell keeps each table's order of additions.
template <class V>
void accumulateCell(V* table, std::size_t cell, std::size_t below, V& line, V& area) {
  line += table[cell];
  area += line;
  table[cell] = table[below] + area;
}

void accumulateMoments(MomentTables& m) {
  for (std::int32_t r = 1; r <= kTopCell; ++r) {
    std::int64_t areaW[kCellSide] = {}, areaR[kCellSide] = {}, areaG[kCellSide] = {}, areaB[kCellSide] = {};
    float areaS[kCellSide] = {};
    for (std::int32_t g = 1; g <= kTopCell; ++g) {
      std::int64_t lineW = 0, lineR = 0, lineG = 0, lineB = 0;
      float lineS = 0.0f;
      for (std::int32_t b = 1; b <= kTopCell; ++b) {
        std::size_t const cell = at(r, g, b), below = cell - kCellPlane;
        accumulateCell(m.weight, cell, below, lineW, areaW[b]);
        accumulateCell(m.red, cell, below, lineR, areaR[b]);
        accumulateCell(m.green, cell, below, lineG, areaG[b]);
        accumulateCell(m.blue, cell, below, lineB, areaB[b]);
        accumulateCell(m.squares, cell, below, lineS, areaS[b]);
      }
    }
  }
}

std::int64_t boxSum(ColorBox const& box, std::int64_t const* table) { return boxSumOf(box, table); }
float boxSum(ColorBox const& box, float const* table) { return boxSumOf(box, table); }

std::int64_t boxFixedPart(ColorBox const& x, SplitAxis axis, std::int64_t const* t) {
  switch (axis) {
    case kAxisRed:
      return -t[at(x.r0, x.g1, x.b1)] + t[at(x.r0, x.g1, x.b0)] + t[at(x.r0, x.g0, x.b1)] - t[at(x.r0, x.g0, x.b0)];
    case kAxisGreen:
      return -t[at(x.r1, x.g0, x.b1)] + t[at(x.r1, x.g0, x.b0)] + t[at(x.r0, x.g0, x.b1)] - t[at(x.r0, x.g0, x.b0)];
    case kAxisBlue:
      return -t[at(x.r1, x.g1, x.b0)] + t[at(x.r1, x.g0, x.b0)] + t[at(x.r0, x.g1, x.b0)] - t[at(x.r0, x.g0, x.b0)];
    default: badAxis();
  }
}

std::int64_t boxMovingPart(ColorBox const& x, SplitAxis axis, std::int32_t pos, std::int64_t const* t) {
  switch (axis) {
    case kAxisRed:
      return t[at(pos, x.g1, x.b1)] - t[at(pos, x.g1, x.b0)] - t[at(pos, x.g0, x.b1)] + t[at(pos, x.g0, x.b0)];
    case kAxisGreen:
      return t[at(x.r1, pos, x.b1)] - t[at(x.r1, pos, x.b0)] - t[at(x.r0, pos, x.b1)] + t[at(x.r0, pos, x.b0)];
    case kAxisBlue:
      return t[at(x.r1, x.g1, pos)] - t[at(x.r1, x.g0, pos)] - t[at(x.r0, x.g1, pos)] + t[at(x.r0, x.g0, pos)];
    default: badAxis();
  }
}

float boxVariance(MomentTables const& m, ColorBox const& box) {
  float const dr = static_cast<float>(boxSum(box, m.red));
  float const dg = static_cast<float>(boxSum(box, m.green));
  float const db = static_cast<float>(boxSum(box, m.blue));
  float const xx = boxSum(box, m.squares);
  return std::abs(xx - ((dr * dr + dg * dg) + db * db) / static_cast<float>(boxSum(box, m.weight)));
}

Cut bestCut(MomentTables const& m, ColorBox const& box, SplitAxis axis, std::int32_t first, std::int32_t last,
            std::int64_t wholeR, std::int64_t wholeG, std::int64_t wholeB, std::int64_t wholeW) {
  std::int64_t const baseR = boxFixedPart(box, axis, m.red);
  std::int64_t const baseG = boxFixedPart(box, axis, m.green);
  std::int64_t const baseB = boxFixedPart(box, axis, m.blue);
  std::int64_t const baseW = boxFixedPart(box, axis, m.weight);
  Cut best{0.0f, -1};
  if (first >= last) return best;
  for (std::int32_t pos = first; pos < last; ++pos) {
    std::int64_t const halfR = baseR + boxMovingPart(box, axis, pos, m.red);
    std::int64_t const halfG = baseG + boxMovingPart(box, axis, pos, m.green);
    std::int64_t const halfB = baseB + boxMovingPart(box, axis, pos, m.blue);
    std::int64_t const halfW = baseW + boxMovingPart(box, axis, pos, m.weight);
    // A cut never leaves an empty side.
    if (halfW == 0 || wholeW - halfW == 0) continue;
    float const lower = separation(halfR, halfG, halfB, halfW);
    float const upper = separation(wholeR - halfR, wholeG - halfG, wholeB - halfB, wholeW - halfW);
    float const s = upper + lower;
    if (s > best.score) best = Cut{s, pos};
  }
  return best;
}

bool splitBox(MomentTables const& m, ColorBox& a, ColorBox& b) {
  std::int64_t const wholeR = boxSum(a, m.red), wholeG = boxSum(a, m.green), wholeB = boxSum(a, m.blue),
                     wholeW = boxSum(a, m.weight);
  Cut const red = bestCut(m, a, kAxisRed, a.r0 + 1, a.r1, wholeR, wholeG, wholeB, wholeW);
  Cut const green = bestCut(m, a, kAxisGreen, a.g0 + 1, a.g1, wholeR, wholeG, wholeB, wholeW);
  Cut const blue = bestCut(m, a, kAxisBlue, a.b0 + 1, a.b1, wholeR, wholeG, wholeB, wholeW);

  SplitAxis axis;
  if (red.score >= green.score && red.score >= blue.score) {
    // All three scores 0 lands here; green or blue is only chosen with a
    // positive score, which always comes with a cut.
    if (red.position < 0) return false;
    axis = kAxisRed;
  } else if (green.score >= red.score && green.score >= blue.score) {
    axis = kAxisGreen;
  } else {
    axis = kAxisBlue;
  }

  b.r1 = a.r1;
  b.g1 = a.g1;
  b.b1 = a.b1;
  switch (axis) {
    case kAxisRed:
      b.r0 = a.r1 = red.position;
      b.g0 = a.g0;
      b.b0 = a.b0;
      break;
    case kAxisGreen:
      b.g0 = a.g1 = green.position;
      b.r0 = a.r0;
      b.b0 = a.b0;
      break;
    default:
      b.b0 = a.b1 = blue.position;
      b.r0 = a.r0;
      b.g0 = a.g0;
      break;
  }
  a.volume = volumeOf(a);
  b.volume = volumeOf(b);
  return true;
}

void labelBox(ColorBox const& box, std::uint16_t k, std::uint16_t* cellLabel) {
  for (std::int32_t r = box.r0 + 1; r <= box.r1; ++r)
    for (std::int32_t g = box.g0 + 1; g <= box.g1; ++g)
      for (std::int32_t b = box.b0 + 1; b <= box.b1; ++b) cellLabel[at(r, g, b)] = k;
}

std::size_t quantizeColors(std::uint8_t const* red, std::uint8_t const* green, std::uint8_t const* blue,
                           std::size_t pixelCount, std::uint8_t* outRed, std::uint8_t* outGreen,
                           std::uint8_t* outBlue, std::size_t K, std::uint16_t* labels, bool wantIndex,
                           std::uint16_t* cellLabel) {
  if (!cellLabel) {
    ScratchArray<std::uint16_t> own(kCellCount, ScratchFill::Uninitialised);
    return quantizeColors(red, green, blue, pixelCount, outRed, outGreen, outBlue, K, labels, wantIndex, own.get());
  }
  ScratchArray<ColorBox> boxes(kMaxColors, ScratchFill::Zeroed);
  ScratchArray<float> scores(kMaxColors, ScratchFill::Zeroed);  // score 0: not to be split again
  // The moment tables belong to this call alone, which is what lets cq run
  // on several threads at once.
  ScratchArray<MomentTables> moments(1, ScratchFill::Uninitialised);
  MomentTables& m = moments[0];

  clearMoments(m);
  buildColorHistogram(m, red, green, blue, pixelCount, labels);
  accumulateMoments(m);

  // The whole cube; its volume is never read before the first split sets it.
  boxes[0].r0 = 0;
  boxes[0].r1 = kTopCell;
  boxes[0].g0 = 0;
  boxes[0].g1 = kTopCell;
  boxes[0].b0 = 0;
  boxes[0].b1 = kTopCell;

  std::size_t colors = K;
  if (K >= 2) {
    // i is both the slot of the next box and the number of boxes; a failed
    // split leaves it alone so the next success fills the same slot.
    std::size_t next = 0, i = 1;
    for (;;) {
      std::size_t last;
      if (splitBox(m, boxes[next], boxes[i])) {
        scores[next] = boxes[next].volume > 1 ? boxVariance(m, boxes[next]) : 0.0f;
        scores[i] = boxes[i].volume > 1 ? boxVariance(m, boxes[i]) : 0.0f;
        last = i;
        ++i;
      } else {
        scores[next] = 0.0f;
        last = i - 1;
      }
      // Strictly greater: equal scores keep the lowest box index.
      next = 0;
      float best = scores[0];
      for (std::size_t k = 1; k <= last; ++k) {
        if (scores[k] > best) {
          best = scores[k];
          next = k;
        }
      }
      if (best <= 0.0f) {
        colors = i;
        break;
      }
      if (i >= K) {
        colors = K;
        break;
      }
    }
  }

  // Without colours no cell is labelled; give the wanted index a defined
  // value rather than whatever the allocator returned.
  if (colors == 0) std::fill(cellLabel, cellLabel + kCellCount, std::uint16_t{0});

  for (std::size_t k = 0; k < colors; ++k) {
    ColorBox const& box = boxes[k];
    labelBox(box, static_cast<std::uint16_t>(k), cellLabel);
    std::int64_t const w = boxSum(box, m.weight);
    if (w != 0) {
      // Non-negative sums: the truncating division is the floor of the mean.
      outRed[k] = static_cast<std::uint8_t>(boxSum(box, m.red) / w);
      outGreen[k] = static_cast<std::uint8_t>(boxSum(box, m.green) / w);
      outBlue[k] = static_cast<std::uint8_t>(boxSum(box, m.blue) / w);
    } else {
      outRed[k] = outGreen[k] = outBlue[k] = 0;  // only an empty image has an empty box here
    }
  }

  // The label buffer holds cell codes; turn them into colour indices in place.
  if (wantIndex) relabelPixels(labels, pixelCount, cellLabel, labels);

  return colors;
}

}  // namespace qz
