// The host's call path: errors become one host error type, scratch memory
// of a failed call is reclaimed, slots keep what was placed in them, and
// warnings reach the calling host.

#include <atomic>
#include <thread>

#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "qztest.hpp"

namespace {

using qztest::HostTest;
namespace cq = ORRERY::images::cq;

// Test gateways that behave as a failing built-in would.
void takesScratchThenRaises(int, qzhost::ArrayPtr*, int, ndArray_tag const**) {
  ndMalloc(64);
  ndCalloc(4, 4);
  ndErrMsgId(cq::twoInputsRequired());
}

void placesOutputThenRaises(int, qzhost::ArrayPtr* outputs, int, ndArray_tag const**) {
  outputs[0] = matrix::detail::do_create_numeric(std::vector<std::size_t>{2, 2}, ndclass::UInt8, ndREAL);
  ndMalloc(16);
  ndErrMsgId(cq::tooManyColors());
}

void createsTooLarge(int, qzhost::ArrayPtr* outputs, int, ndArray_tag const**) {
  void* p = ndMalloc(8);
  std::size_t huge = std::size_t{1} << 40;
  outputs[0] = matrix::detail::do_create_numeric(std::vector<std::size_t>{huge, huge}, ndclass::Double, ndREAL);
  ndFree(p);
}

void throwsBadAlloc(int, qzhost::ArrayPtr*, int, ndArray_tag const**) {
  ndMalloc(8);
  throw std::bad_alloc();
}

void freesItsScratch(int, qzhost::ArrayPtr* outputs, int numInputs, ndArray_tag const** inputs) {
  void* p = ndMalloc(32);
  outputs[0] = matrix::detail::do_create_numeric(std::vector<std::size_t>{1, 1}, ndclass::Double, ndREAL);
  qzhost::dataOf<double>(outputs[0].get())[0] = numInputs > 0 ? ndGetScalar(inputs[0]) : -1.0;
  ndFree(p);
}

void warnsTwice(int, qzhost::ArrayPtr* outputs, int, ndArray_tag const**) {
  ndWarningMsgId(ORRERY::images::grayto8::ignoringImaginaryPartOfInput());
  ndWarningMsgId(ORRERY::images::grayto8::ignoringImaginaryPartOfInput());
  outputs[0] = matrix::detail::do_create_numeric(std::vector<std::size_t>{0, 0}, ndclass::UInt8, ndREAL);
}

using CallTest = HostTest;

TEST_F(CallTest, FailedCallReclaimsItsScratchAndReportsTheIdentifierAndText) {
  std::vector<qzhost::ArrayPtr> out(1);
  try {
    qzhost::call(takesScratchThenRaises, 1, out.data(), 0, nullptr);
    FAIL() << "no error";
  } catch (qzhost::HostError const& e) {
    EXPECT_EQ(e.identifier(), "ORRERY:images:cq:twoInputsRequired");
    EXPECT_EQ(e.message(), qzhost::messageText("ORRERY:images:cq", "twoInputsRequired"));
    EXPECT_FALSE(e.message().empty());
    EXPECT_EQ(std::string(e.what()), e.identifier() + ": " + e.message());
  }
  EXPECT_EQ(out[0], nullptr);
}

TEST_F(CallTest, AnOutputPlacedBeforeTheErrorStaysInItsSlot) {
  std::vector<qzhost::ArrayPtr> out(1);
  EXPECT_QZ_ERROR(qzhost::call(placesOutputThenRaises, 1, out.data(), 0, nullptr), "ORRERY:images:cq:tooManyColors");
  ASSERT_NE(out[0], nullptr);
  EXPECT_EQ(ndGetClassID(out[0].get()), ndclass::UInt8);
}

TEST_F(CallTest, HostFailuresInsideABuiltInAreReclaimedToo) {
  std::vector<qzhost::ArrayPtr> out(1);
  EXPECT_QZ_ERROR(qzhost::call(createsTooLarge, 1, out.data(), 0, nullptr), "qzhost:arrayTooLarge");
  EXPECT_QZ_ERROR(qzhost::call(throwsBadAlloc, 1, out.data(), 0, nullptr), "qzhost:outOfMemory");
}

TEST_F(CallTest, ErrorsStillLeaveWhenTheHostErrorCallReturns) {
  qzhost::setLegacyErrorReturns(true);
  std::vector<qzhost::ArrayPtr> out(1);
  std::string id = qztest::errorOf([&] { qzhost::call(takesScratchThenRaises, 1, out.data(), 0, nullptr); });
  qzhost::setLegacyErrorReturns(false);
  EXPECT_EQ(id, "ORRERY:images:cq:twoInputsRequired");
}

TEST_F(CallTest, ANormalCallKeepsOnlyItsOutputs) {
  auto in = qztest::makeFrom<double>({1, 1}, {4.5});
  auto out = qztest::call(freesItsScratch, 0, {in.get()});
  ASSERT_NE(out[0], nullptr);
  EXPECT_EQ(qzhost::dataOf<double>(out[0].get())[0], 4.5);
  EXPECT_EQ(out[1], nullptr);
}

TEST_F(CallTest, ConcurrentFailuresReclaimOnlyTheirOwnBlocks) {
  // One thread keeps a block taken in a successful call while another fails
  // repeatedly; the failing calls must not free the survivor's block.
  std::atomic<bool> stop{false};
  std::atomic<void*> survivor{nullptr};  // published by the keeper, polled here
  std::thread keeper([&] {
    void* p = nullptr;
    auto grab = [](int, qzhost::ArrayPtr*, int, ndArray_tag const**) {};
    std::vector<qzhost::ArrayPtr> out(1);
    qzhost::call(grab, 0, out.data(), 0, nullptr);
    p = ndMalloc(128);
    survivor = p;
    while (!stop.load()) std::this_thread::yield();
  });
  while (survivor == nullptr) std::this_thread::yield();
  std::size_t blocks = qzhost::liveBlocks();
  for (int i = 0; i < 50; ++i) {
    std::vector<qzhost::ArrayPtr> out(1);
    EXPECT_QZ_ERROR(qzhost::call(takesScratchThenRaises, 1, out.data(), 0, nullptr),
                    "ORRERY:images:cq:twoInputsRequired");
  }
  EXPECT_EQ(qzhost::liveBlocks(), blocks);
  stop = true;
  keeper.join();
  ndFree(survivor.load());
}

TEST_F(CallTest, WarningsAreRecordedForTheCallingHostAndEchoedUnlessSilenced) {
  qzhost::takeWarnings();
  testing::internal::CaptureStderr();
  qztest::call(warnsTwice, 1, {});
  std::string echoed = testing::internal::GetCapturedStderr();
  auto text = qzhost::messageText("ORRERY:images:grayto8", "ignoringImaginaryPartOfInput");
  EXPECT_EQ(echoed, "Warning: " + text + "\nWarning: " + text + "\n");
  auto w = qzhost::takeWarnings();
  ASSERT_EQ(w.size(), 2u);
  EXPECT_EQ(w[0].identifier, "ORRERY:images:grayto8:ignoringImaginaryPartOfInput");
  EXPECT_EQ(w[0].text, text);
  EXPECT_TRUE(qzhost::takeWarnings().empty());  // taking clears

  qzhost::setWarningEcho(false);
  testing::internal::CaptureStderr();
  qztest::call(warnsTwice, 1, {});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  qzhost::setWarningEcho(true);
  EXPECT_EQ(qzhost::takeWarnings().size(), 2u);
}

TEST_F(CallTest, WarningsOfOtherThreadsStayWithThem) {
  qzhost::setWarningEcho(false);
  qzhost::takeWarnings();
  std::thread t([] { qztest::call(warnsTwice, 1, {}); });
  t.join();
  qzhost::setWarningEcho(true);
  EXPECT_TRUE(qzhost::takeWarnings().empty());
}

}  // namespace
