#include "CorvaneSyncClient/session/CorvaneSyncManager.h"

#include "CorvaneSyncClient/front/SCLog.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/LoomerManager.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"
#include "CorvaneSyncClient/store/CorvanePlistManager.h"

namespace corvane {

namespace {

constexpr std::string_view kMainClientId = "com.keldra.Corvane";
constexpr std::string_view kTestClientPrefix = "com.keldra.Corvane.";
constexpr const char* kBookmarksFileName = "Bookmarks.plist";
constexpr const char* kClientDescriptionInBrowser =
    "Contents/CorvaneSyncClient.app/Contents/Resources/CorvaneClientDescription.plist";
constexpr const char* kFeedFramework = "/System/Library/Frameworks/Nuvolo.framework";
constexpr const char* kFeedClass = "NuvoloClient";

constexpr const char* kVersionKey = "WebBookmarkFileVersion";
constexpr std::int32_t kNewestVersion = 1;
constexpr int kSaveAttempts = 10;
constexpr unsigned kDefaultMode = 0777;  // less the umask

// The version that saves write: that of the file checked last.
std::int32_t currentBookmarkFileVersion = kNewestVersion;

std::optional<FileAttributes> attributesOf(const std::string& path) {
  std::error_code error;
  return Platform::current().files.attributes(path, error);
}

std::string localized(const char* key, const char* table) {
  return Platform::current().bundles.ownBundle().localizedString(key, table);
}

// The name of the client's file; nothing for an id of neither form.
std::optional<std::string> fileNameForClientId(const String& clientId) {
  if (clientId == kMainClientId) return kBookmarksFileName;
  if (!clientId.view().starts_with(kTestClientPrefix)) return std::nullopt;
  return std::string(clientId.view().substr(kTestClientPrefix.size()));
}

const Dictionary* pointerTo(const std::optional<Dictionary>& dictionary) {
  return dictionary ? &*dictionary : nullptr;
}

}  // namespace

CorvaneSyncManager::CorvaneSyncManager(String clientId) : _clientId(std::move(clientId)) {}
CorvaneSyncManager::~CorvaneSyncManager() = default;

std::unique_ptr<CorvaneSyncManager> CorvaneSyncManager::initWithClientId(const String& clientId) {
  return initWithClientId(clientId,
                          format("%@/Library/Corvane", Platform::current().process.homeDirectory()));
}

std::unique_ptr<CorvaneSyncManager> CorvaneSyncManager::initWithClientId(const String& clientId,
                                                                         const std::string& inDirectory) {
  std::unique_ptr<CorvaneSyncManager> manager(new CorvaneSyncManager(clientId));
  const std::optional<std::string> fileName = fileNameForClientId(clientId);
  if (!fileName) {
    systemLog(
        "Corvane Sync Client - asked to sync client id %@, but com.keldra.Corvane(.afilename) is required",
        clientId);
    return nullptr;
  }
  if (!manager->_findOrMakeBookmarksFile(inDirectory, *fileName)) return nullptr;
  manager->_plistManager = std::make_unique<CorvanePlistManager>(inDirectory, *fileName);
  manager->_driverController = std::make_unique<SessionDriverController>(clientId, *manager);
  return manager;
}

// Answers whether the client may go on. The main client always may: what is wrong with its file shows when
// the file is read or saved.
bool CorvaneSyncManager::_findOrMakeBookmarksFile(const std::string& directory, const std::string& fileName) {
  const std::string path =
      standardizedPath(joinedPath(directory, fileName), Platform::current().process.homeDirectory());
  const auto file = attributesOf(path);
  if (file && file->kind != FileKind::directory) return true;
  if (_clientId != kMainClientId) {
    SCLog("No Test Corvane Sync Client for %@, file %@ does not exist", _clientId, path);
    return false;
  }
  _makeBookmarksFile(directory, path);
  return true;
}

void CorvaneSyncManager::_makeBookmarksFile(const std::string& directory, const std::string& path) {
  FileSystem& files = Platform::current().files;
  if (const auto attributes = attributesOf(directory)) {
    if (attributes->kind != FileKind::directory) {
      systemLog(
          "CorvaneSyncManager couldn't create directory %@ because a file with that name already exists; "
          "syncing bookmarks will fail",
          directory);
      return;
    }
  } else if (files.makeDirectory(directory, kDefaultMode)) {
    systemLog("CorvaneSyncManager failed to create directory %@; syncing bookmarks will fail", directory);
    return;
  }
  // A file that cannot be written cannot be read either, which ends the run.
  files.writeAtomically(path, writeXmlPropertyList(Dictionary()));
}

bool CorvaneSyncManager::sync() {
  const std::optional<Dictionary> bookmarks = _plistManager->dictionary();
  if (!bookmarks) return false;
  _checkAndSetBookmarkFileVersion(*bookmarks);
  _driverController->setOrigBookmarkDictionary(_mapBookmarks(bookmarks));
  _driverController->setCurrentDiskModDate(_plistManager->modificationDate());

  const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(*_driverController);
  driver->_setClient(LoomerManager::sharedManager().registerClientWithIdentifier(
      _clientId, String(kMainClientId), kClientDescriptionInBrowser));
  const bool succeeded = driver->sync();
  if (succeeded) {
    _notifyInterestedParties();
  } else {
    systemLog("Corvane Sync Client got the following error when attempting a sync: %@", driver->lastError());
  }
  return succeeded;
}

void CorvaneSyncManager::_checkAndSetBookmarkFileVersion(const Dictionary& bookmarks) {
  if (const Value* value = bookmarks.find(kVersionKey)) return _checkVersionNumber(*value);
  SCLog("%@ - version key not found in Bookmarks, using default value of %d", _clientId, kNewestVersion);
  currentBookmarkFileVersion = kNewestVersion;
}

// Versions below 0 pass, and are written back as they are; 0 stands for no version at all.
void CorvaneSyncManager::_checkVersionNumber(const Value& value) {
  const std::int32_t version = value.isNumber() ? value.integer32().value_or(0) : 0;
  if (value.isNumber()) SCLog("%@ - version key in Bookmarks is %d", _clientId, version);
  if (version == 0) {
    SCLog("%@ - cannot sync Bookmarks with invalid version key. Version is not an NSNumber: value is %@",
          _clientId, value);
    _raiseUnknownVersion();
  }
  if (version > kNewestVersion) {
    SCLog(
        "%@ - cannot sync Bookmarks with version %d, this client can only synchronize versions %d and "
        "previous",
        _clientId, version, kNewestVersion);
    _raiseUnknownVersion();
  }
  currentBookmarkFileVersion = version;
}

void CorvaneSyncManager::_raiseUnknownVersion() {
  throw PlatformException(
      "CorvaneBookmarksUnknownVersionException",
      localized(
          "The Corvane Bookmarks file cannot be synchronized. The Bookmarks file is from a version of "
          "Corvane "
          "that is incompatible with this version of Loomer. If a new version of Corvane has been installed, "
          "you must install the latest version of Loomer.",
          "CorvaneSyncClient"));
}

std::unique_ptr<BookmarkMap> CorvaneSyncManager::_mapBookmarks(const std::optional<Dictionary>& bookmarks) {
  auto map = std::make_unique<BookmarkMap>();
  if (!bookmarks || !CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(*bookmarks, String(), 0, *map)) {
    throw PlatformException("CorvaneBookmarksInvalidException", _corvaneBookmarksInvalidMessage());
  }
  return map;
}

std::string CorvaneSyncManager::_corvaneBookmarksInvalidMessage() {
  return localized(
      "The required version of Corvane needed to Sync bookmarks has never been run. Please make sure you "
      "have "
      "installed the latest release of Corvane and run it at least once before syncing your bookmarks.",
      kDefaultStringsTable);
}

std::optional<Date> CorvaneSyncManager::saveBookmarks(const BookmarkMap& bookmarks,
                                                      bool /*checkIfModified*/) {
  SCLog("dict is %@", bookmarks);
  std::optional<Dictionary> dictionary = _dictionaryForDisk(bookmarks);
  SCLog("dict for disk is %@", pointerTo(dictionary));
  if (_unitTestCallback) (*_unitTestCallback)(bookmarks, _plistManager->path());

  for (int attempt = 1; attempt <= kSaveAttempts; ++attempt) {
    if (const std::optional<Date> date = _saveOnce(std::exchange(dictionary, std::nullopt))) {
      SCLog("%@ - Engine pushed changes and we modified bookmarks file at %@", _clientId,
            localDescription(*date));
      return date;
    }
    if (_driverController->pulledTheTruth()) {
      throw PlatformException("CorvaneBookmarksCannotSaveException",
                              localized("Could not save bookmarks file.", "Corvane Sync Client"));
    }
    // After the last attempt too: a file that can no longer be mapped is told by its own exception.
    dictionary = _reloadAndMerge();
  }
  SCLog("%@ - Could not save bookmarks file, giving up", _clientId);
  throw PlatformException("CorvaneSyncClientSaveException", "Could not save bookmarks file after sync");
}

std::optional<Dictionary> CorvaneSyncManager::_dictionaryForDisk(const BookmarkMap& bookmarks) {
  const CorvaneBookmark* root = bookmarks.find(kRootUid);
  return root ? std::optional(root->corvaneDictionaryRepresentation(bookmarks)) : std::nullopt;
}

std::optional<Date> CorvaneSyncManager::_saveOnce(std::optional<Dictionary> dictionary) {
  if (dictionary) dictionary->set(kVersionKey, currentBookmarkFileVersion);
  return _plistManager->saveBookmarks(pointerTo(dictionary), !_driverController->pulledTheTruth());
}

std::optional<Dictionary> CorvaneSyncManager::_reloadAndMerge() {
  SCLog("%@ - Bookmark file changed while syncing, reloading it and merging changes", _clientId);
  const std::unique_ptr<BookmarkMap> fresh = _mapBookmarks(_plistManager->dictionary());
  _driverController->applyChangesToDictionary(*fresh);
  return _dictionaryForDisk(*fresh);
}

void CorvaneSyncManager::_notifyInterestedParties() {
  if (_isPrivateSync) return;
  try {
    _startFeedAgent();
  } catch (const PlatformException& exception) {
    constexpr const char* kMessage = "Exception %@ trying to launch Nuvolo Agent: %@";
    systemLog(kMessage, exception.name(), exception.reason());
    SCLog(kMessage, exception.name(), exception.reason());
  }
}

void CorvaneSyncManager::_startFeedAgent() {
  SCLog("Loading bundle for %@", kFeedFramework);
  const std::unique_ptr<Bundle> bundle = Platform::current().bundles.bundleWithPath(kFeedFramework);
  const std::string path = bundle ? bundle->path() : std::string();
  SCLog("Bundle is %@", bundle ? path.c_str() : nullptr);
  if (!bundle || !bundle->load()) return;
  SCLog("Loaded bundle");
  const bool hasClass = bundle->hasClass(kFeedClass);
  SCLog("Class is %@", hasClass ? kFeedClass : nullptr);
  if (!hasClass) return;
  const Bundle::ClassMethod startSync = bundle->classMethod(kFeedClass, "startSync");
  if (!startSync) return;
  SCLog("Class responds to selector, calling method");
  startSync();
}

}  // namespace corvane
