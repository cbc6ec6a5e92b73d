#pragma once

#include <optional>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Date.h"

namespace corvane {

/// A lock between processes: the directory at `path`, made by whoever takes it. The object itself holds
/// nothing and may be made anew at each use. Goes through the current platform's file system.
class DistributedLock {
 public:
  /// `lockWithPath:`
  static DistributedLock lockWithPath(std::string path) { return DistributedLock(std::move(path)); }

  /// Takes the lock if it is free; never waits. Raises NSObjectNotAvailableException, naming path and cause,
  /// when the directory cannot be made for any reason but that something stands there.
  bool tryLock();
  /// Gives the lock up. A lock that is already gone is no error; any other failure is written to the system
  /// log.
  void unlock();
  /// Removes whatever stands at the path, whoever holds it; already gone counts as done. Raises
  /// NSGenericException, naming path and cause, when it cannot be removed.
  void breakLock();
  /// When the present holder took the lock: the path's modification date. Nothing when it cannot be read.
  std::optional<Date> lockDate();

 private:
  explicit DistributedLock(std::string path) : _path(std::move(path)) {}
  std::string _path;
};

}  // namespace corvane
