// rgb2hsv in vector lanes, one copy per instruction set, chosen at run time.
//
// The branches of the per-pixel rule become masks: every lane evaluates the
// same comparisons in the same order and selects the same maximum, minimum,
// pair of channels and sector offset as the rule, then does the rule's
// arithmetic (6*delta, the quotient, the sum, the absolute value; delta/V)
// in its precision.  Lanes whose result the rule sets to 0 (delta or V zero)
// are masked after the fact.  The byte path multiplies by its tabulated
// reciprocals, recomputed in lanes exactly as the tables were filled.
//
// Pixels with a NaN channel are rare and follow a different rule, including
// a hue carried from pixel to pixel within one body call.  A vector holding
// one is handed to the plain rule, which resumes the carry from the hue just
// stored for the pixel before (0 at the start of the call): every pixel
// stores the running hue, so that is exactly the value the rule would hold.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "color/rgb2hsv_hwy.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "color/rgb2hsv.hpp"
#include "color/rgb2hsv_rule.hpp"
#include "common/simd-inl.hpp"

HWY_BEFORE_NAMESPACE();
namespace qz {
namespace HWY_NAMESPACE {
namespace {

template <class D>
HWY_INLINE void StoreHsv(D d, hn::Vec<D> h, hn::Vec<D> s, hn::Vec<D> v, hn::TFromD<D>* HWY_RESTRICT out,
                         std::size_t p, bool planar, std::size_t i) {
  if (planar) {
    hn::StoreU(h, d, out + i);
    hn::StoreU(s, d, out + p + i);
    hn::StoreU(v, d, out + 2 * p + i);
  } else {
    hn::StoreInterleaved3(h, s, v, d, out + 3 * i);
  }
}

// Double, single and uint16 input; Out is the precision of the arithmetic.
template <class In, class Out>
void HsvFloating(In const* HWY_RESTRICT in, std::size_t p, Out scale, Out* HWY_RESTRICT out, bool planar,
                 std::size_t begin, std::size_t end) {
  hn::ScalableTag<Out> d;
  hn::Rebind<In, decltype(d)> din;
  std::size_t const n = hn::Lanes(d);
  // Division by 1 gives every number back unchanged; only NaN would differ
  // (it is quietened), and NaN pixels take the plain rule.
  bool const divide = scale != Out(1);
  auto const vscale = hn::Set(d, scale);
  auto const zero = hn::Zero(d);
  auto const six = hn::Set(d, Out(6));
  auto const greenOffset = hn::Set(d, HsvOffsets<Out>::greenMax());
  auto const blueOffset = hn::Set(d, HsvOffsets<Out>::blueMax());
  auto const magentaOffset = hn::Set(d, Out(-1));
  std::size_t i = begin;
  for (; i + n <= end; i += n) {
    hn::Vec<decltype(din)> ri, gi, bi;
    LoadRgb(din, in, p, planar, i, ri, gi, bi);
    auto r = WidenToDouble(d, ri), g = WidenToDouble(d, gi), b = WidenToDouble(d, bi);
    if (divide) {
      r = hn::Div(r, vscale);
      g = hn::Div(g, vscale);
      b = hn::Div(b, vscale);
    }
    if constexpr (std::is_floating_point_v<In>) {
      if (!hn::AllFalse(d, hn::Or(hn::Or(hn::IsNaN(r), hn::IsNaN(g)), hn::IsNaN(b)))) {
        Out const carried = i == begin ? Out(0) : out[planar ? i - 1 : 3 * (i - 1)];
        hsvrule::line(in, p, scale, out, planar, i, i + n, carried);
        continue;
      }
    }
    // The rule's tests: not (b > g) picks green or red (green when g > r);
    // otherwise blue when b > r, else red counted from magenta.
    auto const blueOverGreen = hn::Gt(b, g);
    auto const greenMax = hn::AndNot(blueOverGreen, hn::Gt(g, r));
    auto const redMax = hn::AndNot(blueOverGreen, hn::Not(hn::Gt(g, r)));
    auto const blueMax = hn::And(blueOverGreen, hn::Gt(b, r));
    // V, x, y, k as the rule assigns them.
    auto const v = hn::IfThenElse(greenMax, g, hn::IfThenElse(blueMax, b, r));
    auto const x = hn::IfThenElse(hn::Or(greenMax, blueMax), r, hn::IfThenElse(redMax, g, b));
    auto const y = hn::IfThenElse(blueOverGreen, g, b);
    auto const k = hn::IfThenElse(greenMax, greenOffset,
                                  hn::IfThenElse(redMax, zero, hn::IfThenElse(blueMax, blueOffset, magentaOffset)));
    // m: without blue over green, the smaller of b and x; with blue the
    // largest, the smaller of g and r; otherwise g.
    auto const mNoBlue = hn::IfThenElse(hn::Lt(b, x), b, x);
    auto const mBlue = hn::IfThenElse(hn::Lt(g, r), g, r);
    auto const m = hn::IfThenElse(blueOverGreen, hn::IfThenElse(blueMax, mBlue, g), mNoBlue);
    auto const delta = hn::Sub(v, m);
    auto const h = hn::IfThenZeroElse(hn::Eq(delta, zero), hn::Abs(hn::Add(hn::Div(hn::Sub(x, y), hn::Mul(six, delta)), k)));
    auto const s = hn::IfThenZeroElse(hn::Eq(v, zero), hn::Div(delta, v));
    StoreHsv(d, h, s, v, out, p, planar, i);
  }
  if (i != end) {
    Out const carried = i == begin ? Out(0) : out[planar ? i - 1 : 3 * (i - 1)];
    hsvrule::line(in, p, scale, out, planar, i, end, carried);
  }
}

void HsvBytes(std::uint8_t const* HWY_RESTRICT in, std::size_t p, double* HWY_RESTRICT out, bool planar,
              std::size_t begin, std::size_t end) {
  hn::ScalableTag<double> d;
  hn::Rebind<std::uint8_t, decltype(d)> d8;
  std::size_t const n = hn::Lanes(d);
  auto const zero = hn::Zero(d), one = hn::Set(d, 1.0), six = hn::Set(d, 6.0), full = hn::Set(d, 255.0);
  auto const minusOne = hn::Set(d, -1.0);
  auto const greenOffset = hn::Set(d, HsvOffsets<double>::greenMax());
  std::size_t i = begin;
  for (; i + n <= end; i += n) {
    hn::Vec<decltype(d8)> r8, g8, b8;
    LoadRgb(d8, in, p, planar, i, r8, g8, b8);
    // Byte values are exact in double, so the rule's integer comparisons,
    // swaps and differences are done on them there.
    auto r = WidenToDouble(d, r8), g = WidenToDouble(d, g8), b = WidenToDouble(d, b8);
    auto const swapGB = hn::Lt(g, b);
    auto k = hn::IfThenElseZero(swapGB, minusOne);
    auto const g1 = hn::IfThenElse(swapGB, b, g);
    b = hn::IfThenElse(swapGB, g, b);
    g = g1;
    auto const swapRG = hn::Lt(r, g);
    k = hn::IfThenElse(swapRG, hn::Sub(greenOffset, k), k);
    auto const r1 = hn::IfThenElse(swapRG, g, r);
    g = hn::IfThenElse(swapRG, r, g);
    r = r1;
    auto const chroma = hn::Sub(r, hn::IfThenElse(hn::Lt(b, g), b, g));
    auto const diff = hn::Sub(g, b);
    // The table entries, recomputed by the very operations that filled the
    // tables (1/(c*6.0), 1.0/r, r/255.0; 0 for a zero index): dividing in
    // lanes is faster than reading three tables a lane at a time.
    auto const sixth = hn::IfThenZeroElse(hn::Eq(chroma, zero), hn::Div(one, hn::Mul(chroma, six)));
    auto const recip = hn::IfThenZeroElse(hn::Eq(r, zero), hn::Div(one, r));
    auto const h = hn::Abs(hn::Add(hn::Mul(diff, sixth), k));
    auto const s = hn::Mul(chroma, recip);
    auto const v = hn::Div(r, full);  // 0/255 is 0, as the table's first entry
    StoreHsv(d, h, s, v, out, p, planar, i);
  }
  hsvrule::lineOfBytes(in, p, out, planar, i, end);
}

}  // namespace

void HsvLineF64(double const* in, std::size_t p, double scale, double* out, bool planar, std::size_t b,
                std::size_t e) {
  HsvFloating(in, p, scale, out, planar, b, e);
}
void HsvLineF32(float const* in, std::size_t p, float scale, float* out, bool planar, std::size_t b,
                std::size_t e) {
  HsvFloating(in, p, scale, out, planar, b, e);
}
void HsvLineU16(std::uint16_t const* in, std::size_t p, double scale, double* out, bool planar, std::size_t b,
                std::size_t e) {
  HsvFloating(in, p, scale, out, planar, b, e);
}
void HsvLineU8(std::uint8_t const* in, std::size_t p, double* out, bool planar, std::size_t b, std::size_t e) {
  HsvBytes(in, p, out, planar, b, e);
}

}  // namespace HWY_NAMESPACE
}  // namespace qz
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qz {

HWY_EXPORT(HsvLineF64);
HWY_EXPORT(HsvLineF32);
HWY_EXPORT(HsvLineU16);
HWY_EXPORT(HsvLineU8);

void rgb2hsvLine(double const* input, std::size_t pixels, double scale, double* output, bool planar,
                 std::size_t begin, std::size_t end) {
  HWY_DYNAMIC_DISPATCH(HsvLineF64)(input, pixels, scale, output, planar, begin, end);
}
void rgb2hsvLine(float const* input, std::size_t pixels, float scale, float* output, bool planar,
                 std::size_t begin, std::size_t end) {
  HWY_DYNAMIC_DISPATCH(HsvLineF32)(input, pixels, scale, output, planar, begin, end);
}
void rgb2hsvLine(std::uint16_t const* input, std::size_t pixels, double scale, double* output, bool planar,
                 std::size_t begin, std::size_t end) {
  HWY_DYNAMIC_DISPATCH(HsvLineU16)(input, pixels, scale, output, planar, begin, end);
}
void rgb2hsvLine(std::uint8_t const* input, std::size_t pixels, double* output, bool planar, std::size_t begin,
                 std::size_t end) {
  HWY_DYNAMIC_DISPATCH(HsvLineU8)(input, pixels, output, planar, begin, end);
}

}  // namespace qz
#endif  // HWY_ONCE
