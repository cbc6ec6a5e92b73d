#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/pelto/PostgresHub.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/PostgresServer.h"

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

class HubTest : public testing::Test {
 protected:
  StrictPlatform platform;
  PostgresServer& server = postgresServer();
  std::string url = server.addAccount();
  PostgresHub hub{url, newUuidString()};

  static HubRecord bookmark(const char* name, const char* address, const String& parent = {}) {
    HubRecord record;
    record.id = newUuidString();
    record.parent = parent;
    record.name = name;
    record.url = address;
    return record;
  }
  /// Pushes onto the present state.
  static bool give(Hub& to, std::vector<HubRecord> records, const std::optional<HubSeen>& expected = {}) {
    const HubSeen from = expected ? *expected : to.news({}).now;
    return to.push({from, newUuidString(), std::move(records)});
  }
};

TEST_F(HubTest, NewAccountIsEmptyAndOff) {
  const HubNews news = hub.news({});
  EXPECT_FALSE(news.enabled);
  EXPECT_EQ(news.now.revision, 0);
  EXPECT_FALSE(news.now.mark);
  EXPECT_EQ(news.now.account.view().size(), 36u);
}

TEST_F(HubTest, PushedRecordsComeBackAsTheyWere) {
  hub.setEnabled(kHubDataClass, true);
  HubRecord folder = bookmark("Folder", "");
  folder.folder = true;
  folder.url = String();
  folder.special = true;
  HubRecord record = bookmark("Name", "http://a/", folder.id);
  record.position = -7;
  record.tabGroup = true;
  ASSERT_TRUE(give(hub, {folder, record}));

  const HubNews news = hub.news({});
  EXPECT_TRUE(news.enabled);
  EXPECT_TRUE(news.whole);
  EXPECT_EQ(news.now.revision, 1);
  EXPECT_EQ(news.room, 999'998);
  ASSERT_EQ(news.records.size(), 2u);
}

}  // namespace
}  // namespace corvane::pelto
