// ind2rgb8: the order of the checks, the map and index conversions at their
// boundaries, agreement with the plain reference whatever the thread count,
// and the gateway's handling of empty, complex and lazily held arrays.

#include <functional>
#include <limits>
#include <random>

#include <tbb/global_control.h>

#include "indexed/ind2rgb8.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"
#include "reference/ind2rgb8_reference.hpp"

namespace {

using qztest::ArrayPtr;
using Ind2rgb8Test = qztest::HostTest;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

ArrayPtr mapOf(std::size_t k, std::vector<double> const& values) { return qztest::makeFrom<double>({k, 3}, values); }

// Calls the gateway on raw inputs; on error the identifier, and the first
// slot must still be empty (every check precedes the output).
std::string errorOf(std::vector<ndArray_tag const*> inputs) {
  std::vector<ArrayPtr> slots(1);
  try {
    qzhost::call(pximages::_ind2rgb8, 1, slots.data(), static_cast<int>(inputs.size()), inputs.data());
  } catch (qzhost::HostError const& e) {
    EXPECT_TRUE(slots[0] == nullptr) << e.identifier();
    return e.identifier();
  }
  return "";
}

TEST_F(Ind2rgb8Test, ChecksRunInOrderAndStopAtTheFirstFailure) {
  auto x = qztest::makeFrom<double>({1, 2}, {1, 2});
  auto map = mapOf(2, {0, 1, 0, 1, 0, 1});
  auto x16 = qzhost::makeArray(ndclass::Int16, {2, 2});
  auto map16by4 = qzhost::makeArray(ndclass::Int16, {2, 4});
  auto x3d = qzhost::makeArray(ndclass::Double, {2, 2, 2});
  auto sparseX = qzhost::makeSparse(2, 2, {0, 1, 1}, {0}, {1.0});
  auto sparseMap = qzhost::makeSparse(2, 3, {0, 1, 1, 2}, {0, 1}, {0.5, 0.5});
  auto emptyMap = qzhost::makeArray(ndclass::Double, {0, 3});
  auto emptyMap4 = qzhost::makeArray(ndclass::Double, {0, 4});
  auto map3d = qzhost::makeArray(ndclass::Double, {2, 3, 2});
  auto map3by1 = qzhost::makeArray(ndclass::Double, {3, 1});
  auto hostClass = qzhost::makeArray(20, {2, 2});

  struct Row {
    char const* what;
    std::vector<ndArray_tag const*> inputs;
    char const* key;
  } const rows[] = {
      {"no inputs", {}, "wrongNumInputs"},
      {"one input", {x.get()}, "wrongNumInputs"},
      {"three inputs", {x.get(), map.get(), map.get()}, "wrongNumInputs"},
      {"int16 X, bad map", {x16.get(), map16by4.get()}, "invalidInputType"},
      {"3-D X of a bad class", {map3d.get(), map.get()}, "inputNot2D"},
      {"3-D X, bad map", {x3d.get(), map16by4.get()}, "inputNot2D"},
      {"sparse X, bad map", {sparseX.get(), map16by4.get()}, "sparseInput"},
      {"K-by-4 int16 map", {x.get(), map16by4.get()}, "invalidMapSize"},
      {"0-by-4 double map", {x.get(), emptyMap4.get()}, "invalidMapSize"},
      {"3-D map", {x.get(), map3d.get()}, "invalidMapSize"},
      {"3-by-1 map", {x.get(), map3by1.get()}, "invalidMapSize"},
      {"sparse 2-by-3 map", {x.get(), sparseMap.get()}, "sparseMap"},
      {"0-by-3 double map", {x.get(), emptyMap.get()}, "emptyMap"},
  };
  for (auto const& r : rows)
    EXPECT_EQ(errorOf(r.inputs), std::string("ORRERY:images:ind2rgb8:") + r.key) << r.what;

  for (ndClassID c : {ndclass::Single, ndclass::Logical, ndclass::Char, ndclass::Int8, ndclass::Int16,
                      ndclass::Int32, ndclass::Int64, ndclass::UInt64}) {
    auto bad = qzhost::makeArray(c, {2, 2});
    EXPECT_EQ(errorOf({bad.get(), emptyMap.get()}), "ORRERY:images:ind2rgb8:invalidInputType") << c;
    auto badMap = qzhost::makeArray(c, {2, 3});
    EXPECT_EQ(errorOf({x.get(), badMap.get()}), "ORRERY:images:ind2rgb8:invalidMapType") << c;
    auto badWideMap = qzhost::makeArray(c, {2, 4});
    EXPECT_EQ(errorOf({x.get(), badWideMap.get()}), "ORRERY:images:ind2rgb8:invalidMapSize") << c;
  }
  EXPECT_EQ(errorOf({hostClass.get(), map.get()}), "ORRERY:images:ind2rgb8:invalidInputType");
}

TEST_F(Ind2rgb8Test, MapIntensitiesBecomeBytesAtTheirBoundaries) {
  struct Row {
    double v;
    std::uint8_t byte;
  } const rows[] = {
      {0.0, 0},    {-0.0, 0},         {-1e-300, 0},   {kNaN, 0},   {-kInf, 0},        {1.0 / 510, 1},
      {0.5, 128},  {0.998, 254},      {0.999, 255},   {1.0, 255},  {1.0000001, 255},  {kInf, 255},
      {254.5 / 255, 255}, {0.4999 / 255, 0}, {-0.001, 0}, {1e300, 255},
  };
  std::vector<double> column;
  for (auto const& r : rows) column.push_back(r.v);
  std::vector<std::uint8_t> table(column.size());
  qz::convertMapColumn(column.data(), column.size(), table.data());
  for (std::size_t i = 0; i < column.size(); ++i) EXPECT_EQ(+table[i], +rows[i].byte) << "v = " << rows[i].v;
}

// A K-row map whose three channels tell the row apart: row r has red byte
// 10 + r, green 100 + r and blue 200 + r.
std::vector<double> distinctRows(std::size_t k) {
  std::vector<double> map(3 * k);
  for (std::size_t r = 0; r < k; ++r)
    for (std::size_t c = 0; c < 3; ++c) map[c * k + r] = static_cast<double>(10 + 90 * c + r + (c == 2 ? 10 : 0)) / 255;
  return map;
}

// The map row each pixel of an ind2rgb8 result came from.
std::vector<std::size_t> rowsOf(ndArray_tag const* out, std::size_t pixels) {
  auto bytes = qztest::valuesOf<std::uint8_t>(out);
  std::vector<std::size_t> rows(pixels);
  for (std::size_t i = 0; i < pixels; ++i) {
    rows[i] = bytes[i] - 10u;
    EXPECT_EQ(bytes[pixels + i], 100 + rows[i]) << "green of pixel " << i;
    EXPECT_EQ(bytes[2 * pixels + i], 200 + rows[i]) << "blue of pixel " << i;
  }
  return rows;
}

TEST_F(Ind2rgb8Test, DoubleIndicesAreOneBasedRoundedAndClamped) {
  std::size_t const k = 4;
  struct Row {
    double x;
    std::size_t row;
  } const rows[] = {
      {0, 0},    {-3, 0},   {kNaN, 0},    {-kInf, 0},  {0.999, 0}, {1, 0},    {1.49, 0},
      {1.5, 1},  {2.5, 2},  {3.4999, 2},  {3.5, 3},    {4, 3},     {4.1, 3},  {4.5, 3},
      {kInf, 3}, {1e300, 3}, {-0.0, 0},   {2.0, 1},
  };
  std::vector<double> x;
  for (auto const& r : rows) x.push_back(r.x);
  auto xa = qztest::makeFrom<double>({1, x.size()}, x);
  auto map = mapOf(k, distinctRows(k));
  auto out = qztest::call(pximages::_ind2rgb8, 1, {xa.get(), map.get()});
  auto got = rowsOf(out[0].get(), x.size());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_EQ(got[i], rows[i].row) << "x = " << rows[i].x;
}

template <class T>
std::vector<std::size_t> lookUpRows(std::vector<T> const& x, std::size_t k) {
  auto xa = qztest::makeFrom<T>({x.size(), 1}, x);
  auto map = mapOf(k, distinctRows(k));
  auto out = qztest::call(pximages::_ind2rgb8, 1, {xa.get(), map.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{x.size(), 1, 3}));
  return rowsOf(out[0].get(), x.size());
}

TEST_F(Ind2rgb8Test, IntegerIndicesAreZeroBasedAndClampedToTheLastRow) {
  std::vector<std::uint8_t> bytes(256);
  for (int v = 0; v < 256; ++v) bytes[v] = static_cast<std::uint8_t>(v);
  for (std::size_t k : {1u, 2u, 45u}) {
    auto got = lookUpRows(bytes, k);
    for (std::size_t v = 0; v < 256; ++v) ASSERT_EQ(got[v], std::min(v, k - 1)) << "K = " << k;
  }
  // Every byte value reaches its own row of a 256-row map.
  std::vector<double> grey(3 * 256);
  for (int r = 0; r < 256; ++r) grey[r] = grey[256 + r] = grey[512 + r] = r / 255.0;
  auto xa = qztest::makeFrom<std::uint8_t>({16, 16}, bytes);
  auto map = mapOf(256, grey);
  auto out = qztest::call(pximages::_ind2rgb8, 1, {xa.get(), map.get()});
  auto got = qztest::valuesOf<std::uint8_t>(out[0].get());
  for (int c = 0; c < 3; ++c)
    EXPECT_EQ(std::vector<std::uint8_t>(got.begin() + 256 * c, got.begin() + 256 * (c + 1)), bytes) << "plane " << c;

  std::size_t const k = 7;
  EXPECT_EQ(lookUpRows<std::uint16_t>({0, 6, 7, 8, 65535}, k), (std::vector<std::size_t>{0, 6, 6, 6, 6}));
  EXPECT_EQ(lookUpRows<std::uint32_t>({0, 5, 6, 7, 4294967295u}, k), (std::vector<std::size_t>{0, 5, 6, 6, 6}));
}

TEST_F(Ind2rgb8Test, AOneRowMapColoursEveryPixel) {
  auto map = mapOf(1, {1.0, 0.5, -2});
  auto xd = qztest::makeFrom<double>({2, 2}, {kNaN, 0, 5, 1e9});
  auto xu = qztest::makeFrom<std::uint32_t>({1, 2}, {0, 4294967295u});
  for (auto const* x : {xd.get(), xu.get()}) {
    auto out = qztest::call(pximages::_ind2rgb8, 1, {x, map.get()});
    std::size_t const p = ndGetNumberOfElements(x);
    std::vector<std::uint8_t> want(3 * p);
    std::fill(want.begin(), want.begin() + p, 255);
    std::fill(want.begin() + p, want.begin() + 2 * p, 128);
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), want);
  }
}

TEST_F(Ind2rgb8Test, EmptyImagesGiveEmptyOutputs) {
  auto map = mapOf(1, {1, 1, 1});
  for (auto dims : {std::vector<std::size_t>{5, 0}, {0, 7}, {0, 0}}) {
    auto x = qzhost::makeArray(ndclass::UInt16, dims);
    auto out = qztest::call(pximages::_ind2rgb8, 1, {x.get(), map.get()});
    EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{dims[0], dims[1], 3}));
    EXPECT_EQ(ndGetClassID(out[0].get()), ndclass::UInt8);
    EXPECT_EQ(ndGetNumberOfElements(out[0].get()), 0u);
  }
}

TEST_F(Ind2rgb8Test, ComplexArraysAreReadAsConsecutiveStoredValues) {
  // A 1-by-2 complex X stores (1, 2), (3, 4): its first two values, 1 and 2,
  // are the indices.
  auto x = qztest::makeFrom<double>({1, 2}, {1, 2, 3, 4}, true);
  auto map = mapOf(2, {0, 1, 0, 1, 0, 1});
  auto out = qztest::call(pximages::_ind2rgb8, 1, {x.get(), map.get()});
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), (std::vector<std::uint8_t>{0, 255, 0, 255, 0, 255}));

  // A 2-by-3 complex map: its first six stored values (real and imaginary
  // parts alike) make the red, green and blue columns.
  auto cmap = qztest::makeFrom<double>({2, 3}, {0, 1, 0.5, 0, 1, 1, 9, 9, 9, 9, 9, 9}, true);
  auto xr = qztest::makeFrom<std::uint8_t>({1, 2}, {0, 1});
  out = qztest::call(pximages::_ind2rgb8, 1, {xr.get(), cmap.get()});
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), (std::vector<std::uint8_t>{0, 255, 128, 0, 255, 255}));
}

TEST_F(Ind2rgb8Test, LazyAndCompactDimensionsAreRead) {
  auto x = qztest::makeLazyFrom<double>({1, 3}, {1, 2, 3});
  auto map = qztest::makeFrom<double>({3, 3}, {0, 0.5, 1, 0, 0.5, 1, 0, 0.5, 1}, false, qzhost::DimForm::Compact);
  auto out = qztest::call(pximages::_ind2rgb8, 1, {x.get(), map.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{1, 3, 3}));
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()),
            (std::vector<std::uint8_t>{0, 128, 255, 0, 128, 255, 0, 128, 255}));
  auto lazyMap = qztest::makeLazyFrom<double>({1, 3}, {1, 1, 1});
  out = qztest::call(pximages::_ind2rgb8, 1, {x.get(), lazyMap.get()});
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), std::vector<std::uint8_t>(9, 255));
}

// Images large enough to be split (the grain is 10000 elements) against the
// reference, for 1, 2 and 4 threads.
template <class T>
void compareLargeImage(std::mt19937_64& rng, std::size_t m, std::size_t n, std::size_t k) {
  std::vector<T> x(m * n);
  for (auto& v : x) {
    if constexpr (std::is_floating_point_v<T>) {
      double u = std::uniform_real_distribution<double>(-2, static_cast<double>(k) + 2)(rng);
      v = rng() % 50 == 0 ? kNaN : u;
    } else {
      v = static_cast<T>(rng() % (k + 5));
    }
  }
  std::vector<double> map(3 * k);
  for (auto& v : map) v = std::uniform_real_distribution<double>(-0.2, 1.2)(rng);
  auto xa = qztest::makeFrom<T>({m, n}, x);
  auto ma = mapOf(k, map);
  std::size_t const p = m * n;
  std::vector<std::uint8_t> want(3 * p);
  for (std::size_t i = 0; i < p; ++i)
    for (int c = 0; c < 3; ++c) want[c * p + i] = qzref::ind2rgb8(x[i], map.data(), k, c);
  for (int threads : {1, 2, 4}) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
    auto out = qztest::call(pximages::_ind2rgb8, 1, {xa.get(), ma.get()});
    EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get()), want) << threads << " threads, class " << ndClassOf<T>::value;
  }
}

TEST_F(Ind2rgb8Test, LargeImagesMatchTheReferenceWhateverTheThreadCount) {
  std::mt19937_64 rng(4242);
  compareLargeImage<double>(rng, 211, 307, 37);
  compareLargeImage<std::uint8_t>(rng, 300, 101, 200);
  compareLargeImage<std::uint16_t>(rng, 97, 1031, 1000);
  compareLargeImage<std::uint32_t>(rng, 20011, 2, 3);  // two tall columns: one split at most
  compareLargeImage<double>(rng, 1, 40000, 5);         // one row: every column is one element
}

TEST_F(Ind2rgb8Test, FillsTheFirstSlotWhateverIsAsked) {
  auto x = qztest::makeFrom<double>({1, 1}, {1});
  auto map = mapOf(1, {1, 0, 1});
  std::vector<ArrayPtr> slots(1);
  slots[0] = qzhost::makeArray(ndclass::Double, {3, 3});
  std::size_t arrays = qzhost::liveArrays();
  ndArray_tag const* inputs[] = {x.get(), map.get()};
  qzhost::call(pximages::_ind2rgb8, 0, slots.data(), 2, inputs);
  EXPECT_EQ(qzhost::liveArrays(), arrays);
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(slots[0].get()), (std::vector<std::uint8_t>{255, 0, 255}));
}

}  // namespace
