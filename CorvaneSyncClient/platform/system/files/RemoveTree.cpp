#include "CorvaneSyncClient/platform/system/files/RemoveTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <vector>

#include "CorvaneSyncClient/platform/system/Paths.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane {

namespace {

// Removes the contents of one directory tree. Walks with descriptors, never with paths, and follows no link:
// one descriptor is open at a time, however deep the tree is, and the way up goes through "..", which must
// then be the directory that was left. What others remove at the same time counts as removed.
class TreeRemover {
 public:
  // Empties the directory `path`; the directory itself stays.
  std::error_code empty(const std::string& path) {
    if (const std::error_code error = enter(AT_FDCWD, path)) return error;
    while (true) {
      if (!_levels.back().subdirectories.empty()) {
        if (const std::error_code error = removeNextSubdirectory()) return error;
      } else if (_levels.size() > 1) {
        if (const std::error_code error = leave()) return error;
      } else {
        return {};
      }
    }
  }

 private:
  struct Level {
    dev_t device = 0;
    ino_t inode = 0;
    std::vector<std::string> subdirectories;  // still to be removed; the last one is the one being emptied
  };

  // Opens a directory, notes it as the innermost level and removes what is no directory in it.
  std::error_code enter(int parent, const std::string& name) {
    FileDescriptor directory(retryingInterrupted(
        [&] { return ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    struct stat status {};
    if (!directory || ::fstat(directory.number(), &status) != 0) return lastSystemError();
    _levels.push_back({status.st_dev, status.st_ino, {}});
    _directory = std::move(directory);
    return removeFiles();
  }

  std::error_code removeFiles() {
    // The stream gets a descriptor of its own, since closing it closes that.
    FileDescriptor own(retryingInterrupted(
        [&] { return ::openat(_directory.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!own) return lastSystemError();
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(own.number()), &::closedir);
    if (!stream) return lastSystemError();
    own.release();
    while (true) {
      errno = 0;
      const dirent* entry = ::readdir(stream.get());
      if (!entry) return errno ? lastSystemError() : std::error_code();
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (const std::error_code error = removeFile(entry->d_name)) return error;
    }
  }

  std::error_code removeFile(const char* name) {
    struct stat status {};
    if (::fstatat(_directory.number(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) return unlessGone();
    if (S_ISDIR(status.st_mode)) {
      _levels.back().subdirectories.emplace_back(name);
      return {};
    }
    return ::unlinkat(_directory.number(), name, 0) == 0 ? std::error_code() : unlessGone();
  }

  std::error_code removeNextSubdirectory() {
    const std::string name = _levels.back().subdirectories.back();
    if (::unlinkat(_directory.number(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
      _levels.back().subdirectories.pop_back();
      return {};
    }
    if (errno != ENOTEMPTY && errno != EEXIST) return lastSystemError();
    return enter(_directory.number(), name);
  }

  std::error_code leave() {
    _levels.pop_back();
    FileDescriptor parent(retryingInterrupted(
        [&] { return ::openat(_directory.number(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    struct stat status {};
    if (!parent || ::fstat(parent.number(), &status) != 0) return lastSystemError();
    const Level& level = _levels.back();
    if (status.st_dev != level.device || status.st_ino != level.inode) {
      return {ESTALE, std::system_category()};  // somebody moved the directory away meanwhile
    }
    _directory = std::move(parent);
    return removeEmptied();
  }

  std::error_code removeEmptied() {
    const std::string name = _levels.back().subdirectories.back();
    _levels.back().subdirectories.pop_back();
    return ::unlinkat(_directory.number(), name.c_str(), AT_REMOVEDIR) == 0 ? std::error_code()
                                                                            : unlessGone();
  }

  static std::error_code unlessGone() { return errno == ENOENT ? std::error_code() : lastSystemError(); }

  std::vector<Level> _levels;
  FileDescriptor _directory;  // the innermost level
};

}  // namespace

std::error_code removeTree(const std::string& givenPath) {
  const std::string path = withoutTrailingSlashes(givenPath);  // a slash would follow a link
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return lastSystemError();
  if (!S_ISDIR(status.st_mode)) return ::unlink(path.c_str()) == 0 ? std::error_code() : lastSystemError();
  if (::rmdir(path.c_str()) == 0) return {};
  if (errno != ENOTEMPTY && errno != EEXIST) return lastSystemError();
  if (const std::error_code error = TreeRemover().empty(path)) return error;
  return ::rmdir(path.c_str()) == 0 ? std::error_code() : lastSystemError();
}

}  // namespace corvane
