// ind2rgb8: map conversion, the per-pixel lookup and the gateway.

#include "indexed/ind2rgb8.hpp"

#include <cmath>
#include <type_traits>

#include "common/convert.hpp"
#include "common/scratch.hpp"
#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "ndarray/ndarray.hpp"
#include "parallel/loop.hpp"
#include "qzimages/qzimages.hpp"

namespace qz {

void convertMapColumn(double const* column, std::uint64_t k, std::uint8_t* table) {
  for (std::uint64_t i = 0; i < k; ++i) table[i] = unitToByte(column[i]);
}

std::uint64_t ComputeFunctorDoubleArray::rowOf(double x) const {
  if (x != x || x < 1) return 0;  // NaN, zero, negatives and -Inf: the first row
  if (x > static_cast<double>(k)) return k - 1;
  // x is in [1, k] here, so the rounded value converts exactly.
  return truncToUInt64(std::floor(x + 0.5)) - 1;
}

namespace {

// One piece: n consecutive index elements (whole columns) and the matching
// elements of the three output planes, planeSize apart.
template <class T, class Functor>
void lookUp(Functor const& f, LookupRange<T> const& r) {
  // Local copies: a store through a byte pointer could otherwise alias the
  // functor and force every field to be reloaded per pixel.
  T const* __restrict in = r.first.data;
  std::uint8_t* __restrict out = r.second.data;
  std::size_t const n = r.first.count, plane = r.second.planeSize;
  Functor const local = f;
  for (std::size_t j = 0; j < n; ++j) {
    std::uint64_t const i = local.rowOf(in[j]);
    out[j] = local.red[i];
    out[plane + j] = local.green[i];
    out[2 * plane + j] = local.blue[i];
  }
}

}  // namespace

void ComputeFunctorDoubleArray::operator()(LookupRange<double> const& r) const { lookUp<double>(*this, r); }

template <class T>
void ComputeFunctorUintArray<T>::operator()(LookupRange<T> const& r) const {
  if constexpr (std::is_same_v<T, std::uint8_t>)
    lookUpByteIndices(*this, r.first.data, r.first.count, r.second.data, r.second.planeSize);
  else
    lookUp<T>(*this, r);
}

template struct ComputeFunctorUintArray<std::uint8_t>;
template struct ComputeFunctorUintArray<std::uint16_t>;
template struct ComputeFunctorUintArray<std::uint32_t>;

template <class T>
void launchLookup(T* x, std::size_t m, std::size_t n, std::uint8_t* out, ColourTables const& tables) {
  std::size_t const plane = m * n;
  if (plane == 0) return;
  LookupRange<T> range(raster::SplittableArrayWrapper<T>(x, plane, m, n, kLookupGrain),
                       raster::SplittableRGBArrayWrapper<unsigned char>(out, 3 * plane, m, 3 * n, kLookupGrain,
                                                                        plane, n));
  if constexpr (std::is_same_v<T, double>) {
    runParallel(range, ComputeFunctorDoubleArray{tables.red, tables.green, tables.blue, tables.k});
  } else {
    runParallel(range, ComputeFunctorUintArray<T>{tables.red, tables.green, tables.blue, tables.k});
  }
}

#define QZ_INSTANTIATE_LOOKUP(T, Class) \
  template void launchLookup<T>(T*, std::size_t, std::size_t, std::uint8_t*, ColourTables const&);
QZ_FOR_EACH_INDEX_TYPE(QZ_INSTANTIATE_LOOKUP)
#undef QZ_INSTANTIATE_LOOKUP

}  // namespace qz

namespace qz {

namespace {

bool isIndexClass(ndClassID c) {
#define QZ_IS_CLASS(T, Class) c == ndclass::Class ||
  return QZ_FOR_EACH_INDEX_TYPE(QZ_IS_CLASS) false;
#undef QZ_IS_CLASS
}

}  // namespace

// Raises the first failing check.  The map's shape is checked before its
// class, so a K-by-4 map of any class reports its size.
void validateInputs(int numInputs, ndArray_tag const** inputs) {
  namespace ind2rgb8 = ORRERY::images::ind2rgb8;
  if (numInputs != 2) ndErrMsgId(ind2rgb8::wrongNumInputs());
  ndArray_tag const* x = inputs[0];
  ndArray_tag const* map = inputs[1];
  if (!isIndexClass(ndGetClassID(x))) ndErrMsgId(ind2rgb8::invalidInputType());
  x->complete_opaque_dimensions();
  if (ndGetNumberOfDimensions(x) != 2) ndErrMsgId(ind2rgb8::inputNot2D());
  if (ndIsSparse(x)) ndErrMsgId(ind2rgb8::sparseInput());
  map->complete_opaque_dimensions();
  if (ndGetNumberOfDimensions(map) != 2 || ndGetN(map) != 3) ndErrMsgId(ind2rgb8::invalidMapSize());
  if (ndGetClassID(map) != ndclass::Double) ndErrMsgId(ind2rgb8::invalidMapType());
  if (ndIsSparse(map)) ndErrMsgId(ind2rgb8::sparseMap());
  if (ndGetDimensions(map)[0] == 0) ndErrMsgId(ind2rgb8::emptyMap());
}

}  // namespace qz

namespace pximages {

namespace {

namespace msg = ORRERY::images::ind2rgb8;

// X and the map are read from the start of their data as if real: for a
// complex array the interleaved parts count as consecutive elements.
template <class T>
void lookUpAs(ndArray_tag const* x, std::size_t m, std::size_t n, ndArray_tag* out, qz::ColourTables const& t) {
  qz::launchLookup<T>(static_cast<T*>(ndGetData(x)), m, n, static_cast<std::uint8_t*>(ndGetData(out)), t);
}

}  // namespace

void _ind2rgb8(int, OutputSlot* outputs, int numInputs, ndArray_tag const** inputs) {
  qz::validateInputs(numInputs, inputs);
  ndArray_tag const* x = inputs[0];
  ndArray_tag const* map = inputs[1];
  std::size_t const m = ndGetDimensions(x)[0];
  std::size_t const n = ndGetN(x);
  std::size_t const dims[3] = {m, n, 3};
  outputs[0] = matrix::detail::do_create_uninitnumeric({dims, dims + 3}, ndclass::UInt8, ndREAL);
  ndArray_tag* out = outputs[0].get();

  std::uint64_t const k = ndGetDimensions(map)[0];
  using qz::ScratchArray;
  using qz::ScratchFill;
  ScratchArray<std::uint8_t> const red(k, ScratchFill::Uninitialised), green(k, ScratchFill::Uninitialised),
      blue(k, ScratchFill::Uninitialised);
  double const* column = static_cast<double const*>(ndGetData(map));
  qz::convertMapColumn(column, k, red.get());
  qz::convertMapColumn(column + k, k, green.get());
  qz::convertMapColumn(column + 2 * k, k, blue.get());
  qz::ColourTables const tables{red.get(), green.get(), blue.get(), k};

  switch (ndGetClassID(x)) {
#define QZ_LOOKUP_CASE(T, Class) \
  case ndclass::Class: lookUpAs<T>(x, m, n, out, tables); break;
    QZ_FOR_EACH_INDEX_TYPE(QZ_LOOKUP_CASE)
#undef QZ_LOOKUP_CASE
    // Unreachable after the checks; the tables' owners give them back.
    default: ndErrMsgId(msg::unexpectedType());
  }
}

}  // namespace pximages
