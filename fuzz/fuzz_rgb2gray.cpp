// Fuzz target for the rgb2gray gateway.
//
// The input is drawn in the one form the built-in takes on trust; see
// qzfuzz::fuzzRgbInput.

#include "gateway_fuzz.hpp"
#include "qzimages/qzimages.hpp"

namespace {

char const kName[] = "rgb2gray";

void checkResult(qzfuzz::Call& call) {
  ndArray_tag const* in = call.inputs()[0];
  ndArray_tag const* out = call.slots()[0].get();
  auto const d = qzhost::dimsOf(in);
  if (ndGetClassID(out) != ndGetClassID(in) || ndIsComplex(out) ||
      qzhost::dimsOf(out) != std::vector<std::size_t>{d[0], d[1]})
    qzfuzz::fail(kName, "the result is not a real M-by-N array of the image's class");
  // Floating results are clamped to [0, 1], NaN included.
  std::size_t const n = ndGetNumberOfElements(out);
  for (std::size_t i = 0; i < n; ++i) {
    double const v = ndGetClassID(out) == ndclass::Double  ? qzhost::dataOf<double>(out)[i]
                     : ndGetClassID(out) == ndclass::Single ? qzhost::dataOf<float>(out)[i]
                                                             : 0.0;
    if (!(v >= 0 && v <= 1)) qzfuzz::fail(kName, "a floating result outside [0, 1]");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // The host cannot create a numeric array of a class without numeric
  // storage (cells, structures, host-defined classes) for the output, and
  // says so.
  return qzfuzz::fuzzRgbInput(kName, pximages::_rgb2gray, data, size, {"qzhost:cannotCreateClass"}, checkResult);
}
