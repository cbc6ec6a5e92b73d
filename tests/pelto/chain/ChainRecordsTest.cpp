#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/pelto/chain/History.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/chain/MemoryPlace.h"

// What Hub promises of states and records, with nothing in the way.

namespace corvane::pelto {
namespace {

HubRecord recordNamed(const String& name, const String& url, const String& parent = {}) {
  HubRecord record;
  record.id = newUuidString();
  record.parent = parent;
  record.name = name;
  record.url = url;
  return record;
}

HubRecord folderNamed(const String& name, const String& parent = {}) {
  HubRecord record = recordNamed(name, {}, parent);
  record.folder = true;
  return record;
}

HubRecord deletionOf(const HubRecord& record) {
  HubRecord gone;
  gone.id = record.id;
  gone.folder = record.folder;
  gone.deleted = true;
  return gone;
}

std::string shown(const String& text) {
  if (!text) return "none";
  return std::to_string(text.view().size()) + " bytes \"" + text.toString().substr(0, 200) + '"';
}

// One line for each record, sorted: equal texts mean equal records.
std::string listed(const std::vector<HubRecord>& records) {
  std::vector<std::string> lines;
  for (const HubRecord& each : records) {
    std::string line = each.id.toString() + (each.folder ? " folder " : " bookmark ");
    line += each.deleted ? "deleted"
                         : shown(each.name) + " " + shown(each.url) + " in " + shown(each.parent) + " at " +
                               std::to_string(each.position) + (each.tabGroup ? " tabs" : "") +
                               (each.special ? " special" : "");
    lines.push_back(line + '\n');
  }
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& each : lines) text += each;
  return text;
}

constexpr int kMostRecords = 1000;

class ChainRecordsTest : public testing::Test {
 protected:
  ChainRecordsTest() { platform.uuids.inForm = true; }

  // A session's exchange ends with the next one's beginning.
  ChainHub& exchange() {
    _hub.reset();
    _hub = std::make_unique<ChainHub>(*_connection, _sealer,
                                      ChainHubOptions{.keptPath = platform.directory / "home/Chain.plist",
                                                      .computer = "0F000000-0000-4000-8000-000000000001",
                                                      .mostRecords = kMostRecords});
    return *_hub;
  }
  RemoteChanges told(const std::vector<HubState>& seen = {}) { return exchange().remoteChanges(seen); }
  HubState now() { return told().now; }
  String give(std::vector<HubRecord> records) {
    const HubPush push{now(), newUuidString(), std::move(records)};
    EXPECT_TRUE(_hub->push(push));
    return push.id;
  }
  std::string held() { return listed(told().records); }

  StrictPlatform platform;
  MemoryPlace place;

 private:
  std::unique_ptr<Place> _connection = place.connect();
  Sealer _sealer{AccountKey(std::string(AccountKey::kBytes, 'k')), "0A000000-0000-4000-8000-000000000001", 1};
  std::unique_ptr<ChainHub> _hub;
};

TEST_F(ChainRecordsTest, ANewAccountIsEmpty) {
  const RemoteChanges remote = told();
  EXPECT_TRUE(remote.enabled);
  EXPECT_EQ(remote.now.revision, 0);
  EXPECT_FALSE(remote.now.pushId);
  EXPECT_TRUE(uuidBytes(remote.now.account.view()));
  EXPECT_EQ(remote.room, kMostRecords);
  EXPECT_EQ(listed(remote.records), "");
}

TEST_F(ChainRecordsTest, RecordsComeBackAsTheyWere) {
  using std::string_literals::operator""s;
  HubRecord special = folderNamed("Folder");
  special.special = true;
  HubRecord first = recordNamed("Name", "http://a/", special.id);
  first.position = -7;
  HubRecord group = folderNamed("", special.id);
  group.tabGroup = true;
  group.position = std::numeric_limits<std::int32_t>::max();
  HubRecord nil = recordNamed("nil", "http://a/", "00000000-0000-0000-0000-000000000000");
  nil.id = nil.parent;
  HubRecord ones = folderNamed("ones", "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF");
  ones.id = ones.parent;
  ones.position = std::numeric_limits<std::int32_t>::min();
  const std::vector<HubRecord> given{
      special,
      first,
      group,
      nil,
      ones,
      recordNamed({}, {}),
      recordNamed("", ""),
      recordNamed("zero\0byte"s, "\0"s),
      recordNamed("\xF0\x9F\x94\x96 bookmark", "http://\xF0\x9F\x94\x96/"),
      recordNamed("{\"a\",NULL} \\x00 'quoted' $1 %s", "NULL"),
      recordNamed(std::string(1 << 19, 'n'), std::string(1 << 19, '\0')),
      recordNamed("line\nbreak\r\ttab", " "),
  };
  const String pushId = give(given);
  const RemoteChanges remote = told();
  EXPECT_TRUE(remote.whole);
  EXPECT_FALSE(remote.common);
  EXPECT_EQ(remote.now.revision, 1);
  EXPECT_EQ(remote.now.pushId, pushId);
  EXPECT_EQ(remote.room, kMostRecords - static_cast<std::int64_t>(given.size()));
  EXPECT_EQ(listed(remote.records), listed(given));
}

TEST_F(ChainRecordsTest, SurrogatesThatStandAloneAreReplaced) {
  HubRecord record = recordNamed("\xED\xA0\xBD unpaired", "\xED\xB2\xA9");
  give({record});
  record.name = "\xEF\xBF\xBD unpaired";
  record.url = "\xEF\xBF\xBD";
  EXPECT_EQ(held(), listed({record}));
}

TEST_F(ChainRecordsTest, BytesThatAreNotTextAreRefusedAndChangeNothing) {
  const HubRecord a = recordNamed("A", "http://a/");
  give({a});
  for (const char* bytes : {"\xFF no UTF-8", "\xC3", "\xF4\x90\x80\x80"}) {
    const HubState state = now();
    EXPECT_THROW(exchange().push({state, newUuidString(), {a, recordNamed(bytes, "http://b/")}}),
                 PlatformException);
    EXPECT_EQ(now(), state);
    EXPECT_EQ(held(), listed({a}));
  }
  give({deletionOf(a)});
}

TEST_F(ChainRecordsTest, AnIdThatIsNoUuidIsRefusedAndChangesNothing) {
  const HubRecord a = recordNamed("A", "http://a/");
  give({a});
  HubRecord noId = recordNamed("B", "http://b/"), noParent = noId, noOrigin = noId;
  noId.id = "B";
  noParent.parent = "no UUID either";
  noOrigin.origins.name = "0B000000-0000-4000-8000-00000000000";
  std::vector<HubRecord> many;
  for (int i = 0; i < 2'100; ++i) many.push_back(recordNamed("n", "http://n/"));
  many.push_back(noId);
  const String good = newUuidString();
  const HubPush pushes[] = {
      {{}, good, {noId}}, {{}, good, {noParent}}, {{}, good, {noOrigin}},
      {{}, good, many},   {{}, "no push", {a}},   {{}, good, {a}, {{now().account, 1, "no state"}}},
  };
  for (HubPush push : pushes) {
    SCOPED_TRACE(push.id.toString() + ' ' + std::to_string(push.records.size()));
    push.expected = now();
    EXPECT_THROW(exchange().push(push), PlatformException);
    ChainHub& hub = exchange();
    push.expected = hub.remoteChanges({}).now;
    EXPECT_THROW(hub.push(push), PlatformException);
    EXPECT_TRUE(hub.push({push.expected, newUuidString(), {}})) << "the exchange goes on";
    EXPECT_EQ(held(), listed({a}));
    for (const auto& [name, object] : place.objects) EXPECT_EQ(name.find("/s/"), name.npos);
  }
}

TEST_F(ChainRecordsTest, OfARecordThatAPushHasTwiceTheLastOneCounts) {
  HubRecord a = recordNamed("A", "http://a/"), b = recordNamed("B", "http://b/");
  std::vector<HubRecord> many;
  for (int i = 0; i < 2'500; ++i) many.push_back(deletionOf(recordNamed({}, {})));
  for (const bool isMuch : {false, true}) {
    SCOPED_TRACE(isMuch);
    give({});
    const HubState before = now();
    HubRecord renamed = a;
    renamed.name = isMuch ? "A of many" : "A of few";
    std::vector<HubRecord> given{a, deletionOf(b)};
    if (isMuch) given.insert(given.end(), many.begin(), many.end());
    given.insert(given.end(), {renamed, b, renamed});
    give(given);
    EXPECT_EQ(held(), listed({renamed, b}));
    std::vector<HubRecord> since = told({before}).records;
    std::erase_if(since, [&](const HubRecord& each) { return each.id != a.id && each.id != b.id; });
    EXPECT_EQ(listed(since), listed({renamed, b}));
  }
}

TEST_F(ChainRecordsTest, OfManyStatesThatWereGivenAgainTheNewestAreTold) {
  const String account = now().account;
  std::vector<String> all;
  for (int push = 0; push < 5; ++push) {
    std::vector<HubState> states;
    for (int i = 0; i < 300; ++i) states.push_back({account, 1'000 + i, newUuidString()});
    const HubState state = now();
    ASSERT_TRUE(exchange().push({state, newUuidString(), {}, states}));
    std::vector<String> ids;
    for (const HubState& each : states) ids.push_back(each.pushId);
    all.insert(all.begin(), ids.begin(), ids.end());
  }
  const RemoteChanges remote = told();
  ASSERT_EQ(remote.pastGivenAgain.size(), chain::kToldGivenAgain);
  for (std::size_t i = 0; i < remote.pastGivenAgain.size(); ++i)
    EXPECT_EQ(remote.pastGivenAgain[i].pushId, all[i]);
  EXPECT_TRUE(exchange().hasPush(all.back())) << "and all are known";
}

TEST_F(ChainRecordsTest, MoreStatesThanAReaderTakesAreNotWritten) {
  const HubState state = now();
  std::vector<HubState> states(10'001, {state.account, 1, newUuidString()});
  EXPECT_THROW(exchange().push({state, newUuidString(), {}, states}), PlatformException);
  states.pop_back();
  EXPECT_TRUE(exchange().push({state, newUuidString(), {}, states}));
  EXPECT_EQ(now().revision, 1);
}

TEST_F(ChainRecordsTest, RemoteChangesAreThoseSinceTheStateSeen) {
  HubRecord a = recordNamed("A", "http://a/"), b = recordNamed("B", "http://b/"),
            c = recordNamed("C", "http://c/");
  const HubState empty = now();
  give({a, b, c});
  const HubState first = now();
  b.name = "B, renamed";
  give({b, deletionOf(c)});
  const RemoteChanges remote = told({first});
  EXPECT_EQ(remote.common, first);
  EXPECT_FALSE(remote.whole);
  EXPECT_EQ(listed(remote.records), listed({b, deletionOf(c)}));
  EXPECT_EQ(held(), listed({a, b})) << "who asks for all hears of no deletions";
  const RemoteChanges again = told({remote.now});
  EXPECT_EQ(again.common, again.now);
  EXPECT_EQ(listed(again.records), "");
  EXPECT_EQ(told({empty}).common, empty) << "an empty account that was seen is the same later";
}

TEST_F(ChainRecordsTest, ADeletedRecordLivesAgainWhenItIsPushedAgain) {
  const HubRecord a = recordNamed("A", "http://a/");
  give({a});
  give({deletionOf(a)});
  EXPECT_EQ(held(), "");
  give({a});
  EXPECT_EQ(held(), listed({a}));
}

TEST_F(ChainRecordsTest, APushOntoAnotherStateChangesNothing) {
  give({recordNamed("A", "http://a/")});
  give({recordNamed("B", "http://b/")});
  const HubState state = now();
  const std::string before = held();
  const std::pair<const char*, HubState> cases[] = {
      {"an older revision", {state.account, state.revision - 1, state.pushId}},
      {"a newer revision", {state.account, state.revision + 1, state.pushId}},
      {"the first revision", {state.account, 0, {}}},
      {"the same revision of another past", {state.account, state.revision, newUuidString()}},
      {"the same revision without a push id", {state.account, state.revision, {}}},
      {"another account", {newUuidString(), state.revision, state.pushId}},
  };
  for (const auto& [phrase, expected] : cases) {
    SCOPED_TRACE(phrase);
    const String pushId = newUuidString();
    EXPECT_EQ(exchange().push({expected, pushId, {recordNamed("C", "http://c/")}}).outcome,
              HubPushed::Outcome::overtaken);
    EXPECT_FALSE(exchange().hasPush(pushId));
    EXPECT_EQ(now(), state);
    EXPECT_EQ(held(), before);
  }
}

TEST_F(ChainRecordsTest, PastPushesAreFoundByTheirIds) {
  const String first = give({recordNamed("A", "http://a/")}), second = give({});
  EXPECT_TRUE(exchange().hasPush(first));
  EXPECT_TRUE(exchange().hasPush(second)) << "a push of no records is one too";
  EXPECT_FALSE(exchange().hasPush(newUuidString()));
}

TEST_F(ChainRecordsTest, AllPastStatesAreToldAlsoThoseBeforeACheckpoint) {
  const HubState empty = now();
  for (int i = 0; i < 200; ++i) give({});
  const RemoteChanges remote = told();
  const std::vector<HubState>& past = remote.past;
  ASSERT_EQ(past.size(), static_cast<std::size_t>(remote.now.revision - 1));
  for (std::size_t i = 0; i < past.size(); ++i)
    EXPECT_EQ(past[i].revision, remote.now.revision - 1 - static_cast<std::int64_t>(i));
  EXPECT_EQ(told({past.back()}).common, past.back());
  EXPECT_EQ(told({past[2], empty}).past, (std::vector<HubState>{past[0], past[1]}));
}

TEST_F(ChainRecordsTest, TheNewestCommonStateIsFoundWhenThePlaceWentBack) {
  const HubRecord a = recordNamed("A", "http://a/"), b = recordNamed("B", "http://b/"),
                  c = recordNamed("C", "http://c/"), d = recordNamed("D", "http://d/");
  const HubState empty = now();
  give({a, b, c});
  const HubState first = now();
  give({deletionOf(c)});
  const HubState second = now();
  const MemoryPlace::Objects backup = place.objects;
  give({d});
  const HubState lost = now();
  place.objects = backup;
  EXPECT_FALSE(told({lost}).common);
  EXPECT_EQ(exchange().push({lost, newUuidString(), {d}}).outcome, HubPushed::Outcome::overtaken);
  give({deletionOf(b)});

  const RemoteChanges remote = told({lost, second, first, empty});
  EXPECT_EQ(remote.now.revision, lost.revision) << "the same number";
  EXPECT_EQ(remote.common, second) << "of another past";
  EXPECT_TRUE(remote.whole);
  EXPECT_EQ(listed(remote.records), listed({a, deletionOf(b), deletionOf(c)})) << "and all tombstones";
  EXPECT_EQ(remote.past, std::vector<HubState>()) << "there are none between";
  EXPECT_EQ(told({lost, first}).past, std::vector<HubState>{second});
  EXPECT_EQ(told({lost, empty}).common, empty) << "every account began so";
}

TEST_F(ChainRecordsTest, AFullAccountHasNoRoomUntilSomethingIsDeleted) {
  std::vector<HubRecord> records, deletions;
  for (int i = 0; i < kMostRecords; ++i) {
    records.push_back(recordNamed("n" + std::to_string(i), "http://n/"));
    deletions.push_back(deletionOf(records.back()));
  }
  give(records);
  EXPECT_EQ(told().room, 0);
  EXPECT_EQ(held(), listed(records));
  give({deletions[0], deletions[1], recordNamed("One more", "http://more/")});
  EXPECT_EQ(told().room, 1);
  give(deletions);
  EXPECT_EQ(told().records.size(), 1U);
}

}  // namespace
}  // namespace corvane::pelto
