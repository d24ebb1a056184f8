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
std::vector<std::string> builtinNames();

struct ContractError : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// Throws ContractError when the inputs would take fn outside its arrays;
// anything else is left for the built-in to report.
void checkContract(qzhost::Gateway fn, std::vector<ndArray_tag const*> const& inputs);

}  // namespace qzcall
