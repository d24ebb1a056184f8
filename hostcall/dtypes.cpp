// The class <-> NumPy type code table.

#include "dtypes.hpp"

namespace qzcall {
namespace {

constexpr NumpyType kTypes[] = {
    {"f8", ndclass::Double, false, 8}, {"f4", ndclass::Single, false, 4}, {"i1", ndclass::Int8, false, 1},
    {"u1", ndclass::UInt8, false, 1},  {"i2", ndclass::Int16, false, 2},  {"u2", ndclass::UInt16, false, 2},
    {"i4", ndclass::Int32, false, 4},  {"u4", ndclass::UInt32, false, 4}, {"i8", ndclass::Int64, false, 8},
    {"u8", ndclass::UInt64, false, 8}, {"b1", ndclass::Logical, false, 1}, {"c16", ndclass::Double, true, 8},
    {"c8", ndclass::Single, true, 4},
};

}  // namespace

NumpyType const* numpyTypeByCode(std::string_view code) {
  for (auto const& t : kTypes)
    if (code == t.code) return &t;
  return nullptr;
}

NumpyType const* numpyTypeOf(ndClassID cls, bool complex) {
  for (auto const& t : kTypes)
    if (t.cls == cls && t.complex == complex) return &t;
  return nullptr;
}

}  // namespace qzcall
