// The locker's judgements: host names, validity, abandoned locks, and the lock info for the delegate.

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/store/StoreTest.h"

namespace corvane {
namespace {

using Action = FileLockerAction;
using testing::ElementsAre;
using testing::SizeIs;

// A file system whose directories are on a volume of the test's choice.
class OnVolume : public ForwardingFileSystem {
 public:
  OnVolume(FileSystem& files, std::optional<Volume> answer)
      : ForwardingFileSystem(files), _answer(std::move(answer)) {}
  std::optional<Volume> volume(const std::string& path) override {
    asked = path;
    return _answer;
  }
  std::string asked;

 private:
  std::optional<Volume> _answer;
};

class FileLockerStepsTest : public StoreTest {
 protected:
  Platform platformWith(FileSystem& files) {
    return {platform.clock,       platform.uuids, platform.process,       files,
            platform.preferences, platform.log,   platform.notifications, platform.bundles};
  }
};

struct HostCase {
  const char* phrase;
  std::optional<FileSystem::Volume> (*volume)();
  const char* host;
  bool local;
  const char* expected;
  friend void PrintTo(const HostCase& row, std::ostream* out) { *out << row.phrase; }
};

using VolumeAnswer = std::optional<FileSystem::Volume>;

const HostCase kHostCases[] = {
    {"on a local file system the name is localhost",
     [] {
       return VolumeAnswer({"/home", true});
     },
     "atlas", true, "localhost"},
    {"a mount point that is exactly the root is local, whatever the flag",
     [] {
       return VolumeAnswer({"/", false});
     },
     "atlas", true, "localhost"},
    {"on a network file system it is the host name",
     [] {
       return VolumeAnswer({"/net", false});
     },
     "atlas", false, "atlas"},
    {"unknownhost when the host name is absent",
     [] {
       return VolumeAnswer({"/net", false});
     },
     "", false, "unknownhost"},
    {"a file system that cannot be told is not local", [] { return VolumeAnswer(); }, "atlas", false,
     "atlas"},
};

class FileLockerHostTable : public FileLockerStepsTest, public testing::WithParamInterface<HostCase> {};

TEST_P(FileLockerHostTable, NameInTheLockFile) {
  const HostCase& row = GetParam();
  OnVolume files(platform.files, row.volume());
  Platform other = platformWith(files);
  const PlatformScope scope(other);
  platform.process.host = row.host;

  OpenLocker locker(guarded, nullptr, 0);
  EXPECT_EQ(files.asked, guarded);
  EXPECT_EQ(locker.isOnLocalHost(), row.local);
  EXPECT_EQ(locker.computeHostname(), row.expected);

  platform.process.host = "renamed";  // the name is fixed at creation
  EXPECT_EQ(locker.lock(), FileLockerResult::acquired);
  EXPECT_EQ(lockOnDisk()->string(kLockFileHostname), row.expected);
  EXPECT_TRUE(locker.matchesHostNameFromLockDictionary(row.expected));
  EXPECT_TRUE(locker.matchesHostNameFromLockDictionary(String()));
  EXPECT_FALSE(locker.matchesHostNameFromLockDictionary("renamed"));
  EXPECT_FALSE(locker.matchesHostNameFromLockDictionary(""));
  locker.unlock();
}

INSTANTIATE_TEST_SUITE_P(All, FileLockerHostTable, testing::ValuesIn(kHostCases));

// On a network volume a dead process of this very machine is known to be dead, one of another machine is not.
TEST_F(FileLockerStepsTest, RealHostNamesAreComparedOnANetworkVolume) {
  OnVolume files(platform.files, VolumeAnswer({"/net", false}));
  Platform other = platformWith(files);
  const PlatformScope scope(other);
  OpenLocker locker(guarded, nullptr, 0);
  const Dictionary ours = detailsOf(kDeadProcess, "testhost");
  const Dictionary theirs = detailsOf(kDeadProcess, "localhost");
  EXPECT_TRUE(locker.lockIsNotValid(&ours));
  EXPECT_FALSE(locker.lockIsNotValid(&theirs));
}

TEST_F(FileLockerStepsTest, OnlyADeadProcessOfThisHostIsNotValid) {
  OpenLocker locker(guarded, nullptr, 0);
  EXPECT_FALSE(locker.lockIsNotValid(nullptr));
  const Dictionary nothing;
  EXPECT_FALSE(locker.lockIsNotValid(&nothing));
  const std::pair<int, bool> rows[] = {
      {kLivingProcess, false}, {kDeadProcess, true}, {kUndeterminedProcess, false}};
  for (const auto& [process, notValid] : rows) {
    const Dictionary details = detailsOf(process);
    EXPECT_EQ(locker.lockIsNotValid(&details), notValid) << process;
  }
}

// Own decision on an abandoned lock: unreadable and dead ones are broken, without asking.
TEST_F(FileLockerStepsTest, OwnDecisionOnAnAbandonedLock) {
  OpenLocker locker(guarded, &delegate, 0);
  const Dictionary dead = detailsOf(kDeadProcess);
  const Dictionary living = detailsOf(kLivingProcess);
  EXPECT_EQ(locker.actionForApparentlyAbandonedLock(nullptr, 1), Action::breakLock);
  EXPECT_EQ(locker.actionForApparentlyAbandonedLock(&dead, 1), Action::breakLock);
  EXPECT_THAT(delegate.attempts, SizeIs(0));

  delegate.answers = {Action::waitAgain};
  EXPECT_EQ(locker.actionForApparentlyAbandonedLock(&living, 9), Action::waitAgain);
  EXPECT_THAT(delegate.attempts, ElementsAre(9));
  EXPECT_THAT(delegate.callers, ElementsAre(&locker));

  delegate.implementsAction = false;
  EXPECT_EQ(locker.actionForApparentlyAbandonedLock(&living, 1), Action::giveUp);
  OpenLocker alone(guarded, nullptr, 0);
  EXPECT_EQ(alone.actionForApparentlyAbandonedLock(&living, 1), Action::giveUp);
}

// A delegate that implements neither call answers to give up and lets thefts pass, should it be called all
// the same.
TEST_F(FileLockerStepsTest, BareDelegateImplementsNothing) {
  class Bare : public CorvaneFileLockerDelegate {
  } bare;
  OpenLocker locker(guarded, &bare, 0);
  EXPECT_FALSE(bare.implementsActionForApparentlyAbandonedLock());
  EXPECT_FALSE(bare.implementsLockWasStolen());
  EXPECT_EQ(bare.fileLockerActionForApparentlyAbandonedLock(locker, {}, 1), Action::giveUp);
  EXPECT_EQ(raisedBy([&] { bare.fileLockerLockWasStolen(locker, nullptr); }), "");
}

class FileLockerInfoTest : public FileLockerStepsTest {
 protected:
  FileLockerInfoTest() {
    putLock(details);
    setDate(lockFile, 500.25);
    leftOnDisk = {"lock/", "lock/details.plist"};
  }
  const Dictionary details = detailsOf(kLivingProcess);
  OpenLocker locker{guarded, nullptr, 0};
};

// The two dates are those of a scratch file just made, which is deleted again, and of "details.plist".
TEST_F(FileLockerInfoTest, HoldsTheDatesOnTheFileSystem) {
  platform.uuids.given = {String("SCRATCH")};
  platform.files.before(FileOperation::attributes, 1, [this] {
    EXPECT_EQ(contentsOf(lockDirectory + "/SCRATCH"), "");
    setDate(lockDirectory + "/SCRATCH", 900.75);
  });
  Dictionary expected = details;
  expected.set(kCurrentDateOnFileSystem, Date{900.75});
  expected.set(kLockFileDateOnFileSystem, Date{500.25});
  EXPECT_EQ(locker.lockInfoForDelegate(details), expected);
  EXPECT_EQ(details.size(), 5u) << "the given dictionary must stay as it was";
}

struct InfoCase {
  const char* phrase;
  FileOperation failing;
  int number;
  friend void PrintTo(const InfoCase& row, std::ostream* out) { *out << row.phrase; }
};

class FileLockerInfoTable : public FileLockerInfoTest, public testing::WithParamInterface<InfoCase> {};

// The two keys are added only when both dates could be read.
TEST_P(FileLockerInfoTable, HasNeitherDate) {
  platform.files.fail(GetParam().failing, GetParam().number, std::errc::permission_denied);
  EXPECT_EQ(locker.lockInfoForDelegate(details), details);
}

const InfoCase kInfoCases[] = {
    {"the scratch file cannot be made", FileOperation::write, 1},
    {"its date cannot be read", FileOperation::attributes, 1},
    {"the date of details.plist cannot be read", FileOperation::attributes, 2},
};

INSTANTIATE_TEST_SUITE_P(All, FileLockerInfoTable, testing::ValuesIn(kInfoCases));

// That the scratch file cannot be deleted is ignored.
TEST_F(FileLockerInfoTest, ScratchFileThatStaysIsIgnored) {
  platform.uuids.given = {String("SCRATCH")};
  platform.files.fail(FileOperation::remove, 1, std::errc::permission_denied);
  EXPECT_TRUE(locker.lockInfoForDelegate(details).date(kCurrentDateOnFileSystem));
  leftOnDisk = {"lock/", "lock/SCRATCH", "lock/details.plist"};
}

}  // namespace
}  // namespace corvane
