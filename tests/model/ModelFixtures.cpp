#include "tests/model/ModelFixtures.h"

#include <stdexcept>
#include <utility>

namespace corvane {

CorvaneBookmarkFolder* ModelTest::read(const Dictionary& file) {
  return CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(file, String(), 0, map);
}

CorvaneBookmark& ModelTest::node(const char* uid) const {
  CorvaneBookmark* found = map.find(uid);
  if (!found) throw std::runtime_error(std::string("the map holds no node ") + uid);
  return *found;
}

CorvaneBookmarkFolder& ModelTest::folder(const char* uid) const { return *node(uid).asFolder(); }
CorvaneBookmarkRecord& ModelTest::bookmark(const char* uid) const { return *node(uid).asRecord(); }

std::vector<std::string> ModelTest::childrenOf(const char* uid) const {
  std::vector<std::string> uids;
  if (const auto* children = folder(uid).children()) {
    for (const String& child : *children) uids.push_back(child.toString());
  }
  return uids;
}

CorvaneBookmark& ModelTest::add(const char* uid, bool isFolder, const char* title, int position) {
  Dictionary record;
  if (title) record.set(LoomerAttribute_Bookmarks_Folder_Name, title);
  if (title) record.set(LoomerAttribute_Bookmarks_Bookmark_Name, title);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, position);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Url, Url{"http://x/"});
  if (isFolder) {
    map.insert(std::make_unique<CorvaneBookmarkFolder>(uid));
  } else {
    map.insert(std::make_unique<CorvaneBookmarkRecord>(uid));
  }
  map.find(uid)->updateWithVessynDictionary(record, map);
  return *map.find(uid);
}

CorvaneBookmarkFolder& ModelTest::parent(const char* uid, std::vector<String> children) {
  map.insert(std::make_unique<CorvaneBookmarkFolder>(uid));
  folder(uid).setChildren(std::move(children));
  return folder(uid);
}

void ModelTest::TearDown() { verifyTree(map); }

void verifyTree(const BookmarkMap& map) {
  for (const auto& [uid, entry] : map) {
    if (!entry.node) continue;
    EXPECT_TRUE(entry.node->uid() == uid) << "a node stands under its uid";
    const CorvaneBookmarkFolder* folder = entry.node->asFolder();
    EXPECT_NE(folder == nullptr, entry.node->asRecord() == nullptr) << "a node is of one kind";
  }
}

std::vector<std::string> writtenUids(const Dictionary& folder) {
  std::vector<std::string> uids;
  if (const Array* children = folder.array("Children")) {
    for (const Value& child : *children) {
      uids.push_back(child.as<Dictionary>()->string("WebBookmarkUUID").toString());
    }
  }
  return uids;
}

}  // namespace corvane
