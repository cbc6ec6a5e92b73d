#include <fcntl.h>
#include <sys/stat.h>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"

// An atomic write in steps: a temporary file beside the target takes the contents and reaches the disk; a
// rename puts it in the target's place; the directory reaches the disk. Then the temporary files go that
// writers of the same target left behind when they were killed.

namespace corvane {

namespace {

/// A name in the target's directory that is removed again when this object goes, unless it was given up.
class TemporaryName {
 public:
  TemporaryName() = default;
  explicit TemporaryName(std::string path) : _path(std::move(path)) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(TemporaryName&& other) noexcept {
    std::swap(_path, other._path);
    return *this;
  }
  ~TemporaryName() {
    if (!_path.empty())
      ::unlink(_path.c_str());  // a name that stays is a leftover, which a later write removes
  }

  const std::string& path() const { return _path; }
  void giveUp() { _path.clear(); }

 private:
  std::string _path;
};

std::error_code errorOf(int result) { return result == 0 ? std::error_code() : lastSystemError(); }

std::error_code createTemporary(const Place& place, mode_t mode, FileDescriptor& file, TemporaryName& name) {
  for (int i = 0; i < kTemporaryNameTries; ++i) {
    const std::string path = nextTemporaryPath(place);
    file = FileDescriptor(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode); }));
    if (file) {
      name = TemporaryName(path);
      return {};
    }
    if (errno != EEXIST) return lastSystemError();
  }
  return {EEXIST, std::system_category()};
}

/// Gives `file` the old file's owner, as far as permitted, and its mode.
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

/// Some file systems have no fsync for directories and say so: there is nothing to wait for then.
std::error_code synchronizeDirectory(const FileDescriptor& directory) {
  const std::error_code error = synchronize(directory);
  return error.value() == EINVAL || error.value() == ENOTSUP ? std::error_code() : error;
}

/// What stands at `path`, links followed; `hasOld` tells whether it is a regular file. Nothing being there is
/// no error, be it for a link that leads nowhere or through a file.
std::error_code examineOld(const std::string& path, struct stat& old, bool& hasOld) {
  hasOld = ::stat(path.c_str(), &old) == 0;
  if (!hasOld) return errno == ENOENT || errno == ENOTDIR ? std::error_code() : lastSystemError();
  hasOld = S_ISREG(old.st_mode);
  return {};
}

/// A temporary file with these contents that has reached the disk; with the mode and owner of `old`, if there
/// is one.
std::error_code writeTemporary(const Place& place, std::string_view contents, const struct stat* old,
                               TemporaryName& temporary) {
  FileDescriptor file;
  // Where an old file has its mode to pass on, nobody else may look in before the new one has it.
  const mode_t mode = old ? kPrivateFileMode : kDefaultFileMode;
  if (const std::error_code error = createTemporary(place, mode, file, temporary)) return error;
  if (const std::error_code error = writeAll(file, contents)) return error;
  if (old) {
    if (const std::error_code error = takeOver(file, *old)) return error;
  }
  if (const std::error_code error = synchronize(file)) return error;
  return file.close();
}

/// Whether a symbolic link stands at `path` that leads to nothing, or through a file.
bool leadsNowhere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) &&
         ::stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

std::error_code renameOverNothing(const std::string& from, const std::string& to) {
  LinuxFileSystem files;
  const std::error_code error = files.renameWithoutReplacing(from, to);
  return error == std::errc::file_exists && leadsNowhere(to) ? files.rename(from, to) : error;
}

std::error_code renameOverAnything(const std::string& from, const std::string& to) {
  return LinuxFileSystem().rename(from, to);
}

std::error_code putInPlace(const std::string& path, const Place& place, TemporaryName& temporary,
                           std::error_code (*rename)(const std::string& from, const std::string& to)) {
  const FileDescriptor directory(retryingInterrupted(
      [&] { return ::open(place.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (!directory) return lastSystemError();
  if (const std::error_code error = rename(temporary.path(), path)) return error;
  temporary.giveUp();
  if (const std::error_code error = synchronizeDirectory(directory)) {
    return {error.value(), notDurableCategory()};
  }
  removeLeftovers(place);
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

std::error_code LinuxFileSystem::writeAtomically(const std::string& path, std::string_view contents) {
  const Place place(path);
  struct stat old {};
  bool hasOld = false;
  if (const std::error_code error = examineOld(path, old, hasOld)) return error;
  TemporaryName temporary;
  if (const std::error_code error = writeTemporary(place, contents, hasOld ? &old : nullptr, temporary)) {
    return error;
  }
  return putInPlace(path, place, temporary, &renameOverAnything);
}

std::error_code LinuxFileSystem::writeNewAtomically(const std::string& path, std::string_view contents) {
  const Place place(path);
  struct stat there {};
  if (::stat(path.c_str(), &there) == 0) {
    return {S_ISDIR(there.st_mode) ? EISDIR : EEXIST, std::system_category()};
  }
  TemporaryName temporary;
  if (const std::error_code error = writeTemporary(place, contents, nullptr, temporary)) return error;
  return putInPlace(path, place, temporary, &renameOverNothing);
}

}  // namespace corvane
