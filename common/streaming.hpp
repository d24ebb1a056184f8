#pragma once
// Non-temporal stores for large outputs.  A kernel bound by memory that
// writes an output larger than the caches can hold gains from writing it
// past them: the stores then skip reading each output line in before
// overwriting it, and leave the caches to the input.

#include <cstddef>
#include <cstdint>

namespace qz {

// Outputs of at least this many bytes are streamed.
inline constexpr std::size_t kStreamedBytes = std::size_t{4} << 20;

// The number of elements from p, which must be aligned to its own element
// type, on before the first address that is a multiple of `align` bytes.
template <class T>
std::size_t elementsToAlignment(T const* p, std::size_t align) {
  auto const at = reinterpret_cast<std::uintptr_t>(p);
  return (align - at % align) % align / sizeof(T);
}

}  // namespace qz
