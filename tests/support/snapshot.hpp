#pragma once
// A complete copy of what a host array holds (class, complexity, dimensions
// and every byte of element data), so that the results of two calls can be
// compared byte for byte after the arrays themselves are gone.

#include <cstring>
#include <tuple>
#include <vector>

#include "qztest.hpp"

namespace qztest {

struct ArraySnapshot {
  std::tuple<bool, ndClassID, bool, std::vector<std::size_t>> shape;  // present, class, complex, dimensions
  std::vector<unsigned char> bytes;
  bool operator==(ArraySnapshot const& o) const { return shape == o.shape && bytes == o.bytes; }
};

// Bytes of element data the array's class, complexity and dimensions call
// for.
inline std::size_t dataBytesOf(ndArray_tag const* a) {
  return ndGetNumberOfElements(a) * qzhost::elementSize(ndGetClassID(a)) * (ndIsComplex(a) ? 2 : 1);
}

// Reads every byte the array claims to hold, so a buffer shorter than its
// dimensions is caught by the sanitizers.
inline ArraySnapshot snapshotOf(ndArray_tag const* a) {
  if (!a) return {};
  a->complete_opaque_dimensions();
  ArraySnapshot s{{true, ndGetClassID(a), ndIsComplex(a), qzhost::dimsOf(a)}, {}};
  s.bytes.resize(dataBytesOf(a));
  if (!s.bytes.empty()) std::memcpy(s.bytes.data(), ndGetData(a), s.bytes.size());
  return s;
}

// The outputs of one call of fn, every slot.
inline std::vector<ArraySnapshot> snapshotsOfCall(qzhost::Gateway fn, int outs, std::vector<ArrayPtr> const& inputs) {
  std::vector<ndArray_tag const*> in;
  for (auto const& a : inputs) in.push_back(a.get());
  std::vector<ArraySnapshot> s;
  for (auto const& a : call(fn, outs, in)) s.push_back(snapshotOf(a.get()));
  return s;
}

}  // namespace qztest
