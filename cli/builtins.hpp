#pragma once
// Calling the built-ins from the command line: by name, with the host's
// call path, printing warnings and errors in one format.

#include <stdexcept>
#include <string>
#include <vector>

#include "contract.hpp"
#include "qzhost/runtime.hpp"

namespace qzcli {

using qzcall::ContractError;
using qzcall::gatewayByName;

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
