#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "tests/fakes/Files.h"
#include "tests/fakes/StrictPlatform.h"
#include "tools/loomerctl/SyncRounds.h"

namespace corvane::loomerctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Clients of which a test says how their sessions end, and what these bring to whom.
class ScriptedRunner : public SessionRunner {
 public:
  bool sync(const String& client) override {
    const std::string name = client.toString();
    sessions.push_back(name);
    waiting.erase(name);
    const bool succeeds = failing.count(name) == 0 && !busy;
    if (succeeds && onSession) onSession(name);
    return succeeds;
  }
  bool isBusy() override { return busy; }
  bool hasNews(const String& client) override { return waiting.count(client.toString()) > 0; }

  std::vector<std::string> sessions;
  std::set<std::string> failing, waiting;
  bool busy = false;
  std::function<void(const std::string&)> onSession;
};

class SyncRoundsTest : public testing::Test {
 protected:
  SyncEnd endOf(const std::string& client) { return ends.at(client); }
  void sync() { ends = syncInRounds({"a", "b", "c"}, runner); }

  StrictPlatform platform;
  ScriptedRunner runner;
  std::map<std::string, SyncEnd> ends;
};

TEST_F(SyncRoundsTest, EachIsSyncedOnceWhereNobodyHasNews) {
  sync();
  EXPECT_THAT(runner.sessions, ElementsAre("a", "b", "c"));
  EXPECT_EQ(endOf("c"), SyncEnd::succeeded);
}

TEST_F(SyncRoundsTest, ThoseWhomAnothersSessionBroughtNewsAreSyncedAgain) {
  runner.onSession = [&](const std::string& name) {
    if (name == "c" && runner.sessions.size() == 3) runner.waiting = {"a", "b"};
  };
  sync();
  EXPECT_THAT(runner.sessions, ElementsAre("a", "b", "c", "a", "b"));
}

TEST_F(SyncRoundsTest, WhoeverHasNewsAllTheTimeIsLeftForLater) {
  runner.onSession = [&](const std::string& name) {
    if (name == "c") runner.waiting = {"c"};
  };
  sync();
  EXPECT_THAT(runner.sessions, ElementsAre("a", "b", "c", "c", "c", "c", "c"));
  EXPECT_EQ(endOf("c"), SyncEnd::succeeded);
}

TEST_F(SyncRoundsTest, OneThatFailsKeepsNobodyElseFromSyncing) {
  runner.failing = {"a"};
  runner.waiting = {"a"};
  sync();
  EXPECT_THAT(runner.sessions, ElementsAre("a", "b", "c"));
  EXPECT_EQ(endOf("a"), SyncEnd::failed);
  EXPECT_EQ(endOf("b"), SyncEnd::succeeded);
  EXPECT_THAT(platform.clock.sleeps, IsEmpty());
}

TEST_F(SyncRoundsTest, OthersAtWorkAreWaitedForAndNoFailure) {
  runner.busy = true;
  platform.clock.onSleep = [&] { runner.busy = platform.clock.sleeps.size() < 3; };
  sync();
  EXPECT_EQ(endOf("a"), SyncEnd::busy);
  EXPECT_EQ(endOf("b"), SyncEnd::succeeded);
  EXPECT_THAT(runner.sessions, ElementsAre("a", "a", "a", "b", "b", "c"));
}

class AwaitQuiet : public testing::Test {
 protected:
  // The file as it was written so many seconds ago.
  void write(double secondsAgo) {
    ASSERT_FALSE(platform.realFiles.write(file, "x"));
    setModificationDate(file, {platform.clock.time.seconds - secondsAgo});
  }

  StrictPlatform platform;
  std::string file = platform.directory / "file";
};

TEST_F(AwaitQuiet, LastsUntilTheFileHasNotBeenWrittenForTwoSeconds) {
  write(0.5);
  platform.clock.onSleep = [&] {
    if (platform.clock.sleeps.size() == 1) write(0);
  };
  awaitQuiet(file);
  EXPECT_THAT(platform.clock.sleeps, ElementsAre(1.5, 2.0));
}

TEST_F(AwaitQuiet, TakesNoTimeForAnOldFileNoneAndOneFromTheFuture) {
  awaitQuiet(file);
  write(2);
  awaitQuiet(file);
  write(-1000);
  awaitQuiet(file);
  EXPECT_THAT(platform.clock.sleeps, IsEmpty());
}

TEST_F(AwaitQuiet, EndsThoughTheFileIsWrittenAllTheTime) {
  write(0);
  platform.clock.onSleep = [&] { write(0); };
  awaitQuiet(file);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(30));
}

}  // namespace
}  // namespace corvane::loomerctl
