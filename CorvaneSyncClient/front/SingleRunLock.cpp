#include "CorvaneSyncClient/front/SingleRunLock.h"

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane {

namespace {

constexpr const char* kLockName = "com.keldra.Corvane.SyncClient.IsRunning";
constexpr double kStaleAfterSeconds = 300.0;
constexpr int kTries = 100;
constexpr const char* kAlreadySyncing = "CorvaneSyncClient called to sync, but is already syncing";

bool isGone(const std::error_code& error) { return error == std::errc::no_such_file_or_directory; }

}  // namespace

SingleRunLock::SingleRunLock()
    : _lock(DistributedLock::lockWithPath(
          joinedPath(Platform::current().process.temporaryDirectory(), kLockName))) {}

bool SingleRunLock::acquire() {
  std::optional<Date> holdersDate;
  std::error_code error;
  if (tryOrLook(holdersDate, error)) return true;
  if (isGone(error) || !isStale(holdersDate)) {
    SCLog(kAlreadySyncing);
    return false;
  }
  if (!breakStaleLock()) return false;
  if (_lock.tryLock()) return true;
  SCLog(kAlreadySyncing);
  return false;
}

// Takes the lock, or reads when its holder took it. A lock that is gone at the look is tried again; a lock
// that is gone every time belongs to many short runs, of which one is always syncing.
bool SingleRunLock::tryOrLook(std::optional<Date>& holdersDate, std::error_code& error) {
  for (int i = 0; i < kTries; ++i) {
    if (_lock.tryLock()) return true;
    holdersDate = _lock.lockDate(error);
    if (!isGone(error)) return false;
  }
  return false;
}

// A date that cannot be read or compared does not speak for a living run.
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

void SingleRunLock::release() {
  if (const std::optional<std::string> problem = _lock.unlock()) SCLog("%@", *problem);
}

std::optional<SingleRunLock::Holder> SingleRunLock::holder() {
  std::error_code error;
  const std::optional<Date> since = _lock.lockDate(error);
  if (isGone(error)) return std::nullopt;
  return Holder{since, isStale(since)};
}

bool SingleRunLock::isHeld() {
  if (!_lock.tryLock()) return true;
  release();
  return false;
}

}  // namespace corvane
