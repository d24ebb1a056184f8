// The host array as the library reads it: dimension forms, class codes,
// complex storage, creation rules and release.

#include <cmath>
#include <limits>

#include "qztest.hpp"

namespace {

using qzhost::DimForm;
using qztest::HostTest;

using ArrayTest = HostTest;

TEST_F(ArrayTest, TrailingSingletonsBeyondTheSecondAreDropped) {
  struct Row {
    std::vector<std::size_t> given, held;
  } rows[] = {
      {{4, 5, 1}, {4, 5}},       {{4, 1, 1, 1}, {4, 1}}, {{1}, {1, 1}},        {{}, {1, 1}},
      {{4, 1, 3}, {4, 1, 3}},    {{1, 1, 1, 2}, {1, 1, 1, 2}}, {{0, 3, 1}, {0, 3}},
  };
  for (auto const& r : rows) {
    auto a = qzhost::makeArray(ndclass::Double, r.given);
    EXPECT_EQ(qzhost::dimsOf(a.get()), r.held) << "given " << r.given.size() << " dims";
    auto c = matrix::detail::do_create_numeric(r.given, ndclass::UInt8, ndREAL);
    EXPECT_EQ(qzhost::dimsOf(c.get()), r.held);
  }
}

TEST_F(ArrayTest, CompactFormReportsTwoDimensionsOverItsStoredPair) {
  auto a = qzhost::makeArray(ndclass::Double, {3, 7}, false, DimForm::Compact);
  ASSERT_EQ(ndGetNumberOfDimensions(a.get()), 2u);
  std::size_t const* d = ndGetDimensions(a.get());
  EXPECT_EQ(d[0], 3u);
  EXPECT_EQ(d[1], 7u);
  EXPECT_EQ(ndGetNumberOfElements(a.get()), 21u);
  EXPECT_EQ(ndGetN(a.get()), 7u);
  EXPECT_THROW(qzhost::makeArray(ndclass::Double, {3, 7, 2}, false, DimForm::Compact), qzhost::HostError);
}

TEST_F(ArrayTest, LazyDimensionsAppearOnlyAfterCompletion) {
  auto a = qzhost::makeArray(ndclass::UInt8, {2, 3, 4}, false, DimForm::Lazy);
  a->complete_opaque_dimensions();
  a->complete_opaque_dimensions();  // a second completion changes nothing
  EXPECT_EQ(qzhost::dimsOf(a.get()), (std::vector<std::size_t>{2, 3, 4}));
  EXPECT_EQ(ndGetNumberOfElements(a.get()), 24u);
  EXPECT_EQ(ndGetN(a.get()), 12u);
}

TEST(ArrayLazyTest, ReadingBeforeCompletionIsReportedAsMisuse) {
  auto a = qzhost::makeArray(ndclass::UInt8, {2, 3, 4}, false, DimForm::Lazy);
  std::size_t before = qzhost::contractViolations();
  EXPECT_EQ(ndGetNumberOfDimensions(a.get()), 3u);  // still answered correctly
  EXPECT_EQ(qzhost::contractViolations(), before + 1);
}

TEST_F(ArrayTest, ClassCodesAboveSixteenAreResolvedThroughTheSlowLookup) {
  auto a = qzhost::makeArray(23, {2, 2});
  EXPECT_EQ(qzhost::nonTrivialClassQueries(a.get()), 0u);
  EXPECT_EQ(ndGetClassID(a.get()), 23);
  EXPECT_EQ(qzhost::nonTrivialClassQueries(a.get()), 1u);
  EXPECT_FALSE(ndIsNumeric(a.get()));
  EXPECT_FALSE(ndclass::isNumeric(ndGetClassID(a.get())));

  auto b = qzhost::makeArray(ndclass::UInt64, {2, 2});
  EXPECT_EQ(ndGetClassID(b.get()), ndclass::UInt64);
  EXPECT_EQ(qzhost::nonTrivialClassQueries(b.get()), 0u);
}

TEST_F(ArrayTest, NumericFlagCoversTheTenClassesAndLogical) {
  for (ndClassID c = 0; c <= 17; ++c) {
    auto a = qzhost::makeArray(c, {1, 1});
    bool expected = c == ndclass::Logical || (c >= ndclass::Double && c <= ndclass::UInt64);
    EXPECT_EQ(ndIsNumeric(a.get()), expected) << "class " << c;
    EXPECT_EQ(ndclass::isNumeric(c), c >= 6 && c <= 15) << "class " << c;
  }
}

TEST_F(ArrayTest, ZeroDimensionArraysHaveNoElementsAndNullData) {
  for (auto dims : {std::vector<std::size_t>{0, 5}, {5, 0}, {3, 4, 0}, {0, 0}}) {
    auto a = matrix::detail::do_create_uninitnumeric(dims, ndclass::Double, ndREAL);
    EXPECT_EQ(ndGetNumberOfElements(a.get()), 0u);
    EXPECT_EQ(ndGetData(a.get()), nullptr);
    EXPECT_EQ(ndGetScalar(a.get()), 0.0);
  }
  auto a = qzhost::makeArray(ndclass::Double, {0, 5});
  EXPECT_EQ(ndGetN(a.get()), 5u);
}

TEST_F(ArrayTest, ComplexDataIsInterleavedAtTheOnePointer) {
  auto c = qztest::makeFrom<double>({2, 1}, {1.0, -1.0, 2.0, -2.0}, true);
  auto r = qztest::makeFrom<double>({2, 1}, {1.0, 2.0});
  EXPECT_TRUE(ndIsComplex(c.get()));
  EXPECT_FALSE(ndIsComplex(r.get()));
  std::complex<double>* z = ndGetComplexData<double>(c.get());
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(static_cast<void*>(z), ndGetData(c.get()));
  EXPECT_EQ(z[1], std::complex<double>(2.0, -2.0));
  EXPECT_EQ(ndGetScalar(c.get()), 1.0);  // the real part
  // Typed access only for the matching class, complex and full.
  EXPECT_EQ(ndGetComplexData<float>(c.get()), nullptr);
  EXPECT_EQ(ndGetComplexData<double>(r.get()), nullptr);
  auto s = qzhost::makeSparse(2, 1, {0, 1}, {0}, {5.0, 6.0}, true);
  EXPECT_EQ(ndGetComplexData<double>(s.get()), nullptr);
  // Complex integers too.
  auto ci = qztest::makeFrom<std::int16_t>({1, 2}, {3, -3, 4, -4}, true);
  ASSERT_NE(ndGetComplexData<std::int16_t>(ci.get()), nullptr);
  EXPECT_EQ(ndGetComplexData<std::int16_t>(ci.get())[1], std::complex<std::int16_t>(4, -4));
}

TEST_F(ArrayTest, ScalarReadConvertsTheFirstElement) {
  EXPECT_EQ(ndGetScalar(qztest::makeFrom<float>({1, 1}, {2.5f}).get()), 2.5);
  EXPECT_EQ(ndGetScalar(qztest::makeFrom<std::int8_t>({1, 2}, {-7, 1}).get()), -7.0);
  EXPECT_EQ(ndGetScalar(qztest::makeFrom<std::uint64_t>({1, 1}, {~std::uint64_t{0}}).get()), 18446744073709551616.0);
  EXPECT_TRUE(std::isnan(ndGetScalar(qztest::makeFrom<double>({1, 1}, {NAN}).get())));
  // Sparse: the first element is stored only if column 0 has row 0.
  EXPECT_EQ(ndGetScalar(qzhost::makeSparse(2, 2, {0, 1, 2}, {0, 1}, {4.0, 5.0}).get()), 4.0);
  EXPECT_EQ(ndGetScalar(qzhost::makeSparse(2, 2, {0, 1, 2}, {1, 1}, {4.0, 5.0}).get()), 0.0);
  EXPECT_EQ(ndGetScalar(qzhost::makeSparse(2, 2, {0, 0, 1}, {0}, {4.0}).get()), 0.0);
}

TEST_F(ArrayTest, SparseArraysHoldCompressedColumns) {
  auto s = qzhost::makeSparse(3, 2, {0, 2, 3}, {0, 2, 1}, {1.0, 2.0, 3.0});
  EXPECT_TRUE(ndIsSparse(s.get()));
  EXPECT_EQ(ndGetNumberOfElements(s.get()), 6u);
  EXPECT_EQ(ndGetJc(s.get())[2], 3u);
  EXPECT_EQ(ndGetIr(s.get())[1], 2u);
  EXPECT_EQ(qzhost::dataOf<double>(s.get())[2], 3.0);
  auto full = qzhost::makeArray(ndclass::Double, {2, 2});
  EXPECT_EQ(ndGetJc(full.get()), nullptr);

  // Malformed layouts are refused, not stored.
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 2, {0, 2}, {0, 2}, {1.0, 2.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 2, {0, 2, 1}, {0, 2}, {1.0, 2.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 1, {0, 1}, {3}, {1.0}), "qzhost:badSparseLayout");
  EXPECT_QZ_ERROR(qzhost::makeSparse(3, 1, {0, 1}, {0}, {1.0, 2.0}), "qzhost:badSparseLayout");
}

TEST_F(ArrayTest, CreationRefusesOversizeArraysWithoutAllocating) {
  std::size_t huge = std::size_t{1} << 40;
  EXPECT_QZ_ERROR(matrix::detail::do_create_numeric(std::vector<std::size_t>{huge, huge}, ndclass::UInt8, ndREAL),
                  "qzhost:arrayTooLarge");
  std::size_t half = std::size_t{1} << 62;
  EXPECT_QZ_ERROR(matrix::detail::do_create_uninitnumeric(std::vector<std::size_t>{half, 1}, ndclass::Double, ndREAL),
                  "qzhost:arrayTooLarge");
  EXPECT_QZ_ERROR(qzhost::makeArray(ndclass::Double, {huge, huge, 0, 4}, true), "");  // zero-sized: fine
}

TEST_F(ArrayTest, CreationAcceptsOnlyClassesWithNumericStorage) {
  for (ndClassID c : {0, 1, 2, 5, 17, 40})
    EXPECT_QZ_ERROR(matrix::detail::do_create_numeric(std::vector<std::size_t>{1, 1}, c, ndREAL),
                    "qzhost:cannotCreateClass")
        << "class " << c;
  for (ndClassID c : {3, 4, 6, 9, 15}) {
    auto a = matrix::detail::do_create_numeric(std::vector<std::size_t>{2, 3}, c, ndCOMPLEX);
    EXPECT_EQ(ndGetClassID(a.get()), c);
    auto const* bytes = static_cast<unsigned char const*>(ndGetData(a.get()));
    std::size_t n = 6 * 2 * qzhost::elementSize(c);
    EXPECT_EQ(std::count(bytes, bytes + n, 0), static_cast<std::ptrdiff_t>(n)) << "zero-filled";
  }
}

TEST_F(ArrayTest, CreationReadsADimensionSpanWithoutKeepingIt) {
  std::vector<std::size_t> dims{4, 5, 3};
  auto a = matrix::detail::do_create_numeric({dims.data(), dims.data() + 2}, ndclass::Single, ndREAL);
  dims.assign({9, 9, 9});
  EXPECT_EQ(qzhost::dimsOf(a.get()), (std::vector<std::size_t>{4, 5}));
}

TEST_F(ArrayTest, DeleterDropsOneReferenceOfASharedArray) {
  std::size_t arrays = qzhost::liveArrays();
  qzhost::ArrayPtr a = qzhost::makeArray(ndclass::Double, {2, 2});
  ndArray_tag* raw = a.get();
  qzhost::share(raw);
  EXPECT_EQ(qzhost::referenceCount(raw), 2u);
  a.reset();  // one holder lets go
  EXPECT_EQ(qzhost::liveArrays(), arrays + 1);
  EXPECT_EQ(qzhost::referenceCount(raw), 1u);
  qzhost::dataOf<double>(raw)[3] = 7.0;  // still usable by the other holder
  qzhost::ArrayPtr other(raw);
  other.reset();
  EXPECT_EQ(qzhost::liveArrays(), arrays);
  matrix::detail::ndDestroy_deleter{}(nullptr);  // a null handle is ignored
}

TEST_F(ArrayTest, WrappedDataIsReleasedThroughItsOwnerOnce) {
  static int released = 0;
  released = 0;
  double buffer[6] = {1, 2, 3, 4, 5, 6};
  {
    auto a = qzhost::wrapData({ndclass::Double, {2, 3}}, buffer, [](void* ctx) { ++*static_cast<int*>(ctx); },
                              &released);
    EXPECT_EQ(ndGetData(a.get()), buffer);
    EXPECT_EQ(ndGetScalar(a.get()), 1.0);
  }
  EXPECT_EQ(released, 1);
}

}  // namespace
