// imresize: resampling of an image along its first or second dimension with
// a filter the caller has already worked out (T weights and T 1-based source
// positions per output position).  The gateway checks the arguments, creates
// the output, turns the source positions into element offsets and hands the
// work to the kernels of the image's class.

#include "resize/imresize.hpp"

#include <cstdint>

#include "common/convert.hpp"
#include "common/numeric_types.hpp"
#include "common/scratch.hpp"
#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "ndarray/ndarray.hpp"
#include "qzimages/qzimages.hpp"
#include "resize/resize.hpp"

namespace qz {

namespace ids = ORRERY::images::resizeDim;

void validateResizeArgs(int numInputs, ndArray_tag const** inputs) {
  // The key says three, but the host-side caller always passes four
  // arguments; the count is what matters.
  if (numInputs != 4) ndErrMsgId(ids::notThreeArgs());

  ndArray_tag const* image = inputs[0];
  if (!ndIsNumeric(image) || ndIsSparse(image)) ndErrMsgId(ids::invalidImage());
  image->complete_opaque_dimensions();
  if (ndGetNumberOfDimensions(image) > 3) ndErrMsgId(ids::tooManyDims());

  ndArray_tag const* weights = inputs[1];
  if (ndGetClassID(weights) != ndclass::Double) ndErrMsgId(ids::badWeights());
  weights->complete_opaque_dimensions();
  if (ndGetNumberOfDimensions(weights) != 2 || ndIsSparse(weights)) ndErrMsgId(ids::badWeights());

  ndArray_tag const* indices = inputs[2];
  if (ndGetClassID(indices) != ndclass::Double) ndErrMsgId(ids::badIndices());
  if (ndIsSparse(indices)) ndErrMsgId(ids::badIndices());
  indices->complete_opaque_dimensions();
  std::size_t const rank = ndGetNumberOfDimensions(indices);
  if (rank != ndGetNumberOfDimensions(weights)) ndErrMsgId(ids::sizeMismatch());
  std::size_t const* xd = ndGetDimensions(indices);
  std::size_t const* wd = ndGetDimensions(weights);
  for (std::size_t k = 0; k < rank; ++k)
    if (xd[k] != wd[k]) ndErrMsgId(ids::sizeMismatch());

  ndArray_tag const* dim = inputs[3];
  if (ndGetClassID(dim) != ndclass::Double || ndIsSparse(dim)) ndErrMsgId(ids::invalidDim());
}

void buildResizeOffsets(double const* indices, std::size_t count, std::int32_t dim, std::size_t rows,
                        std::size_t* offsets) {
  if (dim == 1) {
    for (std::size_t e = 0; e < count; ++e) offsets[e] = truncToUInt64(indices[e]) - 1;
  } else {
    // A column number becomes the offset of that column's first element
    // within one plane; the row kernels add the row themselves.
    for (std::size_t e = 0; e < count; ++e) offsets[e] = (truncToUInt64(indices[e]) - 1) * rows;
  }
}

}  // namespace qz

namespace pximages {

void _imresize(int, OutputSlot* outputs, int numInputs, ndArray_tag const** inputs) {
  qz::validateResizeArgs(numInputs, inputs);

  ndArray_tag const* image = inputs[0];
  ndArray_tag const* weights = inputs[1];
  ndArray_tag const* indices = inputs[2];
  ndArray_tag const* dimArg = inputs[3];

  std::size_t const* ad = ndGetDimensions(image);
  std::size_t const m = ad[0], n = ad[1];
  std::size_t const p = ndGetNumberOfDimensions(image) == 3 ? ad[2] : 1;
  std::size_t const taps = ndGetDimensions(weights)[0];
  std::size_t const outLength = ndGetN(weights);
  // The dimension argument is read as a scalar whatever its size; reading it
  // measures it, so complete it like the others.
  dimArg->complete_opaque_dimensions();
  std::int32_t const dim = qz::truncToInt32(ndGetScalar(dimArg));

  ndClassID const cls = ndGetClassID(image);
  bool const isComplex = ndIsComplex(image);

  // Logical images are resampled as bytes and give a uint8 result.
  std::size_t const dims[3] = {dim == 1 ? outLength : m, dim == 1 ? n : outLength, p};
  outputs[0] = matrix::detail::do_create_uninitnumeric(dims, cls == ndclass::Logical ? ndclass::UInt8 : cls,
                                                       isComplex ? ndCOMPLEX : ndREAL);

  std::size_t const count = ndGetNumberOfElements(indices);
  qz::ScratchArray<std::size_t> const offsets(count, qz::ScratchFill::Uninitialised);
  qz::buildResizeOffsets(static_cast<double const*>(ndGetData(indices)), count, dim, m, offsets.get());

  qz::ResizeArgs const args{image,     outputs[0].get(), m,   n,  p, outLength, taps, offsets.get(),
                            static_cast<double const*>(ndGetData(weights)), dim, isComplex};
  switch (cls) {
#define QZ_RESIZE_CASE(T, C) \
  case ndclass::C: qz::dispatchResize<T>(args); break;
    QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(QZ_RESIZE_CASE)
#undef QZ_RESIZE_CASE
    case ndclass::Logical:
      // Logical arrays are real: the byte kernels, whatever the complexity.
      if (dim == 1)
        qz::launchResizeCols<qz::ResizeCols<unsigned char, unsigned char>>(args);
      else
        qz::launchResizeRows<qz::ResizeRows<unsigned char, unsigned char>>(args);
      break;
    default:
      // The output already sits in its slot, and the offset table's owner
      // gives it back as the error leaves.
      ndErrMsgId(ORRERY::images::resizeDim::invalidInputClass());
  }
}

}  // namespace pximages
