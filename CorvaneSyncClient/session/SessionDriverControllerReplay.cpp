// Replaying the filed changes on a map of the file as the browser left it.

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"

namespace corvane {

namespace {

// As objects are compared: an absent id never equals anything, not even another absent one.
bool areEqualIds(const String& a, const String& b) { return a && b && a == b; }

String parentIdOf(const CorvaneBookmark* bookmark) { return bookmark ? bookmark->parentId() : String(); }

}  // namespace

void SessionDriverController::applyChangesToDictionary(BookmarkMap& bookmarks) {
  _applyDeletedRecords(_deletedFolders, bookmarks);
  _applyDeletedRecords(_deletedBookmarks, bookmarks);
  _applyAddedRecords(_addedFolders, bookmarks);
  _applyModifiedRecords(_modifiedFolders, bookmarks);
  _applyAddedRecords(_addedBookmarks, bookmarks);
  _applyModifiedRecords(_modifiedBookmarks, bookmarks);
}

void SessionDriverController::_applyDeletedRecords(const Uids& uids, BookmarkMap& toDict) {
  for (const String& uid : uids) _deleteReplayed(uid, toDict);
}

void SessionDriverController::_deleteReplayed(const String& uid, BookmarkMap& map) {
  SCLog("%@ - apply delete called for bookmark with uid %@", _clientId, uid);
  const CorvaneBookmark* bookmark = map.find(uid);
  if (!bookmark) {
    SCLog("%@ - can't delete bookmark with uid %@, can't find bookmark in map", _clientId, uid);
    return;
  }
  const CorvaneBookmark* original = _original().find(uid);
  if (!original) {
    SCLog("%@ - can't find original bookmark with uid %@, will try to remove with impunity", _clientId, uid);
  } else if (!(uid == kRootUid) && bookmark->asRecord() && !original->isEqual(*bookmark)) {
    SCLog(
        "%@ - attribute(s) changed for bookmark record with uid %@ in Corvane, so will not delete. Original "
        "bookmark %@, Corvane bookmark %@",
        _clientId, uid, *original, *bookmark);
    return;
  }
  if (CorvaneBookmarkFolder* parent = map.findFolder(bookmark->parentId())) {
    parent->removeChild(*bookmark);
  } else {
    SCLog("%@ - can't delete bookmark with uid %@ from parent, parent with uid %@ not found", _clientId, uid,
          bookmark->parentId());
  }
  map.remove(uid);
}

void SessionDriverController::_applyAddedRecords(const SyncRecords& records, BookmarkMap& toDict) {
  if (&records == &_addedFolders) {
    for (const String& uid : _addedFoldersTopDownKeys) _addReplayed(uid, *records.find(uid), true, toDict);
  } else {
    for (const auto& record : records) _addReplayed(record.key, record.value, false, toDict);
  }
}

void SessionDriverController::_addReplayed(const String& uid, const Dictionary& record, bool folder,
                                           BookmarkMap& map) {
  SCLog("%@ - apply add called for bookmark with uid %@", _clientId, uid);
  const CorvaneBookmark* added = nullptr;
  if (folder) {
    added = CorvaneBookmarkFolder::bookmarkWithUid(uid, record, map);
  } else {
    added = CorvaneBookmarkRecord::bookmarkWithUid(uid, record, map);
  }
  if (!added) {
    SCLog("%@ - skipping apply of add for bookmark with nil uid", _clientId);
    return;
  }
  SCLog("uid: %@ has parent %@", uid, added->parentId());
  SCLog("dictOnDisk now looks like %@", map);
  if (!map.findFolder(added->parentId())) {
    SCLog("%@ - can't add bookmark with uid %@ to parent, parent with uid %@ not found", _clientId, uid,
          added->parentId());
  }
}

void SessionDriverController::_applyModifiedRecords(const SyncRecords& records, BookmarkMap& toDict) {
  const String& parentKey = &records == &_modifiedFolders ? LoomerRelationship_Bookmarks_Folder_Parent
                                                          : LoomerRelationship_Bookmarks_Bookmark_Parent;
  for (const auto& record : records) {
    _modifyReplayed(record.key, record.value, parentInRecord(record.value, parentKey), toDict);
  }
}

void SessionDriverController::_modifyReplayed(const String& uid, const Dictionary& record,
                                              const String& newParent, BookmarkMap& map) {
  CorvaneBookmark* bookmark = map.find(uid);
  if (!bookmark) {
    SCLog("%@ - can't apply changes to bookmark with uid %@, bookmark object not found", _clientId, uid);
    return;
  }
  const CorvaneBookmark* original = _original().find(uid);
  if (_isToBeMoved(*bookmark, original, newParent, map)) _moveReplayed(*bookmark, original, newParent, map);
  bookmark->applyChangesFromVessynDictionary(record, original, map);
}

// Where the browser moved the bookmark too, its move wins.
bool SessionDriverController::_isToBeMoved(const CorvaneBookmark& bookmark, const CorvaneBookmark* original,
                                           const String& newParent, const BookmarkMap& map) const {
  const String& uid = bookmark.uid();
  if (!map.findFolder(newParent) && !(uid == kRootUid)) {
    SCLog("%@ - can't apply changes to bookmark with uid %@, parent not found", _clientId, uid);
    return false;
  }
  if (areEqualIds(bookmark.parentId(), newParent)) return false;
  if (!original) {
    SCLog("%@ - can't find original bookmark for uid, so modifying with impunity", _clientId);
    return true;
  }
  if (!areEqualIds(bookmark.parentId(), original->parentId())) {
    SCLog(
        "%@ - bookmark moved in Corvane and moved in sync, ignoring move in sync. Bookmark uid is %@, "
        "original parent "
        "is %@, moved parent is %@, corvane moved parent is %@",
        _clientId, uid, original->parentId(), newParent, bookmark.parentId());
    return false;
  }
  return true;
}

// The bookmark leaves its original parent, not its present one: where there is no original it stays listed
// there too.
void SessionDriverController::_moveReplayed(CorvaneBookmark& bookmark, const CorvaneBookmark* original,
                                            const String& newParent, BookmarkMap& map) {
  SCLog("%@ - apply move for bookmark with uid %@", _clientId, bookmark.uid());
  bookmark.setParentId(newParent);
  if (CorvaneBookmarkFolder* parent = map.findFolder(newParent)) parent->addChild(bookmark, map);
  if (CorvaneBookmarkFolder* before = map.findFolder(parentIdOf(original))) before->removeChild(bookmark);
}

}  // namespace corvane
