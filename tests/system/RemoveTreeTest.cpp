#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace corvane {
namespace {

bool exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

TEST(Remove, TakesFilesDirectoriesAndTrees) {
  TemporaryDirectory directory;
  LinuxFileSystem files;
  std::filesystem::create_directories(directory / "tree/a/b");
  std::filesystem::create_directories(directory / "tree/c");
  for (const char* name : {"tree/f", "tree/a/g", "tree/a/b/h", "file"}) {
    ASSERT_FALSE(files.write(directory / name, "x"));
  }
  std::filesystem::create_directory(directory / "empty");
  for (const char* name : {"tree", "file", "empty"}) {
    EXPECT_FALSE(files.remove(directory / name)) << name;
    EXPECT_FALSE(exists(directory / name)) << name;
  }
  EXPECT_EQ(files.remove(directory / "none"), std::errc::no_such_file_or_directory);
}

TEST(Remove, LinksAreRemovedAndNotFollowed) {
  TemporaryDirectory directory;
  LinuxFileSystem files;
  std::filesystem::create_directories(directory / "kept");
  ASSERT_FALSE(files.write(directory / "kept/f", "x"));
  std::filesystem::create_directories(directory / "tree");
  ASSERT_EQ(symlink("../kept", (directory / "tree/link").c_str()), 0);
  ASSERT_EQ(symlink("kept", (directory / "link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (directory / "dangling").c_str()), 0);
  EXPECT_FALSE(files.remove(directory / "tree"));
  EXPECT_FALSE(files.remove(directory / "link/"));  // the slash would lead through the link
  EXPECT_FALSE(files.remove(directory / "dangling"));
  EXPECT_FALSE(exists(directory / "tree"));
  EXPECT_FALSE(exists(directory / "link"));
  EXPECT_FALSE(exists(directory / "dangling"));
  EXPECT_TRUE(exists(directory / "kept/f"));
}

// Deeper than a process may have files open, and with a path longer than the system takes in one piece.
TEST(Remove, DepthCostsNeitherStackNorDescriptors) {
  TemporaryDirectory directory;
  LinuxFileSystem files;
  ASSERT_FALSE(files.makeDirectory(directory / "deep", 0700));
  FileDescriptor level(open((directory / "deep").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int depth = 0; depth < 5'000; ++depth) {
    ASSERT_EQ(mkdirat(level.number(), "d", 0700), 0);
    level = FileDescriptor(openat(level.number(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(level);
  }
  level = FileDescriptor();
  EXPECT_FALSE(files.remove(directory / "deep"));
  EXPECT_FALSE(exists(directory / "deep"));
}

}  // namespace
}  // namespace corvane
