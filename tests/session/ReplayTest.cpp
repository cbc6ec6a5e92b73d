#include <gmock/gmock.h>

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string kId = "com.keldra.Corvane - ";

class ReplayTest : public ControllerTest {};

// A bookmark deleted by the engine but edited in the browser during the session survives; a folder in the
// same situation is deleted.
TEST_F(ReplayTest, EditedBookmarksSurviveDeletionAndFoldersDoNot) {
  begin(rootEntry({bookmarkEntry("a", "A"), folderEntry("f", "F")}));
  applyBookmark(kDelete, "a");
  applyFolder(kDelete, "f");
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("a", "Edited"), folderEntry("f", "Edited")}))),
            "Root(a)");
  EXPECT_EQ(
      diagnosed(kId + "attribute(s) changed for bookmark record with uid a in Corvane, so will not delete. "
                      "Original bookmark CorvaneBookmarkRecord - UID:a Title: A, Corvane bookmark "
                      "CorvaneBookmarkRecord - UID:a Title: Edited"),
      1);
}

TEST_F(ReplayTest, UneditedBookmarksAreDeleted) {
  begin(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}));
  applyBookmark(kDelete, "a");
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("b", "B"), bookmarkEntry("a", "A")}))), "Root(b)");
  EXPECT_EQ(diagnosed(kId + "apply delete called for bookmark with uid a"), 1);
}

TEST_F(ReplayTest, LeafInAFoldersPlaceIsNotDeleted) {
  begin(rootEntry({folderEntry("x", "X")}));
  applyFolder(kDelete, "x");
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("x", "X")}))), "Root(x)");
}

TEST_F(ReplayTest, BookmarkWithoutAnOriginalIsDeletedWithImpunity) {
  begin(rootEntry({}));
  applyBookmark(kDelete, "new");
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("new", "N")}))), "Root()");
  EXPECT_EQ(diagnosed(kId + "can't find original bookmark with uid new, will try to remove with impunity"),
            1);
}

// A bookmark that the engine deleted and that the browser already removed is skipped with the "can't find
// bookmark in map" message.
TEST_F(ReplayTest, BookmarkGoneAlreadyIsSkipped) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  applyBookmark(kDelete, "a");
  EXPECT_EQ(tree(*replayed(rootEntry({}))), "Root()");
  EXPECT_EQ(diagnosed(kId + "can't delete bookmark with uid a, can't find bookmark in map"), 1);
}

TEST_F(ReplayTest, BookmarkWithoutAParentIsRemovedAllTheSame) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")})}));
  applyFolder(kDelete, "f");
  applyBookmark(kDelete, "a");
  const auto map = replayed(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")})}));
  EXPECT_EQ(map->size(), 1u);
  EXPECT_EQ(diagnosed(kId + "can't delete bookmark with uid a from parent, parent with uid f not found"), 1);
}

TEST_F(ReplayTest, DeletedRootTakesTheEntryOut) {
  begin(rootEntry({}));
  applyFolder(kDelete, "Root");
  const auto map = replayed(rootEntry({bookmarkEntry("a", "A")}));
  EXPECT_FALSE(map->root());
  EXPECT_EQ(
      diagnosed(kId + "can't delete bookmark with uid Root from parent, parent with uid (null) not found"),
      1);
}

TEST_F(ReplayTest, AddsFoldersTopDownAndThenBookmarks) {
  begin(rootEntry({}));
  applyFolder(kAdd, "child", folderRecord("C", "parent"));
  applyFolder(kAdd, "parent", folderRecord("P"));
  applyBookmark(kAdd, "b", bookmarkRecord("B", "UUID-1"));
  const auto map = replayed(rootEntry({bookmarkEntry("mine", "Mine")}));
  EXPECT_EQ(tree(*map), "Root(mine UUID-2(UUID-1(UUID-3)))");
  EXPECT_EQ(diagnosed(kId + "apply add called for bookmark with uid UUID-3"), 1);
  EXPECT_EQ(diagnosed("uid: UUID-3 has parent UUID-1"), 1);
  EXPECT_THAT(diagnosticsWith("dictOnDisk now looks like {"), SizeIs(3));
}

TEST_F(ReplayTest, AdditionToAMissingParentIsReported) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyBookmark(kAdd, "b", bookmarkRecord("B", "f"));
  const auto map = replayed(rootEntry({}));
  EXPECT_EQ(tree(*map), "Root()");
  EXPECT_TRUE(map->find("UUID-1"));
  EXPECT_EQ(diagnosed(kId + "can't add bookmark with uid UUID-1 to parent, parent with uid f not found"), 1);
}

TEST_F(ReplayTest, NamelessFolderIsSkipped) {
  begin(rootEntry({}));
  applyFolder(kAdd, "e1", folderRecord(nullptr));
  didPull();
  EXPECT_EQ(tree(*replayed(rootEntry({}))), "Root()");
  EXPECT_EQ(diagnosed(kId + "skipping apply of add for bookmark with nil uid"), 1);
}

TEST_F(ReplayTest, WithoutPostProcessingNoFolderIsAdded) {
  begin(rootEntry({}));
  applyFolder(kAdd, "e1", folderRecord("F"));
  EXPECT_EQ(tree(*replayed(rootEntry({}))), "Root()");
}

TEST_F(ReplayTest, ModificationOfAMissingBookmarkIsSkipped) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  applyBookmark(kModify, "a", bookmarkRecord("New", "Root"));
  EXPECT_EQ(tree(*replayed(rootEntry({}))), "Root()");
  EXPECT_EQ(diagnosed(kId + "can't apply changes to bookmark with uid a, bookmark object not found"), 1);
}

TEST_F(ReplayTest, EngineMovesWhatTheBrowserLeft) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")}), folderEntry("g", "G")}));
  applyBookmark(kModify, "a", bookmarkRecord("New", "g"));
  const auto map =
      replayed(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")}), folderEntry("g", "G")}));
  EXPECT_EQ(tree(*map), "Root(f() g(a))");
  EXPECT_EQ(map->find("a")->title(), "New");
  EXPECT_EQ(diagnosed(kId + "apply move for bookmark with uid a"), 1);
}

// The browser reordered the bookmark, so that merging its attributes does not place it: the move does.
TEST_F(ReplayTest, MovedBookmarkThatTheBrowserReorderedIsListedInItsNewFolder) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}),
                   folderEntry("g", "G", {bookmarkEntry("c", "C")})}));
  applyBookmark(kModify, "a", atPosition(bookmarkRecord("A", "g"), 0));
  const auto map =
      replayed(rootEntry({folderEntry("f", "F", {bookmarkEntry("b", "B"), bookmarkEntry("a", "A")}),
                          folderEntry("g", "G", {bookmarkEntry("c", "C")})}));
  EXPECT_EQ(tree(*map), "Root(f(b) g(c a))");
}

TEST_F(ReplayTest, MovedFolderThatTheBrowserReorderedIsListedInItsNewFolder) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")}), folderEntry("g", "G")}));
  applyFolder(kModify, "f", folderRecord("F", "g"));
  didPull();
  EXPECT_EQ(
      tree(*replayed(rootEntry({folderEntry("g", "G"), folderEntry("f", "F", {bookmarkEntry("a", "A")})}))),
      "Root(g(f(a)))");
}

// A bookmark moved both in the browser and by the engine stays where the browser put it, and the engine's
// other attribute changes are still merged.
TEST_F(ReplayTest, BrowsersMoveWins) {
  begin(rootEntry(
      {folderEntry("f", "F", {bookmarkEntry("a", "A")}), folderEntry("g", "G"), folderEntry("h", "H")}));
  applyBookmark(kModify, "a", bookmarkRecord("New", "g", "http://new.example/"));
  const auto map = replayed(rootEntry(
      {folderEntry("f", "F"), folderEntry("g", "G"), folderEntry("h", "H", {bookmarkEntry("a", "A")})}));
  EXPECT_EQ(tree(*map), "Root(f() g() h(a))");
  EXPECT_EQ(map->find("a")->title(), "New");
  EXPECT_EQ(map->find("a")->asRecord()->url(), "http://new.example/");
  EXPECT_EQ(
      diagnosed(kId +
                "bookmark moved in Corvane and moved in sync, ignoring move in sync. Bookmark uid is a, "
                "original parent is f, moved parent is g, corvane moved parent is h"),
      1);
}

TEST_F(ReplayTest, BrowsersTitleWinsAndTheEnginesUrlIsTaken) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  applyBookmark(kModify, "a", bookmarkRecord("Engine", "Root", "http://new.example/"));
  const auto map = replayed(rootEntry({bookmarkEntry("a", "Browser")}));
  EXPECT_EQ(map->find("a")->title(), "Browser");
  EXPECT_EQ(map->find("a")->asRecord()->url(), "http://new.example/");
}

TEST_F(ReplayTest, ParentThatIsGoneMovesNothing) {
  begin(rootEntry({folderEntry("g", "G"), bookmarkEntry("a", "A")}));
  applyBookmark(kModify, "a", bookmarkRecord("New", "g"));
  const auto map = replayed(rootEntry({bookmarkEntry("a", "A")}));
  EXPECT_EQ(tree(*map), "Root(a)");
  EXPECT_EQ(map->find("a")->title(), "New");
  EXPECT_EQ(diagnosed(kId + "can't apply changes to bookmark with uid a, parent not found"), 1);
}

TEST_F(ReplayTest, BookmarkIsNoParent) {
  begin(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}));
  applyBookmark(kModify, "a", bookmarkRecord("A", "b"));
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}))), "Root(a b)");
}

// The old place is found through the original parent, so without an original the present one still lists it.
TEST_F(ReplayTest, MoveWithoutAnOriginalLeavesThePresentPlace) {
  begin(rootEntry({folderEntry("g", "G")}));
  applyBookmark(kModify, "new", bookmarkRecord("N", "g"));
  const auto map =
      replayed(rootEntry({folderEntry("f", "F", {bookmarkEntry("new", "N")}), folderEntry("g", "G")}));
  EXPECT_EQ(tree(*map), "Root(f(new) g(new))");
  EXPECT_EQ(diagnosed(kId + "can't find original bookmark for uid, so modifying with impunity"), 1);
}

TEST_F(ReplayTest, RootReachesTheMovedMessage) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  Dictionary record = folderRecord("/");
  record.set(LoomerRelationship_Bookmarks_Folder_Parent, Array());
  record.set("is tab group", 1);
  applyFolder(kModify, "Root", record);
  didPull();
  const auto map = replayed(rootEntry({bookmarkEntry("a", "A")}));
  EXPECT_EQ(tree(*map), "Root(a)");
  EXPECT_TRUE(map->root()->autoTab());
  EXPECT_EQ(
      diagnosed(kId +
                "bookmark moved in Corvane and moved in sync, ignoring move in sync. Bookmark uid is Root, "
                "original parent is (null), moved parent is (null), corvane moved parent is (null)"),
      1);
}

TEST_F(ReplayTest, FolderModificationsAreReplayedTranslated) {
  begin(rootEntry({folderEntry("f", "F")}));
  applyFolder(kAdd, "e1", folderRecord("New"));
  applyFolder(kModify, "f", folderRecord("Renamed", "e1"));
  didPull();
  const auto map = replayed(rootEntry({folderEntry("f", "F")}));
  EXPECT_EQ(tree(*map), "Root(UUID-1(f()))");
  EXPECT_EQ(map->find("f")->title(), "Renamed");
}

// Deletions come before additions: a folder without a position finds its place by title among those that
// are left.
TEST_F(ReplayTest, FoldersAndBookmarksAreDeletedBeforeFoldersAreAdded) {
  const struct {
    Value entry;
    String entity;
  } doomed[] = {{folderEntry("x", "Zeta"), LoomerEntity_Bookmarks_Folder},
                {bookmarkEntry("x", "Zeta"), LoomerEntity_Bookmarks_Bookmark}};
  for (const auto& each : doomed) {
    const Dictionary file = rootEntry({each.entry, folderEntry("g", "Alpha")});
    begin(file);
    applyFolder(kAdd, "e1", folderRecord("Beta", "Root"));
    const std::string added = remapped.toString();
    apply(kDelete, "x", std::nullopt, each.entity);
    didPull();
    EXPECT_EQ(tree(*replayed(file)), "Root(g() " + added + "())") << each.entity.view();
  }
}

// Within each phase, changes are replayed in the order in which they arrived, whatever they are called.
TEST_F(ReplayTest, EachPhaseIsReplayedInTheOrderOfArrival) {
  const Dictionary file = rootEntry({folderEntry("p", "P"), folderEntry("z", "Z"), folderEntry("m", "M"),
                                     folderEntry("b", "B"), bookmarkEntry("q", "Q"), bookmarkEntry("y", "Y"),
                                     bookmarkEntry("n", "N"), bookmarkEntry("c", "C")});
  begin(file);
  platform.uuids.given = {"u9", "u1", "u8", "u2"};
  applyFolder(kDelete, "p");
  applyFolder(kDelete, "b");
  applyFolder(kModify, "z", folderRecord("Z2", "Root"));
  applyFolder(kModify, "m", folderRecord("M2", "Root"));
  applyFolder(kAdd, "e9", folderRecord("Nine", "Root"));
  applyFolder(kAdd, "e1", folderRecord("One", "Root"));
  applyBookmark(kDelete, "q");
  applyBookmark(kDelete, "c");
  applyBookmark(kModify, "y", bookmarkRecord("Y2", "Root"));
  applyBookmark(kModify, "n", bookmarkRecord("N2", "Root"));
  applyBookmark(kAdd, "e8", bookmarkRecord("Eight", "Root"));
  applyBookmark(kAdd, "e2", bookmarkRecord("Two", "Root"));
  platform.log.diagnostics.clear();
  replayed(file);
  std::vector<std::string> replays;
  for (const std::string& line : platform.log.diagnostics) {
    for (const char* begins : {"apply delete called for bookmark with uid ",
                               "apply add called for bookmark with uid ", "applying title change of "}) {
      if (line.find(begins) != std::string::npos) replays.push_back(line);
    }
  }
  EXPECT_THAT(replays, ElementsAre(kId + "apply delete called for bookmark with uid p",
                                   kId + "apply delete called for bookmark with uid b",
                                   kId + "apply delete called for bookmark with uid q",
                                   kId + "apply delete called for bookmark with uid c",
                                   kId + "apply add called for bookmark with uid u9",
                                   kId + "apply add called for bookmark with uid u1",
                                   "applying title change of bookmark z, new title: Z2",
                                   "applying title change of bookmark m, new title: M2",
                                   kId + "apply add called for bookmark with uid u8",
                                   kId + "apply add called for bookmark with uid u2",
                                   "applying title change of bookmark y, new title: Y2",
                                   "applying title change of bookmark n, new title: N2"));
}

// Modified folders come before added bookmarks: one without a position finds its place by title among folders
// that bear their new names. The browser reordered the folder, so the engine leaves it where it is.
TEST_F(ReplayTest, FoldersAreModifiedBeforeBookmarksAreAdded) {
  begin(rootEntry({bookmarkEntry("x", "X"), folderEntry("f", "Alpha"), folderEntry("g", "Gamma")}));
  applyFolder(kModify, "f", folderRecord("Omega", "Root"));
  applyBookmark(kAdd, "e1", bookmarkRecord("Beta", "Root"));
  EXPECT_EQ(tree(*replayed(rootEntry({folderEntry("f", "Alpha"), folderEntry("g", "Gamma")}))),
            "Root(UUID-1 f() g())");
}

// Bookmarks are added before others are modified: one without a position finds its place among the old
// titles.
TEST_F(ReplayTest, BookmarksAreAddedBeforeOthersAreModified) {
  begin(rootEntry({bookmarkEntry("x", "X"), bookmarkEntry("a", "Alpha"), bookmarkEntry("g", "Gamma")}));
  applyBookmark(kModify, "a", bookmarkRecord("Omega", "Root"));
  applyBookmark(kAdd, "e1", bookmarkRecord("Beta", "Root"));
  EXPECT_EQ(tree(*replayed(rootEntry({bookmarkEntry("a", "Alpha"), bookmarkEntry("g", "Gamma")}))),
            "Root(a UUID-1 g)");
}

TEST_F(ReplayTest, CanBeRepeatedOnOtherMaps) {
  begin(rootEntry({folderEntry("f", "F", {bookmarkEntry("a", "A")}), bookmarkEntry("b", "B")}));
  applyFolder(kAdd, "e1", folderRecord("New"));
  applyBookmark(kDelete, "b");
  applyBookmark(kModify, "a", bookmarkRecord("A2", "UUID-1"));
  const Dictionary fresh = rootEntry(
      {folderEntry("f", "F", {bookmarkEntry("a", "A")}), bookmarkEntry("b", "B"), bookmarkEntry("c", "C")});
  const std::string once = tree(*replayed(fresh));
  EXPECT_EQ(once, "Root(f() c UUID-1(a))");
  EXPECT_EQ(tree(*replayed(fresh)), once);
}

}  // namespace
}  // namespace corvane
