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

// Resamples image A along dimension 1 (D == 1) or 2 (any other D) with the
// T-by-L weights W and 1-based source indices X: inputs (A, W, X, D).  The
// result has L rows (D == 1) or L columns, and A's class (uint8 for logical).
QZIMAGES_API void _imresize(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                            int numInputs, ndArray_tag const** inputs);

// Weighted luminance of an M-by-N-by-3 image of any numeric class; the
// result is M-by-N of the same class.
QZIMAGES_API void _rgb2gray(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                            int numInputs, ndArray_tag const** inputs);

// Hue, saturation and value of an M-by-N-by-3 image: single for single
// input, double for uint8, uint16 and double input, and a double zero image
// for any other class.
QZIMAGES_API void _rgb2hsv(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                           int numInputs, ndArray_tag const** inputs);

// An M-by-N index image (double, 1-based; uint8, uint16 or uint32, 0-based)
// looked up in a K-by-3 double colour map: an M-by-N-by-3 uint8 image.
QZIMAGES_API void _ind2rgb8(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                            int numInputs, ndArray_tag const** inputs);

// A double, single or uint16 grayscale image scaled into uint8, same size.
QZIMAGES_API void _grayto8(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                           int numInputs, ndArray_tag const** inputs);

// Colour quantisation of an M-by-N-by-3 uint8 image to at most K colours
// (inputs: the image and K as a real double scalar, 0 <= K <= 65536).
// outputs[0] is the K'-by-3 uint8 colour map; when more than one output is
// asked for, outputs[1] is the M-by-N 0-based index image, uint8 when
// K' <= 256 and uint16 otherwise.
QZIMAGES_API void _cq(int numOutputs, std::unique_ptr<ndArray_tag, matrix::detail::ndDestroy_deleter>* outputs,
                      int numInputs, ndArray_tag const** inputs);

}  // namespace pximages
