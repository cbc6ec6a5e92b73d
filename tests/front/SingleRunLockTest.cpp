#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <limits>

#include "CorvaneSyncClient/front/SingleRunLock.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "tests/fakes/Files.h"
#include "tests/fakes/StrictPlatform.h"

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kAlreadySyncing = "CorvaneSyncClient called to sync, but is already syncing";
constexpr const char* kStale = "CorvaneSyncClient lock appears to be stale.  Attempting to break...";
constexpr const char* kBroken = "Success!  Stale lock was broken.";
constexpr const char* kUnbroken = "Failed to break the stale lock!";

class SingleRunLockTest : public ::testing::Test {
 protected:
  SingleRunLockTest() { platform.preferences.domains["com.keldra.Corvane"].set("SCLog", "YES"); }

  std::string path() const { return platform.process.temporary + "/com.keldra.Corvane.SyncClient.IsRunning"; }
  bool isThere() {
    std::error_code error;
    return platform.realFiles.attributes(path(), error).has_value();
  }
  // A lock that somebody else took so long ago.
  void lockOfAge(double seconds) {
    ASSERT_FALSE(platform.realFiles.makeDirectory(path(), 0700));
    ASSERT_FALSE(setModificationDate(path(), Date{platform.clock.time.seconds - seconds}));
  }
  std::optional<Date> date() {
    std::error_code error;
    const auto attributes = platform.realFiles.attributes(path(), error);
    return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
  }

  StrictPlatform platform;
};

TEST_F(SingleRunLockTest, IsTakenAndReleased) {
  SingleRunLock lock;
  EXPECT_TRUE(lock.acquire());
  EXPECT_TRUE(isThere());
  lock.release();
  EXPECT_FALSE(isThere());
  EXPECT_THAT(platform.log.diagnostics, IsEmpty());
}

struct AgeCase {
  const char* phrase;
  double age;  // seconds
  bool taken;
  friend void PrintTo(const AgeCase& row, std::ostream* out) { *out << row.phrase; }
};

class AgeTest : public SingleRunLockTest, public ::testing::WithParamInterface<AgeCase> {};

TEST_P(AgeTest, DecidesWhetherTheLockIsStale) {
  lockOfAge(GetParam().age);
  const auto before = date();
  EXPECT_EQ(SingleRunLock().acquire(), GetParam().taken);
  EXPECT_TRUE(isThere());
  if (GetParam().taken) {
    EXPECT_THAT(platform.log.diagnostics, ElementsAre(kStale, kBroken));
    EXPECT_NE(date(), before);
  } else {
    EXPECT_THAT(platform.log.diagnostics, ElementsAre(kAlreadySyncing));
    EXPECT_EQ(date(), before);
  }
}

// A lock taken 299 seconds ago: "already syncing", the lock is untouched.
// A lock taken 300 seconds ago or earlier: broken and retaken.
INSTANTIATE_TEST_SUITE_P(Ages, AgeTest,
                         ::testing::Values(AgeCase{"just now", 0.0, false},
                                           AgeCase{"299 seconds", 299.0, false},
                                           AgeCase{"a fraction short of 300 seconds", 299.875, false},
                                           AgeCase{"300 seconds", 300.0, true},
                                           AgeCase{"a day", 86400.0, true},
                                           AgeCase{"in the future", -1000.0, false}));

// A lock path that cannot be removed: "Failed to break the stale lock!".
TEST_F(SingleRunLockTest, UnremovableLockIsNotTaken) {
  lockOfAge(1000.0);
  platform.files.failAlways(FileOperation::remove, std::errc::permission_denied);
  EXPECT_FALSE(SingleRunLock().acquire());
  EXPECT_THAT(platform.log.diagnostics, ElementsAre(kStale, kUnbroken));
}

TEST_F(SingleRunLockTest, FailureOfAnyKindIsSwallowedWhileBreaking) {
  lockOfAge(1000.0);
  platform.files.before(FileOperation::remove, 1, [] { throw std::string("no exception at all"); });
  EXPECT_FALSE(SingleRunLock().acquire());
  EXPECT_THAT(platform.log.diagnostics, ElementsAre(kStale, kUnbroken));
}

TEST_F(SingleRunLockTest, SomebodyElseMayBeFasterAfterTheBreak) {
  lockOfAge(1000.0);
  platform.files.before(FileOperation::makeDirectory, 2, [this] { lockOfAge(0.0); });
  EXPECT_FALSE(SingleRunLock().acquire());
  EXPECT_THAT(platform.log.diagnostics, ElementsAre(kStale, kBroken, kAlreadySyncing));
}

// Two runs judge one lock stale; the slower one leaves the faster one's new lock alone and reports "already
// syncing".
TEST_F(SingleRunLockTest, SlowerOfTwoBreakersLeavesTheFastersLock) {
  lockOfAge(1000.0);
  platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
    // The first step after the look, whichever it is.
    if (call.operation == FileOperation::remove || call.operation == FileOperation::hold) {
      platform.files.intercept = nullptr;
      EXPECT_FALSE(platform.realFiles.remove(path()));
      lockOfAge(0.0);
    }
    return std::error_code();
  };
  EXPECT_FALSE(SingleRunLock().acquire());
  EXPECT_TRUE(isThere());
  EXPECT_THAT(platform.log.diagnostics, ElementsAre(kStale, kBroken, kAlreadySyncing));
}

// A holder that gives up between the try and the look leaves nothing, which is no stale lock.
TEST_F(SingleRunLockTest, LockThatIsGoneAtTheLookIsTriedAgain) {
  lockOfAge(0.0);
  platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
    if (call.operation == FileOperation::attributes || call.operation == FileOperation::ownAttributes) {
      platform.files.intercept = nullptr;
      EXPECT_FALSE(platform.realFiles.remove(path()));
    }
    return std::error_code();
  };
  EXPECT_TRUE(SingleRunLock().acquire());
  EXPECT_THAT(platform.log.diagnostics, IsEmpty());
}

// One that is never there to be looked at belongs to runs that come and go, and is tried a limited number of
// times.
TEST_F(SingleRunLockTest, LockThatIsGoneAtEveryLookIsSomebodySyncing) {
  platform.files.failAlways(FileOperation::makeDirectory, std::errc::file_exists);
  EXPECT_FALSE(SingleRunLock().acquire());
  EXPECT_THAT(platform.log.diagnostics, ElementsAre(kAlreadySyncing));
  EXPECT_LT(platform.files.count(FileOperation::makeDirectory), 1000);
}

// Releasing is unconditional: a directory that somebody touched, or made a file in, goes.
TEST_F(SingleRunLockTest, IsReleasedWhateverWasDoneToTheDirectory) {
  SingleRunLock lock;
  ASSERT_TRUE(lock.acquire());
  ASSERT_FALSE(platform.realFiles.write(path() + "/file", ""));
  ASSERT_FALSE(setModificationDate(path(), Date{1000.0}));
  lock.release();
  EXPECT_FALSE(isThere());
  EXPECT_THAT(platform.log.diagnostics, IsEmpty());
}

// A lock that cannot be given up is told in the diagnostic log alone.
TEST_F(SingleRunLockTest, ReleaseThatFailsIsADiagnosticLine) {
  SingleRunLock lock;
  ASSERT_TRUE(lock.acquire());
  platform.files.failAlways(FileOperation::remove, std::errc::permission_denied);
  lock.release();
  EXPECT_THAT(platform.log.diagnostics, ElementsAre("Can't remove lock " + path() + ": Permission denied"));
}

// Of runs that find one stale lock, one gets it and all others report "already syncing".
TEST_F(SingleRunLockTest, OfManyRunsThatBreakAStaleLockOneGetsIt) {
  constexpr int kRounds = 40;
  for (int round = 0; round < kRounds; ++round) {
    platform.clock.time = linuxPlatform().clock.now();
    lockOfAge(1000.0);
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    std::vector<pid_t> runs(4);
    for (pid_t& run : runs) {
      run = fork();
      if (run != 0) continue;
      close(gate[1]);
      char byte = 0;
      const bool isOpen = read(gate[0], &byte, 1) == 0;
      _exit(isOpen && SingleRunLock().acquire() ? 0 : 1);
    }
    close(gate[0]);
    close(gate[1]);
    int taken = 0;
    for (const pid_t run : runs) {
      int status = 0;
      ASSERT_EQ(waitpid(run, &status, 0), run);
      taken += status == 0;
    }
    ASSERT_EQ(taken, 1) << "in round " << round;
    ASSERT_FALSE(platform.realFiles.remove(path()));
  }
}

TEST_F(SingleRunLockTest, UnreadableDateCountsAsStale) {
  lockOfAge(0.0);
  platform.files.fail(FileOperation::ownAttributes, 1, std::errc::permission_denied);
  EXPECT_TRUE(SingleRunLock().acquire());
  EXPECT_THAT(platform.log.diagnostics, ElementsAre(kStale, kBroken));
}

TEST_F(SingleRunLockTest, UncomparableIntervalCountsAsStale) {
  lockOfAge(0.0);
  platform.clock.time = Date{std::numeric_limits<double>::quiet_NaN()};
  EXPECT_TRUE(SingleRunLock().acquire());
}

TEST_F(SingleRunLockTest, LockThatCannotBeMadeRaises) {
  platform.files.failAlways(FileOperation::makeDirectory, std::errc::read_only_file_system);
  EXPECT_THROW(SingleRunLock().acquire(), PlatformException);
  EXPECT_THROW(SingleRunLock().isHeld(), PlatformException);
}

TEST_F(SingleRunLockTest, ProbeLeavesTheLockAsItIs) {
  EXPECT_FALSE(SingleRunLock().isHeld());
  EXPECT_FALSE(isThere());
  lockOfAge(100'000.0);  // the probe does not look at the age
  const auto before = date();
  EXPECT_TRUE(SingleRunLock().isHeld());
  EXPECT_EQ(date(), before);
  EXPECT_THAT(platform.log.diagnostics, IsEmpty());
}

}  // namespace
}  // namespace corvane
