#pragma once

#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

/// A lock between processes: the directory at `path`, made by whoever takes it, whatever is put into it
/// later. The lock stands on disk alone and outlives the object, which only remembers which directory it made
/// and which one it looked at. Goes through the current platform's file system.
class DistributedLock {
 public:
  /// `lockWithPath:`
  static DistributedLock lockWithPath(std::string path) { return DistributedLock(std::move(path)); }

  /// Takes the lock if it is free; never waits. Raises NSObjectNotAvailableException, naming path and cause,
  /// when the directory cannot be made for any reason but that something stands there.
  bool tryLock();
  /// Gives the lock up. A lock that is already gone is no error. The lock of another, who broke the one that
  /// this object took and took it himself, is left alone. Answers that, or why the lock still stands, for a
  /// log; nothing when all went well. An object that took no lock gives up whatever stands there.
  std::optional<std::string> unlock();
  /// Removes the lock that `lockDate` looked at last, or whatever stands at the path where it could not,
  /// whoever holds it; already gone counts as done, also when another has taken the lock since. Raises
  /// NSGenericException, naming path and cause, when it cannot be removed.
  void breakLock();
  /// When the present holder took the lock: the path's modification date. Nothing when it cannot be read;
  /// `error` then says why, `std::errc::no_such_file_or_directory` for a lock that is gone.
  std::optional<Date> lockDate(std::error_code& error);

 private:
  explicit DistributedLock(std::string path) : _path(std::move(path)) {}
  std::optional<FileIdentity> identity(std::error_code& error);
  std::error_code remove(const std::optional<FileIdentity>& lock);

  std::string _path;
  std::optional<FileIdentity> _taken;     // what this object made, if that is known
  std::optional<FileIdentity> _lookedAt;  // what `lockDate` saw
};

}  // namespace corvane
