#include "CorvaneSyncClient/store/CorvanePlistManager.h"

#include <exception>

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

// Absent when it is not known.
std::optional<Date> bookmarksDateOf(const std::string& path) {
  const auto attributes = attributesIfKnown(path);
  return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
}

double secondsOf(const std::optional<Date>& date) { return date ? date->seconds : 0.0; }

// The value under `key` when it is a number or a boolean; null for anything else.
const Value* numberIn(const Dictionary& dictionary, const char* key) {
  const Value* value = dictionary.find(key);
  return value && value->isNumber() ? value : nullptr;
}

void reportUnreadable(const std::string& path, const Message& cause) {
  reportProblem(Message("Could not read bookmarks file %1: %2", path, cause));
}

void reportUnwritable(const std::string& path, const Message& cause) {
  reportProblem(Message("Could not write bookmarks file %1: %2", path, cause));
}

// The dictionary that a file's bytes hold; nothing, with the cause in the system log, when they hold none.
std::optional<Dictionary> dictionaryIn(std::string_view contents, const std::string& path) {
  try {
    const Value top = readPropertyList(contents);
    if (const Dictionary* dictionary = top.as<Dictionary>()) return *dictionary;
    reportUnreadable(path, Message("it holds a value of type %1 in place of a dictionary", top.typeName()));
  } catch (const PropertyListException& exception) {
    reportUnreadable(path, exception.message());
  }
  return std::nullopt;
}

// Whether the file was written; if not, the system log says why, but for null. Raises where the new file
// stands but may not last: a caller who took it for not written would apply the same changes to it again.
bool isWritten(const Dictionary* bookmarks, const std::string& path) {
  if (!bookmarks) return false;
  try {
    const std::error_code error = Platform::current().files.writeAtomically(
        path, [bookmarks](const TakeBytes& take) { writeBinaryPropertyList(*bookmarks, take); });
    if (!error) return true;
    if (error.category() == notDurableCategory()) {
      throw PlatformException(NSGenericException,
                              Message("Could not write bookmarks file %1: %2", path, error.message()));
    }
    reportUnwritable(path, error.message());
  } catch (const PropertyListException& exception) {
    reportUnwritable(path, exception.message());
  }
  return false;
}

void postChange() {
  Platform& platform = Platform::current();
  const auto reason = platform.notifications.post(kNotificationName, platform.process.userName());
  if (reason) SCLog("Could not post %@: %@", kNotificationName, *reason);
}

}  // namespace

Message howToMakeBookmarksFile(const std::string& path) {
  return Message("A file without bookmarks is made by: echo '{}' > \"%1\"", path);
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

// The date is taken before the contents are read: a write that lands between the two makes the next save look
// modified, which costs a merge and never an update.
std::optional<Dictionary> CorvanePlistManager::dictionary() {
  FileSystem& files = Platform::current().files;
  std::error_code error;
  const auto attributes = files.attributes(resolvedOneLevel(files, _path), error);
  if (!attributes) {
    if (error != std::errc::no_such_file_or_directory) reportUnreadable(_path, error.message());
    return _dictionary;
  }
  _modificationDate = attributes->modificationDate;
  SCLog("read bookmarks at %@ with mod date %@ (%24.18f)", _path, *_modificationDate,
        _modificationDate->seconds);
  _dictionary.reset();  // before the new one is there, so that two need not fit into memory
  std::string contents;
  if ((error = files.read(_path, contents))) {
    reportUnreadable(_path, error.message());
  } else if (contents.empty()) {
    // Not a file that lost everything: nobody writes an empty property list that way.
    reportUnreadable(
        _path, sentences(Message("it is empty, which is no property list."), howToMakeBookmarksFile(_path)));
  } else {
    _dictionary = dictionaryIn(contents, _path);
  }
  return _dictionary;
}

bool CorvanePlistManager::hasChangedSinceRead() const {
  const auto date = bookmarksDateOf(resolvedOneLevel(Platform::current().files, _path));
  return date && date != _modificationDate;
}

std::optional<Date> CorvanePlistManager::saveBookmarks(const Dictionary* bookmarks, bool checkIfModified,
                                                       const BeforeReplacing& beforeReplacing) {
  Platform& platform = Platform::current();
  const bool backUp = platform.preferences.booleanUserDefault(kSaveBackupsDefault);
  CorvaneFileLocker locker(_directory, this, kLockTimeoutSeconds);
  if (locker.lock() == FileLockerResult::gaveUp) {
    throw PlatformException(
        NSObjectNotAvailableException,
        format(localized("Could not save bookmarks file, could not get directory lock for %@."), _directory));
  }
  std::optional<Date> date;
  std::exception_ptr raised;
  // At every step, whether others have to look at the file if the step raises: nothing can have changed while
  // the date is compared and the old file kept; from the backups on something may have.
  bool notify = true;
  try {
    const std::string target = resolvedOneLevel(platform.files, _path);
    notify = false;
    if (!checkIfModified || _isUnchanged(target)) {
      if (beforeReplacing) beforeReplacing(_path);
      notify = true;
      if (backUp) _saveBackups();
      notify = isWritten(bookmarks, _path);
      if (notify) {
        date = bookmarksDateOf(target);
        if (!date) date = platform.clock.now();
      } else {
        systemLog("SaveBookmarks - error trying to serialize the following: %@", bookmarks);
      }
    }
  } catch (const PlatformException& exception) {
    SCLog("Exception %@ occured trying to save bookmarks: %@", exception.name(), exception.reason());
    raised = std::current_exception();
  } catch (...) {
    raised = std::current_exception();  // when memory runs out, for one: the lock must not stay behind
  }
  locker.unlock();
  if (notify) postChange();
  if (raised) std::rethrow_exception(raised);
  return date;
}

bool CorvanePlistManager::_isUnchanged(const std::string& target) const {
  const std::optional<Date> date = bookmarksDateOf(target);
  SCLog("SaveBookmarks: mod date %@ (%24.18f), attribute date is %@ (%24.18f)", pointerTo(_modificationDate),
        secondsOf(_modificationDate), pointerTo(date), secondsOf(date));
  return date == _modificationDate;
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
  const auto backup = [&](int number) { return format("%@/%@_%d.plist", directory, _filename, number); };
  for (int number = kBackups - 1; number >= 1; --number) {
    if (isFile(backup(number))) files.rename(backup(number), backup(number + 1));
  }
  files.copy(_path, backup(1));
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
