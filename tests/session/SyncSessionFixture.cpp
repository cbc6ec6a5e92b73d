#include "tests/session/SyncSessionFixture.h"

#include <algorithm>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"
#include "tests/kit/TreeText.h"

namespace corvane {

namespace {

// Called by its uid, and with no other title or address to speak of.
kit::TreeNode nodeFor(const BookmarkMap& map, const String& uid) {
  const CorvaneBookmark* const node = map.find(uid);
  const std::string label = uid.toString() + (node ? "" : "?");
  const bool isFolder = node && node->asFolder();
  return {.label = label, .folder = isFolder, .title = label, .url = String("http://" + label)};
}

std::vector<String> childrenOf(const BookmarkMap& map, const String& uid) {
  const CorvaneBookmarkFolder* const folder = map.findFolder(uid);
  if (!folder || !folder->children()) return {};
  return {folder->children()->begin(), folder->children()->end()};
}

}  // namespace

std::unique_ptr<BookmarkMap> mapped(const Dictionary& bookmarks) {
  auto map = std::make_unique<BookmarkMap>();
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(bookmarks, String(), 0, *map);
  return map;
}

std::string tree(const BookmarkMap& map) {
  kit::TreeNode root = nodeFor(map, kRootUid);
  root.children = kit::treeBelow(
      kRootUid, [&map](const String& uid) { return childrenOf(map, uid); },
      [&map](const String& uid) { return nodeFor(map, uid); });
  return kit::printTree({root});
}

SyncSessionTest::SyncSessionTest() {
  platform.preferences.domains["com.keldra.Corvane"].set("SCLog", "YES");
  platform.makeDirectories(directory());
}

void SyncSessionTest::writeBookmarks(const Dictionary& bookmarks, const std::string& name) {
  const std::string path = directory() + "/" + name;
  ASSERT_FALSE(platform.realFiles.write(path, writeBinaryPropertyList(bookmarks)));
  ASSERT_FALSE(setModificationDate(path, Date{_nextDate}));
  _nextDate += 1.0;
}

std::optional<Dictionary> SyncSessionTest::savedBookmarks(const std::string& name) {
  std::string contents;
  if (platform.realFiles.read(directory() + "/" + name, contents)) return std::nullopt;
  return *readPropertyList(contents).as<Dictionary>();
}

Date SyncSessionTest::fileDate() {
  std::error_code error;
  const auto attributes = platform.realFiles.attributes(bookmarksPath(), error);
  return attributes ? attributes->modificationDate : Date{};
}

void SyncSessionTest::browserWritesBeforeSaves(int count, const Dictionary& bookmarks) {
  platform.files.intercept = [this, count, bookmarks](const ForwardingFileSystem::Call& call) mutable {
    const bool takesLock =
        call.operation == FileOperation::makeDirectory && call.path == directory() + "/lock";
    if (takesLock && count-- > 0) writeBookmarks(bookmarks);
    return std::error_code();
  };
}

int SyncSessionTest::diagnosed(const std::string& text) const {
  const auto& lines = platform.log.diagnostics;
  return static_cast<int>(std::count(lines.begin(), lines.end(), text));
}

std::vector<std::string> SyncSessionTest::diagnosticsWith(const std::string& text) const {
  std::vector<std::string> found;
  for (const std::string& line : platform.log.diagnostics) {
    if (line.find(text) != std::string::npos) found.push_back(line);
  }
  return found;
}

void ControllerTest::begin(const Dictionary& bookmarks) {
  writeBookmarks(bookmarks);
  manager = CorvaneSyncManager::initWithClientId("com.keldra.Corvane");
  ASSERT_TRUE(manager);
  controller = std::make_unique<SessionDriverController>("com.keldra.Corvane", *manager);
  controller->setOrigBookmarkDictionary(mapped(bookmarks));
  controller->setCurrentDiskModDate(fileDate());
  driver = loomer.sessionDriverWithDataSource(*controller);
  driver->_setClient(&loomer.client);
}

int ControllerTest::apply(int type, const String& identifier, std::optional<Dictionary> record,
                          const String& entity) {
  remapped = String();
  return controller->applyChange(LoomerChange(type, identifier, std::move(record)), entity, remapped, nullptr,
                                 error);
}

bool ControllerTest::deleteAll(const String& entity) {
  return controller->deleteAllRecordsForEntityName(entity, error);
}

void ControllerTest::didPull() { EXPECT_TRUE(controller->sessionDriverDidPull(*driver, error)); }

std::unique_ptr<BookmarkMap> ControllerTest::replayed(const Dictionary& bookmarks) {
  auto map = mapped(bookmarks);
  controller->applyChangesToDictionary(*map);
  return map;
}

}  // namespace corvane
