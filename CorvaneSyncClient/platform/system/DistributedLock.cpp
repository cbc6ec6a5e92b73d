#include "CorvaneSyncClient/platform/system/DistributedLock.h"

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

bool DistributedLock::tryLock() {
  const std::error_code error = Platform::current().files.makeDirectory(_path, 0700);
  if (!error) {
    _taken = lockDate();
    return true;
  }
  if (error == std::errc::file_exists) return false;
  throw PlatformException(NSObjectNotAvailableException, "Can't take lock " + _path + ": " + error.message());
}

// Nothing is ever put into the directory, so that its date stays that of its making.
bool DistributedLock::isAnothers() {
  const std::optional<Date> date = lockDate();
  return _taken && date && !(*date == *_taken);
}

void DistributedLock::unlock() {
  const bool isLost = isAnothers();
  _taken.reset();
  if (isLost) {
    systemLog("Lock %@ was broken and taken by another process, so it is not given up", _path);
    return;
  }
  const std::error_code error = Platform::current().files.remove(_path);
  if (error && error != std::errc::no_such_file_or_directory) {
    systemLog("Can't remove lock %@: %@", _path, error.message());
  }
}

void DistributedLock::breakLock() {
  const std::error_code error = Platform::current().files.remove(_path);
  if (error && error != std::errc::no_such_file_or_directory) {
    throw PlatformException(NSGenericException, "Can't break lock " + _path + ": " + error.message());
  }
}

std::optional<Date> DistributedLock::lockDate() {
  std::error_code error;
  const std::optional<FileAttributes> attributes = Platform::current().files.attributes(_path, error);
  return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
}

}  // namespace corvane
