// Sizes that only near-linear work survives within a test's time limit. Diagnostics are off here.

#include <gtest/gtest.h>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "tests/kit/TestSize.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

class ScaleTest : public ::testing::Test {
 protected:
  ScaleTest() {
    platform.makeDirectories(platform.process.home + "/Library");
    manager = CorvaneSyncManager::initWithClientId("com.keldra.Corvane");
    controller = std::make_unique<SessionDriverController>("com.keldra.Corvane", *manager);
  }

  int apply(int type, const std::string& identifier, const Dictionary& record, const String& entity) {
    String remapped;
    String error;
    return controller->applyChange(LoomerChange(type, identifier, record), entity, remapped, nullptr, error);
  }
  void didPull() {
    String error;
    const auto driver = loomer.sessionDriverWithDataSource(*controller);
    controller->sessionDriverDidPull(*driver, error);
  }

  StrictPlatform platform;
  ScriptedLoomer loomer;
  std::unique_ptr<CorvaneSyncManager> manager;
  std::unique_ptr<SessionDriverController> controller;
};

std::vector<Value> leaves(int count) {
  std::vector<Value> children;
  for (int i = 0; i < count; ++i)
    children.push_back(bookmarkEntry(("b" + std::to_string(i)).c_str(), "Title"));
  return children;
}

TEST_F(ScaleTest, BookmarksAreMadeOnceWhenTheFirstIsAskedFor) {
  int made = 0;
  controller->setOrigBookmarks([&] {
    ++made;
    return mapped(rootEntry(leaves(2)));
  });
  didPull();
  EXPECT_EQ(made, 0);
  std::vector<std::string> given;
  const auto take = [&](const String& uid, const Dictionary&) { given.push_back(uid.toString()); };
  EXPECT_TRUE(controller->giveRecords(LoomerEntity_Bookmarks_Folder, take));
  EXPECT_TRUE(controller->giveRecords(LoomerEntity_Bookmarks_Bookmark, take));
  EXPECT_EQ(given, (std::vector<std::string>{"b0", "b1"}));
  EXPECT_EQ(controller->currentBookmarkDictionary()->size(), 3u);
  EXPECT_EQ(made, 1);
}

TEST_F(ScaleTest, DeletesAMillionBookmarksAtOnce) {
  controller->setOrigBookmarkDictionary(mapped(rootEntry(leaves(sized(1'000'000, 20'000)))));
  String error;
  EXPECT_TRUE(controller->deleteAllRecordsForEntityName(LoomerEntity_Bookmarks_Bookmark, error));
  EXPECT_EQ(controller->currentBookmarkDictionary()->size(), 1u);
}

TEST_F(ScaleTest, PlacesTwentyThousandFoldersThatArriveChildFirst) {
  controller->setOrigBookmarkDictionary(mapped(rootEntry({})));
  constexpr int kCount = sized(20'000, 5'000);
  for (int i = kCount; i-- > 0;) {
    const std::string parent = i == 0 ? "Root" : "g" + std::to_string(i - 1);
    apply(LoomerChangeTypeAdd, "g" + std::to_string(i), folderRecord("Name", parent.c_str()),
          LoomerEntity_Bookmarks_Folder);
  }
  didPull();
  int depth = -1;
  String uid = kRootUid;
  for (const CorvaneBookmarkFolder* at = nullptr;
       (at = controller->currentBookmarkDictionary()->findFolder(uid)) != nullptr && at->children();) {
    ++depth;
    if (at->children()->empty()) break;
    uid = at->children()->front();
  }
  EXPECT_EQ(controller->currentBookmarkDictionary()->size(), static_cast<std::size_t>(kCount) + 1);
  EXPECT_GE(depth, kCount - 1);
}

TEST_F(ScaleTest, ReplaysAHundredThousandChangesOfOneFolder) {
  constexpr int kHalf = sized(50'000, 2'000);
  const Dictionary bookmarks = rootEntry(leaves(2 * kHalf));
  controller->setOrigBookmarkDictionary(mapped(bookmarks));
  for (int i = 0; i < kHalf; ++i) {
    apply(LoomerChangeTypeDelete, "b" + std::to_string(i), Dictionary(), LoomerEntity_Bookmarks_Bookmark);
    apply(LoomerChangeTypeModify, "b" + std::to_string(kHalf + i),
          atPosition(bookmarkRecord("New", "Root"), i), LoomerEntity_Bookmarks_Bookmark);
    apply(LoomerChangeTypeAdd, "e" + std::to_string(i), atPosition(bookmarkRecord("Added", "Root"), i),
          LoomerEntity_Bookmarks_Bookmark);
  }
  const auto fresh = mapped(bookmarks);
  controller->applyChangesToDictionary(*fresh);
  EXPECT_EQ(fresh->root()->children()->size(), 2u * kHalf);
}

}  // namespace
}  // namespace corvane
