// A program that uses the installed library: the luminance of one pixel.
#include <cstdio>
#include "qzhost/runtime.hpp"
#include "qzimages/qzimages.hpp"
int main() {
  qzhost::ArrayPtr rgb = qzhost::makeArray(ndclass::UInt8, {1, 1, 3}), out[2];
  std::uint8_t* p = qzhost::dataOf<std::uint8_t>(rgb.get());
  p[0] = 200, p[1] = 100, p[2] = 50;
  ndArray_tag const* in[] = {rgb.get()};
  qzhost::call(pximages::_rgb2gray, 1, out, 1, in);
  std::printf("gray %d\n", qzhost::dataOf<std::uint8_t>(out[0].get())[0]);
}
