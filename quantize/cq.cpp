// cq: argument checking and the gateway around the colour quantiser.

#include "quantize/cq.hpp"

#include <utility>

#include "common/convert.hpp"
#include "common/scratch.hpp"
#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "quantize/quantize.hpp"
#include "qzimages/qzimages.hpp"

namespace qz {

std::uint64_t validateCqInputs(int numInputs, ndArray_tag const** inputs) {
  namespace cq = ORRERY::images::cq;
  if (numInputs != 2) ndErrMsgId(cq::twoInputsRequired());

  ndArray_tag const* image = inputs[0];
  if (ndGetClassID(image) != ndclass::UInt8) ndErrMsgId(cq::firstInputMustBeUint8());
  if (ndIsComplex(image)) ndErrMsgId(cq::firstInputMustNotBeComplex());
  // An array in the compact two-dimensional form reports two dimensions.
  image->complete_opaque_dimensions();
  if (ndGetNumberOfDimensions(image) != 3) ndErrMsgId(cq::firstInputMustBe3DUint8());
  if (ndGetDimensions(image)[2] != 3) ndErrMsgId(cq::firstInputMustBeMbyNby3());

  // The shape comes before complexity, so a complex 1x2 count is reported
  // as not being a scalar.
  ndArray_tag const* count = inputs[1];
  count->complete_opaque_dimensions();
  if (ndGetClassID(count) != ndclass::Double || ndGetNumberOfDimensions(count) != 2 ||
      ndGetDimensions(count)[0] != 1 || ndGetN(count) != 1)
    ndErrMsgId(cq::secondArgMustBeDoubleScalar());
  if (ndIsComplex(count)) ndErrMsgId(cq::secondInputMustNotBeComplex());
  // NaN passes this test and -0.0 counts as zero.
  if (ndGetScalar(count) < 0) ndErrMsgId(cq::numColorsMustBeNonNegative());
  // Fractions truncate; NaN and 2^63 up to 2^64 come out too large, while
  // +Inf and values from 2^64 up convert to 0 and ask for no colours.
  std::uint64_t const colors = truncToUInt64(ndGetScalar(count));
  if (colors > kMaxRequestedColors) ndErrMsgId(cq::tooManyColors());
  return colors;
}

}  // namespace qz

namespace pximages {

void _cq(int numOutputs, OutputSlot* outputs, int numInputs, ndArray_tag const** inputs) {
  std::size_t const K = static_cast<std::size_t>(qz::validateCqInputs(numInputs, inputs));

  ndArray_tag const* image = inputs[0];
  image->complete_opaque_dimensions();
  std::size_t const* dims = ndGetDimensions(image);
  std::size_t const pixels = dims[0] * dims[1];
  auto const* planes = static_cast<std::uint8_t const*>(ndGetData(image));

  // The labels need 16 bits until the number of colours is known; the
  // quantiser first keeps each pixel's cell code in them, and every element
  // is written before it is read.
  matrix::detail::ArrayHandle index =
      matrix::detail::do_create_uninitnumeric({dims, dims + 2}, ndclass::UInt16, ndREAL);
  auto* labels = static_cast<std::uint16_t*>(ndGetData(index.get()));
  using qz::ScratchArray;
  using qz::ScratchFill;
  std::size_t constexpr cells = qz::kCellCount;
  ScratchArray<std::uint16_t> cellLabel(cells, ScratchFill::Uninitialised);
  std::size_t colors;
  {
    // Sized by the request; only the first K' entries are written.
    ScratchArray<std::uint8_t> red(K, ScratchFill::Uninitialised), green(K, ScratchFill::Uninitialised),
        blue(K, ScratchFill::Uninitialised);
    // The index image is written here rather than in place by the
    // quantiser, so that a narrow one comes from the cell codes in one pass.
    colors = qz::quantizeColors(planes, planes + pixels, planes + 2 * pixels, pixels, red.get(), green.get(),
                                blue.get(), K, labels, false, cellLabel.get());

    std::size_t const mapDims[2] = {colors, 3};
    outputs[0] = matrix::detail::do_create_numeric(mapDims, ndclass::UInt8, ndREAL);
    auto* map = static_cast<std::uint8_t*>(ndGetData(outputs[0].get()));
    for (std::size_t k = 0; k < colors; ++k) {
      map[k] = red[k];
      map[colors + k] = green[k];
      map[2 * colors + k] = blue[k];
    }
  }
  if (numOutputs <= 1) return;  // the index image goes with its handle
  if (colors > 256) {
    qz::relabelPixels(labels, pixels, cellLabel.get(), labels);
    outputs[1] = std::move(index);
    return;
  }

  // Every label fits in a byte: hand back the narrow class.
  matrix::detail::ArrayHandle narrow =
      matrix::detail::do_create_uninitnumeric({dims, dims + 2}, ndclass::UInt8, ndREAL);
  // Byte labels from a byte table: half the table the pass looks up in.
  ScratchArray<std::uint8_t> byteLabel(cells, ScratchFill::Uninitialised);
  for (std::size_t c = 0; c < cells; ++c) byteLabel[c] = static_cast<std::uint8_t>(cellLabel[c]);
  qz::relabelPixels(labels, pixels, byteLabel.get(), static_cast<std::uint8_t*>(ndGetData(narrow.get())));
  index.reset();
  outputs[1] = std::move(narrow);
}

}  // namespace pximages
