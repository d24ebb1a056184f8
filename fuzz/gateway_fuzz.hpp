#pragma once
// What the six gateway fuzz targets share: arrays of every kind a host can
// hand a built-in, drawn from the fuzz input; the call through the host's
// call path, optionally with one of its allocations failing; and the checks
// every call must pass.  A call ends either with its outputs in their slots
// or with a host error whose identifier is one of the built-in's own catalog
// (or the host's own out-of-memory and too-large errors), leaves no block,
// array or interface misuse behind, and issues only its own warnings.
// Anything else stops the fuzzer with a trap.
//
// The input is read through FuzzedDataProvider: choices (counts, classes,
// shapes, flags) from the end of the input, element data from the front.
// fuzz/make_seeds.py writes seeds in the same order; keep the two in step.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qzfuzz {

// The class codes a draw picks from: every code the host distinguishes
// (cells, structures, logical, char, the ten numeric classes) and a few it
// does not (unused codes and host-defined classes above 16).
extern std::vector<ndClassID> const kClassCodes;

// Constraints a target puts on one drawn array.  Unset fields are fuzzed.
struct Shape {
  std::vector<ndClassID> classes;   // drawn from these; empty: from kClassCodes
  std::size_t rank = 0;             // entries of the dimension vector; 0: drawn from 0..kMaxRank
  std::size_t last = 0;             // the last extent when nonzero
  std::vector<std::size_t> dims;    // when not empty, exactly these (rank and last ignored)
  bool real = false;                // never complex
  bool full = false;                // never sparse
  std::size_t maxExtent = 6;        // every drawn extent is in 0..maxExtent
};

// A double scalar argument: 1-by-1, or empty as 0-by-1.
inline Shape doubleScalar() {
  Shape s;
  s.classes = {ndclass::Double};
  s.rank = 2;
  s.last = 1;
  s.maxExtent = 1;
  return s;
}

// At most this many entries in a drawn dimension vector: enough for the
// built-ins' "at most three" and "exactly two" checks to fail.
inline constexpr std::size_t kMaxRank = 4;

// Element bytes one array takes from the input at most.
inline constexpr std::size_t kMaxDrawnBytes = 1024;

// The allocation a call may be made to fail is one of its first this many
// (every built-in takes fewer).
inline constexpr std::size_t kMaxFailAt = 12;

// The arrays of one call and every reference the target holds to them.
class Call {
 public:
  explicit Call(FuzzedDataProvider& fdp) : fdp_(fdp) {}

  // Draws an array under `shape` and appends it as the next input.
  ndArray_tag* add(Shape const& shape);
  // Draws the next input: a reuse of an earlier input (the same array twice
  // in one call), an argument of the form `conforming` describes, or any
  // array with extents up to anyExtent.
  ndArray_tag* addFor(Shape const& conforming, std::size_t anyExtent);

  // Gives `a` one more holder, kept by the target until the end.
  void shareAndKeep(ndArray_tag* a);

  // The dimensions input `a` was drawn with, as the host keeps them.  A
  // target measures inputs through this rather than the array, since
  // completing a lazily held array itself would spare the built-in its own
  // completion.
  std::vector<std::size_t> const& drawnDims(ndArray_tag const* a) const;
  static std::size_t count(std::vector<std::size_t> const& dims);

  // Output slots for numOutputs (at least one), each empty, holding an
  // array of its own, or holding a shared reference to an input, as drawn.
  void prepareSlots(int numOutputs);

  std::vector<ndArray_tag const*>& inputs() { return inputs_; }
  std::vector<ndArray_tag const*> const& inputs() const { return inputs_; }
  std::vector<qzhost::ArrayPtr>& slots() { return slots_; }
  FuzzedDataProvider& fdp() { return fdp_; }

  // Releases every slot and every array; the ledger checks what is left.
  void release();

 private:
  qzhost::ArrayPtr draw(Shape const& shape, std::vector<std::size_t>& dims);
  void fill(void* data, std::size_t bytes);

  FuzzedDataProvider& fdp_;
  std::vector<qzhost::ArrayPtr> owned_;  // one entry per reference held
  std::vector<ndArray_tag const*> inputs_;
  std::vector<qzhost::ArrayPtr> slots_;
  std::map<ndArray_tag const*, std::vector<std::size_t>> drawnDims_;
};

// Counts of live blocks, live arrays and interface misuses when an input
// starts; verify() traps if the input ended with different counts.
class Ledger {
 public:
  Ledger();
  void verify(char const* builtin) const;

 private:
  std::size_t blocks_, arrays_, violations_;
};

struct Outcome {
  bool ok = false;
  std::string identifier;  // of the host error when !ok
};

// Calls fn through qzhost::call, with one of its allocations made to fail
// when the input says so, and checks the outcome: success must leave
// outputs[0] filled, an error must carry an identifier of `catalog` with a
// catalog text, or one of the host's own "qzhost:outOfMemory",
// "qzhost:arrayTooLarge" or one listed in alsoAllowed.  Every warning must
// belong to `catalog`.
// The gateway may write outputs[0 .. writable-1] only; slots past those
// must come back as they went in.
Outcome invoke(char const* builtin, qzhost::Gateway fn, char const* catalog, int numOutputs, int numInputs,
               Call& call, std::size_t writable = 1, std::vector<std::string> const& alsoAllowed = {});

// The frame of one fuzz input: `body` draws the arguments from fdp into
// call and makes the call; afterwards every array is released and the
// ledger checks that nothing was left behind.
template <class Body>
int runInput(char const* builtin, std::uint8_t const* data, std::size_t size, Body body) {
  Ledger const ledger;
  {
    FuzzedDataProvider fdp(data, size);
    Call call(fdp);
    body(fdp, call);
    call.release();
  }
  ledger.verify(builtin);
  return 0;
}

// The whole of one input for rgb2gray or rgb2hsv.  Both take one real, full
// M-by-N-by-3 array on trust (anything else is outside their contract and
// undefined; the hosts refuse it before calling), so the input is drawn of
// that form, and the class, the storage form, M, N, the data, the number of
// outputs and what the slots hold are fuzzed.  `check` examines a success.
int fuzzRgbInput(char const* builtin, qzhost::Gateway fn, std::uint8_t const* data, std::size_t size,
                 std::vector<std::string> const& alsoAllowed, void (*check)(Call&));

// Stops the fuzzer with a message: the input is a finding.
[[noreturn]] void fail(char const* builtin, std::string const& what);

// A fuzzed count of outputs or inputs, mostly near the built-in's own.
int drawCount(FuzzedDataProvider& fdp, int low, int high);

}  // namespace qzfuzz
