#include "CorvaneSyncClient/store/CorvanePlistManager.h"

#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane {

namespace {

constexpr const char* kSaveBackupsDefault = "SaveCorvaneBookmarksBackupFiles";
constexpr const char* kNotificationName = "CorvaneBookmarkFileNotificationName";
constexpr double kLockTimeoutSeconds = 10.0;
constexpr int kBackups = 5;
constexpr unsigned kOwnerWrites = 0755;

std::optional<FileAttributes> attributesIfKnown(const std::string& path) {
  return Platform::current().files.attributesIfKnown(path);
}

bool isFile(const std::string& path) {
  const auto attributes = attributesIfKnown(path);
  return attributes && attributes->kind != FileKind::directory;
}

double secondsOf(const std::optional<Date>& date) { return date ? date->seconds : 0.0; }

// The number under `key`, booleans as 1 and 0; null for anything else.
const Value* numberIn(const Dictionary& dictionary, const char* key) {
  const Value* value = dictionary.find(key);
  return value && value->isNumber() ? value : nullptr;
}

void reportUnreadable(const std::string& path, const std::string& cause) {
  systemLog("Could not read bookmarks file %@: %@", path, cause);
}

void postChange() {
  Platform& platform = Platform::current();
  const auto reason = platform.notifications.post(kNotificationName, platform.process.userName());
  if (reason) SCLog("Could not post %@: %@", kNotificationName, *reason);
}

}  // namespace

std::string howToMakeBookmarksFile(const std::string& path) {
  return "A file without bookmarks is made by: echo '{}' > \"" + path + '"';
}

CorvanePlistManager::CorvanePlistManager(std::string directory, std::string filename)
    : _directory(std::move(directory)),
      _filename(std::move(filename)),
      _path(format("%@/%@", _directory, _filename)) {
  if (attributesIfKnown(_directory)) return;
  const std::error_code error = Platform::current().files.makeDirectory(_directory, kOwnerWrites);
  if (!error || error == std::errc::file_exists) return;
  throw PlatformException(NSObjectNotAvailableException,
                          format(localized("Can't create directory %@: %s."), _directory, error.message()));
}

std::optional<Dictionary> CorvanePlistManager::dictionary() {
  _readDictionary();
  return _dictionary;
}

// The date is taken before the contents are read: a write that lands between the two makes the next save look
// modified, which costs a merge and never an update.
void CorvanePlistManager::_readDictionary() {
  FileSystem& files = Platform::current().files;
  std::error_code error;
  const auto attributes = files.attributes(resolvedOneLevel(files, _path), error);
  if (!attributes) {
    if (error != std::errc::no_such_file_or_directory) reportUnreadable(_path, error.message());
    return;
  }
  _modificationDate = attributes->modificationDate;
  SCLog("read bookmarks at %@ with mod date %@ (%24.18f)", _path, *_modificationDate,
        _modificationDate->seconds);
  _loadContents();
}

void CorvanePlistManager::_loadContents() {
  _dictionary.reset();  // before the new one is there, so that two need not fit into memory
  std::string contents;
  if (const std::error_code error = Platform::current().files.read(_path, contents)) {
    reportUnreadable(_path, error.message());
    return;
  }
  if (contents.empty()) {
    // Not one that lost everything: nobody writes a property list that way.
    reportUnreadable(_path, "it is empty, which is no property list. " + howToMakeBookmarksFile(_path));
    return;
  }
  try {
    const Value top = readPropertyList(contents);
    if (const Dictionary* dictionary = top.as<Dictionary>()) {
      _dictionary = *dictionary;
    } else {
      reportUnreadable(_path, format("it holds a value of type %@ in place of a dictionary", top.typeName()));
    }
  } catch (const PropertyListException& exception) {
    reportUnreadable(_path, exception.reason());
  }
}

bool CorvanePlistManager::hasChangedSinceRead() const {
  const auto attributes = attributesIfKnown(resolvedOneLevel(Platform::current().files, _path));
  return attributes && attributes->modificationDate != _modificationDate;
}

std::optional<Date> CorvanePlistManager::saveBookmarks(const Dictionary* bookmarks, bool checkIfModified,
                                                       const BeforeReplacing& beforeReplacing) {
  const bool saveBackups = Platform::current().preferences.booleanUserDefault(kSaveBackupsDefault);
  CorvaneFileLocker locker(_directory, this, kLockTimeoutSeconds);
  if (locker.lock() == FileLockerResult::gaveUp) {
    throw PlatformException(
        NSObjectNotAvailableException,
        format(localized("Could not save bookmarks file, could not get directory lock for %@."), _directory));
  }
  Save save{.backUp = saveBackups, .beforeReplacing = beforeReplacing};
  _saveGuarded(bookmarks, checkIfModified, save);
  locker.unlock();
  if (save.notify) postChange();
  if (save.raised) std::rethrow_exception(save.raised);
  return save.date;
}

void CorvanePlistManager::_saveGuarded(const Dictionary* bookmarks, bool checkIfModified, Save& save) {
  try {
    _save(bookmarks, checkIfModified, save);
  } catch (const PlatformException& exception) {
    SCLog("Exception %@ occured trying to save bookmarks: %@", exception.name(), exception.reason());
    save.raised = std::current_exception();
  } catch (...) {
    save.raised = std::current_exception();  // memory that ran out, for one: the lock must not stay behind
  }
}

// `save.notify` says at every point what an exception there means for others: while the date is looked at,
// and the old file kept, nothing can have changed, from the backups on something may have.
void CorvanePlistManager::_save(const Dictionary* bookmarks, bool checkIfModified, Save& save) {
  const std::string target = resolvedOneLevel(Platform::current().files, _path);
  save.notify = false;
  if (checkIfModified && !_isUnchanged(target)) return;
  if (save.beforeReplacing) save.beforeReplacing(_path);
  save.notify = true;
  if (save.backUp) _saveBackups();
  save.notify = _write(bookmarks);
  if (!save.notify) return;
  const auto attributes = attributesIfKnown(target);
  save.date = attributes ? attributes->modificationDate : Platform::current().clock.now();
}

bool CorvanePlistManager::_isUnchanged(const std::string& target) const {
  const auto attributes = attributesIfKnown(target);
  std::optional<Date> date;
  if (attributes) date = attributes->modificationDate;
  SCLog("SaveBookmarks: mod date %@ (%24.18f), attribute date is %@ (%24.18f)", pointerTo(_modificationDate),
        secondsOf(_modificationDate), pointerTo(date), secondsOf(date));
  return date == _modificationDate;
}

bool CorvanePlistManager::_write(const Dictionary* bookmarks) const {
  if (bookmarks && _writeContents(*bookmarks)) return true;
  systemLog("SaveBookmarks - error trying to serialize the following: %@", bookmarks);
  return false;
}

// The line that follows a failure may be as long as the file; the one written here says why.
bool CorvanePlistManager::_writeContents(const Dictionary& bookmarks) const {
  std::string cause;
  try {
    const std::error_code error =
        Platform::current().files.writeAtomically(_path, writeBinaryPropertyList(bookmarks));
    if (!error) return true;
    cause = error.message();
    // The new file stands: whoever took it for not written would apply the same changes to it again.
    if (error.category() == notDurableCategory()) {
      throw PlatformException(NSGenericException,
                              format("Could not write bookmarks file %@: %@", _path, cause));
    }
  } catch (const PropertyListException& exception) {
    cause = exception.reason();
  }
  systemLog("Could not write bookmarks file %@: %@", _path, cause);
  return false;
}

std::string CorvanePlistManager::_backupPath(int number) const {
  return format("%@/backup/%@_%d.plist", _directory, _filename, number);
}

// Number 1 becomes the contents that the save is about to replace. A backup is a convenience: none of its
// failures keeps the save from going on.
void CorvanePlistManager::_saveBackups() const {
  FileSystem& files = Platform::current().files;
  const std::string directory = format("%@/backup", _directory);
  if (const auto attributes = attributesIfKnown(directory)) {
    if (attributes->kind != FileKind::directory) return;
  } else if (files.makeDirectory(directory, kDefaultDirectoryMode)) {
    return;
  }
  for (int number = kBackups - 1; number >= 1; --number) {
    if (isFile(_backupPath(number))) files.rename(_backupPath(number), _backupPath(number + 1));
  }
  files.copy(_path, _backupPath(1));
}

FileLockerAction CorvanePlistManager::fileLockerActionForApparentlyAbandonedLock(CorvaneFileLocker&,
                                                                                 const Dictionary&,
                                                                                 unsigned) {
  return FileLockerAction::giveUp;
}

void CorvanePlistManager::fileLockerLockWasStolen(CorvaneFileLocker&, const Dictionary* lockInfo) {
  if (!lockInfo) {
    throw PlatformException(
        NSGenericException,
        format(localized("File lock for %@ was stolen by another process, any modifications made during "
                         "this sync may have been overwritten."),
               _directory));
  }
  const std::optional<Date> date = lockInfo->date(kLockFileDate);
  throw PlatformException(
      NSGenericException,
      format(localized("File lock for %@ was stolen at %@ by %@ on host %@ with pid %@, any "
                       "modifications made during this sync may have been overwritten."),
             _directory, pointerTo(date), lockInfo->string(kLockFileProcessName),
             lockInfo->string(kLockFileHostname), numberIn(*lockInfo, kLockFileProcessID)));
}

}  // namespace corvane
