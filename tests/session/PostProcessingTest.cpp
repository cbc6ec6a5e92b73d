#include <gmock/gmock.h>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

Dictionary withParents(Dictionary record, Array parents) {
  record.set(LoomerRelationship_Bookmarks_Folder_Parent, std::move(parents));
  return record;
}

class PostProcessingTest : public ControllerTest {};

// Added folders arriving child first are created parent first.
TEST_F(PostProcessingTest, ChildFirstIsCreatedParentFirst) {
  begin(rootEntry({}));
  applyFolder(kAdd, "grandchild", folderRecord("C", "child"));
  applyFolder(kAdd, "child", folderRecord("B", "parent"));
  applyFolder(kAdd, "parent", folderRecord("A"));
  didPull();
  EXPECT_EQ(tree(working()), "Root(UUID-3(UUID-2(UUID-1())))");
  EXPECT_EQ(diagnosed("_fillOutAddedFoldersTopDownKeys done.  keys == (UUID-3, UUID-2, UUID-1)"), 1);
  EXPECT_EQ(tree(*replayed(rootEntry({}))), "Root(UUID-3(UUID-2(UUID-1())))");
}

// An added folder whose parent is neither in the working map nor among the added folders is never created and
// is left out of the top-down keys without a message.
TEST_F(PostProcessingTest, OrphansAndCyclesAreLeftOutSilently) {
  begin(rootEntry({}));
  applyFolder(kAdd, "orphan", folderRecord("O", "nowhere"));
  applyFolder(kAdd, "x", folderRecord("X", "y"));
  applyFolder(kAdd, "y", folderRecord("Y", "x"));
  applyFolder(kAdd, "self", folderRecord("S", "self"));
  applyFolder(kAdd, "fine", folderRecord("F"));
  didPull();
  EXPECT_EQ(diagnosed("_fillOutAddedFoldersTopDownKeys done.  keys == (UUID-5)"), 1);
  EXPECT_EQ(tree(working()), "Root(UUID-5())");
  EXPECT_EQ(working().size(), 2u);
}

// A held-aside modified folder whose parent is missing from the working map is skipped with the "Broken
// invariant" message.
TEST_F(PostProcessingTest, ModifiedFolderWithAMissingParentIsSkipped) {
  begin(rootEntry({folderEntry("f", "F")}));
  const Dictionary record = folderRecord("New", "nowhere");
  applyFolder(kModify, "f", record);
  platform.log.expectMessages(
      {"Broken invariant: record " + description(record) +
       " should have the parent of id nowhere in the bookmark dictionary.  It does not."});
  didPull();
  EXPECT_EQ(working().find("f")->title(), "F");
  EXPECT_EQ(tree(working()), "Root(f())");
}

// A parent id that names a bookmark names no parent: nothing is created under it or moved there.
TEST_F(PostProcessingTest, BookmarkIsNoParent) {
  begin(rootEntry({bookmarkEntry("a", "A"), folderEntry("f", "F", {bookmarkEntry("b", "B")})}));
  applyFolder(kAdd, "e1", folderRecord("Under a bookmark", "a"));
  const Dictionary record = folderRecord("New", "a");
  applyFolder(kModify, "f", record);
  platform.log.expectMessages({"Broken invariant: record " + description(record) +
                               " should have the parent of id a in the bookmark dictionary.  It does not."});
  didPull();
  EXPECT_EQ(tree(working()), "Root(a f(b))");
  EXPECT_EQ(working().find("f")->parentId(), "Root");
  EXPECT_FALSE(working().find("UUID-1"));
  EXPECT_EQ(diagnosed("_fillOutAddedFoldersTopDownKeys done.  keys == ()"), 1);
}

// A pulled root folder record (no parent, name "/") updates the existing "Root" folder rather than creating a
// second root.
TEST_F(PostProcessingTest, RootRecordUpdatesTheRoot) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  Dictionary record = withParents(folderRecord("/"), Array());
  record.set("is tab group", 1);
  applyFolder(kAdd, "e1", record);
  didPull();
  EXPECT_EQ(working().size(), 2u);
  EXPECT_FALSE(working().find("UUID-1"));
  EXPECT_TRUE(working().root()->autoTab());
  EXPECT_EQ(tree(working()), "Root(a)");
}

TEST_F(PostProcessingTest, RootRecordWithoutARootCreatesAFolder) {
  begin(rootEntry({}));
  applyFolder(kDelete, "Root");
  applyFolder(kAdd, "e1", withParents(folderRecord("/"), Array()));
  didPull();
  ASSERT_TRUE(working().find("UUID-1"));
  EXPECT_EQ(working().find("UUID-1")->title(), "/");
}

TEST_F(PostProcessingTest, ParentlessFoldersAreSkippedWithAMessage) {
  begin(rootEntry({folderEntry("f", "F")}));
  const Dictionary record = withParents(folderRecord("Stray"), Array());
  applyFolder(kAdd, "e1", record);
  applyFolder(kModify, "f", record);
  const std::string line = "No parent specified for non-root folder.  Skipping " + description(record);
  platform.log.expectMessages({line, line});
  didPull();
  EXPECT_EQ(working().find("f")->title(), "F");
  EXPECT_EQ(working().size(), 2u);
}

// A child identifier that names no pulled added folder is kept as it is in the translated record.
TEST_F(PostProcessingTest, TranslatesTheIdentifiersItKnows) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyFolder(kAdd, "e1", folderRecord("A"));
  Dictionary record = folderRecord("New", "e1");
  record.set(LoomerRelationship_Bookmarks_Folder_Children, Array{"stranger", "e1", 5});
  applyFolder(kModify, "f", record);
  didPull();
  EXPECT_EQ(tree(working()), "Root(UUID-1(f()))");
  EXPECT_THAT(diagnosticsWith("_applyHeldAsideFolder:{com.keldra.loomer.RecordEntityName = "
                              "com.keldra.bookmarks.Folder; folder name = New; parent = (UUID-1); "
                              "children = (stranger, UUID-1, 5)} withLocalId:f"),
              SizeIs(1));
}

TEST_F(PostProcessingTest, RecordWithoutChildrenKeepsNone) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyFolder(kModify, "f", folderRecord("New", "Root"));
  didPull();
  EXPECT_THAT(
      diagnosticsWith("_applyHeldAsideFolder:{com.keldra.loomer.RecordEntityName = "
                      "com.keldra.bookmarks.Folder; folder name = New; parent = (Root)} withLocalId:f"),
      SizeIs(1));
}

TEST_F(PostProcessingTest, CollectionNeverMadeIsTracedAsNothing) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyFolder(kModify, "f", folderRecord("New", "Root"));
  didPull();
  EXPECT_EQ(diagnosed("_fillOutAddedFoldersTopDownKeys.  _addedFolders is (null)"), 1);
  EXPECT_EQ(diagnosed("_fillOutAddedFoldersTopDownKeys done.  keys == ()"), 1) << "these are made each time";
}

TEST_F(PostProcessingTest, ModifiedFolderMovesWithItsContents) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")}), folderEntry("g", "G")}));
  applyFolder(kModify, "f", folderRecord("F", "g"));
  didPull();
  EXPECT_EQ(tree(working()), "Root(g(f(a)))");
}

TEST_F(PostProcessingTest, HappensOnceAndLogsBothMaps) {
  begin(rootEntry({}));
  applyFolder(kAdd, "e1", folderRecord("A"));
  didPull();
  didPull();
  EXPECT_EQ(diagnosed("post-proccessing"), 1);
  EXPECT_THAT(diagnosticsWith("_currentBookmarkDictionary pre-post-process {"), SizeIs(1));
  EXPECT_THAT(diagnosticsWith("_currentBookmarkDictionary post-post-process {"), SizeIs(1));
  EXPECT_THAT(diagnosticsWith("_fillOutAddedFoldersTopDownKeys.  _addedFolders is {UUID-1 = {"), SizeIs(1));
}

// A folder moved below itself, and the root moved below one of its folders, cut a part of the tree loose;
// saving what is left must come to an end.
TEST_F(PostProcessingTest, CyclesDoNotLoopForEver) {
  begin(rootEntry(
      {folderEntry("f", "F", {folderEntry("g", "G", {bookmarkEntry("a", "A")})}), bookmarkEntry("b", "B")}));
  applyFolder(kModify, "f", folderRecord("F", "g"));
  didPull();
  EXPECT_EQ(tree(working()), "Root(b)");
  EXPECT_EQ(working().root()->corvaneDictionaryRepresentation(working()).array("Children")->size(), 1u);
}

TEST_F(PostProcessingTest, RootBelowItsOwnFolderDoesNotHang) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyFolder(kModify, "Root", folderRecord("R", "f"));
  didPull();
  EXPECT_GT(working().root()->corvaneDictionaryRepresentation(working()).size(), 0u);
}

}  // namespace
}  // namespace corvane
