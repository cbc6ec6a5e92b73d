#include "CorvaneSyncClient/front/SingleRunLock.h"

#include "CorvaneSyncClient/front/SCLog.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

constexpr const char* kLockName = "com.keldra.Corvane.SyncClient.IsRunning";
constexpr double kStaleAfterSeconds = 300.0;
constexpr const char* kAlreadySyncing = "CorvaneSyncClient called to sync, but is already syncing";

}  // namespace

SingleRunLock::SingleRunLock()
    : _lock(DistributedLock::lockWithPath(
          joinedPath(Platform::current().process.temporaryDirectory(), kLockName))) {}

bool SingleRunLock::acquire() {
  if (_lock.tryLock()) return true;
  if (!isStale(_lock.lockDate())) {
    SCLog(kAlreadySyncing);
    return false;
  }
  if (!breakStaleLock()) return false;
  if (_lock.tryLock()) return true;
  SCLog(kAlreadySyncing);
  return false;
}

// A date that cannot be read, or cannot be compared, is no sign of a living run.
bool SingleRunLock::isStale(const std::optional<Date>& lockDate) const {
  if (!lockDate) return true;
  const double secondsFromNow = lockDate->seconds - Platform::current().clock.now().seconds;
  return !(secondsFromNow > -kStaleAfterSeconds);
}

bool SingleRunLock::breakStaleLock() {
  try {
    SCLog("CorvaneSyncClient lock appears to be stale.  Attempting to break...");
    _lock.breakLock();
    SCLog("Success!  Stale lock was broken.");
    return true;
  } catch (...) {
    SCLog("Failed to break the stale lock!");
    return false;
  }
}

bool SingleRunLock::isHeld() {
  if (!_lock.tryLock()) return true;
  _lock.unlock();
  return false;
}

}  // namespace corvane
