#pragma once
// NumPy .npy files <-> host arrays.  Files of format versions 1.0 to 3.0, in
// C or Fortran order and either byte order, become column-major host arrays;
// arrays are written back in Fortran order, little-endian, version 1.0.

#include <string>

#include "files.hpp"
#include "qzhost/runtime.hpp"

namespace qzcli {

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

// The bytes of a .npy file holding `a`.
std::string formatNpy(ndArray_tag const* a);

}  // namespace qzcli
