#pragma once
// The built-ins by name, and the arguments a host must refuse before calling
// them: rgb2gray and rgb2hsv take one real M-by-N-by-3 array on trust, and
// imresize turns its source indices into offsets without checking them.  An
// argument outside that contract would make the built-in read or write
// outside its arrays, so every host checks it first.

#include <stdexcept>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qzcall {

// The gateway of a built-in by name, or null.
qzhost::Gateway gatewayByName(std::string const& name);
char const* nameOf(qzhost::Gateway fn);

struct ContractError : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// The most elements one output of a call may have: a 67,108,864-pixel
// image of three planes.  Only imresize can be asked for more than its
// inputs hold (its output length is the number of columns of the weights,
// which may have no rows); the limit keeps such a request from taking
// gigabytes.
constexpr std::size_t kMaxOutputElements = std::size_t{3} << 26;

// Throws ContractError when the inputs would take fn outside its arrays, or
// would make an output of more than kMaxOutputElements elements; anything
// else is left for the built-in to report.
void checkContract(qzhost::Gateway fn, std::vector<ndArray_tag const*> const& inputs);

// The built-in cq takes any count and truncates it (2.5 colours are 2, an
// infinite count is 0 colours); a host that asks users for a number of
// colours refuses anything but an integer from 1 to 65536 (ContractError).
void checkColourCount(double k);

}  // namespace qzcall
