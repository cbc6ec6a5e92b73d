#include <cstdio>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/HubFixture.h"

namespace corvane::pelto {
namespace {

constexpr int kLimit = 1'000'000;

HubRecord numbered(int number) {
  char id[37];
  std::snprintf(id, sizeof id, "%08X-0000-4000-8000-000000000000", static_cast<unsigned>(number));
  HubRecord record;
  record.id = id;
  record.position = number;
  record.name = "Bookmark " + std::to_string(number);
  record.url = "http://example.org/" + std::to_string(number);
  return record;
}

class FullAccountTest : public HubTest {};

TEST_F(FullAccountTest, AnAccountFillsInOnePushRefusesMoreAndEmptiesInOnePush) {
  std::vector<HubRecord> records;
  for (int i = 0; i < kLimit; ++i) records.push_back(numbered(i));
  const HubState empty = hub.remoteChanges({}).now;
  ASSERT_TRUE(hub.push({empty, newUuidString(), records}));

  const RemoteChanges all = hub.remoteChanges({});
  EXPECT_EQ(all.room, 0);
  EXPECT_EQ(text(all.records), text(records));

  const HubRecord more = bookmark("One more", "http://more/");
  EXPECT_THAT(
      failureOf([&] {
        hub.push({all.now, newUuidString(), {more}});
      }),
      testing::AllOf(testing::HasSubstr("the account is full"), testing::HasSubstr("Delete bookmarks")));
  EXPECT_EQ(hub.remoteChanges({all.now}).now, all.now);

  ASSERT_TRUE(hub.push({all.now, newUuidString(), {tombstone(records[0]), more, tombstone(records[1])}}));
  const RemoteChanges changed = hub.remoteChanges({all.now});
  EXPECT_EQ(text(changed.records), text({tombstone(records[0]), tombstone(records[1]), more}));
  EXPECT_EQ(changed.room, 1);

  for (HubRecord& record : records) record = tombstone(record);
  ASSERT_TRUE(hub.push({changed.now, newUuidString(), records}));
  const RemoteChanges emptied = hub.remoteChanges({});
  EXPECT_EQ(text(emptied.records), text({more}));
  EXPECT_EQ(emptied.room, kLimit - 1);
  EXPECT_EQ(hub.remoteChanges({changed.now}).records.size(), static_cast<std::size_t>(kLimit))
      << "every tombstone";
}

}  // namespace
}  // namespace corvane::pelto
