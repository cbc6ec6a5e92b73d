// The store among real processes: living, dead and thieving holders, killed savers, writers that take turns.

#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <thread>

#include "tests/store/PlistManagerTest.h"
#include "tests/store/TalkingProcess.h"

namespace corvane {
namespace {

using Action = FileLockerAction;
using Result = FileLockerResult;
using testing::ElementsAre;
using testing::SizeIs;

// The fakes, but with the system's own process table and identity.
class StoreProcessTest : public PlistManagerTest {
 protected:
  StoreProcessTest() { leftOnDisk = {}; }

  Platform _real{platform.clock,       platform.uuids, linuxPlatform().process, platform.files,
                 platform.preferences, platform.log,   platform.notifications,  platform.bundles};
  PlatformScope _scope{_real};
  CorvaneFileLocker locker{guarded, &delegate, 10};
};

// A "lock" directory whose "details.plist" names a living process is waited for.
TEST_F(StoreProcessTest, LivingHolderIsWaitedForAndAskedAbout) {
  TalkingProcess holder(guarded);
  ASSERT_EQ(holder.ask("lock"), "1");
  delegate.answers = {Action::waitAgain, Action::giveUp};
  EXPECT_EQ(locker.lock(), Result::gaveUp);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(100));
  EXPECT_THAT(delegate.attempts, ElementsAre(1, 2));
  EXPECT_EQ(delegate.infos[0].integer32(kLockFileProcessID), holder.id());
  EXPECT_EQ(holder.ask("unlock"), "unlocked");
  EXPECT_EQ(locker.lock(), Result::acquired);
  locker.unlock();
}

TEST_F(StoreProcessTest, LockIsHadOnceTheLivingHolderGivesItUp) {
  TalkingProcess holder(guarded);
  ASSERT_EQ(holder.ask("lock"), "1");
  platform.clock.onSleep = [&] {
    if (platform.clock.sleeps.size() == 7) {
      EXPECT_EQ(holder.ask("unlock"), "unlocked");
    }
  };
  EXPECT_EQ(locker.lock(), Result::acquiredAfterWaiting);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(7));
  locker.unlock();
}

// A process killed while it holds the lock: broken at the first poll.
TEST_F(StoreProcessTest, DeadHoldersLockIsBrokenWithoutSleeping) {
  TalkingProcess holder(guarded);
  ASSERT_EQ(holder.ask("lock"), "1");
  holder.kill();
  ASSERT_TRUE(std::filesystem::exists(lockFile));
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  locker.unlock();
}

TEST_F(StoreProcessTest, HolderThatIsKilledWhileWaitedForLosesItsLock) {
  TalkingProcess holder(guarded);
  ASSERT_EQ(holder.ask("lock"), "1");
  platform.clock.onSleep = [&] {
    if (platform.clock.sleeps.size() == 3) holder.kill();
  };
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(3));
  locker.unlock();
}

// A thief that rewrites "details.plist".
TEST_F(StoreProcessTest, ThiefKeepsTheLock) {
  ASSERT_EQ(locker.lock(), Result::acquired);
  TalkingProcess thief(guarded);
  ASSERT_EQ(thief.ask("steal"), "stolen");
  locker.unlock();
  ASSERT_THAT(delegate.thefts, SizeIs(1));
  EXPECT_EQ(delegate.thefts[0]->integer32(kLockFileProcessID), thief.id());
  EXPECT_EQ(lockOnDisk()->integer32(kLockFileProcessID), thief.id());
  thief.kill();
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  locker.unlock();
}

// The two locks of two processes of one machine exclude each other: no count is lost.
TEST_F(StoreProcessTest, CountingProcessesExcludeEachOther) {
  TalkingProcess first(guarded);
  TalkingProcess second(guarded);
  first.send("count 40");
  second.send("count 40");
  EXPECT_EQ(first.answer(), "counted");
  EXPECT_EQ(second.answer(), "counted");
  EXPECT_EQ(contentsOf(guarded + "/counter"), "80");
  leftOnDisk = {"counter"};
}

// What came of processes that took the lock over and over.
struct Hammering {
  std::atomic<int> acquisitions = 0;
  std::atomic<int> kills = 0;
  std::mutex mutex;
  std::vector<std::string> violations;
};

// Has a process take the lock `times` times, and starts another for each that is killed meanwhile.
void hammer(const std::string& directory, int times, unsigned seed, Hammering& outcome) {
  for (int left = times; left > 0; ++seed) {
    TalkingProcess process(directory);
    process.send("hammer " + std::to_string(left) + " " + std::to_string(seed));
    std::string answer = process.answer();
    for (; answer == "alone"; answer = process.answer(), --left) ++outcome.acquisitions;
    if (answer == "(end)") {
      ++outcome.kills;
      --left;
    } else if (answer != "done") {
      const std::scoped_lock lock(outcome.mutex);
      outcome.violations.push_back(answer);
      return;
    }
  }
}

// Processes of which one in twenty is killed at each acquisition never hold the lock together. More and
// longer by the environment: CORVANE_TEST_HAMMER="8 2000" for processes and acquisitions of each.
TEST_F(StoreProcessTest, OfManyProcessesThatAreKilledNoTwoHoldTheLock) {
  int processes = 6;
  int times = 40;
  if (const char* given = std::getenv("CORVANE_TEST_HAMMER")) std::istringstream(given) >> processes >> times;
  Hammering outcome;
  std::vector<std::thread> threads;
  for (int i = 0; i < processes; ++i) {
    threads.emplace_back(hammer, guarded, times, 1'000'000u * static_cast<unsigned>(i), std::ref(outcome));
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(outcome.violations, SizeIs(0));
  EXPECT_GT(outcome.kills, 0);
  RecordProperty("acquisitions", outcome.acquisitions);
  RecordProperty("kills", outcome.kills);
  CorvaneFileLocker last(guarded, nullptr, 10);  // the last killed one's lock is no obstacle
  last.lock();
  last.unlock();
  leftOnDisk = {"witness"};
}

// Two processes save in turn: each sees the other's writing, is refused, reads and saves again.
TEST_F(StoreProcessTest, SaversInTurnSeeEachOther) {
  putFile(bookmarksOf(1), 1000);
  TalkingProcess savers[] = {TalkingProcess(guarded), TalkingProcess(guarded)};
  for (TalkingProcess& saver : savers) EXPECT_EQ(saver.ask("read"), "1");
  EXPECT_EQ(savers[0].ask("save 2"), "saved");
  // Dates set by hand keep two writings within one tick of the file system's clock apart.
  setDate(file, 1001);
  for (int version = 3; version < 9; ++version) {
    TalkingProcess& saver = savers[version % 2 == 0 ? 0 : 1];
    const std::string save = "save " + std::to_string(version);
    EXPECT_EQ(saver.ask(save), "refused");
    EXPECT_EQ(saver.ask("read"), std::to_string(version - 1));
    EXPECT_EQ(saver.ask(save), "saved");
    setDate(file, 1000 + version);
  }
  EXPECT_EQ(manager.dictionary()->integer32("Version"), 8);
  leftOnDisk = {"Bookmarks.plist"};
}

// A saver killed with the lock in its hands leaves the old file, and the next save goes through at once.
TEST_F(StoreProcessTest, KilledSaverIsNoObstacle) {
  putFile(bookmarksOf(1), 1000);
  TalkingProcess saver(guarded);
  EXPECT_EQ(saver.ask("read"), "1");
  EXPECT_EQ(saver.ask("stallInSave 2"), "stalled");
  saver.kill();
  EXPECT_TRUE(std::filesystem::exists(lockFile));
  EXPECT_EQ(manager.dictionary(), bookmarksOf(1));
  const Dictionary mine = bookmarksOf(3);
  EXPECT_TRUE(manager.saveBookmarks(&mine, true));
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  EXPECT_EQ(fileOnDisk(), mine);
  leftOnDisk = {"Bookmarks.plist"};
}

// A saver that hangs with the lock in its hands makes the next save fail after the timeout.
TEST_F(StoreProcessTest, HangingSaverIsAnObstacle) {
  putFile(bookmarksOf(1), 1000);
  TalkingProcess saver(guarded);
  EXPECT_EQ(saver.ask("read"), "1");
  EXPECT_EQ(saver.ask("stallInSave 2"), "stalled");
  const Dictionary mine = bookmarksOf(3);
  EXPECT_EQ(
      raisedBy([&] { manager.saveBookmarks(&mine, false); }),
      "NSObjectNotAvailableException: Could not save bookmarks file, could not get directory lock for " +
          guarded + ".");
  EXPECT_THAT(platform.clock.sleeps, SizeIs(50));
  EXPECT_EQ(fileOnDisk(), bookmarksOf(1));
  saver.kill();
  leftOnDisk = {"Bookmarks.plist", "lock/", "lock/details.plist"};
}

}  // namespace
}  // namespace corvane
