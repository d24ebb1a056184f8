#include "tiff_io.hpp"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "messages.hpp"
#include "pixels.hpp"

namespace qzcli {
namespace {

// A file in memory as libtiff's client I/O sees it, and the first error
// libtiff reported about it (libtiff's own messages are more precise than
// anything said after the fact).
struct MemoryFile {
  std::string bytes;
  std::uint64_t pos = 0;
  std::string error;
};

MemoryFile& fileOf(thandle_t h) { return *static_cast<MemoryFile*>(h); }

tmsize_t readProc(thandle_t h, void* buf, tmsize_t n) {
  MemoryFile& f = fileOf(h);
  if (n < 0) return -1;
  std::uint64_t avail = f.pos < f.bytes.size() ? f.bytes.size() - f.pos : 0;
  std::size_t k = static_cast<std::size_t>(std::min<std::uint64_t>(avail, static_cast<std::uint64_t>(n)));
  if (k) std::memcpy(buf, f.bytes.data() + f.pos, k);
  f.pos += k;
  return static_cast<tmsize_t>(k);
}

tmsize_t writeProc(thandle_t h, void* buf, tmsize_t n) {
  MemoryFile& f = fileOf(h);
  if (n < 0) return -1;
  std::size_t end = static_cast<std::size_t>(f.pos) + static_cast<std::size_t>(n);
  if (end > f.bytes.size()) f.bytes.resize(end);
  if (n) std::memcpy(&f.bytes[static_cast<std::size_t>(f.pos)], buf, static_cast<std::size_t>(n));
  f.pos = end;
  return n;
}

// Offsets arrive as unsigned 64-bit values; a negative relative offset
// wraps around, and the sum wraps back.
toff_t seekProc(thandle_t h, toff_t off, int whence) {
  MemoryFile& f = fileOf(h);
  std::uint64_t base = whence == SEEK_CUR ? f.pos : whence == SEEK_END ? f.bytes.size() : 0;
  std::uint64_t p = base + off;
  // Far beyond any file this program writes or reads: a damaged offset.
  if (p > (std::uint64_t{1} << 40)) return static_cast<toff_t>(-1);
  f.pos = p;
  return p;
}

int closeProc(thandle_t) { return 0; }
toff_t sizeProc(thandle_t h) { return fileOf(h).bytes.size(); }
int mapProc(thandle_t, void**, toff_t*) { return 0; }
void unmapProc(thandle_t, void*, toff_t) {}

int onError(TIFF*, void* user, char const*, char const* fmt, va_list ap) {
  MemoryFile& f = *static_cast<MemoryFile*>(user);
  if (f.error.empty()) {
    char buf[512];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    f.error = buf;
  }
  return 1;
}

// Warnings are about tags this reader does not use; they are not the user's
// concern.
int onWarning(TIFF*, void*, char const*, char const*, va_list) { return 1; }

struct Tiff {
  TIFF* tif = nullptr;
  Tiff() = default;
  Tiff(Tiff const&) = delete;
  Tiff& operator=(Tiff const&) = delete;
  ~Tiff() {
    if (tif) TIFFClose(tif);
  }
};

TIFF* openTiff(MemoryFile& f, std::string const& name, char const* mode, tmsize_t maxAlloc) {
  std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> opts(TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
  if (!opts) throw FileError(name + ": out of memory for the TIFF codec");
  TIFFOpenOptionsSetErrorHandlerExtR(opts.get(), onError, &f);
  TIFFOpenOptionsSetWarningHandlerExtR(opts.get(), onWarning, &f);
  if (maxAlloc > 0) TIFFOpenOptionsSetMaxSingleMemAlloc(opts.get(), maxAlloc);
  return TIFFClientOpenExt(name.c_str(), mode, &f, readProc, writeProc, seekProc, closeProc, sizeProc, mapProc,
                           unmapProc, opts.get());
}

// Decoding can multiply the stored bytes many times (a deflate stream up to
// about a thousand times, an LZW stream a few thousand); no valid file's
// pixels exceed its strips' bytes by more than this.
constexpr std::uint64_t kMaxCompressionRatio = 4096;

struct Layout {
  std::uint32_t width = 0, height = 0;
  std::uint16_t spp = 1, bps = 0, format = SAMPLEFORMAT_UINT, photometric = 0, planar = PLANARCONFIG_CONTIG;
  std::uint16_t compression = COMPRESSION_NONE;
  std::size_t channels = 1;  // 1 gray, 3 RGB; any further samples are dropped
};

// Reads the image's samples, interleaved and row-major (the file's order),
// strip by strip or tile by tile, into `out` (width * height * spp samples).
template <class T>
bool readSamples(TIFF* tif, Layout const& L, std::vector<T>& out) {
  std::size_t const w = L.width, h = L.height, spp = L.spp;
  bool const separate = L.planar == PLANARCONFIG_SEPARATE && spp > 1;
  std::size_t const planes = separate ? spp : 1, perPixel = separate ? 1 : spp;
  // One band of the file: `rows` rows of `cols` pixels, row stride `stride`
  // pixels, landing at (x0, y0) in plane `plane`.
  auto place = [&](unsigned char const* buf, std::size_t x0, std::size_t y0, std::size_t cols, std::size_t rows,
                   std::size_t stride, std::size_t plane) {
    for (std::size_t r = 0; r < rows; ++r) {
      unsigned char const* src = buf + r * stride * perPixel * sizeof(T);
      if (!separate) {
        std::memcpy(&out[((y0 + r) * w + x0) * spp], src, cols * spp * sizeof(T));
      } else {
        for (std::size_t x = 0; x < cols; ++x) std::memcpy(&out[((y0 + r) * w + x0 + x) * spp + plane], src + x * sizeof(T), sizeof(T));
      }
    }
  };
  if (!TIFFIsTiled(tif)) {
    std::uint32_t rps = 0;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rps);
    if (rps == 0 || rps > h) rps = static_cast<std::uint32_t>(h);
    std::vector<unsigned char> buf(static_cast<std::size_t>(rps) * w * perPixel * sizeof(T));
    std::size_t const stripsPerPlane = (h + rps - 1) / rps;
    for (std::size_t p = 0; p < planes; ++p)
      for (std::size_t s = 0; s < stripsPerPlane; ++s) {
        std::size_t y0 = s * rps, rows = std::min<std::size_t>(rps, h - y0);
        auto want = static_cast<tmsize_t>(rows * w * perPixel * sizeof(T));
        auto strip = static_cast<std::uint32_t>(p * stripsPerPlane + s);
        if (TIFFReadEncodedStrip(tif, strip, buf.data(), want) != want) return false;
        place(buf.data(), 0, y0, w, rows, w, p);
      }
    return true;
  }
  std::uint32_t tw = 0, th = 0;
  TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tw);
  TIFFGetField(tif, TIFFTAG_TILELENGTH, &th);
  if (tw == 0 || th == 0 || tw > (1u << 16) || th > (1u << 16)) return false;
  auto tileBytes = static_cast<tmsize_t>(std::size_t{tw} * th * perPixel * sizeof(T));
  if (TIFFTileSize(tif) != tileBytes) return false;
  std::vector<unsigned char> buf(static_cast<std::size_t>(tileBytes));
  for (std::size_t p = 0; p < planes; ++p)
    for (std::size_t y = 0; y < h; y += th)
      for (std::size_t x = 0; x < w; x += tw) {
        ttile_t tile = TIFFComputeTile(tif, static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), 0,
                                       static_cast<std::uint16_t>(p));
        if (TIFFReadEncodedTile(tif, tile, buf.data(), tileBytes) != tileBytes) return false;
        place(buf.data(), x, y, std::min<std::size_t>(tw, w - x), std::min<std::size_t>(th, h - y), tw, p);
      }
  return true;
}

template <class T>
qzhost::ArrayPtr decodeAs(TIFF* tif, Layout const& L, MemoryFile const& f, std::string const& name) {
  std::vector<T> samples(std::size_t{L.width} * L.height * L.spp);
  if (!readSamples(tif, L, samples))
    throw FileError(name + ": corrupt or truncated TIFF" + (f.error.empty() ? "" : ": " + f.error));
  // White-is-zero gray: turned around so that zero is black, as everywhere
  // else in this program.
  if (L.photometric == PHOTOMETRIC_MINISWHITE)
    for (T& v : samples) v = static_cast<T>(std::numeric_limits<T>::max() - v);
  return toPlanar(samples.data(), L.height, L.width, L.spp, L.channels);
}

}  // namespace

bool isTiff(std::string const& b) {
  return b.size() >= 4 && (b.compare(0, 4, "II*\0", 4) == 0 || b.compare(0, 4, "MM\0*", 4) == 0 ||
                           b.compare(0, 4, "II+\0", 4) == 0 || b.compare(0, 4, "MM\0+", 4) == 0);
}

qzhost::ArrayPtr decodeTiff(std::string const& bytes, std::string const& name, ReadLimits const& limits) {
  MemoryFile f;
  f.bytes = bytes;
  auto corrupt = [&](std::string const& what) {
    return FileError(name + ": " + what + (f.error.empty() ? "" : ": " + f.error));
  };
  Tiff t;
  // libtiff's own allocations (its strip tables, a strip's buffer) stay
  // within what the largest image allowed needs.
  t.tif = openTiff(f, name, "r", static_cast<tmsize_t>(std::min<std::size_t>(limits.maxPixels * 16, 1u << 30)));
  if (!t.tif) throw corrupt("invalid TIFF");
  Layout L;
  if (!TIFFGetField(t.tif, TIFFTAG_IMAGEWIDTH, &L.width) || !TIFFGetField(t.tif, TIFFTAG_IMAGELENGTH, &L.height))
    throw corrupt("corrupt TIFF: no image size");
  TIFFGetFieldDefaulted(t.tif, TIFFTAG_SAMPLESPERPIXEL, &L.spp);
  TIFFGetFieldDefaulted(t.tif, TIFFTAG_BITSPERSAMPLE, &L.bps);
  TIFFGetFieldDefaulted(t.tif, TIFFTAG_SAMPLEFORMAT, &L.format);
  TIFFGetFieldDefaulted(t.tif, TIFFTAG_PLANARCONFIG, &L.planar);
  TIFFGetFieldDefaulted(t.tif, TIFFTAG_COMPRESSION, &L.compression);
  if (!TIFFGetField(t.tif, TIFFTAG_PHOTOMETRIC, &L.photometric))
    L.photometric = L.spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;

  if (L.photometric == PHOTOMETRIC_MINISBLACK || L.photometric == PHOTOMETRIC_MINISWHITE)
    L.channels = 1;
  else if (L.photometric == PHOTOMETRIC_RGB)
    L.channels = 3;
  else
    throw FileError(name + ": TIFF with photometric interpretation " + std::to_string(L.photometric) +
                    " is not supported (gray or RGB only)");
  if (L.spp < L.channels)
    throw FileError(name + ": corrupt TIFF: " + std::to_string(L.spp) + " samples per pixel for an RGB image");
  enum { U8, U16, F32, Other } kind = Other;
  if (L.format == SAMPLEFORMAT_UINT && L.bps == 8) kind = U8;
  if (L.format == SAMPLEFORMAT_UINT && L.bps == 16) kind = U16;
  if (L.format == SAMPLEFORMAT_IEEEFP && L.bps == 32) kind = F32;
  if (kind == Other)
    throw FileError(name + ": TIFF with " + std::to_string(L.bps) + "-bit " +
                    (L.format == SAMPLEFORMAT_IEEEFP ? "float"
                     : L.format == SAMPLEFORMAT_INT  ? "signed"
                                                     : "unsigned") +
                    " samples is not supported (8- or 16-bit unsigned, or 32-bit float)");
  if (kind == F32 && L.photometric == PHOTOMETRIC_MINISWHITE)
    throw FileError(name + ": float TIFF with white as zero is not supported");

  // The header alone can claim any size: refuse it, or a size the file's
  // strips cannot hold, before taking memory for the pixels.
  checkImageSize(name, "TIFF", L.width, L.height, limits);
  std::uint64_t stored = 0;
  std::uint32_t const chunks = TIFFIsTiled(t.tif) ? TIFFNumberOfTiles(t.tif) : TIFFNumberOfStrips(t.tif);
  for (std::uint32_t s = 0; s < chunks; ++s) stored += TIFFGetStrileByteCount(t.tif, s);
  std::uint64_t decoded = std::uint64_t{L.width} * L.height * L.spp * (L.bps / 8);
  // Samples beyond gray or RGB are read and dropped: allow as much data per
  // pixel as four float samples, the most a supported image carries.
  if (decoded > std::uint64_t{limits.maxPixels} * 16)
    throw FileError(name + ": TIFF with " + std::to_string(L.spp) + " samples of " + std::to_string(L.bps) +
                    " bits per pixel is more than the reader takes");
  std::uint64_t ratio = L.compression == COMPRESSION_NONE ? 1 : kMaxCompressionRatio;
  if (stored > bytes.size() || decoded > stored * ratio)
    throw FileError(name + ": corrupt or truncated TIFF: its header claims " + std::to_string(L.width) + "x" +
                    std::to_string(L.height) + " pixels, more than its " + std::to_string(bytes.size()) +
                    " bytes can hold");
  if (L.spp > L.channels) messages() << "note: " << name << ": extra samples (alpha) dropped\n";

  switch (kind) {
    case U8:
      return decodeAs<std::uint8_t>(t.tif, L, f, name);
    case U16:
      return decodeAs<std::uint16_t>(t.tif, L, f, name);
    default:
      return decodeAs<float>(t.tif, L, f, name);
  }
}

std::string encodeTiff(ndArray_tag const* image, std::string const& name) {
  auto dims = qzhost::dimsOf(image);
  ndClassID const cls = ndGetClassID(image);
  bool const colour = dims.size() == 3 && dims[2] == 3;
  std::uint16_t bps = 0, format = SAMPLEFORMAT_UINT;
  switch (cls) {
    case ndclass::UInt8: bps = 8; break;
    case ndclass::UInt16: bps = 16; break;
    case ndclass::Single: bps = 32, format = SAMPLEFORMAT_IEEEFP; break;
    case ndclass::Double: bps = 64, format = SAMPLEFORMAT_IEEEFP; break;
    default: break;
  }
  if (!bps || ndIsComplex(image) || (dims.size() != 2 && !colour))
    throw FileError(name + ": only real uint8, uint16, single or double M-by-N or M-by-N-by-3 images can be written as TIFF");
  std::size_t const h = dims[0], w = dims[1], ch = colour ? 3 : 1, size = bps / 8;
  if (h == 0 || w == 0) throw FileError(name + ": cannot write an empty image as TIFF");

  MemoryFile f;
  {
    Tiff t;
    t.tif = openTiff(f, name, "w", 0);
    if (!t.tif) throw FileError(name + ": cannot encode TIFF: " + f.error);
    TIFFSetField(t.tif, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(w));
    TIFFSetField(t.tif, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(h));
    TIFFSetField(t.tif, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(ch));
    TIFFSetField(t.tif, TIFFTAG_BITSPERSAMPLE, bps);
    TIFFSetField(t.tif, TIFFTAG_SAMPLEFORMAT, format);
    TIFFSetField(t.tif, TIFFTAG_PHOTOMETRIC, colour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(t.tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t.tif, TIFFTAG_COMPRESSION,
                 TIFFIsCODECConfigured(COMPRESSION_ADOBE_DEFLATE) ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
    TIFFSetField(t.tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t.tif, 0));
    std::vector<unsigned char> row(w * ch * size);
    auto const* data = static_cast<unsigned char const*>(ndGetData(image));
    std::size_t const plane = h * w;
    for (std::size_t y = 0; y < h; ++y) {
      for (std::size_t x = 0; x < w; ++x)
        for (std::size_t c = 0; c < ch; ++c)
          std::memcpy(&row[(x * ch + c) * size], data + (c * plane + x * h + y) * size, size);
      if (TIFFWriteScanline(t.tif, row.data(), static_cast<std::uint32_t>(y), 0) < 0)
        throw FileError(name + ": cannot encode TIFF: " + f.error);
    }
    if (!TIFFWriteDirectory(t.tif)) throw FileError(name + ": cannot encode TIFF: " + f.error);
  }
  return std::move(f.bytes);
}

}  // namespace qzcli
