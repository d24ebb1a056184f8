#pragma once

#include <cstddef>
#include <cstdint>

namespace qzhost::detail {

// While alive, ndMalloc/ndCalloc blocks taken on this thread belong to this
// scope, so that the host can free those a failed call left behind.
class CallScope {
 public:
  CallScope();
  ~CallScope();
  CallScope(CallScope const&) = delete;
  CallScope& operator=(CallScope const&) = delete;
  // Frees the blocks of this scope that are still alive; returns how many.
  std::size_t reclaim();

 private:
  std::uint64_t id_ = 0;
  std::uint64_t previous_;
};

}  // namespace qzhost::detail
