// Fuzz target for the grayto8 gateway: any number of outputs and inputs,
// each input an array of any class, complexity, sparsity, storage form and
// shape, mostly a double, single or uint16 image.  grayto8 checks its
// arguments itself, so nothing is kept out.

#include "gateway_fuzz.hpp"
#include "qzimages/qzimages.hpp"

namespace {

char const kName[] = "grayto8";

void checkResult(qzfuzz::Call& call) {
  ndArray_tag const* in = call.inputs()[0];
  ndArray_tag const* out = call.slots()[0].get();
  if (ndGetClassID(out) != ndclass::UInt8 || ndIsComplex(out) || qzhost::dimsOf(out) != qzhost::dimsOf(in))
    qzfuzz::fail(kName, "the result is not a real uint8 array of the image's size");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return qzfuzz::runInput(kName, data, size, [](FuzzedDataProvider& fdp, qzfuzz::Call& call) {
    int const numOutputs = qzfuzz::drawCount(fdp, -1, 2);
    int const numInputs = qzfuzz::drawCount(fdp, -1, 2);
    qzfuzz::Shape image;
    image.classes = {ndclass::Double, ndclass::Single, ndclass::UInt16};
    image.maxExtent = 6;
    for (int k = 0; k < numInputs; ++k) call.addFor(image, 6);
    call.prepareSlots(numOutputs);
    auto const r = qzfuzz::invoke(kName, pximages::_grayto8, "ORRERY:images:grayto8", numOutputs, numInputs, call);
    if (r.ok) checkResult(call);
  });
}
