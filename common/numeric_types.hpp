#pragma once
// The element types of the numeric classes, for instantiating a kernel per
// class and for switching on a class.  X(type, class) is expanded once per
// class; class is the class's name in ndclass (so `case ndclass::class:`
// selects it, and it can name one function per class).

#include <cstdint>

// Every numeric class but the two 64-bit integer ones, whose conversions to
// and from double have no vector form and which resampling does not take.
#define QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(X) \
  X(double, Double)                          \
  X(float, Single)                           \
  X(std::int8_t, Int8)                       \
  X(std::uint8_t, UInt8)                     \
  X(std::int16_t, Int16)                     \
  X(std::uint16_t, UInt16)                   \
  X(std::int32_t, Int32)                     \
  X(std::uint32_t, UInt32)

#define QZ_FOR_EACH_NUMERIC_TYPE(X)    \
  QZ_FOR_EACH_NUMERIC_TYPE_NO_INT64(X) \
  X(std::int64_t, Int64)               \
  X(std::uint64_t, UInt64)
