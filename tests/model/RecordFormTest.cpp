// The engine's record form: what a node sends, and what is built from a record.

#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

class RecordFormTest : public ModelTest {
 protected:
  Dictionary recordOf(const char* uid) const { return node(uid).vessynDictionaryRepresentation(map).value(); }
  Url urlSentFor(const char* text) {
    read(rootEntry({bookmarkEntry("A", "a", text)}));
    const Dictionary record = recordOf("A");
    const Value* url = record.find(LoomerAttribute_Bookmarks_Bookmark_Url);
    return url ? *url->as<Url>() : Url{};
  }
};

TEST_F(RecordFormTest, RootHasNoRecordAndItsChildrenNoParentKey) {
  // The root folder yields no record; a folder directly in the root yields a record with no parent key.
  read(rootEntry({folderEntry("F", "f", {folderEntry("G", "g"), bookmarkEntry("A", "a", "http://a/")}),
                  bookmarkEntry("B", "b")}));
  EXPECT_FALSE(map.root()->vessynDictionaryRepresentation(map));
  EXPECT_EQ(recordOf("F"), (Dictionary{{LoomerRecordEntityNameKey, LoomerEntity_Bookmarks_Folder},
                                       {LoomerAttribute_Bookmarks_Folder_Name, "f"},
                                       {LoomerAttribute_Bookmarks_Folder_Position, 0},
                                       {"is tab group", 0}}));
  EXPECT_EQ(recordOf("G"), (Dictionary{{LoomerRecordEntityNameKey, LoomerEntity_Bookmarks_Folder},
                                       {LoomerAttribute_Bookmarks_Folder_Name, "g"},
                                       {LoomerRelationship_Bookmarks_Folder_Parent, Array{"F"}},
                                       {LoomerAttribute_Bookmarks_Folder_Position, 0},
                                       {"is tab group", 0}}));
  EXPECT_EQ(recordOf("A"), (Dictionary{{LoomerRecordEntityNameKey, LoomerEntity_Bookmarks_Bookmark},
                                       {LoomerAttribute_Bookmarks_Bookmark_Name, "a"},
                                       {LoomerRelationship_Bookmarks_Bookmark_Parent, Array{"F"}},
                                       {LoomerAttribute_Bookmarks_Bookmark_Position, 1},
                                       {LoomerAttribute_Bookmarks_Bookmark_Url, Url{"http://a/"}}}));
  EXPECT_FALSE(recordOf("B").find(LoomerRelationship_Bookmarks_Bookmark_Parent));
}

TEST_F(RecordFormTest, SpecialFolderIsSentWithItsPositionAndComesBackSpecial) {
  // A special folder is sent with position -2 and, when it comes back with position -2, is rebuilt as
  // special.
  read(rootEntry({with(folderEntry("Bar", "BookmarksBar"), "WebBookmarkAutoTab", true)}));
  Dictionary record = recordOf("Bar");
  EXPECT_EQ(record.integer32(LoomerAttribute_Bookmarks_Folder_Position.view()), -2);
  EXPECT_EQ(*record.find("is tab group"), Value(1));

  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, -2);
  BookmarkMap elsewhere;
  const auto* rebuilt = CorvaneBookmarkFolder::bookmarkWithUid("New", record, elsewhere);
  EXPECT_TRUE(rebuilt->special());
  EXPECT_EQ(rebuilt->position(), -2);
}

TEST_F(RecordFormTest, UrlWithSpaceIsEscapedWhenTheParserRejectsIt) {
  EXPECT_EQ(urlSentFor("http://example.com/a b").text, "http://example.com/a%20b");
}

TEST_F(RecordFormTest, AcceptedUrlWithASpaceIsNotEscaped) {
  EXPECT_EQ(urlSentFor(" http://example.com/ab ").text, "http://example.com/ab");
}

TEST_F(RecordFormTest, RejectedUrlIsEscapedWithTheSpacesAtItsEnds) {
  EXPECT_EQ(urlSentFor("http://example.com/a b ").text, "http://example.com/a%20b%20");
}

TEST_F(RecordFormTest, ParsableUrlTravelsAsTyped) {
  EXPECT_EQ(urlSentFor("javascript:alert(1)").text, "javascript:alert(1)");
}

TEST_F(RecordFormTest, BareHostGainsItsScheme) {
  EXPECT_EQ(urlSentFor("example.com").text, "http://example.com");
}

TEST_F(RecordFormTest, UrlThatCannotBeRepairedIsLeftOutWithAWarning) {
  EXPECT_FALSE(urlSentFor("http://[bad").text);
  platform.log.expectMessages(
      {"Warning - url \"http://[bad\" for Bookmark \"a\" is invalid, not syncing url value for bookmark"});
}

TEST_F(RecordFormTest, RecordWithoutUrlGivesABookmarkWithoutOne) {
  // A bookmark record built from a record without a URL attribute has no URL; the unknown-type warning is
  // logged once.
  Dictionary record = bookmarkRecord("a", "Root");
  record.remove(LoomerAttribute_Bookmarks_Bookmark_Url);
  const auto* built = CorvaneBookmarkRecord::bookmarkWithUid("A", record, map);
  EXPECT_FALSE(built->url());
  platform.log.expectMessages({"setURL called with an unknown type (null)"});
}

TEST_F(RecordFormTest, TabGroupIsSetByOneAlone) {
  // A folder record with "is tab group" 1 yields the auto-tab flag set; any other value, or none, yields it
  // cleared.
  const struct {
    Value value;
    bool expected;
  } rows[] = {{1, true},  {true, true}, {1.5, true},  {0, false},
              {2, false}, {-1, false},  {"1", false}, {false, false}};
  for (const auto& row : rows) {
    Dictionary record = folderRecord("f", "Root");
    record.set("is tab group", row.value);
    EXPECT_EQ(CorvaneBookmarkFolder::bookmarkWithUid("F", record, map)->autoTab(), row.expected)
        << description(row.value);
  }
  EXPECT_FALSE(CorvaneBookmarkFolder::bookmarkWithUid("F", folderRecord("f", "Root"), map)->autoTab());
}

TEST_F(RecordFormTest, BuildingForAKnownIdentifierReplacesTheNode) {
  // Building a node for an identifier already in the map replaces the old node in the map; the old node stays
  // listed in its parent until removed.
  read(rootEntry({folderEntry("F", "f", {bookmarkEntry("A", "old")}), folderEntry("G", "g")}));
  CorvaneBookmarkRecord::bookmarkWithUid("A", bookmarkRecord("new", "G"), map);
  EXPECT_TRUE(node("A").title() == "new");
  EXPECT_EQ(childrenOf("F"), std::vector<std::string>{"A"});
  EXPECT_EQ(childrenOf("G"), std::vector<std::string>{"A"});
}

TEST_F(RecordFormTest, NamelessFolderRecordLeavesTheMapUntouched) {
  read(rootEntry({bookmarkEntry("F", "kept")}));
  EXPECT_EQ(CorvaneBookmarkFolder::bookmarkWithUid("F", Dictionary{}, map), nullptr);
  EXPECT_TRUE(map.find("F")->asRecord());
}

TEST_F(RecordFormTest, NamelessBookmarkRecordIsBuilt) {
  const auto* built = CorvaneBookmarkRecord::bookmarkWithUid("A", Dictionary{}, map);
  ASSERT_TRUE(built);
  EXPECT_FALSE(built->title());
  EXPECT_FALSE(built->parentId());
  EXPECT_EQ(built->position(), kUnknownPosition);
  EXPECT_FALSE(built->isIgnoredBySync());
  EXPECT_FALSE(built->initialCorvaneDictionaryRepresentation());
  platform.log.expectMessages({"setURL called with an unknown type (null)"});
}

TEST_F(RecordFormTest, SetUrlTakesStringsAndUrlsAndKeepsTheOldOneOtherwise) {
  CorvaneBookmarkRecord record("A");
  const Value text("typed"), url(Url{"http://b/"}), number(5);
  record.setUrl(&text);
  EXPECT_TRUE(record.url() == "typed");
  record.setUrl(&url);
  EXPECT_TRUE(record.url() == "http://b/");
  record.setUrl(&number);
  record.setUrl(nullptr);
  EXPECT_TRUE(record.url() == "http://b/");
  platform.log.expectMessages(
      {"setURL called with an unknown type integer", "setURL called with an unknown type (null)"});
}

TEST_F(RecordFormTest, NothingIsBuiltUnderAnAbsentUid) {
  read(rootEntry({bookmarkEntry("A", "a")}));
  EXPECT_EQ(CorvaneBookmarkFolder::bookmarkWithUid(String(), folderRecord("f", "Root"), map), nullptr);
  EXPECT_EQ(CorvaneBookmarkRecord::bookmarkWithUid(String(), bookmarkRecord("b", "Root"), map), nullptr);
  EXPECT_EQ(map.keys(), (std::vector<String>{"Root", "A"}));
  EXPECT_EQ(childrenOf("Root"), std::vector<std::string>{"A"});
}

}  // namespace
}  // namespace corvane
