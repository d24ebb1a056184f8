#pragma once
// Variance-based colour quantisation by greedy box splitting.
//
// Pixels are binned by the top five bits of each channel into a 32x32x32
// cube of cells.  Cumulative moment tables over the cube give the count,
// channel sums and square sum of any axis-aligned box of cells in eight
// lookups.  The cube is cut repeatedly: the box with the largest variance is
// split on the axis and plane that separate its two parts best, until K boxes
// exist or nothing is left worth splitting.  A pixel's colour is the
// truncated mean of the box its cell lies in.
//
// The internal operations are declared here; the tests hold the histogram
// passes and boxVariance against brute-force statistics, and the cuts and
// splits through whole runs against a reference quantiser.  The gateway uses
// quantizeColors and relabelPixels.

#include <cstddef>
#include <cstdint>

namespace qz {

// Cell coordinates run 0..32 on each axis; coordinate 0 is an all-zero
// border so that box sums need no special cases at the low edge.
inline constexpr int kCellSide = 33;
inline constexpr int kCellPlane = kCellSide * kCellSide;            // 1089
inline constexpr int kCellCount = kCellSide * kCellSide * kCellSide;  // 35937

// Room for boxes: the largest count a caller may ask for.
inline constexpr std::size_t kMaxColors = 65536;

inline constexpr int cellCode(int r, int g, int b) { return r * kCellPlane + g * kCellSide + b; }

// The cell coordinate of an 8-bit channel value.
inline constexpr int cellOf(std::uint8_t v) { return (v >> 3) + 1; }

// A pixel's cell code; the largest, 35936, fits 16 bits.
inline constexpr std::uint16_t pixelCellCode(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  return static_cast<std::uint16_t>(cellCode(cellOf(r), cellOf(g), cellOf(b)));
}

// R^2 + G^2 + B^2 added as integers (at most 195075) and converted to float,
// which holds it exactly.
inline float pixelSquareSum(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  return static_cast<float>(static_cast<std::int32_t>(unsigned{r} * r + unsigned{g} * g + unsigned{b} * b));
}

// pixelCellCode and pixelSquareSum of count planar pixels, in vector lanes
// of the best instruction set the processor has.
void cellCodesAndSquares(std::uint8_t const* red, std::uint8_t const* green, std::uint8_t const* blue,
                         std::size_t count, std::uint16_t* codes, float* squares);

// A cell's channel sums while the histogram is built, 32 bits each: red and
// green in one word, blue and the pixel count in the other.
struct PackedSums {
  std::uint64_t redGreen;   // red sum | green sum << 32
  std::uint64_t blueCount;  // blue sum | pixel count << 32
};

// Adds count pixels, given by their cell codes, channel values and square
// sums, into the cells: each square sum into squareSums[code], cell by cell
// in pixel order, and the channel sums of the even pixels into sums[code],
// of the odd ones into sums[kCellCount + code] (the portable fallback puts
// all into the first table).  squareSums[0] must be 0.
void addPixelsToCells(std::uint16_t const* codes, std::uint8_t const* red, std::uint8_t const* green,
                      std::uint8_t const* blue, float const* squares, std::size_t count, PackedSums* sums,
                      float* squareSums);

// Per-cell statistics, turned in place into three-dimensional prefix sums.
// Counts and channel sums are exact; the square sums are single precision,
// accumulated in pixel order, and every box score built from them depends on
// that rounding.
struct MomentTables {
  std::int64_t weight[kCellCount];
  std::int64_t red[kCellCount];
  std::int64_t green[kCellCount];
  std::int64_t blue[kCellCount];
  float squares[kCellCount];
};

// The cells r0 < r <= r1, g0 < g <= g1, b0 < b <= b1.  volume is the number
// of cells, set whenever a split changes the bounds.
struct ColorBox {
  std::int32_t r0, r1, g0, g1, b0, b1, volume;
};

// Axis codes of a cut.
using SplitAxis = std::uint8_t;
inline constexpr SplitAxis kAxisBlue = 0;
inline constexpr SplitAxis kAxisGreen = 1;
inline constexpr SplitAxis kAxisRed = 2;

void clearMoments(MomentTables& m);

// Bins every pixel and leaves its cell code in labels[p].
void buildColorHistogram(MomentTables& m, std::uint8_t const* red, std::uint8_t const* green,
                         std::uint8_t const* blue, std::size_t pixelCount, std::uint16_t* labels);

// Per-cell sums to prefix sums over r' <= r, g' <= g, b' <= b.
void accumulateMoments(MomentTables& m);

std::int64_t boxSum(ColorBox const& box, std::int64_t const* table);
float boxSum(ColorBox const& box, float const* table);

// The terms of boxSum that do not depend on the box's upper bound along the
// axis; fixed part plus moving part at pos is the sum over the cells of the
// box up to and including pos on that axis.  Both raise
// "internalBadDirValue" for an axis code other than 0, 1 or 2.
std::int64_t boxFixedPart(ColorBox const& box, SplitAxis axis, std::int64_t const* table);
std::int64_t boxMovingPart(ColorBox const& box, SplitAxis axis, std::int32_t pos, std::int64_t const* table);

// The box's summed squared deviation from its mean, in single precision and
// taken as an absolute value: rounding in the square-sum tables can make it
// come out slightly negative, and such a box must stay eligible for
// splitting.
float boxVariance(MomentTables const& m, ColorBox const& box);

struct Cut {
  float score;             // 0 when no plane leaves both sides occupied
  std::int32_t position;   // last cell of the lower part, or -1
};

// The plane first <= pos < last along the axis that maximises the summed
// squared means of the two parts; the lowest position wins a tie.
Cut bestCut(MomentTables const& m, ColorBox const& box, SplitAxis axis, std::int32_t first, std::int32_t last,
            std::int64_t wholeR, std::int64_t wholeG, std::int64_t wholeB, std::int64_t wholeW);

// Cuts a in two, keeping the lower part in a and putting the upper part in
// b.  False, with both untouched, when no cut separates occupied cells.
bool splitBox(MomentTables const& m, ColorBox& a, ColorBox& b);

void labelBox(ColorBox const& box, std::uint16_t k, std::uint16_t* cellLabel);

// Reduces the planar image to at most K colours (K <= kMaxColors) and returns
// how many it produced, K'.  Entries 0..K'-1 of outRed, outGreen and outBlue
// receive the colour map.  labels has pixelCount entries: with wantIndex and
// K >= 1 it ends up holding each pixel's 0-based colour index; without
// wantIndex it holds cell codes.  With K = 0 the map is empty and every
// wanted index is 0.  A caller that writes the index image itself passes
// cellLabel (kCellCount entries) to receive each cell's colour index.
std::size_t quantizeColors(std::uint8_t const* red, std::uint8_t const* green, std::uint8_t const* blue,
                           std::size_t pixelCount, std::uint8_t* outRed, std::uint8_t* outGreen,
                           std::uint8_t* outBlue, std::size_t K, std::uint16_t* labels, bool wantIndex,
                           std::uint16_t* cellLabel = nullptr);

// The index image from the cell codes: out[p] = cellLabel[codes[p]], in 16
// bits or, when every colour index fits, in bytes.  out may be codes itself.
void relabelPixels(std::uint16_t const* codes, std::size_t count, std::uint16_t const* cellLabel,
                   std::uint16_t* out);
void relabelPixels(std::uint16_t const* codes, std::size_t count, std::uint8_t const* cellLabel, std::uint8_t* out);

}  // namespace qz
