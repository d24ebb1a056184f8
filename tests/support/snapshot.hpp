#pragma once
// A complete copy of what a host array holds (class, complexity, dimensions
// and every byte of element data), so that the results of two calls can be
// compared byte for byte after the arrays themselves are gone.

#include <cstring>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qztest {

struct ArraySnapshot {
  bool present = false;
  ndClassID cls = 0;
  bool complex = false;
  std::vector<std::size_t> dims;
  std::vector<unsigned char> bytes;

  bool sameShape(ArraySnapshot const& o) const {
    return present == o.present && cls == o.cls && complex == o.complex && dims == o.dims;
  }
  bool operator==(ArraySnapshot const& o) const { return sameShape(o) && bytes == o.bytes; }
};

// Bytes of element data the array's class, complexity and dimensions call
// for.
inline std::size_t dataBytesOf(ndArray_tag const* a) {
  return ndGetNumberOfElements(a) * qzhost::elementSize(ndGetClassID(a)) * (ndIsComplex(a) ? 2 : 1);
}

// Reads every byte the array claims to hold, so a buffer shorter than its
// dimensions is caught by the sanitizers.
inline ArraySnapshot snapshotOf(ndArray_tag const* a) {
  ArraySnapshot s;
  if (!a) return s;
  a->complete_opaque_dimensions();
  s.present = true;
  s.cls = ndGetClassID(a);
  s.complex = ndIsComplex(a);
  s.dims = qzhost::dimsOf(a);
  s.bytes.resize(dataBytesOf(a));
  if (!s.bytes.empty()) std::memcpy(s.bytes.data(), ndGetData(a), s.bytes.size());
  return s;
}

// "uint8 4x3", "complex double 2x5x3" or "empty slot", for failure messages.
inline std::string describe(ArraySnapshot const& s) {
  if (!s.present) return "empty slot";
  std::string text = std::string(s.complex ? "complex " : "") + qzhost::className(s.cls) + " ";
  for (std::size_t k = 0; k < s.dims.size(); ++k) text += (k ? "x" : "") + std::to_string(s.dims[k]);
  return text;
}

}  // namespace qztest
