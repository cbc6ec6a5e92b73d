#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/fakes/TemporaryDirectory.h"

// File systems that lack what others have, and disks that fail. This program puts its own functions before
// those of the C library, with errors to answer instead of carrying out the call; 0 for none.

namespace {
int linkError = 0, renameError = 0, syncError = 0, writeError = 0;
bool isLinkAnswerLost = false;
}  // namespace

extern "C" int linkat(int from, const char* name, int to, const char* other, int flags) noexcept {
  if (linkError != 0) {
    errno = linkError;
    return -1;
  }
  using Function = int (*)(int, const char*, int, const char*, int);
  static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "linkat"));
  const int result = real(from, name, to, other, flags);
  if (!isLinkAnswerLost || result != 0) return result;
  errno = EEXIST;  // what the second request meets
  return -1;
}

extern "C" int renameat2(int from, const char* name, int to, const char* other, unsigned flags) noexcept {
  if (renameError != 0 && flags != 0) {
    errno = renameError;
    return -1;
  }
  using Function = int (*)(int, const char*, int, const char*, unsigned);
  static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "renameat2"));
  return real(from, name, to, other, flags);
}

extern "C" int fsync(int descriptor) {
  struct stat status {};
  if (syncError != 0 && ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    errno = syncError;
    return -1;
  }
  using Function = int (*)(int);
  static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fsync"));
  return real(descriptor);
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t count) {
  struct stat status {};
  if (writeError != 0 && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && count == 11) {
    errno = writeError;
    return -1;
  }
  using Function = ssize_t (*)(int, const void*, std::size_t);
  static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "write"));
  return real(descriptor, bytes, count);
}

namespace corvane::pelto {
namespace {

class DirectoryPlaceKernelTest : public testing::Test {
 protected:
  DirectoryPlaceKernelTest() { place.putNew("f/before", "-"); }
  ~DirectoryPlaceKernelTest() override {
    linkError = renameError = syncError = writeError = 0;
    isLinkAnswerLost = false;
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
