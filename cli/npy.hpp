#pragma once
// NumPy .npy files <-> host arrays.  Files of format versions 1.0 to 3.0, in
// C or Fortran order and either byte order, become column-major host arrays;
// arrays are written back in Fortran order, little-endian, version 1.0.

#include <stdexcept>
#include <string>

#include "qzhost/runtime.hpp"

namespace qzcli {

// A file that cannot be read as an array: the message names the file and
// what is wrong with it.
struct FileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// dtype -> class: float64 double, float32 single, the eight integer types,
// bool logical, complex128/complex64 complex double/single, and a structured
// dtype of exactly two fields of one integer type a complex array of that
// class.  Shape () is 1x1, (n,) is 1xn, more axes stay as they are (trailing
// singletons beyond the second dropped).
qzhost::ArrayPtr readNpy(std::string const& path);
qzhost::ArrayPtr parseNpy(std::string const& bytes, std::string const& name);

// The dtype text a host array is written with, e.g. "<f8" or
// "[('re', '<i2'), ('im', '<i2')]"; throws FileError for a class that has no
// .npy form.
std::string npyDescr(ndArray_tag const* a);

void writeNpy(std::string const& path, ndArray_tag const* a);
std::string formatNpy(ndArray_tag const* a);

}  // namespace qzcli
