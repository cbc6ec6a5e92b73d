// Taking in what the engine delivers, and placing the folders that were held aside.

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"

namespace corvane {

namespace {

// A record without a parent becomes a child of the root. A bookmark's parent is looked up under the
// folders' key too, since both relationships have one name.
Dictionary withParentFilledIn(const std::optional<Dictionary>& record) {
  Dictionary filled = record.value_or(Dictionary());
  if (!filled.array(LoomerRelationship_Bookmarks_Folder_Parent.view())) {
    filled.set(LoomerRelationship_Bookmarks_Folder_Parent, Array{kRootUid});
  }
  return filled;
}

// A collection for a trace line; nothing for an empty one, since the first change of a kind makes it.
std::optional<Dictionary> asDictionary(const SyncRecords& records) {
  if (records.empty()) return std::nullopt;
  Dictionary dictionary;
  for (const auto& record : records) dictionary.set(record.key, record.value);
  return dictionary;
}

// A change that names no record is taken in like any other, but there is nothing to file it under.
template <typename V>
void fileUnder(const String& identifier, V value, OrderedMap<V>& collection) {
  if (identifier) collection.set(identifier, std::move(value));
}

int answerUnknownType(const LoomerChange& change) {
  systemLog("Asked to apply a change that's not an add, modify, or delete: %@", change);
  return LoomerChangeError;
}

}  // namespace

int SessionDriverController::applyChange(const LoomerChange& change, const String& entityName,
                                         String& remappedRecordIdentifier, const Dictionary* formattedRecord,
                                         String& error) {
  return _applyChange(change, entityName, remappedRecordIdentifier, formattedRecord, error, false);
}

int SessionDriverController::_applyChange(const LoomerChange& change, const String& entityName,
                                          String& remappedRecordIdentifier,
                                          const Dictionary* /*formattedRecord*/, String& /*error*/,
                                          bool isDeleteAll) {
  _bookmarksChanged = true;
  const CorvaneBookmark* present = _currentBookmarkDictionary->find(change.recordIdentifier());
  if (present && present->isIgnoredBySync()) return LoomerChangeIgnored;
  const Dictionary record = withParentFilledIn(change.record());
  SCLog("applyChange (type = %d): called with record %@", change.type(), record);

  const bool isFolder = entityName == LoomerEntity_Bookmarks_Folder;
  const bool isBookmark = entityName == LoomerEntity_Bookmarks_Bookmark;
  if (isBookmark && !isDeleteAll && !_postProcessedFolders) _postProcessFolders();
  String newUid;
  if (change.type() == LoomerChangeTypeAdd) {
    newUid = Platform::current().uuids.newUuid();
    remappedRecordIdentifier = newUid;
  }
  if (isFolder) return _applyFolderChange(change, record, newUid);
  if (isBookmark) return _applyBookmarkChange(change, record, newUid);
  systemLog("I was asked to apply a change: %@ for an entity I don't sync: %@", change, entityName);
  return LoomerChangeError;
}

int SessionDriverController::_applyFolderChange(const LoomerChange& change, const Dictionary& record,
                                                const String& newUid) {
  const String& identifier = change.recordIdentifier();
  switch (change.type()) {
    case LoomerChangeTypeDelete:
      _deleteFromCurrent(identifier);
      _deletedFolders.push_back(identifier);
      return LoomerChangeAccepted;
    case LoomerChangeTypeModify:
      fileUnder(identifier, record, _modifiedFolders);
      return LoomerChangeAccepted;
    case LoomerChangeTypeAdd:
      fileUnder(identifier, newUid, _addedFolderGlobalToLocalIdMapper);
      _addedFolders.set(newUid, record);
      return LoomerChangeAccepted;
    default:
      return answerUnknownType(change);
  }
}

int SessionDriverController::_applyBookmarkChange(const LoomerChange& change, const Dictionary& record,
                                                  const String& newUid) {
  const String& identifier = change.recordIdentifier();
  switch (change.type()) {
    case LoomerChangeTypeDelete:
      _deleteFromCurrent(identifier);
      _deletedBookmarks.push_back(identifier);
      return LoomerChangeAccepted;
    case LoomerChangeTypeModify:
      _modifyCurrentBookmark(identifier, record);
      fileUnder(identifier, record, _modifiedBookmarks);
      return LoomerChangeAccepted;
    case LoomerChangeTypeAdd:
      // A bookmark is built from any record as things are; one that were not would not be filed.
      if (!CorvaneBookmarkRecord::bookmarkWithUid(newUid, record, *_currentBookmarkDictionary)) {
        return LoomerChangeRefused;
      }
      _addedBookmarks.set(newUid, record);
      return LoomerChangeAccepted;
    default:
      return answerUnknownType(change);
  }
}

// What was inside a folder stays in the map, listed by nobody.
void SessionDriverController::_deleteFromCurrent(const String& uid) {
  if (const CorvaneBookmark* bookmark = _currentBookmarkDictionary->find(uid)) {
    CorvaneBookmarkFolder* parent = _currentBookmarkDictionary->findFolder(bookmark->parentId());
    if (parent) parent->removeChild(*bookmark);
  }
  _currentBookmarkDictionary->remove(uid);
}

void SessionDriverController::_modifyCurrentBookmark(const String& uid, const Dictionary& record) {
  CorvaneBookmark* bookmark = _currentBookmarkDictionary->find(uid);
  if (!bookmark) return;
  if (!(bookmark->parentId() == parentInRecord(record, LoomerRelationship_Bookmarks_Bookmark_Parent))) {
    CorvaneBookmarkFolder* parent = _currentBookmarkDictionary->findFolder(bookmark->parentId());
    if (parent) parent->removeChild(*bookmark);
  }
  bookmark->updateWithVessynDictionary(record, *_currentBookmarkDictionary);
}

bool SessionDriverController::deleteAllRecordsForEntityName(const String& entityName, String& error) {
  SCLog("deleteAllRecordsForEntityName: %@", entityName);
  _bookmarksChanged = true;
  _pulledTheTruth = true;
  const bool folders = entityName == LoomerEntity_Bookmarks_Folder;
  if (!folders && !(entityName == LoomerEntity_Bookmarks_Bookmark)) {
    systemLog("I was asked to delete all records for an entity I don't sync: %@", entityName);
    return false;
  }
  for (const String& uid : _currentBookmarkDictionary->keys()) {
    if (!_isDeletedByDeleteAll(uid, folders)) continue;
    const LoomerChange change(LoomerChangeTypeDelete, uid, std::nullopt);
    String remapped;
    if (_applyChange(change, entityName, remapped, nullptr, error, true) != LoomerChangeAccepted)
      return false;
  }
  return true;
}

bool SessionDriverController::_isDeletedByDeleteAll(const String& uid, bool folders) const {
  if (uid == kRootUid) return false;
  const CorvaneBookmark* bookmark = _currentBookmarkDictionary->find(uid);
  if (!bookmark || bookmark->isIgnoredBySync()) return false;
  return folders ? bookmark->asFolder() != nullptr : bookmark->asRecord() != nullptr;
}

void SessionDriverController::_postProcessFolders() {
  SCLog("post-proccessing");
  SCLog("_currentBookmarkDictionary pre-post-process %@", *_currentBookmarkDictionary);
  _postProcessedFolders = true;
  for (auto& folder : _addedFolders) folder.value = _localIdRemappedFolderFromRecord(folder.value);
  for (auto& folder : _modifiedFolders) folder.value = _localIdRemappedFolderFromRecord(folder.value);
  _fillOutAddedFoldersTopDownKeys();
  for (const String& uid : _addedFoldersTopDownKeys) _applyHeldAsideFolder(*_addedFolders.find(uid), uid);
  for (const auto& folder : _modifiedFolders) _applyHeldAsideFolder(folder.value, folder.key);
  SCLog("_currentBookmarkDictionary post-post-process %@", *_currentBookmarkDictionary);
}

Dictionary SessionDriverController::_localIdRemappedFolderFromRecord(const Dictionary& record) const {
  Dictionary remapped = record;
  const String parent = folderParentInRecord(record);
  if (const String* uid = parent ? _addedFolderGlobalToLocalIdMapper.find(parent) : nullptr) {
    remapped.set(LoomerRelationship_Bookmarks_Folder_Parent, Array{*uid});
  }
  std::vector<Value> children;
  if (const Array* identifiers = record.array(LoomerRelationship_Bookmarks_Folder_Children.view())) {
    for (const Value& identifier : *identifiers) {
      const String* uid = _addedFolderGlobalToLocalIdMapper.find(identifier.string());
      children.push_back(uid ? Value(*uid) : identifier);
    }
  }
  if (!children.empty())
    remapped.set(LoomerRelationship_Bookmarks_Folder_Children, Array(std::move(children)));
  return remapped;
}

void SessionDriverController::_fillOutAddedFoldersTopDownKeys() {
  if (SCLogIsOn()) {
    const std::optional<Dictionary> added = asDictionary(_addedFolders);
    SCLog("_fillOutAddedFoldersTopDownKeys.  _addedFolders is %@", pointerTo(added));
  }
  TopDownFolders folders = topDownFolders(_addedFolders, *_currentBookmarkDictionary);
  for (const String& uid : folders.parentless) {
    systemLog("No parent specified for non-root folder.  Skipping %@", *_addedFolders.find(uid));
  }
  _addedFoldersTopDownKeys = std::move(folders.keys);
  if (!SCLogIsOn()) return;
  const std::vector<Value> keys(_addedFoldersTopDownKeys.begin(), _addedFoldersTopDownKeys.end());
  SCLog("_fillOutAddedFoldersTopDownKeys done.  keys == %@", Array(keys));
}

void SessionDriverController::_applyHeldAsideFolder(const Dictionary& record, const String& withLocalId) {
  SCLog("_applyHeldAsideFolder:%@ withLocalId:%@", record, withLocalId);
  BookmarkMap& map = *_currentBookmarkDictionary;
  const String parent = folderParentInRecord(record);
  if (parent && !map.findFolder(parent)) {
    systemLog(
        "Broken invariant: record %@ should have the parent of id %@ in the bookmark dictionary.  It does "
        "not.",
        record, parent);
    return;
  }
  if (!parent && !isNamedAsRoot(record)) {
    systemLog("No parent specified for non-root folder.  Skipping %@", record);
    return;
  }
  if (CorvaneBookmark* folder = map.find(parent ? withLocalId : kRootUid)) {
    _updateHeldAsideFolder(*folder, record, parent);
  } else {
    CorvaneBookmarkFolder::bookmarkWithUid(withLocalId, record, map);
  }
}

void SessionDriverController::_updateHeldAsideFolder(CorvaneBookmark& folder, const Dictionary& record,
                                                     const String& parent) {
  BookmarkMap& map = *_currentBookmarkDictionary;
  if (folder.parentId() && !(folder.parentId() == parent)) {
    CorvaneBookmarkFolder* presentParent = map.findFolder(folder.parentId());
    if (presentParent) presentParent->removeChild(folder);
  }
  folder.updateWithVessynDictionary(record, map);
}

}  // namespace corvane
