#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdint>
#include <ctime>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"
#include "CorvaneSyncClient/platform/system/files/RemoveTree.h"
#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"
#include "CorvaneSyncClient/platform/system/files/Timespec.h"
#include "CorvaneSyncClient/platform/system/files/Volume.h"

namespace corvane {

namespace {

FileKind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return FileKind::regular;
  if (S_ISDIR(mode)) return FileKind::directory;
  return FileKind::other;
}

timespec timeOf(const struct statx_timestamp& time) { return {time.tv_sec, static_cast<long>(time.tv_nsec)}; }

std::int64_t nanosecondsOf(const struct statx_timestamp& time) {
  return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
}

FileIdentity identityOf(const struct statx& status) {
  return {makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino,
          status.stx_mask & STATX_BTIME ? nanosecondsOf(status.stx_btime) : 0};
}

std::optional<FileAttributes> attributesOf(const std::string& path, int flags, std::error_code& error) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
    error = lastSystemError();
    return std::nullopt;
  }
  error.clear();
  return FileAttributes{kindOf(status.stx_mode), dateOf(timeOf(status.stx_mtime)), identityOf(status)};
}

constexpr long kNanosecondsBetweenTries = 5'000'000;
constexpr int kHoldTries = 400;

class FlockHold : public FileSystem::Hold {
 public:
  explicit FlockHold(FileDescriptor file) : _file(std::move(file)) {}

 private:
  FileDescriptor _file;
};

// Whether the open file is what stands at `path`, and not what stood there before.
bool standsAt(const FileDescriptor& file, const std::string& path) {
  struct stat own {};
  struct stat there {};
  return ::fstat(file.number(), &own) == 0 && ::lstat(path.c_str(), &there) == 0 &&
         own.st_dev == there.st_dev && own.st_ino == there.st_ino;
}

// What stands at `path`, links followed; `hasOld` says whether it is a regular file. Nothing being there is
// no error, nor is a link that leads nowhere or through a file.
std::error_code examineOld(const std::string& path, struct stat& old, bool& hasOld) {
  hasOld = ::stat(path.c_str(), &old) == 0;
  if (!hasOld) return errno == ENOENT || errno == ENOTDIR ? std::error_code() : lastSystemError();
  hasOld = S_ISREG(old.st_mode);
  return {};
}

// Whether a symbolic link stands at `path` that leads to nothing, or through a file.
bool leadsNowhere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) &&
         ::stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

std::error_code errorOf(int result) { return result == 0 ? std::error_code() : lastSystemError(); }

// Gives `file` the old file's owner, as far as permitted, and its mode.
std::error_code takeOver(const FileDescriptor& file, const struct stat& old) {
  // An ordinary user cannot give files away, and a group only to one of the user's: what cannot be kept
  // becomes the user's own.
  [[maybe_unused]] const bool isKept = ::fchown(file.number(), old.st_uid, old.st_gid) == 0 ||
                                       ::fchown(file.number(), static_cast<uid_t>(-1), old.st_gid) == 0;
  return errorOf(::fchmod(file.number(), old.st_mode & 07777));
}

std::error_code synchronize(const FileDescriptor& file) {
  return errorOf(retryingInterrupted([&] { return ::fsync(file.number()); }));
}

// Some file systems have no fsync for directories and say so: there is nothing to wait for then.
std::error_code synchronizeDirectory(const FileDescriptor& directory) {
  const std::error_code error = synchronize(directory);
  return error.value() == EINVAL || error.value() == ENOTSUP ? std::error_code() : error;
}

// A new file beside a target, whose place it is to take. Gone again with this object until it has taken it.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& target) : _target(target) {}
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Makes the file with these contents and has it reach the disk; with the mode of `old`, and where
  // permitted its owner, unless that is null. Opens the directory too, which `settle` needs.
  std::error_code write(const FileSystem::Contents& contents, const struct stat* old);
  const std::string& path() const { return _path; }
  // To be called once the file was renamed to the target: the directory reaches the disk, and what writers
  // of the same target left behind when they were killed is removed. Errors are of `notDurableCategory`.
  std::error_code settle();

 private:
  std::error_code create(mode_t mode, FileDescriptor& file);

  Place _target;
  std::string _path;  // empty before the file is made and once it is settled
  FileDescriptor _directory;
};

TemporaryFile::~TemporaryFile() {
  if (!_path.empty())
    ::unlink(_path.c_str());  // a name that stays is a leftover, which a later write removes
}

std::error_code TemporaryFile::create(mode_t mode, FileDescriptor& file) {
  for (int i = 0; i < kTemporaryNameTries; ++i) {
    const std::string path = nextTemporaryPath(_target);
    file = FileDescriptor(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode); }));
    if (file) {
      _path = path;
      return {};
    }
    if (errno != EEXIST) return lastSystemError();
  }
  return {EEXIST, std::system_category()};
}

std::error_code TemporaryFile::write(const FileSystem::Contents& contents, const struct stat* old) {
  FileDescriptor file;
  // Where an old file has its mode to pass on, nobody else may look in before the new one has it.
  const mode_t mode = old ? kPrivateFileMode : kDefaultFileMode;
  if (const std::error_code error = create(mode, file)) return error;
  std::error_code failed;
  contents([&](std::string_view piece) {
    if (!failed) failed = writeAll(file, piece);
  });
  if (failed) return failed;
  if (old) {
    if (const std::error_code error = takeOver(file, *old)) return error;
  }
  if (const std::error_code error = synchronize(file)) return error;
  if (const std::error_code error = file.close()) return error;
  _directory = FileDescriptor(retryingInterrupted(
      [&] { return ::open(_target.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  return _directory ? std::error_code() : lastSystemError();
}

std::error_code TemporaryFile::settle() {
  _path.clear();
  if (const std::error_code error = synchronizeDirectory(_directory)) {
    return {error.value(), notDurableCategory()};
  }
  removeLeftovers(_target);
  return {};
}

class NotDurableCategory : public std::error_category {
 public:
  const char* name() const noexcept override { return "not durable"; }
  std::string message(int number) const override {
    return "it is written, but may not survive a loss of power: " + std::system_category().message(number);
  }
  std::error_condition default_error_condition(int number) const noexcept override {
    return std::system_category().default_error_condition(number);
  }
};

}  // namespace

const std::error_category& notDurableCategory() {
  static const NotDurableCategory category;
  return category;
}

std::optional<FileAttributes> LinuxFileSystem::attributes(const std::string& path, std::error_code& error) {
  return attributesOf(path, 0, error);
}

std::optional<FileAttributes> LinuxFileSystem::ownAttributes(const std::string& path,
                                                             std::error_code& error) {
  return attributesOf(path, AT_SYMLINK_NOFOLLOW, error);
}

// No link (EINVAL) and nothing there (ENOENT) are what callers ask about. Any other failure (no permission, a
// disk's error) will meet the operation that then uses the path itself, and is reported there.
std::optional<std::string> LinuxFileSystem::symbolicLinkDestination(const std::string& path) {
  std::string destination(256, '\0');
  while (true) {
    const ssize_t length = ::readlink(path.c_str(), destination.data(), destination.size());
    if (length < 0) return std::nullopt;
    if (static_cast<std::size_t>(length) < destination.size()) {
      destination.resize(static_cast<std::size_t>(length));
      return destination;
    }
    destination.resize(destination.size() * 2);
  }
}

std::error_code LinuxFileSystem::makeDirectory(const std::string& path, unsigned mode) {
  return ::mkdir(path.c_str(), mode) == 0 ? std::error_code() : lastSystemError();
}

std::error_code LinuxFileSystem::rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str()) == 0 ? std::error_code() : lastSystemError();
}

std::error_code LinuxFileSystem::renameWithoutReplacing(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
  if (errno != EINVAL) return lastSystemError();
  // The file system does not know this rename. A link replaces nothing either, but directories have none, nor
  // has every file system.
  if (::link(from.c_str(), to.c_str()) == 0) {
    return ::unlink(from.c_str()) == 0 ? std::error_code() : lastSystemError();
  }
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) return {EEXIST, std::system_category()};
  return rename(from, to);
}

std::error_code LinuxFileSystem::moveAside(const std::string& path, std::string& aside) {
  const Place place(path);
  removeLeftovers(place);
  for (int i = 0; i < kTemporaryNameTries; ++i) {
    aside = nextTemporaryPath(place);
    const std::error_code error = renameWithoutReplacing(path, aside);
    if (error != std::errc::file_exists) return error;
  }
  return {EEXIST, std::system_category()};
}

std::error_code LinuxFileSystem::copy(const std::string& from, const std::string& to) {
  return copyRegular(from, to);
}

std::error_code LinuxFileSystem::read(const std::string& path, std::string& contents) {
  return readRegular(path, contents, [](const struct stat&) { return std::error_code(); });
}

std::error_code LinuxFileSystem::write(const std::string& path, std::string_view contents) {
  return writeRegular(path, contents);
}

// The contents go to a temporary file beside the target and reach the disk; a rename puts that file in the
// target's place; the directory reaches the disk.
std::error_code LinuxFileSystem::writeAtomically(const std::string& path, const Contents& contents) {
  struct stat old {};
  bool hasOld = false;
  if (const std::error_code error = examineOld(path, old, hasOld)) return error;
  TemporaryFile temporary(path);
  if (const std::error_code error = temporary.write(contents, hasOld ? &old : nullptr)) return error;
  if (::rename(temporary.path().c_str(), path.c_str()) != 0) return lastSystemError();
  return temporary.settle();
}

std::error_code LinuxFileSystem::writeNewAtomically(const std::string& path, std::string_view contents) {
  struct stat there {};
  if (::stat(path.c_str(), &there) == 0) {
    return {S_ISDIR(there.st_mode) ? EISDIR : EEXIST, std::system_category()};
  }
  TemporaryFile temporary(path);
  const auto whole = [contents](const auto& take) { take(contents); };
  if (const std::error_code error = temporary.write(whole, nullptr)) return error;
  std::error_code error = renameWithoutReplacing(temporary.path(), path);
  if (error == std::errc::file_exists && leadsNowhere(path)) error = rename(temporary.path(), path);
  return error ? error : temporary.settle();
}

std::error_code LinuxFileSystem::remove(const std::string& path) { return removeTree(path); }

// A hold is flock(2) on the file itself. The system gives it up when the process ends, so that a killed one
// leaves nothing behind that others would have to judge.
std::unique_ptr<FileSystem::Hold> LinuxFileSystem::hold(const std::string& path, std::error_code& error) {
  error.clear();
  for (int i = 0; i < kHoldTries; ++i) {
    FileDescriptor file(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
    const bool isHeld = file && ::flock(file.number(), LOCK_EX | LOCK_NB) == 0;
    if (isHeld && standsAt(file, path)) return std::make_unique<FlockHold>(std::move(file));
    if (isHeld) continue;
    if (!file || errno != EWOULDBLOCK) {
      error = lastSystemError();
      return nullptr;
    }
    const timespec pause{0, kNanosecondsBetweenTries};
    ::nanosleep(&pause, nullptr);  // a signal makes it shorter, which does no harm
  }
  error = {EBUSY, std::system_category()};
  return nullptr;
}

std::optional<FileSystem::Volume> LinuxFileSystem::volume(const std::string& path) { return volumeOf(path); }

}  // namespace corvane
