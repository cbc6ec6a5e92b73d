// Saving when the lock cannot be had, is stolen, or something is raised on the way.

#include <gmock/gmock.h>

#include <filesystem>
#include <new>

#include "tests/store/PlistManagerTest.h"

namespace corvane {
namespace {

using testing::Contains;
using testing::Each;
using testing::SizeIs;

namespace fs = std::filesystem;

class PlistManagerGuardTest : public PlistManagerTest {
 protected:
  static constexpr int kWriteOfTheFile = 2;  // the first atomic write is that of "details.plist"

  void duringTheWrite(std::function<void()> happens) {
    platform.files.before(FileOperation::writeAtomically, kWriteOfTheFile, std::move(happens));
  }
  void translate(const std::string& text, const std::string& translation) {
    platform.bundles.own.localizedTexts[kDefaultStringsTable][text] = translation;
  }
  std::string save() {
    return raisedBy([this] { manager.saveBookmarks(&mine, false); });
  }
  std::string couldNotLock() const {
    return "NSObjectNotAvailableException: Could not save bookmarks file, could not get directory lock for " +
           guarded + ".";
  }

  const Dictionary mine = bookmarksOf(7);
};

// A lock held by a living process makes the save fail after about 10 s with the "could not get directory
// lock" exception.
TEST_F(PlistManagerGuardTest, LivingHolderMakesTheSaveFail) {
  putLock(detailsOf(kLivingProcess));
  EXPECT_EQ(save(), couldNotLock());
  EXPECT_THAT(platform.clock.sleeps, SizeIs(50));
  EXPECT_THAT(platform.clock.sleeps, Each(0.2));
  EXPECT_EQ(notifications(), 0u);
  EXPECT_EQ(lockOnDisk(), detailsOf(kLivingProcess));
  translate("Could not save bookmarks file, could not get directory lock for %@.", "Keine Sperre auf %@");
  EXPECT_EQ(save(), "NSObjectNotAvailableException: Keine Sperre auf " + guarded);
  leftOnDisk = {"lock/", "lock/details.plist"};
}

// Dead or unreadable locks are still broken by the locker itself.
TEST_F(PlistManagerGuardTest, DeadHolderIsNoObstacle) {
  putLock(detailsOf(kDeadProcess));
  EXPECT_EQ(save(), "");
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
  EXPECT_EQ(fileOnDisk(), mine);
}

TEST_F(PlistManagerGuardTest, UnreadableLockIsNoObstacleAfterTheTimeout) {
  putLockBytes(nullptr);
  EXPECT_EQ(save(), "");
  EXPECT_THAT(platform.clock.sleeps, SizeIs(50));
  EXPECT_EQ(notifications(), 1u);
}

TEST_F(PlistManagerGuardTest, SaveGoesOnAfterWaiting) {
  putLock(detailsOf(kLivingProcess));
  platform.clock.onSleep = [this] { fs::remove_all(lockDirectory); };
  EXPECT_EQ(save(), "");
  EXPECT_THAT(platform.clock.sleeps, SizeIs(1));
  EXPECT_EQ(fileOnDisk(), mine);
}

TEST_F(PlistManagerGuardTest, LockerFailurePassesThrough) {
  platform.files.fail(FileOperation::makeDirectory, 1, std::errc::read_only_file_system);
  EXPECT_EQ(save(),
            "NSObjectNotAvailableException: Can't get write lock on " + guarded + ": Read-only file system");
  EXPECT_EQ(notifications(), 0u);
  leftOnDisk = {};
}

// The delegate answers 2 whatever it is given.
TEST_F(PlistManagerGuardTest, NeverTellsToBreakOrWait) {
  CorvaneFileLocker locker(guarded, &manager, 0);
  EXPECT_TRUE(manager.implementsActionForApparentlyAbandonedLock());
  EXPECT_TRUE(manager.implementsLockWasStolen());
  for (const unsigned attempt : {0u, 1u, 1000u}) {
    EXPECT_EQ(manager.fileLockerActionForApparentlyAbandonedLock(locker, detailsOf(kDeadProcess), attempt),
              FileLockerAction{2});
  }
  leftOnDisk = {};
}

constexpr const char* kStolenBy =
    "File lock for %@ was stolen at %@ by %@ on host %@ with pid %@, any modifications made during this sync "
    "may have "
    "been overwritten.";
constexpr const char* kStolen =
    "File lock for %@ was stolen by another process, any modifications made during this sync may have been "
    "overwritten.";

struct StolenCase {
  const char* phrase;
  Dictionary (*details)();  // null: "details.plist" vanishes
  const char* told;         // between "stolen" and the comma
  friend void PrintTo(const StolenCase& row, std::ostream* out) { *out << row.phrase; }
};

const StolenCase kStolenCases[] = {
    {"with lock info", [] { return detailsOf(31); },
     "at 2023-03-08 20:26:40 +0000 by browser on host localhost with pid 31"},
    {"what is absent prints as null",
     [] {
       return Dictionary{{"Other", 1}};
     },
     "at (null) by (null) on host (null) with pid (null)"},
    {"wrong types count as absent",
     [] {
       return Dictionary{{kLockFileDate, "today"},
                         {kLockFileProcessName, 1},
                         {kLockFileHostname, Array{"a"}},
                         {kLockFileProcessID, "31"}};
     },
     "at (null) by (null) on host (null) with pid (null)"},
    {"a boolean is a number", [] { return detailsOf(true); },
     "at 2023-03-08 20:26:40 +0000 by browser on host localhost with pid 1"},
    {"without lock info", nullptr, "by another process"},
};

class PlistManagerStolenTable : public PlistManagerGuardTest, public testing::WithParamInterface<StolenCase> {
 protected:
  void stealDuringTheWrite() {
    duringTheWrite([this] {
      if (GetParam().details) {
        putLock(GetParam().details());
      } else {
        fs::remove(lockFile);
      }
    });
    leftOnDisk = {"Bookmarks.plist", "lock/"};
    if (GetParam().details) leftOnDisk.push_back("lock/details.plist");
  }
};

// Lock stolen during the save: NSGenericException with one of the two messages; no notification, no return.
TEST_P(PlistManagerStolenTable, IsRaised) {
  stealDuringTheWrite();
  EXPECT_EQ(save(), "NSGenericException: File lock for " + guarded + " was stolen " + GetParam().told +
                        ", any modifications made during this sync may have been overwritten.");
  EXPECT_EQ(notifications(), 0u);
  EXPECT_EQ(fileOnDisk(), mine) << "by then the file is written";
}

TEST_P(PlistManagerStolenTable, IsTranslated) {
  stealDuringTheWrite();
  translate(kStolen, "Gestohlen: %@");
  translate(kStolenBy, "Gestohlen: %@ %@ %@ %@ %@");
  EXPECT_THAT(save(), testing::StartsWith("NSGenericException: Gestohlen: " + guarded));
}

INSTANTIATE_TEST_SUITE_P(All, PlistManagerStolenTable, testing::ValuesIn(kStolenCases));

// A message with a "%" in it is not interpreted a second time.
TEST_F(PlistManagerGuardTest, PercentSignOfAThiefStaysOne) {
  Dictionary thief = detailsOf(31);
  thief.set(kLockFileProcessName, "100%@ %d");
  duringTheWrite([&] { putLock(thief); });
  EXPECT_THAT(save(), testing::HasSubstr("by 100%@ %d on host localhost with pid 31,"));
  leftOnDisk = {"Bookmarks.plist", "lock/", "lock/details.plist"};
}

struct RaiseCase {
  const char* phrase;
  FileOperation operation;
  int number;  // of the calls during the save
  bool check;
  bool backups;
  bool notified;
  bool written;
  friend void PrintTo(const RaiseCase& row, std::ostream* out) { *out << row.phrase; }
};

const RaiseCase kRaiseCases[] = {
    {"before the check", FileOperation::symbolicLinkDestination, 1, true, false, true, false},
    {"during the check", FileOperation::attributes, 1, true, false, false, false},
    {"during the backup, after a check", FileOperation::attributes, 2, true, true, true, false},
    {"during the backup, making its directory", FileOperation::makeDirectory, 2, false, true, true, false},
    {"during the backup, copying", FileOperation::copy, 1, false, true, true, false},
    {"while serialising and writing", FileOperation::writeAtomically, 2, false, false, true, false},
    {"while serialising and writing, after a check", FileOperation::writeAtomically, 2, true, false, true,
     false},
    {"after the write, reading the new date", FileOperation::attributes, 1, false, false, true, true},
};

class PlistManagerRaiseTable : public PlistManagerGuardTest, public testing::WithParamInterface<RaiseCase> {
 protected:
  void raiseAtThePlace() {
    platform.files.before(GetParam().operation, GetParam().number,
                          [] { throw PlatformException("BadLuck", "disk on fire"); });
  }
  const std::string trace = "Exception BadLuck occured trying to save bookmarks: disk on fire";
};

// Any exception while checking, backing up or writing: logged, lock released, raised again after the
// notification step; the notification is posted except when the exception came during the check.
TEST_P(PlistManagerRaiseTable, IsRaisedAgainAfterTheNotification) {
  const RaiseCase& row = GetParam();
  putFile(bookmarksOf(1), 1000);
  manager.dictionary();
  if (row.backups) turnBackupsOn();
  raiseAtThePlace();
  EXPECT_EQ(raisedBy([&] { manager.saveBookmarks(&mine, row.check); }), "BadLuck: disk on fire");
  EXPECT_THAT(platform.log.diagnostics, Contains(trace).Times(1));
  EXPECT_EQ(notifications(), row.notified ? 1u : 0u);
  EXPECT_EQ(fileOnDisk(), row.written ? mine : bookmarksOf(1));
  EXPECT_EQ(lockOnDisk(), std::nullopt);
  if (fs::exists(guarded + "/backup")) leftOnDisk.push_back("backup/");
}

// What is no exception of the system's own gives the lock up as well, and passes on as it is.
TEST_F(PlistManagerGuardTest, MemoryThatRunsOutLeavesNoLockBehind) {
  putFile(bookmarksOf(1), 1000);
  duringTheWrite([] { throw std::bad_alloc(); });
  EXPECT_THROW(manager.saveBookmarks(&mine, false), std::bad_alloc);
  EXPECT_EQ(fileOnDisk(), bookmarksOf(1));
  EXPECT_EQ(lockOnDisk(), std::nullopt);
  EXPECT_EQ(save(), "") << "the next save needs no waiting";
  EXPECT_THAT(platform.clock.sleeps, SizeIs(0));
}

// When the lock was stolen besides, the theft is what is raised, and nobody is told of a change.
TEST_P(PlistManagerRaiseTable, TheftGoesFirst) {
  const RaiseCase& row = GetParam();
  putFile(bookmarksOf(1), 1000);
  manager.dictionary();
  if (row.backups) turnBackupsOn();
  platform.files.before(row.operation, row.number, [this] {
    putLock(detailsOf(31));
    throw PlatformException("BadLuck", "disk on fire");
  });
  EXPECT_THAT(raisedBy([&] { manager.saveBookmarks(&mine, row.check); }),
              testing::StartsWith("NSGenericException: File lock for "));
  EXPECT_EQ(notifications(), 0u);
  if (fs::exists(guarded + "/backup")) leftOnDisk.push_back("backup/");
  leftOnDisk.insert(leftOnDisk.end(), {"lock/", "lock/details.plist"});
}

INSTANTIATE_TEST_SUITE_P(All, PlistManagerRaiseTable, testing::ValuesIn(kRaiseCases));

}  // namespace
}  // namespace corvane
