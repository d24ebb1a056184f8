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

// The most weights (taps times outputs) one filter may hold.  Every
// resampling of an image within the readers' limits (65536 pixels a side)
// needs at most about 600,000; a request beyond this one is a mistake that
// would otherwise take gigabytes.
constexpr std::size_t kMaxFilterEntries = std::size_t{1} << 22;

// The output length for a scale: ceil(inLength * scale), at least 1 for a
// non-empty input; a length beyond 2^53 comes back as 2^53, so that the
// caller can refuse it.
std::size_t outputLength(std::size_t inLength, double scale);

// The taps per output position makeFilter works with (before dropping taps
// that carry no weight), as a double so that an absurd scale gives a large
// number rather than an overflow.
double filterTaps(double scale, Method method, bool antialias);

// Throws std::invalid_argument for an empty input, an empty output, a scale
// that is not finite and positive, and a filter of more than
// kMaxFilterEntries weights or whose positions leave the range integers
// convert exactly.
Filter makeFilter(std::size_t inLength, std::size_t outLength, double scale, Method method, bool antialias);

}  // namespace qzfilters
