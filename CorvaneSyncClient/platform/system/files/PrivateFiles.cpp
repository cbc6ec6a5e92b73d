#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"

namespace corvane {

namespace {

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

PrivateUmask::PrivateUmask() : _before(::umask(077)) {}

PrivateUmask::~PrivateUmask() { ::umask(_before); }

}  // namespace corvane
