#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "tests/fakes/StrictPlatform.h"

namespace corvane {
namespace {

TEST(ForwardingFileSystem, FailsTheNthOperationFromNow) {
  FakePlatform platform;
  const std::string path = platform.directory / "f";
  ASSERT_FALSE(platform.files.write(path, "0"));
  platform.files.fail(FileOperation::write, 2, std::errc::no_space_on_device);
  EXPECT_FALSE(platform.files.write(path, "1"));
  EXPECT_EQ(platform.files.write(path, "2"), std::errc::no_space_on_device);
  std::string contents;
  ASSERT_FALSE(platform.files.read(path, contents));
  EXPECT_EQ(contents, "1") << "a failed operation does not happen";
  EXPECT_FALSE(platform.files.write(path, "3"));
  EXPECT_EQ(platform.files.count(FileOperation::write), 4);
  EXPECT_EQ(platform.files.mutationCount(), 4);
}

TEST(ForwardingFileSystem, HooksComeBeforeTheOperation) {
  FakePlatform platform;
  const std::string path = platform.directory / "f";
  platform.files.before(FileOperation::read, 1,
                        [&] { ASSERT_FALSE(platform.realFiles.write(path, "hook")); });
  platform.files.before(FileOperation::remove, 1, [] { throw std::runtime_error("halt"); });
  std::string contents;
  EXPECT_FALSE(platform.files.read(path, contents));
  EXPECT_EQ(contents, "hook");
  EXPECT_THROW(platform.files.remove(path), std::runtime_error);
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(ForwardingFileSystem, InterceptsByPathAndHeals) {
  FakePlatform platform;
  platform.files.intercept = [](const ForwardingFileSystem::Call& call) {
    return call.path.ends_with("bad") ? std::make_error_code(std::errc::io_error) : std::error_code();
  };
  EXPECT_FALSE(platform.files.write(platform.directory / "good", ""));
  EXPECT_EQ(platform.files.write(platform.directory / "bad", ""), std::errc::io_error);
  platform.files.failAlways(FileOperation::write, std::errc::permission_denied);
  EXPECT_EQ(platform.files.write(platform.directory / "good", ""), std::errc::permission_denied);
  platform.files.heal();
  EXPECT_FALSE(platform.files.write(platform.directory / "bad", ""));
}

TEST(FakePlatform, IsCurrentUntilAnInnerOneIs) {
  FakePlatform outer;
  EXPECT_EQ(&Platform::current().files, &outer.files);
  {
    FakePlatform inner;
    EXPECT_EQ(&Platform::current().files, &inner.files);
  }
  EXPECT_EQ(&Platform::current().files, &outer.files);
  EXPECT_TRUE(std::filesystem::is_directory(outer.process.homeDirectory()));
  EXPECT_TRUE(std::filesystem::is_directory(outer.process.temporaryDirectory()));
}

TEST(StrictPlatform, FailsOnUndeclaredAndOnMissingMessages) {
  EXPECT_NONFATAL_FAILURE(
      {
        StrictPlatform platform;
        systemLog("surprise");
      },
      "system log, not declared: surprise");
  EXPECT_NONFATAL_FAILURE(
      {
        StrictPlatform platform;
        platform.log.expectMessages({"awaited"});
      },
      "system log, declared only: awaited");
  StrictPlatform platform;
  platform.log.expectMessages({"declared 1"});
  systemLog("declared %d", 1);
  platform.log.write(SystemLog::Kind::diagnostic, "traces need no declaration");
}

TEST(RecordingNotifications, AFailureIsAnsweredAndNothingIsPosted) {
  RecordingNotifications notifications;
  EXPECT_EQ(notifications.post("name", "object"), std::nullopt);
  notifications.failure = "no bus";
  EXPECT_EQ(notifications.post("name", "object"), "no bus");
  EXPECT_EQ(notifications.posted, (std::vector<RecordingNotifications::Posted>{{"name", "object"}}));
}

}  // namespace
}  // namespace corvane
