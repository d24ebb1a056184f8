#pragma once
// Calling the built-ins from the command line: by name, with the host's
// call path, printing warnings and errors in one format.

#include <stdexcept>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qzcli {

// The gateway of a built-in by name, or null.
qzhost::Gateway gatewayByName(std::string const& name);
std::vector<std::string> builtinNames();

// Arguments that the built-in would take on trust and could not survive:
// rgb2gray and rgb2hsv need one real M-by-N-by-3 array, imresize needs every
// source index inside the image.  The host refuses them before the call.
struct ContractError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A built-in raised: its identifier and text have been printed.
struct BuiltinFailed {
  std::string identifier;
};

// Calls a built-in (after the host's own checks, ContractError) with `slots` empty output slots (at least two).  Each
// warning is printed as "warning: IDENTIFIER: TEXT"; an error is printed as
// "error: IDENTIFIER: TEXT" and thrown as BuiltinFailed.
std::vector<qzhost::ArrayPtr> run(qzhost::Gateway fn, int numOutputs, std::vector<ndArray_tag const*> const& inputs,
                                  std::size_t slots = 2);

}  // namespace qzcli
