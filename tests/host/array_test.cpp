// The host array as the library reads it: dimensions, class codes, sparse
// storage, creatable classes and tolerated misuse.

#include <algorithm>

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

// Large element blocks are kept on release and handed to the next array that
// fits: zeroed again for a creation that promises zeros, never to an array
// larger than the block, and not to one under half its size.
TEST_F(ArrayTest, ReleasedLargeBlocksAreReusedZeroedAndOnlyWhereTheyFit) {
  qzhost::trimBlockCache();
  std::size_t const n = std::size_t{1} << 21;  // 16 MiB of doubles
  void* kept = nullptr;
  {
    auto a = qzhost::makeArray(ndclass::Double, {n, 1});
    kept = ndGetData(a.get());
    std::memset(kept, 0xFF, n * sizeof(double));
  }
  std::pair<std::size_t, bool> const rows[] = {{2 * n, false}, {n / 2 - 1, false}, {n / 2, true}, {n, true}};
  for (auto const& [elements, reuses] : rows) {
    auto b = matrix::detail::do_create_numeric(Dims{elements, 1}, ndclass::Double, ndREAL);
    auto const* d = static_cast<double const*>(ndGetData(b.get()));
    EXPECT_EQ(d == kept, reuses) << elements;
    EXPECT_EQ(std::count(d, d + elements, 0.0), static_cast<std::ptrdiff_t>(elements)) << elements;
  }
  // Kept now: the two blocks that did not fit; the first went back to the
  // last array, which was released in turn.
  EXPECT_EQ(qzhost::trimBlockCache(), (2 * n + n / 2 - 1 + n) * sizeof(double));
  EXPECT_EQ(qzhost::trimBlockCache(), 0u);
}

TEST_F(ArrayTest, OnlyTheFourLatestReleasedBlocksAreKept) {
  qzhost::trimBlockCache();
  std::size_t const mib = std::size_t{1} << 20;
  for (std::size_t size : {5, 6, 7, 8, 9}) qzhost::makeArray(ndclass::UInt8, {size * mib, 1});
  EXPECT_EQ(qzhost::trimBlockCache(), (6 + 7 + 8 + 9) * mib);
}
