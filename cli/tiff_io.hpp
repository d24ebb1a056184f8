#pragma once
// TIFF files <-> host arrays, through libtiff, entirely in memory so that
// the files themselves are read and written the same way as PNG's.
//
// Read: 8- and 16-bit unsigned and 32-bit float samples, gray (black or
// white is zero) or RGB, in strips or tiles, interleaved or in separate
// planes, with any compression libtiff decodes; extra samples (alpha) are
// dropped with a note on stderr.  Float images become single arrays.
// Written: uint8, uint16, single and double images, gray or RGB, deflate
// compressed.

#include <string>

#include "image_io.hpp"

namespace qzcli {

bool isTiff(std::string const& bytes);

// Throws FileError for a damaged or unsupported file, or one larger than
// the limits allow (checked before any memory is taken for its pixels).
qzhost::ArrayPtr decodeTiff(std::string const& bytes, std::string const& name, ReadLimits const& limits);

// The bytes of a TIFF file holding the M-by-N or M-by-N-by-3 image; `name`
// stands for the file in messages.
std::string encodeTiff(ndArray_tag const* image, std::string const& name);

}  // namespace qzcli
