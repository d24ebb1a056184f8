// How the library raises: message-ID objects, the exception wrapper and
// ndErrMsgId, which must leave the caller whatever the host does.

#include <memory>

#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "qztest.hpp"

namespace {

namespace cq = ORRERY::images::cq;
namespace resize = ORRERY::images::resizeDim;
using Wrapper = foundation::core::except::Exception<cq::tooManyColors, std::exception, void>;

TEST(MessageIdTest, DefaultConstructedIdsCarryCatalogKeyAndNoArguments) {
  resize::notThreeArgs id;
  resource_core::BaseMsgID const& base = id;
  EXPECT_EQ(base.catalog(), "ORRERY:images:resizeDim");
  EXPECT_EQ(base.key(), "notThreeArgs");
  EXPECT_TRUE(base.arguments().empty());
  EXPECT_EQ(foundation::core::except::IMsgIDException::get_error_id(id), "ORRERY:images:resizeDim:notThreeArgs");
}

TEST(MessageIdTest, SharedConstructorValueInitialisesItsArguments) {
  resource_core::BaseMsgID id("ORRERY:images:cq", "tooManyColors", 2);
  ASSERT_EQ(id.arguments().size(), 2u);
  EXPECT_EQ(std::get<long>(id.arguments()[0]), 0L);
  EXPECT_EQ(foundation::core::except::IMsgIDException::get_error_id(id), "ORRERY:images:cq:tooManyColors");
}

TEST(ExceptionWrapperTest, CachesTheIdentifierAndExposesTheIdObject) {
  Wrapper e{cq::tooManyColors()};
  EXPECT_EQ(e.GetID(), "ORRERY:images:cq:tooManyColors");
  EXPECT_EQ(e.GetBaseMsgIDObj().key(), "tooManyColors");
  std::string text = qzhost::messageText("ORRERY:images:cq", "tooManyColors");
  EXPECT_EQ(e.convert_str(e.GetUnicodeMessageTxt()), text);
  EXPECT_EQ(e.convert_str(e.ToUstringImpl()), text);
  EXPECT_EQ(std::string(e.what()), "ORRERY:images:cq:tooManyColors: " + text);
  std::exception const& asStd = e;
  EXPECT_STREQ(asStd.what(), e.what());
}

TEST(ExceptionWrapperTest, CloneAndRethrowKeepTheIdentity) {
  Wrapper e{cq::tooManyColors()};
  std::unique_ptr<foundation::core::except::IException> copy(e.clone());
  auto* asMsg = dynamic_cast<foundation::core::except::IMsgIDException*>(copy.get());
  ASSERT_NE(asMsg, nullptr);
  EXPECT_EQ(asMsg->GetID(), e.GetID());
  try {
    copy->rethrow();
  } catch (Wrapper const& thrown) {
    EXPECT_EQ(thrown.GetID(), "ORRERY:images:cq:tooManyColors");
    return;
  }
  FAIL() << "rethrow did not throw the wrapper";
}

TEST(RaiseTest, TheHostErrorCarriesTheIdentifierAndCatalogText) {
  try {
    ndErrMsgId(resize::sizeMismatch());
  } catch (qzhost::HostError const& e) {
    EXPECT_EQ(e.identifier(), "ORRERY:images:resizeDim:sizeMismatch");
    EXPECT_EQ(e.message(), qzhost::messageText("ORRERY:images:resizeDim", "sizeMismatch"));
    return;
  }
  FAIL() << "ndErrMsgId returned";
}

TEST(RaiseTest, DoesNotReturnEvenWhenTheHostErrorCallReturns) {
  qzhost::setLegacyErrorReturns(true);
  bool caughtWrapper = false;
  try {
    ndErrMsgId(cq::tooManyColors());
  } catch (Wrapper const& e) {
    caughtWrapper = e.GetID() == "ORRERY:images:cq:tooManyColors";
  } catch (...) {
  }
  qzhost::setLegacyErrorReturns(false);
  EXPECT_TRUE(caughtWrapper);
}

}  // namespace
