#pragma once

#include <functional>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/store/CorvaneFileLocker.h"

namespace corvane {

/// A sentence for people on how to make a bookmarks file at `path`.
Message howToMakeBookmarksFile(const std::string& path);

/// Reads and saves one bookmarks file, whose contents are opaque here.
///
/// Writers that honour the directory's lock take turns. Writers that do not, the browser for one, are noticed
/// by the file's modification date: a save can be refused when the date is not the one of the last read.
/// Readers never see a half-written file, and what was saved is durable. Not noticed: a writer without the
/// lock that comes between the look at the date and the rename, or within one tick of the file system's
/// clock.
///
/// When the user default "SaveCorvaneBookmarksBackupFiles" is true, a save first copies the old file to
/// "backup/NAME_1.plist" in the same directory, and shifts earlier copies on up to number 5.
///
/// Raises PlatformException only, but for what the standard library raises (std::bad_alloc). For one thread;
/// outlives its lockers, each of which lives for one save.
class CorvanePlistManager final : public CorvaneFileLockerDelegate {
 public:
  /// `initWithDirectory:filename:` Makes the directory if nothing stands there (one level, mode 0755). Raises
  /// NSObjectNotAvailableException "Can't create directory %@: %s." when it cannot be made.
  CorvanePlistManager(std::string directory, std::string filename);
  CorvanePlistManager(const CorvanePlistManager&) = delete;
  CorvanePlistManager& operator=(const CorvanePlistManager&) = delete;

  /// Reads the file now and answers its contents, of any property-list flavour. A file that is not there
  /// leaves what was read before (absent at first). A file that cannot be read, is no property list or holds
  /// no dictionary makes the contents absent, and the system log says which file and why.
  std::optional<Dictionary> dictionary();

  /// The file's modification date just before the last `dictionary` read its contents; absent before the
  /// first read of a file that is there. Saving does not change it.
  std::optional<Date> modificationDate() const { return _modificationDate; }

  /// Whether the file has another modification date by now. Not so where it cannot be looked at: saving will
  /// tell.
  bool hasChangedSinceRead() const;

  /// The file's path: of the symbolic link, where it is one.
  const std::string& path() const { return _path; }

  /// Called under the lock with the path of the file that is about to be replaced, which is known to be the
  /// one that was read if that was asked for. What it raises ends the save with nothing written.
  using BeforeReplacing = std::function<void(const std::string& path)>;

  /// `saveBookmarks:checkIfModified:` Replaces the file by a binary property list of `bookmarks`, under the
  /// lock, and notifies other processes of the user with "CorvaneBookmarkFileNotificationName".
  /// Answers the new file's modification date.
  ///
  /// Absent, with nothing written: with `checkIfModified`, the file is not the one that `dictionary` last
  /// read (changed, vanished or new); or the file could not be written, or `bookmarks` holds what no property
  /// list can hold, or is null because no dictionary could be made. The latter three are lines in the system
  /// log.
  ///
  /// Raises NSObjectNotAvailableException when the lock cannot be had within ten seconds, and
  /// NSGenericException when it was stolen meanwhile, by then with the file written. What is raised while
  /// checking, backing up and writing, of whatever type, passes through once the lock is given up.
  ///
  /// A symbolic link at the path is itself replaced by a regular file, while dates are those of the link's
  /// old target.
  std::optional<Date> saveBookmarks(const Dictionary* bookmarks, bool checkIfModified,
                                    const BeforeReplacing& beforeReplacing = nullptr);

  bool implementsActionForApparentlyAbandonedLock() const override { return true; }
  bool implementsLockWasStolen() const override { return true; }
  /// Always to give up.
  FileLockerAction fileLockerActionForApparentlyAbandonedLock(CorvaneFileLocker& locker,
                                                              const Dictionary& lockInfo,
                                                              unsigned attempt) override;
  /// Raises NSGenericException, naming the thief when `lockInfo` does. Never returns.
  void fileLockerLockWasStolen(CorvaneFileLocker& locker, const Dictionary* lockInfo) override;

 private:
  bool _isUnchanged(const std::string& target) const;
  void _saveBackups() const;

  const std::string _directory;
  const std::string _filename;
  const std::string _path;
  std::optional<Date> _modificationDate;
  std::optional<Dictionary> _dictionary;
};

}  // namespace corvane
