#pragma once

#include <optional>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/system/locks/DistributedLock.h"

namespace corvane {

/// Lets one sync run at a time work for the user, among all processes: a lock in the user's temporary
/// directory. A run that was killed leaves its lock standing; the first run 300 seconds later or more breaks
/// it. Of two runs that break it at once one gets it, and the other finds that one syncing.
///
/// What the lock itself raises (NSObjectNotAvailableException) passes through unless said otherwise. The
/// diagnostic log says why a lock was not had, or not given up.
class SingleRunLock {
 public:
  SingleRunLock();

  /// Takes the lock, never waiting; whether it is held now. It is not when another run took it less than 300
  /// seconds ago, when a stale lock cannot be broken, or when somebody else was faster.
  bool acquire();
  /// Gives the lock up, unless it is another run's by now.
  void release();
  /// Whether anybody holds the lock, however long; leaves it as it is.
  bool isHeld();

  /// Who holds the lock.
  struct Holder {
    std::optional<Date> since;
    bool isStale = false;  ///< the next run breaks it
  };
  /// Nothing where nobody holds it. Looks, and never takes it: a run that begins now is not kept off.
  std::optional<Holder> holder();

 private:
  bool tryOrLook(std::optional<Date>& holdersDate, std::error_code& error);
  bool isStale(const std::optional<Date>& lockDate) const;
  bool breakStaleLock();

  DistributedLock _lock;
};

}  // namespace corvane
