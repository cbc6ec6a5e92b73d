#include "tests/fakes/Files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>

#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "CorvaneSyncClient/platform/system/files/Timespec.h"

namespace corvane {

std::error_code listDirectory(const std::string& path, std::vector<std::string>& names) {
  names.clear();
  std::error_code error;
  std::filesystem::directory_iterator at(path, error);
  for (const std::filesystem::directory_iterator end; !error && at != end; at.increment(error)) {
    names.push_back(at->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return error;
}

std::error_code setModificationDate(const std::string& path, Date date) {
  const double whole = std::floor(date.seconds);
  timespec time{};
  time.tv_sec = static_cast<time_t>(whole) + static_cast<time_t>(kSecondsFrom1970To2001);
  time.tv_nsec = std::lround((date.seconds - whole) * kNanosecondsPerSecond);
  if (time.tv_nsec == kNanosecondsPerSecond) {
    time.tv_nsec = 0;
    ++time.tv_sec;
  }
  const timespec times[] = {time, time};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0) return {};
  return {errno, std::system_category()};
}

unsigned modeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}

bool canBeHeld(const std::string& path) {
  std::error_code error;
  return LinuxFileSystem().hold(path, error) != nullptr;
}

ScopedUmask::ScopedUmask(unsigned mask) : _before(::umask(mask)) {}
ScopedUmask::~ScopedUmask() { ::umask(_before); }

}  // namespace corvane
