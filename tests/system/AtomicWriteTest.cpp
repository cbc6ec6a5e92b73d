// The system calls of an atomic write are put aside by this program's own, which can fail as a disk would.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "tests/fakes/Files.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace {

// What the n-th call of a function fails with, counted down; 0 when it is not to fail.
struct FailingCall {
  int callsUntil = 0;
  int error = 0;
};
std::map<std::string, FailingCall>* faults = nullptr;
constexpr int kNeverReturns = -1;       // in place of an error: the process stands still until it is killed
std::function<void()> beforeRenameat2;  // called once, before the next one
std::string lastRenamed;                // the name that the last rename took away

bool failsNow(const char* function) {
  if (!faults) return false;
  const auto found = faults->find(function);
  if (found == faults->end() || --found->second.callsUntil != 0) return false;
  if (found->second.error == kNeverReturns) {
    while (true) pause();
  }
  errno = found->second.error;
  return true;
}

}  // namespace

extern "C" {

int fsync(int file) { return failsNow("fsync") ? -1 : static_cast<int>(syscall(SYS_fsync, file)); }

ssize_t write(int file, const void* bytes, size_t size) {
  if (failsNow("write")) return -1;
  if (faults && size > 4) size = 4;  // a system may write less than it is asked for
  return syscall(SYS_write, file, bytes, size);
}

int rename(const char* from, const char* to) noexcept {
  if (failsNow("rename")) return -1;
  lastRenamed = from;
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) noexcept {
  if (beforeRenameat2) std::exchange(beforeRenameat2, nullptr)();
  if (failsNow("renameat2")) return -1;
  return static_cast<int>(syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags));
}

int link(const char* from, const char* to) noexcept {
  return failsNow("link") ? -1 : static_cast<int>(syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int stat(const char* path, struct stat* status) noexcept {
  if (failsNow("stat")) return -1;
  return fstatat(AT_FDCWD, path, status, 0);
}

int fchmod(int file, mode_t mode) noexcept {
  return failsNow("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, file, mode));
}

int fchown(int file, uid_t user, gid_t group) noexcept {
  return failsNow("fchown") ? -1 : static_cast<int>(syscall(SYS_fchown, file, user, group));
}

}  // extern "C"

namespace corvane {
namespace {

class AtomicWrite : public testing::Test {
 protected:
  void TearDown() override { faults = nullptr; }

  std::string contents() {
    std::string bytes = "(no file)";
    const std::error_code error = files.read(path, bytes);
    return error ? error.message() : bytes;
  }
  std::vector<std::string> names() {
    std::vector<std::string> result;
    EXPECT_FALSE(listDirectory(directory.path(), result));
    return result;
  }
  std::error_code writeWith(std::map<std::string, FailingCall> given, const std::string& text) {
    faults = &given;
    const std::error_code error = files.writeAtomically(path, text);
    faults = nullptr;
    return error;
  }

  TemporaryDirectory directory;
  std::string path = directory / "Bookmarks.plist";
  LinuxFileSystem files;
};

TEST_F(AtomicWrite, EveryFailureLeavesTheOldFileAndNoOther) {
  struct Row {
    const char* phrase;
    const char* function;
    int call;
    int error;
  };
  const Row rows[] = {
      {"the disk is full at once", "write", 1, ENOSPC},
      {"the disk is full in the middle", "write", 2, ENOSPC},
      {"the mode cannot be kept", "fchmod", 1, EIO},
      {"the file does not reach the disk", "fsync", 1, EIO},
      {"the new file cannot take the place", "rename", 1, EACCES},
      {"the old file cannot be looked at", "stat", 1, EACCES},
  };
  ASSERT_FALSE(files.write(path, "the old contents"));
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  for (const Row& row : rows) {
    EXPECT_EQ(writeWith({{row.function, {row.call, row.error}}}, "new contents").value(), row.error)
        << row.phrase;
    EXPECT_EQ(contents(), "the old contents") << row.phrase;
    EXPECT_EQ(modeOf(path), 0640u) << row.phrase;
    EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"}) << row.phrase;
  }
}

TEST_F(AtomicWrite, EveryFailureLeavesNothingWhereNothingWas) {
  for (const auto& [function, call] : std::multimap<std::string, int>{
           {"write", 1}, {"write", 2}, {"fsync", 1}, {"rename", 1}, {"stat", 1}}) {
    EXPECT_TRUE(writeWith({{function, {call, EIO}}}, "new contents")) << function;
    EXPECT_EQ(names(), std::vector<std::string>{}) << function;
  }
}

TEST_F(AtomicWrite, InterruptionsAndShortWritesAreCarriedThrough) {
  EXPECT_FALSE(writeWith({{"write", {2, EINTR}}, {"fsync", {1, EINTR}}}, "some longer contents"));
  EXPECT_EQ(contents(), "some longer contents");
}

TEST_F(AtomicWrite, WorksWithoutDirectoryFsync) {
  for (const int error : {EINVAL, ENOTSUP}) {
    ASSERT_FALSE(files.write(path, "old"));
    EXPECT_FALSE(writeWith({{"fsync", {2, error}}}, "new")) << error;
    EXPECT_EQ(contents(), "new");
  }
}

TEST_F(AtomicWrite, ADirectoryThatDoesNotReachTheDiskIsReportedAndTheNewFileStands) {
  ASSERT_FALSE(files.write(path, "old"));
  EXPECT_EQ(writeWith({{"fsync", {2, EIO}}}, "new"), std::errc::io_error);
  EXPECT_EQ(writeWith({{"fsync", {2, EIO}}}, "new").category(), notDurableCategory());
  EXPECT_NE(writeWith({{"fsync", {1, EIO}}}, "newer").category(), notDurableCategory());
  EXPECT_EQ(contents(), "new");
  EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
}

TEST_F(AtomicWrite, AnOwnerThatCannotBeKeptIsNoFailure) {
  ASSERT_FALSE(files.write(path, "old"));
  EXPECT_FALSE(writeWith({{"fchown", {1, EPERM}}}, "new"));
  EXPECT_EQ(contents(), "new");
}

TEST_F(AtomicWrite, ModeIsKept) {
  for (const mode_t mode : {0600u, 0640u, 0664u, 0444u, 0777u}) {
    ASSERT_FALSE(files.writeAtomically(path, "one"));
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    ASSERT_FALSE(files.writeAtomically(path, "two"));
    EXPECT_EQ(modeOf(path), mode);
  }
}

TEST_F(AtomicWrite, ANewFileGetsItsModeFromTheUmask) {
  const mode_t before = umask(0027);
  const std::error_code error = files.writeAtomically(path, "new");
  umask(before);
  ASSERT_FALSE(error);
  EXPECT_EQ(modeOf(path), 0640u);
}

TEST_F(AtomicWrite, ALinkItselfIsReplaced) {
  ASSERT_FALSE(files.write(directory / "target", "target"));
  ASSERT_EQ(symlink("target", path.c_str()), 0);
  ASSERT_FALSE(files.writeAtomically(path, "new"));
  EXPECT_FALSE(std::filesystem::is_symlink(path));
  EXPECT_EQ(contents(), "new");
  std::string target;
  ASSERT_FALSE(files.read(directory / "target", target));
  EXPECT_EQ(target, "target");
}

TEST_F(AtomicWrite, ALinkThatLeadsNowhereIsReplaced) {
  ASSERT_FALSE(files.write(directory / "file", "file"));
  for (const char* target : {"none", "file/inside"}) {
    ASSERT_EQ(symlink(target, path.c_str()), 0);
    EXPECT_FALSE(files.writeAtomically(path, "new")) << target;
    EXPECT_FALSE(std::filesystem::is_symlink(path)) << target;
    EXPECT_EQ(contents(), "new");
    ASSERT_FALSE(files.remove(path));
  }
  EXPECT_EQ(files.writeAtomically(directory / "file/inside", "new"), std::errc::not_a_directory);
}

TEST_F(AtomicWrite, ContentsMayComeInPieces) {
  EXPECT_FALSE(files.writeAtomically(path, [](const auto& take) {
    take("one, ");
    take("");
    take("two");
  }));
  EXPECT_EQ(contents(), "one, two");
}

TEST_F(AtomicWrite, ContentsThatRaiseMidwayChangeNothing) {
  ASSERT_FALSE(files.writeAtomically(path, "old"));
  const auto raising = [](const auto& take) {
    take("half");
    throw PlatformException("Raised", "midway");
  };
  EXPECT_THROW(files.writeAtomically(path, raising), PlatformException);
  EXPECT_EQ(contents(), "old");
  EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
}

TEST_F(AtomicWrite, ADirectoryIsNotReplaced) {
  ASSERT_FALSE(files.makeDirectory(path, 0700));
  EXPECT_EQ(files.writeAtomically(path, "new"), std::errc::is_a_directory);
  EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
}

TEST_F(AtomicWrite, AMissingDirectoryIsAnError) {
  EXPECT_EQ(files.writeAtomically(directory / "none/f", "new"), std::errc::no_such_file_or_directory);
}

class NewFile : public AtomicWrite {
 protected:
  std::error_code writeNewWith(std::map<std::string, FailingCall> given, const std::string& text) {
    faults = &given;
    const std::error_code error = files.writeNewAtomically(path, text);
    faults = nullptr;
    return error;
  }

  // How a file system fails that does not know the rename, and one that has no links either.
  const std::map<std::string, FailingCall> knowsNoSuchRename{{"renameat2", {1, EINVAL}}};
  const std::map<std::string, FailingCall> hasNoLinksEither{{"renameat2", {1, EINVAL}}, {"link", {1, EPERM}}};
};

// Somebody makes the file between the look for it and the renaming: his stands.
TEST_F(NewFile, OneThatComesInTheLastMomentStands) {
  for (const auto& faultsOfFileSystem :
       {std::map<std::string, FailingCall>{}, knowsNoSuchRename, hasNoLinksEither}) {
    beforeRenameat2 = [this] { ASSERT_FALSE(files.write(path, "somebody's")); };
    EXPECT_EQ(writeNewWith(faultsOfFileSystem, "mine"), std::errc::file_exists);
    EXPECT_EQ(contents(), "somebody's");
    EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
    std::filesystem::remove(path);
  }
}

TEST_F(NewFile, IsMadeOnEveryFileSystem) {
  for (const auto& faultsOfFileSystem :
       {std::map<std::string, FailingCall>{}, knowsNoSuchRename, hasNoLinksEither}) {
    EXPECT_FALSE(writeNewWith(faultsOfFileSystem, "new"));
    EXPECT_EQ(contents(), "new");
    EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
    std::filesystem::remove(path);
  }
}

TEST_F(NewFile, DirectoriesAreRenamedOnEveryFileSystem) {
  ASSERT_FALSE(files.makeDirectory(directory / "a", 0700));
  ASSERT_FALSE(files.makeDirectory(directory / "b", 0700));
  std::map<std::string, FailingCall> given = knowsNoSuchRename;
  faults = &given;
  EXPECT_EQ(files.renameWithoutReplacing(directory / "a", directory / "b"), std::errc::file_exists);
  given = knowsNoSuchRename;
  EXPECT_FALSE(files.renameWithoutReplacing(directory / "a", directory / "c"));
  EXPECT_EQ(names(), (std::vector<std::string>{"b", "c"}));
}

TEST_F(NewFile, EveryFailureLeavesNothing) {
  for (const auto& [function, call] :
       std::multimap<std::string, int>{{"write", 1}, {"write", 2}, {"fsync", 1}, {"renameat2", 1}}) {
    EXPECT_EQ(writeNewWith({{function, {call, EIO}}}, "new contents").value(), EIO) << function;
    EXPECT_EQ(names(), std::vector<std::string>{}) << function;
  }
  EXPECT_EQ(writeNewWith({{"fsync", {2, EIO}}}, "new").category(), notDurableCategory());
}

// A link that leads nowhere, through a file included, is nothing; one that leads in a cycle is something.
TEST_F(NewFile, TakesThePlaceOfALinkToNothingAlone) {
  ASSERT_FALSE(files.write(directory / "file", ""));
  for (const char* target : {"nowhere", "file/inside"}) {
    ASSERT_EQ(symlink(target, path.c_str()), 0);
    EXPECT_FALSE(files.writeNewAtomically(path, "new")) << target;
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path)));
    std::filesystem::remove(path);
  }
  for (const char* target : {"Bookmarks.plist", "file"}) {
    ASSERT_EQ(symlink(target, path.c_str()), 0);
    EXPECT_EQ(files.writeNewAtomically(path, "new"), std::errc::file_exists) << target;
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    std::filesystem::remove(path);
  }
}

// A process that stands still in the middle of an atomic write, with its temporary file complete.
class StuckWriter {
 public:
  explicit StuckWriter(const std::string& path) : _child(fork()) {
    if (_child != 0) return;
    std::map<std::string, FailingCall> given{{"rename", {1, kNeverReturns}}};
    faults = &given;
    LinuxFileSystem().writeAtomically(path, "half done");
    _exit(1);
  }
  void kill() {
    if (_child <= 0) return;
    ::kill(std::exchange(_child, 0), SIGKILL);
    wait(nullptr);
  }
  ~StuckWriter() { kill(); }

 private:
  pid_t _child;
};

class KilledWriter : public AtomicWrite {
 protected:
  // Waits until `count` names stand in the directory.
  bool waitForNames(std::size_t count) {
    for (int i = 0; i < 10'000 && names().size() != count; ++i) usleep(1000);
    return names().size() == count;
  }
};

TEST_F(KilledWriter, ItsLeftoversGoAtTheNextWrite) {
  ASSERT_FALSE(files.write(path, "old"));
  StuckWriter writer(path);
  ASSERT_TRUE(waitForNames(2));
  writer.kill();
  EXPECT_EQ(contents(), "old");
  EXPECT_TRUE(names().front().starts_with(".corvane-")) << names().front();
  EXPECT_EQ(writeWith({{"fsync", {1, EIO}}}, "new"), std::errc::io_error);
  EXPECT_EQ(names().size(), 2u) << "a write that fails removes nothing";
  ASSERT_FALSE(files.writeAtomically(path, "new"));
  EXPECT_EQ(contents(), "new");
  EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
}

TEST_F(KilledWriter, TheFileOfALivingWriterStays) {
  StuckWriter writer(path);
  ASSERT_TRUE(waitForNames(1));
  ASSERT_FALSE(files.writeAtomically(path, "new"));
  EXPECT_EQ(names().size(), 2u);
  writer.kill();
  ASSERT_FALSE(files.writeAtomically(path, "newer"));
  EXPECT_EQ(names(), std::vector<std::string>{"Bookmarks.plist"});
}

TEST_F(KilledWriter, LeftoversOfOtherFilesStay) {
  StuckWriter writer(directory / "Other.plist");
  ASSERT_TRUE(waitForNames(1));
  writer.kill();
  for (const char* name : {".corvane-", ".corvane-1-1.tmp", ".corvane-notes.tmp"}) {
    ASSERT_FALSE(files.write(directory / name, ""));
  }
  ASSERT_FALSE(files.writeAtomically(path, "new"));
  EXPECT_EQ(names().size(), 5u);
  ASSERT_FALSE(files.writeAtomically(directory / "Other.plist", "new"));
  EXPECT_EQ(names(), (std::vector<std::string>{".corvane-", ".corvane-1-1.tmp", ".corvane-notes.tmp",
                                               "Bookmarks.plist", "Other.plist"}));
}

TEST_F(AtomicWrite, NamesLeftBehindAreNotUsed) {
  ASSERT_FALSE(files.writeAtomically(path, "old"));
  // What an earlier process with this process's number may have left behind.
  const std::size_t number = lastRenamed.rfind('-') + 1;
  const int last = std::stoi(lastRenamed.substr(number));
  for (int i = last + 1; i <= last + 50; ++i) {
    ASSERT_FALSE(files.write(lastRenamed.substr(0, number) + std::to_string(i) + ".tmp", "leftover"));
  }
  ASSERT_FALSE(files.writeAtomically(path, "new"));
  EXPECT_EQ(contents(), "new");
  EXPECT_EQ(names().size(), 51u);
}

}  // namespace
}  // namespace corvane
