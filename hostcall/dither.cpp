#include "dither.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace qzcall {
namespace {

inline int squared(int v) { return v * v; }

// Distance from v to the levels lo..hi of a cell along one channel: the
// nearest and the farthest.
inline int nearGap(int v, int lo, int hi) { return v < lo ? lo - v : v > hi ? v - hi : 0; }
inline int farGap(int v, int lo, int hi) { return std::max(v - lo, hi - v); }

// a/16 rounded to nearest, halves up, for either sign (floor of (a + 8)/16;
// C++ division truncates toward zero).
inline int roundSixteenths(int a) {
  int n = a + 8;
  int q = n / 16;
  return n % 16 < 0 ? q - 1 : q;
}

}  // namespace

std::size_t nearestColourPlain(std::uint8_t const* map, std::size_t k, int r, int g, int b) {
  std::size_t best = 0;
  int bestDistance = std::numeric_limits<int>::max();
  for (std::size_t i = 0; i < k; ++i) {
    int d = squared(r - map[i]) + squared(g - map[k + i]) + squared(b - map[2 * k + i]);
    if (d < bestDistance) bestDistance = d, best = i;
  }
  return best;
}

NearestColour::NearestColour(std::uint8_t const* map, std::size_t k)
    : colours_(3 * k), cellFirst_(std::size_t{1} << (3 * (8 - kCellBits)), kUnfilled),
      cellCount_(cellFirst_.size(), 0) {
  for (std::size_t i = 0; i < k; ++i)
    for (std::size_t c = 0; c < 3; ++c) colours_[3 * i + c] = map[c * k + i];
}

void NearestColour::fillCell(std::size_t cell, int r0, int g0, int b0) {
  int const lo[3] = {r0, g0, b0}, hi[3] = {r0 + (1 << kCellBits) - 1, g0 + (1 << kCellBits) - 1,
                                           b0 + (1 << kCellBits) - 1};
  std::size_t const k = colours_.size() / 3;
  // Any point of the cell is within `bound` of some colour, so its nearest
  // colour, and every colour as near, is at most `bound` from the cell.
  int bound = std::numeric_limits<int>::max();
  for (std::size_t i = 0; i < k; ++i) {
    int far = 0;
    for (int c = 0; c < 3; ++c) far += squared(farGap(colours_[3 * i + c], lo[c], hi[c]));
    bound = std::min(bound, far);
  }
  ++cellsFilled_;
  cellFirst_[cell] = static_cast<std::uint32_t>(candidates_.size());
  for (std::size_t i = 0; i < k; ++i) {
    int near = 0;
    for (int c = 0; c < 3; ++c) near += squared(nearGap(colours_[3 * i + c], lo[c], hi[c]));
    if (near <= bound) candidates_.push_back(static_cast<std::uint16_t>(i));
  }
  cellCount_[cell] = static_cast<std::uint32_t>(candidates_.size() - cellFirst_[cell]);
}

std::size_t NearestColour::operator()(int r, int g, int b) {
  std::size_t const cell =
      (static_cast<std::size_t>(r >> kCellBits) * kCellsPerAxis + static_cast<std::size_t>(g >> kCellBits)) *
          kCellsPerAxis +
      static_cast<std::size_t>(b >> kCellBits);
  if (cellFirst_[cell] == kUnfilled)
    fillCell(cell, r >> kCellBits << kCellBits, g >> kCellBits << kCellBits, b >> kCellBits << kCellBits);
  std::uint16_t const* list = candidates_.data() + cellFirst_[cell];
  std::size_t best = list[0];
  int bestDistance = std::numeric_limits<int>::max();
  for (std::uint32_t j = 0; j < cellCount_[cell]; ++j) {
    std::int32_t const* c = &colours_[3 * std::size_t{list[j]}];
    int d = squared(r - c[0]) + squared(g - c[1]) + squared(b - c[2]);
    if (d < bestDistance) bestDistance = d, best = list[j];
  }
  return best;
}

qzhost::ArrayPtr ditherToMap(ndArray_tag const* image, ndArray_tag const* map) {
  auto d = qzhost::dimsOf(image);
  auto md = qzhost::dimsOf(map);
  if (ndGetClassID(image) != ndclass::UInt8 || ndIsComplex(image) || d.size() != 3 || d[2] != 3)
    throw std::invalid_argument("dithering takes a real uint8 M-by-N-by-3 image");
  if (ndGetClassID(map) != ndclass::UInt8 || ndIsComplex(map) || md.size() != 2 || md[1] != 3 || md[0] == 0 ||
      md[0] > 65536)
    throw std::invalid_argument("dithering takes a real uint8 K-by-3 colour map of 1 to 65536 colours");
  std::size_t const m = d[0], n = d[1], k = md[0], plane = m * n;
  bool const narrow = k <= 256;
  qzhost::ArrayPtr out = qzhost::makeArray(narrow ? ndclass::UInt8 : ndclass::UInt16, {m, n});
  auto const* src = qzhost::dataOf<std::uint8_t>(image);
  auto const* colours = qzhost::dataOf<std::uint8_t>(map);
  auto* out8 = narrow ? qzhost::dataOf<std::uint8_t>(out.get()) : nullptr;
  auto* out16 = narrow ? nullptr : qzhost::dataOf<std::uint16_t>(out.get());
  NearestColour nearest(colours, k);

  // Errors owed to this row and the next, in sixteenths, per channel, with
  // a spare pixel at either end so that the edges need no test.
  std::vector<int> here(3 * (n + 2)), below(3 * (n + 2));
  for (std::size_t y = 0; y < m; ++y) {
    for (std::size_t x = 0; x < n; ++x) {
      std::size_t const p = x * m + y;
      int target[3];
      for (std::size_t c = 0; c < 3; ++c)
        target[c] = std::clamp(src[c * plane + p] + roundSixteenths(here[3 * (x + 1) + c]), 0, 255);
      std::size_t const i = nearest(target[0], target[1], target[2]);
      if (narrow)
        out8[p] = static_cast<std::uint8_t>(i);
      else
        out16[p] = static_cast<std::uint16_t>(i);
      for (std::size_t c = 0; c < 3; ++c) {
        int const e = target[c] - colours[c * k + i];
        here[3 * (x + 2) + c] += 7 * e;
        below[3 * x + c] += 3 * e;
        below[3 * (x + 1) + c] += 5 * e;
        below[3 * (x + 2) + c] += e;
      }
    }
    here.swap(below);
    std::fill(below.begin(), below.end(), 0);
  }
  return out;
}

}  // namespace qzcall
