#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

class CorvanePlistManager;
class SessionDriverController;

/// What the system log says of a session that failed, with the engine's error in it.
inline constexpr MessageText<1> kSessionFailed =
    MessageText<1>("Corvane Sync Client got the following error when attempting a sync: %1");

/// Drives one bookmarks sync run of one client id: reads and checks the browser's file, runs one session of
/// the sync engine over it, and writes the merged bookmarks back when the session's data source asks for it.
///
/// The client "com.keldra.Corvane" syncs "Bookmarks.plist"; "com.keldra.Corvane.FILE" is a test client that
/// syncs FILE, which must exist. Made once per run. Raises PlatformException out of `sync`; see there.
class CorvaneSyncManager {
 public:
  /// Called before each save with the working map and the path of the bookmarks file.
  using UnitTestCallback = std::function<void(const BookmarkMap& bookmarks, const std::string& path)>;

  /// `initWithClientId:` The file's directory is "Library/Corvane" in the user's home directory.
  static std::unique_ptr<CorvaneSyncManager> initWithClientId(const String& clientId);
  /// `initWithClientId:inDirectory:` None for an id of neither form and for a test client without a file; a
  /// log says which. For the main client, a missing file is made, as an empty dictionary, and so is its
  /// directory; a file that may be there but cannot be looked at is left alone. Raises
  /// NSObjectNotAvailableException when there is no directory and none can be made.
  static std::unique_ptr<CorvaneSyncManager> initWithClientId(const String& clientId,
                                                              const std::string& inDirectory);
  ~CorvaneSyncManager();
  CorvaneSyncManager(const CorvaneSyncManager&) = delete;
  CorvaneSyncManager& operator=(const CorvaneSyncManager&) = delete;

  /// One sync run; whether its session succeeded. False, too, when the file holds no dictionary; a session
  /// that fails is a line in the system log.
  ///
  /// Raises "CorvaneBookmarksUnknownVersionException" for a file of a version that is not known here, before
  /// any session, and passes on what `saveBookmarks`, the engine and the file store raise.
  bool sync();

  /// Reads the file and gives its tree and its date to the session's data source. False when the file cannot
  /// be read. Raises "CorvaneBookmarksUnknownVersionException" for a version that is not known here.
  bool readBookmarks();
  /// Whether the file that was read last is of an earlier version than this program's own. It is synced all
  /// the same.
  bool isOfOldVersion() const;
  /// What a session asks for the bookmarks that were read last.
  SessionDriverController& dataSource() { return *_driverController; }
  /// Whether the file is still the one that was read last; one that cannot be looked at counts as such.
  bool isUpToDate() const;

  /// `saveBookmarks:checkIfModified:` Writes the tree of `bookmarks` to the file and answers the file's new
  /// modification date, or raises. The second argument is not used: the file's date is checked unless the
  /// engine has replaced all records.
  ///
  /// When the file changed meanwhile, it is read again, the session's pulled changes are replayed on it and
  /// the result is saved, up to ten saves in all. A file that loses entries by that, since they were skipped
  /// when it was read, is kept beside the engine's store first (see keepFileOfSkippedEntries). Raises
  /// "CorvaneSyncClientSaveException" after the tenth, "CorvaneBookmarksCannotSaveException" when an
  /// unchecked save fails, and "CorvaneBookmarksInvalidException" when the changed file cannot be mapped;
  /// passes on what the file store raises.
  Date saveBookmarks(const BookmarkMap& bookmarks, bool checkIfModified);

  /// Whether the feed agent is left asleep after a session; it is woken unless somebody sets this.
  void _setIsPrivateSync(bool isPrivateSync) { _isPrivateSync = isPrivateSync; }
  /// `callback` is not owned and must outlive the manager; null for none.
  void _setUnitTestCallback(const UnitTestCallback* callback) { _unitTestCallback = callback; }

 private:
  explicit CorvaneSyncManager(String clientId);

  bool _findOrMakeBookmarksFile(const std::string& directory, const std::string& fileName);
  /// Says in the system log why a test client has no file, and how to make one.
  void _reportMissingFile(const std::string& path, const std::string& fileName, bool isDirectory);
  /// Whether the directory is there now.
  bool _makeDirectory(const std::string& directory);
  void _makeBookmarksFile(const std::string& path);

  /// Raises "CorvaneBookmarksUnknownVersionException" unless the file's version is one that can be synced,
  /// which then becomes the process's current one.
  void _checkAndSetBookmarkFileVersion(const Dictionary& bookmarks);
  /// Builds the tree of a file's contents. Raises "CorvaneBookmarksInvalidException" when it cannot be built,
  /// which is so when there are no contents.
  std::unique_ptr<BookmarkMap> _mapBookmarks(const std::optional<Dictionary>& bookmarks);

  /// The file's contents for the trace; nothing while it is off, or for a map without a root.
  std::optional<Dictionary> _tracedContents(const BookmarkMap& map) const;
  /// One attempt to save the tree: its contents, which take as much memory, are made when nothing speaks
  /// against writing them any more, if they are not `traced`. The new date, or nothing where the file changed
  /// or could not be written.
  std::optional<Date> _trySaving(const BookmarkMap& map, std::optional<Dictionary> traced);

  std::string _corvaneBookmarksInvalidMessage();

  /// Wakes the feed agent.
  void _notifyInterestedParties();

  std::unique_ptr<CorvanePlistManager> _plistManager;
  std::unique_ptr<SessionDriverController> _driverController;
  String _clientId;
  bool _isPrivateSync = false;
  const UnitTestCallback* _unitTestCallback = nullptr;
};

}  // namespace corvane
