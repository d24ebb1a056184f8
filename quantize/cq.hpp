#pragma once
// The cq gateway's argument checking.

#include <cstdint>

#include "ndarray/ndarray.hpp"

namespace qz {

// The most colours a caller may ask for.
inline constexpr std::uint64_t kMaxRequestedColors = 65536;

// Checks the image and the colour count in order, raising the first failure,
// and returns the count as the processor's unsigned conversion gives it.
// Allocates nothing.
std::uint64_t validateCqInputs(int numInputs, ndArray_tag const** inputs);

}  // namespace qz
