#include <gtest/gtest.h>

#include <string>

#include "browsers/host/StoreWatch.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

TEST(StoreWatchTest, StoreAndItsLogAreWatchedAndNothingElse) {
  FakePlatform platform;
  const auto write = [&](const std::string& name) {
    ASSERT_FALSE(platform.realFiles.write(platform.directory / name, "x"));
  };
  browsers::StoreWatch watch(platform.directory / "Truth.db");
  EXPECT_GE(watch.descriptor(), 0);
  EXPECT_FALSE(watch.wasWritten());
  write("Truth.db-shm");
  write("Truth.database");
  EXPECT_FALSE(watch.wasWritten());
  for (const char* const name : {"Truth.db", "Truth.db-wal"}) {
    write(name);
    EXPECT_TRUE(watch.wasWritten()) << name;
    EXPECT_FALSE(watch.wasWritten()) << name;
  }
}

TEST(StoreWatchTest, DirectoryThatIsNotThereIsALineInTheLog) {
  FakePlatform platform;
  browsers::StoreWatch watch(platform.directory / "nowhere/Truth.db");
  EXPECT_EQ(watch.descriptor(), -1);
  EXPECT_FALSE(watch.wasWritten());
  EXPECT_EQ(platform.log.messages.size(), 1U);
}

}  // namespace
}  // namespace corvane
