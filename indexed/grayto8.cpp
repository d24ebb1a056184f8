// grayto8: checks, the three conversions and the gateway.

#include "indexed/grayto8.hpp"

#include <algorithm>

#include "common/convert.hpp"
#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "qzimages/qzimages.hpp"

namespace qz {

std::size_t countStoredElements(ndArray_tag const* a) {
  if (ndIsSparse(a)) return ndGetJc(a)[ndGetDimensions(a)[1]];
  return ndGetNumberOfElements(a);
}

// Raises the first failing check; a complex image only draws a warning, and
// the conversion goes on with its real parts.
void checkInputs(int numInputs, ndArray_tag const** inputs) {
  namespace grayto8 = ORRERY::images::grayto8;
  if (numInputs <= 0) ndErrMsgId(grayto8::tooFewInputs());
  if (numInputs > 1) ndErrMsgId(grayto8::tooManyInputs());
  ndClassID const cls = ndGetClassID(inputs[0]);
  if (cls != ndclass::Double && cls != ndclass::Single && cls != ndclass::UInt16) ndErrMsgId(grayto8::invalidType());
  if (ndIsComplex(inputs[0])) ndWarningMsgId(grayto8::ignoringImaginaryPartOfInput());
}

// The conversions themselves are in grayto8_hwy.cpp (vector lanes, one copy
// per instruction set); the per-value rules are those of common/convert.hpp.

}  // namespace qz

namespace pximages {

namespace {

template <class T>
void convertAs(ndArray_tag const* in, std::size_t count, std::size_t stride, std::uint8_t* out) {
  qz::convertGrayToBytes(static_cast<T const*>(ndGetData(in)), count, stride, out);
}

}  // namespace

void _grayto8(int, OutputSlot* outputs, int numInputs, ndArray_tag const** inputs) {
  qz::checkInputs(numInputs, inputs);
  ndArray_tag const* in = inputs[0];
  in->complete_opaque_dimensions();
  std::size_t const* dims = ndGetDimensions(in);
  outputs[0] = matrix::detail::do_create_numeric({dims, dims + ndGetNumberOfDimensions(in)}, ndclass::UInt8, ndREAL);
  ndArray_tag* out = outputs[0].get();

  // A sparse image's stored values land, in storage order, at the start of
  // the zero-filled full output; they are not put back at their positions.
  // The count never exceeds the output for a well-formed array; the bound
  // keeps a malformed one from writing past it.
  std::size_t const count = std::min(qz::countStoredElements(in), ndGetNumberOfElements(out));
  std::size_t const stride = ndIsComplex(in) ? 2 : 1;
  auto* bytes = static_cast<std::uint8_t*>(ndGetData(out));
  if (count == 0) return;
  switch (ndGetClassID(in)) {
    case ndclass::Double: convertAs<double>(in, count, stride, bytes); break;
    case ndclass::UInt16: convertAs<std::uint16_t>(in, count, stride, bytes); break;
    default: convertAs<float>(in, count, stride, bytes); break;  // single, the only class left
  }
}

}  // namespace pximages
