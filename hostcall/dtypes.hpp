#pragma once
// The array classes NumPy can hold and their NumPy type codes, for every
// host that reads or writes NumPy arrays (the .npy files of the command-line
// host, the arrays of the Python module).

#include <cstddef>
#include <string_view>

#include "ndarray/ndarray.hpp"

namespace qzcall {

// A type code is NumPy's kind letter and byte size ("f8", "u2", "b1",
// "c16"), without a byte order.  NumPy has complex floating types only: a
// complex integer array is a record of two parts of the integer type.
struct NumpyType {
  char const* code;
  ndClassID cls;
  bool complex;
  std::size_t partBytes;  // one real value
};

// The type with this code, or null.
NumpyType const* numpyTypeByCode(std::string_view code);

// The type of a class's elements, or null if NumPy cannot hold the class.
// Ask with complex = true only for double and single; any other complex
// class is stored as a record of its real type.
NumpyType const* numpyTypeOf(ndClassID cls, bool complex);

}  // namespace qzcall
