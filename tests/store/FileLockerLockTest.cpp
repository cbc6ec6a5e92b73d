// Acquiring the lock while others move, and when the disk refuses.

#include <gmock/gmock.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "tests/store/StoreTest.h"

namespace corvane {
namespace {

using Action = FileLockerAction;
using Result = FileLockerResult;
using testing::ElementsAre;
using testing::SizeIs;

static_assert(static_cast<int>(Result::alreadyHeld) == 0 && static_cast<int>(Result::acquired) == 1 &&
              static_cast<int>(Result::acquiredAfterWaiting) == 2 &&
              static_cast<int>(Result::acquiredByBreaking) == 3 && static_cast<int>(Result::gaveUp) == 4);
static_assert(static_cast<int>(Action::breakLock) == 0 && static_cast<int>(Action::waitAgain) == 1 &&
              static_cast<int>(Action::giveUp) == 2);

class FileLockerLockTest : public StoreTest {
 protected:
  void expectLockIsOurs() { EXPECT_EQ(lockOnDisk()->integer32(kLockFileProcessID), platform.process.id); }
};

// Nobody holds it: acquired at the first try, and given up without a trace.
TEST_F(FileLockerLockTest, FreeLockIsTakenAtOnce) {
  CorvaneFileLocker locker(guarded, &delegate, 10);
  EXPECT_EQ(locker.lock(), Result::acquired);
  expectLockIsOurs();
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  locker.unlock();
  EXPECT_EQ(listing(guarded), std::vector<std::string>());
  EXPECT_EQ(locker.lock(), Result::acquired);
  locker.unlock();
}

// A second `lock` on a locker that holds the lock returns 0 and changes nothing on disk.
TEST_F(FileLockerLockTest, SecondLockChangesNothingOnDisk) {
  CorvaneFileLocker locker(guarded, nullptr, 10);
  ASSERT_EQ(locker.lock(), Result::acquired);
  const std::string contents = contentsOf(lockFile);
  setDate(lockFile, 1000.5);
  platform.clock.time.seconds += 60;
  const int mutations = platform.files.mutationCount();

  EXPECT_EQ(locker.lock(), Result::alreadyHeld);

  EXPECT_EQ(platform.files.mutationCount(), mutations);
  EXPECT_EQ(contentsOf(lockFile), contents);
  EXPECT_EQ(dateOf(lockFile), Date{1000.5});
  locker.unlock();
}

TEST_F(FileLockerLockTest, TheLockedStateIsNotTakenFromAnotherLocker) {
  CorvaneFileLocker first(guarded, nullptr, 10);
  CorvaneFileLocker second(guarded, nullptr, 1);
  ASSERT_EQ(first.lock(), Result::acquired);
  EXPECT_EQ(second.lock(), Result::gaveUp);  // the same process lives
  EXPECT_THAT(platform.clock.sleeps, SizeIs(5));
  second.unlock();
  expectLockIsOurs();
  first.unlock();
}

// No delegate, or one that does not implement the question: give up after the timeout.
TEST_F(FileLockerLockTest, GivesUpWhereNobodyCanBeAsked) {
  putLock(detailsOf(kLivingProcess));
  delegate.implementsAction = false;
  for (CorvaneFileLockerDelegate* asked : {static_cast<CorvaneFileLockerDelegate*>(nullptr),
                                           static_cast<CorvaneFileLockerDelegate*>(&delegate)}) {
    platform.clock.sleeps.clear();
    CorvaneFileLocker locker(guarded, asked, 10);
    EXPECT_EQ(locker.lock(), Result::gaveUp);
    EXPECT_THAT(platform.clock.sleeps, SizeIs(50));
  }
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// A lock given up while it is waited for: acquired after waiting.
TEST_F(FileLockerLockTest, WaitsUntilTheHolderGivesUp) {
  putLock(detailsOf(kLivingProcess));
  platform.clock.onSleep = [this] {
    if (platform.clock.sleeps.size() == 3) std::filesystem::remove_all(lockDirectory);
  };
  CorvaneFileLocker locker(guarded, &delegate, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredAfterWaiting);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(3));
  locker.unlock();
}

// A try that found the lock held is waiting too, with a timeout that leaves no time to sleep.
TEST_F(FileLockerLockTest, TimeoutOfZeroWaitsWithoutSleeping) {
  putLock(detailsOf(kLivingProcess));
  delegate.answers = {Action::waitAgain};
  delegate.whileAnswering = [this] { std::filesystem::remove_all(lockDirectory); };
  CorvaneFileLocker locker(guarded, &delegate, 0);
  EXPECT_EQ(locker.lock(), Result::acquiredAfterWaiting);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  locker.unlock();
}

// The holder dies while it is waited for: broken at the first poll that sees it.
TEST_F(FileLockerLockTest, BreaksWhenTheHolderDiesMeanwhile) {
  putLock(detailsOf(kLivingProcess));
  platform.clock.onSleep = [this] {
    if (platform.clock.sleeps.size() == 4) platform.process.processes.erase(kLivingProcess);
  };
  CorvaneFileLocker locker(guarded, &delegate, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(4));
  locker.unlock();
}

// A holder that renewed its lock between the question and the break keeps it; the question comes again right
// after the next failed creation, with the next attempt number.
TEST_F(FileLockerLockTest, RenewedLockIsNotBroken) {
  putLock(detailsOf(kLivingProcess));
  delegate.answers = {Action::breakLock, Action::giveUp};
  Dictionary renewed = detailsOf(kLivingProcess);
  renewed.set(kLockFileDate, Date{700'000'009.0});
  delegate.whileAnswering = [&] { putLock(renewed); };
  CorvaneFileLocker locker(guarded, &delegate, 1);
  EXPECT_EQ(locker.lock(), Result::gaveUp);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(5));
  EXPECT_THAT(delegate.attempts, ElementsAre(1, 2));
  EXPECT_EQ(lockOnDisk(), renewed);
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// A dead holder's lock that a living one has taken between the poll and the break is not broken but waited
// for.
TEST_F(FileLockerLockTest, LockReplacedByALivingHolderIsNotBroken) {
  putLock(detailsOf(kDeadProcess));
  platform.files.before(FileOperation::read, 2, [this] { putLock(detailsOf(kLivingProcess)); });
  CorvaneFileLocker locker(guarded, nullptr, 1);
  EXPECT_EQ(locker.lock(), Result::gaveUp);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(5));
  EXPECT_EQ(lockOnDisk(), detailsOf(kLivingProcess));
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// A lock that was unreadable at the question and is readable at the break has changed, too.
TEST_F(FileLockerLockTest, LockThatBecameReadableIsNotBroken) {
  putLockBytes(nullptr);
  platform.files.before(FileOperation::read, 2, [this] { putLock(detailsOf(kLivingProcess)); });
  delegate.answers = {Action::giveUp};
  CorvaneFileLocker locker(guarded, &delegate, 0);
  EXPECT_EQ(locker.lock(), Result::gaveUp);
  EXPECT_THAT(delegate.attempts, ElementsAre(2));
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// Breaking a lock that is already gone succeeds, and the lock counts as broken.
TEST_F(FileLockerLockTest, LockThatIsGoneAtTheBreakCountsAsBroken) {
  putLock(detailsOf(kLivingProcess));
  delegate.answers = {Action::breakLock};
  delegate.whileAnswering = [this] { std::filesystem::remove_all(lockDirectory); };
  CorvaneFileLocker locker(guarded, &delegate, 0);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  locker.unlock();
}

// Somebody else is faster after the break: waiting goes on, and the result still tells of the break.
TEST_F(FileLockerLockTest, BreakingCountsThoughSomebodyElseWasFaster) {
  putLock(detailsOf(kDeadProcess));
  platform.files.before(FileOperation::makeDirectory, 2, [this] { putLock(detailsOf(kLivingProcess)); });
  platform.clock.onSleep = [this] { std::filesystem::remove_all(lockDirectory); };
  CorvaneFileLocker locker(guarded, nullptr, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(1));
  locker.unlock();
}

TEST_F(FileLockerLockTest, ARegularFileInPlaceOfTheLockIsBrokenAfterTheTimeout) {
  writeFile(lockDirectory, "not a directory");
  CorvaneFileLocker locker(guarded, &delegate, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(50));
  locker.unlock();
}

// Lock directory creation fails with anything but "already exists".
TEST_F(FileLockerLockTest, CreationFailureIsRaised) {
  platform.files.fail(FileOperation::makeDirectory, 1, std::errc::permission_denied);
  CorvaneFileLocker locker(guarded, nullptr, 10);
  EXPECT_EQ(raisedBy([&] { locker.lock(); }),
            "NSObjectNotAvailableException: Can't get write lock on " + guarded + ": Permission denied");
  CorvaneFileLocker nowhere(guarded + "/missing", nullptr, 10);
  EXPECT_EQ(raisedBy([&] { nowhere.lock(); }), "NSObjectNotAvailableException: Can't get write lock on " +
                                                   guarded + "/missing: No such file or directory");
  EXPECT_EQ(raisedBy([&] { locker.unlock(); }), "");  // not held
}

// What cannot be removed is logged and tried again; the lock is had once it can be.
TEST_F(FileLockerLockTest, FailedBreakIsLoggedAndTriedAgain) {
  putLock(detailsOf(kDeadProcess));
  platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
  platform.files.fail(FileOperation::rename, 1, std::errc::permission_denied);
  platform.log.expectMessages(
      {"Ignoring exception NSObjectNotAvailableException trying to remove lock to steal it: Can't remove "
       "existing "
       "lock for " +
       guarded});
  CorvaneFileLocker locker(guarded, nullptr, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps,
              ElementsAre(0.2));  // a pause after the failure, so that no busy loop comes
  locker.unlock();
  leftOnDisk = {".staleLockDirectory/"};
}

// When the lock directory cannot be deleted it is moved into ".staleLockDirectory" under the name "lock"
// followed by a hyphen and a new UUID string.
TEST_F(FileLockerLockTest, UndeletableLockIsMovedAside) {
  putLock(detailsOf(kDeadProcess));
  platform.uuids.given = {String("6F9619FF-8B86-4D01-B42D-00CF4FC964FF")};
  platform.files.fail(FileOperation::remove, 1, std::errc::directory_not_empty);
  CorvaneFileLocker locker(guarded, nullptr, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  locker.unlock();
  const std::string stale = ".staleLockDirectory/lock-6F9619FF-8B86-4D01-B42D-00CF4FC964FF";
  leftOnDisk = {".staleLockDirectory/", stale + "/", stale + "/details.plist"};
}

// Bytes that are no property list: absent, and one line for every reading.
TEST_F(FileLockerLockTest, GarbageInTheLockFileIsLogged) {
  const std::string garbage = "bplist00 but not really";
  putLockBytes(&garbage);
  const std::string raised = raisedBy([&] { readPropertyList(garbage); });
  const std::string name = "PropertyListException";
  ASSERT_EQ(raised.substr(0, name.size()), name);
  const std::string line = "Exception " + name + ": couldn't read lock file contents dictionary. Reason: " +
                           raised.substr(name.size() + 2);
  // Two polls, the question, and the look before the break.
  platform.log.expectMessages({line, line, line, line});
  CorvaneFileLocker locker(guarded, &delegate, 0.4);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(2));
  locker.unlock();
}

}  // namespace
}  // namespace corvane
