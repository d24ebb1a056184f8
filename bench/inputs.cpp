#include "inputs.hpp"

#include <spng.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "filters.hpp"
#include "qzimages/qzimages.hpp"
#include "resample.hpp"

#ifndef QZ_SAMPLE_PHOTO
#error "QZ_SAMPLE_PHOTO must name the bundled sample photo"
#endif

namespace qzbench {

using qzhost::ArrayPtr;

void fail(std::string const& what) {
  std::fflush(stdout);
  std::fprintf(stderr, "qzimages_bench: %s\n", what.c_str());
  std::abort();
}

void call(std::string const& context, qzhost::Gateway fn, int numOutputs, ArrayPtr* outputs,
          std::vector<ndArray_tag const*> const& inputs) {
  try {
    qzhost::call(fn, numOutputs, outputs, static_cast<int>(inputs.size()), inputs.data());
  } catch (qzhost::HostError const& e) {
    fail(context + ": " + e.identifier() + ": " + e.message());
  }
}

std::size_t bytesOf(ndArray_tag const* a) {
  return ndGetNumberOfElements(a) * qzhost::elementSize(ndGetClassID(a)) * (ndIsComplex(a) ? 2 : 1);
}

std::string describe(ndClassID cls, std::vector<std::size_t> const& dims) {
  std::string s = std::string(qzhost::className(cls)) + " ";
  for (std::size_t k = 0; k < dims.size(); ++k) s += (k ? "x" : "") + std::to_string(dims[k]);
  return s;
}

std::string describe(ndArray_tag const* a) {
  return describe(ndGetClassID(a), qzhost::dimsOf(a)) + (ndIsComplex(a) ? " complex" : "");
}

namespace {

// data/coffee.png as an M-by-N-by-3 uint8 array: column-major planes.
ArrayPtr loadPhoto(char const* path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "rb"), std::fclose);
  if (!file) fail(std::string("cannot open ") + path);
  std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> ctx(spng_ctx_new(0), spng_ctx_free);
  if (!ctx) fail("out of memory");
  auto check = [&](int err) {
    if (err) fail(std::string(path) + ": " + spng_strerror(err));
  };
  check(spng_set_png_file(ctx.get(), file.get()));
  spng_ihdr ihdr{};
  check(spng_get_ihdr(ctx.get(), &ihdr));
  std::size_t size = 0;
  check(spng_decoded_image_size(ctx.get(), SPNG_FMT_RGB8, &size));
  std::vector<std::uint8_t> rgb(size);
  check(spng_decode_image(ctx.get(), rgb.data(), size, SPNG_FMT_RGB8, 0));

  // Row-major interleaved (the file's order) to column-major planes.
  std::size_t const rows = ihdr.height, cols = ihdr.width, plane = rows * cols;
  ArrayPtr a = qzhost::makeArray(ndclass::UInt8, {rows, cols, 3});
  auto* p = qzhost::dataOf<std::uint8_t>(a.get());
  for (std::size_t y = 0; y < rows; ++y)
    for (std::size_t x = 0; x < cols; ++x)
      for (std::size_t c = 0; c < 3; ++c) p[c * plane + x * rows + y] = rgb[(y * cols + x) * 3 + c];
  return a;
}

// The filter's tables as the T-by-L double arrays imresize takes.
ResizeFilter filterArrays(qzfilters::Filter const& f, int dim) {
  qzcall::FilterArrays a = qzcall::filterArrays(f);
  return {std::move(a.weights), std::move(a.indices), scalar(dim), f.outLength};
}

// As the command-line host's resize: one imresize call per dimension, with
// bicubic filters.
ArrayPtr enlarge(ArrayPtr img, std::size_t outRows, std::size_t outCols) {
  auto const d = qzhost::dimsOf(img.get());
  qzcall::ResampleRequest r{outRows, outCols, double(outRows) / double(d[0]), double(outCols) / double(d[1]),
                            qzfilters::Method::Bicubic, true};
  return qzcall::resample(img.get(), r, [](ndArray_tag const* a, ndArray_tag const* w, ndArray_tag const* x,
                                           ndArray_tag const* dim) {
    ArrayPtr out[2];
    call("scaling the sample photo", pximages::_imresize, 1, out, {a, w, x, dim});
    return std::move(out[0]);
  });
}

// A uint8 array in another class, element by element.
template <class T, class Convert>
ArrayPtr convertBytes(ndArray_tag const* u8, Convert convert) {
  ArrayPtr a = qzhost::makeArray(ndClassOf<T>::value, qzhost::dimsOf(u8));
  std::size_t const n = ndGetNumberOfElements(u8);
  auto const* in = qzhost::dataOf<std::uint8_t>(u8);
  T* out = qzhost::dataOf<T>(a.get());
  for (std::size_t i = 0; i < n; ++i) out[i] = convert(in[i]);
  return a;
}

}  // namespace

ndArray_tag const* photo(ndClassID cls) {
  static std::map<ndClassID, ArrayPtr> cache;
  auto it = cache.find(cls);
  if (it != cache.end()) return it->second.get();
  ArrayPtr a;
  if (cls == ndclass::UInt8) {
    a = enlarge(loadPhoto(QZ_SAMPLE_PHOTO), kRows, kCols);
    if (qzhost::dimsOf(a.get()) != std::vector<std::size_t>{kRows, kCols, 3})
      fail("scaling the sample photo gave " + describe(a.get()) + ", expected " +
           describe(ndclass::UInt8, {kRows, kCols, 3}));
  } else {
    ndArray_tag const* u8 = photo(ndclass::UInt8);
    switch (cls) {
      case ndclass::UInt16:
        a = convertBytes<std::uint16_t>(u8, [](std::uint8_t v) { return static_cast<std::uint16_t>(v * 257); });
        break;
      case ndclass::Single:
        a = convertBytes<float>(u8, [](std::uint8_t v) { return static_cast<float>(v) / 255.0f; });
        break;
      case ndclass::Double:
        a = convertBytes<double>(u8, [](std::uint8_t v) { return v / 255.0; });
        break;
      default: fail(std::string("no photo of class ") + qzhost::className(cls));
    }
  }
  return cache.emplace(cls, std::move(a)).first->second.get();
}

ndArray_tag const* gray(ndClassID cls) {
  static std::map<ndClassID, ArrayPtr> cache;
  auto it = cache.find(cls);
  if (it != cache.end()) return it->second.get();
  ArrayPtr out[2];
  call("the photo's luminance", pximages::_rgb2gray, 1, out, {photo(cls)});
  return cache.emplace(cls, std::move(out[0])).first->second.get();
}

ResizeFilter const& resizeFilter(int dim, double scale) {
  static std::map<std::pair<int, double>, ResizeFilter> cache;
  auto key = std::make_pair(dim, scale);
  auto it = cache.find(key);
  if (it != cache.end()) return it->second;
  std::size_t const in = dim == 1 ? kRows : kCols;
  auto f = qzfilters::makeFilter(in, qzfilters::outputLength(in, scale), scale, qzfilters::Method::Bicubic, true);
  return cache.emplace(key, filterArrays(f, dim)).first->second;
}

IndexedPhoto const& indexedPhoto() {
  static IndexedPhoto const indexed = [] {
    ArrayPtr k = scalar(256);
    ArrayPtr out[2];
    call("quantising the photo for ind2rgb8", pximages::_cq, 2, out, {photo(ndclass::UInt8), k.get()});
    std::size_t const colours = qzhost::dimsOf(out[0].get())[0];
    if (colours != 256)
      fail("cq gave " + std::to_string(colours) + " colours for the photo; ind2rgb8 wants a 256-colour map");
    IndexedPhoto p;
    p.index8 = std::move(out[1]);
    p.indexDouble = convertBytes<double>(p.index8.get(), [](std::uint8_t v) { return v + 1.0; });
    p.map = convertBytes<double>(out[0].get(), [](std::uint8_t v) { return v / 255.0; });
    return p;
  }();
  return indexed;
}

}  // namespace qzbench
