#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/session/TopDownFolders.h"

namespace corvane {

class CorvaneSyncManager;

/// What the sync engine talks to during one session of the bookmarks client. One object serves one session.
///
/// It offers the bookmarks as they were when the session began, takes in the changes that the engine
/// delivers, and has the sync manager save the outcome. Deletions and bookmark changes go to the working map
/// as they come. Folder additions and modifications are held aside, since a folder may come before its
/// parent; they are placed, parents first, at the first bookmark change or when all has been pulled. Every
/// change is filed besides, so that it can be replayed on the file as the browser left it if that changed
/// during the session.
///
/// Nothing here fails towards the engine except by a change's result and by a delete-all of an unknown
/// entity. What the manager's save raises passes through.
class SessionDriverController final : public LoomerSessionDriverDataSource {
 public:
  /// `initWithClientId:syncManager:` The manager is not owned, must outlive this object, and is asked for
  /// nothing but to save the bookmarks at the end of the session.
  SessionDriverController(String clientId, CorvaneSyncManager& syncManager);
  SessionDriverController(const SessionDriverController&) = delete;
  SessionDriverController& operator=(const SessionDriverController&) = delete;

  /// Gives the bookmarks as the session finds them, never null; the working map begins as these. The map
  /// already held changes nothing; it is shared because that can only be asked of a giver who still has it.
  void setOrigBookmarkDictionary(std::shared_ptr<const BookmarkMap> bookmarks);
  using MakeMap = std::function<std::unique_ptr<BookmarkMap>()>;
  /// Gives them by what makes them, never null, which is called when somebody asks for the first of them: a
  /// session that finds nothing new asks for none. What it raises passes through.
  void setOrigBookmarks(MakeMap make);
  /// The file's modification date when it was read; absent when it is not known.
  void setCurrentDiskModDate(std::optional<Date> date);
  /// Whether the engine delivered anything, even if it was ignored or refused.
  bool bookmarksChanged() const { return _bookmarksChanged; }
  /// Whether the engine asked to delete all records of an entity: its data replaces the client's.
  bool pulledTheTruth() const { return _pulledTheTruth; }
  /// The map that pulled changes go to; null before there is an original.
  const BookmarkMap* currentBookmarkDictionary() const {
    return _origBookmarkDictionary || _makeOriginal ? &_currentBookmarkDictionary() : nullptr;
  }

  /// `applyChangesToDictionary:` Replays all filed changes on `bookmarks`, a map of the file as it is now.
  /// Where it differs from the original, the browser's changes stand. Can be repeated on other maps.
  void applyChangesToDictionary(BookmarkMap& bookmarks);

  String clientIdentifier() override { return _clientId; }
  std::optional<Url> clientDescriptionURL() override;
  std::vector<Url> schemaBundleURLs() override;
  /// Folders, then bookmarks.
  std::vector<String> entityNamesToSync() override;
  /// Refresh without a date of the last sync; fast when the file is no newer than that; slow otherwise. The
  /// entity is not looked at.
  int preferredSyncModeForEntityName(const String& entityName) override;
  double sessionBeginSessionTimeout() override { return 60.0; }
  double sessionPullChangesTimeout() override { return 600.0; }
  /// All at once: the folders of the original map, or for any other entity its bookmarks; never those that
  /// are ignored by sync.
  Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  /// False with the diagnostic log on, which shows the records in one line.
  bool giveRecords(const String& entityName, const TakeRecord& take) override;
  /// Always none: a session over a changed file is a slow one.
  Dictionary changedRecordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  /// Of the nodes of the original map, in its order. Nothing where giving the records says something: in the
  /// trace, or in the system log of an address that is none.
  std::optional<std::vector<std::uint64_t>> recordDigests(const HashKey& key) override;
  Dictionary recordsAt(const String& entityName, const std::vector<std::size_t>& places) override;
  /// `formattedRecord` is not used and `error` never written.
  int applyChange(const LoomerChange& change, const String& entityName, String& remappedRecordIdentifier,
                  const Dictionary* formattedRecord, String& error) override;
  /// Empties the entity but for the root folder and what is ignored by sync; false, with a line in the system
  /// log, for an entity that is not synced.
  bool deleteAllRecordsForEntityName(const String& entityName, String& error) override;
  /// Whether the file is still the one that was read.
  bool isUpToDate() override;
  /// Reads the file again. False, with the cause in the system log, when it cannot be read.
  bool readAgain() override;
  bool sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverDidPull(LoomerSessionDriver& driver, String& error) override;
  /// Saves what changed and keeps the new file's date with the client; what the save raises passes through,
  /// and the date stays. When nothing changed, the date that the client has stays, and one that has none gets
  /// the date of the file as it was read.
  bool sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& error) override;
  void sessionDriverWillCancelSession(LoomerSessionDriver& driver) override;

 private:
  using Uids = std::vector<String>;

  /// The entity's records, each with its uid.
  template <typename Take>
  void _eachRecord(const String& entityName, Take take) const;
  /// The nodes that the engine hears of: those that are ignored by sync, and the root, are none.
  template <typename Take>
  void _eachSyncedNode(Take take) const;

  /// The working map, to be changed: made when it is first asked for, since most sessions change nothing.
  BookmarkMap& _currentBookmarkDictionary() const;
  /// What the working map says, to be read.
  const BookmarkMap& _presentMap() const { return _workingMap ? *_workingMap : _original(); }
  /// The bookmarks as the session found them.
  const BookmarkMap& _original() const;

  // Taking changes in.
  void _delete(const String& uid, bool isFolder);
  void _modifyCurrentBookmark(const String& uid, const Dictionary& record);

  // Placing the folders that were held aside, in the working map.
  void _postProcessFolders();
  /// The record with the engine's identifiers of added folders, as its parent and children, replaced by local
  /// uids.
  Dictionary _localIdRemappedFolderFromRecord(const Dictionary& record) const;
  void _fillOutAddedFoldersTopDownKeys();
  void _applyHeldAsideFolder(const Dictionary& record, const String& withLocalId);

  // Replaying filed changes on another map. Which of the collections is given
  // distinguishes folders from bookmarks.
  void _applyDeletedRecords(const Uids& uids, BookmarkMap& toDict);
  void _applyAddedRecords(const SyncRecords& records, BookmarkMap& toDict);
  void _applyModifiedRecords(const SyncRecords& records, BookmarkMap& toDict);
  void _deleteReplayed(const String& uid, BookmarkMap& map);
  void _addReplayed(const String& uid, const Dictionary& record, bool folder, BookmarkMap& map);
  void _modifyReplayed(const String& uid, const Dictionary& record, const String& newParent,
                       BookmarkMap& map);
  bool _isToBeMoved(const CorvaneBookmark& bookmark, const CorvaneBookmark* original, const String& newParent,
                    const BookmarkMap& map) const;
  void _moveReplayed(CorvaneBookmark& bookmark, const CorvaneBookmark* original, const String& newParent,
                     BookmarkMap& map);

  String _clientId;
  bool _bookmarksChanged = false;
  bool _postProcessedFolders = false;
  bool _pulledTheTruth = false;
  mutable std::shared_ptr<const BookmarkMap> _origBookmarkDictionary;
  mutable MakeMap _makeOriginal;                     // empty once it is made
  mutable std::unique_ptr<BookmarkMap> _workingMap;  // null as long as it is as the original
  OrderedMap<String>
      _addedFolderGlobalToLocalIdMapper;  // the engine's identifier → the local uid given for it
  std::optional<Date> _currentDiskModDate;
  std::optional<Date> _modDateOnLastSync;
  CorvaneSyncManager& _syncManager;
  Uids _deletedFolders;
  Uids _deletedBookmarks;
  SyncRecords _addedFolders;
  SyncRecords _modifiedFolders;
  SyncRecords _addedBookmarks;
  SyncRecords _modifiedBookmarks;
  Uids _addedFoldersTopDownKeys;
};

}  // namespace corvane
