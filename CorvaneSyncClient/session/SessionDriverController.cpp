#include "CorvaneSyncClient/session/SessionDriverController.h"

#include <utility>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"

namespace corvane {

namespace {

constexpr const char* kApplyingChange = "applyChange (type = %d): called with record %@";

// The stored date of the last sync; values of other types count as none.
std::optional<Date> storedDate(LoomerSessionDriver& driver) {
  LoomerClient* client = driver.client();
  const std::optional<Value> value = client ? client->objectForKey(kModDateOnLastSync) : std::nullopt;
  const Date* date = value ? value->as<Date>() : nullptr;
  return date ? std::optional(*date) : std::nullopt;
}

void storeDate(LoomerSessionDriver& driver, const std::optional<Date>& date) {
  LoomerClient* client = driver.client();
  if (client) client->setObject(date ? std::optional<Value>(*date) : std::nullopt, kModDateOnLastSync);
}

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

}  // namespace

SessionDriverController::SessionDriverController(String clientId, CorvaneSyncManager& syncManager)
    : _clientId(std::move(clientId)), _syncManager(syncManager) {}

void SessionDriverController::setOrigBookmarkDictionary(std::shared_ptr<const BookmarkMap> bookmarks) {
  if (bookmarks == _origBookmarkDictionary) return;
  _origBookmarkDictionary = std::move(bookmarks);
  _makeOriginal = nullptr;
  _workingMap.reset();
}

void SessionDriverController::setOrigBookmarks(MakeMap make) {
  _origBookmarkDictionary.reset();
  _makeOriginal = std::move(make);
  _workingMap.reset();
}

const BookmarkMap& SessionDriverController::_original() const {
  if (!_origBookmarkDictionary) _origBookmarkDictionary = std::exchange(_makeOriginal, nullptr)();
  return *_origBookmarkDictionary;
}

BookmarkMap& SessionDriverController::_currentBookmarkDictionary() const {
  if (!_workingMap) _workingMap = _original().scDeepMutableCopy();
  return *_workingMap;
}

void SessionDriverController::setCurrentDiskModDate(std::optional<Date> date) { _currentDiskModDate = date; }

std::optional<Url> SessionDriverController::clientDescriptionURL() {
  const auto path = ownClientDescription();
  return path ? std::optional(loomer::fileUrl(*path)) : std::nullopt;
}

std::vector<Url> SessionDriverController::schemaBundleURLs() { return {loomer::bookmarksSchemaUrl()}; }

std::vector<String> SessionDriverController::entityNamesToSync() {
  return {LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark};
}

int SessionDriverController::preferredSyncModeForEntityName(const String&) {
  if (!_modDateOnLastSync) return LoomerSyncModeRefresh;
  // Dates that cannot be compared must not pass for an unchanged file.
  const bool unchanged = _currentDiskModDate && *_modDateOnLastSync >= *_currentDiskModDate;
  return unchanged ? LoomerSyncModeFast : LoomerSyncModeSlow;
}

Dictionary SessionDriverController::recordsForEntityName(const String& entityName, bool&, String&) {
  SCLog("recordsForEntityName: %@", entityName);
  Dictionary records;
  records.reserve(_original().size());
  _eachRecord(entityName, [&](const String& uid, Dictionary record) { records.set(uid, std::move(record)); });
  SCLog("returning %@", records);
  return records;
}

bool SessionDriverController::giveRecords(const String& entityName, const TakeRecord& take) {
  if (SCLogIsOn()) return false;
  _eachRecord(entityName, take);
  return true;
}

template <typename Take>
void SessionDriverController::_eachRecord(const String& entityName, Take take) const {
  const bool folders = entityName == LoomerEntity_Bookmarks_Folder;
  for (const auto& entry : _original()) {
    const CorvaneBookmark* bookmark = entry.value.node.get();
    if (!bookmark || bookmark->isIgnoredBySync()) continue;
    if (folders ? !bookmark->asFolder() : !bookmark->asRecord()) continue;
    if (auto record = bookmark->vessynDictionaryRepresentation(_original())) {
      take(entry.key, *std::move(record));
    }
  }
}

template <typename Take>
void SessionDriverController::_eachSyncedNode(Take take) const {
  for (const auto& entry : _original()) {
    const CorvaneBookmark* const node = entry.value.node.get();
    if (node && !node->isIgnoredBySync() && (node->asRecord() || node->parentId())) take(*node);
  }
}

std::optional<std::vector<std::uint64_t>> SessionDriverController::recordDigests(const HashKey& key) {
  if (SCLogIsOn()) return std::nullopt;
  std::vector<std::uint64_t> digests;
  digests.reserve(_original().size());
  std::string text;
  bool isSilent = true;
  _eachSyncedNode([&](const CorvaneBookmark& node) {
    text.clear();
    isSilent = isSilent && node.appendRecordText(text);
    digests.push_back(sipHash(key, text));
  });
  if (!isSilent) return std::nullopt;
  return digests;
}

Dictionary SessionDriverController::recordsAt(const String& entityName,
                                              const std::vector<std::size_t>& places) {
  const bool folders = entityName == LoomerEntity_Bookmarks_Folder;
  Dictionary records;
  std::size_t place = 0;
  auto next = places.begin();
  _eachSyncedNode([&](const CorvaneBookmark& node) {
    if (next == places.end() || *next != place++) return;
    ++next;
    if (folders != (node.asFolder() != nullptr)) return;
    if (auto record = node.vessynDictionaryRepresentation(_original()))
      records.set(node.uid(), *std::move(record));
  });
  return records;
}

Dictionary SessionDriverController::changedRecordsForEntityName(const String&, bool&, String&) { return {}; }

int SessionDriverController::applyChange(const LoomerChange& change, const String& entityName,
                                         String& remappedRecordIdentifier,
                                         const Dictionary* /*formattedRecord*/, String& /*error*/) {
  _bookmarksChanged = true;
  const String& identifier = change.recordIdentifier();
  const CorvaneBookmark* present = _presentMap().find(identifier);
  if (present && present->isIgnoredBySync()) return LoomerChangeIgnored;
  const Dictionary record = withParentFilledIn(change.record());
  SCLog(kApplyingChange, change.type(), record);

  const bool isFolder = entityName == LoomerEntity_Bookmarks_Folder;
  const bool isBookmark = entityName == LoomerEntity_Bookmarks_Bookmark;
  if (isBookmark && !_postProcessedFolders) _postProcessFolders();
  String newUid;
  if (change.type() == LoomerChangeTypeAdd) {
    newUid = Platform::current().uuids.newUuid();
    remappedRecordIdentifier = newUid;
  }
  if (!isFolder && !isBookmark) {
    systemLog("I was asked to apply a change: %@ for an entity I don't sync: %@", change, entityName);
    return LoomerChangeError;
  }
  switch (change.type()) {
    case LoomerChangeTypeDelete:
      _delete(identifier, isFolder);
      return LoomerChangeAccepted;
    case LoomerChangeTypeModify:
      if (isBookmark) _modifyCurrentBookmark(identifier, record);
      fileUnder(identifier, record, isFolder ? _modifiedFolders : _modifiedBookmarks);
      return LoomerChangeAccepted;
    case LoomerChangeTypeAdd:
      if (isFolder) fileUnder(identifier, newUid, _addedFolderGlobalToLocalIdMapper);
      // A bookmark is built from any record as things are; one that were not would not be filed.
      if (isBookmark && !CorvaneBookmarkRecord::bookmarkWithUid(newUid, record, _currentBookmarkDictionary()))
        return LoomerChangeRefused;
      (isFolder ? _addedFolders : _addedBookmarks).set(newUid, record);
      return LoomerChangeAccepted;
    default:
      systemLog("Asked to apply a change that's not an add, modify, or delete: %@", change);
      return LoomerChangeError;
  }
}

// What was inside a folder stays in the map, listed by nobody.
void SessionDriverController::_delete(const String& uid, bool isFolder) {
  if (const CorvaneBookmark* bookmark = _currentBookmarkDictionary().find(uid)) {
    CorvaneBookmarkFolder* parent = _currentBookmarkDictionary().findFolder(bookmark->parentId());
    if (parent) parent->removeChild(*bookmark);
  }
  _currentBookmarkDictionary().remove(uid);
  (isFolder ? _deletedFolders : _deletedBookmarks).push_back(uid);
}

void SessionDriverController::_modifyCurrentBookmark(const String& uid, const Dictionary& record) {
  CorvaneBookmark* bookmark = _currentBookmarkDictionary().find(uid);
  if (!bookmark) return;
  if (!(bookmark->parentId() == parentInRecord(record, LoomerRelationship_Bookmarks_Bookmark_Parent))) {
    CorvaneBookmarkFolder* parent = _currentBookmarkDictionary().findFolder(bookmark->parentId());
    if (parent) parent->removeChild(*bookmark);
  }
  bookmark->updateWithVessynDictionary(record, _currentBookmarkDictionary());
}

// Each deletion is traced as one that the engine delivers; yet none of them has the folders placed.
bool SessionDriverController::deleteAllRecordsForEntityName(const String& entityName, String& /*error*/) {
  SCLog("deleteAllRecordsForEntityName: %@", entityName);
  _bookmarksChanged = true;
  _pulledTheTruth = true;
  const bool folders = entityName == LoomerEntity_Bookmarks_Folder;
  if (!folders && !(entityName == LoomerEntity_Bookmarks_Bookmark)) {
    systemLog("I was asked to delete all records for an entity I don't sync: %@", entityName);
    return false;
  }
  const Dictionary record = withParentFilledIn(std::nullopt);
  for (const String& uid : _currentBookmarkDictionary().keys()) {
    const CorvaneBookmark* bookmark = _currentBookmarkDictionary().find(uid);
    if (uid == kRootUid || !bookmark || bookmark->isIgnoredBySync()) continue;
    if (folders ? !bookmark->asFolder() : !bookmark->asRecord()) continue;
    SCLog(kApplyingChange, LoomerChangeTypeDelete, record);
    _delete(uid, folders);
  }
  return true;
}

void SessionDriverController::_postProcessFolders() {
  SCLog("post-proccessing");
  if (SCLogIsOn()) SCLog("_currentBookmarkDictionary pre-post-process %@", _presentMap());
  _postProcessedFolders = true;
  for (auto& folder : _addedFolders) folder.value = _localIdRemappedFolderFromRecord(folder.value);
  for (auto& folder : _modifiedFolders) folder.value = _localIdRemappedFolderFromRecord(folder.value);
  _fillOutAddedFoldersTopDownKeys();
  for (const String& uid : _addedFoldersTopDownKeys) _applyHeldAsideFolder(*_addedFolders.find(uid), uid);
  for (const auto& folder : _modifiedFolders) _applyHeldAsideFolder(folder.value, folder.key);
  if (SCLogIsOn()) SCLog("_currentBookmarkDictionary post-post-process %@", _presentMap());
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
  TopDownFolders folders;
  if (!_addedFolders.empty()) folders = topDownFolders(_addedFolders, _presentMap());
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
  BookmarkMap& map = _currentBookmarkDictionary();
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
  CorvaneBookmark* const folder = map.find(parent ? withLocalId : kRootUid);
  if (!folder) {
    CorvaneBookmarkFolder::bookmarkWithUid(withLocalId, record, map);
    return;
  }
  if (folder->parentId() && !(folder->parentId() == parent)) {
    CorvaneBookmarkFolder* presentParent = map.findFolder(folder->parentId());
    if (presentParent) presentParent->removeChild(*folder);
  }
  folder->updateWithVessynDictionary(record, map);
}

bool SessionDriverController::isUpToDate() { return _syncManager.isUpToDate(); }

bool SessionDriverController::readAgain() { return _syncManager.readBookmarks(); }

bool SessionDriverController::sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String&) {
  _modDateOnLastSync = storedDate(driver);
  return true;
}

bool SessionDriverController::sessionDriverDidPull(LoomerSessionDriver&, String&) {
  if (!_postProcessedFolders) _postProcessFolders();
  return true;
}

bool SessionDriverController::sessionDriverWillFinishSession(LoomerSessionDriver& driver, String&) {
  if (_bookmarksChanged) {
    _modDateOnLastSync = _syncManager.saveBookmarks(_presentMap(), true);
    storeDate(driver, _modDateOnLastSync);
  } else if (!storedDate(driver)) {
    _modDateOnLastSync = _currentDiskModDate;
    storeDate(driver, _modDateOnLastSync);
  }
  return true;
}

void SessionDriverController::sessionDriverWillCancelSession(LoomerSessionDriver& driver) {
  storeDate(driver, std::nullopt);
}

}  // namespace corvane
