#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/loomer/engine/PlannedSession.h"

namespace corvane::loomer::test {
namespace {

const Date kNow{100.0};

struct Answered {
  const char* phrase;
  ThreeTrees trees;
  std::vector<std::string> refused;
  std::vector<std::string> withheld;
  const char* held;  // by the client, as its base says after the session
  friend void PrintTo(const Answered& row, std::ostream* out) { *out << row.phrase; }
};

class Settling : public testing::TestWithParam<Answered> {
 protected:
  static std::vector<RecordId> records(const PlannedSession& session,
                                       const std::vector<std::string>& labels) {
    std::vector<RecordId> found;
    for (const std::string& label : labels) found.push_back(session.record(label));
    return found;
  }
};

TEST_P(Settling, SaysInTheBaseWhatTheClientHolds) {
  const Answered& row = GetParam();
  PlannedSession session(row.trees);
  const Plan plan = makePlan(session.opening, session.sides);
  const Delivery delivery =
      PlannedSession::delivery(plan, records(session, row.refused), records(session, row.withheld));
  const Settlement settlement = settle(session.opening, plan, plan.result.base, delivery, kNow);
  EXPECT_EQ(session.held(settlement.base), row.held);
  ASSERT_TRUE(settlement.logEntry);
  EXPECT_EQ(settlement.logEntry->refused, row.refused.size() + row.withheld.size());
  for (const BaseRecord& each : settlement.base) {
    EXPECT_EQ(each.refusedRevision != 0, delivery.refused.contains(each.record)) << each.record;
  }
}

const Answered kAnswered[] = {
    {"everything taken", {"a b", "a=A b c", "a b"}, {}, {}, "a=A b c"},
    {"an addition refused", {"a", "a F(b) c", "a"}, {"F"}, {"b"}, "a c"},
    {"a change refused", {"a b", "a=A b=B", "a b"}, {"a"}, {}, "a b=B"},
    {"a change refused of what the client has changed too", {"a", "a=A", "a@x"}, {"a"}, {}, "a@x"},
    {"a deletion refused", {"a b", "b", "a b"}, {"a"}, {}, "a b"},
    {"a move withheld", {"F() G()", "G(F())", "F() G()"}, {}, {"F"}, "F() G()"},
    {"a move refused, another withheld", {"F(G())", "G(F())", "F(G())"}, {"G"}, {"F"}, "F(G())"},
    {"a folder's deletion refused", {"F(a) b", "b", "F(a) b"}, {"F"}, {}, "F() b"},
};

INSTANTIATE_TEST_SUITE_P(Answers, Settling, testing::ValuesIn(kAnswered));

TEST(SettlementTest, WhatIsNewOnNeitherSideLeavesNothingBehindButTheCount) {
  PlannedSession session({"a", "a", "a"});
  const Plan plan = quietPlan(session.opening, std::nullopt);
  const Settlement settlement = settle(session.opening, plan, plan.result.base, Delivery(), kNow);
  EXPECT_TRUE(settlement.base.empty());
  EXPECT_FALSE(settlement.logEntry);
  EXPECT_FALSE(settlement.journal);
  EXPECT_EQ(settlement.client.sessions, session.opening.client.sessions + 1);
  EXPECT_EQ(settlement.client.syncedRevision, session.opening.truth.revision);
  EXPECT_EQ(settlement.client.sessionsWithoutRecords, 1);
  EXPECT_FALSE(settlement.client.delivered);
}

TEST(SettlementTest, CountsWhatTheSessionDid) {
  PlannedSession session({"a b", "a=A b", "a b c"});
  const Plan plan = makePlan(session.opening, session.sides);
  const Settlement settlement =
      settle(session.opening, plan, plan.result.base, PlannedSession::delivery(plan), kNow);
  ASSERT_TRUE(settlement.logEntry);
  EXPECT_EQ(settlement.logEntry->taken, 3u);
  EXPECT_EQ(settlement.logEntry->changed, 1u);
  EXPECT_EQ(settlement.logEntry->delivered, 1u);
  EXPECT_EQ(settlement.logEntry->refused, 0u);
  EXPECT_EQ(settlement.logEntry->revision, plan.input.revision);
  EXPECT_EQ(settlement.logEntry->ended.seconds, kNow.seconds);
  EXPECT_EQ(settlement.client.syncedRevision, plan.input.revision);
  EXPECT_TRUE(settlement.client.delivered);
}

TEST(SettlementTest, AClientFromWhichSomethingWasWithheldIsNotUpToDate) {
  PlannedSession session({"F() G()", "G(F())", "F() G()"});
  const Plan plan = makePlan(session.opening, session.sides);
  const std::int64_t now = session.opening.truth.revision;
  EXPECT_EQ(settle(session.opening, plan, plan.result.base, PlannedSession::delivery(plan), kNow)
                .client.syncedRevision,
            now);
  const Delivery withheld = PlannedSession::delivery(plan, {}, {session.record("F")});
  EXPECT_EQ(settle(session.opening, plan, plan.result.base, withheld, kNow).client.syncedRevision, now - 1);
  session.opening.truth.forgottenRevision = now;
  EXPECT_EQ(settle(session.opening, plan, plan.result.base, withheld, kNow).client.syncedRevision, now)
      << "a base older than what the truth has forgotten could not be used";
}

TEST(SettlementTest, AClientThatIsGivenEverythingAnewNeedsNoJournal) {
  PlannedSession session({"a", "a b", "a"});
  session.opening.kind = SessionKind::replace;
  session.sides.client = {};
  const Plan plan = makePlan(session.opening, session.sides);
  ASSERT_TRUE(plan.delivers());
  EXPECT_FALSE(settle(session.opening, plan, plan.result.base, PlannedSession::delivery(plan), kNow).journal);
}

// The session is killed between the client's saving and the commit: the store knows nothing of it but the
// journal, and the client holds what was delivered.
class KilledSession : public testing::Test {
 protected:
  static void endsAsIfNotKilled(const ThreeTrees& trees, const std::vector<std::string>& refused = {}) {
    SCOPED_TRACE("base " + trees.base + "; truth " + trees.truth + "; client " + trees.client);
    PlannedSession session(trees);
    const Plan plan = makePlan(session.opening, session.sides);
    std::vector<RecordId> refusals;
    for (const std::string& label : refused) refusals.push_back(session.record(label));
    const Delivery delivery = PlannedSession::delivery(plan, refusals);
    const Settlement settlement = settle(session.opening, plan, plan.result.base, delivery, kNow);
    if (!settlement.journal) return;

    PlannedSession next(trees);
    next.opening.journal = settlement.journal;
    next.sides.client.tree = PlannedSession::pushed(settlement.base);
    next.sides.tookPush = true;
    const Plan again = makePlan(next.opening, next.sides);
    EXPECT_EQ(again.knownPushId, settlement.journal->pushId);
    EXPECT_EQ(session.truth(PlannedSession::truthAfter(again)),
              session.truth(PlannedSession::truthAfter(plan)));
    if (refused.empty()) {
      EXPECT_TRUE(again.result.clientChanges.empty()) << "the client holds it all";
    }
  }
};

TEST_F(KilledSession, EndsAsIfNotKilledWhateverBothSidesChanged) {
  const std::vector<std::string> variants = {
      "F(a b) c G(d)",   "F(a b) c G(d) e",  "F(b a) c G(d)", "c F(a b) G(d)",   "F(a b c) G(d)",
      "F(a b) c G(d=D)", "F(a=A b) c G(d)",  "F(a@x b) G(d)", "G(F(a b) d) c",   "F(a G(d) b) c",
      "F(a b) c",        "c G(d)",           "F(a) c G(b d)", "F=N(a b) c G(d)", "F(a b) c G(d H(i))",
      "G(d) c F(b a)",   "e F(a b) c j G(d)"};
  for (const std::string& truth : variants) {
    for (const std::string& client : variants) endsAsIfNotKilled({variants.front(), truth, client});
  }
}

TEST_F(KilledSession, ChangesThatTheClientRefusedAreStillItsOwnAtTheNext) {
  endsAsIfNotKilled({"a b", "a=A b", "a@x b"}, {"a"});
  endsAsIfNotKilled({"F() G() a", "G(F()) a", "F() G() a=A"}, {"F"});
  endsAsIfNotKilled({"a b", "a=A b c", "b a"}, {"c"});
}

TEST(JournalOfASession, NamesTheLocalIdsOfAdditionsAndWhatTheClientHeldBeforeItsOwnChanges) {
  PlannedSession session({"a b", "a=A b c", "a b=B"});
  session.opening.client.sessions = 7;
  const Plan plan = makePlan(session.opening, session.sides);
  const Settlement settlement =
      settle(session.opening, plan, plan.result.base, PlannedSession::delivery(plan), kNow);
  ASSERT_TRUE(settlement.journal);
  EXPECT_EQ(settlement.journal->pushId, "push");
  EXPECT_EQ(settlement.journal->sessions, 7);
  ASSERT_EQ(settlement.journal->added.size(), 1u);
  EXPECT_EQ(session.held(withDifference(settlement.journal->delivered, plan.input.base)), "a=A b c");
}

}  // namespace
}  // namespace corvane::loomer::test
