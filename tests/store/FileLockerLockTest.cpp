// Acquiring the lock while others move, and when the disk refuses.

#include <gmock/gmock.h>

#include <filesystem>
#include <limits>
#include <stdexcept>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"
#include "tests/store/StoreTest.h"
#include "tests/system/AnswerOfChild.h"

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

// Between the judgement and the removal a faster one breaks the dead lock and makes its own, whose
// "details.plist" is still to come: it is left alone.
TEST_F(FileLockerLockTest, FasterBreakersLockIsLeftAlone) {
  putLock(detailsOf(kDeadProcess));
  platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
    if (call.operation == FileOperation::hold || call.operation == FileOperation::remove) {
      platform.files.intercept = nullptr;
      std::filesystem::remove_all(lockDirectory);
      putLockBytes(nullptr);
    }
    return std::error_code();
  };
  platform.clock.onSleep = [this] { putLock(detailsOf(kLivingProcess)); };
  CorvaneFileLocker locker(guarded, nullptr, 1);
  EXPECT_EQ(locker.lock(), Result::gaveUp);
  EXPECT_EQ(lockOnDisk(), detailsOf(kLivingProcess));
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// Before "details.plist" is written, somebody whose timeout runs out takes the directory for abandoned and
// makes it anew.
TEST_F(FileLockerLockTest, LockThatIsTakenBeforeItIsSignedIsAnothers) {
  platform.files.before(FileOperation::hold, 1, [this] {
    std::filesystem::remove_all(lockDirectory);
    putLock(detailsOf(kLivingProcess));
  });
  EXPECT_EQ(CorvaneFileLocker(guarded, nullptr, 1).lock(), Result::gaveUp);
  EXPECT_EQ(lockOnDisk(), detailsOf(kLivingProcess));
  leftOnDisk = {"lock/", "lock/details.plist"};
}

TEST_F(FileLockerLockTest, LockThatVanishesBeforeItIsSignedIsMadeAgain) {
  platform.files.before(FileOperation::hold, 1, [this] { std::filesystem::remove_all(lockDirectory); });
  CorvaneFileLocker locker(guarded, nullptr, 1);
  EXPECT_EQ(locker.lock(), Result::acquiredAfterWaiting);
  expectLockIsOurs();
  locker.unlock();
}

// Whoever signs, renews, breaks or gives up a lock has a hold on it, so that nobody comes in between.
TEST_F(FileLockerLockTest, ChangesAreMadeWithinAHold) {
  int held = 0;
  platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    if (call.operation == FileOperation::writeAtomically || call.operation == FileOperation::moveAside) {
      held += answerOfChild([&] { return canBeHeld(lockDirectory) ? "had" : "held"; }) == "held";
    }
    return std::error_code();
  };
  putLock(detailsOf(kDeadProcess));
  CorvaneFileLocker locker(guarded, nullptr, 1);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_EQ(held, 2);  // broken, signed
  locker.refresh();
  EXPECT_EQ(held, 3);
  locker.unlock();
  EXPECT_EQ(held, 4);
  EXPECT_TRUE(canBeHeld(guarded));
}

// What "details.plist" holds need not equal itself: a dead holder's untouched file is untouched all the same.
struct UnequalCase {
  const char* phrase;
  std::string (*bytes)();
  friend void PrintTo(const UnequalCase& row, std::ostream* out) { *out << row.phrase; }
};

Dictionary deadWith(const char* key, const Value& value) {
  Dictionary details = detailsOf(kDeadProcess);
  details.set(key, value);
  return details;
}

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

const UnequalCase kUnequalCases[] = {
    {"a real, XML", [] { return writeXmlPropertyList(deadWith("Other", kNan)); }},
    {"a real, binary", [] { return writeBinaryPropertyList(deadWith("Other", kNan)); }},
    {"a date, binary", [] { return writeBinaryPropertyList(deadWith(kLockFileDate, Date{kNan})); }},
    {"a user, binary", [] { return writeBinaryPropertyList(deadWith(kLockFileUsername, kNan)); }},
    {"deep inside, XML",
     [] {
       return writeXmlPropertyList(deadWith("Other", Dictionary{{"In", Array{1, kNan}}}));
     }},
};

class FileLockerUnequalTable : public StoreTest, public testing::WithParamInterface<UnequalCase> {};

TEST_P(FileLockerUnequalTable, DeadHoldersLockIsBrokenWithoutSleeping) {
  const std::string bytes = GetParam().bytes();
  putLockBytes(&bytes);
  platform.files.before(FileOperation::makeDirectory, 100, [] { throw std::runtime_error("it spins"); });
  CorvaneFileLocker locker(guarded, nullptr, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  locker.unlock();
}

INSTANTIATE_TEST_SUITE_P(All, FileLockerUnequalTable, testing::ValuesIn(kUnequalCases));

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

// Somebody else is faster after the break: waiting goes on, and the result still reports the break.
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

// A dead lock that can be neither deleted nor moved aside.
class FileLockerUnbreakableTest : public FileLockerLockTest {
 protected:
  FileLockerUnbreakableTest() {
    putLock(detailsOf(kDeadProcess));
    platform.files.failAlways(FileOperation::rename, std::errc::permission_denied);
    platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
      const bool isScratch = call.path.starts_with(lockDirectory + "/");
      return call.operation == FileOperation::remove && !isScratch
                 ? std::make_error_code(std::errc::permission_denied)
                 : std::error_code();
    };
    platform.log.expectMessages(
        {"Ignoring exception NSObjectNotAvailableException trying to remove lock to steal it: Can't remove "
         "existing lock for " +
         guarded});
    leftOnDisk = {".staleLockDirectory/", "lock/", "lock/details.plist"};
  }
};

// It is logged once for each `lock`, and treated from then on as a living holder's.
TEST_F(FileLockerUnbreakableTest, IsLoggedOnceAndWaitedForAsALivingHolders) {
  delegate.answers = {Action::waitAgain, Action::giveUp};
  CorvaneFileLocker locker(guarded, &delegate, 10);
  EXPECT_EQ(locker.lock(), Result::gaveUp);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(100));
  EXPECT_THAT(delegate.attempts, ElementsAre(1, 2));
  EXPECT_EQ(delegate.infos[0].integer32(kLockFileProcessID), kDeadProcess);
  EXPECT_EQ(lockOnDisk(), detailsOf(kDeadProcess));

  platform.log.expectMessages({platform.log.messages.front()});
  EXPECT_EQ(CorvaneFileLocker(guarded, nullptr, 1).lock(), Result::gaveUp);
}

TEST_F(FileLockerUnbreakableTest, OneThatCannotBeRenamedAtAllIsTreatedTheSame) {
  platform.files.failAlways(FileOperation::moveAside, std::errc::permission_denied);
  EXPECT_EQ(CorvaneFileLocker(guarded, nullptr, 10).lock(), Result::gaveUp);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(50));
}

// A delegate that insists on breaking it has it tried again, with a pause each time.
TEST_F(FileLockerUnbreakableTest, IsTriedAgainWhenTheDelegateSaysSo) {
  delegate.answers = {Action::breakLock, Action::breakLock, Action::giveUp};
  EXPECT_EQ(CorvaneFileLocker(guarded, &delegate, 1).lock(), Result::gaveUp);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(5 + 2));
}

TEST_F(FileLockerUnbreakableTest, IsHadOnceItCanBeRemoved) {
  delegate.answers = {Action::breakLock};
  delegate.whileAnswering = [this] { platform.files.heal(); };
  CorvaneFileLocker locker(guarded, &delegate, 1);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  locker.unlock();
  leftOnDisk = {".staleLockDirectory/"};
}

// Another dead one in its place is broken at once.
TEST_F(FileLockerUnbreakableTest, IsToldFromItsSuccessor) {
  platform.clock.onSleep = [this] {
    if (platform.clock.sleeps.size() != 3) return;
    platform.files.heal();
    std::filesystem::remove_all(lockDirectory);
    putLock(detailsOf(kDeadProcess));
  };
  CorvaneFileLocker locker(guarded, nullptr, 10);
  EXPECT_EQ(locker.lock(), Result::acquiredByBreaking);
  EXPECT_THAT(platform.clock.sleeps, SizeIs(3));
  locker.unlock();
  leftOnDisk = {".staleLockDirectory/"};
}

// One whose holder cannot be told is the delegate's to judge, who is told of none.
TEST_F(FileLockerUnbreakableTest, OneWithoutAHolderIsTheDelegatesToJudge) {
  std::filesystem::remove(lockFile);
  delegate.answers = {Action::giveUp};
  EXPECT_EQ(CorvaneFileLocker(guarded, &delegate, 1).lock(), Result::gaveUp);
  EXPECT_THAT(delegate.attempts, ElementsAre(2));
  EXPECT_EQ(delegate.infos[0], Dictionary());
  leftOnDisk = {".staleLockDirectory/", "lock/"};
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
