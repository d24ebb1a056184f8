#pragma once
// The imresize gateway's own steps, visible to the tests: argument checks
// and the table of element offsets built from the 1-based source indices.

#include <cstddef>
#include <cstdint>

#include "ndarray/ndarray.hpp"

namespace qz {

// Checks the four arguments (image, weights, indices, dimension) in order and
// raises the first failure; returns normally when all pass.  The class of the
// image is checked later, at dispatch.
void validateResizeArgs(int numInputs, ndArray_tag const** inputs);

// offsets[e] = u(indices[e]) - 1 along dimension 1, or (u(indices[e]) - 1) *
// rows along dimension 2, where u truncates a double to uint64 as the
// processor does.  The arithmetic wraps modulo 2^64 like the conversion.
void buildResizeOffsets(double const* indices, std::size_t count, std::int32_t dim, std::size_t rows,
                        std::size_t* offsets);

}  // namespace qz
