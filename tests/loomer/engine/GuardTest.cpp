#include <gmock/gmock.h>

#include <map>

#include "CorvaneSyncClient/platform/loomer/session/SessionGuard.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(GuardTest, WhatMustBeApproved) {
  struct Row {
    const char* phrase;
    std::size_t deleted, live;
    bool refused;
  };
  const Row rows[] = {
      {"nothing", 0, 0, false},
      {"all of four", 4, 4, false},
      {"all of five", 5, 5, true},
      {"four of five", 4, 5, false},
      {"twenty of thirty: not more than twenty", 20, 30, false},
      {"twenty-one of thirty", 21, 30, true},
      {"twenty-one of forty-two: not more than half", 21, 42, false},
      {"twenty-two of forty-three", 22, 43, true},
      {"all of twenty", 20, 20, true},
  };
  for (const Row& row : rows) {
    loomer::MergeResult plan;
    plan.deletedByAbsence = row.deleted;
    plan.liveBefore = row.live;
    EXPECT_EQ(loomer::mustBeApproved(plan), row.refused) << row.phrase;
  }
}

TEST(GuardTest, DigestTellsAnyTwoPlansApart) {
  struct Row {
    const char* phrase;
    void (*change)(loomer::MergeResult& plan);
  };
  using Plan = loomer::MergeResult;
  const Row rows[] = {
      {"one deletion less", [](Plan& plan) { plan.truthChanges.pop_back(); }},
      {"another record", [](Plan& plan) { plan.truthChanges[0].after.id = 9; }},
      {"it lives", [](Plan& plan) { plan.truthChanges[0].after.deleted = false; }},
      {"another folder", [](Plan& plan) { plan.truthChanges[0].after.parent = 7; }},
      {"another place", [](Plan& plan) { plan.truthChanges[0].after.place = 11; }},
      {"another title", [](Plan& plan) { plan.truthChanges[0].after.content.name = "B"; }},
      {"no title", [](Plan& plan) { plan.truthChanges[0].after.content.name = String(); }},
      {"an empty title", [](Plan& plan) { plan.truthChanges[0].after.content.name = ""; }},
      {"a letter that goes from the title to the address",
       [](Plan& plan) {
         plan.truthChanges[0].after.content.name = "";
         plan.truthChanges[0].after.content.url = "Ahttp://a/";
       }},
      {"another address", [](Plan& plan) { plan.truthChanges[0].after.content.url = "http://b/"; }},
      {"a tab group", [](Plan& plan) { plan.truthChanges[0].after.content.tabGroup = true; }},
      {"special", [](Plan& plan) { plan.truthChanges[0].after.content.special = true; }},
  };
  const auto plan = [] {
    Plan made;
    for (loomer::RecordId id = 1; id <= 2; ++id) {
      loomer::TruthRecord after;
      after.id = id;
      after.deleted = true;
      after.content = {"A", "http://a/", false, false};
      made.truthChanges.push_back({std::nullopt, after});
    }
    return made;
  };
  std::map<std::string, const char*> digests{{loomer::planDigest(plan()), "as it was"}};
  for (const Row& row : rows) {
    Plan changed = plan();
    row.change(changed);
    const auto [known, isNew] = digests.emplace(loomer::planDigest(changed), row.phrase);
    EXPECT_TRUE(isNew) << row.phrase << " is taken for: " << known->second;
  }
  Plan later = plan();
  later.truthChanges[0].after.revision = 5;
  EXPECT_EQ(loomer::planDigest(later), loomer::planDigest(plan())) << "the same plan later is the same plan";
}

class GuardSessionTest : public EngineTest {
 protected:
  GuardSessionTest() : a(makeClient("a")) {
    for (int i = 0; i < 6; ++i) a->addBookmark("", "B" + std::to_string(i), "http://b/");
    EXPECT_EQ(a->sync(), "");
    a->removeAll();
  }
  bool approve() {
    loomer::RefusalTable refusals(store());
    return refusals.approve(manager().clientWithIdentifier("a")->row(), platform.clock.now());
  }
  std::int64_t live() { return number("SELECT count(*) FROM records WHERE id > 0"); }
  std::unique_ptr<ScriptedClient> a;
};

TEST_F(GuardSessionTest, EmptiedClientIsRefusedAndNothingChangesOnEitherSide) {
  const std::string error = a->sync();
  EXPECT_THAT(error, HasSubstr("lacks 6 of 6"));
  EXPECT_THAT(error, HasSubstr("loomerctl approve a"));
  EXPECT_EQ(live(), 6);
  EXPECT_EQ(a->text(), "");
  EXPECT_EQ(a->calls.back(), "will cancel");
}

TEST_F(GuardSessionTest, RefusedPlanStaysRefusedAlthoughACancelledClientAsksForRefresh) {
  EXPECT_NE(a->sync(), "");
  EXPECT_THAT(a->sync(), HasSubstr("lacks 6 of 6"));
  EXPECT_EQ(live(), 6);
}

TEST_F(GuardSessionTest, RefusalThatCannotBeNotedSaysSo) {
  store().database().execute(
      "CREATE TRIGGER full BEFORE INSERT ON refusals BEGIN SELECT raise(ABORT, 'no space'); END", "test");
  const std::string error = a->sync();
  EXPECT_THAT(error, HasSubstr("lacks 6 of 6"));
  EXPECT_THAT(error, HasSubstr("there is nothing to approve yet"));
  EXPECT_THAT(error, HasSubstr("no space")) << "the cause";
  EXPECT_FALSE(approve());
  store().database().execute("DROP TRIGGER full", "test");
  EXPECT_THAT(a->sync(), HasSubstr("loomerctl approve"));
  EXPECT_TRUE(approve());
}

TEST_F(GuardSessionTest, ApprovalServesOnce) {
  EXPECT_FALSE(approve()) << "nothing was refused yet";
  EXPECT_NE(a->sync(), "");
  EXPECT_TRUE(approve());
  reopen();
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(live(), 0);
  for (int i = 0; i < 6; ++i) a->addBookmark("", "B" + std::to_string(i), "http://b/");
  EXPECT_EQ(a->sync(), "");
  a->removeAll();
  EXPECT_NE(a->sync(), "");
  EXPECT_EQ(live(), 6);
}

TEST_F(GuardSessionTest, ApprovalIsBoundToExactlyThatPlan) {
  EXPECT_NE(a->sync(), "");
  EXPECT_TRUE(approve());
  const auto b = makeClient("b");
  ASSERT_EQ(b->sync(), "");
  b->rename(b->find("B3"), "renamed");
  b->addBookmark("", "C", "http://c/");
  b->remove(b->find("B5"));
  ASSERT_EQ(b->sync(), "");
  for (int i = 0; i < 20; ++i) b->addBookmark("", "N", "http://n/");
  EXPECT_EQ(b->sync(), "");
  EXPECT_EQ(a->sync(), "") << "less than half is missing now: the guard has nothing to say";
  EXPECT_THAT(a->text(), HasSubstr("renamed")) << "changed in the truth meanwhile: it comes back";
}

TEST_F(GuardSessionTest, AnotherPlanNeedsAnotherApproval) {
  EXPECT_NE(a->sync(), "");
  EXPECT_TRUE(approve());
  a->addBookmark("", "new", "http://n/");
  const std::string error = a->sync();
  EXPECT_THAT(error, HasSubstr("lacks 6 of 6"));
  EXPECT_THAT(error, HasSubstr("approved was another one"));
  EXPECT_EQ(live(), 6);
  EXPECT_THAT(a->sync(), Not(HasSubstr("approved"))) << "it was said, and nothing is approved any more";
}

TEST_F(GuardSessionTest, MovesAreNoDeletions) {
  const auto b = makeClient("b");
  ASSERT_EQ(b->sync(), "");
  const std::string folder = b->addFolder("", "F");
  for (int i = 0; i < 6; ++i) b->move(b->find("B" + std::to_string(i)), folder);
  EXPECT_EQ(b->sync(), "");
}

TEST_F(GuardSessionTest, WhatIsLackingIsRestoredWithoutDeletingAnything) {
  a->addBookmark("", "new", "http://n/");
  EXPECT_THAT(a->sync(), HasSubstr("loomerctl restore a"));
  loomer::ClientTable(store()).setRestorePending(manager().clientWithIdentifier("a")->row(), true);
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(a->nodes.size(), 7u);
  EXPECT_EQ(live(), 7) << "what the client added arrives too";
  EXPECT_THAT(a->calls, Not(testing::Contains("delete all folders")));
  EXPECT_EQ(number("SELECT sum(give_back_pending) FROM clients"), 0);
  EXPECT_EQ(number("SELECT count(*) FROM refusals"), 0);
  a->remove(a->find("new"));
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(live(), 6) << "it serves once";
}

TEST_F(GuardSessionTest, RestoreWaitsForASessionThatFinishes) {
  EXPECT_NE(a->sync(), "");
  loomer::ClientTable(store()).setRestorePending(manager().clientWithIdentifier("a")->row(), true);
  a->finishAnswer = false;
  EXPECT_NE(a->sync(), "");
  EXPECT_EQ(number("SELECT sum(give_back_pending) FROM clients"), 1);
  a->finishAnswer = true;
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(a->nodes.size(), 6u);
}

TEST_F(GuardSessionTest, PendingResetGivesEverythingBack) {
  EXPECT_NE(a->sync(), "");
  loomer::ClientTable(store()).setResetPending(manager().clientWithIdentifier("a")->row(), true);
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "B0@http://b/ B1@http://b/ B2@http://b/ B3@http://b/ B4@http://b/ B5@http://b/");
}

}  // namespace
}  // namespace corvane
