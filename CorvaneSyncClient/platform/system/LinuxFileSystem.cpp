#include "CorvaneSyncClient/platform/system/LinuxFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "CorvaneSyncClient/platform/system/FileDescriptor.h"

namespace corvane {

namespace {

constexpr std::size_t kChunk = 256 * 1024;
constexpr long kNanosecondsPerSecond = 1'000'000'000;

FileKind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return FileKind::regular;
  if (S_ISDIR(mode)) return FileKind::directory;
  if (S_ISLNK(mode)) return FileKind::symbolicLink;
  return FileKind::other;
}

/// Summed in extended precision, so that the date is the double nearest to what the system keeps.
Date dateOf(const timespec& time) {
  const long double whole =
      static_cast<long double>(time.tv_sec) - static_cast<long double>(kSecondsFrom1970To2001);
  return Date{static_cast<double>(whole + static_cast<long double>(time.tv_nsec) / kNanosecondsPerSecond)};
}

/// The nearest nanosecond; nothing for a date outside the system's range and for one that is no number.
std::optional<timespec> timeOf(const Date& date) {
  const double whole = std::floor(date.seconds);
  if (!(std::fabs(whole) < 9.0e18)) return std::nullopt;
  timespec time{};
  time.tv_sec = static_cast<time_t>(whole) + static_cast<time_t>(kSecondsFrom1970To2001);
  time.tv_nsec = std::lround((date.seconds - whole) * kNanosecondsPerSecond);
  if (time.tv_nsec == kNanosecondsPerSecond) {
    time.tv_nsec = 0;
    ++time.tv_sec;
  }
  return time;
}

/// Opens a regular file for reading. Anything else is refused, and a FIFO without a writer does not block.
std::error_code openRegular(const std::string& path, FileDescriptor& file, struct stat& status) {
  file = FileDescriptor(
      retryingInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  if (!file || fstat(file.number(), &status) != 0) return lastSystemError();
  if (S_ISREG(status.st_mode)) return {};
  return {S_ISDIR(status.st_mode) ? EISDIR : EINVAL, std::system_category()};
}

std::error_code copyContents(const FileDescriptor& from, const FileDescriptor& to) {
  std::string chunk(kChunk, '\0');
  while (true) {
    const ssize_t count =
        retryingInterrupted([&] { return ::read(from.number(), chunk.data(), chunk.size()); });
    if (count < 0) return lastSystemError();
    if (count == 0) return {};
    if (const std::error_code error =
            writeAll(to, std::string_view(chunk.data(), static_cast<std::size_t>(count)))) {
      return error;
    }
  }
}

/// Fills a fresh file and closes it.
std::error_code fillCopy(const FileDescriptor& source, FileDescriptor target, mode_t mode) {
  if (const std::error_code error = copyContents(source, target)) return error;
  if (fchmod(target.number(), mode & 07777) != 0) return lastSystemError();
  return target.close();
}

/// Opens a file for writing from its start; `isNew` tells whether this call made it.
FileDescriptor openForWriting(const std::string& path, bool& isNew) {
  const auto open = [&](int flags) {
    return FileDescriptor(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT | flags, 0666); }));
  };
  FileDescriptor file = open(O_EXCL);
  isNew = static_cast<bool>(file);
  if (!isNew && errno == EEXIST) file = open(O_TRUNC);
  return file;
}

}  // namespace

std::error_code writeAll(const FileDescriptor& file, std::string_view contents) {
  while (!contents.empty()) {
    const ssize_t count =
        retryingInterrupted([&] { return ::write(file.number(), contents.data(), contents.size()); });
    if (count < 0) return lastSystemError();
    contents.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

std::optional<FileAttributes> LinuxFileSystem::attributes(const std::string& path, std::error_code& error) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    error = lastSystemError();
    return std::nullopt;
  }
  error.clear();
  return FileAttributes{kindOf(status.st_mode), dateOf(status.st_mtim),
                        static_cast<std::uint64_t>(status.st_size), status.st_mode & 07777u};
}

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

std::error_code LinuxFileSystem::copy(const std::string& from, const std::string& to) {
  FileDescriptor source;
  struct stat status {};
  if (const std::error_code error = openRegular(from, source, status)) return error;
  FileDescriptor target(
      retryingInterrupted([&] { return ::open(to.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT | O_EXCL, 0600); }));
  if (!target) return lastSystemError();
  const std::error_code error = fillCopy(source, std::move(target), status.st_mode);
  if (error) ::unlink(to.c_str());  // the copy's own failure is the one to tell
  return error;
}

std::error_code LinuxFileSystem::list(const std::string& path, std::vector<std::string>& names) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), &::closedir);
  if (!directory) return lastSystemError();
  std::vector<std::string> found;
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(directory.get());
    if (!entry) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") found.emplace_back(name);
  }
  if (errno != 0) return lastSystemError();
  std::sort(found.begin(), found.end());
  names = std::move(found);
  return {};
}

std::error_code LinuxFileSystem::read(const std::string& path, std::string& contents) {
  FileDescriptor file;
  struct stat status {};
  if (const std::error_code error = openRegular(path, file, status)) return error;
  std::string bytes;
  std::size_t size = 0;
  // One byte more than the file seems to have shows its end without another enlargement.
  bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
  while (true) {
    const ssize_t count =
        retryingInterrupted([&] { return ::read(file.number(), bytes.data() + size, bytes.size() - size); });
    if (count < 0) return lastSystemError();
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
    if (size == bytes.size()) bytes.resize(size * 2 + kChunk);
  }
  bytes.resize(size);
  contents = std::move(bytes);
  return {};
}

std::error_code LinuxFileSystem::write(const std::string& path, std::string_view contents) {
  bool isNew = false;
  FileDescriptor file = openForWriting(path, isNew);
  if (!file) return lastSystemError();
  std::error_code error = writeAll(file, contents);
  if (!error) error = file.close();
  if (error && isNew) ::unlink(path.c_str());  // the first failure is the one to tell
  return error;
}

std::error_code LinuxFileSystem::setModificationDate(const std::string& path, Date date) {
  const std::optional<timespec> time = timeOf(date);
  if (!time) return {EINVAL, std::system_category()};
  const timespec times[] = {*time, *time};
  return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0 ? std::error_code() : lastSystemError();
}

}  // namespace corvane
