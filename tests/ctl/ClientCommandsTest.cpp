// `plan`, `approve`, `restore` and `reset`, and how commands that write wait for sessions.

#include <fcntl.h>
#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <thread>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "tests/ctl/CtlFixture.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ClientCommandsTest : public CtlTest {};

TEST_F(ClientCommandsTest, PlanShowsWhatTheNextSessionDeliversAndChangesNothing) {
  seed();
  a->rename(a->find("Daily"), "Daily 2");
  a->remove(a->find("Zoo"));
  a->addBookmark("", "New", "http://n/");
  ASSERT_EQ(a->sync(), "");
  close();
  const std::string before = contents(storePath);
  EXPECT_EQ(
      json({"plan", "b"}, "sorted(c['type'] for c in d['changes']), d['refusedPlan'], d['deleteAllFirst']"),
      "['add', 'delete', 'modify'] None False");
  EXPECT_EQ(json({"plan", "b"},
                 "[(c['before']['title'], c['after']['title']) for c in d['changes'] if c['type'] =="
                 " 'modify']"),
            "[('Daily', 'Daily 2')]");
  const Run run = ctl({"plan", "b"});
  EXPECT_THAT(run.out, AllOf(HasSubstr("title: \"Daily\" → \"Daily 2\""), HasSubstr("+ added"),
                             HasSubstr("- deleted"), HasSubstr("3 changes wait for the client.")));
  EXPECT_EQ(contents(storePath), before);
  reopen();
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->delivered.size(), 3u) << "what was planned is what came";
  EXPECT_EQ(ctl({"plan", "b"}).out, "Nothing waits for the client.\n");
}

TEST_F(ClientCommandsTest, PlanOfAClientThatNeverSynced) {
  seed();
  manager().registerClientWithIdentifier("c", descriptionPath);
  EXPECT_EQ(json({"plan", "c"}, "d['firstSession'], d['kind'], len(d['changes'])"), "True refresh 6");
  EXPECT_THAT(ctl({"plan", "c"}).out, HasSubstr("first session compares everything"));
}

TEST_F(ClientCommandsTest, UnknownClientsAreRefusedWithTheNamesThatThereAre) {
  seed();
  for (const char* command : {"plan", "approve", "restore", "reset"}) {
    const Run run = ctl({command, "nobody"});
    EXPECT_EQ(run.status, 1) << command;
    EXPECT_THAT(run.err, HasSubstr("There is no client \"nobody\". Registered: a, b.")) << command;
  }
}

TEST_F(ClientCommandsTest, ResetReplacesTheClientAtItsNextSession) {
  seed();
  const Run run = ctl({"reset", "b"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, AllOf(HasSubstr("entries hidden from sync"), HasSubstr("loomerctl restore")));
  EXPECT_EQ(json({"plan", "b"}, "d['kind'], d['deleteAllFirst'], len(d['changes'])"), "replace True 6");
  b->addBookmark("", "Lost", "http://l/");
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), a->text());
  EXPECT_THAT(b->calls, testing::Contains("delete all folders"));
  EXPECT_EQ(ctl({"plan", "b"}).out, "Nothing waits for the client.\n") << "it serves once";
}

class RefusedPlanTest : public ClientCommandsTest {
 protected:
  void refuse() {
    seed();
    a->removeAll();
    ASSERT_THAT(a->sync(), HasSubstr("loomerctl approve a"));
  }
};

TEST_F(RefusedPlanTest, PlanShowsWhatWasRefused) {
  refuse();
  EXPECT_EQ(json({"plan", "a"},
                 "d['refusedPlan']['deletions'], d['refusedPlan']['live'],"
                 " d['refusedPlan']['approved'], sorted(r['title'] for r in d['refusedPlan']['deleted'])"),
            "6 6 None ['BookmarksBar', 'Daily', 'News', 'Shop', 'Weekly', 'Zoo']");
  EXPECT_THAT(ctl({"plan", "a"}).out,
              AllOf(HasSubstr("the client lacks 6 of 6"), HasSubstr("\"Daily\" \"http://d/\""),
                    HasSubstr("loomerctl approve a")));
  EXPECT_THAT(ctl({"status"}).out, HasSubstr("Corvane (a): refused: would delete 6 of 6"));
}

TEST_F(RefusedPlanTest, ApprovalServesOnceForExactlyThatPlan) {
  EXPECT_EQ((seed(), ctl({"approve", "a"}).status), 1) << "nothing was refused yet";
  a->removeAll();
  ASSERT_NE(a->sync(), "");
  EXPECT_EQ(ctl({"approve", "a"}).status, 0);
  EXPECT_EQ(json({"plan", "a"}, "d['refusedPlan']['approved'] is None"), "False");
  a->addBookmark("", "Other", "http://o/");
  EXPECT_NE(a->sync(), "") << "another plan";
  EXPECT_EQ(json({"plan", "a"}, "d['refusedPlan']['approved'] is None"), "True");
  EXPECT_EQ(ctl({"approve", "a"}).status, 0);
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "Other@http://o/");
  EXPECT_EQ(ctl({"approve", "a"}).status, 1);
  EXPECT_EQ(json({"check"}, "d['sound']"), "True");
}

TEST_F(RefusedPlanTest, RestoreBringsBackWhatIsLacking) {
  refuse();
  EXPECT_THAT(ctl({"plan", "a"}).out, HasSubstr("`loomerctl restore a`"));
  const Run run = ctl({"restore", "a"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("At its next session a gets back whatever it lacks."));
  EXPECT_EQ(json({"plan", "a"}, "d['refusedPlan'], d['kind'], d['givesBack'], d['deleteAllFirst']"),
            "None refresh True False");
  EXPECT_THAT(ctl({"plan", "a"}).out, HasSubstr("gets back whatever it lacks"));
  EXPECT_EQ(json({"clients"}, "[c['giveBackPending'] for c in d]"), "[True, False]");
  EXPECT_EQ(json({"status"}, "[(w['client'], w['giveBackPending']) for w in d['waiting']]"), "[('a', True)]");
  EXPECT_THAT(ctl({"status"}).out, HasSubstr("Corvane (a): will get back what it lacks"));
  const Run approved = ctl({"approve", "a"});
  EXPECT_EQ(approved.status, 1);
  EXPECT_THAT(approved.err, HasSubstr("there is nothing to approve"));
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), b->text());
  EXPECT_EQ(json({"clients"}, "[c['giveBackPending'] for c in d]"), "[False, False]") << "it serves once";
  EXPECT_EQ(json({"status"}, "d['waiting']"), "[]");
}

TEST_F(RefusedPlanTest, FormerNameOfRestoreIsUnderstoodAndNotShown) {
  refuse();
  EXPECT_EQ(ctl({"giveback", "a"}).out, ctl({"restore", "a"}).out);
  EXPECT_EQ(json({"clients"}, "[c['giveBackPending'] for c in d]"), "[True, False]");
  EXPECT_EQ(ctl({"giveback", "--help"}).out, ctl({"restore", "--help"}).out);
  EXPECT_THAT(ctl({"giveback"}).err, HasSubstr("restore wants a CLIENT"));
  for (const char* command : {"", "restore", "reset"}) {
    EXPECT_THAT(ctl({command, "--help"}).out, Not(HasSubstr("giveback"))) << command;
  }
}

TEST_F(ClientCommandsTest, NothingIsRestoredToAClientThatIsReset) {
  seed();
  ASSERT_EQ(ctl({"reset", "b"}).status, 0);
  const Run run = ctl({"restore", "b"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("nothing to restore"));
  EXPECT_EQ(number("SELECT sum(give_back_pending) FROM clients"), 0);
}

TEST_F(RefusedPlanTest, ResetComesBeforeARefusedPlan) {
  refuse();
  EXPECT_EQ(ctl({"reset", "a"}).status, 0);
  EXPECT_EQ(json({"plan", "a"}, "d['refusedPlan'], d['deleteAllFirst']"), "None True");
  EXPECT_EQ(ctl({"approve", "a"}).status, 1);
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), b->text());
}

TEST_F(ClientCommandsTest, WritingWaitsForTheSessionThatRuns) {
  seed();
  ASSERT_TRUE(store().begin(0));
  auto waiting = std::async(std::launch::async, [this] { return ctl({"reset", "a"}); });
  // By now the command has opened the store and waits; committing too early is no failure, only no test.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  store().database().commit();
  const Run run = waiting.get();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(number("SELECT reset_pending FROM clients WHERE identifier = 'a'"), 1);
}

TEST_F(ClientCommandsTest, WritingGivesUpAfterAMinute) {
  seed();
  loomer::TruthStore other(storePath);
  ASSERT_TRUE(other.begin(0));
  const Date before = platform.clock.now();
  loomerctl::Output out(open((platform.directory / "out").c_str(), O_WRONLY | O_CREAT, 0600), false);
  loomerctl::Output err(open((platform.directory / "err").c_str(), O_WRONLY | O_CREAT, 0600), false);
  EXPECT_EQ(loomerctl::runCommandLine({"reset", "a"}, out, err), 1)
      << "on the clock that only sleeping moves";
  EXPECT_NEAR(platform.clock.now().seconds - before.seconds, 60.0, 0.5);
  EXPECT_THAT(contents(platform.directory / "err"), HasSubstr("Wait until that session has ended"));
  other.database().rollback();
  EXPECT_EQ(number("SELECT reset_pending FROM clients WHERE identifier = 'a'"), 0);
}

}  // namespace
}  // namespace corvane
