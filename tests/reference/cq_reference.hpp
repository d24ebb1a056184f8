#pragma once
// A plain colour quantiser, written from the rules with no cumulative moment
// tables: the statistics of a box come from scanning a per-cell histogram,
// exactly, in 64-bit integers.  Only the square sums follow the library's
// single-precision path, because the box scores depend on their rounding:
// each cell's float sum is accumulated in pixel order, the running float
// totals are formed over the cube in the same recurrence, and the box's
// float square sum is read back with the same eight terms.  When the image's
// total square sum is below 2^23 every one of those float values is an exact
// integer, and the scores are then fixed by the exact statistics alone.
//
// Boxes are half-open ranges [lo, hi) of 0-based cell indices 0..31, which
// are the library's (lo, hi] in its 1-based cell coordinates.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qzref {

struct CellStats {
  std::int64_t count = 0, red = 0, green = 0, blue = 0;
};

struct Box {
  int lo[3], hi[3];  // red, green, blue
};

inline int cellIndex(std::uint8_t v) { return v / 8; }

// The exact statistics of every cell, and the square sums as the
// single-precision running totals give them.
struct Histogram {
  std::vector<CellStats> cells = std::vector<CellStats>(32 * 32 * 32);
  // total[r][g][b] over 1-based coordinates (0 is the empty border): the
  // float sum of all cells r' <= r, g' <= g, b' <= b, built layer by layer
  // from running totals along blue and then over green.
  std::vector<std::vector<std::vector<float>>> total;

  Histogram(std::uint8_t const* planar, std::size_t pixels) {
    std::vector<float> floatCells(32 * 32 * 32, 0.0f);
    for (std::size_t p = 0; p < pixels; ++p) {
      std::uint8_t r = planar[p], g = planar[pixels + p], b = planar[2 * pixels + p];
      std::size_t const i = (cellIndex(r) * 32 + cellIndex(g)) * 32 + cellIndex(b);
      CellStats& c = cells[i];
      c.count += 1, c.red += r, c.green += g, c.blue += b;
      floatCells[i] += float(std::uint32_t(r) * r + std::uint32_t(g) * g + std::uint32_t(b) * b);
    }
    total.assign(33, std::vector<std::vector<float>>(33, std::vector<float>(33, 0.0f)));
    for (int r = 1; r <= 32; ++r) {
      std::vector<float> area(33, 0.0f);
      for (int g = 1; g <= 32; ++g) {
        float line = 0.0f;
        for (int b = 1; b <= 32; ++b) {
          line = line + floatCells[((r - 1) * 32 + (g - 1)) * 32 + (b - 1)];
          area[b] = area[b] + line;
          total[r][g][b] = total[r - 1][g][b] + area[b];
        }
      }
    }
  }

  // Exact statistics of a box, by visiting every cell in it.
  CellStats stats(Box const& x) const {
    CellStats s;
    for (int r = x.lo[0]; r < x.hi[0]; ++r)
      for (int g = x.lo[1]; g < x.hi[1]; ++g)
        for (int b = x.lo[2]; b < x.hi[2]; ++b) {
          CellStats const& c = cells[(r * 32 + g) * 32 + b];
          s.count += c.count, s.red += c.red, s.green += c.green, s.blue += c.blue;
        }
    return s;
  }

  // The box's square sum as the single-precision running totals give it.
  float floatSquares(Box const& x) const {
    auto T = [&](int r, int g, int b) { return total[r][g][b]; };
    int r0 = x.lo[0], r1 = x.hi[0], g0 = x.lo[1], g1 = x.hi[1], b0 = x.lo[2], b1 = x.hi[2];
    return T(r1, g1, b1) - T(r1, g1, b0) - T(r1, g0, b1) + T(r1, g0, b0) - T(r0, g1, b1) + T(r0, g1, b0) +
           T(r0, g0, b1) - T(r0, g0, b0);
  }
};

inline float squaredMeans(std::int64_t r, std::int64_t g, std::int64_t b, std::int64_t w) {
  float fr = float(r), fg = float(g), fb = float(b);
  float sum = fr * fr + fg * fg;
  sum = sum + fb * fb;
  return sum / float(w);
}

inline float variance(Histogram const& h, Box const& x) {
  CellStats s = h.stats(x);
  float d = h.floatSquares(x) - squaredMeans(s.red, s.green, s.blue, s.count);
  return d < 0 ? -d : d;
}

inline int volume(Box const& x) { return (x.hi[0] - x.lo[0]) * (x.hi[1] - x.lo[1]) * (x.hi[2] - x.lo[2]); }

struct BestCut {
  float score = 0;
  int position = -1;  // the first cell index of the upper part, or -1
};

// Best plane along axis a (0 red, 1 green, 2 blue): the lower part is
// [lo, pos), the upper part [pos, hi).
inline BestCut bestCut(Histogram const& h, Box const& x, int a) {
  CellStats whole = h.stats(x);
  BestCut best;
  for (int pos = x.lo[a] + 1; pos < x.hi[a]; ++pos) {
    Box lower = x;
    lower.hi[a] = pos;
    CellStats low = h.stats(lower);
    std::int64_t highCount = whole.count - low.count;
    if (low.count == 0 || highCount == 0) continue;
    float s = squaredMeans(whole.red - low.red, whole.green - low.green, whole.blue - low.blue, highCount) +
              squaredMeans(low.red, low.green, low.blue, low.count);
    if (s > best.score) best = {s, pos};
  }
  return best;
}

struct Result {
  std::vector<std::array<std::uint8_t, 3>> colors;
  std::vector<std::uint16_t> labels;  // one per pixel
};

// K >= 1.
inline Result quantize(std::vector<std::uint8_t> const& planar, std::size_t pixels, std::size_t K) {
  Histogram h(planar.data(), pixels);
  std::vector<Box> boxes{Box{{0, 0, 0}, {32, 32, 32}}};
  std::vector<float> scores{0.0f};

  while (K >= 2) {
    // Split the box with the highest score, the lowest index on a tie; the
    // first round takes the whole cube.
    std::size_t next = 0;
    for (std::size_t k = 1; k < boxes.size(); ++k)
      if (scores[k] > scores[next]) next = k;

    Box& a = boxes[next];
    BestCut cuts[3] = {bestCut(h, a, 0), bestCut(h, a, 1), bestCut(h, a, 2)};
    int axis = 0;  // red unless green or blue is strictly better
    if (cuts[1].score > cuts[0].score && cuts[1].score >= cuts[2].score) axis = 1;
    if (cuts[2].score > cuts[0].score && cuts[2].score > cuts[1].score) axis = 2;
    if (cuts[axis].position < 0) {
      scores[next] = 0;
    } else {
      Box upper = a;
      upper.lo[axis] = cuts[axis].position;
      a.hi[axis] = cuts[axis].position;
      scores[next] = volume(a) > 1 ? variance(h, a) : 0.0f;
      boxes.push_back(upper);
      scores.push_back(volume(upper) > 1 ? variance(h, upper) : 0.0f);
    }

    // Stop when no box is worth splitting or there are enough.
    float best = 0;
    for (float s : scores) best = s > best ? s : best;
    if (!(best > 0)) break;
    if (boxes.size() >= K) break;
  }

  Result out;
  for (Box const& x : boxes) {
    CellStats s = h.stats(x);
    if (s.count == 0)
      out.colors.push_back({0, 0, 0});
    else
      out.colors.push_back({std::uint8_t(s.red / s.count), std::uint8_t(s.green / s.count),
                            std::uint8_t(s.blue / s.count)});
  }
  // Each pixel takes the box its cell lies in.
  out.labels.resize(pixels);
  for (std::size_t p = 0; p < pixels; ++p) {
    int c[3] = {cellIndex(planar[p]), cellIndex(planar[pixels + p]), cellIndex(planar[2 * pixels + p])};
    for (std::size_t k = 0; k < boxes.size(); ++k) {
      Box const& x = boxes[k];
      if (c[0] >= x.lo[0] && c[0] < x.hi[0] && c[1] >= x.lo[1] && c[1] < x.hi[1] && c[2] >= x.lo[2] &&
          c[2] < x.hi[2]) {
        out.labels[p] = std::uint16_t(k);
        break;
      }
    }
  }
  return out;
}

}  // namespace qzref
