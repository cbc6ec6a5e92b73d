#include "CorvaneSyncClient/session/SessionDriverController.h"

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"

namespace corvane {

namespace {

const String kModDateOnLastSync = "modDateOnLastSync";

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

}  // namespace

SessionDriverController::SessionDriverController(String clientId, CorvaneSyncManager& syncManager)
    : _clientId(std::move(clientId)), _syncManager(syncManager) {}

void SessionDriverController::setOrigBookmarkDictionary(std::shared_ptr<const BookmarkMap> bookmarks) {
  if (bookmarks == _origBookmarkDictionary) return;
  _origBookmarkDictionary = std::move(bookmarks);
  _currentBookmarkDictionary = _origBookmarkDictionary->scDeepMutableCopy();
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
  const bool folders = entityName == LoomerEntity_Bookmarks_Folder;
  Dictionary records;
  records.reserve(_origBookmarkDictionary->size());
  for (const auto& entry : *_origBookmarkDictionary) {
    const CorvaneBookmark* bookmark = entry.value.node.get();
    if (!bookmark || bookmark->isIgnoredBySync()) continue;
    if (folders ? !bookmark->asFolder() : !bookmark->asRecord()) continue;
    if (auto record = bookmark->vessynDictionaryRepresentation(*_origBookmarkDictionary)) {
      records.set(entry.key, *std::move(record));
    }
  }
  SCLog("returning %@", records);
  return records;
}

Dictionary SessionDriverController::changedRecordsForEntityName(const String&, bool&, String&) { return {}; }

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
    _modDateOnLastSync = _syncManager.saveBookmarks(*_currentBookmarkDictionary, true);
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
