// The host array as the library reads it: dimensions, class codes, sparse
// storage, creatable classes and tolerated misuse; the blocks kept for reuse.

#include <algorithm>
#include <functional>
#include <memory>
#include <tuple>

#include "qztest.hpp"

using qzhost::DimForm;
using ArrayTest = qztest::HostTest;
using Dims = std::vector<std::size_t>;

TEST_F(ArrayTest, DimensionsArePaddedToTwoAndLoseTrailingSingletonsBeyondThat) {
  std::pair<Dims, Dims> const rows[] = {{{4, 5, 1}, {4, 5}}, {{4, 1, 1, 1}, {4, 1}}, {{}, {1, 1}},
                                        {{1}, {1, 1}},       {{4, 1, 3}, {4, 1, 3}}, {{0, 3, 1}, {0, 3}}};
  for (auto const& [given, held] : rows) {
    EXPECT_EQ(qzhost::dimsOf(qzhost::makeArray(ndclass::Double, given).get()), held);
    EXPECT_EQ(qzhost::dimsOf(matrix::detail::do_create_numeric(given, ndclass::UInt8, ndREAL).get()), held);
  }
}

// Not a HostTest: the misuse is the point.
TEST(MisuseTest, IsAnsweredOrRefusedButReported) {
  std::size_t const before = qzhost::contractViolations();
  auto lazy = qzhost::makeArray(ndclass::UInt8, {2, 3, 4}, false, DimForm::Lazy);
  EXPECT_EQ(ndGetNumberOfElements(lazy.get()), 24u);  // read before completion
  int local = 0;
  ndFree(&local);  // not the host's block: left alone
  EXPECT_EQ(qzhost::contractViolations(), before + 2);
}

TEST_F(ArrayTest, ClassCodesNumericFlagAndCreatableClasses) {
  for (ndClassID c = 0; c <= 17; ++c) {
    auto a = qzhost::makeArray(c, {1, 1});
    // Logical (3) and char (4) hold numeric storage too.
    bool const numeric = c >= ndclass::Double && c <= ndclass::UInt64, creatable = numeric || c == 3 || c == 4;
    EXPECT_EQ(ndIsNumeric(a.get()), numeric || c == ndclass::Logical) << c;
    EXPECT_EQ(ndGetClassID(a.get()), c);
    EXPECT_EQ(qzhost::nonTrivialClassQueries(a.get()), c > 16 ? 1u : 0u) << c;  // codes above 16 ask the array
    EXPECT_EQ(qztest::errorOf([c] { matrix::detail::do_create_numeric(Dims{1}, c, ndREAL); }),
              creatable ? "" : "qzhost:cannotCreateClass");
  }
}

TEST_F(ArrayTest, SparseScalarReadsAndMalformedLayouts) {
  EXPECT_EQ(ndGetScalar(qzhost::makeSparse(3, 2, {0, 2, 3}, {0, 2, 1}, {1.0, 2.0, 3.0}).get()), 1.0);
  // The first element is stored only if column 0 holds row 0.
  EXPECT_EQ(ndGetScalar(qzhost::makeSparse(2, 2, {0, 1, 2}, {1, 1}, {4.0, 5.0}).get()), 0.0);
  EXPECT_EQ(ndGetScalar(qzhost::makeSparse(2, 2, {0, 0, 1}, {0}, {4.0}).get()), 0.0);
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 2, {0, 2}, {0, 2}, {1.0, 2.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 2, {0, 2, 1}, {0, 2}, {1.0, 2.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 1, {0, 1}, {3}, {1.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 1, {1, 1}, {0}, {1.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 1, {0, 1}, {0}, {1.0, 2.0}), "qzhost:badSparseLayout");
}

// Large released blocks are kept (element blocks of arrays; scratch blocks
// of 256 KiB and more, smaller ones going back to the system at once) and
// handed to the next request of their kind that fits: zeroed again where
// zeros are promised (arrays always are), never to a larger request, and
// not to one under half the block's size.
TEST_F(ArrayTest, ReleasedLargeBlocksAreReusedZeroedAndOnlyWhereTheyFit) {
  std::size_t const kib = 1024, size = 16 * kib * kib;
  qzhost::trimBlockCache();
  ndFree(ndMalloc(255 * kib));
  EXPECT_EQ(qzhost::trimBlockCache(), 0u);
  void* const smallest = ndMalloc(256 * kib);
  ndFree(smallest);
  void* const again = ndMalloc(256 * kib);
  EXPECT_EQ(again, smallest);  // handed out again
  ndFree(again);
  EXPECT_EQ(qzhost::trimBlockCache(), 256 * kib);
  for (bool scratch : {false, true}) {
    // A block of `bytes` and what gives it back.
    auto get = [scratch](std::size_t bytes, bool zeroed) -> std::pair<void*, std::function<void()>> {
      if (scratch) {
        void* p = zeroed ? ndCalloc(1, bytes) : ndMalloc(bytes);
        return {p, [p] { ndFree(p); }};
      }
      auto a = std::make_shared<qzhost::ArrayPtr>(
          matrix::detail::do_create_numeric(Dims{bytes, 1}, ndclass::UInt8, ndREAL));
      return {ndGetData(a->get()), [a] { a->reset(); }};
    };
    auto [kept, giveBack] = get(size, false);
    std::memset(kept, 0xFF, size);
    giveBack();
    std::tuple<std::size_t, bool, bool> const rows[] = {  // bytes, zeroed, reuses
        {size + 1, false, false}, {size / 2 - 1, true, false}, {size / 2, true, true}, {size, false, true}};
    for (auto const& [bytes, zeroed, reuses] : rows) {
      auto [p, release] = get(bytes, zeroed);
      EXPECT_EQ(p == kept, reuses) << bytes;
      auto const* b = static_cast<unsigned char const*>(p);
      EXPECT_TRUE((scratch && !zeroed) || std::count(b, b + bytes, 0) == std::ptrdiff_t(bytes)) << bytes;
      release();
    }
    // Kept now: the two blocks that did not fit and the first one, which the
    // last request took and gave back.
    EXPECT_EQ(qzhost::trimBlockCache(), (size + 1) + (size / 2 - 1) + size) << scratch;
  }
  EXPECT_EQ(qzhost::trimBlockCache(), 0u);
}

TEST_F(ArrayTest, OnlyTheFourLatestReleasedBlocksAreKept) {
  qzhost::trimBlockCache();
  std::size_t const mib = std::size_t{1} << 20;
  for (std::size_t size : {5, 6, 7, 8, 9}) qzhost::makeArray(ndclass::UInt8, {size * mib, 1});
  EXPECT_EQ(qzhost::trimBlockCache(), (6 + 7 + 8 + 9) * mib);
}
