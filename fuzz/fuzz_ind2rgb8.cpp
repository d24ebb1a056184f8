// Fuzz target for the ind2rgb8 gateway: any number of outputs and inputs,
// each input an array of any class, complexity, sparsity, storage form and
// shape, mostly an M-by-N index image of class double, uint8, uint16 or
// uint32 and a K-by-3 double colour map.  ind2rgb8 checks its arguments
// itself, so nothing is kept out.  A successful call is compared pixel by
// pixel with the lookup rules worked out here.

#include <cmath>

#include "gateway_fuzz.hpp"
#include "qzimages/qzimages.hpp"

namespace {

char const kName[] = "ind2rgb8";

std::uint8_t byteOf(double v) {
  if (std::isnan(v) || v < 0) return 0;
  if (v > 1) return 255;
  return static_cast<std::uint8_t>(v * 255.0 + 0.5);
}

// The map row of pixel j: double indices 1-based, rounded half up and
// clamped; integer indices 0-based, clamped to the last row.  Complex data
// is read as consecutive values, the way the built-in reads it.
std::size_t rowOf(ndArray_tag const* x, std::size_t j, std::size_t k) {
  switch (ndGetClassID(x)) {
    case ndclass::Double: {
      double const v = qzhost::dataOf<double>(x)[j];
      if (std::isnan(v) || v < 1) return 0;
      if (v > static_cast<double>(k)) return k - 1;
      return static_cast<std::size_t>(std::floor(v + 0.5)) - 1;
    }
    case ndclass::UInt8: return std::min<std::size_t>(qzhost::dataOf<std::uint8_t>(x)[j], k - 1);
    case ndclass::UInt16: return std::min<std::size_t>(qzhost::dataOf<std::uint16_t>(x)[j], k - 1);
    default: return std::min<std::size_t>(qzhost::dataOf<std::uint32_t>(x)[j], k - 1);
  }
}

void checkResult(qzfuzz::Call& call) {
  ndArray_tag const* x = call.inputs()[0];
  ndArray_tag const* map = call.inputs()[1];
  ndArray_tag const* out = call.slots()[0].get();
  auto const xd = qzhost::dimsOf(x);
  if (ndGetClassID(out) != ndclass::UInt8 || ndIsComplex(out) ||
      qzhost::dimsOf(out) != std::vector<std::size_t>{xd[0], xd[1], 3})
    qzfuzz::fail(kName, "the result is not a real M-by-N-by-3 uint8 array");
  std::size_t const k = qzhost::dimsOf(map)[0], plane = xd[0] * xd[1];
  double const* m = qzhost::dataOf<double>(map);
  auto const* rgb = qzhost::dataOf<std::uint8_t>(out);
  for (std::size_t j = 0; j < plane; ++j) {
    std::size_t const row = rowOf(x, j, k);
    for (std::size_t c = 0; c < 3; ++c)
      if (rgb[c * plane + j] != byteOf(m[c * k + row]))
        qzfuzz::fail(kName, "pixel " + std::to_string(j) + " plane " + std::to_string(c) + " differs from map row " +
                                std::to_string(row));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return qzfuzz::runInput(kName, data, size, [](FuzzedDataProvider& fdp, qzfuzz::Call& call) {
    int const numOutputs = qzfuzz::drawCount(fdp, -1, 2);
    int const numInputs = qzfuzz::drawCount(fdp, -1, 3);
    qzfuzz::Shape index, map;
    index.classes = {ndclass::Double, ndclass::UInt8, ndclass::UInt16, ndclass::UInt32};
    index.rank = 2;
    // One input in eight draws an index image large enough (up to 300 by
    // 300) for the lookup to split it between tasks.
    index.maxExtent = fdp.ConsumeIntegralInRange<int>(0, 7) == 7 ? 300 : 8;
    map.classes = {ndclass::Double};
    map.rank = 2;
    map.last = 3;
    map.maxExtent = 8;
    for (int k = 0; k < numInputs; ++k) call.addFor(k == 0 ? index : map, 6);
    call.prepareSlots(numOutputs);
    auto const r = qzfuzz::invoke(kName, pximages::_ind2rgb8, "ORRERY:images:ind2rgb8", numOutputs, numInputs, call);
    if (r.ok) checkResult(call);
  });
}
