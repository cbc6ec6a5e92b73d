#include "CorvaneSyncClient/session/CorvaneSyncManager.h"

#include <utility>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneFileForm.h"
#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/platform/system/files/StandardDirectories.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"
#include "CorvaneSyncClient/session/SkippedEntries.h"
#include "CorvaneSyncClient/store/CorvanePlistManager.h"

namespace corvane {

namespace {

constexpr const char* kClientDescriptionInBrowser =
    "Contents/CorvaneSyncClient.app/Contents/Resources/CorvaneClientDescription.plist";
constexpr const char* kFeedFramework = "/System/Library/Frameworks/Nuvolo.framework";
constexpr const char* kFeedClass = "NuvoloClient";

constexpr const char* kVersionKey = "WebBookmarkFileVersion";
constexpr std::int32_t kNewestVersion = 1;
constexpr int kSaveAttempts = 10;

// The version that saves write: that of the file checked last.
std::int32_t currentBookmarkFileVersion = kNewestVersion;

// Whether attributes that could not be had mean that there is nothing. Any other failure may hide a file.
bool isNothingThere(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
}

}  // namespace

CorvaneSyncManager::CorvaneSyncManager(String clientId) : _clientId(std::move(clientId)) {}
CorvaneSyncManager::~CorvaneSyncManager() = default;

std::unique_ptr<CorvaneSyncManager> CorvaneSyncManager::initWithClientId(const String& clientId) {
  return initWithClientId(clientId, bookmarksDirectory());
}

std::unique_ptr<CorvaneSyncManager> CorvaneSyncManager::initWithClientId(const String& clientId,
                                                                         const std::string& inDirectory) {
  std::unique_ptr<CorvaneSyncManager> manager(new CorvaneSyncManager(clientId));
  const std::optional<std::string> fileName = fileNameForClientId(clientId);
  if (!fileName) {
    reportProblem(Message(
        "Corvane Sync Client - asked to sync client id %1, but com.keldra.Corvane(.afilename) is required",
        format("%@", clientId)));
    return nullptr;
  }
  if (!manager->_findOrMakeBookmarksFile(inDirectory, *fileName)) return nullptr;
  manager->_plistManager = std::make_unique<CorvanePlistManager>(inDirectory, *fileName);
  manager->_driverController = std::make_unique<SessionDriverController>(clientId, *manager);
  return manager;
}

// Answers whether the client may go on. The main client always may, and so may any client whose file
// is not known to be missing: what is wrong with it shows when it is read or saved.
bool CorvaneSyncManager::_findOrMakeBookmarksFile(const std::string& directory, const std::string& fileName) {
  Platform& platform = Platform::current();
  const std::string path =
      standardizedPath(joinedPath(directory, fileName), platform.process.homeDirectory());
  std::error_code error;
  const auto file = platform.files.attributes(path, error);
  if (file ? file->kind == FileKind::regular : !isNothingThere(error)) return true;
  const bool isSpecial = file && file->kind == FileKind::other;
  if (isSpecial) {
    reportProblem(
        Message("Can't sync bookmarks file %1: it is not a regular file; syncing bookmarks will fail", path));
  }
  if (_clientId != kMainClientId) {
    SCLog("No Test Corvane Sync Client for %@, file %@ does not exist", _clientId, path);
    if (!isSpecial) _reportMissingFile(path, fileName, file.has_value());
    return false;
  }
  // A link that leads nowhere, through another file included, is replaced as a save would replace it.
  if (!isSpecial && _makeDirectory(directory)) _makeBookmarksFile(path);
  return true;
}

void CorvaneSyncManager::_reportMissingFile(const std::string& path, const std::string& fileName,
                                            bool isDirectory) {
  if (fileName.empty()) {
    reportProblem(Message("Can't sync client %1: it names no bookmarks file", _clientId.view()));
  } else if (isDirectory) {
    reportProblem(
        Message("Can't sync client %1: its bookmarks file %2 is a directory", _clientId.view(), path));
  } else {
    reportProblem(Message("Can't sync client %1: its bookmarks file %2 does not exist. %3", _clientId.view(),
                          path, howToMakeBookmarksFile(path)));
  }
}

bool CorvaneSyncManager::_makeDirectory(const std::string& directory) {
  FileSystem& files = Platform::current().files;
  makeStandardDirectoriesAbove(directory);
  // Made first and looked at afterwards, since another process may make it at the same moment.
  if (!files.makeDirectory(directory, kDefaultDirectoryMode)) return true;
  if (const auto attributes = files.attributesIfKnown(directory)) {
    if (attributes->kind == FileKind::directory) return true;
    reportProblem(
        Message("CorvaneSyncManager couldn't create directory %1 because a file with that name already "
                "exists; syncing bookmarks will fail",
                directory));
    return false;
  }
  reportProblem(
      Message("CorvaneSyncManager failed to create directory %1; syncing bookmarks will fail", directory));
  return false;
}

// A file that the browser makes at the same time is the one to sync.
void CorvaneSyncManager::_makeBookmarksFile(const std::string& path) {
  const std::error_code error =
      Platform::current().files.writeNewAtomically(path, writeXmlPropertyList(Dictionary()));
  if (error && error != std::errc::file_exists)
    reportProblem(Message("Could not make bookmarks file %1: %2", path, error.message()));
}

bool CorvaneSyncManager::sync() {
  if (!readBookmarks()) return false;
  const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(*_driverController);
  driver->_setClient(LoomerManager::sharedManager().registerClientWithIdentifier(
      _clientId, String(kMainClientId), kClientDescriptionInBrowser));
  const bool succeeded = driver->sync();
  if (succeeded) {
    _notifyInterestedParties();
  } else {
    reportProblem(Message(kSessionFailed, driver->lastError()));
  }
  return succeeded;
}

bool CorvaneSyncManager::readBookmarks() {
  const std::optional<Dictionary> bookmarks = _plistManager->dictionary();
  if (!bookmarks) return false;
  _checkAndSetBookmarkFileVersion(*bookmarks);
  // Where it leaves no trace, mapping waits until somebody asks for a bookmark: it takes a session that finds
  // nothing new a third of its time.
  if (SCLogIsOn() || !isReadInSilence(*bookmarks)) {
    _driverController->setOrigBookmarkDictionary(_mapBookmarks(bookmarks));
  } else {
    _driverController->setOrigBookmarks([this, bookmarks] { return _mapBookmarks(bookmarks); });
  }
  _driverController->setCurrentDiskModDate(_plistManager->modificationDate());
  return true;
}

bool CorvaneSyncManager::isOfOldVersion() const { return currentBookmarkFileVersion < kNewestVersion; }

bool CorvaneSyncManager::isUpToDate() const { return !_plistManager->hasChangedSinceRead(); }

void CorvaneSyncManager::_checkAndSetBookmarkFileVersion(const Dictionary& bookmarks) {
  const Value* value = bookmarks.find(kVersionKey);
  if (!value) {
    SCLog("%@ - version key not found in Bookmarks, using default value of %d", _clientId, kNewestVersion);
    currentBookmarkFileVersion = kNewestVersion;
    return;
  }
  // Versions below 0 pass, and are written back as they are. 0 is no version; nor is a number that is no
  // integer.
  const std::int32_t version = value->isNumber() ? value->integer32().value_or(0) : 0;
  if (value->isNumber()) SCLog("%@ - version key in Bookmarks is %d", _clientId, version);
  if (version != 0 && version <= kNewestVersion) {
    currentBookmarkFileVersion = version;
    return;
  }
  if (version == 0) {
    SCLog("%@ - cannot sync Bookmarks with invalid version key. Version is not an NSNumber: value is %@",
          _clientId, *value);
  } else {
    SCLog(
        "%@ - cannot sync Bookmarks with version %d, this client can only synchronize versions %d and "
        "previous",
        _clientId, version, kNewestVersion);
  }
  throw PlatformException(
      "CorvaneBookmarksUnknownVersionException",
      localized("The Corvane Bookmarks file cannot be synchronized. The Bookmarks file is from a version of "
                "Corvane that is incompatible with this version of Loomer. If a new version of Corvane has "
                "been installed, "
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
      "The required version of Corvane needed to Sync bookmarks has never "
      "been run. Please make sure you "
      "have installed the latest release of Corvane and run it at least once "
      "before syncing your bookmarks.");
}

std::optional<Dictionary> CorvaneSyncManager::_tracedContents(const BookmarkMap& map) const {
  if (!SCLogIsOn() || !map.root()) return std::nullopt;
  return map.root()->corvaneDictionaryRepresentation(map);
}

std::optional<Date> CorvaneSyncManager::_trySaving(const BookmarkMap& map, std::optional<Dictionary> traced) {
  Dictionary contents;
  const auto makeContents = [&](const std::string& path) {
    if (!map.root()) return;
    contents = traced ? *std::move(traced) : map.root()->corvaneDictionaryRepresentation(map);
    contents.set(kVersionKey, currentBookmarkFileVersion);
    keepFileOfSkippedEntries(_clientId, path, map.skippedEntries());
  };
  return _plistManager->saveBookmarks(map.root() ? &contents : nullptr, !_driverController->pulledTheTruth(),
                                      makeContents);
}

Date CorvaneSyncManager::saveBookmarks(const BookmarkMap& bookmarks, bool /*checkIfModified*/) {
  SCLog("dict is %@", bookmarks);
  std::optional<Dictionary> traced = _tracedContents(bookmarks);
  SCLog("dict for disk is %@", pointerTo(traced));
  if (_unitTestCallback) (*_unitTestCallback)(bookmarks, _plistManager->path());

  const BookmarkMap* map = &bookmarks;
  std::unique_ptr<BookmarkMap> fresh;
  for (int attempt = 1; attempt <= kSaveAttempts; ++attempt) {
    const std::optional<Date> date = _trySaving(*map, std::exchange(traced, std::nullopt));
    if (date) {
      SCLog("%@ - Engine pushed changes and we modified bookmarks file at %@", _clientId,
            localDescription(*date));
      return *date;
    }
    if (_driverController->pulledTheTruth()) {
      throw PlatformException("CorvaneBookmarksCannotSaveException",
                              localized("Could not save bookmarks file.", "Corvane Sync Client"));
    }
    // After the last attempt too: a file that can no longer be mapped has an exception of its own.
    SCLog("%@ - Bookmark file changed while syncing, reloading it and merging changes", _clientId);
    fresh.reset();  // before the file is read, so that two trees need not fit into memory
    fresh = _mapBookmarks(_plistManager->dictionary());
    _driverController->applyChangesToDictionary(*fresh);
    map = fresh.get();
    traced = _tracedContents(*map);
  }
  SCLog("%@ - Could not save bookmarks file, giving up", _clientId);
  throw PlatformException("CorvaneSyncClientSaveException",
                          Message("Could not save bookmarks file after sync"));
}

void CorvaneSyncManager::_notifyInterestedParties() {
  if (_isPrivateSync) return;
  try {
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
  } catch (const PlatformException& exception) {
    constexpr const char* kMessage = "Exception %@ trying to launch Nuvolo Agent: %@";
    systemLog(kMessage, exception.name(), exception.reason());
    SCLog(kMessage, exception.name(), exception.reason());
  }
}

}  // namespace corvane
