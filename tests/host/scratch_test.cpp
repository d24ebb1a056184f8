// The host allocator keeps freed scratch blocks of 256 KiB and more for the
// next request that fits, as it does for array blocks.

#include <algorithm>
#include <cstring>

#include "qztest.hpp"

using ScratchTest = qztest::HostTest;

// A freed block goes to the next request that it holds and that needs at
// least half of it, zeroed again for ndCalloc; smaller blocks go back to the
// system at once.
TEST_F(ScratchTest, FreedBlocksAreReusedZeroedAndOnlyWhereTheyFit) {
  std::size_t const kib = 1024, size = 1024 * kib;
  qzhost::trimBlockCache();
  ndFree(ndMalloc(255 * kib));
  EXPECT_EQ(qzhost::trimBlockCache(), 0u);
  ndFree(ndMalloc(256 * kib));
  EXPECT_EQ(qzhost::trimBlockCache(), 256 * kib);

  void* kept = ndMalloc(size);
  std::memset(kept, 0xFF, size);
  ndFree(kept);
  struct Row {
    std::size_t bytes;
    bool zeroed, reuses;
  };
  Row const rows[] = {{size + 1, false, false}, {size / 2 - 1, true, false}, {size / 2, true, true}, {size, false, true}};
  for (Row const& row : rows) {
    void* p = row.zeroed ? ndCalloc(1, row.bytes) : ndMalloc(row.bytes);
    EXPECT_EQ(p == kept, row.reuses) << row.bytes;
    auto const* bytes = static_cast<unsigned char const*>(p);
    if (row.zeroed) {
      EXPECT_EQ(std::count(bytes, bytes + row.bytes, 0), static_cast<std::ptrdiff_t>(row.bytes));
    }
    ndFree(p);
  }
  // Kept now: the two blocks that did not fit and the first one, which the
  // last request took and gave back.
  EXPECT_EQ(qzhost::trimBlockCache(), (size + 1) + (size / 2 - 1) + size);
  EXPECT_EQ(qzhost::trimBlockCache(), 0u);
}
