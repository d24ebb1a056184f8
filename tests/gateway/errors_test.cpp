// Every error and warning the built-ins can raise: its identifier and a
// text of its own.

#include <algorithm>
#include <set>
#include <tuple>

#include "gateway/errors.hpp"
#include "gateway/message_ids.hpp"
#include "qztest.hpp"

TEST(ErrorsTest, EveryKeyRaisesItsIdentifierWithATextOfItsOwn) {
  // From the library's own message-ID classes: catalog, key, argument count and a raise.
  std::vector<std::tuple<std::string, std::string, std::size_t, void (*)()>> keys;
#define QZ_PUSH(k) \
  keys.push_back({ids::k().catalog(), ids::k().key(), ids::k().arguments().size(), [] { ndErrMsgId(ids::k()); }});
  { namespace ids = ORRERY::images::resizeDim; QZ_RESIZEDIM_KEYS(QZ_PUSH) }
  { namespace ids = ORRERY::images::ind2rgb8; QZ_IND2RGB8_KEYS(QZ_PUSH) }
  { namespace ids = ORRERY::images::grayto8; QZ_GRAYTO8_KEYS(QZ_PUSH) }
  { namespace ids = ORRERY::images::cq; QZ_CQ_KEYS(QZ_PUSH) }
#undef QZ_PUSH
  std::set<std::string> texts;
  for (auto const& [catalog, key, arguments, raise] : keys) {
    std::string const id = catalog + ":" + key, text = qzhost::messageText(catalog, key);
    EXPECT_EQ(arguments, 0u) << id << ": every error and warning is raised without arguments";
    EXPECT_TRUE(text.size() > 20 && text.back() == '.') << id << ": " << text;
    EXPECT_TRUE(texts.insert(text).second) << id << " shares its text";
    try {
      raise();
    } catch (qzhost::HostError const& e) {
      EXPECT_EQ(e.identifier() + ": " + e.message(), id + ": " + text);
    }
  }
  // And the catalog holds no key the library does not raise: all others
  // are the host's own.
  auto const entries = qzhost::catalogEntries();
  auto const library = [](qzhost::CatalogEntry const& e) { return std::string(e.catalog) != "qzhost"; };
  EXPECT_EQ(std::size_t(std::count_if(entries.begin(), entries.end(), library)), keys.size());
}
