#pragma once
// One message-ID class per error or warning key, in
// ORRERY::images::<catalog part>.  None of them carries arguments.

#include "foundation/except.hpp"

// The keys of each catalog, as X-macro lists, so that the classes and any
// code that needs the whole set (tests of the catalog) share one list.
#define QZ_RESIZEDIM_KEYS(X) \
  X(notThreeArgs)            \
  X(invalidImage)            \
  X(tooManyDims)             \
  X(badWeights)              \
  X(badIndices)              \
  X(sizeMismatch)            \
  X(invalidDim)              \
  X(invalidInputClass)

#define QZ_IND2RGB8_KEYS(X) \
  X(wrongNumInputs)         \
  X(invalidInputType)       \
  X(inputNot2D)             \
  X(sparseInput)            \
  X(invalidMapSize)         \
  X(invalidMapType)         \
  X(sparseMap)              \
  X(emptyMap)               \
  X(unexpectedType)

#define QZ_GRAYTO8_KEYS(X) \
  X(tooFewInputs)          \
  X(tooManyInputs)         \
  X(invalidType)           \
  X(ignoringImaginaryPartOfInput)

#define QZ_CQ_KEYS(X)              \
  X(twoInputsRequired)             \
  X(firstInputMustBeUint8)         \
  X(firstInputMustNotBeComplex)    \
  X(firstInputMustBe3DUint8)       \
  X(firstInputMustBeMbyNby3)       \
  X(secondArgMustBeDoubleScalar)   \
  X(secondInputMustNotBeComplex)   \
  X(numColorsMustBeNonNegative)    \
  X(tooManyColors)                 \
  X(internalBadDirValue)

#define QZ_DEFINE_MSGID(key)                                                 \
  struct key : resource_core::BaseMsgID {                                    \
    key() : resource_core::BaseMsgID(kCatalog, #key, 0) {}                   \
  };

namespace ORRERY::images {
namespace resizeDim {
inline constexpr char kCatalog[] = "ORRERY:images:resizeDim";
QZ_RESIZEDIM_KEYS(QZ_DEFINE_MSGID)
}  // namespace resizeDim
namespace ind2rgb8 {
inline constexpr char kCatalog[] = "ORRERY:images:ind2rgb8";
QZ_IND2RGB8_KEYS(QZ_DEFINE_MSGID)
}  // namespace ind2rgb8
namespace grayto8 {
inline constexpr char kCatalog[] = "ORRERY:images:grayto8";
QZ_GRAYTO8_KEYS(QZ_DEFINE_MSGID)
}  // namespace grayto8
namespace cq {
inline constexpr char kCatalog[] = "ORRERY:images:cq";
QZ_CQ_KEYS(QZ_DEFINE_MSGID)
}  // namespace cq
}  // namespace ORRERY::images

#undef QZ_DEFINE_MSGID
