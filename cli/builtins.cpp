#include "builtins.hpp"

#include "messages.hpp"

namespace qzcli {
namespace {

void printWarnings() {
  for (auto const& w : qzhost::takeWarnings()) messages() << "warning: " << w.identifier << ": " << w.text << "\n";
}

}  // namespace

std::vector<qzhost::ArrayPtr> run(qzhost::Gateway fn, int numOutputs, std::vector<ndArray_tag const*> const& inputs,
                                  std::size_t slots) {
  qzcall::checkContract(fn, inputs);
  std::vector<qzhost::ArrayPtr> out(std::max<std::size_t>(slots, 2));
  qzhost::setWarningEcho(false);  // printed below in the command line's own format
  qzhost::takeWarnings();
  try {
    qzhost::call(fn, numOutputs, out.data(), static_cast<int>(inputs.size()), inputs.data());
  } catch (qzhost::HostError const& e) {
    printWarnings();
    messages() << "error: " << e.identifier() << ": " << e.message() << "\n";
    throw BuiltinFailed{e.identifier()};
  }
  printWarnings();
  return out;
}

}  // namespace qzcli
