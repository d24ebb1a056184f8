#include "resample.hpp"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace qzcall {
namespace {

qzhost::ArrayPtr table(std::vector<double> const& values, std::size_t taps, std::size_t length) {
  qzhost::ArrayPtr a = qzhost::makeArray(ndclass::Double, {taps, length});
  if (!values.empty()) std::memcpy(ndGetData(a.get()), values.data(), values.size() * sizeof(double));
  return a;
}

}  // namespace

bool widthFirst(ResampleRequest const& r) {
  return r.colScale < r.rowScale || (r.colScale == r.rowScale && r.colScale > 1);
}

qzhost::ArrayPtr scalar(double v) {
  qzhost::ArrayPtr a = qzhost::makeArray(ndclass::Double, {1, 1});
  qzhost::dataOf<double>(a.get())[0] = v;
  return a;
}

FilterArrays filterArrays(qzfilters::Filter const& f) {
  return {table(f.weights, f.taps, f.outLength), table(f.indices, f.taps, f.outLength)};
}

qzhost::ArrayPtr resample(ndArray_tag const* image, ResampleRequest const& r, ImresizeRunner const& run) {
  auto d = qzhost::dimsOf(image);
  struct Pass {
    double dim;
    std::size_t in, out;
    double scale;
  } passes[] = {{1, d[0], r.rows, r.rowScale}, {2, d[1], r.cols, r.colScale}};
  if (widthFirst(r)) std::swap(passes[0], passes[1]);

  qzhost::ArrayPtr current;
  for (auto const& p : passes) {
    FilterArrays f = filterArrays(qzfilters::makeFilter(p.in, p.out, p.scale, r.method, r.antialias));
    qzhost::ArrayPtr dim = scalar(p.dim);
    current = run(current ? current.get() : image, f.weights.get(), f.indices.get(), dim.get());
  }
  return current;
}

qzhost::ArrayPtr reshaped(qzhost::ArrayPtr a, std::vector<std::size_t> dims) {
  ndArray_tag* owner = a.get();
  qzhost::ArrayDesc desc{ndGetClassID(owner), std::move(dims), ndIsComplex(owner)};
  auto release = [](void* held) { matrix::detail::ndDestroy_deleter{}(static_cast<ndArray_tag*>(held)); };
  qzhost::ArrayPtr view = qzhost::wrapData(desc, ndGetData(owner), release, owner);
  a.release();  // now the view's
  return view;
}

qzhost::ArrayPtr resampleInterleaved(ndArray_tag const* image, std::size_t height, std::size_t width,
                                     std::size_t channels, ResampleRequest const& r, ImresizeRunner const& run) {
  std::size_t const c = channels, w = width, h = height;
  if (c == 0 || w == 0 || h == 0 || r.rows == 0 || r.cols == 0)
    throw std::invalid_argument("cannot resample an empty image");
  if (ndGetNumberOfElements(image) / c / w != h || ndGetNumberOfElements(image) % (c * w) != 0)
    throw std::invalid_argument("the image does not hold height x width x channels elements");
  // A view of the caller's image, which keeps owning its memory.
  auto borrowed = [&](std::vector<std::size_t> dims) {
    qzhost::ArrayDesc desc{ndGetClassID(image), std::move(dims), ndIsComplex(image)};
    return qzhost::wrapData(desc, ndGetData(image), [](void*) {}, nullptr);
  };
  // The width pass runs along dimension 2 of (C, W, H); with one channel,
  // along dimension 1 of (W, H).  The height pass runs along dimension 2 of
  // (C*W, H).
  qzhost::ArrayPtr const along1 = scalar(1), along2 = scalar(2);
  auto widthView = [&](std::size_t cols, std::size_t rows) {
    return c == 1 ? std::vector<std::size_t>{cols, rows} : std::vector<std::size_t>{c, cols, rows};
  };
  auto pass = [&](ndArray_tag const* in, std::size_t from, std::size_t to, double scale, bool alongWidth) {
    FilterArrays f = filterArrays(qzfilters::makeFilter(from, to, scale, r.method, r.antialias));
    return run(in, f.weights.get(), f.indices.get(), (alongWidth && c == 1 ? along1 : along2).get());
  };
  qzhost::ArrayPtr out;
  if (widthFirst(r)) {
    qzhost::ArrayPtr in = borrowed(widthView(w, h));
    out = reshaped(pass(in.get(), w, r.cols, r.colScale, true), {c * r.cols, h});
    out = pass(out.get(), h, r.rows, r.rowScale, false);  // (C*W', H')
  } else {
    qzhost::ArrayPtr in = borrowed({c * w, h});
    out = reshaped(pass(in.get(), h, r.rows, r.rowScale, false), widthView(w, r.rows));
    out = pass(out.get(), w, r.cols, r.colScale, true);  // (C, W', H')
  }
  return reshaped(std::move(out), {c, r.cols, r.rows});
}

}  // namespace qzcall
