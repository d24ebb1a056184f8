// Fuzz target for the image readers of the command-line host (PNG through
// libspng, JPEG through libjpeg-turbo, TIFF through libtiff): any bytes as a file's contents, read
// both as an image and as a palette PNG's indices.  The readers must return
// an array (or nothing, for a file that is not a palette PNG) or throw their
// FileError, never crash, leak or hang, and the memory they take must stay
// bounded for a small file, whatever its header claims.
//
// Chunk checksums are recomputed before a PNG is read: a mutated chunk with
// a stale checksum would only ever reach the reader's first refusal.

#include <array>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <streambuf>
#include <string>

#include "image_io.hpp"

namespace {

// The readers' own checks with a smaller pixel budget than the command
// line's, so that the largest image an input may claim decodes quickly.
qzcli::ReadLimits const kLimits{std::size_t{1} << 16, std::size_t{1} << 22};

[[noreturn]] void fail(char const* what) {
  std::fprintf(stderr, "qzfuzz: image: %s\n", what);
  std::fflush(stderr);
  __builtin_trap();
}

std::array<std::uint32_t, 256> makeCrcTable() {
  std::array<std::uint32_t, 256> t{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    std::uint32_t c = n;
    for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    t[n] = c;
  }
  return t;
}

std::uint32_t crc32(unsigned char const* p, std::size_t n) {
  static std::array<std::uint32_t, 256> const table = makeCrcTable();
  std::uint32_t c = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < n; ++i) c = table[(c ^ p[i]) & 0xFF] ^ (c >> 8);
  return c ^ 0xFFFFFFFFu;
}

// Walks the chunks after the signature (length, type, data, CRC) and writes
// the right CRC into every complete one.
void fixPngChecksums(std::string& b) {
  if (b.size() < 8 || b.compare(0, 8, "\x89PNG\r\n\x1a\n", 8) != 0) return;
  std::size_t at = 8;
  while (b.size() - at >= 12) {
    auto const* u = reinterpret_cast<unsigned char const*>(b.data() + at);
    std::size_t const len = std::size_t{u[0]} << 24 | std::size_t{u[1]} << 16 | std::size_t{u[2]} << 8 | u[3];
    if (len > b.size() - at - 12) return;
    std::uint32_t const c = crc32(u + 4, len + 4);
    for (int k = 0; k < 4; ++k) b[at + 8 + len + static_cast<std::size_t>(k)] = static_cast<char>(c >> (24 - 8 * k));
    at += 12 + len;
  }
}

void checkImage(ndArray_tag const* a) {
  auto const d = qzhost::dimsOf(a);
  ndClassID const cls = ndGetClassID(a);
  // Single only from a float TIFF.
  if ((cls != ndclass::UInt8 && cls != ndclass::UInt16 && cls != ndclass::Single) || ndIsComplex(a) ||
      !(d.size() == 2 || (d.size() == 3 && d[2] == 3)))
    fail("an image is not a real uint8, uint16 or single M-by-N or M-by-N-by-3 array");
}

// Swallows what is written to it.
struct NullBuffer : std::streambuf {
  int overflow(int c) override { return c; }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The readers' notes (a dropped alpha channel) are not findings.
  static NullBuffer sink;
  std::cerr.rdbuf(&sink);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::size_t const arrays = qzhost::liveArrays();
  {
    std::string bytes(reinterpret_cast<char const*>(data), size);
    fixPngChecksums(bytes);
    try {
      qzhost::ArrayPtr a = qzcli::decodeImage(bytes, "input", kLimits);
      checkImage(a.get());
    } catch (qzcli::FileError const&) {
    }
    try {
      auto const indexed = qzcli::decodeIndexedPng(bytes, "input", kLimits);
      if (indexed) {
        auto const d = qzhost::dimsOf(indexed->index.get());
        auto const m = qzhost::dimsOf(indexed->palette.get());
        if (d.size() != 2 || m.size() != 2 || m[1] != 3 || ndGetClassID(indexed->index.get()) != ndclass::UInt8)
          fail("a palette PNG's indices or palette have the wrong shape");
      }
    } catch (qzcli::FileError const&) {
    }
  }
  if (qzhost::liveArrays() != arrays) fail("arrays left alive");
  return 0;
}
