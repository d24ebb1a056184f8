// cq's gateway: the order of its checks, the conversion of the colour count,
// the outputs it writes for each number of requested outputs, and the class
// of the index image.

#include <cmath>
#include <functional>
#include <limits>

#include "cq_support.hpp"
#include "quantize/cq.hpp"

namespace {

using cqtest::CqResult;
using cqtest::Rgb;
using cqtest::rgbImage;
using cqtest::runCq;
using cqtest::scalar;
using qzhost::ArrayPtr;
using CqGatewayTest = qztest::HostTest;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kTwo63 = 9223372036854775808.0;
constexpr double kTwo64 = 18446744073709551616.0;

ArrayPtr uint8Image(std::vector<std::size_t> dims, bool complex = false,
                    qzhost::DimForm form = qzhost::DimForm::Full) {
  return qzhost::makeArray(ndclass::UInt8, std::move(dims), complex, form);
}

struct ValidationCase {
  char const* name;
  std::function<std::vector<ArrayPtr>()> inputs;
  char const* key;
};

TEST_F(CqGatewayTest, ChecksRunInOrderAndTheFirstFailureWins) {
  auto img = [] { return uint8Image({2, 2, 3}); };
  auto k = [](double v) { return scalar(v); };
  auto pair = [](ArrayPtr a, ArrayPtr b) {
    std::vector<ArrayPtr> v;
    v.push_back(std::move(a));
    v.push_back(std::move(b));
    return v;
  };
  ValidationCase const cases[] = {
      {"no inputs", [] { return std::vector<ArrayPtr>{}; }, "twoInputsRequired"},
      {"one input", [&] { std::vector<ArrayPtr> v; v.push_back(img()); return v; }, "twoInputsRequired"},
      {"three inputs, first also bad",
       [&] {
         auto v = pair(qzhost::makeArray(ndclass::Double, {2, 2}), k(kNaN));
         v.push_back(k(1));
         return v;
       },
       "twoInputsRequired"},
      {"double image", [&] { return pair(qzhost::makeArray(ndclass::Double, {2, 2, 3}), k(4)); },
       "firstInputMustBeUint8"},
      {"complex 2-D logical image and a bad count",
       [&] { return pair(qzhost::makeArray(ndclass::Logical, {2, 2}, true), k(-1)); }, "firstInputMustBeUint8"},
      {"uint16 image", [&] { return pair(qzhost::makeArray(ndclass::UInt16, {2, 2, 3}), k(4)); },
       "firstInputMustBeUint8"},
      {"host-defined class", [&] { return pair(qzhost::makeArray(20, {2, 2, 3}), k(4)); }, "firstInputMustBeUint8"},
      {"complex image", [&] { return pair(uint8Image({2, 2, 3}, true), k(4)); }, "firstInputMustNotBeComplex"},
      {"complex 2-D image", [&] { return pair(uint8Image({2, 2}, true), k(4)); }, "firstInputMustNotBeComplex"},
      {"2-D image", [&] { return pair(uint8Image({4, 3}), k(4)); }, "firstInputMustBe3DUint8"},
      {"compact 2-D image", [&] { return pair(uint8Image({4, 3}, false, qzhost::DimForm::Compact), k(4)); },
       "firstInputMustBe3DUint8"},
      {"M-by-N-by-1 image", [&] { return pair(uint8Image({4, 3, 1}), k(4)); }, "firstInputMustBe3DUint8"},
      {"4-D image", [&] { return pair(uint8Image({4, 3, 3, 2}), k(4)); }, "firstInputMustBe3DUint8"},
      {"4-D image and a bad count", [&] { return pair(uint8Image({4, 3, 3, 2}), k(kNaN)); },
       "firstInputMustBe3DUint8"},
      {"four planes", [&] { return pair(uint8Image({4, 3, 4}), k(4)); }, "firstInputMustBeMbyNby3"},
      {"four planes, held lazily", [&] { return pair(uint8Image({4, 3, 4}, false, qzhost::DimForm::Lazy), k(4)); },
       "firstInputMustBeMbyNby3"},
      {"single count", [&] { return pair(img(), qztest::makeFrom<float>({1, 1}, {4.0f})); },
       "secondArgMustBeDoubleScalar"},
      {"int32 count", [&] { return pair(img(), qztest::makeFrom<std::int32_t>({1, 1}, {4})); },
       "secondArgMustBeDoubleScalar"},
      {"uint8 count", [&] { return pair(img(), qztest::makeFrom<std::uint8_t>({1, 1}, {4})); },
       "secondArgMustBeDoubleScalar"},
      {"1-by-2 count", [&] { return pair(img(), qztest::makeFrom<double>({1, 2}, {4, 4})); },
       "secondArgMustBeDoubleScalar"},
      {"2-by-1 count", [&] { return pair(img(), qztest::makeFrom<double>({2, 1}, {4, 4})); },
       "secondArgMustBeDoubleScalar"},
      {"1-by-1-by-2 count", [&] { return pair(img(), qztest::makeFrom<double>({1, 1, 2}, {4, 4})); },
       "secondArgMustBeDoubleScalar"},
      {"empty count", [&] { return pair(img(), qzhost::makeArray(ndclass::Double, {1, 0})); },
       "secondArgMustBeDoubleScalar"},
      {"complex 1-by-2 count", [&] { return pair(img(), qztest::makeFrom<double>({1, 2}, {4, 0, 4, 0}, true)); },
       "secondArgMustBeDoubleScalar"},
      {"complex 1-by-1 count", [&] { return pair(img(), qztest::makeFrom<double>({1, 1}, {4, 0}, true)); },
       "secondInputMustNotBeComplex"},
      {"complex negative count", [&] { return pair(img(), qztest::makeFrom<double>({1, 1}, {-4, 0}, true)); },
       "secondInputMustNotBeComplex"},
      {"-1", [&] { return pair(img(), k(-1)); }, "numColorsMustBeNonNegative"},
      {"-0.5", [&] { return pair(img(), k(-0.5)); }, "numColorsMustBeNonNegative"},
      {"-Inf", [&] { return pair(img(), k(-kInf)); }, "numColorsMustBeNonNegative"},
      {"NaN", [&] { return pair(img(), k(kNaN)); }, "tooManyColors"},
      {"65537", [&] { return pair(img(), k(65537)); }, "tooManyColors"},
      {"2^63", [&] { return pair(img(), k(kTwo63)); }, "tooManyColors"},
      {"just below 2^64", [&] { return pair(img(), k(std::nextafter(kTwo64, 0.0))); }, "tooManyColors"},
  };
  for (auto const& c : cases) {
    std::vector<ArrayPtr> owned = c.inputs();
    std::vector<ndArray_tag const*> inputs;
    for (auto const& a : owned) inputs.push_back(a.get());
    std::size_t blocks = qzhost::liveBlocks();
    EXPECT_QZ_ERROR(qztest::call(pximages::_cq, 2, inputs), std::string("ORRERY:images:cq:") + c.key) << c.name;
    EXPECT_EQ(qzhost::liveBlocks(), blocks) << c.name;
  }
}

// The count as the gateway reads it: truncated toward zero by the two-branch
// unsigned conversion, then held against 65536.
TEST_F(CqGatewayTest, CountsConvertAsTheProcessorsUnsignedConversionDoes) {
  struct {
    double value;
    std::uint64_t colors;
  } const cases[] = {
      {0.0, 0},           {-0.0, 0},          {0.5, 0},       {1.0, 1},       {2.9, 2},
      {65535.99, 65535},  {65536.0, 65536},   {65536.5, 65536}, {65536.7, 65536}, {kInf, 0},
      {kTwo64, 0},        {kTwo64 * 2, 0},    {1e300, 0},     {std::numeric_limits<double>::max(), 0},
  };
  auto image = uint8Image({1, 1, 3});
  for (auto const& c : cases) {
    auto k = scalar(c.value);
    ndArray_tag const* inputs[] = {image.get(), k.get()};
    EXPECT_EQ(qz::validateCqInputs(2, inputs), c.colors) << c.value;
  }
}

TEST_F(CqGatewayTest, TheConvertedCountLimitsTheColourMap) {
  // Eight colours in eight different cells: the map has min(K, 8) rows.
  std::vector<Rgb> px;
  for (std::uint8_t i = 0; i < 8; ++i)
    px.push_back({std::uint8_t(i & 1 ? 200 : 16), std::uint8_t(i & 2 ? 200 : 16), std::uint8_t(i & 4 ? 200 : 16)});
  auto image = rgbImage(2, 4, px);
  struct {
    double value;
    std::size_t rows;
  } const cases[] = {{2.9, 2}, {0.5, 0}, {-0.0, 0}, {kInf, 0}, {kTwo64, 0}, {5.99, 5}, {65536.7, 8}};
  for (auto const& c : cases) EXPECT_EQ(runCq(image.get(), c.value).map.size(), c.rows) << c.value;
}

TEST_F(CqGatewayTest, ZeroColoursGiveAnEmptyMapAndAByteIndex) {
  auto image = rgbImage(2, 3, {{1, 2, 3}, {250, 0, 9}, {1, 2, 3}, {0, 0, 0}, {99, 99, 99}, {5, 200, 5}});
  // A run with colours first leaves labelled cell tables behind in the heap
  // for the next call's allocation to find.
  EXPECT_EQ(runCq(image.get(), 5).map.size(), 4u);  // (0,0,0) and (1,2,3) share a cell
  CqResult r = runCq(image.get(), 0);
  EXPECT_TRUE(r.map.empty());
  EXPECT_EQ(r.indexClass, ndclass::UInt8);
  EXPECT_EQ(r.indexDims, (std::vector<std::size_t>{2, 3}));
  EXPECT_EQ(r.index, std::vector<std::uint16_t>(6, 0));  // no colour to point at: all 0

  auto k = scalar(0);
  auto out = qztest::call(pximages::_cq, 1, {image.get(), k.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{0, 3}));
}

TEST_F(CqGatewayTest, EmptyImagesGiveOneBlackColour) {
  for (auto dims : {std::vector<std::size_t>{0, 4, 3}, {5, 0, 3}}) {
    auto image = uint8Image(dims);
    for (double K : {1.0, 2.0, 65536.0}) {
      CqResult r = runCq(image.get(), K);
      EXPECT_EQ(r.map, (std::vector<Rgb>{{0, 0, 0}})) << dims[0] << "x" << dims[1] << " K=" << K;
      EXPECT_EQ(r.indexClass, ndclass::UInt8);
      EXPECT_EQ(r.indexDims, (std::vector<std::size_t>{dims[0], dims[1]}));
    }
  }
}

// Only the requested outputs are written; a slot beyond them keeps what it
// held, and what the written slots held is released exactly once.
TEST_F(CqGatewayTest, WritesTheIndexImageOnlyWhenMoreThanOneOutputIsAsked) {
  auto image = rgbImage(1, 2, {{0, 0, 0}, {255, 255, 255}});
  auto k = scalar(4);
  ndArray_tag const* inputs[] = {image.get(), k.get()};
  for (int numOutputs : {0, 1, 2, 3}) {
    std::vector<ArrayPtr> slots(3);
    for (auto& s : slots) s = qzhost::makeArray(ndclass::Double, {7, 7});
    ndArray_tag* before[3] = {slots[0].get(), slots[1].get(), slots[2].get()};
    std::size_t arrays = qzhost::liveArrays();
    qzhost::call(pximages::_cq, numOutputs, slots.data(), 2, inputs);
    EXPECT_EQ(qzhost::liveArrays(), arrays) << numOutputs;  // each replaced array went, its successor came
    EXPECT_NE(slots[0].get(), before[0]);
    EXPECT_EQ(qzhost::dimsOf(slots[0].get()), (std::vector<std::size_t>{2, 3})) << numOutputs;
    if (numOutputs > 1) {
      EXPECT_EQ(ndGetClassID(slots[1].get()), ndclass::UInt8);
      EXPECT_EQ(qztest::valuesOf<std::uint8_t>(slots[1].get()), (std::vector<std::uint8_t>{0, 1}));
    } else {
      EXPECT_EQ(slots[1].get(), before[1]) << numOutputs;
    }
    EXPECT_EQ(slots[2].get(), before[2]) << numOutputs;
  }
}

TEST_F(CqGatewayTest, LazilyHeldInputsAreCompletedBeforeTheyAreMeasured) {
  auto image = qztest::makeLazyFrom<std::uint8_t>({1, 2, 3}, {10, 200, 10, 10, 10, 10});
  auto k = qztest::makeLazyFrom<double>({1, 1}, {2});
  auto out = qztest::call(pximages::_cq, 2, {image.get(), k.get()});
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), (std::vector<std::uint8_t>{10, 200, 10, 10, 10, 10}));
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[1].get()), (std::vector<std::uint8_t>{0, 1}));
}

// The index class follows the number of colours produced, not the number
// asked for.
TEST_F(CqGatewayTest, IndexImageIsUint16OnlyWhenMoreThan256ColoursCameOut) {
  // 300 colours in 300 different cells: every one survives with K = 300.
  std::vector<Rgb> distinct;
  for (int i = 0; i < 300; ++i)
    distinct.push_back({std::uint8_t(8 * (i % 32) + 3), std::uint8_t(8 * (i / 32) + 4), std::uint8_t(8 * (i % 7) + 5)});
  auto wide = rgbImage(15, 20, distinct);
  CqResult r = runCq(wide.get(), 300);
  ASSERT_EQ(r.map.size(), 300u);
  EXPECT_EQ(r.indexClass, ndclass::UInt16);
  EXPECT_EQ(r.indexDims, (std::vector<std::size_t>{15, 20}));
  for (std::size_t p = 0; p < distinct.size(); ++p) {
    ASSERT_LT(r.index[p], 300u);
    EXPECT_EQ(r.map[r.index[p]], distinct[p]) << "pixel " << p;
  }
  // 256 colours still fit a byte.
  std::vector<Rgb> first256(distinct.begin(), distinct.begin() + 256);
  auto edge = rgbImage(16, 16, first256);
  CqResult e = runCq(edge.get(), 1000);
  EXPECT_EQ(e.map.size(), 256u);
  EXPECT_EQ(e.indexClass, ndclass::UInt8);

  // 300 colours sharing 100 cells: far fewer colours than K = 1000.
  std::vector<Rgb> shared;
  for (int i = 0; i < 300; ++i) {
    int cell = i % 100, low = i / 100;
    shared.push_back({std::uint8_t(8 * (cell % 10) + low), std::uint8_t(8 * (cell / 10) + low), std::uint8_t(low)});
  }
  auto narrow = rgbImage(20, 15, shared);
  CqResult n = runCq(narrow.get(), 1000);
  EXPECT_LE(n.map.size(), 100u);
  EXPECT_EQ(n.indexClass, ndclass::UInt8);
  for (auto v : n.index) EXPECT_LT(v, n.map.size());
}

}  // namespace
