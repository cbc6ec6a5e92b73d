// Files that claim more than they hold. This program's own fstat lies, and its own operator new
// keeps account of memory.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace {

off_t claimedSize = -1;                                     // of every file, unless negative
std::size_t largestAllowed = static_cast<std::size_t>(-1);  // bytes of an allocation
std::size_t largestSeen = 0;

}  // namespace

// Kept out of line: the compiler takes a free that it sees inside for one that does not fit its new.
__attribute__((noinline)) void* operator new(std::size_t size) {
  largestSeen = std::max(largestSeen, size);
  void* memory = size <= largestAllowed ? std::malloc(size) : nullptr;
  if (!memory) throw std::bad_alloc();
  return memory;
}
__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

extern "C" int fstat(int file, struct stat* status) noexcept {
  const int result = fstatat(file, "", status, AT_EMPTY_PATH);
  if (result == 0 && claimedSize >= 0) status->st_size = claimedSize;
  return result;
}

namespace corvane {
namespace {

class HostileFile : public testing::Test {
 protected:
  void TearDown() override {
    claimedSize = -1;
    largestAllowed = static_cast<std::size_t>(-1);
  }
  std::error_code read() {
    largestSeen = 0;
    return files.read(directory / "f", bytes);
  }

  TemporaryDirectory directory;
  LinuxFileSystem files;
  std::string bytes = "untouched";
};

TEST_F(HostileFile, MemoryGrowsWithWhatCameAndNotWithWhatWasClaimed) {
  ASSERT_FALSE(files.write(directory / "f", "small"));
  claimedSize = off_t{2} << 30;
  EXPECT_FALSE(read());
  EXPECT_EQ(bytes, "small");
  EXPECT_LT(largestSeen, std::size_t{100} << 20);
}

TEST_F(HostileFile, AClaimBeyondAnyMemoryIsTooLarge) {
  ASSERT_FALSE(files.write(directory / "f", "small"));
  claimedSize = std::numeric_limits<off_t>::max();
  EXPECT_EQ(read(), std::errc::file_too_large);
  EXPECT_EQ(bytes, "untouched");
}

TEST_F(HostileFile, MoreThanWasClaimedIsReadToo) {
  const std::string large(3'000'000, 'x');
  ASSERT_FALSE(files.write(directory / "f", large));
  for (const off_t claimed : {0, 1, 2'999'999, 3'000'000, 3'000'001, 5'000'000}) {
    claimedSize = claimed;
    EXPECT_FALSE(read());
    EXPECT_EQ(bytes, large) << claimed;
  }
}

TEST_F(HostileFile, MemoryThatDoesNotSufficeIsAnError) {
  ASSERT_FALSE(files.write(directory / "f", std::string(3'000'000, 'x')));
  largestAllowed = 2'000'000;
  const std::error_code error = read();
  largestAllowed = static_cast<std::size_t>(-1);
  EXPECT_EQ(error, std::errc::not_enough_memory);
  EXPECT_EQ(bytes, "untouched");
}

}  // namespace
}  // namespace corvane
