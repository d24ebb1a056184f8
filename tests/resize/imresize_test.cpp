// The imresize gateway: the order of its checks, what a failure leaves in
// the output slot, how the dimension argument is read, logical images and
// the offset table.

#include "resize/imresize.hpp"

#include <algorithm>
#include <cstring>
#include <functional>

#include "builtin_args.hpp"

namespace {

using qzhost::ArrayPtr;
using qzhost::makeArray;
using qztest::HostTest;
using qztest::kNaN;
using qztest::resizeCall;

ArrayPtr doubles(std::vector<std::size_t> dims, double fill = 1.0) {
  auto a = makeArray(ndclass::Double, std::move(dims));
  std::fill_n(qzhost::dataOf<double>(a.get()), ndGetNumberOfElements(a.get()), fill);
  return a;
}
ArrayPtr sparse2x2() { return qzhost::makeSparse(2, 2, {0, 1, 1}, {0}, {1.0}); }

// The arguments of a valid call, each replaceable: a 2-by-3 uint8 image,
// 2-by-2 weights and indices (all 1) and dimension 1.
struct Args {
  ArrayPtr a = makeArray(ndclass::UInt8, {2, 3}), w = doubles({2, 2}, 0.5), x = doubles({2, 2}), d = doubles({1, 1});
  std::size_t count = 4;
};

using ImresizeTest = HostTest;

// Each case is wrong in the way its key names; where a second fault is
// added, the earlier check must win.  A failed check leaves the slot as it
// was.
TEST_F(ImresizeTest, ChecksRunInOrderAndTheFirstFailureIsRaised) {
  // clang-format off
  struct {
    char const* key;  // after "ORRERY:images:resizeDim:"
    std::function<void(Args&)> change;
  } const cases[] = {
      {"notThreeArgs", [](Args& s) { s.count = 0; }},
      {"notThreeArgs", [](Args& s) { s.count = 5; }},
      {"notThreeArgs", [](Args& s) { s.count = 3, s.a = sparse2x2(); }},
      {"invalidImage", [](Args& s) { s.a = makeArray(ndclass::Cell, {2, 3}); }},
      {"invalidImage", [](Args& s) { s.a = makeArray(40, {2, 3}); }},
      {"invalidImage", [](Args& s) { s.a = sparse2x2(); }},
      {"invalidImage", [](Args& s) { s.a = makeArray(ndclass::Char, {2, 3, 2, 2}); }},
      {"tooManyDims", [](Args& s) { s.a = doubles({2, 3, 1, 2}), s.w = makeArray(ndclass::Single, {2, 2}); }},
      {"badWeights", [](Args& s) { s.w = doubles({2, 2, 2}), s.x = makeArray(ndclass::Int32, {2, 2}); }},
      {"badWeights", [](Args& s) { s.w = makeArray(ndclass::Single, {2, 2}); }},
      {"badWeights", [](Args& s) { s.w = sparse2x2(); }},
      {"badIndices", [](Args& s) { s.x = makeArray(ndclass::Single, {3, 2}); }},
      {"badIndices", [](Args& s) { s.x = qzhost::makeSparse(2, 3, {0, 0, 0, 0}, {}, {}); }},
      {"sizeMismatch", [](Args& s) { s.x = doubles({2, 2, 2}); }},
      {"sizeMismatch", [](Args& s) { s.w = doubles({5, 2}), s.x = doubles({2, 5}); }},
      {"sizeMismatch", [](Args& s) { s.x = doubles({2, 3}), s.d = makeArray(ndclass::Single, {1, 1}); }},
      {"invalidDim", [](Args& s) { s.d = sparse2x2(); }},
      {"invalidDim", [](Args& s) { s.a = makeArray(ndclass::Int64, {2, 3}), s.d = makeArray(ndclass::UInt8, {1, 1}); }},
  };
  // clang-format on
  for (auto const& c : cases) {
    Args s;
    c.change(s);
    ArrayPtr extra = doubles({1, 1});
    std::vector<ndArray_tag const*> in{s.a.get(), s.w.get(), s.x.get(), s.d.get(), extra.get()};
    in.resize(s.count);
    ArrayPtr slots[1] = {makeArray(ndclass::Double, {1, 1})};
    ndArray_tag* before = slots[0].get();
    EXPECT_QZ_ERROR(qzhost::call(pximages::_imresize, 1, slots, static_cast<int>(in.size()), in.data()),
                    std::string("ORRERY:images:resizeDim:") + c.key)
        << c.key << " case " << (&c - cases);
    EXPECT_EQ(slots[0].get(), before) << c.key;
  }
}

// The class is checked only at dispatch: the new output is already in the
// slot (the old array released) and the offset table is the host's to reclaim.
TEST_F(ImresizeTest, UnsupportedClassesRaiseAfterTheOutputIsPlaced) {
  for (ndClassID cls : {ndclass::Int64, ndclass::UInt64})
    for (bool complex : {false, true}) {
      ArrayPtr a = makeArray(cls, {2, 3, 4}, complex), w = doubles({1, 5}), x = doubles({1, 5}), d = doubles({1, 1});
      ArrayPtr slots[1] = {makeArray(ndclass::Double, {1, 1})};
      ndArray_tag* before = slots[0].get();
      ndArray_tag const* in[] = {a.get(), w.get(), x.get(), d.get()};
      EXPECT_QZ_ERROR(qzhost::call(pximages::_imresize, 0, slots, 4, in), "ORRERY:images:resizeDim:invalidInputClass");
      ASSERT_NE(slots[0].get(), before);
      EXPECT_EQ(ndGetClassID(slots[0].get()), cls);
      EXPECT_EQ(ndIsComplex(slots[0].get()), complex);
      EXPECT_EQ(qzhost::dimsOf(slots[0].get()), (std::vector<std::size_t>{5, 3, 4}));
    }
}

// The output shape of a 2-by-3 image resized to 4 positions (indices all 1,
// valid along both dimensions) tells which dimension was resized.
int resizedDimension(ArrayPtr const& d) {
  auto a = qztest::makeFrom<std::uint8_t>({2, 3}, {1, 2, 3, 4, 5, 6});
  auto w = doubles({1, 4}), x = doubles({1, 4});
  auto dims = qzhost::dimsOf(qztest::call(pximages::_imresize, 1, {a.get(), w.get(), x.get(), d.get()}, 1)[0].get());
  return dims == std::vector<std::size_t>{4, 3} ? 1 : dims == std::vector<std::size_t>{2, 4} ? 2 : 0;
}

// Truncated, and only 1 means columns; out of int32 range is the processor's
// indefinite value, not the low bits.  Only the first element's real part
// is read; an empty array reads as 0.
TEST_F(ImresizeTest, TheDimensionArgumentIsTruncatedAndOnlyOneMeansColumns) {
  // clang-format off
  std::pair<double, int> const rows[] = {
      {1, 1}, {1.7, 1}, {2, 2}, {2.9, 2}, {3, 2}, {0.9, 2}, {-1, 2}, {kNaN, 2}, {1e10, 2}, {4294967297.0, 2},
  };
  // clang-format on
  for (auto const& [d, dim] : rows) EXPECT_EQ(resizedDimension(doubles({1, 1}, d)), dim) << d;
  EXPECT_EQ(resizedDimension(qztest::makeFrom<double>({1, 2}, {1, 2})), 1);
  EXPECT_EQ(resizedDimension(qztest::makeFrom<double>({1, 1}, {1, 2}, true)), 1);
  EXPECT_EQ(resizedDimension(qztest::makeFrom<double>({0, 0}, {})), 2);
}

// An image without columns, resized along its rows: an empty result of the
// new length (the kernels never offset its data pointer).
TEST_F(ImresizeTest, AnImageWithoutColumnsGivesAnEmptyResult) {
  auto out = resizeCall(makeArray(ndclass::Int16, {2, 0, 4}).get(), {1, 1, 1}, {1, 1, 1}, 1, 3, 1);
  EXPECT_EQ(qzhost::dimsOf(out.get()), (std::vector<std::size_t>{3, 0, 4}));
}

// Logical images resample as uint8 ([1 1; 0 1] here): a quarter of each
// element sums to 0.25 or 0.5, and sums of 400 saturate.
TEST_F(ImresizeTest, LogicalImagesGiveUint8) {
  auto a = makeArray(ndclass::Logical, {2, 2});
  std::uint8_t const bits[] = {1, 0, 1, 1};
  std::memcpy(ndGetData(a.get()), bits, 4);
  struct {
    int dim;
    double w;
    std::vector<std::uint8_t> want;
  } const rows[] = {{1, 0.25, {0, 0, 1, 1}}, {2, 0.25, {1, 0, 1, 0}}, {2, 200, {255, 200, 255, 200}}};
  for (auto const& r : rows) {
    auto out = resizeCall(a.get(), std::vector<double>(4, r.w), {1, 2, 1, 2}, 2, 2, r.dim);
    EXPECT_EQ(ndGetClassID(out.get()), ndclass::UInt8);
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out.get()), r.want) << "dim " << r.dim;
  }
}

// Complex weights are not rejected: their interleaved parts are the taps.
// Lazily held and compact dimension vectors are measured correctly (the
// fixture fails on a read before completion) and an array already in the
// slot is released exactly once.
TEST_F(ImresizeTest, ArgumentsAreReadAsStoredAndTheSlotIsReplaced) {
  auto a = qztest::makeFrom<double>({3, 1}, {4, 8, 16});
  auto w = qztest::makeFrom<double>({2, 1}, {0.5, 0.25, 9, 9}, true);
  auto x = qztest::makeFrom<double>({2, 1}, {1, 2});
  auto d = doubles({1, 1});
  auto r = qztest::call(pximages::_imresize, 1, {a.get(), w.get(), x.get(), d.get()}, 1);
  EXPECT_EQ(qztest::valuesOf<double>(r[0].get()), (std::vector<double>{4 * 0.5 + 8 * 0.25}));

  auto lazy = qztest::makeLazyFrom<std::int32_t>({2, 3, 2}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  auto lw = qztest::makeLazyFrom<double>({1, 2}, {1, 2});
  auto cx = qztest::makeFrom<double>({1, 2}, {3, 1}, false, qzhost::DimForm::Compact);
  auto ld = qztest::makeLazyFrom<double>({1, 1}, {2});
  ArrayPtr slots[1] = {makeArray(ndclass::Double, {4, 4})};
  ndArray_tag const* in[] = {lazy.get(), lw.get(), cx.get(), ld.get()};
  qzhost::call(pximages::_imresize, 0, slots, 4, in);
  EXPECT_EQ(qzhost::dimsOf(slots[0].get()), (std::vector<std::size_t>{2, 2, 2}));
  // Output column 0 is source column 3, output column 1 is twice column 1.
  EXPECT_EQ(qztest::valuesOf<std::int32_t>(slots[0].get()), (std::vector<std::int32_t>{5, 6, 2, 4, 11, 12, 14, 16}));
}

// 1-based indices become element offsets along the dimension (rows of 5
// elements for dimension 2), wrapped modulo 2^64 as the processor's
// conversions leave them.
TEST(ImresizeOffsetsTest, IndicesBecomeWrappedElementOffsets) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max(), kTop = std::uint64_t{1} << 63;
  // clang-format off
  struct {
    double index;
    std::int32_t dim;
    std::uint64_t want;
  } const rows[] = {
      {3.7, 1, 2}, {3, 2, 10}, {3, 0, 10}, {0, 1, kMax}, {0, 2, kMax - 4}, {-1, 1, kMax - 1}, {kNaN, 1, kTop - 1},
      {9223372036854775808.0, 1, kTop - 1}, {13835058055282163712.0, 1, kTop + (kTop >> 1) - 1},
      {18446744073709551616.0, 1, kMax},
  };
  // clang-format on
  for (auto const& r : rows) {
    std::size_t got = 12345;
    qz::buildResizeOffsets(&r.index, 1, r.dim, 5, &got);
    EXPECT_EQ(got, r.want) << r.index << " dim " << r.dim;
  }
}

}  // namespace
