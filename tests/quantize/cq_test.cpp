// cq's gateway: the order of its checks, how the colour count is read, the
// outputs it writes for each number asked, and the class of the index image.

#include <cmath>
#include <functional>
#include <limits>

#include "builtin_args.hpp"
#include "cq_support.hpp"

namespace {

using cqtest::CqResult;
using cqtest::Rgb;
using cqtest::rgbImage;
using cqtest::runCq;
using qzhost::ArrayPtr;
using qztest::args;
using qztest::scalar;
using CqGatewayTest = qztest::HostTest;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kTwo64 = 18446744073709551616.0;

ArrayPtr image(std::vector<std::size_t> dims, ndClassID cls = ndclass::UInt8, bool complex = false,
               qzhost::DimForm form = qzhost::DimForm::Full) {
  return qzhost::makeArray(cls, std::move(dims), complex, form);
}
ArrayPtr rgb() { return image({2, 2, 3}); }

// Each case is wrong in the way its key names; where a second fault is
// added, the earlier check must win.
TEST_F(CqGatewayTest, ChecksRunInOrderAndTheFirstFailureWins) {
  struct {
    char const* key;
    std::function<std::vector<ArrayPtr>()> inputs;
  } const cases[] = {
      {"twoInputsRequired", [] { return args(); }},
      {"twoInputsRequired", [] { return args(rgb()); }},
      {"twoInputsRequired", [] { return args(image({2, 2}, ndclass::Double), scalar(kNaN), scalar(1)); }},
      {"firstInputMustBeUint8", [] { return args(image({2, 2, 3}, ndclass::Double), scalar(4)); }},
      {"firstInputMustBeUint8", [] { return args(image({2, 2}, ndclass::Logical, true), scalar(-1)); }},
      {"firstInputMustNotBeComplex", [] { return args(image({2, 2}, ndclass::UInt8, true), scalar(4)); }},
      {"firstInputMustBe3DUint8", [] { return args(image({4, 3}), scalar(4)); }},
      {"firstInputMustBe3DUint8",
       [] { return args(image({4, 3}, ndclass::UInt8, false, qzhost::DimForm::Compact), scalar(4)); }},
      {"firstInputMustBe3DUint8", [] { return args(image({4, 3, 1}), scalar(4)); }},
      {"firstInputMustBe3DUint8", [] { return args(image({4, 3, 3, 2}), scalar(kNaN)); }},
      {"firstInputMustBeMbyNby3", [] { return args(image({4, 3, 4}), scalar(4)); }},
      {"firstInputMustBeMbyNby3",
       [] { return args(image({4, 3, 4}, ndclass::UInt8, false, qzhost::DimForm::Lazy), scalar(4)); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<float>({1, 1}, {4.0f})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<std::int32_t>({1, 1}, {4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({1, 2}, {4, 4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({2, 1}, {4, 4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({1, 1, 2}, {4, 4})); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), image({1, 0}, ndclass::Double)); }},
      {"secondArgMustBeDoubleScalar", [] { return args(rgb(), qztest::makeFrom<double>({1, 2}, {4, 0, 4, 0}, true)); }},
      {"secondInputMustNotBeComplex", [] { return args(rgb(), qztest::makeFrom<double>({1, 1}, {-4, 0}, true)); }},
      {"numColorsMustBeNonNegative", [] { return args(rgb(), scalar(-0.5)); }},
      {"numColorsMustBeNonNegative", [] { return args(rgb(), scalar(-kInf)); }},
      {"tooManyColors", [] { return args(rgb(), scalar(kNaN)); }},
      {"tooManyColors", [] { return args(rgb(), scalar(65537)); }},
      {"tooManyColors", [] { return args(rgb(), scalar(std::nextafter(kTwo64, 0.0))); }},
  };
  int row = 0;
  for (auto const& c : cases) {
    std::vector<ArrayPtr> owned = c.inputs();
    std::vector<ndArray_tag const*> inputs;
    for (auto const& a : owned) inputs.push_back(a.get());
    EXPECT_QZ_ERROR(qztest::call(pximages::_cq, 2, inputs), std::string("ORRERY:images:cq:") + c.key) << row++;
  }
}

// The count is truncated toward zero by the processor's two-branch unsigned
// conversion (which takes infinity and 2^64 and beyond to 0), then held
// against 65536; eight colours in eight cells show how many came through.
TEST_F(CqGatewayTest, TheCountIsReadAsTheProcessorsUnsignedConversionDoes) {
  std::vector<Rgb> px;
  for (int i = 0; i < 8; ++i)
    px.push_back({std::uint8_t(i & 1 ? 200 : 16), std::uint8_t(i & 2 ? 200 : 16), std::uint8_t(i & 4 ? 200 : 16)});
  auto eight = rgbImage(2, 4, px);
  struct {
    double value;
    std::size_t rows;
  } const cases[] = {{2.9, 2}, {5.99, 5}, {0.5, 0}, {-0.0, 0}, {kInf, 0}, {kTwo64, 0}, {1e300, 0}, {65536.7, 8}};
  for (auto const& c : cases) EXPECT_EQ(runCq(eight.get(), c.value).map.size(), c.rows) << c.value;
}

TEST_F(CqGatewayTest, ZeroColoursGiveAnEmptyMapAndEmptyImagesOneBlackColour) {
  auto some = rgbImage(2, 3, {{1, 2, 3}, {250, 0, 9}, {1, 2, 3}, {0, 0, 0}, {99, 99, 99}, {5, 200, 5}});
  // A run with colours first leaves labelled tables behind in the heap for
  // the next call's allocation to find.
  EXPECT_EQ(runCq(some.get(), 5).map.size(), 4u);
  CqResult r = runCq(some.get(), 0);
  EXPECT_TRUE(r.map.empty());
  EXPECT_EQ(r.indexClass, ndclass::UInt8);
  EXPECT_EQ(r.index, std::vector<std::uint16_t>(6, 0));
  for (auto dims : {std::vector<std::size_t>{0, 4, 3}, {5, 0, 3}}) {
    CqResult e = runCq(image(dims).get(), 65536);
    EXPECT_EQ(e.map, (std::vector<Rgb>{{0, 0, 0}}));
    EXPECT_EQ(e.indexDims, (std::vector<std::size_t>{dims[0], dims[1]}));
  }
}

// Only the requested outputs are written: a slot beyond them keeps what it
// held, and what a written slot held is released exactly once.
TEST_F(CqGatewayTest, WritesTheIndexImageOnlyWhenMoreThanOneOutputIsAsked) {
  auto image = qztest::makeLazyFrom<std::uint8_t>({1, 2, 3}, {0, 255, 0, 255, 0, 255});
  auto k = qztest::makeLazyFrom<double>({1, 1}, {4});
  ndArray_tag const* inputs[] = {image.get(), k.get()};
  for (int numOutputs : {0, 1, 2, 3}) {
    std::vector<ArrayPtr> slots(3);
    for (auto& s : slots) s = qzhost::makeArray(ndclass::Double, {7, 7});
    ndArray_tag* before[3] = {slots[0].get(), slots[1].get(), slots[2].get()};
    std::size_t arrays = qzhost::liveArrays();
    qzhost::call(pximages::_cq, numOutputs, slots.data(), 2, inputs);
    EXPECT_EQ(qzhost::liveArrays(), arrays) << numOutputs;
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(slots[0].get()), (std::vector<std::uint8_t>{0, 255, 0, 255, 0, 255}));
    if (numOutputs > 1)
      EXPECT_EQ(qztest::valuesOf<std::uint8_t>(slots[1].get()), (std::vector<std::uint8_t>{0, 1}));
    else
      EXPECT_EQ(slots[1].get(), before[1]) << numOutputs;
    EXPECT_EQ(slots[2].get(), before[2]) << numOutputs;
  }
}

// The index class follows the number of colours produced, not asked for.
TEST_F(CqGatewayTest, IndexImageIsUint16OnlyWhenMoreThan256ColoursCameOut) {
  std::vector<Rgb> distinct;  // 300 colours in 300 cells
  for (int i = 0; i < 300; ++i)
    distinct.push_back({std::uint8_t(8 * (i % 32) + 3), std::uint8_t(8 * (i / 32) + 4), std::uint8_t(8 * (i % 7) + 5)});
  CqResult r = runCq(rgbImage(15, 20, distinct).get(), 300);
  ASSERT_EQ(r.map.size(), 300u);
  EXPECT_EQ(r.indexClass, ndclass::UInt16);
  for (std::size_t p = 0; p < distinct.size(); ++p) EXPECT_EQ(r.map.at(r.index[p]), distinct[p]) << p;
  distinct.resize(256);
  EXPECT_EQ(runCq(rgbImage(16, 16, distinct).get(), 1000).indexClass, ndclass::UInt8);
}

}  // namespace
