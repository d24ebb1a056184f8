// The message catalog has a text for every key a built-in can raise, and
// nothing for keys that do not exist.

#include <set>

#include "gateway/message_ids.hpp"
#include "qztest.hpp"

namespace {

struct Key {
  std::string catalog, key;
};

// Every key, read back from the library's own message-ID classes.
std::vector<Key> libraryKeys() {
  std::vector<Key> keys;
#define QZ_PUSH(k) keys.push_back({ids::k().catalog(), ids::k().key()});
  {
    namespace ids = ORRERY::images::resizeDim;
    QZ_RESIZEDIM_KEYS(QZ_PUSH)
  }
  {
    namespace ids = ORRERY::images::ind2rgb8;
    QZ_IND2RGB8_KEYS(QZ_PUSH)
  }
  {
    namespace ids = ORRERY::images::grayto8;
    QZ_GRAYTO8_KEYS(QZ_PUSH)
  }
  {
    namespace ids = ORRERY::images::cq;
    QZ_CQ_KEYS(QZ_PUSH)
  }
#undef QZ_PUSH
  return keys;
}

TEST(CatalogTest, EveryKeyOfTheFourCatalogsHasAText) {
  auto keys = libraryKeys();
  EXPECT_EQ(keys.size(), 8u + 9u + 4u + 10u);
  for (auto const& k : keys) {
    std::string text = qzhost::messageText(k.catalog, k.key);
    EXPECT_GE(text.size(), 20u) << k.catalog << ":" << k.key;
    EXPECT_EQ(text.back(), '.') << k.catalog << ":" << k.key;
  }
}

TEST(CatalogTest, TheCatalogHoldsNoKeyTheLibraryDoesNotRaise) {
  std::set<std::string> known;
  for (auto const& k : libraryKeys()) known.insert(k.catalog + ":" + k.key);
  std::set<std::string> seen;
  for (auto const& e : qzhost::catalogEntries()) {
    std::string id = std::string(e.catalog) + ":" + e.key;
    EXPECT_TRUE(seen.insert(id).second) << "duplicate " << id;
    if (std::string(e.catalog).rfind("ORRERY:", 0) == 0) {
      EXPECT_TRUE(known.count(id)) << "stale " << id;
    }
  }
  EXPECT_EQ(qzhost::messageText("ORRERY:images:cq", "noSuchKey"), "");
}

}  // namespace
