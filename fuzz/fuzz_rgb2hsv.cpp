// Fuzz target for the rgb2hsv gateway.
//
// The input is drawn in the one form the built-in takes on trust; see
// qzfuzz::fuzzRgbInput.

#include "gateway_fuzz.hpp"
#include "qzimages/qzimages.hpp"

namespace {

char const kName[] = "rgb2hsv";

void checkResult(qzfuzz::Call& call) {
  ndArray_tag const* in = call.inputs()[0];
  ndArray_tag const* out = call.slots()[0].get();
  ndClassID const cls = ndGetClassID(in);
  ndClassID const want = cls == ndclass::Single ? ndclass::Single : ndclass::Double;
  if (ndGetClassID(out) != want || ndIsComplex(out) || qzhost::dimsOf(out) != qzhost::dimsOf(in))
    qzfuzz::fail(kName, "the result is not a real M-by-N-by-3 array of the expected class");
  if (want == ndclass::Single) return;
  // Byte and word images give hue, saturation and value in [0, 1]; the
  // classes without a conversion give zeros.
  bool const unit = cls == ndclass::UInt8 || cls == ndclass::UInt16;
  bool const zero = !unit && cls != ndclass::Double;
  std::size_t const n = ndGetNumberOfElements(out);
  for (std::size_t i = 0; i < n; ++i) {
    double const v = qzhost::dataOf<double>(out)[i];
    if (unit && !(v >= 0 && v <= 1)) qzfuzz::fail(kName, "an 8- or 16-bit image gave a value outside [0, 1]");
    if (zero && v != 0) qzfuzz::fail(kName, "a class without a conversion gave a value other than zero");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return qzfuzz::fuzzRgbInput(kName, pximages::_rgb2hsv, data, size, {}, checkResult);
}
