// Nodes, the map that owns them, copies and equality.

#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

class TreeTest : public ModelTest {};

TEST_F(TreeTest, NodesWithAbsentTitlesAreEqualOnlyToThemselves) {
  // Two distinct nodes with equal uid, parent and both titles absent compare unequal; the same node compares
  // equal to itself.
  CorvaneBookmark a("U");
  CorvaneBookmark b("U");
  a.setParentId("P");
  b.setParentId("P");
  EXPECT_FALSE(a.isEqual(b));
  EXPECT_TRUE(a.isEqual(a));
  a.setTitle("T");
  b.setTitle("T");
  EXPECT_TRUE(a.isEqual(b));
}

TEST_F(TreeTest, NodesOfEveryKindAreEqualToThemselvesWhateverTheyLack) {
  const CorvaneBookmark plain("U");
  const CorvaneBookmarkFolder folder("U");
  const CorvaneBookmarkRecord record("U");
  EXPECT_TRUE(plain.isEqual(plain));
  EXPECT_TRUE(folder.isEqual(folder));
  EXPECT_TRUE(record.isEqual(record));
}

TEST_F(TreeTest, ParentsAbsentOnBothSidesAreNotEqual) {
  CorvaneBookmark a("U");
  CorvaneBookmark b("U");
  a.setTitle("T");
  b.setTitle("T");
  EXPECT_FALSE(a.isEqual(b));
  a.setParentId("P");
  EXPECT_FALSE(a.isEqual(b));
  EXPECT_FALSE(b.isEqual(a));
}

TEST_F(TreeTest, ListsOfChildrenAbsentOnBothSidesAreNotEqual) {
  CorvaneBookmarkFolder a("U");
  CorvaneBookmarkFolder b("U");
  for (CorvaneBookmarkFolder* folder : {&a, &b}) {
    folder->setTitle("T");
    folder->setParentId("P");
  }
  EXPECT_FALSE(a.isEqual(b));
  a.setChildren({});
  EXPECT_FALSE(a.isEqual(b));
  EXPECT_FALSE(b.isEqual(a));
  b.setChildren({});
  EXPECT_TRUE(a.isEqual(b)) << "empty lists are equal";
}

TEST_F(TreeTest, SpecialIgnoredAndTheKeptEntryTakeNoPartInEquality) {
  read(rootEntry({folderEntry("F", "BookmarksBar"), bookmarkEntry("A", "a")}));
  BookmarkMap other;
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(
      rootEntry({folderEntry("First", "BookmarksBar"),
                 with(with(folderEntry("F", "BookmarksBar"), "ShouldOmitFromUI", true), "Sync", "mine"),
                 with(with(bookmarkEntry("A", "a"), "ShouldOmitFromUI", true), "Sync", "mine")}),
      String(), 0, other);
  ASSERT_NE(node("F").special(), other.find("F")->special());
  for (const char* uid : {"F", "A"}) {
    SCOPED_TRACE(uid);
    ASSERT_NE(node(uid).isIgnoredBySync(), other.find(uid)->isIgnoredBySync());
    ASSERT_NE(node(uid).initialCorvaneDictionaryRepresentation(),
              other.find(uid)->initialCorvaneDictionaryRepresentation());
    EXPECT_TRUE(node(uid).isEqual(*other.find(uid)));
    EXPECT_TRUE(other.find(uid)->isEqual(node(uid)));
  }
}

TEST_F(TreeTest, EqualityComparesUidTitleAndParent) {
  const auto make = [](const char* uid, const char* title, const char* parent) {
    auto made = std::make_unique<CorvaneBookmark>(uid);
    made->setTitle(title);
    made->setParentId(parent);
    return made;
  };
  const auto node = make("U", "T", "P");
  EXPECT_TRUE(node->isEqual(*make("U", "T", "P")));
  EXPECT_FALSE(node->isEqual(*make("V", "T", "P")));
  EXPECT_FALSE(node->isEqual(*make("U", "t", "P")));
  EXPECT_FALSE(node->isEqual(*make("U", "T", "Q")));
}

TEST_F(TreeTest, RecordsWithoutUrlNeverEqualAnotherNode) {
  read(rootEntry({without(bookmarkEntry("A", "a"), "URLString")}));
  platform.log.expectMessages({"setURL called with an unknown type (null)"});
  const auto copy = bookmark("A").copyWithZone();
  EXPECT_FALSE(bookmark("A").isEqual(*copy));
  EXPECT_TRUE(bookmark("A").isEqual(bookmark("A")));
}

TEST_F(TreeTest, FolderAndItsCopyCompareEqual) {
  // A folder and its copy compare equal; changing the copy's position or auto-tab flag keeps them equal;
  // changing one child uid makes them unequal.
  read(rootEntry({folderEntry("F", "f", {bookmarkEntry("A", "a"), bookmarkEntry("B", "b")})}));
  const auto copied = folder("F").copyWithZone();
  CorvaneBookmarkFolder& copy = *copied->asFolder();
  EXPECT_TRUE(folder("F").isEqual(copy));

  BookmarkMap elsewhere;
  Dictionary record = folderRecord("f", "Root");
  record.set("is tab group", 1);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, 17);
  copy.updateWithVessynDictionary(record, elsewhere);
  EXPECT_EQ(copy.position(), 17);
  EXPECT_TRUE(copy.autoTab());
  EXPECT_TRUE(folder("F").isEqual(copy));

  copy.setChildren({"A", "C"});
  EXPECT_FALSE(folder("F").isEqual(copy));
  copy.setChildren({"B", "A"});
  EXPECT_FALSE(folder("F").isEqual(copy)) << "the order counts";
}

TEST_F(TreeTest, CopyIsInNoMap) {
  // A copy is not in any map; the original's map entry is unchanged.
  read(rootEntry({bookmarkEntry("A", "a", "http://a/")}));
  const CorvaneBookmark* original = map.find("A");
  const auto copy = original->copyWithZone();
  copy->setTitle("changed");
  EXPECT_EQ(map.find("A"), original);
  EXPECT_EQ(map.size(), 2u);
  EXPECT_TRUE(original->title() == "a");
  EXPECT_TRUE(copy->asRecord()->url() == "http://a/");
  EXPECT_EQ(copy->initialCorvaneDictionaryRepresentation(),
            original->initialCorvaneDictionaryRepresentation());
}

TEST_F(TreeTest, DeepMutableCopyKeepsNodesMarkersAndOrder) {
  // A deep copy of a map holding two nodes and a special-folder marker yields three entries: two node copies
  // (distinct objects, equal to the originals) and the marker string.
  BookmarkMap source;
  auto bar = std::make_unique<CorvaneBookmarkFolder>("Bar");
  bar->setTitle("BookmarksBar");
  bar->setParentId(kRootUid);
  bar->setChildren({"A"});
  source.insert(std::move(bar));
  source.insertMarker("BookmarksBar-SpecialBookmarkKey");
  auto leaf = std::make_unique<CorvaneBookmarkRecord>("A");
  leaf->setTitle("a");
  leaf->setParentId("Bar");
  const Value url("http://a/");
  leaf->setUrl(&url);
  source.insert(std::move(leaf));

  const auto copy = source.scDeepMutableCopy();
  EXPECT_EQ(copy->keys(), source.keys());
  ASSERT_EQ(copy->size(), 3u);
  for (const char* uid : {"Bar", "A"}) {
    EXPECT_NE(copy->find(uid), source.find(uid));
    EXPECT_TRUE(source.find(uid)->isEqual(*copy->find(uid)));
  }
  EXPECT_TRUE(copy->contains("BookmarksBar-SpecialBookmarkKey"));
  EXPECT_EQ(copy->find("BookmarksBar-SpecialBookmarkKey"), nullptr) << "a marker is never a node";

  copy->find("A")->setTitle("changed");
  copy->findFolder("Bar")->setChildren({});
  EXPECT_TRUE(source.find("A")->title() == "a");
  EXPECT_EQ(source.findFolder("Bar")->children()->size(), 1u);
}

TEST_F(TreeTest, MarkerStandsUnderItselfInACopyToo) {
  read(rootEntry({folderEntry("Bar", "BookmarksBar"), folderEntry("Menu", "BookmarksMenu")}));
  const auto copy = map.scDeepMutableCopy();
  for (const BookmarkMap* each : {&map, copy.get()}) {
    std::vector<std::string> markers;
    for (const auto& [key, entry] : *each) {
      if (!entry.node) markers.push_back(key.toString());
    }
    const std::string bar = "BookmarksBar-SpecialBookmarkKey";
    const std::string menu = "BookmarksMenu-SpecialBookmarkKey";
    EXPECT_EQ(markers, (std::vector<std::string>{bar, menu}));
  }
}

TEST_F(TreeTest, RootStaysTheRootConstantAfterCopying) {
  read(rootEntry({}));
  const auto copy = map.scDeepMutableCopy();
  EXPECT_TRUE(copy->root()->uid().isSameInstance(kRootUid));
}

TEST_F(TreeTest, AbstractOperationsOnlyLog) {
  // The record form of a plain node yields nothing and one log line whose last field is the number 111.
  CorvaneBookmark plain("U");
  EXPECT_FALSE(plain.vessynDictionaryRepresentation(map));
  plain.updateWithVessynDictionary({}, map);
  plain.applyChangesFromVessynDictionary({}, nullptr, map);
  platform.log.expectMessages(
      {"This is an abstract class.  Why are you calling methods on me? CorvaneSyncClient/CorvaneBookmark: "
       "111",
       "This is an abstract class.  Why are you calling methods on me? CorvaneSyncClient/CorvaneBookmark: "
       "116",
       "This is an abstract class.  Why are you calling methods on me? CorvaneSyncClient/CorvaneBookmark: "
       "120"});
}

TEST_F(TreeTest, DescriptionsShowWhatNodesHold) {
  read(rootEntry({folderEntry("F", "Fold", {bookmarkEntry("1A2B", "News"), bookmarkEntry("X", "x")})}));
  EXPECT_EQ(bookmark("1A2B").description(), "CorvaneBookmarkRecord - UID:1A2B Title: News");
  EXPECT_EQ(folder("F").description(), "CorvaneBookmarkFolder - UID:F Title: Fold Children: (1A2B, X)");
  EXPECT_EQ(CorvaneBookmark("U").description(), "CorvaneBookmark - UID:U Title: (null)");
  EXPECT_EQ(CorvaneBookmarkFolder("U").description(),
            "CorvaneBookmarkFolder - UID:U Title: (null) Children: (null)");
}

TEST_F(TreeTest, MapReplacesAndRemovesNodes) {
  map.insert(std::make_unique<CorvaneBookmarkRecord>("A"));
  map.insert(std::make_unique<CorvaneBookmarkRecord>("B"));
  auto folderA = std::make_unique<CorvaneBookmarkFolder>("A");
  const CorvaneBookmark* expected = folderA.get();
  map.insert(std::move(folderA));
  EXPECT_EQ(map.find("A"), expected);
  EXPECT_EQ(map.keys(), (std::vector<String>{"A", "B"})) << "a replaced node keeps its place";
  map.remove(map.find("A")->uid());
  EXPECT_EQ(map.keys(), (std::vector<String>{"B"}));
  map.remove("A");
  EXPECT_EQ(map.find(String()), nullptr);
}

}  // namespace
}  // namespace corvane
