#include "resample.hpp"

#include <cstring>
#include <utility>

namespace qzcall {
namespace {

qzhost::ArrayPtr table(std::vector<double> const& values, std::size_t taps, std::size_t length) {
  qzhost::ArrayPtr a = qzhost::makeArray(ndclass::Double, {taps, length});
  if (!values.empty()) std::memcpy(ndGetData(a.get()), values.data(), values.size() * sizeof(double));
  return a;
}

}  // namespace

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
