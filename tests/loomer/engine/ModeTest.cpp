#include <gmock/gmock.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using loomer::SessionKind;

struct ModeRow {
  const char* phrase;
  int preferred;
  loomer::ClientState client;
  loomer::TruthState truth;
  SessionKind kind;
};

loomer::ClientState client(std::optional<std::int64_t> synced, std::int64_t withoutRecords = 0,
                           bool delivered = false, bool reset = false) {
  loomer::ClientState state;
  state.syncedRevision = synced;
  state.sessionsWithoutRecords = withoutRecords;
  state.delivered = delivered;
  state.resetPending = reset;
  return state;
}

loomer::ClientState restored(loomer::ClientState state) {
  state.restorePending = true;
  return state;
}

loomer::ClientState cancelled(loomer::ClientState state) {
  state.cancelled = true;
  return state;
}

TEST(ModeTest, TheEngineRaisesTheModeWhereItMust) {
  const loomer::TruthState truth{5, 10, 3};
  const ModeRow rows[] = {
      {"the mode asked for", 1, client(5), truth, SessionKind::fast},
      {"slow over fast", 2, client(5), truth, SessionKind::slow},
      {"refresh", 3, client(5), truth, SessionKind::refresh},
      {"no base yet", 1, client(std::nullopt), truth, SessionKind::refresh},
      {"a base older than the truth's memory", 1, client(2), truth, SessionKind::refresh},
      {"a base just within the truth's memory", 1, client(3), truth, SessionKind::fast},
      {"a base newer than the truth", 2, client(6), truth, SessionKind::refresh},
      {"the session before delivered something", 1, client(5, 0, true), truth, SessionKind::slow},
      {"refresh stays refresh after a session that delivered", 3, client(5, 0, true), truth,
       SessionKind::refresh},
      {"nineteen sessions without records", 1, client(5, 19), truth, SessionKind::slow},
      {"eighteen sessions without records", 1, client(5, 18), truth, SessionKind::fast},
      {"a pending reset", 1, client(5, 0, false, true), truth, SessionKind::replace},
      {"what it lacks is to be restored", 1, restored(client(5)), truth, SessionKind::refresh},
      {"a pending reset before a restore", 1, restored(client(5, 0, false, true)), truth,
       SessionKind::replace},
      {"an unknown mode", 7, client(5), truth, SessionKind::refresh},
      {"refresh after a cancelled session", 3, cancelled(client(5)), truth, SessionKind::slow},
      {"no base after a cancelled session", 3, cancelled(client(std::nullopt)), truth, SessionKind::refresh},
  };
  for (const ModeRow& row : rows) {
    EXPECT_EQ(static_cast<int>(sessionKind(loomer::kindOfMode(row.preferred), row.client, row.truth, false)),
              static_cast<int>(row.kind))
        << row.phrase;
  }
}

class ModeSessionTest : public EngineTest {
 protected:
  static bool tookRecords(const ScriptedClient& client) {
    return std::find(client.calls.begin(), client.calls.end(), "records folders") != client.calls.end();
  }
};

TEST_F(ModeSessionTest, EveryTwentiethSessionInARowWithoutRecordsIsSlow) {
  const auto client = makeClient("c");
  client->addBookmark("", "A", "http://a/");
  ASSERT_EQ(client->sync(), "");
  client->mode = LoomerSyncModeFast;
  for (int round = 0; round < 2; ++round) {
    for (int session = 1; session <= 20; ++session) {
      reopen();
      ASSERT_EQ(client->sync(), "");
      EXPECT_EQ(tookRecords(*client), session == 20) << session;
    }
  }
}

TEST_F(ModeSessionTest, FastSessionWithSomethingToDeliverAsksForTheRecordsToo) {
  const auto a = makeClient("a"), b = makeClient("b");
  a->addBookmark("", "A", "http://a/");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_TRUE(tookRecords(*b)) << "the session before this one handed something down";
  ASSERT_EQ(b->sync(), "");
  EXPECT_FALSE(tookRecords(*b));
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  b->mode = LoomerSyncModeFast;
  ASSERT_EQ(b->sync(), "");
  EXPECT_TRUE(tookRecords(*b));
  EXPECT_EQ(b->text(), a->text());
}

TEST_F(ModeSessionTest, RefreshDeletesNothingThatTheClientLacks) {
  const auto a = makeClient("a");
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  a->remove(a->find("B"));
  a->mode = LoomerSyncModeRefresh;
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "A@http://a/ B@http://b/");
}

TEST_F(ModeSessionTest, TombstonesLiveUntilEveryRegisteredClientsBaseHasPassedThem) {
  const auto a = makeClient("a"), b = makeClient("b");
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  settle({a.get(), b.get()});
  a->remove(a->find("B"));
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(number("SELECT count(*) FROM tombstones"), 1) << "the other client has not passed it";
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "A@http://a/");
  EXPECT_EQ(number("SELECT count(*) FROM tombstones"), 0);
  EXPECT_EQ(number("SELECT forgotten_revision FROM truth"), number("SELECT revision FROM truth"));
}

TEST_F(ModeSessionTest, ClientWhoseBaseIsOlderThanTheTruthsMemoryRunsAsRefresh) {
  const auto a = makeClient("a");
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  store().database().execute("UPDATE truth SET revision = 9, forgotten_revision = 7", "restore");
  a->remove(a->find("B"));
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "A@http://a/ B@http://b/") << "neither resurrects nor wipes silently";
}

TEST(ModeTest, AClientThatTellsEveryChangeIsTakenAtItsWord) {
  const loomer::TruthState truth{5, 10, 3};
  EXPECT_EQ(sessionKind(SessionKind::fast, client(5, 19, true), truth, true), SessionKind::fast);
  EXPECT_EQ(sessionKind(SessionKind::refresh, cancelled(client(5)), truth, true), SessionKind::refresh);
}

}  // namespace
}  // namespace corvane
