#include <fcntl.h>
#include <sys/stat.h>

#include "CorvaneSyncClient/platform/system/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/LinuxFileSystem.h"

// An atomic write in steps: a temporary file beside the target takes the contents and reaches the disk; a
// second hard link keeps hold of the old file; a rename puts the new file in its place; the directory reaches
// the disk; the second link goes. Should the directory not reach the disk, the second link is renamed back.

namespace corvane {

namespace {

/// A name in the target's directory that is removed again when this object goes, unless it was given up.
class TemporaryName {
 public:
  TemporaryName() = default;
  explicit TemporaryName(std::string path) : _path(std::move(path)) {}
  TemporaryName(TemporaryName&& other) noexcept : _path(std::exchange(other._path, {})) {}
  TemporaryName& operator=(TemporaryName&& other) noexcept {
    std::swap(_path, other._path);
    return *this;
  }
  ~TemporaryName() {
    if (!_path.empty()) ::unlink(_path.c_str());  // nothing better can be done about a name that stays
  }

  const std::string& path() const { return _path; }
  explicit operator bool() const { return !_path.empty(); }
  void giveUp() { _path.clear(); }

 private:
  std::string _path;
};

constexpr int kNameTries = 1000;

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// A hidden name that no other write of this process has had. Names left behind by a crashed process of the
/// same id are passed over by whoever creates the file.
std::string nextHiddenName(const std::string& directory) {
  static unsigned counter = 0;
  return joinedPath(directory,
                    ".corvane-" + std::to_string(::getpid()) + "-" + std::to_string(++counter) + ".tmp");
}

std::error_code createTemporary(const std::string& directory, mode_t mode, FileDescriptor& file,
                                TemporaryName& name) {
  for (int i = 0; i < kNameTries; ++i) {
    const std::string path = nextHiddenName(directory);
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
  if (::fchown(file.number(), old.st_uid, old.st_gid) != 0 &&
      ::fchown(file.number(), static_cast<uid_t>(-1), old.st_gid) != 0) {
    errno = 0;  // an ordinary user cannot give files away: the new file is then the user's own
  }
  return ::fchmod(file.number(), old.st_mode & 07777) == 0 ? std::error_code() : lastSystemError();
}

std::error_code synchronize(const FileDescriptor& file) {
  return retryingInterrupted([&] { return ::fsync(file.number()); }) == 0 ? std::error_code()
                                                                          : lastSystemError();
}

/// Some file systems have no fsync for directories and answer EINVAL: there is nothing to wait for then.
std::error_code synchronizeDirectory(const FileDescriptor& directory) {
  const std::error_code error = synchronize(directory);
  return error.value() == EINVAL ? std::error_code() : error;
}

/// A second link to what stands at `path`; none where nothing stands there or the file system has no hard
/// links.
TemporaryName keepHold(const std::string& path, const std::string& directory) {
  for (int i = 0; i < kNameTries; ++i) {
    const std::string name = nextHiddenName(directory);
    if (::linkat(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), 0) == 0) return TemporaryName(name);
    if (errno != EEXIST) break;
  }
  return TemporaryName();
}

std::error_code replace(const std::string& path, const std::string& directoryPath, TemporaryName& temporary) {
  FileDescriptor directory(
      retryingInterrupted([&] { return ::open(directoryPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (!directory) return lastSystemError();
  struct stat before {};
  const bool stood = ::lstat(path.c_str(), &before) == 0;
  TemporaryName old = keepHold(path, directoryPath);
  if (::rename(temporary.path().c_str(), path.c_str()) != 0) return lastSystemError();
  temporary.giveUp();
  const std::error_code error = synchronizeDirectory(directory);
  if (error && old && ::rename(old.path().c_str(), path.c_str()) == 0) old.giveUp();
  if (error && !stood) ::unlink(path.c_str());  // the fsync's failure is the one to tell
  return error;
}

}  // namespace

std::error_code LinuxFileSystem::writeAtomically(const std::string& path, std::string_view contents) {
  struct stat old {};
  const bool hasOld = ::stat(path.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  const std::string directory = directoryOf(path);

  FileDescriptor file;
  TemporaryName temporary;
  // Where an old file has its mode to pass on, nobody else may look in before the new one has it.
  if (const std::error_code error = createTemporary(directory, hasOld ? 0600 : 0666, file, temporary))
    return error;
  if (const std::error_code error = writeAll(file, contents)) return error;
  if (hasOld) {
    if (const std::error_code error = takeOver(file, old)) return error;
  }
  if (const std::error_code error = synchronize(file)) return error;
  if (const std::error_code error = file.close()) return error;
  return replace(path, directory, temporary);
}

}  // namespace corvane
