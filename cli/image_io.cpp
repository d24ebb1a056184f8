#include "image_io.hpp"

#include <jpeglib.h>
// After jpeglib.h, which it needs.
#include <jerror.h>
#include <spng.h>

#include <cctype>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <vector>

#include "messages.hpp"
#include "outputs.hpp"
#include "pixels.hpp"
#include "tiff_io.hpp"

namespace qzcli {

void checkImageSize(std::string const& path, char const* format, std::size_t w, std::size_t h,
                    ReadLimits const& limits) {
  if (w > limits.maxSide || h > limits.maxSide || w * h > limits.maxPixels)
    throw FileError(path + ": " + format + " image of " + std::to_string(w) + "x" + std::to_string(h) +
                    " pixels is larger than the reader allows (" + std::to_string(limits.maxSide) +
                    " pixels a side, " + std::to_string(limits.maxPixels) + " pixels in all)");
}

namespace {

bool isPng(std::string const& b) { return b.size() >= 8 && b.compare(0, 8, "\x89PNG\r\n\x1a\n", 8) == 0; }
bool isJpeg(std::string const& b) { return b.size() >= 3 && b.compare(0, 3, "\xff\xd8\xff", 3) == 0; }

struct SpngCtx {
  spng_ctx* ctx;
  explicit SpngCtx(int flags) : ctx(spng_ctx_new(flags)) {
    if (!ctx) throw FileError("out of memory for the PNG codec");
  }
  ~SpngCtx() { spng_ctx_free(ctx); }
  SpngCtx(SpngCtx const&) = delete;
  SpngCtx& operator=(SpngCtx const&) = delete;
};

void check(int err, std::string const& path, char const* what) {
  if (err) throw FileError(path + ": " + what + ": " + spng_strerror(err));
}

struct DecodedPng {
  spng_ihdr ihdr{};
  std::vector<unsigned char> raw;  // the file's samples, host-endian, rows packed
  std::size_t rowBytes = 0;
  bool hasTrns = false;
  spng_plte plte{};
};

// Deflate turns at most two bits into a 258-byte run, so no compressed
// data expands by more than this factor.
constexpr std::size_t kMaxDeflateRatio = 1032;

DecodedPng decodePng(std::string const& bytes, std::string const& path, ReadLimits const& limits) {
  SpngCtx c(0);
  spng_set_image_limits(c.ctx, 1u << 16, 1u << 16);
  spng_set_chunk_limits(c.ctx, 64u << 20, 64u << 20);
  check(spng_set_png_buffer(c.ctx, bytes.data(), bytes.size()), path, "invalid PNG");
  DecodedPng d;
  check(spng_get_ihdr(c.ctx, &d.ihdr), path, "invalid PNG header");
  // Refuse sizes beyond the limits, and sizes the file's bytes cannot fill,
  // before allocating for them.
  checkImageSize(path, "PNG", d.ihdr.width, d.ihdr.height, limits);
  std::size_t size = 0;
  check(spng_decoded_image_size(c.ctx, SPNG_FMT_PNG, &size), path, "invalid PNG");
  if (size / kMaxDeflateRatio > bytes.size())
    throw FileError(path + ": corrupt or truncated PNG: its header claims " + std::to_string(d.ihdr.width) + "x" +
                    std::to_string(d.ihdr.height) + " pixels, more than its " + std::to_string(bytes.size()) +
                    " bytes can hold");
  d.raw.resize(size);
  check(spng_decode_image(c.ctx, d.raw.data(), size, SPNG_FMT_PNG, 0), path, "corrupt or truncated PNG");
  d.rowBytes = d.ihdr.height ? size / d.ihdr.height : 0;
  spng_trns trns;
  d.hasTrns = spng_get_trns(c.ctx, &trns) == 0;
  if (d.ihdr.color_type == SPNG_COLOR_TYPE_INDEXED)
    check(spng_get_plte(c.ctx, &d.plte), path, "palette PNG without a palette");
  return d;
}

// Sample x of a row whose samples are `depth` bits (1, 2, 4 or 8) wide.
unsigned subByteSample(unsigned char const* row, std::size_t x, unsigned depth) {
  if (depth == 8) return row[x];
  std::size_t bit = x * depth;
  unsigned shift = 8 - depth - static_cast<unsigned>(bit % 8);
  return (row[bit / 8] >> shift) & ((1u << depth) - 1);
}

// `colour` is set to the channels handed over: 1 (gray) or 3 (RGB).
qzhost::ArrayPtr readPng(std::string const& bytes, std::string const& path, ReadLimits const& limits, PixelOrder layout,
                         std::size_t& colour) {
  DecodedPng d = decodePng(bytes, path, limits);
  std::size_t const w = d.ihdr.width, h = d.ihdr.height;
  unsigned const depth = d.ihdr.bit_depth, type = d.ihdr.color_type;
  std::size_t channels = type == SPNG_COLOR_TYPE_GRAYSCALE ? 1
                         : type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA ? 2
                         : type == SPNG_COLOR_TYPE_TRUECOLOR ? 3
                         : type == SPNG_COLOR_TYPE_TRUECOLOR_ALPHA ? 4
                                                                   : 1;
  bool alpha = channels == 2 || channels == 4 || d.hasTrns;
  if (alpha) messages() << "note: " << path << ": alpha channel dropped\n";
  colour = channels >= 3 || type == SPNG_COLOR_TYPE_INDEXED ? 3 : 1;

  if (depth == 16) {
    std::vector<std::uint16_t> samples(w * h * channels);
    for (std::size_t y = 0; y < h; ++y)
      std::memcpy(samples.data() + y * w * channels, d.raw.data() + y * d.rowBytes, w * channels * 2);
    return toHost(samples.data(), h, w, channels, colour, layout);
  }
  // 8 bits or fewer: expand sub-byte gray to the full byte range and palette
  // indices to their colours.
  std::vector<std::uint8_t> samples(w * h * (type == SPNG_COLOR_TYPE_INDEXED ? 3 : channels));
  for (std::size_t y = 0; y < h; ++y) {
    unsigned char const* row = d.raw.data() + y * d.rowBytes;
    if (type == SPNG_COLOR_TYPE_INDEXED) {
      for (std::size_t x = 0; x < w; ++x) {
        unsigned i = subByteSample(row, x, depth);
        if (i >= d.plte.n_entries) throw FileError(path + ": palette index out of range");
        auto const& e = d.plte.entries[i];
        std::uint8_t* o = &samples[(y * w + x) * 3];
        o[0] = e.red;
        o[1] = e.green;
        o[2] = e.blue;
      }
    } else if (depth < 8) {
      unsigned scale = 255u / ((1u << depth) - 1);
      for (std::size_t x = 0; x < w; ++x)
        samples[y * w + x] = static_cast<std::uint8_t>(subByteSample(row, x, depth) * scale);
    } else {
      std::memcpy(&samples[y * w * channels], row, w * channels);
    }
  }
  return toHost(samples.data(), h, w, type == SPNG_COLOR_TYPE_INDEXED ? 3 : channels, colour, layout);
}

// libjpeg reports errors through a callback that must not return; it jumps
// back into the frame that called setjmp.  Those frames below hold only
// plain data (the pixel rows live in the caller's vector), so the jump skips
// no destructor.
struct JpegError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  // Until the last scanline is read, a warning (libjpeg's word for data it
  // found damaged or missing and papered over) ends the decoding at once:
  // such a file is refused anyway, and stopping early keeps the work and
  // the memory in proportion to the data the file really holds.
  bool warningsAreErrors = true;
};

void onJpegError(j_common_ptr cinfo) {
  auto* e = reinterpret_cast<JpegError*>(cinfo->err);
  if (cinfo->err->msg_code == JERR_NO_BACKING_STORE)
    std::snprintf(e->message, sizeof e->message, "decoding it needs more memory than the reader allows");
  else
    (*cinfo->err->format_message)(cinfo, e->message);
  std::longjmp(e->jump, 1);
}

// Level -1 is a warning; higher levels are traces, ignored.
void onJpegMessage(j_common_ptr cinfo, int level) {
  auto* e = reinterpret_cast<JpegError*>(cinfo->err);
  if (level >= 0) return;
  ++cinfo->err->num_warnings;
  if (!e->warningsAreErrors) return;
  std::snprintf(e->message, sizeof e->message, "truncated or damaged data");
  std::longjmp(e->jump, 1);
}

bool jpegHeader(jpeg_decompress_struct* cinfo, JpegError* err, unsigned char const* data, std::size_t size) {
  if (setjmp(err->jump)) return false;
  jpeg_mem_src(cinfo, data, size);
  jpeg_read_header(cinfo, TRUE);
  if (cinfo->jpeg_color_space == JCS_CMYK || cinfo->jpeg_color_space == JCS_YCCK) {
    std::snprintf(err->message, sizeof err->message, "CMYK JPEG files are not supported");
    return false;
  }
  cinfo->out_color_space = cinfo->num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  return true;
}

// Starting takes libjpeg's working memory (for a progressive file, the
// coefficients of the whole image) and reads a progressive file's scans.
bool jpegStart(jpeg_decompress_struct* cinfo, JpegError* err) {
  if (setjmp(err->jump)) return false;
  jpeg_start_decompress(cinfo);
  return true;
}

// Rows are appended to `pixels` as they are decoded, so that a damaged or
// truncated file never has memory taken for rows it does not hold.
bool jpegRead(jpeg_decompress_struct* cinfo, JpegError* err, std::vector<std::uint8_t>& pixels, std::size_t rowBytes) {
  if (setjmp(err->jump)) return false;
  while (cinfo->output_scanline < cinfo->output_height) {
    pixels.resize(pixels.size() + rowBytes);
    JSAMPROW row = pixels.data() + cinfo->output_scanline * rowBytes;
    jpeg_read_scanlines(cinfo, &row, 1);
  }
  // What follows the image data is not looked at closely.
  err->warningsAreErrors = false;
  jpeg_finish_decompress(cinfo);
  return true;
}

// Bytes of libjpeg working memory allowed per pixel of the limit: the
// coefficients of three full-resolution components take six.
constexpr std::size_t kJpegBytesPerPixel = 8;

qzhost::ArrayPtr readJpeg(std::string const& bytes, std::string const& path, ReadLimits const& limits, PixelOrder layout,
                          std::size_t& colour) {
  jpeg_decompress_struct cinfo;
  JpegError err{};
  cinfo.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = onJpegError;
  err.mgr.emit_message = onJpegMessage;
  jpeg_create_decompress(&cinfo);
  std::unique_ptr<jpeg_decompress_struct, void (*)(jpeg_decompress_struct*)> guard(&cinfo, jpeg_destroy_decompress);
  // Beyond this libjpeg would need temporary files, which it is not built
  // to use: it stops with an error instead of allocating.
  cinfo.mem->max_memory_to_use = static_cast<long>(limits.maxPixels * kJpegBytesPerPixel);
  if (!jpegHeader(&cinfo, &err, reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size()))
    throw FileError(path + ": corrupt JPEG: " + err.message);
  // The header alone can claim any size: check it before libjpeg takes
  // memory for it.
  checkImageSize(path, "JPEG", cinfo.image_width, cinfo.image_height, limits);
  if (!jpegStart(&cinfo, &err)) throw FileError(path + ": corrupt JPEG: " + err.message);
  std::size_t const w = cinfo.output_width, h = cinfo.output_height;
  std::size_t const channels = static_cast<std::size_t>(cinfo.output_components);
  colour = channels;
  std::vector<std::uint8_t> pixels;
  if (!jpegRead(&cinfo, &err, pixels, w * channels)) throw FileError(path + ": corrupt JPEG: " + err.message);
  return toHost(pixels.data(), h, w, channels, channels, layout);
}

std::string encode(std::string const& path, spng_ihdr ihdr, std::vector<unsigned char> const& rows,
                   spng_plte* plte) {
  SpngCtx c(SPNG_CTX_ENCODER);
  spng_set_option(c.ctx, SPNG_ENCODE_TO_BUFFER, 1);
  check(spng_set_ihdr(c.ctx, &ihdr), path, "cannot encode");
  if (plte) check(spng_set_plte(c.ctx, plte), path, "cannot encode palette");
  check(spng_encode_image(c.ctx, rows.data(), rows.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE), path,
        "cannot encode");
  std::size_t len = 0;
  int e = 0;
  std::unique_ptr<void, void (*)(void*)> buf(spng_get_png_buffer(c.ctx, &len, &e), std::free);
  check(e, path, "cannot encode");
  return std::string(static_cast<char const*>(buf.get()), len);
}

// Gray or RGB rows of 8- or 16-bit samples, in the file's order.
std::string encodeRows(std::string const& path, std::vector<unsigned char> const& rows, std::size_t h, std::size_t w,
                       std::size_t channels, std::size_t bytesPer) {
  spng_ihdr ihdr{};
  ihdr.width = static_cast<std::uint32_t>(w);
  ihdr.height = static_cast<std::uint32_t>(h);
  ihdr.bit_depth = static_cast<std::uint8_t>(8 * bytesPer);
  ihdr.color_type = channels == 3 ? SPNG_COLOR_TYPE_TRUECOLOR : SPNG_COLOR_TYPE_GRAYSCALE;
  return encode(path, ihdr, rows, nullptr);
}

}  // namespace

qzhost::ArrayPtr decodeImage(std::string const& bytes, std::string const& name, ReadLimits const& limits) {
  std::size_t colour = 0;
  if (isPng(bytes)) return readPng(bytes, name, limits, PixelOrder::Planar, colour);
  if (isJpeg(bytes)) return readJpeg(bytes, name, limits, PixelOrder::Planar, colour);
  if (isTiff(bytes)) return decodeTiff(bytes, name, limits);
  throw FileError(name + ": not a PNG, JPEG or TIFF file");
}

qzhost::ArrayPtr readImage(std::string const& path) { return decodeImage(readInput(path), inputName(path)); }

std::optional<InterleavedImage> decodeInterleaved(std::string const& bytes, std::string const& name,
                                                  ReadLimits const& limits) {
  InterleavedImage img;
  if (isPng(bytes))
    img.pixels = readPng(bytes, name, limits, PixelOrder::Interleaved, img.channels);
  else if (isJpeg(bytes))
    img.pixels = readJpeg(bytes, name, limits, PixelOrder::Interleaved, img.channels);
  else
    return std::nullopt;
  auto d = qzhost::dimsOf(img.pixels.get());  // (channels * width, height)
  img.width = d[0] / img.channels;
  img.height = d[1];
  return img;
}

std::optional<IndexedImage> readIndexedPng(std::string const& path) {
  return decodeIndexedPng(readInput(path), inputName(path));
}

std::optional<IndexedImage> decodeIndexedPng(std::string const& bytes, std::string const& path,
                                             ReadLimits const& limits) {
  if (!isPng(bytes)) return std::nullopt;
  DecodedPng d = decodePng(bytes, path, limits);
  if (d.ihdr.color_type != SPNG_COLOR_TYPE_INDEXED) return std::nullopt;
  std::size_t const w = d.ihdr.width, h = d.ihdr.height, k = d.plte.n_entries;
  IndexedImage out{qzhost::makeArray(ndclass::UInt8, {h, w}), qzhost::makeArray(ndclass::UInt8, {k, 3})};
  auto* idx = qzhost::dataOf<std::uint8_t>(out.index.get());
  for (std::size_t y = 0; y < h; ++y)
    for (std::size_t x = 0; x < w; ++x)
      idx[x * h + y] = static_cast<std::uint8_t>(subByteSample(d.raw.data() + y * d.rowBytes, x, d.ihdr.bit_depth));
  auto* map = qzhost::dataOf<std::uint8_t>(out.palette.get());
  for (std::size_t i = 0; i < k; ++i) {
    map[i] = d.plte.entries[i].red;
    map[k + i] = d.plte.entries[i].green;
    map[2 * k + i] = d.plte.entries[i].blue;
  }
  return out;
}

std::string encodePng(ndArray_tag const* image, std::string const& path) {
  auto dims = qzhost::dimsOf(image);
  ndClassID cls = ndGetClassID(image);
  bool colour = dims.size() == 3 && dims[2] == 3;
  if ((cls != ndclass::UInt8 && cls != ndclass::UInt16) || ndIsComplex(image) || (dims.size() != 2 && !colour))
    throw FileError(path + ": only real uint8 or uint16 M-by-N or M-by-N-by-3 images can be written as PNG");
  std::size_t const h = dims[0], w = dims[1], ch = colour ? 3 : 1, bytesPer = cls == ndclass::UInt8 ? 1 : 2;
  if (h == 0 || w == 0) throw FileError(path + ": cannot write an empty image as PNG");
  std::vector<unsigned char> rows(h * w * ch * bytesPer);
  std::size_t plane = h * w;
  for (std::size_t y = 0; y < h; ++y)
    for (std::size_t x = 0; x < w; ++x)
      for (std::size_t c = 0; c < ch; ++c) {
        std::size_t from = c * plane + x * h + y, to = (y * w + x) * ch + c;
        if (bytesPer == 1)
          rows[to] = qzhost::dataOf<std::uint8_t>(image)[from];
        else
          std::memcpy(&rows[to * 2], &qzhost::dataOf<std::uint16_t>(image)[from], 2);
      }
  return encodeRows(path, rows, h, w, ch, bytesPer);
}

std::string encodePng(InterleavedImage const& image, std::string const& path) {
  ndArray_tag const* a = image.pixels.get();
  ndClassID cls = ndGetClassID(a);
  std::size_t const h = image.height, w = image.width, ch = image.channels;
  if ((cls != ndclass::UInt8 && cls != ndclass::UInt16) || ndIsComplex(a) || (ch != 1 && ch != 3) ||
      ndGetNumberOfElements(a) != h * w * ch)
    throw FileError(path + ": only real uint8 or uint16 gray or RGB images can be written as PNG");
  if (h == 0 || w == 0) throw FileError(path + ": cannot write an empty image as PNG");
  std::size_t const bytesPer = cls == ndclass::UInt8 ? 1 : 2;
  // Already in the file's order.
  auto const* data = static_cast<unsigned char const*>(ndGetData(a));
  return encodeRows(path, std::vector<unsigned char>(data, data + h * w * ch * bytesPer), h, w, ch, bytesPer);
}

bool isTiffName(std::string const& path) {
  auto dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  std::string ext = path.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext == "tif" || ext == "tiff";
}

std::string encodeImage(ndArray_tag const* image, std::string const& path) {
  if (isTiffName(path)) return encodeTiff(image, path);
  ndClassID cls = ndGetClassID(image);
  if (cls == ndclass::Single || cls == ndclass::Double)
    throw FileError(path + ": a floating-point image can only be written as TIFF (name the output .tif)");
  return encodePng(image, path);
}

std::string encodeIndexedPng(ndArray_tag const* index, ndArray_tag const* map, std::string const& path) {
  auto dims = qzhost::dimsOf(index);
  auto mdims = qzhost::dimsOf(map);
  std::size_t const h = dims[0], w = dims[1], k = mdims[0];
  if (ndGetClassID(index) != ndclass::UInt8 || dims.size() != 2 || mdims.size() != 2 || mdims[1] != 3 || k == 0 ||
      k > 256)
    throw FileError(path + ": a palette PNG needs uint8 indices and a map of 1 to 256 colours");
  if (h == 0 || w == 0) throw FileError(path + ": cannot write an empty image as PNG");
  spng_plte plte{};
  plte.n_entries = static_cast<std::uint32_t>(k);
  auto const* m = qzhost::dataOf<std::uint8_t>(map);
  for (std::size_t i = 0; i < k; ++i) plte.entries[i] = {m[i], m[k + i], m[2 * k + i], 255};
  std::vector<unsigned char> rows(h * w);
  auto const* idx = qzhost::dataOf<std::uint8_t>(index);
  for (std::size_t y = 0; y < h; ++y)
    for (std::size_t x = 0; x < w; ++x) {
      if (idx[x * h + y] >= k) throw FileError(path + ": index beyond the palette");
      rows[y * w + x] = idx[x * h + y];
    }
  spng_ihdr ihdr{};
  ihdr.width = static_cast<std::uint32_t>(w);
  ihdr.height = static_cast<std::uint32_t>(h);
  ihdr.bit_depth = 8;
  ihdr.color_type = SPNG_COLOR_TYPE_INDEXED;
  return encode(path, ihdr, rows, &plte);
}

}  // namespace qzcli
