#include "CorvaneSyncClient/platform/system/locks/DistributedLock.h"

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/values/Format.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/locks/LockDirectory.h"

namespace corvane {

bool DistributedLock::tryLock() {
  std::error_code error = Platform::current().files.makeDirectory(_path, kPrivateDirectoryMode);
  if (error == std::errc::file_exists) return false;
  if (error) {
    throw PlatformException(NSObjectNotAvailableException,
                            Message("Can't take lock %1: %2", _path, error.message()));
  }
  _taken = identity(error);
  return true;
}

std::optional<std::string> DistributedLock::unlock() {
  const std::optional<FileIdentity> taken = std::exchange(_taken, std::nullopt);
  std::error_code error;
  const std::optional<FileIdentity> standing = identity(error);
  if (taken && standing && standing != taken) {
    return format("Lock %@ was broken and taken by another process, so it is not given up", _path);
  }
  error = remove(taken);
  return error ? std::optional(format("Can't remove lock %@: %@", _path, error.message())) : std::nullopt;
}

void DistributedLock::breakLock() {
  if (const std::error_code error = remove(_lookedAt)) {
    throw PlatformException(NSGenericException, Message("Can't break lock %1: %2", _path, error.message()));
  }
}

std::optional<Date> DistributedLock::lockDate(std::error_code& error) {
  const std::optional<FileAttributes> attributes = Platform::current().files.ownAttributes(_path, error);
  _lookedAt.reset();
  if (!attributes) return std::nullopt;
  _lookedAt = attributes->identity;
  return attributes->modificationDate;
}

std::optional<FileIdentity> DistributedLock::identity(std::error_code& error) {
  const std::optional<FileAttributes> attributes = Platform::current().files.ownAttributes(_path, error);
  return attributes ? std::optional(attributes->identity) : std::nullopt;
}

// Removes `lock`, or whatever stands there where that is absent. What cannot be deleted goes on being a lock.
std::error_code DistributedLock::remove(const std::optional<FileIdentity>& lock) {
  FileSystem& files = Platform::current().files;
  std::error_code error;
  const std::unique_ptr<FileSystem::Hold> hold = files.hold(_path, error);
  if (error == std::errc::no_such_file_or_directory) return {};
  if (error == std::errc::device_or_resource_busy) return error;
  std::string aside;
  error = takeLockDirectory(_path, lock, aside);
  if (error || aside.empty()) return error;
  error = files.remove(aside);
  if (error) files.renameWithoutReplacing(aside, _path);  // the first failure is the one to report
  return error;
}

}  // namespace corvane
