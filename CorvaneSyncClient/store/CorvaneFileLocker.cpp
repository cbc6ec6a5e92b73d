#include "CorvaneSyncClient/store/CorvaneFileLocker.h"

#include <cmath>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

constexpr const char* kLockDirectoryName = "lock";
constexpr const char* kLockFileName = "details.plist";
constexpr const char* kStaleLockDirectoryName = ".staleLockDirectory";
constexpr unsigned kEverybody = 0777;  // less the umask
constexpr double kMicrosecondsPerSecond = 1'000'000;
constexpr int kWriteTries = 3;
constexpr double kSecondsBetweenWriteTries = 1.0;

PlatformException notAvailable(std::string reason) {
  return PlatformException(NSObjectNotAvailableException, std::move(reason));
}

std::optional<std::int32_t> processIdIn(const Dictionary& lockDictionary) {
  return lockDictionary.integer32(kLockFileProcessID);
}

std::optional<Date> modificationDateOf(const std::string& path) {
  const auto attributes = Platform::current().files.attributesIfKnown(path);
  return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
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
    const std::error_code error = files.makeDirectory(missing.back(), kEverybody);
    if (error && error != std::errc::file_exists) return error;
  }
  return {};
}

}  // namespace

// Where one call of `lock` stands.
struct CorvaneFileLocker::Acquisition {
  double pollLimit = 0;  // a whole number
  double pollCount = 0;
  unsigned attemptCounter = 0;
  bool waited = false;
  bool stole = false;
  bool breakRequested = false;
  std::optional<Dictionary> lastSeen;

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
    if (makeLockDirectory()) {
      writeLockFile();
      _locked = true;
      return acquisition.result();
    }
    acquisition.lastSeen = lockFileContentsDictionary();
    acquisition.waited = true;
    if (acquisition.pollCount < acquisition.pollLimit) {
      pollOnce(acquisition);
    } else if (!goOnAfterTimeout(acquisition)) {
      return FileLockerResult::gaveUp;
    }
  }
}

// Removes the lock unless it is no longer the one that was last seen.
void CorvaneFileLocker::breakLock(Acquisition& acquisition) {
  acquisition.breakRequested = false;
  const std::optional<Dictionary> now = lockFileContentsDictionary();
  if (now && now != acquisition.lastSeen) return;
  try {
    removeLockFile();
    acquisition.stole = true;
  } catch (const PlatformException& exception) {
    systemLog("Ignoring exception %@ trying to remove lock to steal it: %@", exception.name(),
              exception.reason());
    // The same lock will be found again at once; without a pause here this would be a busy loop.
    Platform::current().clock.sleep(kPollIntervalMicroseconds / kMicrosecondsPerSecond);
  }
}

bool CorvaneFileLocker::makeLockDirectory() {
  const std::error_code error = Platform::current().files.makeDirectory(lockDirectoryPath(), kEverybody);
  if (!error) return true;
  if (error == std::errc::file_exists) return false;
  throw notAvailable(format("Can't get write lock on %@: %s", _path, error.message()));
}

// Before the timeout: a dead holder's lock is to be broken at once, anyone else's is waited for.
void CorvaneFileLocker::pollOnce(Acquisition& acquisition) {
  if (lockIsNotValid(pointerTo(acquisition.lastSeen))) {
    acquisition.breakRequested = true;
    return;
  }
  Platform::current().clock.sleep(kPollIntervalMicroseconds / kMicrosecondsPerSecond);
  ++acquisition.pollCount;
}

// After the timeout: whether to go on at all, and how. A break leaves the poll count at its limit, so that
// the question comes again right away if the lock was renewed meanwhile.
bool CorvaneFileLocker::goOnAfterTimeout(Acquisition& acquisition) {
  const unsigned attempt = acquisition.attemptCounter + 1;
  switch (actionForApparentlyAbandonedLock(pointerTo(acquisition.lastSeen), attempt)) {
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
  if (!_delegate || !_delegate->implementsActionForApparentlyAbandonedLock()) return FileLockerAction::giveUp;
  return _delegate->fileLockerActionForApparentlyAbandonedLock(*this, lockInfoForDelegate(*lockDictionary),
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
  throw notAvailable(format("Could not write lock info file for file in %@", _path));
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
  try {
    std::string contents;
    // Not being there is what happens between two holders, and any other error is as good as that.
    if (Platform::current().files.read(lockFilePath(), contents)) return std::nullopt;
    const Value top = readPropertyList(contents);
    if (const Dictionary* dictionary = top.as<Dictionary>()) return *dictionary;
  } catch (const PlatformException& exception) {
    systemLog("Exception %@: couldn't read lock file contents dictionary. Reason: %@", exception.name(),
              exception.reason());
  }
  return std::nullopt;
}

void CorvaneFileLocker::removeLockFile() {
  Platform& platform = Platform::current();
  const std::string lockDirectory = lockDirectoryPath();
  const std::error_code error = platform.files.remove(lockDirectory);
  if (!error || error == std::errc::no_such_file_or_directory) return;
  const std::string stale =
      format("%@/%@/%@-%@", _path, kStaleLockDirectoryName, kLockDirectoryName, platform.uuids.newUuid());
  if (createStaleLockDirectoryIfNeeded(_path) && !platform.files.rename(lockDirectory, stale)) return;
  throw notAvailable(format("Can't remove existing lock for %@", _path));
}

bool CorvaneFileLocker::createStaleLockDirectoryIfNeeded(const std::string& path) {
  return !makeDirectoryWithIntermediates(joinedPath(path, kStaleLockDirectoryName));
}

void CorvaneFileLocker::cleanupStaleLockDirectory() {
  Platform::current().files.remove(lockDirectoryPath());  // there is nobody to tell of a failure
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
    throw notAvailable(format("Cannot refresh lock for file in %@, lock is not currently held", _path));
  }
  if (!checkIfLockWasStolen()) writeLockFile();
}

void CorvaneFileLocker::unlock() {
  if (!_locked) return;
  if (!checkIfLockWasStolen()) {
    try {
      removeLockFile();
    } catch (const PlatformException& exception) {
      systemLog("Ignoring exception %@ trying to remove lock file: %@", exception.name(), exception.reason());
    }
  }
  _locked = false;
}

}  // namespace corvane
