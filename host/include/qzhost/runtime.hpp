#pragma once
// The host side of the runtime: what a host program (the tests, the command
// line tool, the Python module) uses to make arrays, call a built-in, read
// its warnings and account for memory.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/except.hpp"
#include "ndarray/ndarray.hpp"

namespace qzhost {

using ArrayPtr = matrix::detail::ArrayHandle;

// Every built-in's entry point has this shape.
using Gateway = void (*)(int numOutputs, ArrayPtr* outputs, int numInputs, ndArray_tag const** inputs);

// The one error type a host catches: the identifier (catalog and key joined
// by a colon) and the catalog's message text.
class QZHOST_API HostError : public std::runtime_error {
 public:
  HostError(std::string identifier, std::string message);
  ~HostError() override;
  std::string const& identifier() const { return identifier_; }
  std::string const& message() const { return message_; }

 private:
  std::string identifier_;
  std::string message_;
};

// Raises one of the host's own errors (catalog "qzhost").
[[noreturn]] QZHOST_API void raise(std::string const& key);

// ---- Calling a built-in. ----------------------------------------------------
// Calls fn with the given slots and inputs.  If the built-in raises, every
// ndMalloc/ndCalloc block it took during the call and still holds is freed,
// and the error is rethrown as a HostError; arrays already placed in slots
// stay owned by the slots.  Calls on different threads are independent.
QZHOST_API void call(Gateway fn, int numOutputs, ArrayPtr* outputs, int numInputs,
                     ndArray_tag const* const* inputs);

// ---- Making and reading arrays. ---------------------------------------------
enum class DimForm {
  Full,     // dimension vector held in full
  Compact,  // two dimensions held in the compact form (dims must have 2 entries)
  Lazy,     // dimensions installed only by complete_opaque_dimensions()
};

// What a new array is: its class, dimensions, complexity and the form its
// dimensions are held in.
struct ArrayDesc {
  ndClassID cls = ndclass::Double;
  std::vector<std::size_t> dims;
  bool complex = false;
  DimForm form = DimForm::Full;
};

// A zero-filled array of any class the host knows, including logical, char
// and host-defined classes (codes above 16, stored as 8-byte elements).
QZHOST_API ArrayPtr makeArray(ArrayDesc const& desc);
inline ArrayPtr makeArray(ndClassID cls, std::vector<std::size_t> dims, bool complex = false,
                          DimForm form = DimForm::Full) {
  return makeArray(ArrayDesc{cls, std::move(dims), complex, form});
}

// A sparse M-by-N double array from compressed columns: jc has N+1 entries,
// ir and the values (interleaved pairs when complex) jc[N] each.
QZHOST_API ArrayPtr makeSparse(std::size_t m, std::size_t n, std::vector<std::size_t> const& jc,
                               std::vector<std::size_t> const& ir, std::vector<double> const& values,
                               bool complex = false);

// An array over element data the host does not own, released through
// release(context) when the array is destroyed.  Used for zero-copy views of
// a host's own buffers.
QZHOST_API ArrayPtr wrapData(ArrayDesc const& desc, void* data, void (*release)(void*), void* context);

// Adds a holder: the next release through the deleter drops a reference
// instead of destroying the array.
QZHOST_API void share(ndArray_tag* a);
QZHOST_API std::size_t referenceCount(ndArray_tag const* a);

// How often a host-defined class was resolved through the slow lookup.
QZHOST_API std::size_t nonTrivialClassQueries(ndArray_tag const* a);

// Size in bytes of one scalar of a class (0 for a class that has no
// numeric storage).
QZHOST_API std::size_t elementSize(ndClassID cls);
QZHOST_API char const* className(ndClassID cls);

template <class T>
T* dataOf(ndArray_tag const* a) {
  return static_cast<T*>(ndGetData(a));
}
inline std::vector<std::size_t> dimsOf(ndArray_tag const* a) {
  a->complete_opaque_dimensions();
  std::size_t const* d = ndGetDimensions(a);
  return std::vector<std::size_t>(d, d + ndGetNumberOfDimensions(a));
}

// ---- Accounting. --------------------------------------------------------------
// Blocks from ndMalloc/ndCalloc and arrays that are currently alive, process
// wide.  Tests compare them before and after a call.
QZHOST_API std::size_t liveBlocks();
QZHOST_API std::size_t liveArrays();
// Misuses of the array interface the host detected without failing: a
// dimension read of a lazily held array before completion, ndFree of a
// pointer it never handed out.  Always 0 in a correct library.
QZHOST_API std::size_t contractViolations();
// The element blocks of large arrays (4 MiB and more) are kept when the
// array is released, a few of them and at most an eighth of the memory or
// 512 MiB, and reused by the next array that fits, which then skips the
// system's first-touch cost of fresh pages; so are scratch blocks of 256 KiB
// and more from ndMalloc and ndCalloc.  This gives them back to the system
// now; it returns the bytes it freed.
QZHOST_API std::size_t trimBlockCache();

// ---- Warnings. ----------------------------------------------------------------
struct Warning {
  std::string identifier;
  std::string text;
};
// Warnings issued on the calling thread since the last take, oldest first.
QZHOST_API std::vector<Warning> takeWarnings();
// Whether ndWarningMsgId also prints "Warning: TEXT" to stderr (default on).
QZHOST_API void setWarningEcho(bool on);

// ---- Message catalog. -----------------------------------------------------------
struct CatalogEntry {
  char const* catalog;
  char const* key;
  char const* text;
};
QZHOST_API std::vector<CatalogEntry> catalogEntries();
// The text for catalog and key; empty when the catalog has none.
QZHOST_API std::string messageText(std::string const& catalog, std::string const& key);

// ---- Test hooks. ------------------------------------------------------------------
// When set, do_legacy_nd_error returns to its caller instead of raising, as a
// host with a deferred error path would.  Per thread.
QZHOST_API void setLegacyErrorReturns(bool on);

// Failure injection, per thread.  Once armed, the host counts the
// allocations (ndMalloc, ndCalloc) and array creations
// (matrix::detail::do_create_numeric, do_create_uninitnumeric) made on the
// calling thread, and the failAt-th of them, counted from the arming, fails
// exactly as a real shortage of memory does: the host error
// "qzhost:outOfMemory", raised where the allocator's null result would
// raise it.  Only that one fails; failAt 0 only counts.  A request refused
// for its size is refused before it reaches the allocator and is not
// counted.  Other threads, a kernel's worker threads included, are neither
// counted nor failed, so tests on different threads do not disturb each
// other.
QZHOST_API void armAllocationFailure(std::size_t failAt);
// Stops counting and failing on this thread; the count stays readable.
QZHOST_API void disarmAllocationFailure();
// Allocations and creations counted on this thread since the last arming.
QZHOST_API std::size_t allocationsCounted();

}  // namespace qzhost
