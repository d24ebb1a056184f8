#include "filters.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace qzfilters {
namespace {

constexpr double kPi = 3.14159265358979323846;

double box(double x) { return (x >= -0.5 && x < 0.5) ? 1.0 : 0.0; }

double triangle(double x) {
  double a = std::fabs(x);
  return a <= 1 ? 1 - a : 0.0;
}

// Cubic convolution with a = -0.5: interpolating, and exact on quadratics.
double cubic(double x) {
  double a = std::fabs(x), a2 = a * a, a3 = a2 * a;
  if (a <= 1) return 1.5 * a3 - 2.5 * a2 + 1;
  if (a <= 2) return -0.5 * a3 + 2.5 * a2 - 4 * a + 2;
  return 0.0;
}

double lanczos(double x, double lobes) {
  if (x == 0) return 1.0;
  // Exactly zero at the other integers (sin(pi*k) is not, in floating point),
  // so that scale 1 reproduces its input.
  if (std::fabs(x) >= lobes || x == std::floor(x)) return 0.0;
  double px = kPi * x;
  return lobes * std::sin(px) * std::sin(px / lobes) / (px * px);
}

struct Kernel {
  double (*f)(double);
  double width;  // support, in input samples, at scale 1
};

Kernel kernelOf(Method m) {
  switch (m) {
    case Method::Nearest:
    case Method::Box: return {box, 1.0};
    case Method::Bilinear: return {triangle, 2.0};
    case Method::Bicubic: return {cubic, 4.0};
    case Method::Lanczos2: return {[](double x) { return lanczos(x, 2); }, 4.0};
    case Method::Lanczos3: return {[](double x) { return lanczos(x, 3); }, 6.0};
  }
  return {box, 1.0};
}

// Reflects a 1-based index into 1..n: ... 2 1 | 1 2 ... n | n n-1 ...
double reflect(long long i, long long n) {
  long long period = 2 * n;
  long long m = ((i - 1) % period + period) % period;
  return static_cast<double>(m < n ? m + 1 : period - m);
}

}  // namespace

std::optional<Method> parseMethod(std::string const& name) {
  for (Method m : {Method::Nearest, Method::Bilinear, Method::Bicubic, Method::Lanczos2, Method::Lanczos3, Method::Box})
    if (name == methodName(m)) return m;
  return std::nullopt;
}

char const* methodName(Method m) {
  switch (m) {
    case Method::Nearest: return "nearest";
    case Method::Bilinear: return "bilinear";
    case Method::Bicubic: return "bicubic";
    case Method::Lanczos2: return "lanczos2";
    case Method::Lanczos3: return "lanczos3";
    case Method::Box: return "box";
  }
  return "?";
}

namespace {

// 2^53: every integer up to it is a double, and converts back exactly.
constexpr double kExactIntegers = 9007199254740992.0;

bool widens(double scale, Method method, bool antialias) {
  return antialias && scale < 1 && method != Method::Nearest;
}

double supportWidth(double scale, Method method, bool antialias) {
  double w = kernelOf(method).width;
  return widens(scale, method, antialias) ? w / scale : w;
}

}  // namespace

std::size_t outputLength(std::size_t inLength, double scale) {
  if (inLength == 0) return 0;
  double out = std::ceil(static_cast<double>(inLength) * scale);
  if (!(out < kExactIntegers)) return static_cast<std::size_t>(kExactIntegers);  // NaN too
  return out < 1 ? 1 : static_cast<std::size_t>(out);
}

double filterTaps(double scale, Method method, bool antialias) {
  return std::ceil(supportWidth(scale, method, antialias)) + 2;
}

Filter makeFilter(std::size_t inLength, std::size_t outLength, double scale, Method method, bool antialias) {
  if (inLength == 0 || outLength == 0) throw std::invalid_argument("cannot resample an empty dimension");
  if (!(scale > 0) || !std::isfinite(scale)) throw std::invalid_argument("the scale must be finite and positive");
  double const taps = filterTaps(scale, method, antialias);
  if (!(taps * static_cast<double>(outLength) <= static_cast<double>(kMaxFilterEntries)))
    throw std::invalid_argument("a filter of " + std::to_string(static_cast<unsigned long long>(std::min(taps, 1e18))) + " taps for each of " +
                                std::to_string(outLength) + " outputs is more than the limit of " +
                                std::to_string(kMaxFilterEntries) + " weights");
  // Input positions, and the input length they are reflected into, must
  // stay where doubles hold integers exactly and convert without overflow.
  if (!(static_cast<double>(outLength) / scale + taps < kExactIntegers / 4) ||
      !(static_cast<double>(inLength) < kExactIntegers / 4))
    throw std::invalid_argument("the scale is out of range for " + std::to_string(outLength) + " outputs");
  Kernel k = kernelOf(method);
  bool widen = widens(scale, method, antialias);
  double width = supportWidth(scale, method, antialias);
  auto h = [&](double x) { return widen ? scale * k.f(scale * x) : k.f(x); };
  std::size_t const p = static_cast<std::size_t>(taps);

  std::vector<double> w(p * outLength), idx(p * outLength);
  for (std::size_t x = 0; x < outLength; ++x) {
    double u = static_cast<double>(x + 1) / scale + 0.5 * (1 - 1 / scale);
    long long left = static_cast<long long>(std::floor(u - width / 2));
    double sum = 0;
    for (std::size_t t = 0; t < p; ++t) {
      long long i = left + static_cast<long long>(t);
      double v = h(u - static_cast<double>(i));
      w[x * p + t] = v;
      idx[x * p + t] = reflect(i, static_cast<long long>(inLength));
      sum += v;
    }
    for (std::size_t t = 0; t < p; ++t) w[x * p + t] = sum != 0 ? w[x * p + t] / sum : 0.0;
  }

  // Drop tap rows that carry no weight for any output.
  std::vector<bool> keep(p, false);
  for (std::size_t x = 0; x < outLength; ++x)
    for (std::size_t t = 0; t < p; ++t) keep[t] = keep[t] || w[x * p + t] != 0;
  Filter f;
  f.outLength = outLength;
  for (bool b : keep) f.taps += b;
  f.weights.reserve(f.taps * outLength);
  f.indices.reserve(f.taps * outLength);
  for (std::size_t x = 0; x < outLength; ++x)
    for (std::size_t t = 0; t < p; ++t)
      if (keep[t]) {
        f.weights.push_back(w[x * p + t]);
        f.indices.push_back(idx[x * p + t]);
      }
  return f;
}

}  // namespace qzfilters
