// Fuzz target for the .npy reader of the command-line host: any bytes as a
// file's contents.  The reader must return an array or throw its FileError;
// an array it returns must come back unchanged through the writer and the
// reader again.  Memory stays bounded by the input: the data the header
// promises must be in the file before anything is allocated for it.

#include <cstdint>
#include <cstring>
#include <string>

#include "npy.hpp"

namespace {

[[noreturn]] void fail(char const* what) {
  std::fprintf(stderr, "qzfuzz: npy: %s\n", what);
  std::fflush(stderr);
  __builtin_trap();
}

std::size_t dataBytes(ndArray_tag const* a) {
  return ndGetNumberOfElements(a) * qzhost::elementSize(ndGetClassID(a)) * (ndIsComplex(a) ? 2 : 1);
}

void roundTrip(ndArray_tag const* a) {
  qzhost::ArrayPtr b;
  try {
    b = qzcli::parseNpy(qzcli::formatNpy(a), "written.npy");
  } catch (std::exception const& e) {
    fail((std::string("the reader refuses what the writer wrote: ") + e.what()).c_str());
  }
  if (ndGetClassID(a) != ndGetClassID(b.get()) || ndIsComplex(a) != ndIsComplex(b.get()) ||
      qzhost::dimsOf(a) != qzhost::dimsOf(b.get()))
    fail("an array changed class, complexity or size through the writer and the reader");
  std::size_t const n = dataBytes(a);
  if (n != dataBytes(b.get()) || (n && std::memcmp(ndGetData(a), ndGetData(b.get()), n) != 0))
    fail("an array changed its values through the writer and the reader");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::size_t const arrays = qzhost::liveArrays();
  {
    std::string const bytes(reinterpret_cast<char const*>(data), size);
    try {
      qzhost::ArrayPtr a = qzcli::parseNpy(bytes, "input.npy");
      roundTrip(a.get());
    } catch (qzcli::FileError const&) {
      // A refused file: the message names the problem.
    }
    // Anything else escaping (a host error, a standard library exception)
    // ends the fuzzer as an uncaught exception: a finding.
  }
  if (qzhost::liveArrays() != arrays) fail("arrays left alive");
  return 0;
}
