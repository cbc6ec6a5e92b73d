#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/fakes/TemporaryDirectory.h"

// File systems that lack what others have, and disks that fail. This program puts its own functions before
// those of the C library, with errors to answer instead of carrying out the call; 0 for none.

namespace {
int linkError = 0, renameError = 0, syncError = 0, fileSyncError = 0, writeError = 0, listError = 0;
bool isLinkAnswerLost = false, isFolderMadeByAnother = false, isFileCut = false;
std::vector<std::string> calls;  // what reached the disk, and names, in their order

template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" int linkat(int from, const char* name, int to, const char* other, int flags) noexcept {
  if (linkError != 0) {
    errno = linkError;
    return -1;
  }
  static const auto call = real<int(int, const char*, int, const char*, int)>("linkat");
  calls.emplace_back("name");
  const int result = call(from, name, to, other, flags);
  if (!isLinkAnswerLost || result != 0) return result;
  errno = EEXIST;  // what the second request meets
  return -1;
}

extern "C" int renameat2(int from, const char* name, int to, const char* other, unsigned flags) noexcept {
  if (renameError != 0 && flags != 0) {
    errno = renameError;
    return -1;
  }
  static const auto call = real<int(int, const char*, int, const char*, unsigned)>("renameat2");
  calls.emplace_back("name");
  return call(from, name, to, other, flags);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  static const auto call = real<int(const char*, mode_t)>("mkdir");
  calls.emplace_back("folder");
  const int result = call(path, mode);
  if (!isFolderMadeByAnother || result != 0) return result;
  errno = EEXIST;
  return -1;
}

extern "C" int fsync(int descriptor) {
  struct stat status {};
  const bool isFolder = ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
  if (const int error = isFolder ? syncError : fileSyncError) {
    errno = error;
    return -1;
  }
  static const auto call = real<int(int)>("fsync");
  calls.emplace_back(isFolder ? "sync of a folder" : "sync of a file");
  return call(descriptor);
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t count) {
  struct stat status {};
  if (writeError != 0 && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && count == 11) {
    errno = writeError;
    return -1;
  }
  static const auto call = real<ssize_t(int, const void*, std::size_t)>("write");
  return call(descriptor, bytes, count);
}

extern "C" ssize_t read(int descriptor, void* bytes, std::size_t count) {
  static const auto call = real<ssize_t(int, void*, std::size_t)>("read");
  return isFileCut ? 0 : call(descriptor, bytes, count);
}

extern "C" dirent* readdir(DIR* directory) {
  static const auto call = real<dirent*(DIR*)>("readdir");
  if (listError == 0) return call(directory);
  errno = listError;
  return nullptr;
}

namespace corvane::pelto {
namespace {

class DirectoryPlaceKernelTest : public testing::Test {
 protected:
  DirectoryPlaceKernelTest() { place.putNew("f/before", "-"); }
  ~DirectoryPlaceKernelTest() override {
    linkError = renameError = syncError = fileSyncError = writeError = listError = 0;
    isLinkAnswerLost = isFolderMadeByAnother = isFileCut = false;
  }

  std::size_t filesLeft() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory / "f"),
                                                  std::filesystem::directory_iterator()));
  }

  TemporaryDirectory directory;
  DirectoryPlace place{directory.path(), after(60)};
};

TEST_F(DirectoryPlaceKernelTest, WithoutLinksAFileIsRenamedWithoutReplacing) {
  for (const int error : {EPERM, EOPNOTSUPP, ENOSYS, EMLINK}) {
    linkError = error;
    const std::string name = "f/" + std::to_string(error);
    EXPECT_EQ(place.putNew(name, "first"), Made::made);
    EXPECT_EQ(place.putNew(name, "second"), Made::present);
    EXPECT_EQ(place.get({{name, Writing::contested, {}, 10}}).front().bytes, "first");
  }
  EXPECT_EQ(filesLeft(), 5U);
}

TEST_F(DirectoryPlaceKernelTest, AFileSystemThatHasNeitherIsRefused) {
  linkError = EPERM;
  for (const int error : {EINVAL, ENOSYS}) {
    renameError = error;
    try {
      place.putNew("f/1", "1");
      ADD_FAILURE() << "made";
    } catch (const PlaceException& exception) {
      EXPECT_THAT(exception.reason(), testing::HasSubstr("use another place"));
    }
  }
  EXPECT_EQ(filesLeft(), 1U);
}

TEST_F(DirectoryPlaceKernelTest, ALinkWhoseAnswerWasLostIsStillTheWriters) {
  isLinkAnswerLost = true;
  EXPECT_EQ(place.putNew("f/1", "1"), Made::made);
}

TEST_F(DirectoryPlaceKernelTest, WhatTheDiskLeavesOpenIsUnknown) {
  linkError = EIO;
  EXPECT_EQ(place.putNew("f/1", "1"), Made::unknown);
  linkError = 0;
  syncError = EIO;
  EXPECT_EQ(place.putNew("f/2", "2"), Made::unknown);
  EXPECT_THROW(place.put({{"f/3", "3"}}), PlaceException);
}

TEST_F(DirectoryPlaceKernelTest, AnObjectIsOnTheDiskBeforeItsNameAndItsNameBeforeTheAnswer) {
  calls.clear();
  place.putNew("f/1", "1");
  EXPECT_THAT(calls, testing::ElementsAre("sync of a file", "name", "sync of a folder"));
  calls.clear();
  place.put({{"f/2", "2"}});
  EXPECT_THAT(calls, testing::ElementsAre("sync of a file", "name", "sync of a folder"));
}

TEST_F(DirectoryPlaceKernelTest, AFolderIsOnTheDiskBeforeWhatIsInIt) {
  calls.clear();
  place.putNew("new/1", "1");
  EXPECT_THAT(calls, testing::ElementsAre("folder", "sync of a folder", "sync of a file", "name",
                                          "sync of a folder"));
}

TEST_F(DirectoryPlaceKernelTest, WhatDoesNotReachTheDiskIsNotMade) {
  fileSyncError = EIO;
  EXPECT_THROW(place.putNew("f/1", "1"), PlaceException);
  EXPECT_THROW(place.put({{"f/1", "1"}}), PlaceException);
  EXPECT_EQ(filesLeft(), 1U);
}

TEST_F(DirectoryPlaceKernelTest, AFolderThatAnotherMakesAtTheSameMomentWillDo) {
  isFolderMadeByAnother = true;
  EXPECT_EQ(place.putNew("new/1", "1"), Made::made);
}

TEST_F(DirectoryPlaceKernelTest, AFileThatIsCutWhileItIsReadIsNoObject) {
  isFileCut = true;
  EXPECT_THROW(place.get({{"f/before", Writing::contested, {}, 10}}), PlaceException);
}

TEST_F(DirectoryPlaceKernelTest, AListingThatBreaksOffIsNone) {
  listError = EIO;
  EXPECT_THROW(place.list("f"), PlaceException);
}

TEST_F(DirectoryPlaceKernelTest, DirectoriesWithoutFsyncAreTaken) {
  syncError = EINVAL;
  EXPECT_EQ(place.putNew("f/1", "1"), Made::made);
}

TEST_F(DirectoryPlaceKernelTest, AFullDiskAndAQuotaAreNoRoom) {
  for (const int error : {ENOSPC, EDQUOT}) {
    writeError = error;
    EXPECT_THROW(place.putNew("f/1", "eleven byte"), PlaceFullException);
    EXPECT_THROW(place.put({{"f/1", "eleven byte"}}), PlaceFullException);
  }
  EXPECT_EQ(filesLeft(), 1U);
}

TEST_F(DirectoryPlaceKernelTest, ADiskThatMayOnlyBeReadRefuses) {
  writeError = EROFS;
  EXPECT_THROW(place.putNew("f/1", "eleven byte"), PlaceRefusedException);
}

}  // namespace
}  // namespace corvane::pelto
