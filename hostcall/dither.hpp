#pragma once
// Mapping an image onto a colour map (such as the one cq returns) with
// Floyd-Steinberg error diffusion, done by the host after the built-in.  The
// built-in's own index image gives each pixel the mean colour of its box;
// dithering instead picks, pixel by pixel, the map colour nearest to the
// pixel plus the error its neighbours left, and passes its own error on.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qzcall {

// The index of the map colour nearest to (r, g, b) in squared Euclidean
// distance, the lowest index among equally near colours.  The map is
// K-by-3 column-major (red at map[i], green at map[k + i], blue at
// map[2k + i]), K >= 1.
std::size_t nearestColourPlain(std::uint8_t const* map, std::size_t k, int r, int g, int b);

// The same answer, fast for repeated queries: the RGB cube is cut into
// 8x8x8 cells, and the first query in a cell lists the colours that can be
// nearest to some point of it (those whose distance to the cell is at most
// the smallest largest-distance of any colour); later queries there scan
// only that list, in index order.  Not for concurrent use.
class NearestColour {
 public:
  NearestColour(std::uint8_t const* map, std::size_t k);
  std::size_t operator()(int r, int g, int b);

  // How much the queries so far have cost: cells listed, and colours on
  // their lists (a query scans one list).
  std::size_t cellsFilled() const { return cellsFilled_; }
  std::size_t coloursListed() const { return candidates_.size(); }

 private:
  static constexpr int kCellBits = 3;  // cells of 8 levels per channel
  static constexpr int kCellsPerAxis = 256 >> kCellBits;
  void fillCell(std::size_t cell, int r0, int g0, int b0);

  std::vector<std::int32_t> colours_;          // K x 3, interleaved
  std::vector<std::uint32_t> cellFirst_;       // per cell: first candidate, or kUnfilled
  std::vector<std::uint32_t> cellCount_;
  std::vector<std::uint16_t> candidates_;      // the cells' lists, one after another
  std::size_t cellsFilled_ = 0;
  static constexpr std::uint32_t kUnfilled = 0xFFFFFFFFu;
};

// Floyd-Steinberg dithering of an M-by-N-by-3 uint8 image onto a K-by-3
// uint8 map (1 <= K <= 65536).  Rows are visited top to bottom, each left to
// right.  Each channel of a pixel becomes its value plus the error passed to
// it, in sixteenths, rounded to nearest (halves up) and clamped to 0..255;
// the nearest map colour is chosen for that, and the difference (clamped
// value minus colour) goes 7/16 to the right, 3/16 below left, 5/16 below
// and 1/16 below right, in whole sixteenths so that nothing is lost to
// rounding along the way.  The result is the M-by-N 0-based index image,
// uint8 for K <= 256 and uint16 above, as cq returns it.  Throws
// std::invalid_argument for any other input.
qzhost::ArrayPtr ditherToMap(ndArray_tag const* image, ndArray_tag const* map);

}  // namespace qzcall
