// Writing, reading and removing the lock file and its directory.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"
#include "tests/store/StoreTest.h"

namespace corvane {
namespace {

using Result = FileLockerResult;
using testing::ElementsAre;
using testing::SizeIs;

const char* const kTwoTriesLeft = "Error writing lock dictionary, will try again 2 time[s]";
const char* const kOneTryLeft = "Error writing lock dictionary, will try again 1 time[s]";

class FileLockerWriteTest : public StoreTest {
 protected:
  // The dictionary that this process writes now.
  Dictionary ownDetails() {
    return {{kLockFileUsername, platform.process.fullName},
            {kLockFileDate, platform.clock.time},
            {kLockFileProcessName, platform.process.name},
            {kLockFileProcessID, platform.process.id},
            {kLockFileHostname, "localhost"}};
  }
  std::string couldNotWrite(const Dictionary& details) {
    return "Couldn't write file lock dictionary for " + lockDirectory +
           " - possible bad dictionary format? Dictionary is " + description(details);
  }
  // The lines of tries that failed, in order, the third one without its last line.
  std::vector<std::string> triesThatFailed(std::size_t tries, const std::string& cause) const {
    const std::string line = "Could not write " + lockFile + ": " + cause;
    std::vector<std::string> lines{line, kTwoTriesLeft, line, kOneTryLeft, line};
    lines.resize(std::min(2 * tries, lines.size()));
    return lines;
  }
  std::string couldNotWriteReason() const {
    return "NSObjectNotAvailableException: Could not write lock info file for file in " + guarded;
  }

  OpenLocker locker{guarded, &delegate, 10};
};

TEST_F(FileLockerWriteTest, PathsLieInTheDirectory) {
  EXPECT_EQ(locker.path(), guarded);
  EXPECT_EQ(locker.lockDirectoryPath(), lockDirectory);
  EXPECT_EQ(locker.lockFilePath(), lockFile);
}

TEST_F(FileLockerWriteTest, LockFileHoldsWhoAndWhen) {
  ASSERT_EQ(locker.lock(), Result::acquired);
  EXPECT_EQ(lockOnDisk(), ownDetails());
  EXPECT_EQ(locker.lockFileContentsDictionary(), ownDetails());
  EXPECT_TRUE(contentsOf(lockFile).starts_with("<?xml"));
  locker.unlock();
}

// An independent reader understands the lock file.
TEST_F(FileLockerWriteTest, LockFileIsXmlThatPythonReads) {
  platform.process.fullName = "T\xC3\xA9st <User> & Co";
  ASSERT_EQ(locker.lock(), Result::acquired);
  EXPECT_EQ(readByPython(lockFile, "FMT_XML"),
            "{'LockFileDate': datetime.datetime(2026, 5, 9, 6, 13, 20), 'LockFileHostname': 'localhost', "
            "'LockFileProcessID': 4242, 'LockFileProcessName': 'corvanetool', "
            "'LockFileUsername': 'T\xC3\xA9st <User> & Co'}\n");
  locker.unlock();
}

// The lock directory is created with mode 0777 less the umask.
TEST_F(FileLockerWriteTest, LockDirectoryHasTheDefaultMode) {
  ASSERT_EQ(locker.lock(), Result::acquired);
  std::filesystem::create_directory(guarded + "/other");
  EXPECT_EQ(std::filesystem::status(lockDirectory).permissions(),
            std::filesystem::status(guarded + "/other").permissions());
  std::filesystem::remove(guarded + "/other");
  locker.unlock();
}

// Readers accept any property-list flavour.
TEST_F(FileLockerWriteTest, AnyFlavourIsRead) {
  const std::string binary = writeBinaryPropertyList(ownDetails());
  putLockBytes(&binary);
  EXPECT_EQ(locker.lockFileContentsDictionary(), ownDetails());
  const std::string text = "{ LockFileUsername = \"Some One\"; LockFileProcessID = 17; }";
  putLockBytes(&text);
  EXPECT_EQ(locker.lockFileContentsDictionary()->string(kLockFileUsername), "Some One");
  std::filesystem::remove_all(lockDirectory);
}

TEST_F(FileLockerWriteTest, AbsentOrUnreadableFileIsAbsent) {
  EXPECT_EQ(locker.lockFileContentsDictionary(), std::nullopt);
  putLock(ownDetails());
  platform.files.fail(FileOperation::read, 1, std::errc::permission_denied);
  EXPECT_EQ(locker.lockFileContentsDictionary(), std::nullopt);
  std::filesystem::remove_all(lockDirectory);
}

// If reading raises an exception, it is logged and the dictionary is absent.
TEST_F(FileLockerWriteTest, ExceptionWhileReadingIsLogged) {
  putLock(ownDetails());
  platform.files.before(FileOperation::read, 1, [] { throw PlatformException("BadLuck", "disk on fire"); });
  platform.log.expectMessages(
      {"Exception BadLuck: couldn't read lock file contents dictionary. Reason: disk on fire"});
  EXPECT_EQ(locker.lockFileContentsDictionary(), std::nullopt);
  std::filesystem::remove_all(lockDirectory);
}

struct WriteCase {
  const char* phrase;
  FileOperation failing;
  int failures;
  const char* cause;  // as the system log gives it
  friend void PrintTo(const WriteCase& row, std::ostream* out) { *out << row.phrase; }
};

class FileLockerWriteTable : public FileLockerWriteTest, public testing::WithParamInterface<WriteCase> {
 protected:
  void failTries() {
    for (int n = 1; n <= GetParam().failures; ++n) {
      platform.files.fail(GetParam().failing, n, std::errc::io_error);
    }
  }
};

TEST_P(FileLockerWriteTable, IsTriedThreeTimesOneSecondApart) {
  failTries();
  const std::vector<double> seconds{1.0, 1.0};
  const int retries = std::min(GetParam().failures, 2);
  const Dictionary details = ownDetails();
  platform.log.expectMessages(
      triesThatFailed(static_cast<std::size_t>(GetParam().failures), GetParam().cause));
  if (GetParam().failures < 3) {
    EXPECT_EQ(locker.lock(), Result::acquired);
    EXPECT_EQ(lockOnDisk(), details) << "the date is that of the first try";
  } else {
    platform.log.expectMessages({couldNotWrite(details)});
    EXPECT_EQ(raisedBy([&] { locker.lock(); }), couldNotWriteReason());
    EXPECT_EQ(listing(guarded), std::vector<std::string>());
    platform.files.heal();
    EXPECT_EQ(locker.lock(), Result::acquired) << "the failed lock must not count as held";
  }
  EXPECT_EQ(platform.clock.sleeps, (std::vector<double>{seconds.begin(), seconds.begin() + retries}));
  locker.unlock();
}

const WriteCase kWriteCases[] = {
    {"writing fails once", FileOperation::writeAtomically, 1, "Input/output error"},
    {"writing fails twice", FileOperation::writeAtomically, 2, "Input/output error"},
    {"writing fails three times", FileOperation::writeAtomically, 3, "Input/output error"},
    {"reading back fails once", FileOperation::read, 1, "it cannot be read back"},
    {"reading back fails three times", FileOperation::read, 3, "it cannot be read back"},
};

INSTANTIATE_TEST_SUITE_P(All, FileLockerWriteTable, testing::ValuesIn(kWriteCases));

// Lock file cannot be written 3 times: log lines, lock directory removed, exception; here it cannot be
// removed either.
TEST_F(FileLockerWriteTest, FailedWriteThatCannotBeUndone) {
  platform.files.failAlways(FileOperation::writeAtomically, std::errc::no_space_on_device);
  platform.files.failAlways(FileOperation::remove, std::errc::permission_denied);
  platform.files.failAlways(FileOperation::rename, std::errc::permission_denied);
  platform.log.expectMessages(triesThatFailed(3, "No space left on device"));
  platform.log.expectMessages({couldNotWrite(ownDetails()),
                               "Ignoring exception NSObjectNotAvailableException trying to remove lock after "
                               "failing to write file: Can't "
                               "remove existing lock for " +
                                   guarded});
  EXPECT_EQ(raisedBy([&] { locker.lock(); }), couldNotWriteReason());
  EXPECT_THAT(platform.clock.sleeps, ElementsAre(1.0, 1.0));
  leftOnDisk = {".staleLockDirectory/", "lock/"};
}

// A dictionary that the lock file's flavour cannot carry fails like a write.
TEST_F(FileLockerWriteTest, NameThatXmlCannotCarry) {
  platform.process.name = "bell\x07";
  std::string cause;
  try {
    writeXmlPropertyList(ownDetails());
  } catch (const PropertyListException& exception) {
    cause = exception.reason();
  }
  ASSERT_NE(cause, "");
  platform.log.expectMessages(triesThatFailed(3, cause));
  platform.log.expectMessages({couldNotWrite(ownDetails())});
  EXPECT_EQ(raisedBy([&] { locker.lock(); }), couldNotWriteReason());
}

TEST_F(FileLockerWriteTest, WriteLockFileTakesTheTimeOfWriting) {
  std::filesystem::create_directory(lockDirectory);
  platform.clock.time = Date{812'345'678.0};
  locker.writeLockFile();
  EXPECT_EQ(lockOnDisk()->date(kLockFileDate), Date{812'345'678.0});
  locker.removeLockFile();
}

TEST_F(FileLockerWriteTest, RemoveLockFileTakesTheDirectoryAndItsContents) {
  putLock(ownDetails());
  writeFile(lockDirectory + "/scratch", "");
  locker.removeLockFile();
  EXPECT_EQ(listing(guarded), std::vector<std::string>());
  EXPECT_EQ(raisedBy([&] { locker.removeLockFile(); }), "") << "one that is gone is no failure";
}

// If ".staleLockDirectory" exists, whether as a directory or not, it counts as present.
TEST_F(FileLockerWriteTest, StaleDirectoryThatIsAFileCannotTakeTheLock) {
  putLock(ownDetails());
  writeFile(guarded + "/.staleLockDirectory", "a file");
  platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
  EXPECT_TRUE(locker.createStaleLockDirectoryIfNeeded(guarded));
  EXPECT_EQ(raisedBy([&] { locker.removeLockFile(); }),
            "NSObjectNotAvailableException: Can't remove existing lock for " + guarded);
  EXPECT_EQ(contentsOf(guarded + "/.staleLockDirectory"), "a file");
  leftOnDisk = {".staleLockDirectory", "lock/", "lock/details.plist"};
}

TEST_F(FileLockerWriteTest, StaleDirectoryThatCannotBeMadeFailsTheRemoval) {
  putLock(ownDetails());
  platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
  platform.files.fail(FileOperation::makeDirectory, 1, std::errc::permission_denied);
  EXPECT_EQ(raisedBy([&] { locker.removeLockFile(); }),
            "NSObjectNotAvailableException: Can't remove existing lock for " + guarded);
  leftOnDisk = {"lock/", "lock/details.plist"};
}

TEST_F(FileLockerWriteTest, StaleDirectoryIsMadeWithIntermediateDirectories) {
  EXPECT_TRUE(locker.createStaleLockDirectoryIfNeeded(guarded + "/a/b"));
  leftOnDisk = {"a/", "a/b/", "a/b/.staleLockDirectory/"};
}

// Default attributes: everything that the umask leaves.
TEST_F(FileLockerWriteTest, StaleDirectoryHasTheDefaultMode) {
  for (const auto& [mask, mode] : std::map<unsigned, unsigned>{{0, 0777}, {0027, 0750}}) {
    const ScopedUmask umask(mask);
    EXPECT_TRUE(locker.createStaleLockDirectoryIfNeeded(guarded));
    EXPECT_EQ(modeOf(guarded + "/.staleLockDirectory"), mode);
    std::filesystem::remove(guarded + "/.staleLockDirectory");
  }
}

// Nothing ever empties ".staleLockDirectory": moved-aside lock directories accumulate.
TEST_F(FileLockerWriteTest, MovedAsideLocksAccumulate) {
  for (int i = 0; i < 2; ++i) {
    putLock(ownDetails());
    platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
    locker.removeLockFile();
  }
  const std::string stale = ".staleLockDirectory/lock-UUID-";
  leftOnDisk = {".staleLockDirectory/", stale + "1/", stale + "1/details.plist", stale + "2/",
                stale + "2/details.plist"};
}

// `cleanupStaleLockDirectory` deletes the lock directory itself, ignoring errors.
TEST_F(FileLockerWriteTest, CleanupDeletesTheLockDirectoryItself) {
  putLock(detailsOf(kLivingProcess));
  std::filesystem::create_directory(guarded + "/.staleLockDirectory");
  platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
  locker.cleanupStaleLockDirectory();
  EXPECT_TRUE(lockOnDisk());
  locker.cleanupStaleLockDirectory();
  leftOnDisk = {".staleLockDirectory/"};
}

}  // namespace
}  // namespace corvane
