#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "CorvaneSyncClient/session/TopDownFolders.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

// The order told pass by pass, as slow as it sounds.
TopDownFolders passByPass(const SyncRecords& folders, const BookmarkMap& map) {
  TopDownFolders result;
  std::vector<String> pending = folders.keys();
  for (bool placed = true; placed;) {
    placed = false;
    for (const String& key : std::vector<String>(pending)) {
      const Dictionary& record = *folders.find(key);
      const String parent = folderParentInRecord(record);
      const bool drop = !parent && !isNamedAsRoot(record);
      const bool isPlaced = std::find(result.keys.begin(), result.keys.end(), parent) != result.keys.end();
      const bool place = !drop && (!parent || map.findFolder(parent) || isPlaced);
      if (drop) result.parentless.push_back(key);
      if (place) result.keys.push_back(key);
      if (drop || place) pending.erase(std::find(pending.begin(), pending.end(), key));
      placed = placed || place;
    }
  }
  return result;
}

std::vector<std::string> texts(const std::vector<String>& keys) {
  std::vector<std::string> result;
  for (const String& key : keys) result.push_back(key.toString());
  return result;
}

RC_GTEST_PROP(TopDownFolders, IsTheOrderOfPasses, ()) {
  const int count = *rc::gen::inRange(0, 40);
  const auto map = mapped(rootEntry({folderEntry("known", "Known"), bookmarkEntry("leaf", "Leaf")}));
  SyncRecords folders;
  for (int i = 0; i < count; ++i) {
    // Mostly another added folder, itself included; now and then a known parent, an unknown one, a bookmark
    // or none.
    const int parent = *rc::gen::inRange(-6, count);
    const std::string uid = "f" + std::to_string(i);
    const std::string parentUid = "f" + std::to_string(parent);
    const char* parentText = parentUid.c_str();
    if (parent == -1) parentText = "known";
    if (parent == -2) parentText = "nowhere";
    if (parent == -3) parentText = "leaf";
    if (parent < -3) parentText = nullptr;
    folders.set(uid, folderRecord(parent == -4 ? "/" : "Name", parentText));
  }
  const TopDownFolders expected = passByPass(folders, *map);
  const TopDownFolders actual = topDownFolders(folders, *map);
  RC_ASSERT(texts(actual.keys) == texts(expected.keys));
  RC_ASSERT(texts(actual.parentless) == texts(expected.parentless));
}

// Orders of a chain that shuffles of it bring about are where passes matter most.
RC_GTEST_PROP(TopDownFolders, IsTheOrderOfPassesForShuffledChains, ()) {
  const int count = *rc::gen::inRange(1, 60);
  std::vector<int> arrivals(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) arrivals[static_cast<std::size_t>(i)] = i;
  for (std::size_t i = arrivals.size(); i > 1; --i) {
    std::swap(arrivals[i - 1], arrivals[static_cast<std::size_t>(*rc::gen::inRange(0, static_cast<int>(i)))]);
  }
  const auto map = mapped(rootEntry({}));
  SyncRecords folders;
  for (const int i : arrivals) {
    const std::string parent = i == 0 ? "Root" : "f" + std::to_string(i - 1);
    folders.set("f" + std::to_string(i), folderRecord("Name", parent.c_str()));
  }
  RC_ASSERT(texts(topDownFolders(folders, *map).keys) == texts(passByPass(folders, *map).keys));
}

}  // namespace
}  // namespace corvane
