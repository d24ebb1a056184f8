#pragma once
// The host array as a library sees it: class codes, the read operations,
// creation, release and the host allocator.  A library never lays out an
// array itself; it goes through these operations only.

#include <atomic>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "ndarray/visibility.hpp"

using ndClassID = std::int32_t;

enum ndComplexity : int { ndREAL = 0, ndCOMPLEX = 1 };

// Class codes the library compares against.  Codes above 16 are host-defined
// classes whose identity is resolved through get_class_id_non_trivial().
namespace ndclass {
constexpr ndClassID Cell = 1;
constexpr ndClassID Struct = 2;
constexpr ndClassID Logical = 3;
constexpr ndClassID Char = 4;
constexpr ndClassID Double = 6;
constexpr ndClassID Single = 7;
constexpr ndClassID Int8 = 8;
constexpr ndClassID UInt8 = 9;
constexpr ndClassID Int16 = 10;
constexpr ndClassID UInt16 = 11;
constexpr ndClassID Int32 = 12;
constexpr ndClassID UInt32 = 13;
constexpr ndClassID Int64 = 14;
constexpr ndClassID UInt64 = 15;
constexpr ndClassID LastStored = 16;  // larger stored codes need the slow lookup

// The ten numeric classes, tested as one unsigned range check.
constexpr bool isNumeric(ndClassID c) { return static_cast<std::uint32_t>(c - Double) <= 9u; }
}  // namespace ndclass

// Element type <-> class code, for typed access.
template <class T> struct ndClassOf;
template <> struct ndClassOf<double> { static constexpr ndClassID value = ndclass::Double; };
template <> struct ndClassOf<float> { static constexpr ndClassID value = ndclass::Single; };
template <> struct ndClassOf<std::int8_t> { static constexpr ndClassID value = ndclass::Int8; };
template <> struct ndClassOf<std::uint8_t> { static constexpr ndClassID value = ndclass::UInt8; };
template <> struct ndClassOf<std::int16_t> { static constexpr ndClassID value = ndclass::Int16; };
template <> struct ndClassOf<std::uint16_t> { static constexpr ndClassID value = ndclass::UInt16; };
template <> struct ndClassOf<std::int32_t> { static constexpr ndClassID value = ndclass::Int32; };
template <> struct ndClassOf<std::uint32_t> { static constexpr ndClassID value = ndclass::UInt32; };
template <> struct ndClassOf<std::int64_t> { static constexpr ndClassID value = ndclass::Int64; };
template <> struct ndClassOf<std::uint64_t> { static constexpr ndClassID value = ndclass::UInt64; };

namespace qzhost::detail {
struct ArrayAccess;

// The host's storage of one array; only the runtime touches it.
struct ArrayStorage {
  enum Flag : std::uint32_t { Numeric = 1, Complex = 2, Sparse = 4, Lazy = 8, Compact = 16 };

  ndClassID classCode = 0;
  std::atomic<std::uint32_t> flags{0};
  std::vector<std::size_t> dims;         // full form (also after completion)
  std::size_t compact[2] = {0, 0};       // compact two-dimensional form
  std::vector<std::size_t> pendingDims;  // lazy form, until completion
  std::once_flag completeOnce;
  std::atomic<std::size_t> refCount{1};
  void* data = nullptr;
  std::size_t dataCapacity = 0;  // bytes of an element block the runtime may keep on release; 0: free it
  // Sparse double: N+1 column starts and nzmax row indices.
  std::size_t* jc = nullptr;
  std::size_t* ir = nullptr;
  std::size_t nzmax = 0;
  // Borrowed element data: released through this callback instead of freed.
  void (*release)(void*) = nullptr;
  void* releaseContext = nullptr;
  std::atomic<std::size_t> nonTrivialQueries{0};
};
}  // namespace qzhost::detail

// The host's array object.  Its storage is private to the host runtime;
// clients use the nd* operations below.
class QZHOST_API ndArray_tag {
 public:
  // Installs dimensions that are held lazily.  Must precede any dimension
  // read of such an array; a no-op once complete.  Safe to call from
  // several threads on one shared input.
  void complete_opaque_dimensions() const;

  // The class of a host-defined class (stored code above 16).
  ndClassID get_class_id_non_trivial() const;

  ndArray_tag(ndArray_tag const&) = delete;
  ndArray_tag& operator=(ndArray_tag const&) = delete;

 private:
  friend struct qzhost::detail::ArrayAccess;
  ndArray_tag() = default;
  ~ndArray_tag() = default;

  // Mutable: completing lazy dimensions and counting lookups are invisible
  // to the array's holders.
  mutable qzhost::detail::ArrayStorage s_;
};

// ---- Reads.  None fails for a valid handle. --------------------------------
QZHOST_API ndClassID ndGetClassID(ndArray_tag const* a);
QZHOST_API bool ndIsNumeric(ndArray_tag const* a);
QZHOST_API bool ndIsComplex(ndArray_tag const* a);
QZHOST_API bool ndIsSparse(ndArray_tag const* a);
QZHOST_API std::size_t ndGetNumberOfDimensions(ndArray_tag const* a);
QZHOST_API std::size_t const* ndGetDimensions(ndArray_tag const* a);
QZHOST_API std::size_t ndGetNumberOfElements(ndArray_tag const* a);
QZHOST_API std::size_t ndGetN(ndArray_tag const* a);
QZHOST_API void* ndGetData(ndArray_tag const* a);
// First element as double (real part for complex); 0 for an empty array.
QZHOST_API double ndGetScalar(ndArray_tag const* a);
// Sparse arrays: N+1 column starts (entry N = number of stored values) and
// the row index of each stored value.  Null for a full array.
QZHOST_API std::size_t const* ndGetJc(ndArray_tag const* a);
QZHOST_API std::size_t const* ndGetIr(ndArray_tag const* a);

// Typed complex access: null unless the class is T's, the array is complex
// and it is not sparse.
template <class T>
std::complex<T>* ndGetComplexData(ndArray_tag const* a) {
  if (ndGetClassID(a) != ndClassOf<T>::value || !ndIsComplex(a) || ndIsSparse(a)) return nullptr;
  return static_cast<std::complex<T>*>(ndGetData(a));
}

// ---- Host allocator and helpers. --------------------------------------------
// Failure is a host error; none of these returns null.
QZHOST_API void* ndMalloc(std::size_t bytes);
QZHOST_API void* ndCalloc(std::size_t count, std::size_t size);
QZHOST_API void ndFree(void* p);
QZHOST_API bool ndIsNaN(double v);

// ---- Creation and release. --------------------------------------------------
namespace cppcompat::detail::span {
// A (begin, end) view.  Creation reads it and never keeps it, so a caller may
// pass part of another array's dimension vector.
template <class T>
class span {
 public:
  constexpr span(T* b, T* e) : begin_(b), end_(e) {}
  // Also from a temporary: creation reads the span before the full
  // expression ends.
  template <class Container>
  constexpr span(Container const& c) : begin_(c.data()), end_(c.data() + c.size()) {}
  template <std::size_t N>
  constexpr span(T (&a)[N]) : begin_(a), end_(a + N) {}
  constexpr T* begin() const { return begin_; }
  constexpr T* end() const { return end_; }
  constexpr T* data() const { return begin_; }
  constexpr std::size_t size() const { return static_cast<std::size_t>(end_ - begin_); }

 private:
  T* begin_;
  T* end_;
};
}  // namespace cppcompat::detail::span

namespace matrix {
QZHOST_API void destroyArray(ndArray_tag* a);

namespace detail {
// Destroys an unshared array, otherwise gives up one reference.  Never throws:
// a failure inside destroyArray ends the process.
struct QZHOST_API ndDestroy_deleter {
  void operator()(ndArray_tag* a) const noexcept;
};

using ArrayHandle = std::unique_ptr<ndArray_tag, ndDestroy_deleter>;

// A new zero-filled numeric array.  Trailing singleton dimensions beyond the
// second are dropped; fewer than two entries are padded with 1.
QZHOST_API ArrayHandle do_create_numeric(cppcompat::detail::span::span<const std::size_t> dims,
                                         ndClassID cls, ndComplexity cx);
// The same without filling: the caller writes every element.
QZHOST_API ArrayHandle do_create_uninitnumeric(cppcompat::detail::span::span<const std::size_t> dims,
                                               ndClassID cls, ndComplexity cx);
}  // namespace detail
}  // namespace matrix
