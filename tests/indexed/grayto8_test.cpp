// grayto8: the checks and the warning, each class's rounding at its
// boundaries (the whole uint16 domain), complex and sparse input, and the
// output's shape.

#include <cmath>
#include <limits>

#include "common/convert.hpp"
#include "indexed/grayto8.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

namespace {

using qztest::ArrayPtr;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr char kWarning[] = "ORRERY:images:grayto8:ignoringImaginaryPartOfInput";

class Grayto8Test : public qztest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    qzhost::setWarningEcho(false);
    qzhost::takeWarnings();
  }
  void TearDown() override {
    qzhost::setWarningEcho(true);
    HostTest::TearDown();
  }
};

std::vector<std::uint8_t> bytesOf(ndArray_tag const* in) {
  auto out = qztest::call(pximages::_grayto8, 1, {in});
  EXPECT_EQ(ndGetClassID(out[0].get()), ndclass::UInt8);
  EXPECT_FALSE(ndIsComplex(out[0].get()));
  return qztest::valuesOf<std::uint8_t>(out[0].get());
}

// The identifier raised, with the first slot still empty: every error comes
// before the output is created.
std::string errorOf(std::vector<ndArray_tag const*> inputs) {
  std::vector<ArrayPtr> slots(1);
  try {
    qzhost::call(pximages::_grayto8, 1, slots.data(), static_cast<int>(inputs.size()), inputs.data());
  } catch (qzhost::HostError const& e) {
    EXPECT_TRUE(slots[0] == nullptr) << e.identifier();
    return e.identifier();
  }
  return "";
}

TEST_F(Grayto8Test, ChecksRunInOrder) {
  auto good = qzhost::makeArray(ndclass::Double, {1, 1});
  auto bad = qzhost::makeArray(ndclass::UInt8, {1, 1});
  EXPECT_EQ(errorOf({}), "ORRERY:images:grayto8:tooFewInputs");
  EXPECT_EQ(errorOf({bad.get(), good.get()}), "ORRERY:images:grayto8:tooManyInputs");
  EXPECT_EQ(errorOf({good.get(), good.get(), good.get()}), "ORRERY:images:grayto8:tooManyInputs");
  for (ndClassID c : {ndclass::UInt8, ndclass::Int8, ndclass::Int16, ndclass::Int32, ndclass::UInt32,
                      ndclass::Int64, ndclass::UInt64, ndclass::Logical, ndclass::Char, ndClassID{20}}) {
    auto in = qzhost::makeArray(c, {2, 2});
    EXPECT_EQ(errorOf({in.get()}), "ORRERY:images:grayto8:invalidType") << c;
  }
  // A complex input of a bad class is refused before any warning.
  auto complexInt16 = qzhost::makeArray(ndclass::Int16, {2, 2}, true);
  EXPECT_EQ(errorOf({complexInt16.get()}), "ORRERY:images:grayto8:invalidType");
  EXPECT_TRUE(qzhost::takeWarnings().empty());
}

TEST_F(Grayto8Test, DoubleRoundsAfterTheOffsetAndSaturates) {
  struct Row {
    double v;
    std::uint8_t byte;
  } const rows[] = {
      {0.5, 128},   {0.998, 254},   {0.999, 255},     {-0.001, 0},      {2, 255},
      {kNaN, 0},    {kInf, 255},    {-kInf, 0},       {0, 0},           {-0.0, 0},
      {1, 255},     {1.0 / 510, 1}, {-1.0 / 1020, 0}, {0.4999 / 255, 0}, {254.5 / 255, 255},
  };
  std::vector<double> values;
  for (auto const& r : rows) values.push_back(r.v);
  auto in = qztest::makeFrom<double>({1, values.size()}, values);
  auto got = bytesOf(in.get());
  for (std::size_t i = 0; i < values.size(); ++i) EXPECT_EQ(+got[i], +rows[i].byte) << "v = " << rows[i].v;
}

TEST_F(Grayto8Test, SingleIsConvertedInSinglePrecision) {
  struct Row {
    float v;
    std::uint8_t byte;
  } const rows[] = {
      {0.5f, 128}, {1.0f, 255}, {2.0f, 255}, {-0.001f, 0}, {NAN, 0}, {INFINITY, 255}, {-INFINITY, 0},
      // Single rounding of v*255 + 0.5 lands on the integer where the exact
      // value lies just below it: the float just below 1/510 gives 1, and
      // 0x1.020202p-1 gives 129 (128.99999994 in double).
      {0x1.0101p-9f, 1}, {0x1.020202p-1f, 129},
  };
  std::vector<float> values;
  for (auto const& r : rows) values.push_back(r.v);
  auto in = qztest::makeFrom<float>({values.size(), 1}, values);
  auto got = bytesOf(in.get());
  for (std::size_t i = 0; i < values.size(); ++i) EXPECT_EQ(+got[i], +rows[i].byte) << "v = " << rows[i].v;
  // The last two really tell single from double arithmetic.
  EXPECT_EQ(std::nextafter(static_cast<float>(1.0 / 510), 0.0f), 0x1.0101p-9f);
  EXPECT_EQ(qz::offsetUnitToByte(0x1.0101p-9f), 0);
  EXPECT_EQ(qz::offsetUnitToByte(0x1.020202p-1f), 128);
}

TEST_F(Grayto8Test, EveryUint16ValueIsItsRoundedQuotientBy257) {
  std::vector<std::uint16_t> all(65536);
  for (std::size_t u = 0; u < all.size(); ++u) all[u] = static_cast<std::uint16_t>(u);
  auto in = qztest::makeFrom<std::uint16_t>({256, 256}, all);
  auto got = bytesOf(in.get());
  // 257 is odd, so u/257 is never half-way and (u + 128) / 257 rounds it.
  for (std::size_t u = 0; u < all.size(); ++u) ASSERT_EQ(got[u], (u + 128) / 257) << "u = " << u;
}

TEST_F(Grayto8Test, ComplexInputWarnsAndConvertsItsRealParts) {
  auto d = qztest::makeFrom<double>({1, 3}, {0.5, 9, 1, -1, kNaN, 0.2}, true);
  EXPECT_EQ(bytesOf(d.get()), (std::vector<std::uint8_t>{128, 255, 0}));
  auto s = qztest::makeFrom<float>({3, 1}, {1, 0, 0, 1, 0.5f, 0.5f}, true);
  EXPECT_EQ(bytesOf(s.get()), (std::vector<std::uint8_t>{255, 0, 128}));
  auto u = qztest::makeFrom<std::uint16_t>({1, 2}, {65535, 0, 386, 65535}, true);
  EXPECT_EQ(bytesOf(u.get()), (std::vector<std::uint8_t>{255, 2}));
  auto warnings = qzhost::takeWarnings();
  ASSERT_EQ(warnings.size(), 3u);
  for (auto const& w : warnings) EXPECT_EQ(w.identifier, kWarning);

  auto real = qztest::makeFrom<double>({1, 1}, {0.5});
  bytesOf(real.get());
  EXPECT_TRUE(qzhost::takeWarnings().empty());
}

TEST_F(Grayto8Test, OutputHasTheDimensionsOfTheInput) {
  for (auto dims : {std::vector<std::size_t>{2, 3, 4}, {5, 1}, {1, 2, 1, 3}, {0, 3, 2}, {4, 0}}) {
    for (ndClassID c : {ndclass::Double, ndclass::Single, ndclass::UInt16}) {
      auto in = qzhost::makeArray(c, dims);
      auto out = qztest::call(pximages::_grayto8, 1, {in.get()});
      EXPECT_EQ(qzhost::dimsOf(out[0].get()), qzhost::dimsOf(in.get()));
      EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()),
                std::vector<std::uint8_t>(ndGetNumberOfElements(in.get()), 0));
    }
  }
  auto lazy = qztest::makeLazyFrom<double>({2, 1, 2}, {0, 0.25, 0.75, 1});
  auto out = qztest::call(pximages::_grayto8, 0, {lazy.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{2, 1, 2}));
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), (std::vector<std::uint8_t>{0, 64, 191, 255}));
}

TEST_F(Grayto8Test, SparseStoredValuesArePackedAtTheStartOfAFullOutput) {
  // 3-by-3 with 0.5 at (2, 0), 1 at (0, 2) and NaN at (1, 2).
  auto sparse = qzhost::makeSparse(3, 3, {0, 1, 1, 3}, {2, 0, 1}, {0.5, 1, kNaN});
  EXPECT_EQ(qz::countStoredElements(sparse.get()), 3u);
  auto out = qztest::call(pximages::_grayto8, 1, {sparse.get()});
  EXPECT_FALSE(ndIsSparse(out[0].get()));
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{3, 3}));
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), (std::vector<std::uint8_t>{128, 255, 0, 0, 0, 0, 0, 0, 0}));

  auto complexSparse = qzhost::makeSparse(2, 2, {0, 0, 2}, {0, 1}, {1, 7, 0.25, 7}, true);
  EXPECT_EQ(bytesOf(complexSparse.get()), (std::vector<std::uint8_t>{255, 64, 0, 0}));
  EXPECT_EQ(qzhost::takeWarnings().size(), 1u);

  auto none = qzhost::makeSparse(2, 2, {0, 0, 0}, {}, {});
  EXPECT_EQ(qz::countStoredElements(none.get()), 0u);
  EXPECT_EQ(bytesOf(none.get()), std::vector<std::uint8_t>(4, 0));
}

}  // namespace
