#pragma once
// The entry points of libqzimages.  A host loads the library, calls
// PXInitialize_libqzimages, then calls the built-ins with its gateway
// convention: the number of outputs asked for, the output slots (at least
// one), the number of inputs and the read-only inputs.

#include <memory>

#include "ndarray/ndarray.hpp"

#define QZIMAGES_API __attribute__((visibility("default")))

extern "C" {
QZIMAGES_API void PXInitialize_libqzimages();
QZIMAGES_API void PXTerminate_libqzimages();
}

namespace pximages {

using OutputSlot = std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>;

// Weighted luminance of an M-by-N-by-3 image of any numeric class; the
// result is M-by-N of the same class.
QZIMAGES_API void _rgb2gray(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                            int numInputs, ndArray_tag const** inputs);

// Colour quantisation of an M-by-N-by-3 uint8 image to at most K colours
// (inputs: the image and K as a real double scalar, 0 <= K <= 65536).
// outputs[0] is the K'-by-3 uint8 colour map; when more than one output is
// asked for, outputs[1] is the M-by-N 0-based index image, uint8 when
// K' <= 256 and uint16 otherwise.
QZIMAGES_API void _cq(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                      int numInputs, ndArray_tag const** inputs);

}  // namespace pximages
