#include <gmock/gmock.h>

#include <stdexcept>

#include "CorvaneSyncClient/front/Commands.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "tests/fakes/Files.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/session/ScriptedLoomer.h"

namespace corvane {
namespace {

using Command = CommandLine::Command;
using ::testing::ElementsAre;

constexpr const char* kMain = "com.keldra.Corvane";

class CommandsTest : public ::testing::Test {
 protected:
  CommandsTest() { platform.preferences.domains[kMain].set("SCLog", "YES"); }

  std::optional<FileAttributes> lockAttributes() {
    std::error_code error;
    return platform.realFiles.attributes(
        platform.process.temporary + "/com.keldra.Corvane.SyncClient.IsRunning", error);
  }
  bool isLocked() { return lockAttributes().has_value(); }
  Date lockDate() { return lockAttributes()->modificationDate; }
  int sync(String clientId) { return runCommand({Command::sync, std::move(clientId)}); }
  void sessionDoes(std::function<bool()> what) {
    loomer.script = [what](LoomerSessionDriverDataSource&, LoomerSessionDriver&) { return what(); };
  }

  StrictPlatform platform;
  ScriptedLoomer loomer;
};

TEST_F(CommandsTest, SuccessfulSyncIsStatusZeroUnderTheLock) {
  bool locked = false;
  int probed = -1;
  sessionDoes([&] {
    locked = isLocked();
    probed = runCommand({Command::isSyncing, String()});
    return true;
  });
  EXPECT_EQ(sync(kMain), 0);
  EXPECT_TRUE(locked);
  EXPECT_EQ(probed, 0);  // --issyncing while a sync runs: status 0
  EXPECT_FALSE(isLocked());
}

TEST_F(CommandsTest, FailedSyncIsStatusOne) {
  sessionDoes([] { return false; });
  platform.log.expectMessages(
      {"Corvane Sync Client got the following error when attempting a sync: scripted"});
  EXPECT_EQ(sync(kMain), 1);
  EXPECT_FALSE(isLocked());
}

TEST_F(CommandsTest, ImproperClientIdTakesNoLock) {
  platform.log.expectMessages({"CorvaneSyncClient called to sync, but without a proper client id"});
  EXPECT_EQ(sync(String()), 1);
  EXPECT_EQ(platform.files.mutationCount(), 0);
}

// A sync whose manager cannot be created (invalid client id) exits with 1 and releases the lock.
TEST_F(CommandsTest, ManagerThatCannotBeCreatedReleasesTheLock) {
  platform.log.expectMessages(
      {"Corvane Sync Client - asked to sync client id X, but com.keldra.Corvane(.afilename) is required"});
  EXPECT_EQ(sync("X"), 1);
  EXPECT_FALSE(isLocked());
  EXPECT_EQ(platform.files.count(FileOperation::makeDirectory), 1);  // it was taken
}

// An exception raised inside the sync run: the lock is released, "Uncaught exception running corvanetool: %@"
// is logged, exit status 1.
TEST_F(CommandsTest, ExceptionReleasesTheLockAndIsLogged) {
  sessionDoes([]() -> bool { throw PlatformException("AName", "a reason"); });
  platform.log.expectMessages({"Uncaught exception running corvanetool: a reason"});
  EXPECT_EQ(sync(kMain), 1);
  EXPECT_FALSE(isLocked());
}

// A system log that calls a test before each message.
class WatchedLog : public SystemLog {
 public:
  explicit WatchedLog(std::function<void()> onMessage) : _onMessage(std::move(onMessage)) {}
  void write(Kind kind, std::string_view) override {
    if (kind == Kind::message) _onMessage();
  }

 private:
  std::function<void()> _onMessage;
};

TEST_F(CommandsTest, ExceptionIsLoggedAfterTheLockIsReleased) {
  std::vector<bool> lockedAtMessages;
  WatchedLog log([&] { lockedAtMessages.push_back(isLocked()); });
  Platform watched{platform.clock,         platform.uuids,       platform.process,
                   platform.files,         platform.preferences, log,
                   platform.notifications, platform.bundles};
  const PlatformScope scope(watched);
  bool lockedInSession = false;
  sessionDoes([&]() -> bool {
    lockedInSession = isLocked();
    throw PlatformException("AName", "a reason");
  });
  EXPECT_EQ(sync(kMain), 1);
  EXPECT_TRUE(lockedInSession);
  EXPECT_THAT(lockedAtMessages, ElementsAre(false));
}

TEST_F(CommandsTest, OtherExceptionsPassThroughWithTheLockReleased) {
  sessionDoes([]() -> bool { throw std::runtime_error("foreign"); });
  EXPECT_THROW(sync(kMain), std::runtime_error);
  EXPECT_FALSE(isLocked());
}

TEST_F(CommandsTest, SecondSyncIsRefused) {
  int second = -1;
  sessionDoes([&] {
    platform.clock.time = lockDate();
    second = sync(kMain);
    EXPECT_TRUE(isLocked());
    return true;
  });
  EXPECT_EQ(sync(kMain), 0);
  EXPECT_EQ(second, 1);
}

// A lock path that cannot be removed: "Failed to break the stale lock!", status 1.
TEST_F(CommandsTest, LockThatCannotBeRemovedIsStatusOne) {
  const std::string lock = platform.process.temporary + "/com.keldra.Corvane.SyncClient.IsRunning";
  ASSERT_FALSE(platform.realFiles.makeDirectory(lock, 0700));
  platform.clock.time = Date{lockDate().seconds + 1000.0};
  platform.files.failAlways(FileOperation::remove, std::errc::permission_denied);
  bool ran = false;
  sessionDoes([&ran] { return ran = true; });
  EXPECT_EQ(sync(kMain), 1);
  EXPECT_FALSE(ran);
  EXPECT_TRUE(isLocked());
  EXPECT_EQ(platform.log.diagnostics.back(), "Failed to break the stale lock!");
}

// A run whose lock was broken and taken by another leaves that one's lock alone, which the diagnostic log
// tells.
TEST_F(CommandsTest, SuccessorsLockIsLeftAlone) {
  const std::string lock = platform.process.temporary + "/com.keldra.Corvane.SyncClient.IsRunning";
  sessionDoes([&] {
    const Date date = lockDate();
    EXPECT_FALSE(platform.realFiles.remove(lock));
    EXPECT_FALSE(platform.realFiles.makeDirectory(lock, 0700));
    EXPECT_FALSE(setModificationDate(lock, date));
    return true;
  });
  EXPECT_EQ(sync(kMain), 0);
  EXPECT_TRUE(isLocked());
  EXPECT_EQ(platform.log.diagnostics.back(),
            "Lock " + lock + " was broken and taken by another process, so it is not given up");
}

// --issyncing with no lock: status 1, and no lock remains afterwards.
TEST_F(CommandsTest, ProbeWithoutALock) {
  EXPECT_EQ(runCommand({Command::isSyncing, String()}), 1);
  EXPECT_FALSE(isLocked());
}

TEST_F(CommandsTest, ProbeThatFailsIsAnUncaughtException) {
  platform.files.failAlways(FileOperation::makeDirectory, std::errc::read_only_file_system);
  platform.log.expectMessages({"Uncaught exception running corvanetool: Can't take lock " +
                               platform.process.temporary +
                               "/com.keldra.Corvane.SyncClient.IsRunning: Read-only file system"});
  EXPECT_EQ(runCommand({Command::isSyncing, String()}), 1);
}

TEST_F(CommandsTest, UnknownCommandShowsTheUsage) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(runCommand({}), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "corvanetool say: what you trying to do?\n"
            "\n"
            "    --issyncing\n"
            "    --canregister\n"
            "    --isregistered\n"
            "    --register\n"
            "    --unregister\n"
            "    --registersyncclient clientId\n"
            "    --unregistersyncclient clientId\n"
            "    --sync clientId --entitynames entityNames\n");
}

TEST_F(CommandsTest, RegistersAClientAfresh) {
  platform.bundles.own.resources["CorvaneClientDescription.plist"] = "/own/CorvaneClientDescription.plist";
  EXPECT_EQ(runCommand({Command::registerSyncClient, "X"}), 0);
  EXPECT_EQ(runCommand({Command::registerSyncClient, "X"}), 0);
  ASSERT_EQ(loomer.registrations.size(), 2u);
  EXPECT_EQ(loomer.registrations[0].identifier, "X");
  EXPECT_FALSE(loomer.registrations[0].bundleId);
  EXPECT_EQ(loomer.registrations[0].path, "/own/CorvaneClientDescription.plist");
}

TEST_F(CommandsTest, UnregistersOnce) {
  runCommand({Command::registerSyncClient, "X"});
  EXPECT_EQ(runCommand({Command::unregisterSyncClient, "Y"}), 1);
  EXPECT_EQ(runCommand({Command::unregisterSyncClient, "X"}), 0);
  EXPECT_EQ(runCommand({Command::unregisterSyncClient, "X"}), 1);
}

TEST_F(CommandsTest, UnknownMainClientIsNotRegistered) {
  platform.log.expectMessages({"Corvane Sync Client is not registered"});
  EXPECT_EQ(runCommand({Command::isRegistered, String()}), 1);
}

}  // namespace
}  // namespace corvane
