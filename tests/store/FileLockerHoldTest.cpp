// Holding the lock: theft, refreshing and giving up.

#include <gmock/gmock.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/store/StoreTest.h"

namespace corvane {
namespace {

using Result = FileLockerResult;
using testing::SizeIs;

// What happened to "details.plist" of a held lock.
struct TheftCase {
  const char* phrase;
  void (*change)(Dictionary& details);  // null: the file vanishes
  bool stolen;

  friend void PrintTo(const TheftCase& row, std::ostream* out) { *out << row.phrase; }
};

const TheftCase kTheftCases[] = {
    {"nothing: the lock is ours", [](Dictionary&) {}, false},
    {"another date is no theft", [](Dictionary& d) { d.set(kLockFileDate, Date{1}); }, false},
    {"an absent host name matches", [](Dictionary& d) { d.remove(kLockFileHostname); }, false},
    {"a host name of a wrong type counts as absent", [](Dictionary& d) { d.set(kLockFileHostname, 1); },
     false},
    {"a process id that is a real is truncated", [](Dictionary& d) { d.set(kLockFileProcessID, 4242.7); },
     false},
    {"another user", [](Dictionary& d) { d.set(kLockFileUsername, "tester"); }, true},
    {"no user", [](Dictionary& d) { d.remove(kLockFileUsername); }, true},
    {"a user of a wrong type", [](Dictionary& d) { d.set(kLockFileUsername, 1); }, true},
    {"another process name", [](Dictionary& d) { d.set(kLockFileProcessName, "browser"); }, true},
    {"no process name", [](Dictionary& d) { d.remove(kLockFileProcessName); }, true},
    {"another process id", [](Dictionary& d) { d.set(kLockFileProcessID, 4243); }, true},
    {"no process id", [](Dictionary& d) { d.remove(kLockFileProcessID); }, true},
    {"a process id of a wrong type", [](Dictionary& d) { d.set(kLockFileProcessID, "4242"); }, true},
    {"another host", [](Dictionary& d) { d.set(kLockFileHostname, "otherhost"); }, true},
    {"an absent dictionary counts as stolen", nullptr, true},
};

class FileLockerHoldTest : public StoreTest {
 protected:
  FileLockerHoldTest() { EXPECT_EQ(locker.lock(), Result::acquired); }

  // Takes the lock away from `locker`, and answers what then stands in the file.
  Dictionary steal() {
    putLock(detailsOf(kLivingProcess));
    return *lockOnDisk();
  }

  // The lock info without its two dates on the file system, which must be there.
  static Dictionary plain(std::optional<Dictionary> info) {
    EXPECT_TRUE(info);
    if (!info) return {};
    EXPECT_TRUE(info->date(kCurrentDateOnFileSystem));
    EXPECT_TRUE(info->date(kLockFileDateOnFileSystem));
    info->remove(kCurrentDateOnFileSystem);
    info->remove(kLockFileDateOnFileSystem);
    return *info;
  }

  OpenLocker locker{guarded, &delegate, 10};
};

class FileLockerTheftTable : public FileLockerHoldTest, public testing::WithParamInterface<TheftCase> {
 protected:
  void applyChange() {
    if (!GetParam().change) {
      std::filesystem::remove(lockFile);
      return;
    }
    Dictionary details = *lockOnDisk();
    GetParam().change(details);
    putLock(details);
  }
};

TEST_P(FileLockerTheftTable, IsSeenAndTheDelegateTold) {
  applyChange();
  const std::optional<Dictionary> now = lockOnDisk();
  EXPECT_EQ(locker.checkIfLockWasStolen(), GetParam().stolen);
  ASSERT_THAT(delegate.thefts, SizeIs(GetParam().stolen ? 1 : 0));
  if (GetParam().stolen) {
    EXPECT_EQ(delegate.callers.front(), &locker);
    EXPECT_EQ(delegate.thefts.front().has_value(), now.has_value());
    if (now) {
      EXPECT_EQ(plain(delegate.thefts.front()), *now);
    }
  }
  std::filesystem::remove_all(lockDirectory);
}

TEST_P(FileLockerTheftTable, IsSeenWithNobodyToTell) {
  applyChange();
  delegate.implementsStolen = false;
  EXPECT_EQ(locker.checkIfLockWasStolen(), GetParam().stolen);
  EXPECT_THAT(delegate.thefts, SizeIs(0));
  std::filesystem::remove_all(lockDirectory);
}

INSTANTIATE_TEST_SUITE_P(All, FileLockerTheftTable, testing::ValuesIn(kTheftCases));

TEST_F(FileLockerHoldTest, TheftIsSeenWithoutADelegate) {
  locker.unlock();
  OpenLocker alone(guarded, nullptr, 10);
  ASSERT_EQ(alone.lock(), Result::acquired);
  steal();
  EXPECT_TRUE(alone.checkIfLockWasStolen());
  alone.unlock();
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// After another process replaced "details.plist", `unlock` does not delete the lock directory, calls the
// delegate's `fileLocker:lockWasStolen:` and clears `_locked`.
TEST_F(FileLockerHoldTest, UnlockLeavesAStolenLockToTheThief) {
  const Dictionary thief = steal();
  locker.unlock();
  ASSERT_THAT(delegate.thefts, SizeIs(1));
  EXPECT_EQ(plain(delegate.thefts.front()), thief);
  EXPECT_EQ(lockOnDisk(), thief);
  EXPECT_EQ(listing(guarded), (std::vector<std::string>{"lock/", "lock/details.plist"}));
  locker.unlock();  // no longer held: nothing happens
  EXPECT_THAT(delegate.thefts, SizeIs(1));
  std::filesystem::remove_all(lockDirectory);
  EXPECT_EQ(locker.lock(), Result::acquired);
  locker.unlock();
}

// An exception raised by the delegate passes out of `unlock` uncaught, and `_locked` then stays true.
TEST_F(FileLockerHoldTest, StaysLockedWhenTheDelegateRaises) {
  const Dictionary thief = steal();
  delegate.raised = PlatformException("Aborted", "stolen");
  EXPECT_EQ(raisedBy([&] { locker.unlock(); }), "Aborted: stolen");
  EXPECT_EQ(locker.lock(), Result::alreadyHeld);
  EXPECT_EQ(lockOnDisk(), thief);
  delegate.raised.reset();
  locker.unlock();
  EXPECT_THAT(delegate.thefts, SizeIs(2));
  leftOnDisk = {"lock/", "lock/details.plist"};
}

TEST_F(FileLockerHoldTest, UnlockOfALockThatVanishedTellsOfNobody) {
  std::filesystem::remove_all(lockDirectory);
  locker.unlock();
  ASSERT_THAT(delegate.thefts, SizeIs(1));
  EXPECT_EQ(delegate.thefts.front(), std::nullopt);
}

TEST_F(FileLockerHoldTest, UnlockWithoutHoldingDoesNothing) {
  locker.unlock();
  putLock(detailsOf(kLivingProcess));
  const std::size_t before = platform.files.calls.size();
  locker.unlock();
  EXPECT_EQ(platform.files.calls.size(), before);
  EXPECT_THAT(delegate.thefts, SizeIs(0));
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// Lock directory can be neither deleted nor moved aside: inside `unlock` logged and swallowed.
TEST_F(FileLockerHoldTest, UnlockSwallowsAndLogsThatTheLockCannotBeRemoved) {
  platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
  platform.files.fail(FileOperation::rename, 1, std::errc::permission_denied);
  platform.log.expectMessages(
      {"Ignoring exception NSObjectNotAvailableException trying to remove lock file: Can't remove existing "
       "lock "
       "for " +
       guarded});
  EXPECT_EQ(raisedBy([&] { locker.unlock(); }), "");
  leftOnDisk = {".staleLockDirectory/", "lock/", "lock/details.plist"};
  EXPECT_THAT(delegate.thefts, SizeIs(0));
  // No longer held: what is left is a living process's lock.
  OpenLocker next(guarded, nullptr, 0);
  EXPECT_EQ(next.lock(), Result::gaveUp);
}

// `refresh` rewrites "details.plist" with a new date, same other keys.
TEST_F(FileLockerHoldTest, RefreshWritesANewDate) {
  Dictionary expected = *lockOnDisk();
  platform.clock.time.seconds += 30;
  expected.set(kLockFileDate, platform.clock.time);
  locker.refresh();
  EXPECT_EQ(lockOnDisk(), expected);
  locker.unlock();
}

TEST_F(FileLockerHoldTest, RefreshDoesNotRewriteAStolenLock) {
  const Dictionary thief = steal();
  locker.refresh();
  EXPECT_EQ(lockOnDisk(), thief);
  EXPECT_THAT(delegate.thefts, SizeIs(1));
  EXPECT_EQ(locker.lock(), Result::alreadyHeld);
  leftOnDisk = {"lock/", "lock/details.plist"};
}

TEST_F(FileLockerHoldTest, RefreshPassesTheDelegatesExceptionOn) {
  steal();
  delegate.raised = PlatformException("Aborted", "stolen");
  EXPECT_EQ(raisedBy([&] { locker.refresh(); }), "Aborted: stolen");
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// `refresh` without holding the lock.
TEST_F(FileLockerHoldTest, RefreshWithoutHoldingRaises) {
  locker.unlock();
  EXPECT_EQ(raisedBy([&] { locker.refresh(); }),
            "NSObjectNotAvailableException: Cannot refresh lock for file in " + guarded +
                ", lock is not currently held");
}

// The lock directory is gone after a failed refresh, and the next `unlock` says so.
TEST_F(FileLockerHoldTest, FailedRefreshGivesTheLockAway) {
  platform.files.failAlways(FileOperation::writeAtomically, std::errc::no_space_on_device);
  EXPECT_EQ(raisedBy([&] { locker.refresh(); }),
            "NSObjectNotAvailableException: Could not write lock info file for file in " + guarded);
  platform.log.expectedMessages = platform.log.messages;  // told exactly where writing is tested
  EXPECT_THAT(platform.log.messages, SizeIs(6));
  EXPECT_EQ(listing(guarded), std::vector<std::string>());
  locker.unlock();
  EXPECT_THAT(delegate.thefts, SizeIs(1));
}

}  // namespace
}  // namespace corvane
