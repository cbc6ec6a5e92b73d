#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/locks/DistributedLock.h"
#include "tests/fakes/Files.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/system/AnswerOfChild.h"

namespace corvane {
namespace {

class DistributedLockTest : public testing::Test {
 protected:
  DistributedLock lock() { return DistributedLock::lockWithPath(path); }
  // A lock that has been looked at, and can be broken.
  DistributedLock judged() {
    DistributedLock result = lock();
    std::error_code error;
    EXPECT_TRUE(result.lockDate(error)) << error.message();
    return result;
  }
  // Another process breaks the lock and takes it.
  void anotherBreaksAndTakes() {
    std::filesystem::remove_all(path);
    ASSERT_FALSE(platform.realFiles.makeDirectory(path, 0700));
  }
  FileIdentity identity() {
    std::error_code error;
    const auto attributes = platform.realFiles.ownAttributes(path, error);
    EXPECT_TRUE(attributes) << error.message();
    return attributes ? attributes->identity : FileIdentity();
  }
  std::vector<std::string> left() {
    std::vector<std::string> names;
    EXPECT_FALSE(listDirectory(platform.process.temporary, names));
    return names;
  }

  StrictPlatform platform;
  const std::string name = "com.keldra.Corvane.SyncClient.IsRunning";
  std::string path = platform.process.temporary + "/com.keldra.Corvane.SyncClient.IsRunning";
};

// The exception's name and reason; "" when none is raised.
template <typename Work>
std::string raisedBy(Work work) {
  try {
    work();
    return "";
  } catch (const PlatformException& exception) {
    return exception.name() + ": " + exception.reason();
  }
}

TEST_F(DistributedLockTest, HasOneHolderAtATime) {
  EXPECT_TRUE(lock().tryLock());
  EXPECT_FALSE(lock().tryLock());
  EXPECT_TRUE(std::filesystem::is_directory(path));
  lock().unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_TRUE(lock().tryLock());
  lock().unlock();
}

TEST_F(DistributedLockTest, ExcludesOtherProcesses) {
  EXPECT_EQ(answerOfChild([&] { return lock().tryLock() ? "taken" : "refused"; }), "taken");
  EXPECT_FALSE(lock().tryLock()) << "the other process ended, its lock stands";
  lock().breakLock();
  ASSERT_TRUE(lock().tryLock());
  EXPECT_EQ(answerOfChild([&] { return lock().tryLock() ? "taken" : "refused"; }), "refused");
}

TEST_F(DistributedLockTest, OfManyProcessesOneGetsIt) {
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

TEST_F(DistributedLockTest, LockDateIsTheTimeOfTaking) {
  std::error_code error;
  EXPECT_EQ(lock().lockDate(error), std::nullopt);
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  ASSERT_TRUE(lock().tryLock());
  ASSERT_FALSE(setModificationDate(path, Date{1234.5}));
  EXPECT_EQ(lock().lockDate(error), Date{1234.5});
  EXPECT_FALSE(error);
}

// A link that leads nowhere stands in the way like anything else, and has a date of its own.
TEST_F(DistributedLockTest, ALinkToNothingIsALock) {
  std::filesystem::create_symlink("nowhere", path);
  EXPECT_FALSE(lock().tryLock());
  judged().breakLock();
  EXPECT_TRUE(lock().tryLock());
}

TEST_F(DistributedLockTest, BreakingRemovesWhateverStands) {
  std::filesystem::create_directories(path + "/with/contents");
  lock().breakLock();
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_FALSE(platform.realFiles.write(path, "a file"));
  EXPECT_FALSE(lock().tryLock()) << "whatever stands there is a lock";
  lock().breakLock();
  EXPECT_FALSE(std::filesystem::exists(path));
  lock().breakLock();  // already gone counts as done
}

// Between the look and the break another breaks the lock and takes it: it is his.
TEST_F(DistributedLockTest, BreakingSparesWhatWasTakenSinceTheLook) {
  ASSERT_TRUE(lock().tryLock());
  DistributedLock slower = judged();
  anotherBreaksAndTakes();
  const FileIdentity anothers = identity();
  slower.breakLock();
  EXPECT_EQ(identity(), anothers);
  EXPECT_EQ(left(), std::vector<std::string>{name});
}

// The same in the very last moment, by a program that knows of no holds: what was moved aside is put back.
TEST_F(DistributedLockTest, WhatIsAnothersIsPutBack) {
  ASSERT_TRUE(lock().tryLock());
  DistributedLock slower = judged();
  FileIdentity anothers;
  platform.files.before(FileOperation::moveAside, 1, [&] {
    anotherBreaksAndTakes();
    ASSERT_FALSE(platform.realFiles.write(path + "/contents", ""));
    anothers = identity();
  });
  slower.breakLock();
  EXPECT_EQ(identity(), anothers);
  EXPECT_TRUE(std::filesystem::exists(path + "/contents"));
  EXPECT_EQ(left(), std::vector<std::string>{name});
}

// And a third one takes the lock before it is put back: the third one's is not replaced.
TEST_F(DistributedLockTest, WhatAThirdOneMadeMeanwhileIsNotReplaced) {
  ASSERT_TRUE(lock().tryLock());
  DistributedLock slower = judged();
  FileIdentity thirds;
  platform.files.before(FileOperation::moveAside, 1, [&] { anotherBreaksAndTakes(); });
  platform.files.before(FileOperation::renameWithoutReplacing, 1, [&] {
    ASSERT_FALSE(platform.realFiles.makeDirectory(path, 0700));
    thirds = identity();
  });
  slower.breakLock();
  EXPECT_EQ(identity(), thirds);
  EXPECT_EQ(left(), std::vector<std::string>{name});
}

// What is gone, whenever it goes, counts as broken.
TEST_F(DistributedLockTest, BreakingWhatIsGoneIsDone) {
  for (const FileOperation operation :
       {FileOperation::hold, FileOperation::moveAside, FileOperation::remove}) {
    ASSERT_TRUE(lock().tryLock());
    DistributedLock slower = judged();
    platform.files.before(operation, 1, [&] { std::filesystem::remove_all(path); });
    EXPECT_EQ(raisedBy([&] { slower.breakLock(); }), "");
    EXPECT_EQ(left(), std::vector<std::string>());
  }
}

// Those who break a lock hold on to it, so that each sees what the other has made of it.
TEST_F(DistributedLockTest, RemovingHasAHoldOnTheLock) {
  DistributedLock mine = lock();
  ASSERT_TRUE(mine.tryLock());
  int held = 0;
  platform.files.before(FileOperation::moveAside, 1, [&] {
    held += answerOfChild([&] { return canBeHeld(path) ? "had" : "not had"; }) == "not had";
  });
  mine.unlock();
  EXPECT_EQ(held, 1);
}

TEST_F(DistributedLockTest, ALockThatCannotBeRemovedStandsAndIsReported) {
  DistributedLock mine = lock();
  ASSERT_TRUE(mine.tryLock());
  for (const FileOperation operation : {FileOperation::remove, FileOperation::moveAside}) {
    platform.files.failAlways(operation, std::errc::permission_denied);
    EXPECT_EQ(raisedBy([&] { judged().breakLock(); }),
              "NSGenericException: Can't break lock " + path + ": Permission denied");
    EXPECT_EQ(lock().unlock(), "Can't remove lock " + path + ": Permission denied");
    EXPECT_FALSE(lock().tryLock());
    EXPECT_EQ(left(), std::vector<std::string>{name});
    platform.files.heal();
  }
}

TEST_F(DistributedLockTest, UnlockingALockThatIsGoneIsNoError) {
  EXPECT_EQ(lock().unlock(), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(path));
}

// Whatever was done to the directory meanwhile, it is given up.
TEST_F(DistributedLockTest, ALockThatWasTouchedOrHoldsAFileIsGivenUp) {
  DistributedLock mine = lock();
  ASSERT_TRUE(mine.tryLock());
  ASSERT_FALSE(platform.realFiles.write(path + "/.nfs0001", "somebody's"));
  ASSERT_FALSE(setModificationDate(path, Date{1000.0}));
  EXPECT_EQ(mine.unlock(), std::nullopt);
  EXPECT_EQ(left(), std::vector<std::string>());
}

// A lock is told by what it is: a successor's with the very same date and inode number is the successor's.
TEST_F(DistributedLockTest, ALockThatAnotherBrokeAndTookIsHis) {
  DistributedLock first = lock();
  ASSERT_TRUE(first.tryLock());
  std::error_code error;
  const Date date = *lock().lockDate(error);
  DistributedLock second = lock();
  judged().breakLock();
  ASSERT_TRUE(second.tryLock());
  ASSERT_FALSE(setModificationDate(path, date));
  EXPECT_EQ(first.unlock(),
            "Lock " + path + " was broken and taken by another process, so it is not given up");
  EXPECT_TRUE(std::filesystem::is_directory(path));
  EXPECT_EQ(second.unlock(), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, ALockTakenAgainIsGivenUp) {
  DistributedLock mine = lock();
  ASSERT_TRUE(mine.tryLock());
  lock().breakLock();
  mine.unlock();  // gone
  ASSERT_TRUE(mine.tryLock());
  mine.unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, ALockThatCouldNotBeLookedAtIsGivenUp) {
  DistributedLock mine = lock();
  platform.files.fail(FileOperation::ownAttributes, 1, std::errc::io_error);
  ASSERT_TRUE(mine.tryLock());
  mine.unlock();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DistributedLockTest, TakingItRaisesWhereNothingCanBeMade) {
  std::filesystem::remove(platform.process.temporary);
  EXPECT_EQ(raisedBy([&] { lock().tryLock(); }),
            "NSObjectNotAvailableException: Can't take lock " + path + ": No such file or directory");
}

}  // namespace
}  // namespace corvane
