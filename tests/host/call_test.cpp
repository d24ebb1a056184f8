// The host allocator and call path: size checks that come before the
// allocator, and every failure of a call becoming one host error type with
// only that call's scratch reclaimed.

#include <cstdint>
#include <functional>
#include <tuple>

#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "qztest.hpp"

using Dims = std::vector<std::size_t>;
using In = ndArray_tag const**;
using CallTest = qztest::HostTest;

// A request no object can satisfy is refused before the allocator, so an
// armed hook never sees it (count 0); up to the largest object it goes on
// and meets the hook (count 1).
TEST_F(CallTest, SizeChecksComeBeforeTheAllocator) {
  constexpr std::size_t kMax = PTRDIFF_MAX, k40 = std::size_t{1} << 40, k62 = std::size_t{1} << 62;
  using matrix::detail::do_create_uninitnumeric;
  std::tuple<std::function<void()>, char const*, std::size_t> const rows[] = {
      {[] { do_create_uninitnumeric(Dims{k40, k40}, ndclass::UInt8, ndREAL); }, "qzhost:arrayTooLarge", 0},
      {[] { do_create_uninitnumeric(Dims{k62}, ndclass::Double, ndREAL); }, "qzhost:arrayTooLarge", 0},
      {[] { do_create_uninitnumeric(Dims{k62}, ndclass::Int8, ndCOMPLEX); }, "qzhost:arrayTooLarge", 0},
      {[] { do_create_uninitnumeric(Dims{k62}, ndclass::Int16, ndREAL); }, "qzhost:arrayTooLarge", 0},  // 2^63 bytes
      {[] { do_create_uninitnumeric(Dims{kMax}, ndclass::UInt8, ndREAL); }, "qzhost:outOfMemory", 1},
      {[] { do_create_uninitnumeric(Dims{k40, k40, 0}, ndclass::Double, ndREAL); }, "qzhost:outOfMemory", 1},
      {[] { ndMalloc(kMax + 1); }, "qzhost:outOfMemory", 0},
      {[] { ndMalloc(kMax); }, "qzhost:outOfMemory", 1},
      {[] { ndCalloc((std::size_t{1} << 63) + 1, 2); }, "qzhost:outOfMemory", 0},  // wraps to 2 bytes
      {[] { ndCalloc(k62, 2); }, "qzhost:outOfMemory", 0},
      {[] { ndCalloc(kMax / 8, 8); }, "qzhost:outOfMemory", 1},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    qzhost::armAllocationFailure(1);
    EXPECT_QZ_ERROR(std::get<0>(rows[i])(), std::get<1>(rows[i])) << "row " << i;
    EXPECT_EQ(qzhost::allocationsCounted(), std::get<2>(rows[i])) << "row " << i;
    qzhost::disarmAllocationFailure();
  }
}

TEST_F(CallTest, FailuresBecomeHostErrorsAndOnlyTheirScratchIsReclaimed) {
  namespace cq = ORRERY::images::cq;
  std::pair<qzhost::Gateway, std::string> const rows[] = {
      {[](int, qzhost::ArrayPtr*, int, In) { ndMalloc(64), ndCalloc(4, 4), ndErrMsgId(cq::twoInputsRequired()); },
       "ORRERY:images:cq:twoInputsRequired"},
      {[](int, qzhost::ArrayPtr*, int, In) { ndMalloc(8), throw std::bad_alloc(); }, "qzhost:outOfMemory"},
      {[](int, qzhost::ArrayPtr*, int, In) { ndMalloc(8), throw std::logic_error("x"); }, "qzhost:internalError"},
      // The host's error call returns: the library leaves with its own exception.
      {[](int, qzhost::ArrayPtr*, int, In) { qzhost::setLegacyErrorReturns(true), ndErrMsgId(cq::tooManyColors()); },
       "ORRERY:images:cq:tooManyColors"},
  };
  void* kept = ndMalloc(16);  // taken outside any call: no failed call may free it
  std::size_t const blocks = qzhost::liveBlocks();
  for (auto const& [fn, id] : rows) {
    qzhost::ArrayPtr out;
    EXPECT_QZ_ERROR(qzhost::call(fn, 1, &out, 0, nullptr), id);
    qzhost::setLegacyErrorReturns(false);
    EXPECT_EQ(qzhost::liveBlocks(), blocks) << id;
  }
  ndFree(kept);
}
