// The host allocator and the per-call scopes that let the host reclaim the
// scratch memory of a built-in that raised.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#include "access.hpp"
#include "call_scope.hpp"
#include "qzhost/runtime.hpp"

namespace qzhost::detail {
namespace {

struct Taken {
  std::uint64_t scope;   // the call that took the block (0: none)
  std::size_t capacity;  // its size, which may exceed the request
};

struct Registry {
  std::mutex mutex;
  std::unordered_map<void*, Taken> blocks;
  std::uint64_t nextScope = 1;
};

Registry& registry() {
  static Registry* r = new Registry;  // outlives every static destructor that might free
  return *r;
}

thread_local std::uint64_t tCurrentScope = 0;
std::atomic<std::size_t> gViolations{0};

// The failure-injection hook of this thread (see runtime.hpp).
struct FailureInjection {
  bool armed = false;
  std::size_t failAt = 0;
  std::size_t counted = 0;
};
thread_local FailureInjection tInjection;

void* track(void* p, std::size_t capacity) {
  auto& r = registry();
  try {
    std::lock_guard<std::mutex> lock(r.mutex);
    r.blocks.emplace(p, Taken{tCurrentScope, capacity});
  } catch (std::bad_alloc const&) {
    // No room to record the block: give it back rather than lose it.
    releaseScratchBlock(p, capacity);
    qzhost::raise("outOfMemory");
  }
  return p;
}

// A kept block of at least `bytes`, or one from the system; null only for
// an injected failure or a real shortage.
void* obtain(std::size_t bytes, bool zero, std::size_t& capacity) {
  if (injectFailureHere()) return nullptr;
  if (void* p = takeScratchBlock(bytes, capacity)) return zero ? std::memset(p, 0, bytes) : p;
  capacity = bytes ? bytes : 1;  // a zero-byte request still gets a block of its own
  return zero ? std::calloc(capacity, 1) : std::malloc(capacity);
}

}  // namespace

void noteContractViolation(char const* what) {
  gViolations.fetch_add(1);
  std::fprintf(stderr, "qzhost: interface misuse: %s\n", what);
}

bool injectFailureHere() {
  if (!tInjection.armed) return false;
  return ++tInjection.counted == tInjection.failAt;
}

CallScope::CallScope() : previous_(tCurrentScope) {
  auto& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  id_ = r.nextScope++;
  tCurrentScope = id_;
}

CallScope::~CallScope() { tCurrentScope = previous_; }

std::size_t CallScope::reclaim() {
  auto& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  std::size_t freed = 0;
  for (auto it = r.blocks.begin(); it != r.blocks.end();) {
    if (it->second.scope == id_) {
      releaseScratchBlock(it->first, it->second.capacity);
      it = r.blocks.erase(it);
      ++freed;
    } else {
      ++it;
    }
  }
  return freed;
}

}  // namespace qzhost::detail

using qzhost::detail::track;

namespace {
// No object can be larger than the signed address range; refuse such
// requests before they reach the system allocator.
void checkSize(std::size_t bytes) {
  if (bytes > static_cast<std::size_t>(PTRDIFF_MAX)) qzhost::raise("outOfMemory");
}
}  // namespace

// An injected failure takes the path of a null result from the system
// allocator, so a test sees exactly what a real shortage would produce.
void* ndMalloc(std::size_t bytes) {
  checkSize(bytes);
  std::size_t capacity = 0;
  void* p = qzhost::detail::obtain(bytes, false, capacity);
  if (!p) qzhost::raise("outOfMemory");
  return track(p, capacity);
}

void* ndCalloc(std::size_t count, std::size_t size) {
  std::size_t bytes;
  if (__builtin_mul_overflow(count, size, &bytes)) qzhost::raise("outOfMemory");
  checkSize(bytes);
  std::size_t capacity = 0;
  void* p = qzhost::detail::obtain(bytes, true, capacity);
  if (!p) qzhost::raise("outOfMemory");
  return track(p, capacity);
}

void ndFree(void* p) {
  if (!p) return;
  auto& r = qzhost::detail::registry();
  std::size_t capacity;
  {
    std::lock_guard<std::mutex> lock(r.mutex);
    auto const it = r.blocks.find(p);
    if (it == r.blocks.end()) {
      // Freeing what the host never handed out would corrupt its heap.
      qzhost::detail::noteContractViolation("ndFree of a pointer not from ndMalloc/ndCalloc");
      return;
    }
    capacity = it->second.capacity;
    r.blocks.erase(it);
  }
  qzhost::detail::releaseScratchBlock(p, capacity);
}

namespace qzhost {

std::size_t liveBlocks() {
  auto& r = detail::registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  return r.blocks.size();
}

std::size_t contractViolations() { return detail::gViolations.load(); }

void armAllocationFailure(std::size_t failAt) { detail::tInjection = {true, failAt, 0}; }

void disarmAllocationFailure() { detail::tInjection.armed = false; }

std::size_t allocationsCounted() { return detail::tInjection.counted; }

}  // namespace qzhost
