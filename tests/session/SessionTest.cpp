#include "tests/session/SessionTest.h"

#include <algorithm>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"

namespace corvane {

Value leaf(const char* uid, const char* title, const char* url) {
  return Dictionary{{"WebBookmarkType", "WebBookmarkTypeLeaf"},
                    {"WebBookmarkUUID", uid},
                    {"URLString", url},
                    {"URIDictionary", Dictionary{{"title", title}}}};
}

Value folder(const char* uid, const char* title, std::vector<Value> children) {
  return Dictionary{{"WebBookmarkType", "WebBookmarkTypeList"},
                    {"WebBookmarkUUID", uid},
                    {"Title", title},
                    {"Children", Array(std::move(children))}};
}

Dictionary root(std::vector<Value> children) { return Dictionary{{"Children", Array(std::move(children))}}; }

Value hidden(const Value& entry) {
  Dictionary copy = *entry.as<Dictionary>();
  copy.set("ShouldOmitFromUI", true);
  return copy;
}

namespace {

Dictionary record(const String& entity, const String& nameKey, const char* name, const char* parent) {
  Dictionary result{{LoomerRecordEntityNameKey, entity}};
  if (name) result.set(nameKey, name);
  if (parent) result.set(LoomerRelationship_Bookmarks_Folder_Parent, Array{parent});
  return result;
}

void printTree(const BookmarkMap& map, const String& uid, std::string& text) {
  text += uid.view();
  const CorvaneBookmark* node = map.find(uid);
  if (!node) text += "?";
  const CorvaneBookmarkFolder* folder = node ? node->asFolder() : nullptr;
  if (!folder || !folder->children() || folder->children()->empty()) return;
  const char* separator = "(";
  for (const String& child : *folder->children()) {
    text += separator;
    printTree(map, child, text);
    separator = " ";
  }
  text += ")";
}

}  // namespace

Dictionary folderRecord(const char* name, const char* parent) {
  return record(LoomerEntity_Bookmarks_Folder, LoomerAttribute_Bookmarks_Folder_Name, name, parent);
}

Dictionary bookmarkRecord(const char* name, const char* parent, const char* url) {
  Dictionary result =
      record(LoomerEntity_Bookmarks_Bookmark, LoomerAttribute_Bookmarks_Bookmark_Name, name, parent);
  if (url) result.set(LoomerAttribute_Bookmarks_Bookmark_Url, Url{url});
  return result;
}

Dictionary atPosition(Dictionary record, int position) {
  record.set(LoomerAttribute_Bookmarks_Folder_Position, position);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, position);
  return record;
}

std::unique_ptr<BookmarkMap> mapped(const Dictionary& bookmarks) {
  auto map = std::make_unique<BookmarkMap>();
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(bookmarks, String(), 0, *map);
  return map;
}

std::string tree(const BookmarkMap& map) {
  std::string text;
  printTree(map, kRootUid, text);
  return text;
}

SessionTest::SessionTest() {
  platform.preferences.domains["com.keldra.Corvane"].set("SCLog", "YES");
  platform.makeDirectories(directory());
}

void SessionTest::writeBookmarks(const Dictionary& bookmarks, const std::string& name) {
  const std::string path = directory() + "/" + name;
  ASSERT_FALSE(platform.realFiles.write(path, writeBinaryPropertyList(bookmarks)));
  ASSERT_FALSE(setModificationDate(path, Date{_nextDate}));
  _nextDate += 1.0;
}

std::optional<Dictionary> SessionTest::savedBookmarks(const std::string& name) {
  std::string contents;
  if (platform.realFiles.read(directory() + "/" + name, contents)) return std::nullopt;
  return *readPropertyList(contents).as<Dictionary>();
}

Date SessionTest::fileDate() {
  std::error_code error;
  const auto attributes = platform.realFiles.attributes(bookmarksPath(), error);
  return attributes ? attributes->modificationDate : Date{};
}

void SessionTest::browserWritesBeforeSaves(int count, const Dictionary& bookmarks) {
  platform.files.intercept = [this, count, bookmarks](const ForwardingFileSystem::Call& call) mutable {
    const bool takesLock =
        call.operation == FileOperation::makeDirectory && call.path == directory() + "/lock";
    if (takesLock && count-- > 0) writeBookmarks(bookmarks);
    return std::error_code();
  };
}

int SessionTest::diagnosed(const std::string& text) const {
  const auto& lines = platform.log.diagnostics;
  return static_cast<int>(std::count(lines.begin(), lines.end(), text));
}

std::vector<std::string> SessionTest::diagnosticsWith(const std::string& text) const {
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
