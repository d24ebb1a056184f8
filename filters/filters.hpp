#pragma once
// The host-side half of resampling: for one dimension, the weights and the
// 1-based source indices that the imresize built-in applies.  Output
// position x (1-based) maps to input coordinate u = x/s + 0.5(1 - 1/s) for
// scale s; when shrinking with antialiasing the kernel is widened by 1/s;
// indices outside the image are reflected back into it; each output's
// weights are normalised to sum to 1; taps that are zero for every output
// are dropped.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace qzfilters {

enum class Method { Nearest, Bilinear, Bicubic, Lanczos2, Lanczos3, Box };

std::optional<Method> parseMethod(std::string const& name);
char const* methodName(Method m);

// T-by-L tables, column-major: column i holds the taps of output position i.
struct Filter {
  std::size_t taps = 0;
  std::size_t outLength = 0;
  std::vector<double> weights;
  std::vector<double> indices;  // 1-based positions along the input
};

// The output length for a scale: ceil(inLength * scale), at least 1 for a
// non-empty input.
std::size_t outputLength(std::size_t inLength, double scale);

// Throws std::invalid_argument for an empty input, an empty output or a scale
// that is not finite and positive.
Filter makeFilter(std::size_t inLength, std::size_t outLength, double scale, Method method, bool antialias);

}  // namespace qzfilters
