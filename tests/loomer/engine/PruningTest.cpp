#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using loomer::kKeptSessions;

constexpr double kDay = 24.0 * 60 * 60;

class PruningTest : public EngineTest {
 protected:
  void pass(double seconds) { platform.clock.time.seconds += seconds; }
  std::int64_t oldest() { return number("SELECT min(id) FROM sessions"); }
  std::int64_t contentRows() { return number("SELECT count(*) FROM contents"); }

  // Sessions without changes, as from a client to which things were only delivered.
  void enterSessions(std::int64_t count) {
    store().writing([&] {
      store()
          .database()
          .query(
              "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?1)"
              " INSERT INTO sessions(client, began, ended, mode, revision, taken, changed, handed_down)"
              " SELECT 'c', ?2, ?2, 1, 1, 0, 0, 1 FROM n",
              "test")
          .run(count, platform.clock.now().seconds);
    });
  }

  void prune(std::size_t rows = loomer::kPrunedRows) {
    store().writing([&] { loomer::pruneLog(store(), platform.clock.now(), rows); });
  }
};

TEST_F(PruningTest, KeepsAThousandSessionsHoweverOld) {
  enterSessions(kKeptSessions);
  pass(400 * kDay);
  prune();
  EXPECT_EQ(oldest(), 1);
  enterSessions(3);
  prune();
  EXPECT_EQ(oldest(), 4);
}

TEST_F(PruningTest, KeepsNinetyDaysHoweverManySessions) {
  enterSessions(10);
  pass(kDay);
  enterSessions(2 * kKeptSessions);
  pass(89 * kDay);
  prune();
  EXPECT_EQ(oldest(), 1) << "90 days are kept, to the second";
  pass(1);
  prune();
  EXPECT_EQ(oldest(), 11);
}

TEST_F(PruningTest, ASessionPrunesInItsOwnTransaction) {
  const auto a = makeClient("a");
  const std::string bookmark = a->addBookmark("", "A", "http://a/");
  ASSERT_EQ(a->sync(), "");
  enterSessions(kKeptSessions);
  pass(91 * kDay);
  a->rename(bookmark, "B");
  a->finishAnswer = false;
  ASSERT_NE(a->sync(), "");
  EXPECT_EQ(oldest(), 1) << "rolled back with the session";
  a->finishAnswer = true;
  ASSERT_EQ(a->sync(), "");
  EXPECT_GT(oldest(), 1);
  EXPECT_EQ(number("SELECT count(*) FROM changes WHERE session = 1"), 0);
}

TEST_F(PruningTest, DropsChangesLossesAndContentsThatNothingRefersToAnyMore) {
  const auto a = makeClient("a"), b = makeClient("b");
  const std::string kept = a->addBookmark("", "Kept", "http://kept/");
  const std::string gone = a->addBookmark("", "Gone", "http://gone/");
  const std::string other = a->addBookmark("", "Old", "http://old/");
  ASSERT_EQ(a->sync(), "");
  a->rename(other, "Newer");
  a->remove(gone);
  ASSERT_EQ(a->sync(), "");
  a->rename(other, "Newest");
  ASSERT_EQ(a->sync(), "");
  const std::int64_t before = contentRows();
  EXPECT_EQ(before, 5);
  store().writing([&] {
    store().database().execute("INSERT INTO losses VALUES(1, 2, 3, 'title', 'x', 'y', 1)", "test");
  });
  enterSessions(kKeptSessions);
  pass(91 * kDay);
  prune();
  EXPECT_EQ(oldest(), number("SELECT pruned_session + 1 FROM truth"));
  EXPECT_EQ(number("SELECT count(*) FROM changes"), 0);
  EXPECT_EQ(number("SELECT count(*) FROM losses"), 0);
  EXPECT_EQ(contentRows(), 2) << "what the truth holds, nothing else";
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "Kept@http://kept/ Newest@http://old/");
}

TEST_F(PruningTest, ContentsThatOnlyAnAbsentClientsBaseRefersToGoWithIt) {
  const auto a = makeClient("a"), b = makeClient("b");
  const std::string renamed = a->addBookmark("", "Old", "http://old/");
  const std::string removed = a->addBookmark("", "Gone", "http://gone/");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  settle({a.get(), b.get()});
  a->rename(renamed, "New");
  a->remove(removed);
  ASSERT_EQ(a->sync(), "");
  enterSessions(kKeptSessions);
  pass(91 * kDay);
  prune();
  EXPECT_EQ(contentRows(), 3) << "the base of the absent client still says what it held";
  EXPECT_THAT(loomer::checkStore(store()), testing::IsEmpty());
  settle({b.get(), a.get()});
  EXPECT_EQ(b->text(), "New@http://old/");
  EXPECT_EQ(contentRows(), 1);
}

TEST_F(PruningTest, UnregisteringDropsContentsThatOnlyItsBaseReferredTo) {
  const auto a = makeClient("a"), b = makeClient("b");
  const std::string renamed = a->addBookmark("", "Old", "http://old/");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  a->rename(renamed, "New");
  ASSERT_EQ(a->sync(), "");
  enterSessions(kKeptSessions);
  pass(91 * kDay);
  prune();
  EXPECT_EQ(contentRows(), 2);
  manager().unregisterClient(*manager().clientWithIdentifier("b"));
  EXPECT_EQ(contentRows(), 1);
}

TEST_F(PruningTest, ALargeSessionGoesInPartsAndIsOutOfTheLogAtOnce) {
  const auto a = makeClient("a");
  for (int i = 0; i < 25; ++i) a->addBookmark("", "B" + std::to_string(i), "http://b/");
  ASSERT_EQ(a->sync(), "");
  enterSessions(kKeptSessions);
  pass(91 * kDay);
  for (const std::int64_t left : {15, 5, 0}) {
    prune(10);
    EXPECT_EQ(number("SELECT count(*) FROM changes"), left);
    loomer::SessionLog log(store());
    EXPECT_TRUE(log.isPruned(1));
    EXPECT_FALSE(log.session(1));
    EXPECT_THAT(log.changes(1), testing::IsEmpty());
    EXPECT_EQ(log.sessions().front().id, 2);
  }
  EXPECT_EQ(oldest(), 2);
}

TEST_F(PruningTest, UndoOfAPrunedSessionIsRefusedWithAClearText) {
  const auto a = makeClient("a");
  a->addBookmark("", "A", "http://a/");
  ASSERT_EQ(a->sync(), "");
  enterSessions(kKeptSessions);
  pass(91 * kDay);
  prune();
  try {
    loomer::undoSession(store(), "test", 1, false);
    FAIL() << "the session was undone";
  } catch (const PlatformException& exception) {
    EXPECT_THAT(exception.reason(), testing::HasSubstr("session 1 is too old to be undone"));
  }
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 1);
}

TEST_F(PruningTest, AClockThatJumpsAYearNeitherEmptiesTheLogNorStopsThePruning) {
  enterSessions(5);
  pass(365 * kDay);
  enterSessions(1);  // while the clock was a year ahead
  pass(-365 * kDay);
  enterSessions(kKeptSessions + 4);
  pass(-365 * kDay);
  prune();
  EXPECT_EQ(oldest(), 1) << "a clock that is a year behind makes nothing old";
  pass((365 + 91) * kDay);
  prune();
  EXPECT_EQ(oldest(), 11) << "a session from the future is as old as the one after it";
}

}  // namespace
}  // namespace corvane
