#include <gmock/gmock.h>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

class IntakeTest : public ControllerTest {};

// A pulled folder addition whose record lacks a parent is filed with the parent "Root".
TEST_F(IntakeTest, FolderWithoutParentIsAChildOfTheRoot) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  EXPECT_EQ(applyFolder(kAdd, "e1", folderRecord("F")), LoomerChangeAccepted);
  EXPECT_EQ(remapped, "UUID-1");
  EXPECT_EQ(tree(working()), "Root(a)");
  didPull();
  EXPECT_EQ(working().find("UUID-1")->parentId(), "Root");
  EXPECT_EQ(tree(working()), "Root(a UUID-1())");
  EXPECT_EQ(tree(*replayed(rootEntry({}))), "Root(UUID-1())");
}

TEST_F(IntakeTest, BookmarkWithoutParentIsAChildOfTheRoot) {
  begin(rootEntry({}));
  EXPECT_EQ(applyBookmark(kAdd, "e1", bookmarkRecord("B")), LoomerChangeAccepted);
  EXPECT_EQ(tree(working()), "Root(UUID-1)");
}

TEST_F(IntakeTest, ParentOfAnotherTypeCountsAsAbsent) {
  begin(rootEntry({}));
  Dictionary record = bookmarkRecord("B");
  record.set(LoomerRelationship_Bookmarks_Bookmark_Parent, "nowhere");
  applyBookmark(kAdd, "e1", record);
  EXPECT_EQ(tree(working()), "Root(UUID-1)");
}

// A pulled add for an entity other than the two synced ones is answered 3 but still hands back a new uid.
TEST_F(IntakeTest, AddOfAnotherEntityHandsBackAUid) {
  begin(rootEntry({}));
  platform.log.expectMessages(
      {"I was asked to apply a change: " + LoomerChange(kAdd, "e1", Dictionary{{"k", "v"}}).description() +
       " for an entity I don't sync: Tag"});
  EXPECT_EQ(apply(kAdd, "e1", Dictionary{{"k", "v"}}, "Tag"), LoomerChangeError);
  EXPECT_EQ(remapped, "UUID-1");
  EXPECT_TRUE(controller->bookmarksChanged());
}

// A modify for a bookmark whose parent is unchanged does not remove it from its parent before updating it.
// That shows nowhere, since the update itself takes the bookmark out and puts it back: here, that it stands
// there once and in its new place.
TEST_F(IntakeTest, ModifyInTheSameParentPlacesTheBookmarkOnce) {
  begin(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B"), bookmarkEntry("c", "C")}));
  EXPECT_EQ(applyBookmark(kModify, "a", atPosition(bookmarkRecord("New", "Root"), 2)), LoomerChangeAccepted);
  EXPECT_EQ(tree(working()), "Root(b c a)");
  EXPECT_EQ(working().find("a")->title(), "New");
}

TEST_F(IntakeTest, ModifyMovesTheBookmarkOutOfItsParent) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")}), folderEntry("g", "G")}));
  applyBookmark(kModify, "a", bookmarkRecord("A", "g"));
  EXPECT_EQ(tree(working()), "Root(f() g(a))");
}

TEST_F(IntakeTest, ModifyOfAMissingBookmarkIsFiled) {
  begin(rootEntry({}));
  EXPECT_EQ(applyBookmark(kModify, "ghost", bookmarkRecord("New", "Root")), LoomerChangeAccepted);
  EXPECT_EQ(tree(working()), "Root()");
  EXPECT_EQ(replayed(rootEntry({bookmarkEntry("ghost", "Old")}))->find("ghost")->title(), "New");
}

// The engine names every record; a change without an identifier is taken in, and harms nothing.
TEST_F(IntakeTest, ChangesWithoutAnIdentifierAreAccepted) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  EXPECT_EQ(applyFolder(kAdd, String(), folderRecord("F")), LoomerChangeAccepted);
  EXPECT_EQ(remapped, "UUID-1");
  EXPECT_EQ(applyFolder(kModify, String(), folderRecord("G")), LoomerChangeAccepted);
  EXPECT_EQ(applyFolder(kDelete, String()), LoomerChangeAccepted);
  EXPECT_EQ(applyBookmark(kModify, String(), bookmarkRecord("B")), LoomerChangeAccepted);
  EXPECT_EQ(applyBookmark(kDelete, String()), LoomerChangeAccepted);
  EXPECT_EQ(applyBookmark(kAdd, String(), bookmarkRecord("C")), LoomerChangeAccepted);
  didPull();
  EXPECT_EQ(tree(working()), "Root(a UUID-2 UUID-1())");
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("b", "B")}))), "Root(b UUID-2 UUID-1())");
}

// No list names a bookmark that is a child of another bookmark.
TEST_F(IntakeTest, DeletesABookmarkWhoseParentIsABookmark) {
  begin(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}));
  applyBookmark(kModify, "a", bookmarkRecord("A", "b"));
  EXPECT_EQ(working().find("a")->parentId(), "b");
  EXPECT_EQ(applyBookmark(kDelete, "a"), LoomerChangeAccepted);
  EXPECT_FALSE(working().find("a"));
  EXPECT_EQ(tree(working()), "Root(b)");
}

// Deleting a folder leaves its children's entries in the working map.
TEST_F(IntakeTest, DeletedFolderLeavesItsChildrenInTheMap) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")})}));
  EXPECT_EQ(applyFolder(kDelete, "f"), LoomerChangeAccepted);
  EXPECT_EQ(tree(working()), "Root()");
  EXPECT_FALSE(working().find("f"));
  EXPECT_TRUE(working().find("a"));
}

TEST_F(IntakeTest, DeletingWhatIsMissingIsAcceptedAndFiled) {
  begin(rootEntry({}));
  EXPECT_EQ(applyBookmark(kDelete, "ghost"), LoomerChangeAccepted);
  EXPECT_EQ(applyFolder(kDelete, "ghost folder"), LoomerChangeAccepted);
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("ghost", "G"), folderEntry("ghost folder", "F")}))),
            "Root()");
}

TEST_F(IntakeTest, IgnoredBookmarksAreLeftAloneButCount) {
  begin(rootEntry({hidden(folderEntry("f", "F", {bookmarkEntry("a", "A")}))}));
  EXPECT_EQ(applyBookmark(kDelete, "a"), LoomerChangeIgnored);
  EXPECT_EQ(applyFolder(kModify, "f", folderRecord("New")), LoomerChangeIgnored);
  EXPECT_EQ(tree(working()), "Root(f(a))");
  EXPECT_TRUE(controller->bookmarksChanged());
  EXPECT_FALSE(controller->pulledTheTruth());
  EXPECT_THAT(diagnosticsWith("applyChange (type"), IsEmpty());
}

TEST_F(IntakeTest, LogsTheRecordAsFilledIn) {
  begin(rootEntry({}));
  applyFolder(kModify, "f", Dictionary{{"k", "v"}});
  applyFolder(kDelete, "f");
  EXPECT_EQ(diagnosed("applyChange (type = 2): called with record {k = v; parent = (Root)}"), 1);
  EXPECT_EQ(diagnosed("applyChange (type = 3): called with record {parent = (Root)}"), 1);
}

// A change of type 4 or 0 is answered 3 with the "not an add, modify, or delete" message.
TEST_F(IntakeTest, OtherTypesAreErrors) {
  begin(rootEntry({bookmarkEntry("a", "A"), folderEntry("f", "F")}));
  for (const int type : {4, 0, -1}) {
    for (const char* uid : {"a", "f"}) {
      platform.log.expectMessages({"Asked to apply a change that's not an add, modify, or delete: " +
                                   LoomerChange(type, uid, std::nullopt).description()});
    }
    EXPECT_EQ(applyBookmark(type, "a"), LoomerChangeError);
    EXPECT_EQ(applyFolder(type, "f"), LoomerChangeError);
    EXPECT_FALSE(remapped);
  }
  EXPECT_EQ(tree(working()), "Root(a f())");
}

TEST_F(IntakeTest, FirstBookmarkChangePlacesTheFoldersBeforeIt) {
  begin(rootEntry({}));
  applyFolder(kAdd, "e1", folderRecord("F"));
  EXPECT_EQ(tree(working()), "Root()");
  applyBookmark(kAdd, "e2", bookmarkRecord("B", "UUID-1"));
  EXPECT_EQ(tree(working()), "Root(UUID-1(UUID-2))");
  EXPECT_EQ(diagnosed("post-proccessing"), 1);

  // Folders that come later are filed, and placed by nobody.
  applyFolder(kAdd, "e3", folderRecord("Late"));
  applyBookmark(kAdd, "e4", bookmarkRecord("C"));
  didPull();
  EXPECT_EQ(diagnosed("post-proccessing"), 1);
  EXPECT_FALSE(working().find("UUID-3"));
  EXPECT_FALSE(replayed(rootEntry({}))->find("UUID-3"));
}

TEST_F(IntakeTest, ChangesOfOtherEntitiesPlaceNoFolders) {
  begin(rootEntry({}));
  applyFolder(kAdd, "e1", folderRecord("F"));
  platform.log.expectMessages(
      {"I was asked to apply a change: " + LoomerChange(kDelete, "x", {}).description() +
       " for an entity I don't sync: Tag"});
  apply(kDelete, "x", std::nullopt, "Tag");
  EXPECT_EQ(tree(working()), "Root()");
}

// Delete-all of folders never deletes the root folder and never starts folder post-processing.
TEST_F(IntakeTest, DeleteAllOfFoldersKeepsTheRoot) {
  begin(rootEntry({folderEntry("f", "F", {folderEntry("g", "G"), bookmarkEntry("a", "A")}),
                   hidden(folderEntry("h", "H")), bookmarkEntry("b", "B")}));
  applyFolder(kAdd, "e1", folderRecord("New"));
  EXPECT_TRUE(deleteAll(LoomerEntity_Bookmarks_Folder));
  EXPECT_EQ(tree(working()), "Root(h() b)");
  EXPECT_TRUE(working().find("a"));
  EXPECT_TRUE(controller->pulledTheTruth());
  EXPECT_THAT(diagnosticsWith("post-proccessing"), IsEmpty());
  EXPECT_EQ(diagnosed("deleteAllRecordsForEntityName: " + LoomerEntity_Bookmarks_Folder.toString()), 1);
}

TEST_F(IntakeTest, DeleteAllOfBookmarksStartsNoPostProcessing) {
  begin(rootEntry({folderEntry("BookmarksBarUid", "BookmarksBar", {bookmarkEntry("a", "A")}),
                   bookmarkEntry("b", "B"), hidden(bookmarkEntry("h", "H"))}));
  applyFolder(kAdd, "e1", folderRecord("New"));
  EXPECT_TRUE(deleteAll(LoomerEntity_Bookmarks_Bookmark));
  EXPECT_EQ(tree(working()), "Root(BookmarksBarUid() h)");
  EXPECT_TRUE(working().contains("BookmarksBar-SpecialBookmarkKey"));
  EXPECT_THAT(diagnosticsWith("post-proccessing"), IsEmpty());
  // Filed as pulled deletions are.
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("b", "B"), bookmarkEntry("z", "Z")}))), "Root(z)");
}

TEST_F(IntakeTest, DeleteAllWithoutARootDeletesEveryFolder) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyFolder(kDelete, "Root");
  EXPECT_TRUE(deleteAll(LoomerEntity_Bookmarks_Folder));
  EXPECT_EQ(working().size(), 0u);
}

// After a delete-all request pulledTheTruth is true even if the entity name was unknown.
TEST_F(IntakeTest, DeleteAllOfAnotherEntityFailsButCounts) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  platform.log.expectMessages({"I was asked to delete all records for an entity I don't sync: Tag"});
  EXPECT_FALSE(deleteAll("Tag"));
  EXPECT_TRUE(controller->pulledTheTruth());
  EXPECT_TRUE(controller->bookmarksChanged());
  EXPECT_EQ(tree(working()), "Root(a)");
  EXPECT_FALSE(error);
}

TEST_F(IntakeTest, OriginalIsNeverTouched) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")})}));
  applyBookmark(kModify, "a", bookmarkRecord("New", "Root"));
  applyFolder(kDelete, "f");
  bool moreComing = false;
  const Dictionary records =
      controller->recordsForEntityName(LoomerEntity_Bookmarks_Bookmark, moreComing, error);
  EXPECT_EQ(records.dictionary("a")->string(LoomerAttribute_Bookmarks_Bookmark_Name.view()), "A");
}

}  // namespace
}  // namespace corvane
