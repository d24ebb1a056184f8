// The uint8-index lookup of ind2rgb8 in vector lanes, one copy per
// instruction set, chosen at run time.
//
// A byte index has at most 256 rows to choose from, so each body call packs
// the three colour tables, already clamped to the map, into one 256-entry
// table of words on its stack (red in the low byte, then green, then blue).
// A pixel is then one gathered word split into the three planes: the same
// bytes as three clamped table reads.  AVX-512 gathers with register
// permutes instead.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "indexed/ind2rgb8_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "indexed/ind2rgb8.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void LookUpByteIndices(ComputeFunctorUintArray<std::uint8_t> const& f, std::uint8_t const* HWY_RESTRICT in,
                       std::size_t n, std::uint8_t* HWY_RESTRICT out, std::size_t plane) {
  HWY_ALIGN std::int32_t packed[256];
  for (std::uint32_t u = 0; u < 256; ++u) {
    std::uint64_t const i = f.rowOf(static_cast<std::uint8_t>(u));
    packed[u] = static_cast<std::int32_t>(f.red[i] | (std::uint32_t{f.green[i]} << 8) | (std::uint32_t{f.blue[i]} << 16));
  }
  hn::ScalableTag<std::int32_t> d;
  hn::Rebind<std::uint8_t, decltype(d)> d8;
  std::size_t const lanes = hn::Lanes(d);
  auto const low = hn::Set(d, 0xFF);
  std::uint8_t* HWY_RESTRICT red = out;
  std::uint8_t* HWY_RESTRICT green = out + plane;
  std::uint8_t* HWY_RESTRICT blue = out + 2 * plane;
  std::size_t j = 0;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
  // Word permutes look up 32 pixels at once, in two tables of 256 words (red
  // and green in one, blue in the other), each held as four 64-word halves
  // of register pairs and chosen among by the index's top two bits.
  HWY_ALIGN std::uint16_t words[2][256];
  for (std::size_t u = 0; u < 256; ++u) {
    words[0][u] = static_cast<std::uint16_t>(packed[u]);
    words[1][u] = static_cast<std::uint16_t>(packed[u] >> 16);
  }
  __m512i tables[2][8];
  for (int t = 0; t < 2; ++t)
    for (int q = 0; q < 8; ++q) tables[t][q] = _mm512_load_si512(words[t] + 32 * q);
  auto lookUp = [&tables](int t, __m512i index, __mmask32 bit6, __mmask32 bit7) {
    __m512i const* w = tables[t];
    __m512i const a = _mm512_mask_blend_epi16(bit6, _mm512_permutex2var_epi16(w[0], index, w[1]),
                                              _mm512_permutex2var_epi16(w[2], index, w[3]));
    __m512i const b = _mm512_mask_blend_epi16(bit6, _mm512_permutex2var_epi16(w[4], index, w[5]),
                                              _mm512_permutex2var_epi16(w[6], index, w[7]));
    return _mm512_mask_blend_epi16(bit7, a, b);
  };
  // The low bytes of 32 words; the zero-masked narrowing, as the plain one
  // draws a false warning from GCC 12.
  auto storeLow = [](std::uint8_t* to, __m512i w) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm512_maskz_cvtepi16_epi8(~__mmask32{0}, w));
  };
  for (; j + 32 <= n; j += 32) {
    __m512i const index = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<__m256i const*>(in + j)));
    __mmask32 const bit6 = _mm512_test_epi16_mask(index, _mm512_set1_epi16(0x40));
    __mmask32 const bit7 = _mm512_test_epi16_mask(index, _mm512_set1_epi16(0x80));
    __m512i const redGreen = lookUp(0, index, bit6, bit7);
    storeLow(red + j, redGreen);
    storeLow(green + j, _mm512_srli_epi16(redGreen, 8));
    storeLow(blue + j, lookUp(1, index, bit6, bit7));
  }
#endif
  for (; j + lanes <= n; j += lanes) {
    // Scalar loads into a block: faster than a vector gather on the
    // processors measured, and the same words.
    HWY_ALIGN std::int32_t block[hn::MaxLanes(d)];
    for (std::size_t l = 0; l < lanes; ++l) block[l] = packed[in[j + l]];
    auto const rgb = hn::Load(d, block);
    hn::StoreU(hn::DemoteTo(d8, hn::And(rgb, low)), d8, red + j);
    hn::StoreU(hn::DemoteTo(d8, hn::And(hn::ShiftRight<8>(rgb), low)), d8, green + j);
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<16>(rgb)), d8, blue + j);
  }
  for (; j < n; ++j) {
    auto const rgb = static_cast<std::uint32_t>(packed[in[j]]);
    red[j] = static_cast<std::uint8_t>(rgb);
    green[j] = static_cast<std::uint8_t>(rgb >> 8);
    blue[j] = static_cast<std::uint8_t>(rgb >> 16);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qz {

HWY_EXPORT(LookUpByteIndices);

void lookUpByteIndices(ComputeFunctorUintArray<std::uint8_t> const& f, std::uint8_t const* in, std::size_t n,
                       std::uint8_t* out, std::size_t plane) {
  HWY_DYNAMIC_DISPATCH(LookUpByteIndices)(f, in, n, out, plane);
}

}  // namespace qz
#endif  // HWY_ONCE
