#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"

namespace corvane {

namespace {

// Each try waits for two seconds. The commands of a person wait no longer than a few of them; a run that
// syncs has the single-run lock, and meets no other one.
constexpr int kLockTries = 5;

PrivateFileError failureOf(const std::string& path) { return {path, lastSystemError()}; }

}  // namespace

PrivateFileError makePrivateDirectory(const std::string& path) {
  std::vector<std::string> missing;
  std::string each = path;
  struct stat status {};
  while (each.size() > 1 && ::stat(each.c_str(), &status) != 0) {
    if (errno != ENOENT) return failureOf(each);
    missing.push_back(each);
    each.erase(std::max<std::size_t>(each.rfind('/'), 1));
  }
  for (auto next = missing.rbegin(); next != missing.rend(); ++next) {
    // Another process may make it at the same time.
    if (::mkdir(next->c_str(), kPrivateDirectoryMode) != 0 && errno != EEXIST) return failureOf(*next);
  }
  return setMode(path, kPrivateDirectoryMode);
}

PrivateFileError setMode(const std::string& path, mode_t mode) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return failureOf(path);
  if ((status.st_mode & 07777) != mode && ::chmod(path.c_str(), mode) != 0) return failureOf(path);
  return {};
}

std::error_code readPrivateFile(const std::string& path, std::string& contents) {
  return readRegular(path, contents, [](const struct stat& status) -> std::error_code {
    const uid_t user = ::geteuid();
    const bool isOwn = status.st_uid == user || user == 0;
    if (isOwn && (status.st_mode & 077) == 0) return {};
    return {EPERM, std::system_category()};
  });
}

std::unique_ptr<FileSystem::Hold> holdBeside(const std::string& path, PrivateFileError& problem) {
  FileSystem& files = Platform::current().files;
  const std::string lock = path + "-lock";
  if ((problem = makePrivateDirectory(path.substr(0, path.rfind('/'))))) return nullptr;
  for (int tries = 1;; ++tries) {
    std::error_code error;
    if (auto hold = files.hold(lock, error)) return hold;
    if (error == std::errc::no_such_file_or_directory) {
      const PrivateUmask umask;
      error = files.writeNewAtomically(lock, {});
      if (!error || error == std::errc::file_exists) continue;
    }
    if (error == std::errc::device_or_resource_busy && tries < kLockTries) continue;
    problem = {lock, error};
    return nullptr;
  }
}

PrivateUmask::PrivateUmask() : _before(::umask(077)) {}

PrivateUmask::~PrivateUmask() { ::umask(_before); }

}  // namespace corvane
