#pragma once
// The runtime's own view of the array storage, shared by its source files.

#include <atomic>

#include "ndarray/ndarray.hpp"

namespace qzhost::detail {

struct ArrayAccess {
  using Flag = ArrayStorage::Flag;
  static ndArray_tag* make() { return new ndArray_tag(); }
  static void destroy(ndArray_tag* a) { delete a; }
  static ArrayStorage& of(ndArray_tag const* a) { return a->s_; }
  static bool has(ndArray_tag const* a, Flag f) { return (a->s_.flags.load(std::memory_order_acquire) & f) != 0; }
};

// Counts a misuse of the array interface that the runtime tolerates.
void noteContractViolation(char const* what);

// Counters shared between the array and allocator sources.
extern std::atomic<std::size_t> gLiveArrays;

// Counts one allocation or array creation for the failure-injection hook on
// this thread; true when it is the one the hook was armed to fail.
bool injectFailureHere();

// Large element blocks: a kept block of at least `bytes` (its real size in
// `capacity`), or null; and the release of a block of `capacity` bytes,
// which the runtime may keep for a later array instead of freeing it.
void* takeCachedBlock(std::size_t bytes, std::size_t& capacity);
void releaseBlock(void* p, std::size_t capacity);
// The same for scratch blocks of ndMalloc and ndCalloc, kept apart.
void* takeScratchBlock(std::size_t bytes, std::size_t& capacity);
void releaseScratchBlock(void* p, std::size_t capacity);

}  // namespace qzhost::detail
