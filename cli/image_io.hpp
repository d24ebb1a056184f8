#pragma once
// Image files <-> host arrays.  Images are held the way the built-ins take
// them: column-major, M-by-N for gray, M-by-N-by-3 planes for colour, class
// uint8 or uint16.

#include <cstddef>
#include <optional>
#include <string>

#include "npy.hpp"
#include "qzhost/runtime.hpp"

namespace qzcli {

// How large an image a reader accepts.  A header of a few bytes can claim
// any size, so the size is checked before memory is taken for the pixels;
// beyond that a reader takes memory only in proportion to the data its file
// really holds.
struct ReadLimits {
  std::size_t maxSide = std::size_t{1} << 16;     // pixels along either side
  std::size_t maxPixels = std::size_t{1} << 26;   // width times height (8192 x 8192)
};

// Reads a PNG (8 or 16 bit; gray, gray+alpha, RGB, RGBA or palette), a
// JPEG or a TIFF (8 or 16 bit, or 32-bit float: a single image), recognised
// by content, not by name.  Alpha is dropped with a note on
// stderr; a palette is expanded to RGB.  Throws FileError.
qzhost::ArrayPtr readImage(std::string const& path);
// The same from the bytes of a file already in memory; `name` stands for the
// file in messages.
qzhost::ArrayPtr decodeImage(std::string const& bytes, std::string const& name, ReadLimits const& limits = {});

// A palette PNG's 0-based indices (uint8 M-by-N) and its palette (uint8
// K-by-3); nothing if the file is not a palette PNG.
struct IndexedImage {
  qzhost::ArrayPtr index;
  qzhost::ArrayPtr palette;
};
std::optional<IndexedImage> readIndexedPng(std::string const& path);
std::optional<IndexedImage> decodeIndexedPng(std::string const& bytes, std::string const& name,
                                             ReadLimits const& limits = {});

// The bytes of a PNG file holding a uint8 or uint16 M-by-N (gray) or
// M-by-N-by-3 (RGB) array; `name` stands for the file in messages.
std::string encodePng(ndArray_tag const* image, std::string const& name);

// The bytes of the file `name` for an image: TIFF when the name ends in
// .tif or .tiff (uint8, uint16, single or double), PNG otherwise (uint8 or
// uint16).
bool isTiffName(std::string const& name);
std::string encodeImage(ndArray_tag const* image, std::string const& name);

// The bytes of a palette PNG from uint8 indices and a uint8 K-by-3 map,
// K <= 256.
std::string encodeIndexedPng(ndArray_tag const* index, ndArray_tag const* map, std::string const& name);

// An image in the files' own order: rows one after another, each pixel's
// channels together.  As a column-major array that is channels-by-W-by-H,
// the layout resampling reads in place; the array may hold it under other
// dimensions (trailing ones of 1 are not kept), so the shape is given here.
struct InterleavedImage {
  qzhost::ArrayPtr pixels;
  std::size_t height = 0, width = 0, channels = 0;  // channels: 1 or 3
};
// A PNG or JPEG decoded in that order; nothing for other formats, which the
// readers give only as planes.
std::optional<InterleavedImage> decodeInterleaved(std::string const& bytes, std::string const& name,
                                                  ReadLimits const& limits = {});
// The bytes of a PNG file holding a uint8 or uint16 interleaved image.
std::string encodePng(InterleavedImage const& image, std::string const& name);

}  // namespace qzcli
