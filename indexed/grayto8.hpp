#pragma once
// Scaling of double, single and uint16 grayscale images into bytes.  Serial:
// one pass over the stored values on the calling thread.

#include <cstddef>
#include <cstdint>

#include "ndarray/ndarray.hpp"

namespace qz {

// The gateway's checks in order: raises the first failure, or issues the
// warning for a complex image and returns.
void checkInputs(int numInputs, ndArray_tag const** inputs);

// The number of values an array stores: for a sparse array its column-start
// entry at index N (the second dimension), otherwise every element.
// Dimensions must be complete.
std::size_t countStoredElements(ndArray_tag const* a);

// Converts `count` values read `stride` apart (2 skips the imaginary parts of
// interleaved complex data) into consecutive bytes.
void convertGrayToBytes(double const* in, std::size_t count, std::size_t stride, std::uint8_t* out);
void convertGrayToBytes(float const* in, std::size_t count, std::size_t stride, std::uint8_t* out);
void convertGrayToBytes(std::uint16_t const* in, std::size_t count, std::size_t stride, std::uint8_t* out);

}  // namespace qz
