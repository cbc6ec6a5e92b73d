#include "CorvaneSyncClient/platform/system/files/TemporaryFile.h"

#include <fcntl.h>

#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane {

namespace {

std::error_code errorOf(int result) { return result == 0 ? std::error_code() : lastSystemError(); }

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

}  // namespace

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

std::error_code TemporaryFile::write(std::string_view contents, const struct stat* old) {
  FileDescriptor file;
  // Where an old file has its mode to pass on, nobody else may look in before the new one has it.
  const mode_t mode = old ? kPrivateFileMode : kDefaultFileMode;
  if (const std::error_code error = create(mode, file)) return error;
  if (const std::error_code error = writeAll(file, contents)) return error;
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

}  // namespace corvane
