#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {
namespace {

TEST(LinuxPlatform, GathersTheRealServices) {
  Platform& platform = linuxPlatform();
  EXPECT_EQ(&platform, &linuxPlatform());
  EXPECT_EQ(platform.process.processId(), getpid());
  EXPECT_EQ(platform.uuids.newUuid().view().size(), 36u);
  EXPECT_GT(platform.clock.now(), Date{0.0});
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(platform.bundles.ownBundle().path(), program.parent_path().string());
  std::error_code error;
  EXPECT_TRUE(platform.files.attributes(program.string(), error));
}

}  // namespace
}  // namespace corvane
