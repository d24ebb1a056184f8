#pragma once
// Expansion of an indexed image through a colour map into 8-bit RGB.
//
// The map is converted once into three byte tables (one per channel, to
// match the separate output planes); each pixel then costs one index
// computation and three table reads.  The work splits between whole columns,
// so a piece always pairs columns of the index image with the same columns
// of every output plane.

#include <cstddef>
#include <cstdint>

#include "ndarray/ndarray.hpp"
#include "parallel/raster.hpp"

namespace qz {

// The gateway's checks in order: raises the first failure, returns when all
// pass.
void validateInputs(int numInputs, ndArray_tag const** inputs);

// Minimum elements per piece of either member of the range pair.
inline constexpr std::size_t kLookupGrain = 10000;

// The index image (T its element type) and the three planes of the output.
template <class T>
using LookupRange =
    raster::SplittablePair<raster::SplittableArrayWrapper<T>, raster::SplittableRGBArrayWrapper<unsigned char>>;

// Converts one map column of k intensities into k bytes: NaN and negatives
// give 0, values above 1 give 255, the rest trunc(v*255 + 0.5).
void convertMapColumn(double const* column, std::uint64_t k, std::uint8_t* table);

// Double indices are 1-based: rounded half up to a row, NaN and anything
// below 1 giving the first row, anything above k the last.
struct ComputeFunctorDoubleArray {
  std::uint8_t const* red;
  std::uint8_t const* green;
  std::uint8_t const* blue;
  std::uint64_t k;

  std::uint64_t rowOf(double x) const;
  void operator()(LookupRange<double> const& r) const;
};

// Integer indices are 0-based; values at or past k give the last row.
template <class T>
struct ComputeFunctorUintArray {
  std::uint8_t const* red;
  std::uint8_t const* green;
  std::uint8_t const* blue;
  std::uint64_t k;

  std::uint64_t rowOf(T u) const { return static_cast<std::uint64_t>(u) < k ? static_cast<std::uint64_t>(u) : k - 1; }
  void operator()(LookupRange<T> const& r) const;
};

// The body of ComputeFunctorUintArray<uint8_t> for n index bytes of one
// piece, in vector lanes (ind2rgb8_hwy.cpp); plane is the output plane size.
void lookUpByteIndices(ComputeFunctorUintArray<std::uint8_t> const& f, std::uint8_t const* in, std::size_t n,
                       std::uint8_t* out, std::size_t plane);

// The three byte tables of one map, and its row count.
struct ColourTables {
  std::uint8_t const* red;
  std::uint8_t const* green;
  std::uint8_t const* blue;
  std::uint64_t k;
};

// Looks up the m-by-n index image x into the m-by-n-by-3 output, in
// parallel over columns.  An empty image starts nothing.
template <class T>
void launchLookup(T* x, std::size_t m, std::size_t n, std::uint8_t* out, ColourTables const& tables);

// The index classes, as X(type, class) like QZ_FOR_EACH_NUMERIC_TYPE: the
// one list behind the class check, the dispatch and the instances.
#define QZ_FOR_EACH_INDEX_TYPE(X) \
  X(double, Double)               \
  X(std::uint8_t, UInt8)          \
  X(std::uint16_t, UInt16)        \
  X(std::uint32_t, UInt32)

#define QZ_DECLARE_LOOKUP(T, Class) \
  extern template void launchLookup<T>(T*, std::size_t, std::size_t, std::uint8_t*, ColourTables const&);
QZ_FOR_EACH_INDEX_TYPE(QZ_DECLARE_LOOKUP)
#undef QZ_DECLARE_LOOKUP

extern template struct ComputeFunctorUintArray<std::uint8_t>;
extern template struct ComputeFunctorUintArray<std::uint16_t>;
extern template struct ComputeFunctorUintArray<std::uint32_t>;

}  // namespace qz
