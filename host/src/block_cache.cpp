// Recently released large element blocks, kept for the next array, and
// likewise recently freed scratch blocks, kept for the next ndMalloc.
//
// A large block comes from a fresh mapping, and the first touch of its pages
// (the system zeroing them, one fault per page) costs more than most
// built-ins that fill them: 36 MB took about 9 ms to touch the first time
// here and under 1 ms the second.  A caller working through images releases
// one result and asks for another of the same size, so the runtime keeps a
// few of the blocks it released and hands them out again.  What it keeps is
// bounded (a few blocks, an eighth of the memory, at most 512 MiB) and can
// be given back at any time with trimBlockCache().

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "access.hpp"
#include "qzhost/runtime.hpp"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
// A kept block is poisoned, so a use after release is still reported.
#define QZ_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define QZ_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define QZ_POISON(p, n) ((void)(p), (void)(n))
#define QZ_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace qzhost::detail {
namespace {

std::size_t budgetBytes() {
  long const pages = sysconf(_SC_PHYS_PAGES);
  long const page = sysconf(_SC_PAGESIZE);
  std::size_t const eighth = pages > 0 && page > 0 ? static_cast<std::size_t>(pages) / 8 * page : 0;
  return std::min(eighth, std::size_t{512} << 20);
}

struct Block {
  void* data = nullptr;
  std::size_t bytes = 0;
  std::uint64_t age = 0;  // when it was kept; the oldest goes first
};

constexpr std::size_t kMaxSlots = 8;

struct Cache {
  Cache(std::size_t slotCount, std::size_t smallestBlock) : slots(slotCount), smallest(smallestBlock) {}

  std::mutex mutex;
  std::array<Block, kMaxSlots> blocks;
  std::size_t const slots;     // how many of `blocks` are used
  std::size_t const smallest;  // below this, the system allocator reuses well
  std::size_t held = 0;
  std::uint64_t clock = 0;
  std::size_t const budget = budgetBytes();

  Block* begin() { return blocks.data(); }
  Block* end() { return blocks.data() + slots; }
};

// Element blocks of arrays.
Cache& arrayCache() {
  static Cache* c = new Cache(4, std::size_t{4} << 20);  // outlives every static destructor that might release
  return *c;
}

// Scratch blocks from ndMalloc and ndCalloc: a built-in takes several of a
// few hundred KiB to a few MiB per call (tables, moments), which the system
// allocator maps afresh each time, a fault per page.
Cache& scratchCache() {
  static Cache* c = new Cache(8, std::size_t{256} << 10);
  return *c;
}

void* take(Cache& c, std::size_t bytes, std::size_t& capacity) {
  if (bytes < c.smallest) return nullptr;
  std::lock_guard<std::mutex> lock(c.mutex);
  // The smallest kept block that holds the request, and no more than twice
  // it, so a small request does not pin a huge block.
  Block* best = nullptr;
  for (Block& b : c)
    if (b.data && b.bytes >= bytes && b.bytes / 2 <= bytes && (!best || b.bytes < best->bytes)) best = &b;
  if (!best) return nullptr;
  void* p = best->data;
  capacity = best->bytes;
  c.held -= best->bytes;
  *best = Block{};
  QZ_UNPOISON(p, bytes);
  return p;
}

void release(Cache& c, void* p, std::size_t bytes) {
  if (!p) return;
  if (bytes < c.smallest || bytes > c.budget) {
    std::free(p);
    return;
  }
  Block evicted[kMaxSlots];
  std::size_t n = 0;
  {
    std::lock_guard<std::mutex> lock(c.mutex);
    // Make room by letting the oldest blocks go, then keep this one in a
    // free slot.
    auto oldest = [&c] {
      Block* o = nullptr;
      for (Block& b : c)
        if (b.data && (!o || b.age < o->age)) o = &b;
      return o;
    };
    Block* slot = nullptr;
    while (true) {
      slot = std::find_if(c.begin(), c.end(), [](Block const& b) { return !b.data; });
      if (slot != c.end() && c.held + bytes <= c.budget) break;
      Block* o = oldest();
      evicted[n++] = *o;
      c.held -= o->bytes;
      *o = Block{};
    }
    *slot = Block{p, bytes, ++c.clock};
    c.held += bytes;
    QZ_POISON(p, bytes);
  }
  for (std::size_t i = 0; i < n; ++i) {
    QZ_UNPOISON(evicted[i].data, evicted[i].bytes);
    std::free(evicted[i].data);
  }
}

std::size_t trim(Cache& c) {
  std::lock_guard<std::mutex> lock(c.mutex);
  std::size_t const freed = c.held;
  for (Block& b : c) {
    if (!b.data) continue;
    QZ_UNPOISON(b.data, b.bytes);
    std::free(b.data);
    b = Block{};
  }
  c.held = 0;
  return freed;
}

}  // namespace

void* takeCachedBlock(std::size_t bytes, std::size_t& capacity) { return take(arrayCache(), bytes, capacity); }
void releaseBlock(void* p, std::size_t capacity) { release(arrayCache(), p, capacity); }
void* takeScratchBlock(std::size_t bytes, std::size_t& capacity) { return take(scratchCache(), bytes, capacity); }
void releaseScratchBlock(void* p, std::size_t capacity) { release(scratchCache(), p, capacity); }

}  // namespace qzhost::detail

namespace qzhost {

std::size_t trimBlockCache() { return detail::trim(detail::arrayCache()) + detail::trim(detail::scratchCache()); }

}  // namespace qzhost
