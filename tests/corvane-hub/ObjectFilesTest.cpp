#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/fakes/TemporaryDirectory.h"
#include "tools/corvane-hub/ObjectFiles.h"
#include "tools/corvane-hub/ObjectNames.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane::hubserver {

namespace {

class ObjectFilesTest : public testing::Test {
 protected:
  ObjectFilesTest() { ::mkdir((account() + "/objects").c_str(), 0700); }

  std::string account() const { return directory.path(); }
  std::uint64_t used() const { return UsageLedger(account()).bytes(); }
  Stored stored(const std::string& name, std::size_t bytes, std::uint64_t quota) const {
    Upload upload(account());
    upload.write(std::string(bytes, 'x'));
    return store(account(), *objectPathOf(name), upload, quota, [] { return true; });
  }
  void remove(const std::string& name) const {
    EXPECT_EQ(removeObject(account(), *objectPathOf(name), [] { return true; }), Removed::removed);
  }

  TemporaryDirectory directory;
};

// There has to be room for a folder besides, whether or not one is made.
TEST_F(ObjectFilesTest, AnObjectIsMadeWhereThereIsRoomForItToTheByte) {
  EXPECT_EQ(stored("f/1", 3000, kFolderCharge + 2999), Stored::full);
  EXPECT_EQ(used(), 0U);
  EXPECT_EQ(stored("f/1", 3000, kFolderCharge + 3000), Stored::made);
  EXPECT_EQ(used(), kFolderCharge + 3000);
  const std::uint64_t enough = used() + chargeOf(10) + kFolderCharge;
  EXPECT_EQ(stored("f/2", 10, enough - 1), Stored::full);
  EXPECT_EQ(stored("f/2", 10, enough), Stored::made);
  EXPECT_FALSE(hasRoom(account(), 10, enough));
}

TEST_F(ObjectFilesTest, WhatIsRemovedCountsAsMuchAsWhenItWasMade) {
  constexpr std::uint64_t kPlenty = 1 << 20;
  stored("f/1", 3000, kPlenty);
  const std::uint64_t before = used();
  for (const std::size_t bytes : {0, 10, 1024, 1025}) {
    stored("f/2", bytes, kPlenty);
    EXPECT_EQ(used(), before + chargeOf(bytes));
    remove("f/2");
    EXPECT_EQ(used(), before) << bytes;
  }
  remove("f/1");
  EXPECT_EQ(used(), kFolderCharge) << "a folder stays";
}

}  // namespace

}  // namespace corvane::hubserver
