// Where a child goes among its siblings.

#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

class InsertionRuleTest : public ModelTest {};

TEST_F(InsertionRuleTest, KnownPositionsGoByNumberThenTitleThenKind) {
  // Placing a bookmark with position 3 into children with positions 0, 2, 3 ("B" titled), 5: with title "a"
  // it goes before the sibling at 3; with title "c" after it; with title "b" after it, while a folder titled
  // "b" goes before it.
  const struct {
    bool isFolder;
    const char* title;
    int position;
    std::vector<std::string> expected;
  } rows[] = {
      {kBookmark, "a", 3, {"p0", "p2", "NEW", "p3", "p5"}},
      {kBookmark, "c", 3, {"p0", "p2", "p3", "NEW", "p5"}},
      {kBookmark, "b", 3, {"p0", "p2", "p3", "NEW", "p5"}},
      {kFolder, "b", 3, {"p0", "p2", "NEW", "p3", "p5"}},
      {kFolder, "c", 3, {"p0", "p2", "p3", "NEW", "p5"}},
      {kBookmark, nullptr, 3, {"p0", "p2", "p3", "NEW", "p5"}},  // an absent title compares as equal
      {kFolder, nullptr, 3, {"p0", "p2", "NEW", "p3", "p5"}},
      {kBookmark, "z", 1, {"p0", "NEW", "p2", "p3", "p5"}},
      {kBookmark, "a", 6, {"p0", "p2", "p3", "p5", "NEW"}},
      {kBookmark, "a", -1, {"NEW", "p0", "p2", "p3", "p5"}},
      {kBookmark, "a", -2147483648, {"NEW", "p0", "p2", "p3", "p5"}},
  };
  add("p0", kBookmark, "q", 0);
  add("p2", kFolder, "q", 2);
  add("p3", kBookmark, "B", 3);
  add("p5", kBookmark, "q", 5);
  for (const auto& row : rows) {
    parent("F", {"p0", "p2", "p3", "p5"}).addChild(add("NEW", row.isFolder, row.title, row.position), map);
    EXPECT_EQ(childrenOf("F"), row.expected) << (row.title ? row.title : "(none)") << " at " << row.position;
  }
}

TEST_F(InsertionRuleTest, SiblingWithoutTitleSortsAsEmptyText) {
  add("S", kBookmark, nullptr, 3);
  parent("F", {"S"}).addChild(add("A", kFolder, "a", 3), map);
  EXPECT_EQ(childrenOf("F"), (std::vector<std::string>{"S", "A"}));
}

TEST_F(InsertionRuleTest, UnknownPositionsGoByTitle) {
  const struct {
    const char* title;
    std::vector<std::string> expected;
  } rows[] = {
      {"A", {"NEW", "b", "d"}},
      {"b", {"b", "NEW", "d"}},
      {"B", {"b", "NEW", "d"}},
      {"c", {"b", "NEW", "d"}},
      {"e", {"b", "d", "NEW"}},
      {nullptr, {"b", "d", "NEW"}},
      {"\u00c9t\u00e9", {"b", "d", "NEW"}},
  };
  add("b", kBookmark, "b", 5);
  add("d", kFolder, "D", 1);
  for (const auto& row : rows) {
    parent("F", {"b", "d"}).addChild(add("NEW", kBookmark, row.title, kUnknownPosition), map);
    EXPECT_EQ(childrenOf("F"), row.expected) << (row.title ? row.title : "(none)");
  }
}

TEST_F(InsertionRuleTest, UnknownPositionInTheRootStaysBehindTheSpecialFolders) {
  // Placing a child of unknown position into the root whose list starts with the two special folders: it
  // never goes before them; among the rest it goes before the first sibling whose title sorts after its own,
  // ignoring case.
  read(rootEntry({folderEntry("Bar", "BookmarksBar"), folderEntry("Menu", "BookmarksMenu"),
                  bookmarkEntry("c", "c"), bookmarkEntry("B", "B")}));
  map.root()->addChild(add("NEW", kBookmark, "A", kUnknownPosition), map);
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"Bar", "Menu", "NEW", "c", "B"}));
}

TEST_F(InsertionRuleTest, SpecialFoldersOutsideTheRootAreSiblingsLikeAnyOther) {
  Dictionary special = folderRecord("z", "F");
  special.set(LoomerAttribute_Bookmarks_Bookmark_Position, kSpecialPosition);
  parent("F", {});
  CorvaneBookmarkFolder::bookmarkWithUid("S", special, map);
  ASSERT_TRUE(node("S").special());
  folder("F").addChild(add("NEW", kBookmark, "a", kUnknownPosition), map);
  EXPECT_EQ(childrenOf("F"), (std::vector<std::string>{"NEW", "S"}));
}

TEST_F(InsertionRuleTest, RootIsKnownByItsInstanceAlone) {
  // A folder whose uid merely reads "Root" is not the root.
  Dictionary special = folderRecord("z");
  special.set(LoomerAttribute_Bookmarks_Bookmark_Position, kSpecialPosition);
  CorvaneBookmarkFolder::bookmarkWithUid("S", special, map);
  parent("Root", {"S"}).addChild(add("NEW", kBookmark, "a", kUnknownPosition), map);
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"NEW", "S"}));
}

TEST_F(InsertionRuleTest, MissingSiblingStopsTheWalk) {
  // Placing into a folder whose list names a uid the map does not hold: with a known position the child goes
  // before that uid; by title likewise.
  add("a", kBookmark, "a", 0);
  parent("F", {"a", "gone", "b"}).addChild(add("NEW", kBookmark, "z", 9), map);
  EXPECT_EQ(childrenOf("F"), (std::vector<std::string>{"a", "NEW", "gone", "b"}));
  parent("F", {"a", "gone", "b"}).addChild(add("NEW", kBookmark, "z", kUnknownPosition), map);
  EXPECT_EQ(childrenOf("F"), (std::vector<std::string>{"a", "NEW", "gone", "b"}));
}

TEST_F(InsertionRuleTest, UntitledSiblingStopsPlacingByTitle) {
  add("a", kBookmark, "a", 0);
  add("untitled", kBookmark, nullptr, 1);
  parent("F", {"a", "untitled"}).addChild(add("NEW", kBookmark, "z", kUnknownPosition), map);
  EXPECT_EQ(childrenOf("F"), (std::vector<std::string>{"a", "NEW", "untitled"}));
}

TEST_F(InsertionRuleTest, FirstChildMakesTheList) {
  map.insert(std::make_unique<CorvaneBookmarkFolder>("F"));
  ASSERT_EQ(folder("F").children(), nullptr);
  folder("F").addChild(add("A", kBookmark, "a", 0), map);
  EXPECT_EQ(childrenOf("F"), std::vector<std::string>{"A"});
}

TEST_F(InsertionRuleTest, ChildWithoutAUidIsNotPlaced) {
  const CorvaneBookmarkRecord nameless{String()};
  map.insert(std::make_unique<CorvaneBookmarkFolder>("F"));
  folder("F").addChild(nameless, map);
  EXPECT_EQ(folder("F").children(), nullptr);
  parent("G", {"b"}).addChild(nameless, map);
  EXPECT_EQ(childrenOf("G"), std::vector<std::string>{"b"});
}

TEST_F(InsertionRuleTest, RemovingTakesOutEveryOccurrence) {
  // Removing a child whose uid is listed twice removes both.
  add("A", kBookmark, "a", 0);
  parent("F", {"A", "b", "A"}).removeChild(node("A"));
  EXPECT_EQ(childrenOf("F"), std::vector<std::string>{"b"});
  parent("G", {"b"}).removeChild(node("A"));
  EXPECT_EQ(childrenOf("G"), std::vector<std::string>{"b"});
  map.insert(std::make_unique<CorvaneBookmarkFolder>("H"));
  folder("H").removeChild(node("A"));
  EXPECT_EQ(folder("H").children(), nullptr);
}

TEST_F(InsertionRuleTest, AddingDoesNotLookForAnOccurrence) {
  add("A", kBookmark, "a", 1);
  parent("F", {"A"}).addChild(node("A"), map);
  EXPECT_EQ(childrenOf("F"), (std::vector<std::string>{"A", "A"}));
}

}  // namespace
}  // namespace corvane
