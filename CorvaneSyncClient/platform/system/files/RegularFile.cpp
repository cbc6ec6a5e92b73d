#include "CorvaneSyncClient/platform/system/files/RegularFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdint>
#include <new>

#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane {

namespace {

constexpr std::size_t kChunk = 256 * 1024;
constexpr std::uint64_t kLargestFile = std::uint64_t{2} << 30;
// Up to here a file's own word for its size is believed before its bytes have come.
constexpr std::uint64_t kMostReserved = std::uint64_t{64} << 20;

// Opens a regular file for reading. Anything else is refused, and a FIFO without a writer does not block.
std::error_code openRegular(const std::string& path, FileDescriptor& file, struct stat& status) {
  file = FileDescriptor(
      retryingInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  if (!file || fstat(file.number(), &status) != 0) return lastSystemError();
  if (S_ISREG(status.st_mode)) return {};
  return {S_ISDIR(status.st_mode) ? EISDIR : EINVAL, std::system_category()};
}

// Reads to the end. `expected` is the size that the file claims; memory grows with what really comes.
std::error_code readAll(const FileDescriptor& file, std::uint64_t expected, std::string& bytes) {
  if (expected > kLargestFile) return {EFBIG, std::system_category()};
  // One byte more than the file seems to have shows its end without another enlargement.
  bytes.reserve(std::min(expected + 1, kMostReserved));
  std::size_t size = 0;
  while (true) {
    if (size == bytes.size()) {
      const std::size_t larger = size + std::max(size, kChunk);
      bytes.resize(size < bytes.capacity() ? std::min(larger, bytes.capacity()) : larger);
    }
    const ssize_t count =
        retryingInterrupted([&] { return ::read(file.number(), bytes.data() + size, bytes.size() - size); });
    if (count < 0) return lastSystemError();
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
    if (size > kLargestFile) return {EFBIG, std::system_category()};
  }
  bytes.resize(size);
  return {};
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

// Fills a fresh file and closes it.
std::error_code fillCopy(const FileDescriptor& source, FileDescriptor target, mode_t mode) {
  if (const std::error_code error = copyContents(source, target)) return error;
  if (fchmod(target.number(), mode & 07777) != 0) return lastSystemError();
  return target.close();
}

// Opens a file for writing from its start; `isNew` says whether this call made it.
FileDescriptor openForWriting(const std::string& path, bool& isNew) {
  const auto open = [&](int flags) {
    return FileDescriptor(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT | flags, kDefaultFileMode); }));
  };
  FileDescriptor file = open(O_EXCL);
  isNew = static_cast<bool>(file);
  if (!isNew && errno == EEXIST) file = open(O_TRUNC);
  return file;
}

}  // namespace

std::error_code readRegular(const std::string& path, std::string& contents,
                            const std::function<std::error_code(const struct stat&)>& check) {
  FileDescriptor file;
  struct stat status {};
  if (const std::error_code error = openRegular(path, file, status)) return error;
  if (const std::error_code error = check(status)) return error;
  try {
    std::string bytes;
    if (const std::error_code error = readAll(file, static_cast<std::uint64_t>(status.st_size), bytes)) {
      return error;
    }
    contents = std::move(bytes);
    return {};
  } catch (const std::bad_alloc&) {
    return {ENOMEM, std::system_category()};
  }
}

std::error_code copyRegular(const std::string& from, const std::string& to) {
  FileDescriptor source;
  struct stat status {};
  if (const std::error_code error = openRegular(from, source, status)) return error;
  FileDescriptor target(retryingInterrupted(
      [&] { return ::open(to.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT | O_EXCL, kPrivateFileMode); }));
  if (!target) return lastSystemError();
  const std::error_code error = fillCopy(source, std::move(target), status.st_mode);
  if (error) ::unlink(to.c_str());  // the copy's own failure is the one to report
  return error;
}

std::error_code writeRegular(const std::string& path, std::string_view contents) {
  bool isNew = false;
  FileDescriptor file = openForWriting(path, isNew);
  if (!file) return lastSystemError();
  std::error_code error = writeAll(file, contents);
  if (!error) error = file.close();
  if (error && isNew) ::unlink(path.c_str());  // the first failure is the one to report
  return error;
}

}  // namespace corvane
