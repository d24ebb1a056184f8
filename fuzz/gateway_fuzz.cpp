#include "gateway_fuzz.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qzfuzz {

// Double first: an exhausted input draws it.
std::vector<ndClassID> const kClassCodes = {
    ndclass::Double, ndclass::Single, ndclass::Int8,  ndclass::UInt8,  ndclass::Int16,  ndclass::UInt16,
    ndclass::Int32,  ndclass::UInt32, ndclass::Int64, ndclass::UInt64, ndclass::Logical, ndclass::Char,
    ndclass::Cell,   ndclass::Struct, 0,              5,               16,              17,
    40,              -2,
};

namespace {

bool verbose() {
  static bool const on = std::getenv("QZFUZZ_VERBOSE") != nullptr;
  return on;
}

// The dimension vector as the host will keep it, to size the data.
std::vector<std::size_t> normalised(std::vector<std::size_t> d) {
  while (d.size() < 2) d.push_back(1);
  while (d.size() > 2 && d.back() == 1) d.pop_back();
  return d;
}

std::size_t storageOf(ndClassID cls) {
  std::size_t s = qzhost::elementSize(cls);
  return s ? s : 8;  // cells, structures and host classes: one 8-byte handle each
}

}  // namespace

void fail(char const* builtin, std::string const& what) {
  std::fprintf(stderr, "qzfuzz: %s: %s\n", builtin, what.c_str());
  std::fflush(stderr);
  __builtin_trap();
}

int drawCount(FuzzedDataProvider& fdp, int low, int high) { return fdp.ConsumeIntegralInRange<int>(low, high); }

// Choices, in the order they are taken from the end of the input: class
// (unless one is allowed), complex (unless real), sparse (unless full), rank
// (unless fixed), the extents, the storage form.  Then from the front: the
// element data, or for a sparse array one row mask byte per column (from the
// end) and the stored values (from the front); see fill().
qzhost::ArrayPtr Call::draw(Shape const& s, std::vector<std::size_t>& kept) {
  ndClassID cls;
  if (s.classes.size() == 1)
    cls = s.classes[0];
  else if (!s.classes.empty())
    cls = s.classes[fdp_.ConsumeIntegralInRange<std::size_t>(0, s.classes.size() - 1)];
  else
    cls = kClassCodes[fdp_.ConsumeIntegralInRange<std::size_t>(0, kClassCodes.size() - 1)];
  bool const complex = !s.real && fdp_.ConsumeBool();
  bool const sparse = !s.full && fdp_.ConsumeBool();
  std::vector<std::size_t> dims = s.dims;
  if (dims.empty()) {
    std::size_t const rank = s.rank ? s.rank : fdp_.ConsumeIntegralInRange<std::size_t>(0, kMaxRank);
    dims.resize(rank);
    for (std::size_t k = 0; k < rank; ++k)
      dims[k] = s.last && k + 1 == rank ? s.last : fdp_.ConsumeIntegralInRange<std::size_t>(0, s.maxExtent);
  }
  auto const form = static_cast<qzhost::DimForm>(fdp_.ConsumeIntegralInRange<int>(0, 2));
  std::vector<std::size_t> const norm = normalised(dims);

  // The host makes sparse arrays of class double only, two-dimensional.
  if (sparse && cls == ndclass::Double && norm.size() == 2) {
    std::size_t const m = std::min<std::size_t>(norm[0], 8), n = norm[1];
    std::vector<std::size_t> jc{0}, ir;
    for (std::size_t j = 0; j < n; ++j) {
      std::uint8_t const mask = fdp_.ConsumeIntegral<std::uint8_t>();
      for (std::size_t r = 0; r < m; ++r)
        if (mask >> r & 1) ir.push_back(r);
      jc.push_back(ir.size());
    }
    std::vector<double> values(ir.size() * (complex ? 2 : 1));
    fill(values.data(), values.size() * sizeof(double));
    kept = {m, n};
    return qzhost::makeSparse(m, n, jc, ir, values, complex);
  }

  qzhost::DimForm const f = form == qzhost::DimForm::Compact && norm.size() != 2 ? qzhost::DimForm::Full : form;
  qzhost::ArrayPtr a = qzhost::makeArray(cls, dims, complex, f);
  kept = norm;
  std::size_t const bytes = count(norm) * storageOf(cls) * (complex ? 2 : 1);
  if (bytes) {
    auto* p = static_cast<std::uint8_t*>(ndGetData(a.get()));
    fill(p, bytes);
    // A host's logical arrays hold 0 and 1 only.
    if (cls == ndclass::Logical)
      for (std::size_t i = 0; i < bytes; ++i) p[i] = p[i] & 1;
  }
  return a;
}

// At most kMaxDrawnBytes from the front of the input, repeated to the end
// of a larger array: a large array must leave the rest of the input to the
// choices and arrays after it.
void Call::fill(void* data, std::size_t bytes) {
  auto drawn = fdp_.ConsumeBytes<std::uint8_t>(std::min(bytes, kMaxDrawnBytes));
  auto* p = static_cast<std::uint8_t*>(data);
  for (std::size_t at = 0; !drawn.empty() && at < bytes; at += drawn.size())
    std::memcpy(p + at, drawn.data(), std::min(drawn.size(), bytes - at));
}

ndArray_tag* Call::add(Shape const& shape) {
  std::vector<std::size_t> dims;
  owned_.push_back(draw(shape, dims));
  ndArray_tag* a = owned_.back().get();
  drawnDims_[a] = std::move(dims);
  inputs_.push_back(a);
  return a;
}

std::vector<std::size_t> const& Call::drawnDims(ndArray_tag const* a) const { return drawnDims_.at(a); }

std::size_t Call::count(std::vector<std::size_t> const& dims) {
  std::size_t n = 1;
  for (std::size_t d : dims) n *= d;
  return n;
}

void Call::shareAndKeep(ndArray_tag* a) {
  qzhost::share(a);
  owned_.emplace_back(a);
}

// One mode byte per input: bit 0 clear draws a conforming argument, bits
// 1..3 all set give the array a second holder, bits 4..7 all set reuse an
// earlier input instead.  An exhausted input reads 0: conforming, unshared.
ndArray_tag* Call::addFor(Shape const& conforming, std::size_t anyExtent) {
  unsigned const mode = fdp_.ConsumeIntegral<std::uint8_t>();
  if ((mode >> 4) == 15 && !inputs_.empty()) {
    ndArray_tag const* again = inputs_[fdp_.ConsumeIntegralInRange<std::size_t>(0, inputs_.size() - 1)];
    inputs_.push_back(again);
    return const_cast<ndArray_tag*>(again);
  }
  Shape any;
  any.maxExtent = anyExtent;
  ndArray_tag* a = add(mode & 1 ? any : conforming);
  if (((mode >> 1) & 7) == 7) shareAndKeep(a);
  return a;
}

// Per slot: 0 or 1 empty, 2 an array of its own, 3 a shared reference to
// one of the inputs (which the gateway must release, not destroy).
void Call::prepareSlots(int numOutputs) {
  std::size_t const n = static_cast<std::size_t>(std::max(numOutputs, 1));
  slots_.resize(n);
  for (auto& slot : slots_) {
    int const kind = fdp_.ConsumeIntegralInRange<int>(0, 3);
    if (kind == 2) {
      slot = qzhost::makeArray(ndclass::Double, {2, 2});
    } else if (kind == 3 && !inputs_.empty()) {
      auto* a = const_cast<ndArray_tag*>(inputs_[fdp_.ConsumeIntegralInRange<std::size_t>(0, inputs_.size() - 1)]);
      qzhost::share(a);
      slot.reset(a);
    }
  }
}

void Call::release() {
  slots_.clear();
  inputs_.clear();
  drawnDims_.clear();
  owned_.clear();
}

Ledger::Ledger()
    : blocks_(qzhost::liveBlocks()), arrays_(qzhost::liveArrays()), violations_(qzhost::contractViolations()) {}

void Ledger::verify(char const* builtin) const {
  if (qzhost::liveBlocks() != blocks_)
    fail(builtin, "ndMalloc/ndCalloc blocks left alive: " + std::to_string(qzhost::liveBlocks()) + " instead of " +
                      std::to_string(blocks_));
  if (qzhost::liveArrays() != arrays_)
    fail(builtin, "arrays left alive: " + std::to_string(qzhost::liveArrays()) + " instead of " +
                      std::to_string(arrays_));
  if (qzhost::contractViolations() != violations_) fail(builtin, "the array interface was misused");
}

namespace {

// True when id is "catalog:key" for a key the catalog has a text for.
bool inCatalog(std::string const& id, std::string const& catalog) {
  if (id.size() <= catalog.size() + 1 || id.compare(0, catalog.size(), catalog) != 0 || id[catalog.size()] != ':')
    return false;
  return !qzhost::messageText(catalog, id.substr(catalog.size() + 1)).empty();
}

}  // namespace

namespace {

// Arms the host's failure injection for the duration of one call.
class InjectedFailure {
 public:
  explicit InjectedFailure(std::size_t failAt) : failAt_(failAt) {
    if (failAt_) qzhost::armAllocationFailure(failAt_);
  }
  ~InjectedFailure() { disarm(); }
  InjectedFailure(InjectedFailure const&) = delete;
  InjectedFailure& operator=(InjectedFailure const&) = delete;

  // Whether the chosen allocation was reached (and so failed).
  bool fired() {
    disarm();
    return failAt_ && qzhost::allocationsCounted() >= failAt_;
  }

 private:
  void disarm() {
    if (armed_) qzhost::disarmAllocationFailure();
    armed_ = false;
  }
  std::size_t failAt_;
  bool armed_ = failAt_ != 0;
};

}  // namespace

// The last choice of an input: which allocation or array creation of the
// built-in fails as a real shortage of memory would (0: none), so that
// every error path runs under the ledger.
Outcome invoke(char const* builtin, qzhost::Gateway fn, char const* catalog, int numOutputs, int numInputs,
               Call& call, std::size_t writable, std::vector<std::string> const& alsoAllowed) {
  auto& slots = call.slots();
  auto& inputs = call.inputs();
  if (numInputs > static_cast<int>(inputs.size())) fail(builtin, "target bug: fewer inputs drawn than passed");
  std::vector<ndArray_tag const*> before;
  for (auto const& s : slots) before.push_back(s.get());
  std::size_t const failAt = call.fdp().ConsumeIntegralInRange<std::size_t>(0, kMaxFailAt);

  Outcome out;
  qzhost::takeWarnings();
  try {
    InjectedFailure injected(failAt);
    qzhost::call(fn, numOutputs, slots.data(), numInputs, inputs.data());
    if (injected.fired()) fail(builtin, "an allocation failed, yet the call returned normally");
    out.ok = true;
  } catch (qzhost::HostError const& e) {
    out.identifier = e.identifier();
    bool allowed = inCatalog(e.identifier(), catalog) || e.identifier() == "qzhost:outOfMemory" ||
                   e.identifier() == "qzhost:arrayTooLarge" ||
                   std::find(alsoAllowed.begin(), alsoAllowed.end(), e.identifier()) != alsoAllowed.end();
    if (!allowed) fail(builtin, "raised an identifier outside its catalog: " + e.identifier() + ": " + e.message());
  } catch (...) {
    fail(builtin, "an exception other than the host's error left the call");
  }
  for (auto const& w : qzhost::takeWarnings())
    if (!inCatalog(w.identifier, catalog)) fail(builtin, "issued a warning outside its catalog: " + w.identifier);
  for (std::size_t k = writable; k < slots.size(); ++k)
    if (slots[k].get() != before[k]) fail(builtin, "wrote output slot " + std::to_string(k));
  if (out.ok && !slots[0]) fail(builtin, "returned normally without filling outputs[0]");
  if (verbose())
    std::fprintf(stderr, "qzfuzz: %s: %d outputs, %d inputs, allocation %zu fails: %s\n", builtin, numOutputs,
                 numInputs, failAt, out.ok ? "ok" : out.identifier.c_str());
  return out;
}

int fuzzRgbInput(char const* builtin, qzhost::Gateway fn, std::uint8_t const* data, std::size_t size,
                 std::vector<std::string> const& alsoAllowed, void (*check)(Call&)) {
  return runInput(builtin, data, size, [&](FuzzedDataProvider& fdp, Call& call) {
    int const numOutputs = drawCount(fdp, -1, 2);
    Shape rgb;
    rgb.rank = 3;
    rgb.last = 3;
    rgb.real = true;
    rgb.full = true;
    rgb.maxExtent = 8;
    ndArray_tag* in = call.add(rgb);
    if (fdp.ConsumeBool()) call.shareAndKeep(in);
    call.prepareSlots(numOutputs);
    // Neither built-in raises anything of its own (no catalog).
    auto const r = invoke(builtin, fn, "", numOutputs, 1, call, 1, alsoAllowed);
    if (r.ok) check(call);
  });
}

}  // namespace qzfuzz

// Every gateway target: warnings are collected and checked, not printed.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qzhost::setWarningEcho(false);
  return 0;
}
