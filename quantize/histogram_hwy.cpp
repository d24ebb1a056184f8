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

// r*r + g*g + b*b of channel values held in 32-bit lanes.
template <class D, class V>
HWY_INLINE V SquareSum([[maybe_unused]] D di, V r, V g, V b) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
  // A 32-bit multiply is two operations here; the pairwise 16-bit
  // multiply-add is one and gives r*r + g*g from the pair (r, g) in a lane,
  // and b*b from (b, 0).
  hn::Repartition<std::int16_t, D> const d16;
  V unused;
  auto const rg = hn::BitCast(d16, hn::Or(r, hn::ShiftLeft<16>(g)));
  auto const b0 = hn::BitCast(d16, b);
  return hn::ReorderWidenMulAccumulate(di, rg, rg, hn::ReorderWidenMulAccumulate(di, b0, b0, hn::Zero(di), unused),
                                       unused);
#else
  return hn::Add(hn::Add(hn::Mul(r, r), hn::Mul(g, g)), hn::Mul(b, b));
#endif
}

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
    hn::StoreU(hn::ConvertTo(df, SquareSum(di, r, g, b)), df, squares + p);
  }
  for (; p < count; ++p) {
    codes[p] = pixelCellCode(red[p], green[p], blue[p]);
    squares[p] = pixelSquareSum(red[p], green[p], blue[p]);
  }
}

void AddPixelsToCells(std::uint16_t const* HWY_RESTRICT codes, std::uint8_t const* HWY_RESTRICT red,
                      std::uint8_t const* HWY_RESTRICT green, std::uint8_t const* HWY_RESTRICT blue,
                      float const* HWY_RESTRICT squares, std::size_t count, PackedSums* HWY_RESTRICT sums,
                      float* HWY_RESTRICT squareSums) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
  // Per block, first in vector lanes: for each pixel the byte offsets of
  // its cell and of the cell its run reads from (cell 0, a border cell no
  // pixel reaches and which holds 0, when it continues the cell of the pixel
  // before) in the square-sum table, side by side, and its channels as bytes
  // R, G, B, 1.  Then the chain, which issues as few instructions per pixel
  // as it can: that is what bounds it.
  constexpr std::size_t kBlock = 512;
  std::uint32_t offsets[2 * kBlock], channels[kBlock];
  hn::ScalableTag<std::uint32_t> const du;
  hn::Rebind<std::uint8_t, decltype(du)> const d8;
  hn::Rebind<std::uint16_t, decltype(du)> const d16;
  std::size_t const lanes = hn::Lanes(du);
  hn::CappedTag<float, 1> const df;
  hn::RebindToUnsigned<decltype(df)> const dm;
  hn::Full128<std::uint32_t> const dw;  // one cell's four 32-bit sums
  hn::Rebind<std::uint8_t, decltype(dw)> const db;
  auto running = hn::Zero(df);  // the square sum of the cell of the pixel before
  auto* const squareBytes = reinterpret_cast<char*>(squareSums);  // the offsets are in bytes
  for (std::size_t start = 0; start < count; start += kBlock) {
    std::size_t const n = count - start < kBlock ? count - start : kBlock;
    std::uint16_t const* code = codes + start;
    std::uint8_t const *r = red + start, *g = green + start, *b = blue + start;
    auto describe = [&](std::size_t p) {
      bool const same = (start + p) > 0 && code[p] == code[p - 1];
      offsets[2 * p] = std::uint32_t{code[p]} * sizeof(float);
      offsets[2 * p + 1] = same ? 0u : std::uint32_t{code[p]} * sizeof(float);
      channels[p] = r[p] | g[p] << 8 | b[p] << 16 | 1u << 24;
    };
    std::size_t p = 0;
    if (start == 0 && n > 0) describe(p++);  // the first pixel has none before it
    for (; p + lanes <= n; p += lanes) {
      auto const c = hn::PromoteTo(du, hn::LoadU(d16, code + p));
      auto const same = hn::Eq(c, hn::PromoteTo(du, hn::LoadU(d16, code + p - 1)));
      auto const at = hn::ShiftLeft<2>(c);
      hn::StoreInterleaved2(at, hn::IfThenZeroElse(same, at), du, offsets + 2 * p);
      auto const rgb = hn::Or(hn::PromoteTo(du, hn::LoadU(d8, r + p)),
                              hn::Or(hn::ShiftLeft<8>(hn::PromoteTo(du, hn::LoadU(d8, g + p))),
                                     hn::ShiftLeft<16>(hn::PromoteTo(du, hn::LoadU(d8, b + p)))));
      hn::StoreU(hn::Or(rgb, hn::Set(du, 1u << 24)), du, channels + p);
    }
    for (; p < n; ++p) describe(p);

    auto add = [&](std::size_t q, PackedSums* table) {
      std::uint32_t const at = offsets[2 * q], from = offsets[2 * q + 1];
      auto const fresh = hn::Add(hn::LoadU(df, reinterpret_cast<float const*>(squareBytes + from)),
                                 hn::LoadU(df, squares + start + q));
#if HWY_TARGET <= HWY_AVX3
      // A masked add puts only the add on the chain: running + fresh where
      // the pixel continues, fresh (the merge source) where it does not.
      running.raw = _mm_mask_add_ss(fresh.raw, static_cast<__mmask8>(from == 0), running.raw, fresh.raw);
#else
      running = hn::Add(hn::And(running, hn::BitCast(df, hn::Set(dm, from == 0 ? ~0u : 0u))), fresh);
#endif
      hn::StoreU(running, df, reinterpret_cast<float*>(squareBytes + at));
      // The four sums stay below 2^32 between flushes, so 32-bit lanes add
      // them as the packed words would.  The offset is scaled from the
      // square-sum table's entries to the sums'.
      constexpr std::size_t kWider = sizeof(PackedSums) / sizeof(float);
      static_assert(kWider * sizeof(float) == sizeof(PackedSums));
      auto* cellSums = reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(table) + std::size_t{at} * kWider);
      auto const pixel = hn::PromoteTo(dw, hn::LoadU(db, reinterpret_cast<std::uint8_t const*>(channels + q)));
      hn::StoreU(hn::Add(hn::LoadU(dw, cellSums), pixel), dw, cellSums);
    };
    std::size_t q = 0;
    for (; q + 2 <= n; q += 2) {
      add(q, sums);
      add(q + 1, sums + kCellCount);
    }
    if (q < n) add(q, sums);
  }
#else
  for (std::size_t p = 0; p < count; ++p) {
    squareSums[codes[p]] += squares[p];
    sums[codes[p]].redGreen += red[p] | std::uint64_t{green[p]} << 32;
    sums[codes[p]].blueCount += blue[p] | std::uint64_t{1} << 32;
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
