#include "resample.hpp"

#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace qzcall {
namespace {

qzhost::ArrayPtr table(std::vector<double> const& values, std::size_t taps, std::size_t length) {
  qzhost::ArrayPtr a = qzhost::makeArray(ndclass::Double, {taps, length});
  if (!values.empty()) std::memcpy(ndGetData(a.get()), values.data(), values.size() * sizeof(double));
  return a;
}

std::string str(double v) {
  std::ostringstream s;
  s << v;
  return s.str();
}

// The checks both forms of request share, once the output size is known.
ResampleRequest finish(ResampleRequest r, std::size_t inRows, std::size_t inCols) {
  std::string const size = std::to_string(r.rows) + "x" + std::to_string(r.cols);
  if (r.rows > kMaxResizeSide || r.cols > kMaxResizeSide)
    throw ResizeError("the output of " + size + " pixels is more than the limit of " + std::to_string(kMaxResizeSide) +
                      " pixels a side");
  if (r.rows * r.cols > kMaxResizePixels)
    throw ResizeError("the output of " + size + " pixels is more than the limit of " +
                      std::to_string(kMaxResizePixels) + " pixels in all");
  struct {
    std::size_t in, out;
    double scale;
  } const passes[] = {{inRows, r.rows, r.rowScale}, {inCols, r.cols, r.colScale}};
  for (auto const& p : passes) {
    double taps = qzfilters::filterTaps(p.scale, r.method, r.antialias);
    if (!(taps * static_cast<double>(p.out) <= static_cast<double>(qzfilters::kMaxFilterEntries)))
      throw ResizeError("resampling " + std::to_string(p.in) + " pixels to " + std::to_string(p.out) + " needs " +
                        str(taps) + " filter taps for each, more than the limit of " +
                        std::to_string(qzfilters::kMaxFilterEntries) + " weights in all; resize in steps");
  }
  return r;
}

void requireImage(std::size_t inRows, std::size_t inCols) {
  if (inRows == 0 || inCols == 0) throw ResizeError("the image is empty");
}

}  // namespace

ResampleRequest planResize(std::size_t inRows, std::size_t inCols, double scale, qzfilters::Method method,
                           bool antialias) {
  requireImage(inRows, inCols);
  if (!(scale > 0) || !std::isfinite(scale))
    throw ResizeError("the scale must be a positive finite number, not " + str(scale));
  for (std::size_t in : {inRows, inCols}) {
    // Checked in doubles: the product of an absurd scale must not be
    // converted to an integer.
    double out = static_cast<double>(in) * scale;
    if (out < 1)
      throw ResizeError("scale " + str(scale) + " makes the " + std::to_string(in) + "-pixel side " + str(out) +
                        " pixels long, shorter than 1 pixel");
    if (out > static_cast<double>(kMaxResizeSide))
      throw ResizeError("scale " + str(scale) + " makes the " + std::to_string(in) + "-pixel side " + str(out) +
                        " pixels long, more than the limit of " + std::to_string(kMaxResizeSide) + " pixels a side");
  }
  ResampleRequest r{qzfilters::outputLength(inRows, scale), qzfilters::outputLength(inCols, scale), scale, scale,
                    method, antialias};
  return finish(r, inRows, inCols);
}

ResampleRequest planResize(std::size_t inRows, std::size_t inCols, std::size_t outRows, std::size_t outCols,
                           qzfilters::Method method, bool antialias) {
  requireImage(inRows, inCols);
  if (outRows == 0 || outCols == 0)
    throw ResizeError("the output size must be at least 1x1, not " + std::to_string(outRows) + "x" +
                      std::to_string(outCols));
  ResampleRequest r{outRows, outCols, static_cast<double>(outRows) / static_cast<double>(inRows),
                    static_cast<double>(outCols) / static_cast<double>(inCols), method, antialias};
  return finish(r, inRows, inCols);
}

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
