#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

TEST(Paths, AreJoinedWithOneSlash) {
  struct Row {
    const char* directory;
    const char* name;
    const char* expected;
  };
  const Row rows[] = {
      {"/a", "b", "/a/b"}, {"/a/", "b", "/a/b"},  {"/a//", "//b", "/a/b"}, {"/", "b", "/b"},
      {"", "b", "b"},      {"a", "b/c", "a/b/c"}, {"/a", "", "/a"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(joinedPath(row.directory, row.name), row.expected) << row.directory << " + " << row.name;
  }
}

TEST(Paths, LoseTheirTrailingSlashes) {
  const std::pair<const char*, const char*> rows[] = {
      {"/a/b//", "/a/b"}, {"/a", "/a"}, {"//", "/"}, {"", ""}};
  for (const auto& [path, expected] : rows) EXPECT_EQ(withoutTrailingSlashes(path), expected) << path;
}

TEST(Paths, AreStandardizedByTextAlone) {
  struct Row {
    const char* path;
    const char* expected;
  };
  const Row rows[] = {
      {"/a/b", "/a/b"},
      {"/a//b///", "/a/b"},
      {"/a/./b/.", "/a/b"},
      {"/a/b/../c", "/a/c"},
      {"/../a", "/a"},
      {"/", "/"},
      {"//", "/"},
      {"/..", "/"},
      {"a/..", "."},
      {"../a", "../a"},
      {"../../a/../b", "../../b"},
      {"~", "/home/u"},
      {"~/x/", "/home/u/x"},
      {"~/../v", "/home/v"},
      {"~other/x", "~other/x"},
      {"/a/~", "/a/~"},
      {"", ""},
      {"...", "..."},
      {"./a", "a"},
  };
  for (const Row& row : rows) EXPECT_EQ(standardizedPath(row.path, "/home/u/"), row.expected) << row.path;
}

TEST(Paths, AreResolvedThroughOneLevelOfALink) {
  FakePlatform platform;
  LinuxFileSystem files;
  const std::string base = platform.directory.path();
  ASSERT_EQ(symlink("target", (base + "/relative").c_str()), 0);
  ASSERT_EQ(symlink("/somewhere/else", (base + "/absolute").c_str()), 0);
  ASSERT_EQ(symlink("relative", (base + "/twice").c_str()), 0);
  EXPECT_EQ(resolvedOneLevel(files, base + "/relative"), base + "/target");
  EXPECT_EQ(resolvedOneLevel(files, base + "/absolute"), "/somewhere/else");
  EXPECT_EQ(resolvedOneLevel(files, base + "/twice"), base + "/relative");
  EXPECT_EQ(resolvedOneLevel(files, base + "/none"), base + "/none");
  EXPECT_EQ(resolvedOneLevel(files, base), base);
}

}  // namespace
}  // namespace corvane
