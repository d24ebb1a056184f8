// The histogram pass, one copy per instruction set, chosen at run time.
//
// Each pixel's cell code and the sum of its three squared channel values
// come from vector lanes.  Both are exact integer arithmetic (the square sum
// is at most 195075, which a float holds exactly), so lanes and the plain
// rule agree bit for bit.
//
// Adding the pixels into their cells is a chain: neighbouring pixels often
// share a cell, and each cell's float square sum must round once per pixel,
// in pixel order.  Through memory every link of that chain costs a store, a
// forwarded load and an add.  The x86 copies keep the running square sum of
// the current cell in a register instead: a pixel in the same cell as the
// one before adds to it, any other starts from the table.  A mask, not a
// branch, makes that choice (runs are a few pixels long, and a branch would
// mispredict), and the exact identities x + 0 = x and (+0) + x = x for the
// non-negative sums keep the bits of the plain rule.  The channel sums are
// exact integers, so their order is free: even and odd pixels go to two
// tables, and two neighbours in one cell no longer wait for each other.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "quantize/histogram_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"

#include "quantize/quantize.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void CellCodesAndSquares(std::uint8_t const* HWY_RESTRICT red, std::uint8_t const* HWY_RESTRICT green,
                         std::uint8_t const* HWY_RESTRICT blue, std::size_t count, std::uint16_t* HWY_RESTRICT codes,
                         float* HWY_RESTRICT squares) {
  hn::ScalableTag<std::int32_t> const di;
  hn::Rebind<std::uint8_t, decltype(di)> const d8;
  hn::Rebind<std::uint16_t, decltype(di)> const d16;
  hn::Rebind<float, decltype(di)> const df;
  std::size_t const lanes = hn::Lanes(di);
  auto const one = hn::Set(di, 1), plane = hn::Set(di, kCellPlane), side = hn::Set(di, kCellSide);
  std::size_t p = 0;
  for (; p + lanes <= count; p += lanes) {
    auto const r = hn::PromoteTo(di, hn::LoadU(d8, red + p));
    auto const g = hn::PromoteTo(di, hn::LoadU(d8, green + p));
    auto const b = hn::PromoteTo(di, hn::LoadU(d8, blue + p));
    auto const code = hn::Add(hn::Add(hn::Mul(hn::Add(hn::ShiftRight<3>(r), one), plane),
                                      hn::Mul(hn::Add(hn::ShiftRight<3>(g), one), side)),
                              hn::Add(hn::ShiftRight<3>(b), one));
    hn::StoreU(hn::DemoteTo(d16, code), d16, codes + p);  // at most 35936: no lane saturates
    auto const sum = hn::Add(hn::Add(hn::Mul(r, r), hn::Mul(g, g)), hn::Mul(b, b));
    hn::StoreU(hn::ConvertTo(df, sum), df, squares + p);
  }
  for (; p < count; ++p) {
    codes[p] = pixelCellCode(red[p], green[p], blue[p]);
    squares[p] = pixelSquareSum(red[p], green[p], blue[p]);
  }
}

HWY_INLINE void AddChannels(PackedSums& cell, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  std::uint64_t redGreen = r | std::uint64_t{g} << 32, blueCount = b | std::uint64_t{1} << 32;
#if HWY_COMPILER_GCC
  // Two plain adds: left alone, the compiler pairs them in a vector that it
  // assembles through the stack, and every pixel then stalls on a load
  // that cannot take its data from the narrower stores just before it.
  asm("" : "+r"(redGreen), "+r"(blueCount));
#endif
  cell.redGreen += redGreen;
  cell.blueCount += blueCount;
}

void AddPixelsToCells(std::uint16_t const* HWY_RESTRICT codes, std::uint8_t const* HWY_RESTRICT red,
                      std::uint8_t const* HWY_RESTRICT green, std::uint8_t const* HWY_RESTRICT blue,
                      float const* HWY_RESTRICT squares, std::size_t count, PackedSums* HWY_RESTRICT sums,
                      float* HWY_RESTRICT squareSums) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
  hn::CappedTag<float, 1> const df;
  hn::RebindToUnsigned<decltype(df)> const du;
  auto running = hn::Zero(df);          // squareSums[previous], once previous is a cell
  std::uint32_t previous = kCellCount;  // none yet
  auto add = [&](std::size_t p, PackedSums* table) {
    std::uint32_t const c = codes[p];
    std::uint32_t const same = c == previous;
    // Cell 0, a border cell no pixel reaches, holds 0: the load a continued
    // run does not need reads it, and never waits for a store.
    auto const fresh = hn::Add(hn::LoadU(df, squareSums + (c & (same - 1))), hn::LoadU(df, squares + p));
    running = hn::Add(hn::And(running, hn::BitCast(df, hn::Set(du, 0u - same))), fresh);
    hn::StoreU(running, df, squareSums + c);
    previous = c;
    AddChannels(table[c], red[p], green[p], blue[p]);
  };
  std::size_t p = 0;
  for (; p + 2 <= count; p += 2) {
    add(p, sums);
    add(p + 1, sums + kCellCount);
  }
  if (p < count) add(p, sums);
#else
  for (std::size_t p = 0; p < count; ++p) {
    squareSums[codes[p]] += squares[p];
    AddChannels(sums[codes[p]], red[p], green[p], blue[p]);
  }
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qz {

HWY_EXPORT(CellCodesAndSquares);
HWY_EXPORT(AddPixelsToCells);

void cellCodesAndSquares(std::uint8_t const* red, std::uint8_t const* green, std::uint8_t const* blue,
                         std::size_t count, std::uint16_t* codes, float* squares) {
  HWY_DYNAMIC_DISPATCH(CellCodesAndSquares)(red, green, blue, count, codes, squares);
}

void addPixelsToCells(std::uint16_t const* codes, std::uint8_t const* red, std::uint8_t const* green,
                      std::uint8_t const* blue, float const* squares, std::size_t count, PackedSums* sums,
                      float* squareSums) {
  HWY_DYNAMIC_DISPATCH(AddPixelsToCells)(codes, red, green, blue, squares, count, sums, squareSums);
}

}  // namespace qz
#endif  // HWY_ONCE
