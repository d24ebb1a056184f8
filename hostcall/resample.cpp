#include "resample.hpp"

#include <cmath>
#include <cstring>
#include <sstream>
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
  if (r.colScale < r.rowScale) std::swap(passes[0], passes[1]);

  qzhost::ArrayPtr current;
  for (auto const& p : passes) {
    FilterArrays f = filterArrays(qzfilters::makeFilter(p.in, p.out, p.scale, r.method, r.antialias));
    qzhost::ArrayPtr dim = scalar(p.dim);
    current = run(current ? current.get() : image, f.weights.get(), f.indices.get(), dim.get());
  }
  return current;
}

}  // namespace qzcall
