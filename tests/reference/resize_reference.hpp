#pragma once
// Plain one-dimensional resampling, written straight from the rules: direct
// loops over the 1-based source indices (no offset table), one output
// element at a time, no threads and no shared helpers.  The oracle for the
// imresize kernels.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace qzref {

// A weighted sum as element type E: floating types narrow once; integer
// types round halves away from zero and saturate.
template <class E>
E resizeValue(double s) {
  using L = std::numeric_limits<E>;
  if constexpr (std::is_floating_point_v<E>) return static_cast<E>(s);
  // What the processor's 32-bit truncation leaves of NaN: 0x80000000 for
  // int32, its low bits (0) for the narrower types, and 0 for uint32.
  if (std::isnan(s)) return std::is_same_v<E, std::int32_t> ? L::min() : E(0);
  double const v = s < 0 ? s - 0.5 : s + 0.5;
  if (v < static_cast<double>(L::min())) return L::min();
  if (v > static_cast<double>(L::max())) return L::max();
  return static_cast<E>(std::trunc(v));
}

// Resamples the M-by-N-by-P image `a` (interleaved parts when complex) along
// dimension 1 when dim == 1, else along dimension 2, with the taps-by-len
// weights w and 1-based source indices x.  The indices must lie inside the
// image.  Returns the result in column-major order.
template <class E>
std::vector<E> resize(std::vector<E> const& a, std::size_t m, std::size_t n, std::size_t p, bool complex,
                      std::vector<double> const& w, std::vector<double> const& x, std::size_t taps,
                      std::size_t len, int dim) {
  std::size_t const parts = complex ? 2 : 1;
  std::size_t const outRows = dim == 1 ? len : m;
  std::size_t const outCols = dim == 1 ? n : len;
  std::vector<E> out(outRows * outCols * p * parts);
  for (std::size_t plane = 0; plane < p; ++plane) {
    for (std::size_t col = 0; col < outCols; ++col) {
      for (std::size_t row = 0; row < outRows; ++row) {
        std::size_t const i = dim == 1 ? row : col;  // output position along the resized dimension
        for (std::size_t part = 0; part < parts; ++part) {
          double sum = 0.0;
          for (std::size_t k = 0; k < taps; ++k) {
            std::size_t const pos = static_cast<std::size_t>(std::trunc(x[i * taps + k]));  // 1-based
            std::size_t const srcRow = dim == 1 ? pos - 1 : row, srcCol = dim == 1 ? col : pos - 1;
            std::size_t const element = (plane * n + srcCol) * m + srcRow;
            sum = sum + static_cast<double>(a[element * parts + part]) * w[i * taps + k];
          }
          std::size_t const element = (plane * outCols + col) * outRows + row;
          out[element * parts + part] = resizeValue<E>(sum);
        }
      }
    }
  }
  return out;
}

}  // namespace qzref
