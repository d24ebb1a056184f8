// Fuzz target for the rgb2hsv gateway.
//
// rgb2hsv takes its input on trust: the caller must pass exactly one real,
// full (not sparse) M-by-N-by-3 array, and anything else is outside the
// built-in's contract and undefined.  The command-line host refuses such
// calls before making them (its contract check for rgb2gray and rgb2hsv);
// this target keeps to the same rule by construction: one input, three
// dimensions with the third equal to 3, real, full.  Everything else is
// fuzzed: the class (any code the host knows, numeric or not), the storage
// form, M, N, the data, the number of outputs asked for and what the output
// slots already hold.

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

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qzhost::setWarningEcho(false);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  qzfuzz::Ledger const ledger;
  {
    FuzzedDataProvider fdp(data, size);
    qzfuzz::Call call(fdp);
    int const numOutputs = qzfuzz::drawCount(fdp, -1, 2);
    qzfuzz::Shape rgb;
    rgb.rank = 3;
    rgb.last = 3;
    rgb.real = true;
    rgb.full = true;
    rgb.maxExtent = 8;
    ndArray_tag* in = call.add(rgb);
    if (fdp.ConsumeBool()) call.shareAndKeep(in);
    call.prepareSlots(numOutputs);
    // rgb2hsv raises nothing of its own (no catalog).
    auto const r = qzfuzz::invoke(kName, pximages::_rgb2hsv, "", numOutputs, 1, call);
    if (r.ok) checkResult(call);
    call.release();
  }
  ledger.verify(kName);
  return 0;
}
