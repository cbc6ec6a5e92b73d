#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "tests/fakes/Files.h"
#include "tests/fakes/ForwardingFileSystem.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/system/AnswerOfChild.h"

namespace corvane {
namespace {

// What every file system promises: the real one, and the forwarding one that tests use in its place.
class FileSystemContract : public testing::TestWithParam<bool> {
 protected:
  FileSystem& files() { return GetParam() ? static_cast<FileSystem&>(_forwarding) : _linux; }

  std::string contents(const std::string& path) {
    std::string bytes;
    EXPECT_FALSE(files().read(path, bytes)) << path;
    return bytes;
  }
  FileAttributes attributesOf(const std::string& path) {
    std::error_code error;
    const std::optional<FileAttributes> found = files().attributes(path, error);
    EXPECT_TRUE(found) << path << ": " << error.message();
    return found.value_or(FileAttributes{});
  }
  std::unique_ptr<FileSystem::Hold> hold(const std::string& path) { return files().hold(path, holdError); }
  std::vector<std::string> listed() {
    std::vector<std::string> names;
    EXPECT_FALSE(listDirectory(directory.path(), names));
    return names;
  }

  TemporaryDirectory directory;
  std::error_code holdError;

 private:
  LinuxFileSystem _linux;
  ForwardingFileSystem _forwarding{_linux};
};

INSTANTIATE_TEST_SUITE_P(Files, FileSystemContract, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Forwarding" : "Linux"; });

TEST_P(FileSystemContract, WritesAndReadsAnyBytes) {
  const std::string bytes("a\0b\n\xff", 5);
  ASSERT_FALSE(files().write(directory / "f", bytes));
  EXPECT_EQ(contents(directory / "f"), bytes);
  ASSERT_FALSE(files().write(directory / "f", ""));
  EXPECT_EQ(contents(directory / "f"), "");
  const std::string large(3'000'000, 'x');
  ASSERT_FALSE(files().write(directory / "f", large));
  EXPECT_EQ(contents(directory / "f"), large);
}

TEST_P(FileSystemContract, ReadsFilesWhoseSizeIsNotKnownBeforehand) {
  EXPECT_NE(contents("/proc/self/mountinfo"), "");
}

TEST_P(FileSystemContract, SaysWhyItCannotRead) {
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  std::string bytes = "untouched";
  EXPECT_EQ(files().read(directory / "none", bytes), std::errc::no_such_file_or_directory);
  EXPECT_EQ(files().read(directory.path(), bytes), std::errc::is_a_directory);
  EXPECT_EQ(files().read(directory / "fifo", bytes), std::errc::invalid_argument);
  EXPECT_EQ(bytes, "untouched");
  EXPECT_EQ(&files().read(directory / "none", bytes).category(), &std::system_category());
}

// Two GiB and one byte, none of them on disk.
TEST_P(FileSystemContract, RefusesToReadHugeFiles) {
  ASSERT_FALSE(files().write(directory / "huge", ""));
  std::filesystem::resize_file(directory / "huge", (std::uintmax_t{2} << 30) + 1);
  std::string bytes = "untouched";
  EXPECT_EQ(files().read(directory / "huge", bytes), std::errc::file_too_large);
  EXPECT_EQ(bytes, "untouched");
}

TEST_P(FileSystemContract, AttributesThatAreNotKnownAreAbsent) {
  ASSERT_FALSE(files().write(directory / "f", ""));
  EXPECT_EQ(files().attributesIfKnown(directory / "f")->kind, FileKind::regular);
  EXPECT_FALSE(files().attributesIfKnown(directory / "none"));
}

TEST_P(FileSystemContract, AttributesAreThoseOfWhatALinkLeadsTo) {
  ASSERT_FALSE(files().write(directory / "f", "12345"));
  ASSERT_EQ(symlink("f", (directory / "link").c_str()), 0);
  ASSERT_EQ(symlink("none", (directory / "dangling").c_str()), 0);
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(attributesOf(directory / "f").kind, FileKind::regular);
  EXPECT_EQ(attributesOf(directory / "link").kind, FileKind::regular);  // links are followed
  EXPECT_EQ(attributesOf(directory.path()).kind, FileKind::directory);
  EXPECT_EQ(attributesOf(directory / "fifo").kind, FileKind::other);
  std::error_code error;
  EXPECT_FALSE(files().attributes(directory / "dangling", error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  EXPECT_TRUE(files().attributes(directory / "f", error));
  EXPECT_FALSE(error);
}

TEST_P(FileSystemContract, DatesKeepTheirFractionsBothWays) {
  ASSERT_FALSE(files().write(directory / "f", ""));
  const double dates[] = {0.0,  1000.0,         800'000'000.125,  800'000'000.1234567, 817'000'123.000000119,
                          -0.5, -978'307'200.0, -1'000'000'000.25};
  for (const double seconds : dates) {
    ASSERT_FALSE(setModificationDate(directory / "f", Date{seconds}));
    EXPECT_EQ(attributesOf(directory / "f").modificationDate.seconds, seconds);
  }
}

TEST_P(FileSystemContract, MakesOneDirectoryOnce) {
  EXPECT_FALSE(files().makeDirectory(directory / "d", 0700));
  EXPECT_EQ(modeOf(directory / "d"), 0700u);
  EXPECT_EQ(files().makeDirectory(directory / "d", 0700), std::errc::file_exists);
  EXPECT_EQ(files().makeDirectory(directory / "x/y", 0700), std::errc::no_such_file_or_directory);
}

TEST_P(FileSystemContract, SymbolicLinkDestinationIsWhatTheLinkHolds) {
  const std::string longTarget(2000, 't');
  ASSERT_EQ(symlink(longTarget.c_str(), (directory / "long").c_str()), 0);
  ASSERT_FALSE(files().write(directory / "f", ""));
  EXPECT_EQ(files().symbolicLinkDestination(directory / "long"), longTarget);
  EXPECT_EQ(files().symbolicLinkDestination(directory / "f"), std::nullopt);
  EXPECT_EQ(files().symbolicLinkDestination(directory / "none"), std::nullopt);
}

TEST_P(FileSystemContract, RenameReplaces) {
  ASSERT_FALSE(files().write(directory / "a", "new"));
  ASSERT_FALSE(files().write(directory / "b", "old"));
  EXPECT_FALSE(files().rename(directory / "a", directory / "b"));
  EXPECT_EQ(contents(directory / "b"), "new");
  EXPECT_EQ(listed(), std::vector<std::string>{"b"});
  EXPECT_EQ(files().rename(directory / "a", directory / "b"), std::errc::no_such_file_or_directory);
}

TEST_P(FileSystemContract, RenameWithoutReplacingReplacesNothing) {
  ASSERT_FALSE(files().write(directory / "a", "new"));
  ASSERT_FALSE(files().write(directory / "b", "old"));
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  ASSERT_EQ(symlink("nowhere", (directory / "link").c_str()), 0);
  for (const char* standing : {"b", "d", "link"}) {
    EXPECT_EQ(files().renameWithoutReplacing(directory / "a", directory / standing), std::errc::file_exists);
  }
  EXPECT_EQ(contents(directory / "b"), "old");
  EXPECT_FALSE(files().renameWithoutReplacing(directory / "a", directory / "c"));
  EXPECT_EQ(contents(directory / "c"), "new");
  EXPECT_FALSE(files().renameWithoutReplacing(directory / "d", directory / "e"));
  EXPECT_EQ(files().renameWithoutReplacing(directory / "a", directory / "f"),
            std::errc::no_such_file_or_directory);
  EXPECT_EQ(listed(), (std::vector<std::string>{"b", "c", "e", "link"}));
}

TEST_P(FileSystemContract, OwnAttributesAreThoseOfTheLink) {
  ASSERT_EQ(symlink("none", (directory / "link").c_str()), 0);
  std::error_code error;
  const std::optional<FileAttributes> link = files().ownAttributes(directory / "link", error);
  ASSERT_TRUE(link);
  EXPECT_EQ(link->kind, FileKind::other);
  EXPECT_FALSE(files().ownAttributes(directory / "none", error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
}

// A directory keeps its identity whatever is done to it, and one made in its place has another, though it
// gets the same inode number at once.
TEST_P(FileSystemContract, ADirectoryAndItsSuccessorDifferInIdentity) {
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  const FileIdentity first = attributesOf(directory / "d").identity;
  ASSERT_FALSE(files().write(directory / "d/f", ""));
  ASSERT_FALSE(setModificationDate(directory / "d", Date{1000.0}));
  ASSERT_FALSE(files().rename(directory / "d", directory / "e"));
  EXPECT_EQ(attributesOf(directory / "e").identity, first);
  ASSERT_FALSE(files().remove(directory / "e"));
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  EXPECT_NE(attributesOf(directory / "d").identity, first);
}

TEST_P(FileSystemContract, MovesAsideToANameOfItsOwn) {
  std::vector<std::string> asides(3);
  for (std::string& aside : asides) {
    ASSERT_FALSE(files().makeDirectory(directory / "lock", 0700));
    ASSERT_FALSE(files().moveAside(directory / "lock", aside));
    EXPECT_EQ(std::filesystem::path(aside).parent_path(), directory.path());
    EXPECT_EQ(attributesOf(aside).kind, FileKind::directory);
  }
  EXPECT_EQ(listed().size(), 3u);
  EXPECT_EQ(files().moveAside(directory / "lock", asides[0]), std::errc::no_such_file_or_directory);
}

// What a killed process had moved aside goes when the next one moves something aside, contents and all.
TEST_P(FileSystemContract, WhatAKilledProcessMovedAsideGoesTheNextTime) {
  ASSERT_FALSE(files().makeDirectory(directory / "lock", 0700));
  ASSERT_FALSE(files().write(directory / "lock/details.plist", "details"));
  const std::string left = answerOfChild([this] {
    std::string aside;
    files().moveAside(directory / "lock", aside);
    return aside;
  });
  ASSERT_TRUE(files().attributesIfKnown(left));
  ASSERT_FALSE(files().makeDirectory(directory / "lock", 0700));
  std::string aside;
  ASSERT_FALSE(files().moveAside(directory / "lock", aside));
  EXPECT_FALSE(files().attributesIfKnown(left));
}

TEST_P(FileSystemContract, HoldKeepsOthersOutUntilItIsDropped) {
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  std::unique_ptr<FileSystem::Hold> first = hold(directory / "d");
  ASSERT_TRUE(first);
  // It follows the directory, and says nothing about another one of the same name.
  ASSERT_FALSE(files().rename(directory / "d", directory / "e"));
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  EXPECT_TRUE(hold(directory / "d"));
  EXPECT_FALSE(hold(directory / "e")) << "after two seconds";
  EXPECT_EQ(holdError, std::errc::device_or_resource_busy);
  first.reset();
  EXPECT_TRUE(hold(directory / "e"));
  EXPECT_FALSE(hold(directory / "none"));
  EXPECT_EQ(holdError, std::errc::no_such_file_or_directory);
}

// Whoever waits for a hold on what stands at a path gets one on what stands there then.
TEST_P(FileSystemContract, HoldIsOnWhatStandsThereInTheEnd) {
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  std::unique_ptr<FileSystem::Hold> first = hold(directory / "d");
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    LinuxFileSystem().rename(directory / "d", directory / "e");
    LinuxFileSystem().makeDirectory(directory / "d", 0700);
    first.reset();
  });
  const std::unique_ptr<FileSystem::Hold> second = hold(directory / "d");
  other.join();
  EXPECT_TRUE(second);
  EXPECT_TRUE(hold(directory / "e"));
}

// A process that ends, however it ends, gives its hold up.
TEST_P(FileSystemContract, HoldGoesWithItsProcess) {
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  EXPECT_EQ(answerOfChild([this] {
              const auto held = hold(directory / "d");
              if (held) kill(getpid(), SIGKILL);
              return "not held";
            }),
            "exit 9");
  EXPECT_TRUE(hold(directory / "d"));
}

TEST_P(FileSystemContract, CopyKeepsContentsAndMode) {
  ASSERT_FALSE(files().write(directory / "a", "text"));
  ASSERT_EQ(chmod((directory / "a").c_str(), 0604), 0);
  EXPECT_FALSE(files().copy(directory / "a", directory / "b"));
  EXPECT_EQ(contents(directory / "b"), "text");
  EXPECT_EQ(modeOf(directory / "b"), 0604u);
  EXPECT_EQ(files().copy(directory / "a", directory / "b"), std::errc::file_exists);
  EXPECT_EQ(files().copy(directory.path(), directory / "c"), std::errc::is_a_directory);
  EXPECT_EQ(files().copy(directory / "none", directory / "c"), std::errc::no_such_file_or_directory);
  EXPECT_EQ(listed(), (std::vector<std::string>{"a", "b"}));
}

TEST_P(FileSystemContract, WritesAtomically) {
  EXPECT_FALSE(files().writeAtomically(directory / "f", "one"));
  EXPECT_FALSE(files().writeAtomically(directory / "f", "two"));
  EXPECT_EQ(contents(directory / "f"), "two");
  EXPECT_EQ(listed(), std::vector<std::string>{"f"});
}

TEST_P(FileSystemContract, WritesNewFilesAtomicallyAndReplacesNothing) {
  EXPECT_FALSE(files().writeNewAtomically(directory / "f", "one"));
  EXPECT_EQ(files().writeNewAtomically(directory / "f", "two"), std::errc::file_exists);
  EXPECT_EQ(contents(directory / "f"), "one");
  ASSERT_FALSE(files().makeDirectory(directory / "d", 0700));
  EXPECT_EQ(files().writeNewAtomically(directory / "d", "two"), std::errc::is_a_directory);
  EXPECT_EQ(listed(), (std::vector<std::string>{"d", "f"}));
}

TEST_P(FileSystemContract, WhatExistsHasAVolume) {
  const std::optional<FileSystem::Volume> volume = files().volume(directory.path());
  ASSERT_TRUE(volume);
  EXPECT_TRUE(directory.path().starts_with(volume->mountPoint)) << volume->mountPoint;
  const std::optional<FileSystem::Volume> proc = files().volume("/proc/self");
  ASSERT_TRUE(proc);
  EXPECT_EQ(proc->mountPoint, "/proc");
  EXPECT_TRUE(proc->isLocal);
  EXPECT_FALSE(files().volume(directory / "none"));
}

}  // namespace
}  // namespace corvane
