#include "CorvaneSyncClient/store/CorvaneFileLocker.h"

#include <cmath>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/locks/LockDirectory.h"

namespace corvane {

namespace {

constexpr const char* kLockDirectoryName = "lock";
constexpr const char* kLockFileName = "details.plist";
constexpr const char* kStaleLockDirectoryName = ".staleLockDirectory";
constexpr double kMicrosecondsPerSecond = 1'000'000;
constexpr int kWriteTries = 3;
constexpr double kSecondsBetweenWriteTries = 1.0;

PlatformException notAvailable(Message reason) {
  return PlatformException(NSObjectNotAvailableException, std::move(reason));
}

std::optional<std::int32_t> processIdIn(const Dictionary& lockDictionary) {
  return lockDictionary.integer32(kLockFileProcessID);
}

std::optional<Date> modificationDateOf(const std::string& path) {
  const auto attributes = Platform::current().files.attributesIfKnown(path);
  return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
}

bool isGone(const std::error_code& error) { return error == std::errc::no_such_file_or_directory; }
bool isBusy(const std::error_code& error) { return error == std::errc::device_or_resource_busy; }

bool stands(const std::string& path) {
  std::error_code error;
  return Platform::current().files.ownAttributes(path, error).has_value();
}

// The file system's own idea of now: the date of a file just made in `directory`.
std::optional<Date> currentDateOnFileSystem(const std::string& directory) {
  Platform& platform = Platform::current();
  const std::string scratch = joinedPath(directory, platform.uuids.newUuid().view());
  if (platform.files.write(scratch, "")) return std::nullopt;
  const std::optional<Date> date = modificationDateOf(scratch);
  platform.files.remove(scratch);  // a file left over goes with the lock directory
  return date;
}

std::error_code makeDirectoryWithIntermediates(const std::string& path) {
  FileSystem& files = Platform::current().files;
  std::vector<std::string> missing;
  for (std::string at = path; !at.empty() && !files.attributesIfKnown(at);) {
    missing.push_back(at);
    const std::size_t slash = at.find_last_of('/');
    at.resize(slash == std::string::npos ? 0 : slash);
  }
  for (; !missing.empty(); missing.pop_back()) {
    const std::error_code error = files.makeDirectory(missing.back(), kDefaultDirectoryMode);
    if (error && error != std::errc::file_exists) return error;
  }
  return {};
}

}  // namespace

// "details.plist" at one moment. What it holds need not equal itself (a NaN does not), so the bytes are
// looked at first: a file that nobody touched is the same.
struct CorvaneFileLocker::Details {
  std::string bytes;
  std::optional<Dictionary> dictionary;  // absent when unreadable

  bool isSameAs(const Details& other) const { return bytes == other.bytes || dictionary == other.dictionary; }
};

// Where one call of `lock` stands.
struct CorvaneFileLocker::Acquisition {
  double pollLimit = 0;  // a whole number
  double pollCount = 0;
  unsigned attemptCounter = 0;
  bool waited = false;
  bool stole = false;
  bool breakRequested = false;
  Details lastSeen;
  std::optional<FileIdentity> standing;     // the lock directory that `lastSeen` is from
  std::optional<FileIdentity> unbreakable;  // one that could be neither deleted nor moved aside
  bool hasComplained = false;               // of that

  void setUnbreakable() { unbreakable = standing.value_or(FileIdentity()); }
  bool isUnbreakable() const { return unbreakable == standing.value_or(FileIdentity()); }
  FileLockerResult result() const {
    if (stole) return FileLockerResult::acquiredByBreaking;
    return waited ? FileLockerResult::acquiredAfterWaiting : FileLockerResult::acquired;
  }
};

CorvaneFileLocker::CorvaneFileLocker(std::string path, CorvaneFileLockerDelegate* delegate, double timeout)
    : _path(std::move(path)), _hostname(computeHostname()), _delegate(delegate), _timeout(timeout) {}

std::string CorvaneFileLocker::lockDirectoryPath() const { return joinedPath(_path, kLockDirectoryName); }
std::string CorvaneFileLocker::lockFilePath() const { return joinedPath(lockDirectoryPath(), kLockFileName); }

std::string CorvaneFileLocker::computeHostname() const {
  if (isOnLocalHost()) return "localhost";
  const std::string name = Platform::current().process.hostName();
  return name.empty() ? "unknownhost" : name;
}

bool CorvaneFileLocker::isOnLocalHost() const {
  const std::optional<FileSystem::Volume> volume = Platform::current().files.volume(_path);
  if (!volume) return false;
  return volume->mountPoint == "/" || volume->isLocal;
}

FileLockerResult CorvaneFileLocker::lock() {
  if (_locked) return FileLockerResult::alreadyHeld;
  Acquisition acquisition;
  acquisition.pollLimit = std::trunc(_timeout * kMicrosecondsPerSecond / kPollIntervalMicroseconds);
  for (;;) {
    if (acquisition.breakRequested) breakLock(acquisition);
    if (makeLock()) {
      _locked = true;
      return acquisition.result();
    }
    // In this order, so that what the file says is never held against a directory that came later.
    acquisition.standing = standingLock();
    acquisition.lastSeen = readDetails();
    acquisition.waited = true;
    if (acquisition.pollCount < acquisition.pollLimit) {
      pollOnce(acquisition);
    } else if (!goOnAfterTimeout(acquisition)) {
      return FileLockerResult::gaveUp;
    }
  }
}

// Makes the lock directory and writes whose it is, all within a hold. Between the two a directory without
// "details.plist" can be taken for abandoned, by somebody whose timeout runs out just then, and made anew: it
// belongs to whoever writes the file. Answers false when somebody else has it.
bool CorvaneFileLocker::makeLock() {
  if (!makeLockDirectory()) return false;
  std::error_code error;
  const auto hold = Platform::current().files.hold(lockDirectoryPath(), error);
  if (isGone(error) || isBusy(error) || stands(lockFilePath())) return false;
  writeLockFile();
  return true;
}

// Removes the lock unless it is no longer the one that was last seen. One that cannot be removed is a living
// holder's from then on.
void CorvaneFileLocker::breakLock(Acquisition& acquisition) {
  acquisition.breakRequested = false;
  std::error_code error;
  const auto hold = Platform::current().files.hold(lockDirectoryPath(), error);
  const Details now = readDetails();
  if (now.dictionary && !now.isSameAs(acquisition.lastSeen)) return;
  try {
    if (isBusy(error)) throw cannotRemove();
    if (!isGone(error)) removeLock(acquisition.standing);
    acquisition.stole = true;
  } catch (const PlatformException& exception) {
    acquisition.setUnbreakable();
    if (!std::exchange(acquisition.hasComplained, true)) {
      systemLog("Ignoring exception %@ trying to remove lock to steal it: %@", exception.name(),
                exception.reason());
    }
    sleepOnce(acquisition);  // also when a delegate insists on breaking it
  }
}

bool CorvaneFileLocker::makeLockDirectory() {
  const std::error_code error =
      Platform::current().files.makeDirectory(lockDirectoryPath(), kDefaultDirectoryMode);
  if (!error) return true;
  if (error == std::errc::file_exists) return false;
  throw notAvailable(Message("Can't get write lock on %1: %2", _path, error.message()));
}

// Before the timeout: a dead holder's lock is to be broken at once, anyone else's is waited for.
void CorvaneFileLocker::pollOnce(Acquisition& acquisition) {
  if (!acquisition.isUnbreakable() && lockIsNotValid(pointerTo(acquisition.lastSeen.dictionary))) {
    acquisition.breakRequested = true;
  } else {
    sleepOnce(acquisition);
  }
}

void CorvaneFileLocker::sleepOnce(Acquisition& acquisition) {
  Platform::current().clock.sleep(kPollIntervalMicroseconds / kMicrosecondsPerSecond);
  ++acquisition.pollCount;
}

// After the timeout: whether to go on at all, and how. A break leaves the poll count at its limit, so that
// the question comes again right away if the lock was renewed meanwhile.
bool CorvaneFileLocker::goOnAfterTimeout(Acquisition& acquisition) {
  const unsigned attempt = acquisition.attemptCounter + 1;
  const std::optional<Dictionary>& details = acquisition.lastSeen.dictionary;
  switch (acquisition.isUnbreakable() ? delegatesAction(details.value_or(Dictionary()), attempt)
                                      : actionForApparentlyAbandonedLock(pointerTo(details), attempt)) {
    case FileLockerAction::breakLock:
      acquisition.breakRequested = true;
      break;
    case FileLockerAction::waitAgain:
      acquisition.pollCount = 0;
      break;
    default:
      return false;
  }
  acquisition.attemptCounter = attempt;
  return true;
}

bool CorvaneFileLocker::lockIsNotValid(const Dictionary* lockDictionary) const {
  if (!lockDictionary) return false;
  // A process of another machine cannot be looked for.
  if (!matchesHostNameFromLockDictionary(lockDictionary->string(kLockFileHostname))) return false;
  const std::optional<std::int32_t> processId = processIdIn(*lockDictionary);
  if (!processId) return false;
  return Platform::current().process.liveness(*processId) == ProcessInfo::Liveness::gone;
}

bool CorvaneFileLocker::matchesHostNameFromLockDictionary(const String& hostName) const {
  return !hostName || hostName.view() == _hostname;
}

FileLockerAction CorvaneFileLocker::actionForApparentlyAbandonedLock(const Dictionary* lockDictionary,
                                                                     unsigned attempt) {
  if (!lockDictionary || lockIsNotValid(lockDictionary)) return FileLockerAction::breakLock;
  return delegatesAction(*lockDictionary, attempt);
}

FileLockerAction CorvaneFileLocker::delegatesAction(const Dictionary& lockDictionary, unsigned attempt) {
  if (!_delegate || !_delegate->implementsActionForApparentlyAbandonedLock()) return FileLockerAction::giveUp;
  return _delegate->fileLockerActionForApparentlyAbandonedLock(*this, lockInfoForDelegate(lockDictionary),
                                                               attempt);
}

Dictionary CorvaneFileLocker::lockInfoForDelegate(const Dictionary& lockDictionary) const {
  Dictionary info = lockDictionary;
  const std::optional<Date> now = currentDateOnFileSystem(lockDirectoryPath());
  const std::optional<Date> written = modificationDateOf(lockFilePath());
  if (now && written) {
    info.set(kCurrentDateOnFileSystem, *now);
    info.set(kLockFileDateOnFileSystem, *written);
  }
  return info;
}

void CorvaneFileLocker::writeLockFile() {
  Platform& platform = Platform::current();
  const Dictionary lockDictionary{{kLockFileUsername, platform.process.fullUserName()},
                                  {kLockFileDate, platform.clock.now()},
                                  {kLockFileProcessName, platform.process.processName()},
                                  {kLockFileProcessID, platform.process.processId()},
                                  {kLockFileHostname, _hostname}};
  for (int triesLeft = kWriteTries - 1; triesLeft >= 0; --triesLeft) {
    if (tryWritingLockFile(lockDictionary)) return;
    if (triesLeft == 0) break;
    systemLog("Error writing lock dictionary, will try again %d time[s]", triesLeft);
    platform.clock.sleep(kSecondsBetweenWriteTries);
  }
  systemLog("Couldn't write file lock dictionary for %@ - possible bad dictionary format? Dictionary is %@",
            lockDirectoryPath(), lockDictionary);
  try {
    removeLockFile();
  } catch (const PlatformException& exception) {
    systemLog("Ignoring exception %@ trying to remove lock after failing to write file: %@", exception.name(),
              exception.reason());
  }
  throw notAvailable(Message("Could not write lock info file for file in %1", _path));
}

// Whether "details.plist" was written and can be read back. The system log says which file was not, and why.
bool CorvaneFileLocker::tryWritingLockFile(const Dictionary& lockDictionary) const {
  std::string cause;
  try {
    const std::error_code error =
        Platform::current().files.writeAtomically(lockFilePath(), writeXmlPropertyList(lockDictionary));
    if (!error && lockFileContentsDictionary()) return true;
    cause = error ? error.message() : "it cannot be read back";
  } catch (const PropertyListException& exception) {
    cause = exception.reason();  // a name that XML cannot carry
  }
  systemLog("Could not write %@: %@", lockFilePath(), cause);
  return false;
}

std::optional<Dictionary> CorvaneFileLocker::lockFileContentsDictionary() const {
  return readDetails().dictionary;
}

CorvaneFileLocker::Details CorvaneFileLocker::readDetails() const {
  Details details;
  try {
    // Not being there is what happens between two holders, and any other error is as good as that.
    if (Platform::current().files.read(lockFilePath(), details.bytes)) return details;
    const Value top = readPropertyList(details.bytes);
    if (const Dictionary* dictionary = top.as<Dictionary>()) details.dictionary = *dictionary;
  } catch (const PlatformException& exception) {
    systemLog("Exception %@: couldn't read lock file contents dictionary. Reason: %@", exception.name(),
              exception.reason());
  }
  return details;
}

// The directory that stands there now; an identity that no directory has where nothing stands; absent when
// it is not known.
std::optional<FileIdentity> CorvaneFileLocker::standingLock() const {
  std::error_code error;
  const auto attributes = Platform::current().files.ownAttributes(lockDirectoryPath(), error);
  if (attributes) return attributes->identity;
  return isGone(error) ? std::optional(FileIdentity()) : std::nullopt;
}

PlatformException CorvaneFileLocker::cannotRemove() const {
  return notAvailable(Message("Can't remove existing lock for %1", _path));
}

void CorvaneFileLocker::removeLockFile() { removeLock(standingLock()); }

void CorvaneFileLocker::removeLock(const std::optional<FileIdentity>& judged) {
  Platform& platform = Platform::current();
  const std::string lockDirectory = lockDirectoryPath();
  std::string aside;
  std::error_code error = takeLockDirectory(lockDirectory, judged, aside);
  if (!error && !aside.empty()) error = platform.files.remove(aside);
  if (!error || isGone(error)) return;
  const std::string stale =
      format("%@/%@/%@-%@", _path, kStaleLockDirectoryName, kLockDirectoryName, platform.uuids.newUuid());
  const std::string& undeleted = aside.empty() ? lockDirectory : aside;
  if (createStaleLockDirectoryIfNeeded(_path) && !platform.files.rename(undeleted, stale)) return;
  // Where this fails too, the next one clears what is left of it.
  if (!aside.empty()) platform.files.renameWithoutReplacing(aside, lockDirectory);
  throw cannotRemove();
}

bool CorvaneFileLocker::createStaleLockDirectoryIfNeeded(const std::string& path) {
  return !makeDirectoryWithIntermediates(joinedPath(path, kStaleLockDirectoryName));
}

void CorvaneFileLocker::cleanupStaleLockDirectory() {
  Platform::current().files.remove(lockDirectoryPath());  // a failure is nobody's business
}

bool CorvaneFileLocker::checkIfLockWasStolen() {
  const std::optional<Dictionary> lockDictionary = lockFileContentsDictionary();
  if (lockDictionary && isOwnLock(*lockDictionary)) return false;
  if (_delegate && _delegate->implementsLockWasStolen()) {
    std::optional<Dictionary> lockInfo;
    if (lockDictionary) lockInfo = lockInfoForDelegate(*lockDictionary);
    _delegate->fileLockerLockWasStolen(*this, pointerTo(lockInfo));
  }
  return true;
}

bool CorvaneFileLocker::isOwnLock(const Dictionary& lockDictionary) const {
  ProcessInfo& process = Platform::current().process;
  return lockDictionary.string(kLockFileUsername) == std::string_view(process.fullUserName()) &&
         lockDictionary.string(kLockFileProcessName) == std::string_view(process.processName()) &&
         processIdIn(lockDictionary) == process.processId() &&
         matchesHostNameFromLockDictionary(lockDictionary.string(kLockFileHostname));
}

void CorvaneFileLocker::refresh() {
  if (!_locked) {
    throw notAvailable(Message("Cannot refresh lock for file in %1, lock is not currently held", _path));
  }
  std::error_code error;  // one that cannot be held is looked at all the same
  const auto hold = Platform::current().files.hold(lockDirectoryPath(), error);
  if (!checkIfLockWasStolen()) writeLockFile();
}

void CorvaneFileLocker::unlock() {
  if (!_locked) return;
  std::error_code error;  // one that cannot be held is looked at all the same
  const auto hold = Platform::current().files.hold(lockDirectoryPath(), error);
  const std::optional<FileIdentity> standing = standingLock();
  if (!checkIfLockWasStolen()) {
    try {
      removeLock(standing);
    } catch (const PlatformException& exception) {
      systemLog("Ignoring exception %@ trying to remove lock file: %@", exception.name(), exception.reason());
    }
  }
  _locked = false;
}

}  // namespace corvane
