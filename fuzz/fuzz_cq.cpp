// Fuzz target for the cq gateway: any number of outputs and inputs, each
// input an array of any class, complexity, sparsity, storage form and shape,
// mostly an M-by-N-by-3 uint8 image and a double scalar count.  cq checks
// all of its arguments itself, so nothing is kept out.

#include <cmath>

#include "gateway_fuzz.hpp"
#include "qzimages/qzimages.hpp"

namespace {

char const kName[] = "cq";

void checkResult(qzfuzz::Call& call, int numOutputs) {
  ndArray_tag const* image = call.inputs()[0];
  ndArray_tag const* map = call.slots()[0].get();
  // Validation passed, so the count is 0..65536 after truncation, or +Inf or
  // at least 2^64, which ask for no colours.
  double const v = ndGetScalar(call.inputs()[1]);
  std::size_t const requested = v < 65537.0 ? static_cast<std::size_t>(v) : 0;
  auto const md = qzhost::dimsOf(map);
  if (ndGetClassID(map) != ndclass::UInt8 || ndIsComplex(map) || md.size() != 2 || md[1] != 3)
    qzfuzz::fail(kName, "the colour map is not a real K-by-3 uint8 array");
  std::size_t const colours = md[0];
  if (colours > requested) qzfuzz::fail(kName, "more colours than were asked for");
  if (numOutputs <= 1) return;

  ndArray_tag const* index = call.slots()[1].get();
  if (!index) qzfuzz::fail(kName, "two outputs asked for, no index image");
  auto const id = qzhost::dimsOf(index);
  auto const imd = qzhost::dimsOf(image);
  ndClassID const want = colours > 256 ? ndclass::UInt16 : ndclass::UInt8;
  if (ndGetClassID(index) != want || id.size() != 2 || id[0] != imd[0] || id[1] != imd[1])
    qzfuzz::fail(kName, "the index image has the wrong class or size");
  std::size_t const n = ndGetNumberOfElements(index);
  for (std::size_t p = 0; p < n; ++p) {
    std::size_t const label = want == ndclass::UInt8 ? qzhost::dataOf<std::uint8_t>(index)[p]
                                                     : qzhost::dataOf<std::uint16_t>(index)[p];
    if (colours ? label >= colours : label != 0) qzfuzz::fail(kName, "an index points past the colour map");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return qzfuzz::runInput(kName, data, size, [](FuzzedDataProvider& fdp, qzfuzz::Call& call) {
    int const numOutputs = qzfuzz::drawCount(fdp, -1, 3);
    int const numInputs = qzfuzz::drawCount(fdp, -1, 3);
    qzfuzz::Shape image, count = qzfuzz::doubleScalar();
    image.classes = {ndclass::UInt8};
    image.rank = 3;
    image.last = 3;
    image.maxExtent = 12;
    for (int k = 0; k < numInputs; ++k) call.addFor(k == 0 ? image : count, 6);
    // Counts near the limits are hard to reach through raw double bytes:
    // often replace a real full count by a drawn whole number.
    if (numInputs >= 2 && fdp.ConsumeBool()) {
      ndArray_tag const* k = call.inputs()[1];
      if (ndGetClassID(k) == ndclass::Double && !ndIsSparse(k) && qzfuzz::Call::count(call.drawnDims(k)) > 0)
        qzhost::dataOf<double>(k)[0] = fdp.ConsumeIntegralInRange<int>(-1, 65537);
    }
    call.prepareSlots(numOutputs);
    auto const r = qzfuzz::invoke(kName, pximages::_cq, "ORRERY:images:cq", numOutputs, numInputs,
                                  call, 2);
    if (r.ok) checkResult(call, numOutputs);
  });
}
