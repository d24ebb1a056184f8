// Host arrays: storage, the read operations, creation and release.

#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <new>

#include "access.hpp"
#include "qzhost/runtime.hpp"

using qzhost::detail::ArrayAccess;
using Flag = ArrayAccess::Flag;

namespace qzhost::detail {
std::atomic<std::size_t> gLiveArrays{0};
}

namespace {

std::size_t storageSize(ndClassID cls) {
  std::size_t s = qzhost::elementSize(cls);
  return s ? s : 8;  // cells, structures and host classes: one handle each
}

bool numericFlagFor(ndClassID cls) { return cls == ndclass::Logical || ndclass::isNumeric(cls); }

// The dimension vector as the host keeps it: at least two entries, trailing
// singletons beyond the second dropped.
std::vector<std::size_t> normalise(std::size_t const* b, std::size_t const* e) {
  std::vector<std::size_t> d(b, e);
  while (d.size() < 2) d.push_back(1);
  while (d.size() > 2 && d.back() == 1) d.pop_back();
  return d;
}

// Total bytes of element data, refusing sizes that overflow the address
// space before anything is allocated.
std::size_t dataBytes(std::vector<std::size_t> const& dims, ndClassID cls, bool complex) {
  std::size_t n = 1;
  bool zero = false;
  for (std::size_t d : dims) zero = zero || d == 0;
  if (zero) return 0;
  for (std::size_t d : dims)
    if (__builtin_mul_overflow(n, d, &n)) qzhost::raise("arrayTooLarge");
  std::size_t bytes;
  if (__builtin_mul_overflow(n, storageSize(cls) * (complex ? 2 : 1), &bytes) ||
      bytes > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()))
    qzhost::raise("arrayTooLarge");
  return bytes;
}

// Large arrays come straight from fresh mappings, and touching them a 4 KiB
// page at a time costs more than most kernels that fill them.  Like NumPy,
// ask for transparent huge pages over the whole 2 MiB pages inside a large
// block; only a hint, harmless where the system ignores it.
void adviseHugePages(void* p, std::size_t bytes) {
  constexpr std::size_t kHuge = std::size_t{1} << 21;
  if (bytes < 2 * kHuge) return;
  auto const start = (reinterpret_cast<std::uintptr_t>(p) + kHuge - 1) & ~(kHuge - 1);
  auto const end = (reinterpret_cast<std::uintptr_t>(p) + bytes) & ~(kHuge - 1);
  if (end > start) madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

// An injected failure takes the path of a null result from the system
// allocator, even for an empty array (whose header is still allocated).
void* allocateData(std::size_t bytes, bool zero, bool injectedFailure = false) {
  if (bytes == 0 && !injectedFailure) return nullptr;
  void* p = injectedFailure ? nullptr : zero ? std::calloc(bytes, 1) : std::malloc(bytes);
  if (!p) qzhost::raise("outOfMemory");
  adviseHugePages(p, bytes);
  return p;
}

// Arrays a built-in creates count for the failure-injection hook; the ones
// a host makes for itself do not.
enum class Creator { Host, Library };

qzhost::ArrayPtr newArray(ndClassID cls, std::vector<std::size_t> dims, bool complex, qzhost::DimForm form,
                          bool zero, Creator creator = Creator::Host) {
  std::size_t bytes = dataBytes(dims, cls, complex);
  if (form == qzhost::DimForm::Compact && dims.size() != 2) qzhost::raise("badCompactForm");
  bool const injected = creator == Creator::Library && qzhost::detail::injectFailureHere();
  std::size_t capacity = bytes;
  void* data = injected ? nullptr : qzhost::detail::takeCachedBlock(bytes, capacity);
  if (data) {
    if (zero) std::memset(data, 0, bytes);
  } else {
    data = allocateData(bytes, zero, injected);
  }
  ndArray_tag* raw = nullptr;
  try {
    raw = ArrayAccess::make();
  } catch (std::bad_alloc const&) {
    // Report the header like the data, as the host's error, and do not lose
    // the data already taken.
    qzhost::detail::releaseBlock(data, capacity);
    qzhost::raise("outOfMemory");
  }
  auto& a = ArrayAccess::of(raw);
  qzhost::detail::gLiveArrays.fetch_add(1);
  qzhost::ArrayPtr handle(raw);
  std::uint32_t flags = 0;
  if (numericFlagFor(cls)) flags |= Flag::Numeric;
  if (complex) flags |= Flag::Complex;
  switch (form) {
    case qzhost::DimForm::Full: a.dims = std::move(dims); break;
    case qzhost::DimForm::Compact:
      a.compact[0] = dims[0];
      a.compact[1] = dims[1];
      flags |= Flag::Compact;
      break;
    case qzhost::DimForm::Lazy:
      a.pendingDims = std::move(dims);
      flags |= Flag::Lazy;
      break;
  }
  a.flags.store(flags);
  a.classCode = cls;
  a.data = data;
  a.dataCapacity = data ? capacity : 0;
  return handle;
}

struct DimView {
  std::size_t const* begin;
  std::size_t count;
};

DimView dimsOf(ndArray_tag const* a) {
  if (ArrayAccess::has(a, Flag::Lazy)) {
    qzhost::detail::noteContractViolation("dimension read before complete_opaque_dimensions");
    a->complete_opaque_dimensions();
  }
  auto& s = ArrayAccess::of(a);
  if (ArrayAccess::has(a, Flag::Compact)) return {s.compact, 2};
  return {s.dims.data(), s.dims.size()};
}

}  // namespace

// ---- ndArray_tag --------------------------------------------------------------

void ndArray_tag::complete_opaque_dimensions() const {
  if (!(s_.flags.load(std::memory_order_acquire) & Flag::Lazy)) return;
  std::call_once(s_.completeOnce, [this] {
    s_.dims = std::move(s_.pendingDims);
    s_.flags.fetch_and(~static_cast<std::uint32_t>(Flag::Lazy), std::memory_order_release);
  });
}

ndClassID ndArray_tag::get_class_id_non_trivial() const {
  s_.nonTrivialQueries.fetch_add(1, std::memory_order_relaxed);
  return s_.classCode;
}

// ---- Reads --------------------------------------------------------------------

ndClassID ndGetClassID(ndArray_tag const* a) {
  ndClassID stored = ArrayAccess::of(a).classCode;
  return stored <= ndclass::LastStored ? stored : a->get_class_id_non_trivial();
}

bool ndIsNumeric(ndArray_tag const* a) { return ArrayAccess::has(a, Flag::Numeric); }

bool ndIsComplex(ndArray_tag const* a) {
  return ArrayAccess::has(a, Flag::Numeric) && ArrayAccess::has(a, Flag::Complex);
}

bool ndIsSparse(ndArray_tag const* a) { return ArrayAccess::has(a, Flag::Sparse); }

std::size_t ndGetNumberOfDimensions(ndArray_tag const* a) { return dimsOf(a).count; }

std::size_t const* ndGetDimensions(ndArray_tag const* a) { return dimsOf(a).begin; }

std::size_t ndGetNumberOfElements(ndArray_tag const* a) {
  DimView d = dimsOf(a);
  std::size_t n = 1;
  for (std::size_t i = 0; i < d.count; ++i) n *= d.begin[i];
  return n;
}

std::size_t ndGetN(ndArray_tag const* a) {
  DimView d = dimsOf(a);
  std::size_t n = 1;
  for (std::size_t i = 1; i < d.count; ++i) n *= d.begin[i];
  return n;
}

void* ndGetData(ndArray_tag const* a) { return ArrayAccess::of(a).data; }

std::size_t const* ndGetJc(ndArray_tag const* a) { return ArrayAccess::of(a).jc; }
std::size_t const* ndGetIr(ndArray_tag const* a) { return ArrayAccess::of(a).ir; }

double ndGetScalar(ndArray_tag const* a) {
  auto& s = ArrayAccess::of(a);
  void const* p = s.data;
  if (ndIsSparse(a)) {
    // The first element is stored only if column 0 holds a value in row 0.
    if (s.jc[0] == s.jc[1] || s.ir[s.jc[0]] != 0) return 0.0;
    return static_cast<double const*>(p)[0];
  }
  if (p == nullptr || ndGetNumberOfElements(a) == 0) return 0.0;
  switch (ndGetClassID(a)) {
    case ndclass::Double: return *static_cast<double const*>(p);
    case ndclass::Single: return *static_cast<float const*>(p);
    case ndclass::Logical:
    case ndclass::UInt8: return *static_cast<std::uint8_t const*>(p);
    case ndclass::Int8: return *static_cast<std::int8_t const*>(p);
    case ndclass::Char:
    case ndclass::UInt16: return *static_cast<std::uint16_t const*>(p);
    case ndclass::Int16: return *static_cast<std::int16_t const*>(p);
    case ndclass::Int32: return *static_cast<std::int32_t const*>(p);
    case ndclass::UInt32: return *static_cast<std::uint32_t const*>(p);
    case ndclass::Int64: return static_cast<double>(*static_cast<std::int64_t const*>(p));
    case ndclass::UInt64: return static_cast<double>(*static_cast<std::uint64_t const*>(p));
    default: return 0.0;
  }
}

bool ndIsNaN(double v) { return v != v; }

// ---- Creation and release -------------------------------------------------------

namespace matrix {

void destroyArray(ndArray_tag* a) {
  if (!a) return;
  auto& s = ArrayAccess::of(a);
  if (s.release)
    s.release(s.releaseContext);
  else if (s.dataCapacity)
    qzhost::detail::releaseBlock(s.data, s.dataCapacity);
  else
    std::free(s.data);
  std::free(s.jc);
  std::free(s.ir);
  ArrayAccess::destroy(a);
  qzhost::detail::gLiveArrays.fetch_sub(1);
}

namespace detail {

void ndDestroy_deleter::operator()(ndArray_tag* a) const noexcept {
  if (!a) return;
  auto& count = ArrayAccess::of(a).refCount;
  std::size_t c = count.load();
  for (;;) {
    if (c < 2) {
      try {
        destroyArray(a);
      } catch (...) {
        std::terminate();
      }
      return;
    }
    if (count.compare_exchange_weak(c, c - 1)) return;
  }
}

namespace {
ArrayHandle create(cppcompat::detail::span::span<const std::size_t> dims, ndClassID cls, ndComplexity cx,
                   bool zero) {
  if (cls != ndclass::Logical && cls != ndclass::Char && !ndclass::isNumeric(cls))
    qzhost::raise("cannotCreateClass");
  return newArray(cls, normalise(dims.begin(), dims.end()), cx == ndCOMPLEX, qzhost::DimForm::Full, zero,
                  Creator::Library);
}
}  // namespace

ArrayHandle do_create_numeric(cppcompat::detail::span::span<const std::size_t> dims, ndClassID cls,
                              ndComplexity cx) {
  return create(dims, cls, cx, true);
}

ArrayHandle do_create_uninitnumeric(cppcompat::detail::span::span<const std::size_t> dims, ndClassID cls,
                                    ndComplexity cx) {
  return create(dims, cls, cx, false);
}

}  // namespace detail
}  // namespace matrix

// ---- Host-side helpers ----------------------------------------------------------

namespace qzhost {

std::size_t elementSize(ndClassID cls) {
  switch (cls) {
    case ndclass::Logical:
    case ndclass::Int8:
    case ndclass::UInt8: return 1;
    case ndclass::Char:
    case ndclass::Int16:
    case ndclass::UInt16: return 2;
    case ndclass::Single:
    case ndclass::Int32:
    case ndclass::UInt32: return 4;
    case ndclass::Double:
    case ndclass::Int64:
    case ndclass::UInt64: return 8;
    default: return 0;
  }
}

char const* className(ndClassID cls) {
  switch (cls) {
    case ndclass::Cell: return "cell";
    case ndclass::Struct: return "struct";
    case ndclass::Logical: return "logical";
    case ndclass::Char: return "char";
    case ndclass::Double: return "double";
    case ndclass::Single: return "single";
    case ndclass::Int8: return "int8";
    case ndclass::UInt8: return "uint8";
    case ndclass::Int16: return "int16";
    case ndclass::UInt16: return "uint16";
    case ndclass::Int32: return "int32";
    case ndclass::UInt32: return "uint32";
    case ndclass::Int64: return "int64";
    case ndclass::UInt64: return "uint64";
    default: return "unknown";
  }
}

ArrayPtr makeArray(ArrayDesc const& desc) {
  return newArray(desc.cls, normalise(desc.dims.data(), desc.dims.data() + desc.dims.size()), desc.complex,
                  desc.form, true);
}

ArrayPtr wrapData(ArrayDesc const& desc, void* data, void (*release)(void*), void* context) {
  auto dims = normalise(desc.dims.data(), desc.dims.data() + desc.dims.size());
  if (desc.form == DimForm::Compact && dims.size() != 2) raise("badCompactForm");
  ArrayPtr a = newArray(desc.cls, {0, 0}, desc.complex, DimForm::Full, false);
  auto& s = ArrayAccess::of(a.get());
  if (dataBytes(dims, desc.cls, desc.complex) == 0) data = nullptr;
  switch (desc.form) {
    case DimForm::Full: s.dims = std::move(dims); break;
    case DimForm::Compact:
      s.dims.clear();
      s.compact[0] = dims[0];
      s.compact[1] = dims[1];
      s.flags.fetch_or(Flag::Compact);
      break;
    case DimForm::Lazy:
      s.dims.clear();
      s.pendingDims = std::move(dims);
      s.flags.fetch_or(Flag::Lazy);
      break;
  }
  s.data = data;
  s.release = release;
  s.releaseContext = context;
  return a;
}

ArrayPtr makeSparse(std::size_t m, std::size_t n, std::vector<std::size_t> const& jc,
                    std::vector<std::size_t> const& ir, std::vector<double> const& values, bool complex) {
  std::size_t nnz = jc.size() == n + 1 ? jc[n] : 0;
  if (jc.size() != n + 1 || jc[0] != 0 || ir.size() != nnz || values.size() != nnz * (complex ? 2 : 1))
    raise("badSparseLayout");
  for (std::size_t j = 0; j < n; ++j)
    if (jc[j] > jc[j + 1]) raise("badSparseLayout");
  for (std::size_t r : ir)
    if (r >= m) raise("badSparseLayout");
  // Made empty, then given its dimensions: a sparse array stores nnz values,
  // not M*N.
  ArrayPtr a = newArray(ndclass::Double, {0, 0}, complex, DimForm::Full, false);
  auto& s = ArrayAccess::of(a.get());
  s.dims = {m, n};
  s.data = allocateData(values.size() * sizeof(double), false);
  if (!values.empty()) std::memcpy(s.data, values.data(), values.size() * sizeof(double));
  s.jc = static_cast<std::size_t*>(allocateData(jc.size() * sizeof(std::size_t), false));
  std::memcpy(s.jc, jc.data(), jc.size() * sizeof(std::size_t));
  if (nnz) {
    s.ir = static_cast<std::size_t*>(allocateData(nnz * sizeof(std::size_t), false));
    std::memcpy(s.ir, ir.data(), nnz * sizeof(std::size_t));
  }
  s.nzmax = nnz;
  s.flags.fetch_or(Flag::Sparse);
  return a;
}

void share(ndArray_tag* a) { ArrayAccess::of(a).refCount.fetch_add(1); }

std::size_t referenceCount(ndArray_tag const* a) { return ArrayAccess::of(a).refCount.load(); }

std::size_t nonTrivialClassQueries(ndArray_tag const* a) { return ArrayAccess::of(a).nonTrivialQueries.load(); }

std::size_t liveArrays() { return detail::gLiveArrays.load(); }

}  // namespace qzhost
