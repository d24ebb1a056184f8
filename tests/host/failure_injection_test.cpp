// The host's failure injection and its size limits: which requests count,
// that the armed one fails exactly as a real shortage does and alone, that
// each thread has its own hook, and that oversize requests are refused
// before anything reaches the allocator.

#include <cstdint>
#include <functional>
#include <thread>

#include "qztest.hpp"

namespace {

using qztest::HostTest;
using Create = matrix::detail::ArrayHandle (*)(cppcompat::detail::span::span<const std::size_t>, ndClassID,
                                                ndComplexity);

// One request of each kind the hook counts; each gives back what it took.
struct Request {
  char const* what;
  std::function<void()> run;
};

std::vector<Request> countedRequests() {
  return {
      {"ndMalloc", [] { ndFree(ndMalloc(24)); }},
      {"ndMalloc of zero bytes", [] { ndFree(ndMalloc(0)); }},
      {"ndCalloc", [] { ndFree(ndCalloc(3, 8)); }},
      {"do_create_numeric",
       [] { matrix::detail::do_create_numeric(std::vector<std::size_t>{2, 3}, ndclass::Double, ndREAL); }},
      {"do_create_uninitnumeric",
       [] { matrix::detail::do_create_uninitnumeric(std::vector<std::size_t>{2, 3}, ndclass::UInt8, ndCOMPLEX); }},
      // An empty array still takes its header.
      {"empty creation",
       [] { matrix::detail::do_create_numeric(std::vector<std::size_t>{0, 3}, ndclass::Single, ndREAL); }},
  };
}

class FailureInjectionTest : public HostTest {
 protected:
  void TearDown() override {
    qzhost::disarmAllocationFailure();
    HostTest::TearDown();
  }
};

TEST_F(FailureInjectionTest, EachRequestKindFailsWhenArmedAndOnlyTheArmedOne) {
  for (auto const& r : countedRequests()) {
    std::size_t blocks = qzhost::liveBlocks(), arrays = qzhost::liveArrays();
    qzhost::armAllocationFailure(2);
    EXPECT_QZ_ERROR(r.run(), "") << r.what << ": the first request";
    try {
      r.run();
      ADD_FAILURE() << r.what << ": the armed request did not fail";
    } catch (qzhost::HostError const& e) {
      EXPECT_EQ(e.identifier(), "qzhost:outOfMemory") << r.what;
      EXPECT_EQ(e.message(), qzhost::messageText("qzhost", "outOfMemory")) << r.what;
    }
    EXPECT_QZ_ERROR(r.run(), "") << r.what << ": the request after the armed one";
    EXPECT_EQ(qzhost::allocationsCounted(), 3u) << r.what;
    qzhost::disarmAllocationFailure();
    EXPECT_EQ(qzhost::liveBlocks(), blocks) << r.what << ": a failed request left a block";
    EXPECT_EQ(qzhost::liveArrays(), arrays) << r.what << ": a failed request left an array";
  }
}

TEST_F(FailureInjectionTest, CountsOnlyTheLibrarysRequestsOnThisThreadWhileArmed) {
  for (auto const& r : countedRequests()) r.run();  // before arming: not counted
  qzhost::armAllocationFailure(0);
  for (auto const& r : countedRequests()) r.run();
  // Arrays the host makes for itself are not the library's creations.
  qzhost::makeArray(ndclass::Double, {4, 4});
  qzhost::wrapData({ndclass::Double, {0, 0}}, nullptr, nullptr, nullptr);
  std::thread other([] {
    for (auto const& r : countedRequests()) r.run();
  });
  other.join();
  EXPECT_EQ(qzhost::allocationsCounted(), countedRequests().size());
  qzhost::disarmAllocationFailure();
  countedRequests().front().run();
  EXPECT_EQ(qzhost::allocationsCounted(), countedRequests().size()) << "the count stays readable after disarming";
  qzhost::armAllocationFailure(0);
  EXPECT_EQ(qzhost::allocationsCounted(), 0u) << "arming starts a new count";
}

TEST_F(FailureInjectionTest, ThreadsHaveHooksOfTheirOwn) {
  // Each thread arms a different request and makes the same ten; each must
  // see its own failure and count, whatever the others do at the same time.
  constexpr int kThreads = 4;
  std::vector<std::size_t> failedAt(kThreads, 0), counted(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, &failedAt, &counted] {
      qzhost::armAllocationFailure(static_cast<std::size_t>(t) * 3);  // thread 0 only counts
      for (std::size_t i = 1; i <= 10; ++i) {
        try {
          ndFree(ndMalloc(16));
        } catch (qzhost::HostError const&) {
          failedAt[t] = i;
        }
      }
      counted[t] = qzhost::allocationsCounted();
      qzhost::disarmAllocationFailure();
    });
  for (auto& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(failedAt[t], static_cast<std::size_t>(t) * 3) << "thread " << t;
    EXPECT_EQ(counted[t], 10u) << "thread " << t;
  }
}

constexpr std::size_t pow2(int k) { return std::size_t{1} << k; }
constexpr std::size_t kMaxObject = static_cast<std::size_t>(PTRDIFF_MAX);

// A creation through one of the library's two create operations.
std::function<void()> creation(Create fn, std::vector<std::size_t> dims, ndClassID cls, ndComplexity cx) {
  return [=] { fn(dims, cls, cx); };
}
Create const zeroed = matrix::detail::do_create_numeric;
Create const uninit = matrix::detail::do_create_uninitnumeric;

// Requests whose size cannot be met are refused by a check before the
// allocator, so an armed hook never sees them: the count stays 0 and the
// identifier is the size refusal's, not the injected shortage.
TEST_F(FailureInjectionTest, OversizeRequestsAreRefusedBeforeReachingTheAllocator) {
  struct Row {
    char const* what;
    std::function<void()> run;
    char const* id;
  } const rows[] = {
      {"2^40 by 2^40 elements", creation(zeroed, {pow2(40), pow2(40)}, ndclass::UInt8, ndREAL),
       "qzhost:arrayTooLarge"},
      {"2^62 doubles: the class size overflows", creation(uninit, {pow2(62), 1}, ndclass::Double, ndREAL),
       "qzhost:arrayTooLarge"},
      {"2^61 complex doubles", creation(zeroed, {pow2(31), pow2(30)}, ndclass::Double, ndCOMPLEX),
       "qzhost:arrayTooLarge"},
      {"2^63 complex int8: the pair overflows", creation(uninit, {pow2(32), pow2(31)}, ndclass::Int8, ndCOMPLEX),
       "qzhost:arrayTooLarge"},
      {"2^63 bytes: past the largest object",
       creation(zeroed, {pow2(21), pow2(21), pow2(21)}, ndclass::Logical, ndREAL),
       "qzhost:arrayTooLarge"},
      {"2^62 int16 values: past the largest object", creation(uninit, {pow2(62)}, ndclass::Int16, ndREAL),
       "qzhost:arrayTooLarge"},
      {"ndMalloc past the largest object", [] { ndMalloc(kMaxObject + 1); }, "qzhost:outOfMemory"},
      {"ndMalloc of all but 64 bytes of the address space", [] { ndMalloc(~std::size_t{0} - 64); },
       "qzhost:outOfMemory"},
      {"ndCalloc whose product wraps", [] { ndCalloc(pow2(40), pow2(40)); }, "qzhost:outOfMemory"},
      {"ndCalloc whose product wraps to a small size", [] { ndCalloc(pow2(63) + 1, 2); }, "qzhost:outOfMemory"},
      {"ndCalloc past the largest object", [] { ndCalloc(pow2(62), 2); }, "qzhost:outOfMemory"},
  };
  for (auto const& r : rows) {
    qzhost::armAllocationFailure(1);
    EXPECT_QZ_ERROR(r.run(), r.id) << r.what;
    EXPECT_EQ(qzhost::allocationsCounted(), 0u) << r.what;
    qzhost::disarmAllocationFailure();
  }
}

TEST_F(FailureInjectionTest, SizesUpToTheLargestObjectGoOnToTheAllocator) {
  // Up to PTRDIFF_MAX bytes a request passes the size checks and counts;
  // the armed hook fails it in place of the system allocator, so nothing
  // that large is really asked for.
  struct Row {
    char const* what;
    std::function<void()> run;
  } const rows[] = {
      {"2^59 doubles", creation(uninit, {pow2(59), 1}, ndclass::Double, ndREAL)},
      {"2^58 complex doubles", creation(zeroed, {pow2(29), pow2(29)}, ndclass::Double, ndCOMPLEX)},
      {"ndMalloc of the largest object", [] { ndMalloc(kMaxObject); }},
      {"ndCalloc of the largest object", [] { ndCalloc(kMaxObject / 8, 8); }},
  };
  for (auto const& r : rows) {
    qzhost::armAllocationFailure(1);
    EXPECT_QZ_ERROR(r.run(), "qzhost:outOfMemory") << r.what;
    EXPECT_EQ(qzhost::allocationsCounted(), 1u) << r.what;
    qzhost::disarmAllocationFailure();
  }
}

TEST_F(FailureInjectionTest, AnInjectedFailureInsideACallIsReclaimedLikeARealOne) {
  // Takes two blocks and an output, then a third block: failing each in
  // turn must leave nothing behind but what the slot owns.
  auto gateway = [](int, qzhost::ArrayPtr* outputs, int, ndArray_tag const**) {
    void* a = ndMalloc(32);
    void* b = ndCalloc(4, 4);
    outputs[0] = matrix::detail::do_create_numeric(std::vector<std::size_t>{2, 2}, ndclass::Double, ndREAL);
    void* c = ndMalloc(8);
    ndFree(c);
    ndFree(b);
    ndFree(a);
  };
  for (std::size_t n = 1; n <= 4; ++n) {
    std::size_t blocks = qzhost::liveBlocks(), arrays = qzhost::liveArrays();
    std::vector<qzhost::ArrayPtr> out(1);
    qzhost::armAllocationFailure(n);
    EXPECT_QZ_ERROR(qzhost::call(gateway, 1, out.data(), 0, nullptr), "qzhost:outOfMemory") << "request " << n;
    qzhost::disarmAllocationFailure();
    EXPECT_EQ(qzhost::liveBlocks(), blocks) << "request " << n;
    EXPECT_EQ(out[0] != nullptr, n == 4) << "request " << n;
    out.clear();
    EXPECT_EQ(qzhost::liveArrays(), arrays) << "request " << n;
  }
}

}  // namespace
