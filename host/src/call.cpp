// The host's one path for calling a built-in.

#include <new>
#include <vector>

#include "call_scope.hpp"
#include "qzhost/runtime.hpp"
#include "utf.hpp"

namespace qzhost {

void call(Gateway fn, int numOutputs, ArrayPtr* outputs, int numInputs, ndArray_tag const* const* inputs) {
  // The gateway takes a mutable array of input pointers; give it its own.
  std::vector<ndArray_tag const*> in;
  if (numInputs > 0) in.assign(inputs, inputs + numInputs);
  detail::CallScope scope;
  try {
    fn(numOutputs, outputs, numInputs, in.data());
  } catch (HostError const&) {
    scope.reclaim();
    throw;
  } catch (foundation::core::except::IMsgIDException const& e) {
    // A library whose host error call returned leaves with its own exception.
    scope.reclaim();
    throw HostError(e.GetID(), detail::toUtf8(e.GetUnicodeMessageTxt()));
  } catch (std::bad_alloc const&) {
    scope.reclaim();
    raise("outOfMemory");
  } catch (std::exception const& e) {
    scope.reclaim();
    throw HostError("qzhost:internalError", messageText("qzhost", "internalError") + " (" + e.what() + ")");
  }
}

}  // namespace qzhost
