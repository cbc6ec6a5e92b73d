#pragma once

#include <optional>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Date.h"

namespace corvane {

/// A lock between processes: the directory at `path`, made by whoever takes it. The lock stands on disk alone
/// and outlives the object, which only remembers when it took it. Goes through the current platform's file
/// system.
class DistributedLock {
 public:
  /// `lockWithPath:`
  static DistributedLock lockWithPath(std::string path) { return DistributedLock(std::move(path)); }

  /// Takes the lock if it is free; never waits. Raises NSObjectNotAvailableException, naming path and cause,
  /// when the directory cannot be made for any reason but that something stands there.
  bool tryLock();
  /// Gives the lock up. A lock that is already gone is no error. The lock of another, who broke the one that
  /// this object took and took it himself, is left alone; that and any failure is written to the system log.
  /// An object that took no lock gives up whatever stands there.
  void unlock();
  /// Removes whatever stands at the path, whoever holds it; already gone counts as done. Raises
  /// NSGenericException, naming path and cause, when it cannot be removed.
  void breakLock();
  /// When the present holder took the lock: the path's modification date. Nothing when it cannot be read.
  std::optional<Date> lockDate();

 private:
  explicit DistributedLock(std::string path) : _path(std::move(path)) {}
  bool isAnothers();

  std::string _path;
  std::optional<Date> _taken;  // the lock's date when this object took it, if it could be read
};

}  // namespace corvane
