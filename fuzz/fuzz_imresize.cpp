// Fuzz target for the imresize gateway: any number of outputs and inputs,
// each input an array of any class, complexity, sparsity, storage form and
// shape, mostly an image of one of the classes imresize takes (or int64),
// T-by-L double weights, source indices of the same size and a double
// dimension scalar.
//
// imresize takes its source indices on trust: an index outside the resampled
// dimension makes it read outside the image, and is outside the built-in's
// contract and undefined.  The command-line host refuses such calls (its
// contract check for imresize): when the four arguments are of the kinds
// imresize accepts (a numeric full image of at most three dimensions, full
// double weights of two dimensions, full double indices and dimension),
// every index must lie in [1, length + 1), length being the image's first
// dimension when the dimension argument is in [1, 2) and its second
// otherwise.  This target applies the same rule by construction: in that
// case it moves every index outside the range into it, using the index's
// own bits, and it makes no call when the resampled dimension is empty and
// there are indices (no index can be valid).  Arguments of other kinds are
// passed as drawn, for imresize to refuse.

#include <cstring>

#include "gateway_fuzz.hpp"
#include "qzimages/qzimages.hpp"

namespace {

char const kName[] = "imresize";

// The kinds of arguments for which the command-line host checks indices, and
// the length of the resampled dimension then; false otherwise.  Inputs are
// measured by the dimensions they were drawn with, so that lazily held ones
// reach imresize uncompleted.
bool indicesMatter(qzfuzz::Call const& call, std::vector<ndArray_tag const*> const& in, std::size_t& length) {
  if (in.size() != 4) return false;
  ndArray_tag const *a = in[0], *w = in[1], *x = in[2], *dim = in[3];
  auto const& ad = call.drawnDims(a);
  if (!ndIsNumeric(a) || ndIsSparse(a) || ad.size() > 3) return false;
  if (ndGetClassID(x) != ndclass::Double || ndIsSparse(x)) return false;
  if (ndGetClassID(dim) != ndclass::Double || ndIsSparse(dim)) return false;
  if (ndGetClassID(w) != ndclass::Double || ndIsSparse(w) || call.drawnDims(w).size() != 2) return false;
  // The dimension argument's first element (its real part), or 0 if empty.
  double const d = qzfuzz::Call::count(call.drawnDims(dim)) ? qzhost::dataOf<double>(dim)[0] : 0.0;
  length = ad[d >= 1 && d < 2 ? 0 : 1];
  return true;
}

bool inRange(double v, std::size_t length) { return v >= 1 && v < static_cast<double>(length) + 1; }

// Brings the indices inside the contract.  False when that cannot be done:
// an empty resampled dimension with indices, or indices that share storage
// with the dimension argument so that moving them moves the dimension.
bool keepIndicesInside(qzfuzz::Call const& call) {
  auto const& in = call.inputs();
  std::size_t length = 0;
  if (!indicesMatter(call, in, length)) return true;
  std::size_t const n = qzfuzz::Call::count(call.drawnDims(in[2]));
  if (n == 0) return true;
  if (length == 0) return false;
  auto* v = qzhost::dataOf<double>(in[2]);
  for (std::size_t i = 0; i < n; ++i) {
    if (inRange(v[i], length)) continue;
    std::uint64_t bits;
    std::memcpy(&bits, &v[i], sizeof bits);
    // Whole and fractional positions alike: quarters in [1, length + 1).
    v[i] = 1 + static_cast<double>(bits % (4 * length)) / 4.0;
  }
  // The same array may serve as indices and as another argument; check
  // again with what the call will see.
  if (!indicesMatter(call, in, length)) return true;
  for (std::size_t i = 0; i < n; ++i)
    if (!inRange(v[i], length)) return false;
  return true;
}

void checkResult(qzfuzz::Call& call) {
  auto const& in = call.inputs();
  ndArray_tag const* image = in[0];
  ndArray_tag const* out = call.slots()[0].get();
  auto const ad = qzhost::dimsOf(image);
  std::size_t const p = ad.size() == 3 ? ad[2] : 1;
  std::size_t const l = ndGetN(in[1]);
  double const d = ndGetScalar(in[3]);
  std::vector<std::size_t> want = d >= 1 && d < 2 ? std::vector<std::size_t>{l, ad[1], p}
                                                  : std::vector<std::size_t>{ad[0], l, p};
  if (want.back() == 1) want.pop_back();
  ndClassID const cls = ndGetClassID(image) == ndclass::Logical ? ndclass::UInt8 : ndGetClassID(image);
  if (ndGetClassID(out) != cls || qzhost::dimsOf(out) != want)
    qzfuzz::fail(kName, "the result has the wrong class or size");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return qzfuzz::runInput(kName, data, size, [](FuzzedDataProvider& fdp, qzfuzz::Call& call) {
    int const numOutputs = qzfuzz::drawCount(fdp, -1, 2);
    int const numInputs = qzfuzz::drawCount(fdp, -1, 5);
    qzfuzz::Shape image, weights, dim = qzfuzz::doubleScalar();
    image.classes = {ndclass::Double, ndclass::Single, ndclass::UInt8, ndclass::UInt16, ndclass::UInt32,
                     ndclass::Int8,   ndclass::Int16,  ndclass::Int32, ndclass::Logical, ndclass::Int64};
    image.maxExtent = 5;
    weights.classes = {ndclass::Double};
    weights.rank = 2;
    weights.maxExtent = 5;
    for (int k = 0; k < numInputs; ++k) {
      if (k == 2) {
        // Indices of the weights' size when conforming.
        qzfuzz::Shape indices = weights;
        indices.dims = call.drawnDims(call.inputs()[1]);
        call.addFor(indices, 5);
      } else {
        call.addFor(k == 0 ? image : k == 1 ? weights : dim, 5);
      }
    }
    if (keepIndicesInside(call)) {
      call.prepareSlots(numOutputs);
      auto const r =
          qzfuzz::invoke(kName, pximages::_imresize, "ORRERY:images:resizeDim", numOutputs, numInputs, call);
      if (r.ok) checkResult(call);
    }
  });
}
