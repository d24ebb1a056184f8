#pragma once
// Scratch memory from the host allocator with a single owner, for the tables
// a built-in needs only while it runs.  The owner gives the block back
// through ndFree when it goes out of scope, on the normal path and while an
// error unwinds alike, so no path frees by hand and none can free twice.  If
// the host's error call leaves without unwinding, the block is still
// outstanding and the host reclaims it with the call's other scratch memory.

#include <cstddef>
#include <cstdint>

#include "ndarray/ndarray.hpp"

namespace qz {

enum class ScratchFill { Uninitialised, Zeroed };

template <class T>
class ScratchArray {
 public:
  ScratchArray(std::size_t count, ScratchFill fill)
      : data_(static_cast<T*>(fill == ScratchFill::Zeroed ? ndCalloc(count, sizeof(T)) : ndMalloc(bytesFor(count)))) {}
  ~ScratchArray() { ndFree(data_); }

  ScratchArray(ScratchArray const&) = delete;
  ScratchArray& operator=(ScratchArray const&) = delete;

  T* get() const { return data_; }
  T& operator[](std::size_t i) const { return data_[i]; }

 private:
  // A byte count that does not fit in size_t becomes a request no allocator
  // can meet, so the host reports it as running out of memory.
  static std::size_t bytesFor(std::size_t count) {
    std::size_t bytes;
    return __builtin_mul_overflow(count, sizeof(T), &bytes) ? SIZE_MAX : bytes;
  }

  T* data_;
};

}  // namespace qz
