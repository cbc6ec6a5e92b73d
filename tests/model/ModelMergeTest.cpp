// Applying records to nodes: overwriting and merging three ways.

#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

class ModelMergeTest : public ModelTest {
 protected:
  // A root with the bookmark A ("a") between X and Y; the original is what it was before the test's own
  // change.
  void SetUp() override {
    read(rootEntry({bookmarkEntry("X", "x"), bookmarkEntry("A", "a", "http://a/"), bookmarkEntry("Y", "y"),
                    folderEntry("F", "f")}));
    original = map.scDeepMutableCopy();
  }
  Dictionary bookmarkChange(const char* name, const char* url, int position) {
    Dictionary record = bookmarkRecord(name, "Root", url);
    record.set(LoomerAttribute_Bookmarks_Bookmark_Position, position);
    return record;
  }
  void merge(const char* uid, const Dictionary& record, bool withOriginal = true) {
    node(uid).applyChangesFromVessynDictionary(record, withOriginal ? original->find(uid) : nullptr, map);
  }
  void setUrl(const char* uid, const char* text) {
    const Value url(text);
    bookmark(uid).setUrl(&url);
  }

  std::unique_ptr<BookmarkMap> original;
};

TEST_F(ModelMergeTest, BrowserRenameAndEngineAddressBothSurvive) {
  // Merge where the user renamed the bookmark and the engine changed its URL: title kept, URL applied.
  node("A").setTitle("renamed");
  merge("A", bookmarkChange("engine", "http://new/", 1));
  EXPECT_TRUE(node("A").title() == "renamed");
  EXPECT_TRUE(bookmark("A").url() == "http://new/");
}

TEST_F(ModelMergeTest, BrowserAddressAndEngineTitleBothSurvive) {
  setUrl("A", "http://browser/");
  merge("A", bookmarkChange("engine", "http://new/", 1));
  EXPECT_TRUE(node("A").title() == "engine");
  EXPECT_TRUE(bookmark("A").url() == "http://browser/");
}

TEST_F(ModelMergeTest, LocalPositionKeepsPlaceWhileOtherFieldsAreDecided) {
  // Merge where the local position differs from the original: engine position ignored and the node not
  // re-placed, while title and URL are still decided.
  BookmarkMap moved;
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(
      rootEntry({bookmarkEntry("A", "a", "http://a/"), bookmarkEntry("X", "x"), bookmarkEntry("Y", "y")}),
      String(), 0, moved);
  moved.find("A")->applyChangesFromVessynDictionary(bookmarkChange("engine", "http://new/", 9),
                                                    original->find("A"), moved);
  EXPECT_EQ(moved.find("A")->position(), 0);
  EXPECT_EQ(*moved.root()->children(), (std::vector<String>{"A", "X", "Y"}));
  EXPECT_TRUE(moved.find("A")->title() == "engine");
  EXPECT_TRUE(moved.find("A")->asRecord()->url() == "http://new/");
}

// The lists stand in another order than the positions, so that any re-placing shows.
TEST_F(ModelMergeTest, NodeWithALocalPositionStaysWhereItIsListed) {
  BookmarkMap moved;
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(
      rootEntry({bookmarkEntry("A", "a", "http://a/"), folderEntry("F", "f"), bookmarkEntry("X", "x"),
                 bookmarkEntry("Y", "y")}),
      String(), 0, moved);
  const std::vector<String> listed{"X", "A", "Y", "F"};
  moved.root()->setChildren(listed);
  moved.find("A")->applyChangesFromVessynDictionary(bookmarkChange("a", "http://a/", 1), original->find("A"),
                                                    moved);
  EXPECT_EQ(*moved.root()->children(), listed);
  Dictionary record = folderRecord("f", "Root");
  record.set(LoomerAttribute_Bookmarks_Folder_Position, 3);
  moved.find("F")->applyChangesFromVessynDictionary(record, original->find("F"), moved);
  EXPECT_EQ(*moved.root()->children(), listed);
}

TEST_F(ModelMergeTest, RecordWithoutAPositionPlacesTheNodeAnewAllTheSame) {
  Dictionary bookmarkRecord = bookmarkChange("a", "http://a/", 0);
  bookmarkRecord.remove(LoomerAttribute_Bookmarks_Bookmark_Position);
  const struct {
    const char* uid;
    Dictionary record;
  } rows[] = {{"A", bookmarkRecord}, {"F", folderRecord("f", "Root")}};
  for (const auto& row : rows) {
    for (const bool overwrites : {false, true}) {
      SCOPED_TRACE(std::string(row.uid) + (overwrites ? " overwritten" : " merged"));
      map.root()->setChildren({"F", "X", "Y", "A"});
      if (overwrites) {
        node(row.uid).updateWithVessynDictionary(row.record, map);
      } else {
        merge(row.uid, row.record);
      }
      const bool isA = std::string(row.uid) == "A";
      EXPECT_EQ(childrenOf("Root"), (isA ? std::vector<std::string>{"A", "F", "X", "Y"}
                                         : std::vector<std::string>{"X", "Y", "A", "F"}));
    }
  }
}

TEST_F(ModelMergeTest, WithoutOriginalEveryEngineValueIsApplied) {
  // Merge with no original: all engine values applied; an engine record without a name clears the title.
  node("A").setTitle("renamed");
  setUrl("A", "http://browser/");
  Dictionary record = bookmarkChange("engine", "http://new/", 7);
  record.remove(LoomerAttribute_Bookmarks_Bookmark_Name);
  merge("A", record, false);
  EXPECT_FALSE(node("A").title());
  EXPECT_TRUE(bookmark("A").url() == "http://new/");
  EXPECT_EQ(node("A").position(), 7);
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"X", "Y", "F", "A"}));
}

TEST_F(ModelMergeTest, UnchangedTitleIsClearedByANamelessRecord) {
  Dictionary record = bookmarkChange("", "http://a/", 1);
  record.remove(LoomerAttribute_Bookmarks_Bookmark_Name);
  merge("A", record);
  EXPECT_FALSE(node("A").title());
}

TEST_F(ModelMergeTest, ClearedTitleCountsAsTheBrowsersChange) {
  node("A").setTitle(String());
  original->find("A")->setTitle(String());
  merge("A", bookmarkChange("engine", "http://a/", 1));
  EXPECT_FALSE(node("A").title()) << "an absent current title is never equal to the original's";
}

TEST_F(ModelMergeTest, AbsentUrlCountsAsTheBrowsersChange) {
  BookmarkMap other;
  CorvaneBookmarkRecord::bookmarkWithCorvaneDictionary(without(bookmarkEntry("B", "b"), "URLString"), "Root",
                                                       0, other);
  const auto before = other.scDeepMutableCopy();
  other.find("B")->applyChangesFromVessynDictionary(bookmarkChange("b", "http://new/", 0), before->find("B"),
                                                    other);
  EXPECT_FALSE(other.find("B")->asRecord()->url());
  platform.log.expectMessages({"setURL called with an unknown type (null)"});
}

TEST_F(ModelMergeTest, RecordWithoutUrlKeepsTheUrl) {
  Dictionary record = bookmarkChange("a", "", 1);
  record.remove(LoomerAttribute_Bookmarks_Bookmark_Url);
  merge("A", record);
  EXPECT_TRUE(bookmark("A").url() == "http://a/");
  platform.log.expectMessages({"setURL called with an unknown type (null)"});
}

TEST_F(ModelMergeTest, MergeNeverMovesToAnotherFolder) {
  Dictionary record = bookmarkChange("a", "http://a/", 1);
  record.set(LoomerRelationship_Bookmarks_Bookmark_Parent, Array{"F"});
  merge("A", record);
  EXPECT_TRUE(node("A").parentId() == "Root");
  EXPECT_TRUE(childrenOf("F").empty());
}

TEST_F(ModelMergeTest, FolderMergesTitleAutoTabAndPosition) {
  Dictionary record = folderRecord("engine", "Root");
  record.set("is tab group", 1);
  record.set(LoomerAttribute_Bookmarks_Folder_Position, 0);
  merge("F", record);
  EXPECT_TRUE(node("F").title() == "engine");
  EXPECT_TRUE(folder("F").autoTab());
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"F", "X", "A", "Y"}))
      << "\"engine\" sorts before \"x\"";
}

TEST_F(ModelMergeTest, BrowsersAutoTabWins) {
  BookmarkMap toggled;
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(
      with(folderEntry("F", "f"), "WebBookmarkAutoTab", true), "Root", 3, toggled);
  toggled.find("F")->applyChangesFromVessynDictionary(folderRecord("engine", "Root"), original->find("F"),
                                                      toggled);
  EXPECT_TRUE(toggled.findFolder("F")->autoTab());
  EXPECT_TRUE(toggled.find("F")->title() == "engine");
}

TEST_F(ModelMergeTest, OriginalOfTheOtherKindHasNeitherUrlNorAutoTab) {
  original->insert(std::make_unique<CorvaneBookmarkFolder>("A"));
  original->insert(std::make_unique<CorvaneBookmarkRecord>("F"));
  merge("A", bookmarkChange("engine", "http://new/", 1));
  EXPECT_TRUE(bookmark("A").url() == "http://a/") << "a URL that the original lacks is the browser's change";
  Dictionary record = folderRecord("engine", "Root");
  record.set("is tab group", 1);
  merge("F", record);
  EXPECT_TRUE(folder("F").autoTab()) << "both were off: the engine's value is applied";
}

TEST_F(ModelMergeTest, OverwriteOfFolderReadsThePositionUnderTheBookmarksKeyOnly) {
  // Overwrite of a folder whose record carries a position only under the folder position key: position
  // unchanged.
  Dictionary record = folderRecord("f", "Root");
  record.set(LoomerAttribute_Bookmarks_Folder_Position, 0);
  folder("F").updateWithVessynDictionary(record, map);
  EXPECT_EQ(node("F").position(), 3);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, 0);
  folder("F").updateWithVessynDictionary(record, map);
  EXPECT_EQ(node("F").position(), 0);
  EXPECT_EQ(childrenOf("Root").front(), "F");
}

TEST_F(ModelMergeTest, OverwriteClearsWhatTheRecordLacks) {
  folder("F").updateWithVessynDictionary(Dictionary{}, map);
  EXPECT_FALSE(node("F").title());
  EXPECT_FALSE(node("F").parentId());
  EXPECT_EQ(childrenOf("Root").back(), "F") << "without a parent nothing is placed";
}

TEST_F(ModelMergeTest, OverwriteOfBookmarkMovesItIntoTheNamedFolder) {
  map.root()->removeChild(node("A"));
  Dictionary record = bookmarkChange("engine", "http://new/", 0);
  record.set(LoomerRelationship_Bookmarks_Bookmark_Parent, Array{"F"});
  node("A").updateWithVessynDictionary(record, map);
  EXPECT_EQ(childrenOf("F"), std::vector<std::string>{"A"});
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"X", "Y", "F"}));
}

TEST_F(ModelMergeTest, BookmarkIsNoParentToPlaceInto) {
  Dictionary record = bookmarkChange("engine", "http://new/", 0);
  record.set(LoomerRelationship_Bookmarks_Bookmark_Parent, Array{"X"});
  node("A").updateWithVessynDictionary(record, map);
  EXPECT_TRUE(node("A").parentId() == "X");
}

TEST_F(ModelMergeTest, PositionsTruncateAndKeepTheirLowBits) {
  const struct {
    Value position;
    int expected;
  } rows[] = {{2.9, 2}, {-2.9, -2}, {true, 1}, {std::int64_t{0x1'0000'0005}, 5}, {"5", 1}};
  for (const auto& row : rows) {
    Dictionary record = bookmarkChange("a", "http://a/", 0);
    merge("A", bookmarkChange("a", "http://a/", 1), false);
    record.set(LoomerAttribute_Bookmarks_Bookmark_Position, row.position);
    node("A").updateWithVessynDictionary(record, map);
    EXPECT_EQ(node("A").position(), row.expected) << description(row.position);
  }
}

}  // namespace
}  // namespace corvane
