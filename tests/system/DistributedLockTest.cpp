#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/DistributedLock.h"
#include "tests/fakes/Files.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/system/ChildProcess.h"

namespace corvane {
namespace {

class DistributedLockTest : public testing::Test {
 protected:
  DistributedLock lock() { return DistributedLock::lockWithPath(path); }

  StrictPlatform platform;
  std::string path = platform.process.temporary + "/com.keldra.Corvane.SyncClient.IsRunning";
};

/// The exception's name and reason; "" when none is raised.
template <typename Work>
std::string raisedBy(Work work) {
  try {
    work();
    return "";
  } catch (const PlatformException& exception) {
    return exception.name() + ": " + exception.reason();
  }
}

TEST_F(DistributedLockTest, oneHolderAtATime) {
  EXPECT_TRUE(lock().tryLock());
  EXPECT_FALSE(lock().tryLock());
  EXPECT_TRUE(std::filesystem::is_directory(path));
  lock().unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_TRUE(lock().tryLock());
  lock().unlock();
}

TEST_F(DistributedLockTest, excludesOtherProcesses) {
  EXPECT_EQ(answerOfChild([&] { return lock().tryLock() ? "taken" : "refused"; }), "taken");
  EXPECT_FALSE(lock().tryLock()) << "the other process ended, its lock stands";
  lock().breakLock();
  ASSERT_TRUE(lock().tryLock());
  EXPECT_EQ(answerOfChild([&] { return lock().tryLock() ? "taken" : "refused"; }), "refused");
}

TEST_F(DistributedLockTest, ofManyProcessesOneGetsIt) {
  // All children wait for the gate to open, then try at once.
  int gate[2], results[2];
  ASSERT_EQ(pipe(gate), 0);
  ASSERT_EQ(pipe(results), 0);
  constexpr int kProcesses = 8;
  for (int i = 0; i < kProcesses; ++i) {
    if (fork() != 0) continue;
    close(gate[1]);
    char byte = 0;
    if (read(gate[0], &byte, 1) != 0) _exit(1);
    byte = lock().tryLock() ? 'y' : 'n';
    _exit(write(results[1], &byte, 1) == 1 ? 0 : 1);
  }
  close(gate[0]);
  close(gate[1]);
  close(results[1]);
  std::string answers;
  for (char byte = 0; read(results[0], &byte, 1) == 1;) answers += byte;
  close(results[0]);
  for (int i = 0; i < kProcesses; ++i) wait(nullptr);
  EXPECT_EQ(answers.size(), 8u);
  EXPECT_EQ(std::count(answers.begin(), answers.end(), 'y'), 1);
}

TEST_F(DistributedLockTest, lockDateIsTheTimeOfTaking) {
  EXPECT_EQ(lock().lockDate(), std::nullopt);
  ASSERT_TRUE(lock().tryLock());
  ASSERT_FALSE(setModificationDate(path, Date{1234.5}));
  EXPECT_EQ(lock().lockDate(), Date{1234.5});
}

TEST_F(DistributedLockTest, breakingRemovesWhateverStands) {
  std::filesystem::create_directories(path + "/with/contents");
  lock().breakLock();
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_FALSE(platform.realFiles.write(path, "a file"));
  EXPECT_FALSE(lock().tryLock()) << "whatever stands there is a lock";
  lock().breakLock();
  EXPECT_FALSE(std::filesystem::exists(path));
  lock().breakLock();  // already gone counts as done
}

TEST_F(DistributedLockTest, aLockPathThatCannotBeRemoved) {
  ASSERT_TRUE(lock().tryLock());
  platform.files.failAlways(FileOperation::remove, std::errc::permission_denied);
  EXPECT_EQ(raisedBy([&] { lock().breakLock(); }),
            "NSGenericException: Can't break lock " + path + ": Permission denied");
  platform.log.expectMessages({"Can't remove lock " + path + ": Permission denied"});
  lock().unlock();
  EXPECT_FALSE(lock().tryLock());
}

TEST_F(DistributedLockTest, unlockingALockThatIsGoneIsNoError) {
  lock().unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, aLockThatAnotherBrokeAndTookIsHis) {
  DistributedLock first = lock();
  // So that the file system's clock ticks between the two: a lock is only broken long after it was taken.
  platform.files.before(FileOperation::attributes, 1,
                        [this] { EXPECT_FALSE(setModificationDate(path, Date{1000.0})); });
  ASSERT_TRUE(first.tryLock());
  DistributedLock second = lock();
  second.breakLock();
  ASSERT_TRUE(second.tryLock());
  platform.log.expectMessages(
      {"Lock " + path + " was broken and taken by another process, so it is not given up"});
  first.unlock();
  EXPECT_TRUE(std::filesystem::is_directory(path));
  second.unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, aLockTakenAgainIsGivenUp) {
  DistributedLock mine = lock();
  ASSERT_TRUE(mine.tryLock());
  lock().breakLock();
  mine.unlock();  // gone
  ASSERT_TRUE(mine.tryLock());
  mine.unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, aLockWhoseDateCannotBeReadIsGivenUp) {
  DistributedLock mine = lock();
  platform.files.fail(FileOperation::attributes, 1, std::errc::io_error);
  ASSERT_TRUE(mine.tryLock());
  mine.unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, takingItWhereNothingCanBeMade) {
  std::filesystem::remove(platform.process.temporary);
  EXPECT_EQ(raisedBy([&] { lock().tryLock(); }),
            "NSObjectNotAvailableException: Can't take lock " + path + ": No such file or directory");
}

}  // namespace
}  // namespace corvane
