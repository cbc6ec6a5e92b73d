#include <limits>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/HubFixture.h"

// What Hub promises, with nothing in the way.

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

TEST_F(HubTest, NewAccountIsEmpty) {
  const HubNews news = hub.news({});
  EXPECT_EQ(news.now.revision, 0);
  EXPECT_FALSE(news.now.mark);
  EXPECT_TRUE(uuidBytes(news.now.account.view()));
  EXPECT_EQ(news.room, 1'000'000) << "the limit that every account has";
  EXPECT_EQ(news.roomForBytes, std::int64_t{1} << 30);
  EXPECT_EQ(text(news.records), "");
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
  const String mark = give(given);

  const HubNews news = hub.news({});
  EXPECT_TRUE(news.whole);
  EXPECT_FALSE(news.common);
  EXPECT_EQ(news.now.revision, 1);
  EXPECT_EQ(news.now.mark, mark);
  EXPECT_EQ(news.room, 999'995);
  EXPECT_EQ(text(news.records), text(given));
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
  EXPECT_EQ(text(hub.news({}).records), text(given));
  EXPECT_EQ(
      number("SELECT count(*) FROM corvane_hub.readable_records('" + user + "') WHERE name IS NOT NULL"), 5)
      << "the administrator can read them all";
}

TEST_F(HubTest, BytesThatAreNoTextAreReplaced) {
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

TEST_F(HubTest, RecordsOfALengthThatNobodyReadsAreRefused) {
  const HubSeen now = hub.news({}).now;
  EXPECT_THAT(failureOf([&] {
                hub.push({now, newUuidString(), {bookmark(std::string(1 << 20, 'n'), "u")}});
              }),
              HasSubstr("a bookmark is too long"));
  EXPECT_EQ(hub.news({}).now, now);
}

TEST_F(HubTest, NothingChangesItsKind) {
  const HubRecord a = bookmark("A", "http://a/"), b = folder("B");
  give({a, b});
  HubRecord folderNow = a, bookmarkNow = b;
  folderNow.folder = true;
  bookmarkNow.folder = false;
  HubRecord toldOtherwise = tombstone(b);
  toldOtherwise.folder = false;
  const auto expectRefused = [&] {
    for (const HubRecord& record : {folderNow, bookmarkNow}) {
      const HubSeen now = hub.news({}).now;
      EXPECT_THAT(failureOf([&] {
                    hub.push({now, newUuidString(), {record}});
                  }),
                  HasSubstr("a bookmark was to become a folder, or a folder a bookmark"));
      EXPECT_EQ(hub.news({}).now, now);
    }
  };
  expectRefused();
  give({tombstone(a), toldOtherwise});
  expectRefused();
  give({a, b});
  EXPECT_EQ(held(), text({a, b})) << "back as what they were";
}

TEST_F(HubTest, NewsTellsWhatChangedSince) {
  HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"), c = bookmark("C", "http://c/");
  give({a, b, c});
  const HubSeen first = hub.news({}).now;
  b.name = "B, renamed";
  give({b, tombstone(c)});
  const HubNews news = hub.news({first});
  EXPECT_TRUE(news.common);
  EXPECT_FALSE(news.whole);
  EXPECT_EQ(text(news.records), text({b, tombstone(c)}));
  EXPECT_EQ(news.room, 999'998);

  EXPECT_EQ(text(hub.news({}).records), text({a, b})) << "who asks for all hears of no tombstones";
  const HubNews again = hub.news({news.now});
  EXPECT_TRUE(again.common);
  EXPECT_EQ(text(again.records), "");
  EXPECT_EQ(again.now, news.now);
}

TEST_F(HubTest, EmptyAccountThatWasSeenGoesOn) {
  const HubSeen empty = hub.news({}).now;
  const HubRecord a = bookmark("A", "http://a/");
  give({a});
  const HubNews news = hub.news({empty});
  EXPECT_TRUE(news.common);
  EXPECT_FALSE(news.whole);
  EXPECT_EQ(text(news.records), text({a}));
}

TEST_F(HubTest, DeletedRecordLivesAgainWhenItIsGivenAgain) {
  const HubRecord a = bookmark("A", "http://a/");
  give({a});
  give({tombstone(a)});
  EXPECT_EQ(held(), "");
  EXPECT_EQ(hub.news({}).room, 1'000'000);
  give({a});
  EXPECT_EQ(held(), text({a}));
  EXPECT_EQ(hub.news({}).room, 999'999);
}

TEST_F(HubTest, PushOntoAnotherStateChangesNothing) {
  give({bookmark("A", "http://a/")});
  give({bookmark("B", "http://b/")});
  const HubSeen now = hub.news({}).now;
  const std::string before = held();
  const std::pair<const char*, HubSeen> cases[] = {
      {"an older revision", {now.account, now.revision - 1, now.mark}},
      {"a newer revision", {now.account, now.revision + 1, now.mark}},
      {"the first revision", {now.account, 0, {}}},
      {"the same revision of another past", {now.account, now.revision, newUuidString()}},
      {"the same revision without a mark", {now.account, now.revision, {}}},
      {"another account", {newUuidString(), now.revision, now.mark}},
  };
  for (const auto& [phrase, expected] : cases) {
    SCOPED_TRACE(phrase);
    const String mark = newUuidString();
    EXPECT_FALSE(hub.push({expected, mark, {bookmark("C", "http://c/")}}));
    EXPECT_FALSE(hub.hasPush(mark));
    EXPECT_EQ(hub.news({}).now, now);
    EXPECT_EQ(held(), before);
  }
}

TEST_F(HubTest, PushesOfThePastAreKnownByTheirMarks) {
  const String first = give({bookmark("A", "http://a/")}), second = give({});
  EXPECT_TRUE(hub.hasPush(first));
  EXPECT_TRUE(hub.hasPush(second)) << "a push of no records is one too";
  EXPECT_FALSE(hub.hasPush(newUuidString()));
}

TEST_F(HubTest, FailedPushLeavesNothing) {
  const HubSeen now = hub.news({}).now;
  const HubRecord a = bookmark("A", "http://a/");
  const String mark = newUuidString();
  EXPECT_THAT(failureOf([&] {
                hub.push({now, mark, {a, a}});
              }),
              HasSubstr("Can't give changes"))
      << "one record twice in a push is a mistake";
  EXPECT_EQ(hub.news({}).now, now);
  EXPECT_EQ(held(), "");
  EXPECT_FALSE(hub.hasPush(mark));
  HubRecord nameless = a;
  nameless.id = "not a UUID";
  EXPECT_THAT(failureOf([&] { hub.push({now, mark, {nameless}}); }), HasSubstr("no UUID"));
  EXPECT_TRUE(hub.push({now, mark, {a}})) << "the failed one is not in the way";
}

TEST_F(HubTest, ManyRecordsComeInPages) {
  std::vector<HubRecord> given;
  for (int i = 0; i < 12'001; ++i) given.push_back(bookmark("record " + std::to_string(i), "http://a/"));
  give(given);
  EXPECT_EQ(text(hub.news({}).records), text(given));

  const HubSeen seen = hub.news({}).now;
  for (HubRecord& record : given) record.position = 1;
  std::vector<HubRecord> half(given.begin(), given.begin() + 6'000), rest(given.begin() + 6'000, given.end());
  give(half);
  give(rest);
  EXPECT_EQ(text(hub.news({seen}).records), text(given)) << "a page ends within a revision";
}

TEST_F(HubTest, LargeRecordsComeInPages) {
  std::vector<HubRecord> given;
  for (int i = 0; i < 20; ++i) given.push_back(bookmark(std::string(300'000 + i, 'n'), "http://a/"));
  give(given);
  EXPECT_EQ(text(hub.news({}).records), text(given));
}

TEST_F(HubTest, FullAccountRefusesAdditionsAndTakesDeletions) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"),
                  c = bookmark("C", "http://c/"), d = bookmark("D", "http://d/");
  give({a, b, c});
  administer("UPDATE corvane_hub.accounts SET record_limit = 3 WHERE id = $");
  const HubNews news = hub.news({});
  EXPECT_EQ(news.room, 0);
  EXPECT_THAT(failureOf([&] {
                hub.push({news.now, newUuidString(), {d}});
              }),
              HasSubstr("the account is full"));
  EXPECT_EQ(hub.news({}).now, news.now);
  EXPECT_EQ(held(), text({a, b, c}));

  HubRecord renamed = a;
  renamed.name = "A, renamed";
  give({renamed});
  EXPECT_EQ(held(), text({renamed, b, c})) << "changes are no additions";
  give({d, tombstone(b)});
  EXPECT_EQ(held(), text({renamed, c, d})) << "as much added as deleted";
  give({tombstone(c), tombstone(d), tombstone(bookmark("never seen", {}))});
  EXPECT_EQ(hub.news({}).room, 2);
  EXPECT_EQ(number("SELECT live_records FROM corvane_hub.accounts WHERE id = $"),
            number("SELECT count(*) FROM corvane_hub.records WHERE account = $ AND NOT deleted"));
}

TEST_F(HubTest, TombstoneOfWhatNeverWasIsNotKept) {
  give({tombstone(bookmark("never seen", {}))});
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE account = $"), 0);
}

TEST_F(HubTest, TextsOfAnAccountAreBounded) {
  const HubRecord a = bookmark("12345", "67890"), b = bookmark(std::string(85, 'n'), "12345");
  give({a, b});
  administer("UPDATE corvane_hub.accounts SET byte_limit = 100 WHERE id = $");
  const HubSeen full = hub.news({}).now;
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
  const HubSeen seen = hub.news({}).now;
  turnOver();
  EXPECT_EQ(tombstones(), 4);
  give({});
  EXPECT_EQ(tombstones(), 0) << "more than the account may hold records: dropped before their time";
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE account = $"), 0);
  EXPECT_TRUE(hub.news({seen}).whole);

  administer("UPDATE corvane_hub.accounts SET tombstones = 6 WHERE id = $");
  const HubRecord last = bookmark("C", "http://c/");
  give({last});
  EXPECT_THAT(failureOf([&] {
                hub.push({hub.news({}).now, newUuidString(), {tombstone(last)}});
              }),
              HasSubstr("it remembers as many deletions as it may"));
}

TEST_F(HubTest, SettingsAreThoseOfOneComputer) {
  PostgresHub other(url, newUuidString());
  EXPECT_FALSE(other.isEnabled(kHubDataClass)) << "never heard of";
  EXPECT_TRUE(hub.isEnabled(kHubDataClass));
  EXPECT_FALSE(hub.isEnabled("com.keldra.Contacts"));
  give({bookmark("A", "http://a/")});

  const HubNews off = other.news({});
  EXPECT_FALSE(off.enabled);
  EXPECT_EQ(text(off.records), "") << "nothing is read where the class is off";
  other.setEnabled(kHubDataClass, true);
  EXPECT_TRUE(other.isEnabled(kHubDataClass));
  EXPECT_TRUE(other.news({}).enabled);
  hub.setEnabled(kHubDataClass, false);
  EXPECT_FALSE(hub.isEnabled(kHubDataClass));
  EXPECT_TRUE(other.isEnabled(kHubDataClass));
}

TEST_F(HubTest, ComputersAreNotedOnceADayUnderTheirPresentName) {
  const std::string noted =
      "SELECT extract(epoch FROM now() - last_seen)::bigint FROM corvane_hub.computers "
      "WHERE account = $ AND name = '";
  EXPECT_LT(number(noted + "testhost'"), 100);
  administer("UPDATE corvane_hub.computers SET last_seen = now() - interval '5 hours' WHERE account = $");
  hub.news({});
  EXPECT_GT(number(noted + "testhost'"), 10'000) << "seen today already";
  administer("UPDATE corvane_hub.computers SET last_seen = now() - interval '25 hours' WHERE account = $");
  hub.news({});
  EXPECT_LT(number(noted + "testhost'"), 100);
  platform.process.host = "n\xC3\xA4me\n";
  hub.news({});
  EXPECT_LT(number(noted + "n??me?'"), 100);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.computers WHERE account = $"), 1);
}

TEST_F(HubTest, ComputerThatCannotBeNotedSyncsAllTheSame) {
  give({bookmark("A", "http://a/")});
  administer("UPDATE corvane_hub.computers SET name = 'another' WHERE account = $");
  administer("ALTER TABLE corvane_hub.computers ADD CONSTRAINT refuse CHECK (name <> 'testhost') NOT VALID");
  EXPECT_EQ(hub.news({}).records.size(), 1u);
  administer("ALTER TABLE corvane_hub.computers DROP CONSTRAINT refuse");
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.computers WHERE account = $ AND name = 'another'"), 1);
}

TEST_F(HubTest, AccountKeepsAThousandComputersAtMost) {
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

TEST_F(RestoredHubTest, StateSeenAfterTheBackupIsOfAnotherPast) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/");
  give({a});
  const HubSeen before = hub.news({}).now;
  backUp();
  give({b});
  const HubSeen after = hub.news({}).now;
  restore();

  HubNews news = hub.news({after});
  EXPECT_FALSE(news.common);
  EXPECT_TRUE(news.whole);
  EXPECT_EQ(text(news.records), text({a}));
  EXPECT_TRUE(hub.news({before}).common);
  EXPECT_FALSE(hub.push({after, newUuidString(), {b}}));

  give({bookmark("C", "http://c/")});
  news = hub.news({after});
  EXPECT_EQ(news.now.revision, after.revision) << "the same number";
  EXPECT_FALSE(news.common) << "of another past";
  EXPECT_FALSE(hub.push({after, newUuidString(), {b}}));
}

TEST_F(RestoredHubTest, NewestStateThatBothKnowIsFoundAndWhatChangedSinceIsTold) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"),
                  c = bookmark("C", "http://c/"), d = bookmark("D", "http://d/");
  const HubSeen empty = hub.news({}).now;
  give({a, b, c});
  const HubSeen first = hub.news({}).now;
  give({tombstone(c)});
  const HubSeen second = hub.news({}).now;
  backUp();
  give({d});
  const HubSeen lost = hub.news({}).now;
  restore();
  give({tombstone(b)});

  const HubNews news = hub.news({lost, second, first, empty});
  EXPECT_EQ(news.common, second);
  EXPECT_TRUE(news.whole);
  EXPECT_EQ(text(news.records), text({a, tombstone(b)})) << "what was deleted before needs not be told";
  for (const HubRecord& record : news.records) EXPECT_EQ(record.revision, record.deleted ? 3 : 1);
  EXPECT_EQ(news.past, std::vector<HubSeen>()) << "there are none between";
  EXPECT_EQ(hub.news({lost, first}).past, std::vector<HubSeen>{second});
  EXPECT_EQ(hub.news({lost, empty}).common, empty) << "every account began so";
}

TEST_F(HubTest, WhoComesLateIsToldOfThePastMoreSparselyTheFartherBack) {
  const HubSeen empty = hub.news({}).now;
  for (int i = 0; i < 200; ++i) give({});
  const std::vector<HubSeen> past = hub.news({}).past;
  ASSERT_EQ(past.size(), 65u);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(past[static_cast<std::size_t>(i)].revision, 199 - i);
  EXPECT_EQ(past.back().revision, 200 - 128);
  EXPECT_TRUE(hub.news({past.back()}).common);
  EXPECT_EQ(hub.news({past[2], empty}).past, (std::vector<HubSeen>{past[0], past[1]}));
}

TEST_F(RestoredHubTest, AccountMadeAnewIsAnotherOne) {
  const HubRecord a = bookmark("A", "http://a/");
  const HubSeen empty = hub.news({}).now;
  give({a});
  const HubSeen seen = hub.news({}).now;
  server.hubAccount("remove", user);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE id = '" + a.id.toString() + "'"), 0);
  PostgresHub again(server.addAccount(user), computer);
  again.setEnabled(kHubDataClass, true);
  for (const HubSeen& past : {empty, seen}) {
    const HubNews news = again.news({past});
    EXPECT_FALSE(news.common);
    EXPECT_TRUE(news.whole);
    EXPECT_EQ(text(news.records), "");
  }
}

TEST_F(HubTest, OldTombstonesAreForgottenAndWhoMissedThemIsGivenAll) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/"),
                  c = bookmark("C", "http://c/");
  give({a, b, c});
  const HubSeen early = hub.news({}).now;
  give({tombstone(a)});
  const HubSeen late = hub.news({}).now;
  administer("UPDATE corvane_hub.records SET changed = now() - interval '401 days' WHERE account = $");
  give({tombstone(b)});
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.records WHERE account = $ AND deleted"), 1)
      << "the old tombstone went, the fresh one stays";

  const HubNews forEarly = hub.news({early});
  EXPECT_TRUE(forEarly.common);
  EXPECT_TRUE(forEarly.whole);
  EXPECT_EQ(text(forEarly.records), text({c}));
  const HubNews forLate = hub.news({late});
  EXPECT_TRUE(forLate.common);
  EXPECT_FALSE(forLate.whole);
  EXPECT_EQ(text(forLate.records), text({tombstone(b)}));
}

TEST_F(HubTest, OldPushesAreForgottenButForTheNewestThousand) {
  give({bookmark("A", "http://a/")});
  const HubSeen first = hub.news({}).now;
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
  EXPECT_FALSE(hub.news({first}).common) << "forgotten counts as never seen";
  for (int i = 0; i < 4; ++i) give({});
  EXPECT_EQ(number("SELECT min(revision) FROM corvane_hub.pushes WHERE account = $"), 306);
  EXPECT_EQ(number("SELECT count(*) FROM corvane_hub.pushes WHERE account = $"), 1000);
}

}  // namespace
}  // namespace corvane::pelto
