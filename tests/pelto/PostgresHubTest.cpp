#include <limits>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/HubFixture.h"

// What Hub promises, with nothing in the way.

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

TEST_F(HubTest, ANewAccountIsEmpty) {
  const RemoteChanges remote = hub.remoteChanges({});
  EXPECT_EQ(remote.now.revision, 0);
  EXPECT_FALSE(remote.now.pushId);
  EXPECT_TRUE(uuidBytes(remote.now.account.view()));
  EXPECT_EQ(remote.room, 1'000'000) << "the limit that every account has";
  EXPECT_EQ(remote.roomForBytes, std::int64_t{1} << 30);
  EXPECT_EQ(text(remote.records), "");
}

TEST_F(HubTest, PushedRecordsComeBackAsTheyWere) {
  HubRecord place = folder("Folder");
  place.special = true;
  HubRecord record = bookmark("Name", "http://a/", place.id);
  record.position = -7;
  HubRecord group = folder("", place.id);
  group.tabGroup = true;
  group.position = std::numeric_limits<std::int32_t>::max();
  const std::vector<HubRecord> given{place, record, group, bookmark({}, {}), bookmark("", "")};
  const String pushId = give(given);

  const RemoteChanges remote = hub.remoteChanges({});
  EXPECT_TRUE(remote.whole);
  EXPECT_FALSE(remote.common);
  EXPECT_EQ(remote.now.revision, 1);
  EXPECT_EQ(remote.now.pushId, pushId);
  EXPECT_EQ(remote.room, 999'995);
  EXPECT_EQ(text(remote.records), text(given));
}

TEST_F(HubTest, TextsOfEveryKindSurvive) {
  using std::string_literals::operator""s;
  const std::vector<HubRecord> given{
      bookmark("zero\0byte"s, "\0"s),
      bookmark("\xF0\x9F\x94\x96 bookmark", "http://\xF0\x9F\x94\x96/"),
      bookmark("{\"a\",NULL} \\x00 'quoted' $1 %s", "NULL"),
      bookmark(std::string(1 << 19, 'n'), std::string(1 << 19, '\0')),
      bookmark("line\nbreak\r\ttab", " "),
  };
  give(given);
  EXPECT_EQ(text(hub.remoteChanges({}).records), text(given));
  EXPECT_EQ(
      number("SELECT count(*) FROM corvane_hub.readable_records('" + user + "') WHERE name IS NOT NULL"), 5)
      << "the administrator can read them all";
}

TEST_F(HubTest, BytesThatAreNotTextAreReplaced) {
  HubRecord a = bookmark("\xFF\xFE\x80 no UTF-8", "\xC3");
  HubRecord b = bookmark("\xC0\x80 \xE2\x82(", "\xF4\x90\x80\x80");
  HubRecord c = bookmark("\xED\xA0\xBD unpaired surrogate", "\xED\xB2\xA9");
  give({a, b, c});
  a.name = "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD no UTF-8";
  a.url = "\xEF\xBF\xBD";
  b.name = "\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD(";
  b.url = "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD";
  c.name = "\xEF\xBF\xBD unpaired surrogate";
  c.url = "\xEF\xBF\xBD";
  EXPECT_EQ(held(), text({a, b, c}));
}

TEST_F(HubTest, UuidsOfEveryKindSurvive) {
  HubRecord none = bookmark("nil", "http://a/", "00000000-0000-0000-0000-000000000000");
  none.id = none.parent;
  HubRecord all = folder("ones", "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF");
  all.id = all.parent;
  give({none, all});
  EXPECT_EQ(held(), text({none, all}));
}

TEST_F(HubTest, RecordsThatAreTooLongAreRefused) {
  const HubState now = hub.remoteChanges({}).now;
  EXPECT_THAT(failureOf([&] {
                hub.push({now, newUuidString(), {bookmark(std::string(1 << 20, 'n'), "u")}});
              }),
              HasSubstr("a bookmark is too long"));
  EXPECT_EQ(hub.remoteChanges({}).now, now);
}

TEST_F(HubTest, ARecordCannotChangeItsKind) {
  const HubRecord a = bookmark("A", "http://a/"), b = folder("B");
  give({a, b});
  HubRecord folderNow = a, bookmarkNow = b;
  folderNow.folder = true;
  bookmarkNow.folder = false;
  HubRecord toldOtherwise = tombstone(b);
  toldOtherwise.folder = false;
  const auto expectRefused = [&] {
    for (const HubRecord& record : {folderNow, bookmarkNow}) {
      const HubState now = hub.remoteChanges({}).now;
      EXPECT_THAT(failureOf([&] {
                    hub.push({now, newUuidString(), {record}});
                  }),
                  HasSubstr("a bookmark was to become a folder, or a folder a bookmark"));
      EXPECT_EQ(hub.remoteChanges({}).now, now);
    }
  };
  expectRefused();
  give({tombstone(a), toldOtherwise});
  expectRefused();
  give({a, b});
  EXPECT_EQ(held(), text({a, b})) << "back as what they were";
}

TEST_F(HubTest, RemoteChangesAreThoseSinceTheStateSeen) {
  HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"), c = bookmark("C", "http://c/");
  give({a, b, c});
  const HubState first = hub.remoteChanges({}).now;
  b.name = "B, renamed";
  give({b, tombstone(c)});
  const RemoteChanges remote = hub.remoteChanges({first});
  EXPECT_TRUE(remote.common);
  EXPECT_FALSE(remote.whole);
  EXPECT_EQ(text(remote.records), text({b, tombstone(c)}));
  EXPECT_EQ(remote.room, 999'998);

  EXPECT_EQ(text(hub.remoteChanges({}).records), text({a, b})) << "who asks for all hears of no tombstones";
  const RemoteChanges again = hub.remoteChanges({remote.now});
  EXPECT_TRUE(again.common);
  EXPECT_EQ(text(again.records), "");
  EXPECT_EQ(again.now, remote.now);
}

TEST_F(HubTest, AnEmptyAccountThatWasSeenIsTheSameLater) {
  const HubState empty = hub.remoteChanges({}).now;
  const HubRecord a = bookmark("A", "http://a/");
  give({a});
  const RemoteChanges remote = hub.remoteChanges({empty});
  EXPECT_TRUE(remote.common);
  EXPECT_FALSE(remote.whole);
  EXPECT_EQ(text(remote.records), text({a}));
}

TEST_F(HubTest, ADeletedRecordLivesAgainWhenItIsPushedAgain) {
  const HubRecord a = bookmark("A", "http://a/");
  give({a});
  give({tombstone(a)});
  EXPECT_EQ(held(), "");
  EXPECT_EQ(hub.remoteChanges({}).room, 1'000'000);
  give({a});
  EXPECT_EQ(held(), text({a}));
  EXPECT_EQ(hub.remoteChanges({}).room, 999'999);
}

TEST_F(HubTest, APushOntoAnotherStateChangesNothing) {
  give({bookmark("A", "http://a/")});
  give({bookmark("B", "http://b/")});
  const HubState now = hub.remoteChanges({}).now;
  const std::string before = held();
  const std::pair<const char*, HubState> cases[] = {
      {"an older revision", {now.account, now.revision - 1, now.pushId}},
      {"a newer revision", {now.account, now.revision + 1, now.pushId}},
      {"the first revision", {now.account, 0, {}}},
      {"the same revision of another past", {now.account, now.revision, newUuidString()}},
      {"the same revision without a push id", {now.account, now.revision, {}}},
      {"another account", {newUuidString(), now.revision, now.pushId}},
  };
  for (const auto& [phrase, expected] : cases) {
    SCOPED_TRACE(phrase);
    const String pushId = newUuidString();
    EXPECT_FALSE(hub.push({expected, pushId, {bookmark("C", "http://c/")}}));
    EXPECT_FALSE(hub.hasPush(pushId));
    EXPECT_EQ(hub.remoteChanges({}).now, now);
    EXPECT_EQ(held(), before);
  }
}

TEST_F(HubTest, PastPushesAreFoundByTheirIds) {
  const String first = give({bookmark("A", "http://a/")}), second = give({});
  EXPECT_TRUE(hub.hasPush(first));
  EXPECT_TRUE(hub.hasPush(second)) << "a push of no records is one too";
  EXPECT_FALSE(hub.hasPush(newUuidString()));
}

TEST_F(HubTest, WhatWasLostAndIsGivenAgainIsPartOfTheHistory) {
  give({bookmark("A", "http://a/")});
  const HubState common = hub.remoteChanges({}).now;
  const HubState older{common.account, 7, newUuidString()}, newer{common.account, 8, newUuidString()};
  const HubState unknown{common.account, 9, newUuidString()};
  give({bookmark("B", "http://b/")});
  const HubState before = hub.remoteChanges({}).now;
  EXPECT_EQ(hub.remoteChanges({newer, older, common}).givenAgain, std::nullopt);
  const HubPush push{before, newUuidString(), {}, {newer, before, older, {common.account, 0, {}}}};
  ASSERT_TRUE(hub.push(push));

  EXPECT_TRUE(hub.hasPush(newer.pushId));
  EXPECT_FALSE(hub.hasPush(unknown.pushId));
  const RemoteChanges to = hub.remoteChanges({unknown, newer, older, common});
  EXPECT_EQ(to.givenAgain, newer);
  EXPECT_EQ(to.common, common);
  EXPECT_TRUE(to.whole);
  EXPECT_EQ(hub.remoteChanges({common, newer}).givenAgain, std::nullopt) << "the line goes on from there";
  EXPECT_THAT(hub.remoteChanges({common}).past, testing::ElementsAre(before));
  for (const HubState& since : {common, before})
    EXPECT_THAT(hub.remoteChanges({since}).pastGivenAgain, testing::ElementsAre(newer, older));
  ASSERT_TRUE(hub.push({hub.remoteChanges({}).now, newUuidString(), {}, push.givesAgain}));
  EXPECT_THAT(hub.remoteChanges({hub.remoteChanges({}).now}).pastGivenAgain, testing::IsEmpty());
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.given_again WHERE account = $"), 2);
}

TEST_F(HubTest, StatesGivenAgainAreBounded) {
  for (int push = 0; push < 3; ++push) {
    HubPush given{hub.remoteChanges({}).now, newUuidString(), {}, {}};
    for (int i = 0; i < 400; ++i)
      given.givesAgain.push_back({given.expected.account, i + 1, newUuidString()});
    ASSERT_TRUE(hub.push(given));
  }
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.given_again WHERE account = $"), 1000);
  EXPECT_EQ(hub.remoteChanges({}).pastGivenAgain.size(), 128u);
}

TEST_F(HubTest, AFailedPushLeavesNothing) {
  const HubState now = hub.remoteChanges({}).now;
  const HubRecord a = bookmark("A", "http://a/");
  const String pushId = newUuidString();
  EXPECT_THAT(failureOf([&] {
                hub.push({now, pushId, {a, a}});
              }),
              HasSubstr("Can't give changes"))
      << "one record twice in a push is a mistake";
  EXPECT_EQ(hub.remoteChanges({}).now, now);
  EXPECT_EQ(held(), "");
  EXPECT_FALSE(hub.hasPush(pushId));
  HubRecord nameless = a;
  nameless.id = "not a UUID";
  EXPECT_THAT(failureOf([&] { hub.push({now, pushId, {nameless}}); }), HasSubstr("no UUID"));
  EXPECT_TRUE(hub.push({now, pushId, {a}})) << "the failed one is not in the way";
}

TEST_F(HubTest, ManyRecordsComeInPages) {
  std::vector<HubRecord> given;
  for (int i = 0; i < 12'001; ++i) given.push_back(bookmark("record " + std::to_string(i), "http://a/"));
  give(given);
  EXPECT_EQ(text(hub.remoteChanges({}).records), text(given));

  const HubState seen = hub.remoteChanges({}).now;
  for (HubRecord& record : given) record.position = 1;
  std::vector<HubRecord> half(given.begin(), given.begin() + 6'000), rest(given.begin() + 6'000, given.end());
  give(half);
  give(rest);
  EXPECT_EQ(text(hub.remoteChanges({seen}).records), text(given)) << "a page ends within a revision";
}

TEST_F(HubTest, LargeRecordsComeInPages) {
  std::vector<HubRecord> given;
  for (int i = 0; i < 20; ++i) given.push_back(bookmark(std::string(300'000 + i, 'n'), "http://a/"));
  give(given);
  EXPECT_EQ(text(hub.remoteChanges({}).records), text(given));
}

TEST_F(HubTest, AFullAccountRefusesAdditionsAndAcceptsDeletions) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"),
                  c = bookmark("C", "http://c/"), d = bookmark("D", "http://d/");
  give({a, b, c});
  administer("UPDATE corvane_hub.accounts SET record_limit = 3 WHERE id = $");
  const RemoteChanges remote = hub.remoteChanges({});
  EXPECT_EQ(remote.room, 0);
  EXPECT_THAT(failureOf([&] {
                hub.push({remote.now, newUuidString(), {d}});
              }),
              HasSubstr("the account is full"));
  EXPECT_EQ(hub.remoteChanges({}).now, remote.now);
  EXPECT_EQ(held(), text({a, b, c}));

  HubRecord renamed = a;
  renamed.name = "A, renamed";
  give({renamed});
  EXPECT_EQ(held(), text({renamed, b, c})) << "changes are no additions";
  give({d, tombstone(b)});
  EXPECT_EQ(held(), text({renamed, c, d})) << "as much added as deleted";
  give({tombstone(c), tombstone(d), tombstone(bookmark("never seen", {}))});
  EXPECT_EQ(hub.remoteChanges({}).room, 2);
  EXPECT_EQ(number("SELECT live_records FROM corvane_hub.accounts WHERE id = $"),
            number("SELECT count(*) FROM corvane_hub.records WHERE account = $ AND NOT deleted"));
}

TEST_F(HubTest, ATombstoneWithoutARecordIsNotKept) {
  give({tombstone(bookmark("never seen", {}))});
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE account = $"), 0);
}

TEST_F(HubTest, TextsOfAnAccountAreBounded) {
  const HubRecord a = bookmark("12345", "67890"), b = bookmark(std::string(85, 'n'), "12345");
  give({a, b});
  administer("UPDATE corvane_hub.accounts SET byte_limit = 100 WHERE id = $");
  const HubState full = hub.remoteChanges({}).now;
  HubRecord longer = a;
  longer.name = "123456";
  for (const HubRecord& record : {longer, bookmark("", "u")}) {
    EXPECT_THAT(failureOf([&] {
                  hub.push({full, newUuidString(), {record}});
                }),
                HasSubstr("the account is full: it holds as much text as it may"));
  }
  HubRecord shorter = b;
  shorter.name = {};
  give({shorter, longer});
  give({tombstone(longer), bookmark(std::string(95, 'n'), {})});
  EXPECT_EQ(number("SELECT live_bytes FROM corvane_hub.accounts WHERE id = $"), 100);
  EXPECT_EQ(number("SELECT sum(COALESCE(octet_length(name), 0) + COALESCE(octet_length(url), 0))"
                   " FROM corvane_hub.records WHERE account = $ AND NOT deleted"),
            100);
}

TEST_F(HubTest, TombstonesOfAnAccountAreBounded) {
  administer("UPDATE corvane_hub.accounts SET record_limit = 2 WHERE id = $");
  const auto tombstones = [&] { return number("SELECT tombstones FROM corvane_hub.accounts WHERE id = $"); };
  const auto turnOver = [&] {
    const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/");
    give({a, b});
    give({tombstone(a), tombstone(b)});
    return a;
  };
  const HubRecord first = turnOver();
  EXPECT_EQ(tombstones(), 2);
  give({first});
  EXPECT_EQ(tombstones(), 1) << "it lives again";
  give({tombstone(first)});
  EXPECT_EQ(tombstones(), 2);
  const HubState seen = hub.remoteChanges({}).now;
  turnOver();
  EXPECT_EQ(tombstones(), 4);
  give({});
  EXPECT_EQ(tombstones(), 0) << "more than the account may hold records: dropped before their time";
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE account = $"), 0);
  EXPECT_TRUE(hub.remoteChanges({seen}).whole);

  administer("UPDATE corvane_hub.accounts SET tombstones = 6 WHERE id = $");
  const HubRecord last = bookmark("C", "http://c/");
  give({last});
  EXPECT_THAT(failureOf([&] {
                hub.push({hub.remoteChanges({}).now, newUuidString(), {tombstone(last)}});
              }),
              HasSubstr("it remembers as many deletions as it may"));
}

TEST_F(HubTest, SettingsBelongToOneComputer) {
  PostgresHub other(url, newUuidString());
  EXPECT_FALSE(other.isEnabled(kHubDataClass)) << "never heard of";
  EXPECT_TRUE(hub.isEnabled(kHubDataClass));
  EXPECT_FALSE(hub.isEnabled("com.keldra.Contacts"));
  give({bookmark("A", "http://a/")});

  const RemoteChanges off = other.remoteChanges({});
  EXPECT_FALSE(off.enabled);
  EXPECT_EQ(text(off.records), "") << "nothing is read where the class is off";
  other.setEnabled(kHubDataClass, true);
  EXPECT_TRUE(other.isEnabled(kHubDataClass));
  EXPECT_TRUE(other.remoteChanges({}).enabled);
  hub.setEnabled(kHubDataClass, false);
  EXPECT_FALSE(hub.isEnabled(kHubDataClass));
  EXPECT_TRUE(other.isEnabled(kHubDataClass));
}

TEST_F(HubTest, ComputersAreNotedOnceADayWithTheirPresentName) {
  const std::string noted =
      "SELECT extract(epoch FROM now() - last_seen)::bigint FROM corvane_hub.computers "
      "WHERE account = $ AND name = '";
  EXPECT_LT(number(noted + "testhost'"), 100);
  administer("UPDATE corvane_hub.computers SET last_seen = now() - interval '5 hours' WHERE account = $");
  hub.remoteChanges({});
  EXPECT_GT(number(noted + "testhost'"), 10'000) << "seen today already";
  administer("UPDATE corvane_hub.computers SET last_seen = now() - interval '25 hours' WHERE account = $");
  hub.remoteChanges({});
  EXPECT_LT(number(noted + "testhost'"), 100);
  platform.process.host = "n\xC3\xA4me\n";
  hub.remoteChanges({});
  EXPECT_LT(number(noted + "n??me?'"), 100);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.computers WHERE account = $"), 1);
}

TEST_F(HubTest, AComputerThatCannotBeNotedStillSyncs) {
  give({bookmark("A", "http://a/")});
  administer("UPDATE corvane_hub.computers SET name = 'another' WHERE account = $");
  administer("ALTER TABLE corvane_hub.computers ADD CONSTRAINT refuse CHECK (name <> 'testhost') NOT VALID");
  EXPECT_EQ(hub.remoteChanges({}).records.size(), 1u);
  administer("ALTER TABLE corvane_hub.computers DROP CONSTRAINT refuse");
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.computers WHERE account = $ AND name = 'another'"), 1);
}

TEST_F(HubTest, AnAccountKeepsAtMostAThousandComputers) {
  administer(
      "INSERT INTO corvane_hub.computers SELECT $, gen_random_uuid(), 'old', "
      "now() - n * interval '1 minute' FROM generate_series(1, 1005) AS n");
  PostgresHub(url, newUuidString()).setEnabled(kHubDataClass, true);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.computers WHERE account = $"), 1000);
  EXPECT_TRUE(hub.isEnabled(kHubDataClass)) << "those seen last stay";
}

class RestoredHubTest : public HubTest {
 protected:
  static constexpr const char* kTables[] = {"accounts", "records", "pushes"};

  void backUp() {
    for (const std::string table : kTables) {
      administer("DROP TABLE IF EXISTS backup_" + user + "_" + table + "; CREATE TABLE backup_" + user + "_" +
                 table + " AS SELECT * FROM corvane_hub." + table + " WHERE " +
                 (table == "accounts" ? "id" : "account") + " = $");
    }
  }
  void restore() {
    administer("DELETE FROM corvane_hub.records WHERE account = $");
    administer("DELETE FROM corvane_hub.pushes WHERE account = $");
    administer(
        "UPDATE corvane_hub.accounts a"
        " SET (revision, mark, live_records, live_bytes, tombstones, forgotten_revision) ="
        " (SELECT b.revision, b.mark, b.live_records, b.live_bytes, b.tombstones, b.forgotten_revision"
        " FROM backup_" +
        user + "_accounts b) WHERE id = $");
    for (const std::string table : {"records", "pushes"})
      administer("INSERT INTO corvane_hub." + table + " SELECT * FROM backup_" + user + "_" + table);
  }
};

TEST_F(RestoredHubTest, AStateSeenAfterTheBackupIsOfAnotherHistory) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/");
  give({a});
  const HubState before = hub.remoteChanges({}).now;
  backUp();
  give({b});
  const HubState after = hub.remoteChanges({}).now;
  restore();

  RemoteChanges remote = hub.remoteChanges({after});
  EXPECT_FALSE(remote.common);
  EXPECT_TRUE(remote.whole);
  EXPECT_EQ(text(remote.records), text({a}));
  EXPECT_TRUE(hub.remoteChanges({before}).common);
  EXPECT_FALSE(hub.push({after, newUuidString(), {b}}));

  give({bookmark("C", "http://c/")});
  remote = hub.remoteChanges({after});
  EXPECT_EQ(remote.now.revision, after.revision) << "the same number";
  EXPECT_FALSE(remote.common) << "of another past";
  EXPECT_FALSE(hub.push({after, newUuidString(), {b}}));
}

TEST_F(RestoredHubTest, TheNewestCommonStateIsFoundAndWhatChangedSinceIsSent) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"),
                  c = bookmark("C", "http://c/"), d = bookmark("D", "http://d/");
  const HubState empty = hub.remoteChanges({}).now;
  give({a, b, c});
  const HubState first = hub.remoteChanges({}).now;
  give({tombstone(c)});
  const HubState second = hub.remoteChanges({}).now;
  backUp();
  give({d});
  const HubState lost = hub.remoteChanges({}).now;
  restore();
  give({tombstone(b)});

  const RemoteChanges remote = hub.remoteChanges({lost, second, first, empty});
  EXPECT_EQ(remote.common, second);
  EXPECT_TRUE(remote.whole);
  EXPECT_EQ(text(remote.records), text({a, tombstone(b)})) << "what was deleted before needs not be told";
  for (const HubRecord& record : remote.records) EXPECT_EQ(record.revision, record.deleted ? 3 : 1);
  EXPECT_EQ(remote.past, std::vector<HubState>()) << "there are none between";
  EXPECT_EQ(hub.remoteChanges({lost, first}).past, std::vector<HubState>{second});
  EXPECT_EQ(hub.remoteChanges({lost, empty}).common, empty) << "every account began so";
}

TEST_F(HubTest, PastStatesAreSentMoreSparselyTheFartherBack) {
  const HubState empty = hub.remoteChanges({}).now;
  for (int i = 0; i < 200; ++i) give({});
  const std::vector<HubState> past = hub.remoteChanges({}).past;
  ASSERT_EQ(past.size(), 65u);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(past[static_cast<std::size_t>(i)].revision, 199 - i);
  EXPECT_EQ(past.back().revision, 200 - 128);
  EXPECT_TRUE(hub.remoteChanges({past.back()}).common);
  EXPECT_EQ(hub.remoteChanges({past[2], empty}).past, (std::vector<HubState>{past[0], past[1]}));
}

TEST_F(RestoredHubTest, AnAccountMadeAgainIsAnotherOne) {
  const HubRecord a = bookmark("A", "http://a/");
  const HubState empty = hub.remoteChanges({}).now;
  give({a});
  const HubState seen = hub.remoteChanges({}).now;
  server.hubAccount("remove", user);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE id = '" + a.id.toString() + "'"), 0);
  PostgresHub again(server.addAccount(user), computer);
  again.setEnabled(kHubDataClass, true);
  for (const HubState& past : {empty, seen}) {
    const RemoteChanges remote = again.remoteChanges({past});
    EXPECT_FALSE(remote.common);
    EXPECT_TRUE(remote.whole);
    EXPECT_EQ(text(remote.records), "");
  }
}

TEST_F(HubTest, OldTombstonesAreForgottenAndAComputerThatMissedThemGetsEverything) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"),
                  c = bookmark("C", "http://c/");
  give({a, b, c});
  const HubState early = hub.remoteChanges({}).now;
  give({tombstone(a)});
  const HubState late = hub.remoteChanges({}).now;
  administer("UPDATE corvane_hub.records SET changed = now() - interval '401 days' WHERE account = $");
  give({tombstone(b)});
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE account = $ AND deleted"), 1)
      << "the old tombstone went, the fresh one stays";

  const RemoteChanges forEarly = hub.remoteChanges({early});
  EXPECT_TRUE(forEarly.common);
  EXPECT_TRUE(forEarly.whole);
  EXPECT_EQ(text(forEarly.records), text({c}));
  const RemoteChanges forLate = hub.remoteChanges({late});
  EXPECT_TRUE(forLate.common);
  EXPECT_FALSE(forLate.whole);
  EXPECT_EQ(text(forLate.records), text({tombstone(b)}));
}

TEST_F(HubTest, OldPushesAreForgottenExceptTheNewestThousand) {
  give({bookmark("A", "http://a/")});
  const HubState first = hub.remoteChanges({}).now;
  administer(
      "INSERT INTO corvane_hub.pushes SELECT $, n, gen_random_uuid(), gen_random_uuid(), now() - interval "
      "'500 days' FROM generate_series(2, 1300) AS n;");
  administer("UPDATE corvane_hub.pushes SET at = now() - interval '500 days' WHERE account = $");
  administer(
      "UPDATE corvane_hub.accounts a SET revision = 1300, mark = (SELECT p.mark FROM corvane_hub.pushes p "
      "WHERE p.account = a.id AND p.revision = 1300) WHERE id = $");
  give({});
  EXPECT_EQ(number("SELECT min(revision) FROM corvane_hub.pushes WHERE account = $"), 101)
      << "a little at a time";
  EXPECT_FALSE(hub.remoteChanges({first}).common) << "forgotten counts as never seen";
  for (int i = 0; i < 4; ++i) give({});
  EXPECT_EQ(number("SELECT min(revision) FROM corvane_hub.pushes WHERE account = $"), 306);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.pushes WHERE account = $"), 1000);
}

}  // namespace
}  // namespace corvane::pelto
