// Fuzz target for the rgb2gray gateway.
//
// rgb2gray takes its input on trust: the caller must pass exactly one real,
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
    // rgb2gray raises nothing of its own (no catalog).  The host cannot
    // create a numeric array of a class without numeric storage (cells,
    // structures, host-defined classes) for its output, and says so.
    auto const r = qzfuzz::invoke(kName, pximages::_rgb2gray, "", numOutputs, 1, call, 1, {"qzhost:cannotCreateClass"});
    if (r.ok) checkResult(call);
    call.release();
  }
  ledger.verify(kName);
  return 0;
}
