// The imresize gateway: the order of its checks, what a failure leaves in
// the output slot, how the dimension argument is read, the shape and class
// of the result, and the offset table.

#include <cmath>
#include <functional>
#include <limits>

#include "resize/imresize.hpp"
#include "resize_support.hpp"

namespace {

using qzhost::ArrayPtr;
using qztest::HostTest;
using resizetest::resizeCall;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

ArrayPtr image(ndClassID cls, std::vector<std::size_t> dims, bool complex = false) {
  return qzhost::makeArray(cls, std::move(dims), complex);
}
ArrayPtr doubles(std::vector<std::size_t> dims, double fill = 1.0) {
  auto a = qzhost::makeArray(ndclass::Double, std::move(dims));
  double* d = qzhost::dataOf<double>(a.get());
  for (std::size_t e = 0; e < ndGetNumberOfElements(a.get()); ++e) d[e] = fill;
  return a;
}
ArrayPtr sparse2x2() { return qzhost::makeSparse(2, 2, {0, 1, 1}, {0}, {1.0}); }

// The four arguments of a valid call, each replaceable: a 2-by-3 uint8
// image, 2-by-2 weights and indices (all 1) and dimension 1.
struct Args {
  ArrayPtr a = image(ndclass::UInt8, {2, 3});
  ArrayPtr w = doubles({2, 2}, 0.5);
  ArrayPtr x = doubles({2, 2});
  ArrayPtr d = doubles({1, 1});
  std::size_t count = 4;
  std::vector<ArrayPtr> extra;

  std::vector<ndArray_tag const*> inputs() const {
    std::vector<ndArray_tag const*> v{a.get(), w.get(), x.get(), d.get()};
    v.resize(count);
    for (auto const& e : extra) v.push_back(e.get());
    return v;
  }
};

struct CheckCase {
  char const* what;
  std::function<void(Args&)> change;
  char const* key;  // after "ORRERY:images:resizeDim:"
};

using ImresizeTest = HostTest;

// Each case is wrong in the way named first; where a second fault is added,
// the earlier check must win.
TEST_F(ImresizeTest, ChecksRunInOrderAndTheFirstFailureIsRaised) {
  CheckCase const cases[] = {
      {"no arguments", [](Args& s) { s.count = 0; }, "notThreeArgs"},
      {"three arguments", [](Args& s) { s.count = 3; }, "notThreeArgs"},
      {"five arguments", [](Args& s) { s.extra.push_back(doubles({1, 1})); }, "notThreeArgs"},
      {"three arguments, sparse image",
       [](Args& s) {
         s.count = 3;
         s.a = sparse2x2();
       },
       "notThreeArgs"},
      {"char image", [](Args& s) { s.a = image(ndclass::Char, {2, 3}); }, "invalidImage"},
      {"cell image", [](Args& s) { s.a = image(ndclass::Cell, {2, 3}); }, "invalidImage"},
      {"host-defined class", [](Args& s) { s.a = image(40, {2, 3}); }, "invalidImage"},
      {"sparse image", [](Args& s) { s.a = sparse2x2(); }, "invalidImage"},
      {"char image with 4 dimensions", [](Args& s) { s.a = image(ndclass::Char, {2, 3, 2, 2}); }, "invalidImage"},
      {"4-D image", [](Args& s) { s.a = image(ndclass::UInt8, {2, 3, 2, 2}); }, "tooManyDims"},
      {"4-D image, single weights",
       [](Args& s) {
         s.a = image(ndclass::Double, {2, 3, 1, 2});
         s.w = image(ndclass::Single, {2, 2});
       },
       "tooManyDims"},
      {"single weights", [](Args& s) { s.w = image(ndclass::Single, {2, 2}); }, "badWeights"},
      {"3-D single weights, int32 indices",
       [](Args& s) {
         s.w = image(ndclass::Single, {2, 2, 2});
         s.x = image(ndclass::Int32, {2, 2});
       },
       "badWeights"},
      {"3-D weights", [](Args& s) { s.w = doubles({2, 2, 2}); }, "badWeights"},
      {"sparse weights", [](Args& s) { s.w = sparse2x2(); }, "badWeights"},
      {"3-D weights, int32 indices",
       [](Args& s) {
         s.w = doubles({2, 2, 2});
         s.x = image(ndclass::Int32, {2, 2});
       },
       "badWeights"},
      {"int32 indices", [](Args& s) { s.x = image(ndclass::Int32, {2, 2}); }, "badIndices"},
      {"single indices of another size", [](Args& s) { s.x = image(ndclass::Single, {3, 2}); }, "badIndices"},
      {"sparse indices", [](Args& s) { s.x = sparse2x2(); }, "badIndices"},
      {"sparse 2-by-3 indices",
       [](Args& s) { s.x = qzhost::makeSparse(2, 3, {0, 0, 0, 0}, {}, {}); },
       "badIndices"},
      {"3-D indices", [](Args& s) { s.x = doubles({2, 2, 2}); }, "sizeMismatch"},
      {"transposed indices",
       [](Args& s) {
         s.w = doubles({5, 2});
         s.x = doubles({2, 5});
       },
       "sizeMismatch"},
      {"indices of another length, single dimension",
       [](Args& s) {
         s.x = doubles({2, 3});
         s.d = image(ndclass::Single, {1, 1});
       },
       "sizeMismatch"},
      {"single dimension", [](Args& s) { s.d = image(ndclass::Single, {1, 1}); }, "invalidDim"},
      {"sparse dimension", [](Args& s) { s.d = sparse2x2(); }, "invalidDim"},
      {"int64 image, uint8 dimension",
       [](Args& s) {
         s.a = image(ndclass::Int64, {2, 3});
         s.d = image(ndclass::UInt8, {1, 1});
       },
       "invalidDim"},
  };
  for (auto const& c : cases) {
    Args s;
    c.change(s);
    // A failed check leaves the slot as it was.
    ArrayPtr slots[1] = {qzhost::makeArray(ndclass::Double, {1, 1})};
    ndArray_tag* before = slots[0].get();
    auto in = s.inputs();
    std::string const got = qztest::errorOf(
        [&] { qzhost::call(pximages::_imresize, 1, slots, static_cast<int>(in.size()), in.data()); });
    EXPECT_EQ(got, std::string("ORRERY:images:resizeDim:") + c.key) << c.what;
    EXPECT_EQ(slots[0].get(), before) << c.what;
  }
}

// The class is checked only at dispatch: the new output is already in the
// slot (the old array released) and the offset table is the host's to reclaim.
TEST_F(ImresizeTest, UnsupportedClassesRaiseAfterTheOutputIsPlaced) {
  for (ndClassID cls : {ndclass::Int64, ndclass::UInt64})
    for (bool complex : {false, true}) {
      Args s;
      s.a = image(cls, {2, 3, 4}, complex);
      s.w = doubles({1, 5});
      s.x = doubles({1, 5});
      ArrayPtr slots[1] = {qzhost::makeArray(ndclass::Double, {1, 1})};
      ndArray_tag* before = slots[0].get();
      auto in = s.inputs();
      EXPECT_QZ_ERROR(qzhost::call(pximages::_imresize, 0, slots, 4, in.data()),
                      "ORRERY:images:resizeDim:invalidInputClass");
      ASSERT_NE(slots[0].get(), nullptr);
      EXPECT_NE(slots[0].get(), before);
      EXPECT_EQ(ndGetClassID(slots[0].get()), cls);
      EXPECT_EQ(ndIsComplex(slots[0].get()), complex);
      EXPECT_EQ(qzhost::dimsOf(slots[0].get()), (std::vector<std::size_t>{5, 3, 4}));
    }
}

// Output shape for a 2-by-3 image with all indices 1 (valid along both
// dimensions) and 4 output positions tells which dimension was resized.
int resizedDimension(ArrayPtr const& d) {
  auto a = qztest::makeFrom<std::uint8_t>({2, 3}, {1, 2, 3, 4, 5, 6});
  auto w = doubles({1, 4}), x = doubles({1, 4});
  auto out = qztest::call(pximages::_imresize, 1, {a.get(), w.get(), x.get(), d.get()}, 1);
  auto dims = qzhost::dimsOf(out[0].get());
  if (dims == std::vector<std::size_t>{4, 3}) return 1;
  if (dims == std::vector<std::size_t>{2, 4}) return 2;
  ADD_FAILURE() << "unexpected result shape";
  return 0;
}

TEST_F(ImresizeTest, TheDimensionArgumentIsTruncatedAndOnlyOneMeansColumns) {
  struct {
    double d;
    int dim;
  } const rows[] = {
      {1, 1},  {1.7, 1}, {2, 2},    {2.9, 2},    {3, 2},        {0, 2},
      {0.9, 2}, {-1, 2}, {kNaN, 2}, {1e10, 2},
      {4294967297.0, 2},  // out of int32 range: the indefinite value, not the low bits (1)
  };
  for (auto const& r : rows) EXPECT_EQ(resizedDimension(doubles({1, 1}, r.d)), r.dim) << r.d;
  // Only the first element is read, and only its real part.
  EXPECT_EQ(resizedDimension(qztest::makeFrom<double>({1, 2}, {1, 2})), 1);
  EXPECT_EQ(resizedDimension(qztest::makeFrom<double>({1, 1}, {1, 2}, true)), 1);
  EXPECT_EQ(resizedDimension(qztest::makeFrom<double>({0, 0}, {})), 2);  // reads as 0
}

TEST_F(ImresizeTest, ResultShapeClassAndComplexityFollowTheImage) {
  struct {
    std::vector<std::size_t> image;
    std::size_t len;
    int dim;
    std::vector<std::size_t> result;
  } const rows[] = {
      {{2, 3, 4}, 5, 1, {5, 3, 4}}, {{2, 3, 4}, 5, 2, {2, 5, 4}}, {{2, 3}, 5, 1, {5, 3}},
      {{2, 3}, 5, 2, {2, 5}},       {{2, 3, 4}, 0, 2, {2, 0, 4}}, {{2, 3, 4}, 0, 1, {0, 3, 4}},
      {{2, 0, 4}, 3, 1, {3, 0, 4}},
  };
  for (auto const& r : rows)
    for (bool complex : {false, true}) {
      auto a = image(ndclass::Int16, r.image, complex);
      auto out = resizeCall(a.get(), std::vector<double>(r.len, 1.0), std::vector<double>(r.len, 1.0), 1, r.len,
                            r.dim);
      EXPECT_EQ(qzhost::dimsOf(out.get()), r.result) << "dim " << r.dim << " len " << r.len;
      EXPECT_EQ(ndGetClassID(out.get()), ndclass::Int16);
      EXPECT_EQ(ndIsComplex(out.get()), complex);
    }
}

TEST_F(ImresizeTest, LogicalImagesGiveUint8) {
  // [1 1; 0 1]
  auto a = qzhost::makeArray(ndclass::Logical, {2, 2});
  std::uint8_t const bits[] = {1, 0, 1, 1};
  std::memcpy(ndGetData(a.get()), bits, 4);
  struct {
    int dim;
    std::vector<double> w;
    std::vector<std::uint8_t> want;
  } const rows[] = {
      // A quarter of each element of a column (row): sums 0.25 and 0.5.
      {1, {0.25, 0.25, 0.25, 0.25}, {0, 0, 1, 1}},
      {2, {0.25, 0.25, 0.25, 0.25}, {1, 0, 1, 0}},
      // Sums of 400 saturate like uint8.
      {2, {200, 200, 200, 200}, {255, 200, 255, 200}},
  };
  for (auto const& r : rows) {
    auto out = resizeCall(a.get(), r.w, {1, 2, 1, 2}, 2, 2, r.dim);
    EXPECT_EQ(ndGetClassID(out.get()), ndclass::UInt8);
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out.get()), r.want) << "dim " << r.dim;
  }
}

TEST_F(ImresizeTest, WeightsAndIndicesAreReadAsPlainDoubles) {
  auto a = qztest::makeFrom<double>({3, 1}, {4, 8, 16});
  // Fractional indices are truncated: 2.9 reads element 2, 3.2 element 3.
  auto out = resizeCall(a.get(), {1, 0.5}, {2.9, 3.2}, 2, 1, 1);
  EXPECT_EQ(qztest::valuesOf<double>(out.get()), (std::vector<double>{16}));
  // Complex weights are not rejected: their interleaved parts are the taps.
  auto w = qztest::makeFrom<double>({2, 1}, {0.5, 0.25, 9, 9}, true);
  auto x = qztest::makeFrom<double>({2, 1}, {1, 2});
  auto d = doubles({1, 1});
  auto r = qztest::call(pximages::_imresize, 1, {a.get(), w.get(), x.get(), d.get()}, 1);
  EXPECT_EQ(qztest::valuesOf<double>(r[0].get()), (std::vector<double>{4 * 0.5 + 8 * 0.25}));
}

// Lazily held and compact dimension vectors are measured correctly (the
// fixture fails on a read before completion); an array already in the slot
// is released exactly once; numOutputs is not read.
TEST_F(ImresizeTest, DimensionFormsAndTheOutputSlot) {
  auto a = qztest::makeLazyFrom<std::int32_t>({2, 3, 2}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  auto w = qztest::makeLazyFrom<double>({1, 2}, {1, 2});
  auto x = qztest::makeFrom<double>({1, 2}, {3, 1}, false, qzhost::DimForm::Compact);
  auto d = qztest::makeLazyFrom<double>({1, 1}, {2});
  ArrayPtr slots[1] = {qzhost::makeArray(ndclass::Double, {4, 4})};
  ndArray_tag const* in[] = {a.get(), w.get(), x.get(), d.get()};
  qzhost::call(pximages::_imresize, 0, slots, 4, in);
  EXPECT_EQ(qzhost::dimsOf(slots[0].get()), (std::vector<std::size_t>{2, 2, 2}));
  // Output column 0 is source column 3, output column 1 is twice column 1.
  EXPECT_EQ(qztest::valuesOf<std::int32_t>(slots[0].get()), (std::vector<std::int32_t>{5, 6, 2, 4, 11, 12, 14, 16}));
}

TEST(ImresizeOffsetsTest, IndicesBecomeWrappedElementOffsets) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  constexpr std::uint64_t kTop = std::uint64_t{1} << 63;
  struct {
    double index;
    std::int32_t dim;
    std::uint64_t want;
  } const rows[] = {
      {1, 1, 0},
      {3.7, 1, 2},
      {3, 2, 10},  // column 3 starts 2 columns of 5 rows in
      {3, 0, 10},
      {0, 1, kMax},
      {0, 2, kMax - 4},  // -1 * 5 modulo 2^64
      {-1, 1, kMax - 1},
      {kNaN, 1, kTop - 1},
      {9223372036854775808.0, 1, kTop - 1},
      {13835058055282163712.0, 1, kTop + (kTop >> 1) - 1},
      {18446744073709551616.0, 1, kMax},  // 2^64 wraps to 0
  };
  for (auto const& r : rows) {
    std::size_t got = 12345;
    qz::buildResizeOffsets(&r.index, 1, r.dim, 5, &got);
    EXPECT_EQ(got, r.want) << r.index << " dim " << r.dim;
  }
}

}  // namespace
