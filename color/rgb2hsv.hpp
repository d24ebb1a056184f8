#pragma once
// RGB to hue, saturation and value.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <tbb/blocked_range.h>

namespace qz {

inline double doubleFromBits(std::uint64_t bits) {
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}
inline float floatFromBits(std::uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

// The hue offsets of the sectors where green or blue is the largest channel
// (red: 0, or -1 when blue exceeds green).  The 2/3 offsets sit one unit in
// the last place away from the nearest representation of 2/3 (above it in
// double, below it in single); results depend on these exact values, so
// they are given by their bits.
template <class T>
struct HsvOffsets;
template <>
struct HsvOffsets<double> {
  static double greenMax() { return doubleFromBits(0xBFD5555555555555u); }  // -0.3333333333333333
  static double blueMax() { return doubleFromBits(0x3FE5555555555556u); }   // 0.6666666666666667
};
template <>
struct HsvOffsets<float> {
  static float greenMax() { return floatFromBits(0xBEAAAAABu); }  // -0.33333334f
  static float blueMax() { return floatFromBits(0x3F2AAAAAu); }   // 0.6666666f
};

// The uint8 path multiplies by tabulated reciprocals instead of dividing.
// For v = 1..255: sixth[v] = 1/(v*6.0), recip[v] = 1.0/v, unit[v] = v/255.0;
// entry 0 of each is 0, which makes a grey pixel's hue and a black pixel's
// saturation 0 without a test.  Filled once when the library loads.
struct HsvReciprocalTables {
  double sixth[256];
  double recip[256];
  double unit[256];
};
HsvReciprocalTables const& hsvReciprocalTables();

// Converts pixels [r.begin(), r.end()).  Planar data holds the three
// channels as planes of `pixels` elements (red, green, blue in; hue,
// saturation, value out); interleaved data holds triples.  Channels are
// divided by `scale` first.  The double and single forms (In == Out) also
// handle NaN channels; see rgb2hsv_rule.hpp for how hue is carried over.
template <class In, class Out>
struct convertrgb2hsv {
  In const* input;
  std::size_t pixels;
  Out scale;
  Out* output;
  bool planar;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
};

// Bytes, through HsvReciprocalTables.  scale (255) is carried for symmetry
// with the other forms and not read.
struct convertrgb2hsvU8 {
  std::uint8_t const* input;
  std::size_t pixels;
  double scale;
  double* output;
  bool planar;

  void operator()(tbb::blocked_range<std::size_t> const& r) const;
};

// Convert pixels [begin, end) with the best instruction set the processor
// offers, giving the bits of the plain per-pixel rules (rgb2hsv_rule.hpp) on
// every one, the hue carried over NaN pixels within the call included.
void rgb2hsvLine(double const* input, std::size_t pixels, double scale, double* output, bool planar,
                 std::size_t begin, std::size_t end);
void rgb2hsvLine(float const* input, std::size_t pixels, float scale, float* output, bool planar,
                 std::size_t begin, std::size_t end);
void rgb2hsvLine(std::uint16_t const* input, std::size_t pixels, double scale, double* output, bool planar,
                 std::size_t begin, std::size_t end);
void rgb2hsvLine(std::uint8_t const* input, std::size_t pixels, double* output, bool planar, std::size_t begin,
                 std::size_t end);

// Each runs its functor over [0, pixels) in parallel, with the scale of its
// class (1 for floating input, 255 for bytes, 65535 for uint16).
void launchRgb2Hsv(double const* input, std::size_t pixels, double* output, bool planar);
void launchRgb2Hsv(float const* input, std::size_t pixels, float* output, bool planar);
void launchRgb2Hsv(std::uint8_t const* input, std::size_t pixels, double* output, bool planar);
void launchRgb2Hsv(std::uint16_t const* input, std::size_t pixels, double* output, bool planar);

extern template struct convertrgb2hsv<double, double>;
extern template struct convertrgb2hsv<float, float>;
extern template struct convertrgb2hsv<unsigned short, double>;

}  // namespace qz
