// The host allocator: accounting, zeroing and misuse that must not corrupt
// the heap.

#include "qztest.hpp"

namespace {

TEST(AllocatorTest, BlocksAreCountedUntilFreed) {
  std::size_t before = qzhost::liveBlocks();
  void* a = ndMalloc(100);
  void* b = ndCalloc(10, 8);
  void* z = ndMalloc(0);  // a zero-byte request is a block of its own
  EXPECT_NE(z, nullptr);
  EXPECT_EQ(qzhost::liveBlocks(), before + 3);
  auto const* bytes = static_cast<unsigned char const*>(b);
  EXPECT_EQ(std::count(bytes, bytes + 80, 0), 80);
  ndFree(a);
  ndFree(b);
  ndFree(z);
  ndFree(nullptr);
  EXPECT_EQ(qzhost::liveBlocks(), before);
}

TEST(AllocatorTest, OverflowingAndImpossibleRequestsAreHostErrors) {
  EXPECT_QZ_ERROR(ndCalloc(std::size_t{1} << 40, std::size_t{1} << 40), "qzhost:outOfMemory");
  EXPECT_QZ_ERROR(ndMalloc(~std::size_t{0} - 64), "qzhost:outOfMemory");
  EXPECT_QZ_ERROR(ndMalloc(std::size_t{1} << 50), "qzhost:outOfMemory");  // more than any machine has
  EXPECT_QZ_ERROR(qzhost::makeArray(ndclass::Double, {std::size_t{1} << 24, std::size_t{1} << 23}), "qzhost:outOfMemory");
}

TEST(AllocatorTest, FreeingAForeignPointerIsReportedNotPerformed) {
  std::size_t before = qzhost::contractViolations();
  int local = 0;
  ndFree(&local);
  EXPECT_EQ(qzhost::contractViolations(), before + 1);
}

TEST(AllocatorTest, NaNTest) {
  EXPECT_TRUE(ndIsNaN(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_TRUE(ndIsNaN(-std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(ndIsNaN(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(ndIsNaN(-0.0));
}

}  // namespace
