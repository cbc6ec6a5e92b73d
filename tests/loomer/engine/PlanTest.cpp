#include <gtest/gtest.h>

#include <string>

#include "tests/loomer/engine/PlannedSession.h"

namespace corvane::loomer::test {
namespace {

Plan planOf(const PlannedSession& session) { return makePlan(session.opening, session.sides); }

// The record as the client holds it, for a journal.
BaseRecord heldRecord(const PlannedSession& session, const std::string& label, const std::string& title) {
  BaseRecord record;
  record.localId = MergeCase::localId(label);
  record.record = session.record(label);
  record.content.name = String(title);
  record.content.url = String("http://" + label);
  return record;
}

// A killed session has delivered the title A, and the user has changed it since.
PlannedSession withDeliveredTitle() {
  PlannedSession session({"a", "a=A", "a=Mine"});
  Journal journal;
  journal.pushId = "push";
  journal.delivered.held = {heldRecord(session, "a", "A")};
  session.opening.journal = journal;
  return session;
}

TEST(PlanTest, MergesOverTheStoredBase) {
  PlannedSession session({"a b", "a=A b", "b a"});
  const Plan plan = planOf(session);
  EXPECT_FALSE(plan.replacedBase);
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(plan)), "b a=A");
  EXPECT_EQ(session.held(plan.result.base), "b a=A");
}

TEST(PlanTest, IsTheSameForTheSameSides) {
  PlannedSession session({"a F(b)", "F(b a)", "F(b) a=A"});
  const Plan once = planOf(session), twice = planOf(session);
  EXPECT_EQ(once.result.base, twice.result.base);
  EXPECT_EQ(once.result.truthChanges.size(), twice.result.truthChanges.size());
}

TEST(PlanTest, NothingIsPlannedWhenNothingIsNew) {
  PlannedSession session({"a", "a", "a"});
  const Plan plan = quietPlan(session.opening, std::nullopt);
  EXPECT_TRUE(plan.isQuiet());
  EXPECT_FALSE(plan.delivers());
  EXPECT_FALSE(planOf(session).isQuiet()) << "what is merged is not quiet, though it changes nothing";
}

TEST(PlanTest, ADeliveryThatTheClientSaysItTookIsPartOfTheBase) {
  PlannedSession session = withDeliveredTitle();
  session.sides.tookPush = true;
  const Plan plan = planOf(session);
  EXPECT_EQ(plan.knownPushId, "push");
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(plan)), "a=Mine");
  EXPECT_TRUE(plan.result.losses.empty()) << "an edit over what was delivered is no conflict";
}

TEST(PlanTest, ADeliveryThatTheClientSaysItDidNotTakeIsNot) {
  PlannedSession session = withDeliveredTitle();
  session.sides.tookPush = false;
  const Plan plan = planOf(session);
  EXPECT_FALSE(plan.knownPushId);
  EXPECT_EQ(plan.result.losses.size(), 1u);
}

TEST(PlanTest, AFileShowsByOneAdditionThatItTookTheDelivery) {
  PlannedSession session({"a", "a b c", "a b"});
  Journal journal;
  journal.pushId = "push";
  journal.delivered.held = {heldRecord(session, "b", "b"), heldRecord(session, "c", "c")};
  journal.added = {MergeCase::localId("b"), MergeCase::localId("c")};
  session.opening.journal = journal;
  session.opening.kind = SessionKind::slow;
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(planOf(session))), "a b")
      << "the other addition was deleted by the user";
  session.sides.client.tree->pop_back();
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(planOf(session))), "a b c") << "it holds neither";
}

TEST(PlanTest, WhatTheClientLacksOfDeliveriesThatItDeniesWasNotDeleted) {
  PlannedSession session({"a", "a b", "a"});
  Journal journal;
  journal.pushId = "push";
  journal.knownPushId = "before";
  journal.known.held = {heldRecord(session, "b", "b")};
  session.opening.journal = journal;
  session.sides.tookPush = session.sides.tookKnownPush = false;
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(planOf(session))), "a b");
  session.sides.tookKnownPush = true;
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(planOf(session))), "a");
}

// Somebody who had learned of the deletion brought b back, and gave the client both.
TEST(PlanTest, ADeliveryThatTheClientDeniedCountsOnceItHoldsItAllTheSame) {
  PlannedSession session({"a b", "a", "a b"});
  Journal journal;
  journal.pushId = "push";
  journal.denied = {{"another", {}}, {"before", {{}, {session.record("b")}}}};
  session.opening.journal = journal;
  session.sides.tookPush = false;
  const Plan deleting = planOf(session);
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(deleting)), "a");
  EXPECT_EQ(deleting.denied.size(), 3u);
  EXPECT_EQ(deleting.denied.front().pushId, "push");
  session.sides.tookDenied = 1;
  const Plan plan = planOf(session);
  EXPECT_EQ(session.truth(PlannedSession::truthAfter(plan)), "a ?=b@http://b") << "as a new record";
  EXPECT_EQ(plan.knownPushId, "before");
  EXPECT_EQ(plan.denied.size(), 2u);
}

TEST(PlanTest, OfDeniedDeliveriesTheLatestAreKept) {
  PlannedSession session({"a b", "a", "a b"});
  Journal journal;
  journal.pushId = "push";
  session.opening.journal = journal;
  session.sides.tookPush = false;
  for (std::size_t i = 0; i < 2 * kMostDenied; ++i) session.opening.journal->denied.push_back({"before", {}});
  EXPECT_EQ(planOf(session).denied.size(), kMostDenied);
  session.opening.journal->denied.front().after.gone.resize(kMostDeniedRecords + 1);
  EXPECT_EQ(planOf(session).denied.size(), 1u);
}

TEST(PlanTest, RecordsOfAClientWhoseIdsAreTheRecordsOwnAreMatchedByThem) {
  PlannedSession session({"", "a=Here", ""});
  ClientRecord pushed;
  pushed.localId = "the id of a";
  pushed.content.name = "There";
  pushed.content.url = "http://there";
  session.sides.client.tree = {pushed};
  EXPECT_EQ(PlannedSession::truthAfter(planOf(session)).size(), 2u) << "by its content it is another one";
  session.sides.recordsByIdentifier = {{"the id of a", session.record("a")}};
  const Plan plan = planOf(session);
  EXPECT_EQ(PlannedSession::truthAfter(plan).size(), 1u);
  EXPECT_TRUE(plan.replacedBase);
}

}  // namespace
}  // namespace corvane::loomer::test
