// The host's message catalog: the text shown for every identifier a
// built-in or the host itself can raise.

#include <cstring>

#include "qzhost/runtime.hpp"

namespace qzhost {
namespace {

constexpr CatalogEntry kCatalog[] = {
    // Resampling along one dimension.
    {"ORRERY:images:resizeDim", "notThreeArgs",
     "Resampling takes exactly four arguments: the image, the weights, the source indices and the dimension "
     "to resample."},
    {"ORRERY:images:resizeDim", "invalidImage", "The image to resample must be a full (not sparse) numeric or "
                                                "logical array."},
    {"ORRERY:images:resizeDim", "tooManyDims",
     "The image to resample must have at most three dimensions (M-by-N or M-by-N-by-P)."},
    {"ORRERY:images:resizeDim", "badWeights",
     "The weights must be a full two-dimensional double matrix holding one column of taps per output position."},
    {"ORRERY:images:resizeDim", "badIndices", "The source indices must be a full double array."},
    {"ORRERY:images:resizeDim", "sizeMismatch",
     "The source indices must have exactly the same dimensions as the weights."},
    {"ORRERY:images:resizeDim", "invalidDim",
     "The dimension to resample must be a full double scalar: 1 resamples the rows of each column, 2 the "
     "columns of each row."},
    {"ORRERY:images:resizeDim", "invalidInputClass",
     "The image to resample must be of class double, single, uint8, uint16, uint32, int8, int16, int32 or "
     "logical."},

    // Indexed image to 8-bit RGB.
    {"ORRERY:images:ind2rgb8", "wrongNumInputs", "Two inputs are required: an indexed image and a colour map."},
    {"ORRERY:images:ind2rgb8", "invalidInputType", "The indexed image must be of class double, uint8, uint16 or "
                                                   "uint32."},
    {"ORRERY:images:ind2rgb8", "inputNot2D", "The indexed image must be two-dimensional (M-by-N)."},
    {"ORRERY:images:ind2rgb8", "sparseInput", "The indexed image must be a full array, not a sparse one."},
    {"ORRERY:images:ind2rgb8", "invalidMapSize", "The colour map must be a K-by-3 matrix: one row per colour, "
                                                 "with red, green and blue columns."},
    {"ORRERY:images:ind2rgb8", "invalidMapType", "The colour map must be of class double, with intensities in "
                                                 "[0, 1]."},
    {"ORRERY:images:ind2rgb8", "sparseMap", "The colour map must be a full matrix, not a sparse one."},
    {"ORRERY:images:ind2rgb8", "emptyMap", "The colour map must have at least one row."},
    {"ORRERY:images:ind2rgb8", "unexpectedType",
     "Internal error: the indexed image reached the lookup with a class it does not handle."},

    // Grayscale to 8-bit.
    {"ORRERY:images:grayto8", "tooFewInputs", "Not enough input arguments: one grayscale image is required."},
    {"ORRERY:images:grayto8", "tooManyInputs", "Too many input arguments: exactly one grayscale image is "
                                               "accepted."},
    {"ORRERY:images:grayto8", "invalidType", "The grayscale image must be of class double, single or uint16."},
    {"ORRERY:images:grayto8", "ignoringImaginaryPartOfInput",
     "The image is complex: its imaginary part is ignored and only the real part is converted."},

    // Colour quantisation.
    {"ORRERY:images:cq", "twoInputsRequired",
     "Two inputs are required: an M-by-N-by-3 uint8 image and the number of colours."},
    {"ORRERY:images:cq", "firstInputMustBeUint8", "The image to quantise must be of class uint8."},
    {"ORRERY:images:cq", "firstInputMustNotBeComplex", "The image to quantise must be real, not complex."},
    {"ORRERY:images:cq", "firstInputMustBe3DUint8",
     "The image to quantise must be a three-dimensional M-by-N-by-3 uint8 array."},
    {"ORRERY:images:cq", "firstInputMustBeMbyNby3",
     "The image to quantise must have exactly three colour planes (M-by-N-by-3)."},
    {"ORRERY:images:cq", "secondArgMustBeDoubleScalar", "The number of colours must be a double scalar."},
    {"ORRERY:images:cq", "secondInputMustNotBeComplex", "The number of colours must be real, not complex."},
    {"ORRERY:images:cq", "numColorsMustBeNonNegative", "The number of colours must not be negative."},
    {"ORRERY:images:cq", "tooManyColors", "The number of colours must be at most 65536."},
    {"ORRERY:images:cq", "internalBadDirValue",
     "Internal error: the quantiser was asked to cut a colour box along an unknown axis."},

    // The host's own errors.
    {"qzhost", "outOfMemory", "Out of memory: the host could not allocate the memory the operation needs."},
    {"qzhost", "arrayTooLarge", "The requested array is too large: its size exceeds the address space."},
    {"qzhost", "cannotCreateClass", "Numeric arrays of the requested class cannot be created."},
    {"qzhost", "badCompactForm", "Only a two-dimensional array can be held in the compact form."},
    {"qzhost", "badSparseLayout",
     "Malformed sparse array: column starts must begin at 0 and never decrease, and every row index must be "
     "inside the matrix."},
    {"qzhost", "internalError", "The built-in failed unexpectedly."},
};

}  // namespace

std::vector<CatalogEntry> catalogEntries() { return {std::begin(kCatalog), std::end(kCatalog)}; }

std::string messageText(std::string const& catalog, std::string const& key) {
  for (auto const& e : kCatalog)
    if (catalog == e.catalog && key == e.key) return e.text;
  return {};
}

}  // namespace qzhost
