// The browser's file form: reading, writing, and what survives the way there and back.

#include "CorvaneSyncClient/model/CorvaneFileForm.h"
#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

class FileFormTest : public ModelTest {};

TEST_F(FileFormTest, RootWithoutTitleReadsAsSlashAndLosesAnyTitleOnWriting) {
  // A root with no "Title" reads with title "/" and writes with no "Title"; a root that had "Title" loses it
  // on write.
  ASSERT_TRUE(read(rootEntry({})));
  EXPECT_TRUE(map.root()->title() == "/");
  EXPECT_FALSE(written().find("Title"));

  BookmarkMap other;
  const auto* root = CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(
      with(rootEntry({}), "Title", "Mine"), String(), 0, other);
  EXPECT_TRUE(root->title() == "Mine");
  EXPECT_FALSE(root->corvaneDictionaryRepresentation(other).find("Title"));
}

TEST_F(FileFormTest, PositionsCountOnlyBuiltChildrenAndSpecialFoldersGetTheirOwn) {
  // Root children in the order bar, menu, bookmark A, unknown-type entry, bookmark B: positions -2, -2, 2, 3
  // (the unknown entry consumes none), and both folders are special.
  read(rootEntry(
      {folderEntry("Bar", "BookmarksBar"), folderEntry("Menu", "BookmarksMenu"), bookmarkEntry("A", "a"),
       with(bookmarkEntry("P", "p"), "WebBookmarkType", "WebBookmarkTypeProxy"), bookmarkEntry("B", "b")}));
  EXPECT_EQ(node("Bar").position(), -2);
  EXPECT_EQ(node("Menu").position(), -2);
  EXPECT_EQ(node("A").position(), 2);
  EXPECT_EQ(node("B").position(), 3);
  EXPECT_TRUE(node("Bar").special());
  EXPECT_TRUE(node("Menu").special());
  EXPECT_EQ(map.find("P"), nullptr);
  EXPECT_TRUE(map.contains("BookmarksBar-SpecialBookmarkKey"));
}

TEST_F(FileFormTest, WhatReadingLeavesOutIsNotedWithAllThatItHolds) {
  const Dictionary inside = bookmarkEntry("X", "x");
  const Dictionary full = folderEntry("F", "f", {inside, bookmarkEntry("Y", "y")});
  struct Row {
    const char* phrase;
    std::vector<Value> children;
    std::size_t left;
  };
  const Row rows[] = {
      {"nothing", {full}, 0},
      {"an unknown type", {with(inside, "WebBookmarkType", "WebBookmarkTypeProxy")}, 1},
      {"an unknown type that holds others", {with(full, "WebBookmarkType", "WebBookmarkTypeProxy")}, 3},
      {"no uid", {without(inside, "WebBookmarkUUID")}, 1},
      {"no name, with everything in it", {without(full, "Title")}, 3},
      {"a uid that came before", {inside, full}, 1},
      {"no dictionary", {Value("text"), Value(Array())}, 2},
      {"what a bookmark lists", {with(inside, "Children", Array{bookmarkEntry("Z", "z")})}, 1},
      {"a list that another folder has already", {full, with(full, "WebBookmarkUUID", "G")}, 2},
      {"in a folder", {with(folderEntry("G", "g"), "Children", Array{Value(7), inside, inside})}, 2},
  };
  for (const Row& row : rows) {
    BookmarkMap read;
    CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(with(rootEntry({}), "Children", Array(row.children)),
                                                         String(), 0, read);
    EXPECT_EQ(entryCount(read.skippedEntries()), row.left) << row.phrase;
    EXPECT_EQ(entryCount(read.scDeepMutableCopy()->skippedEntries()), row.left) << row.phrase;
  }
}

TEST_F(FileFormTest, EntriesThatNameOneListAgainAndAgainAreCountedInNoTime) {
  Value nested = Array{Value(1)};
  for (int level = 0; level < 100; ++level) {
    const Dictionary entry{{"Children", nested}};
    nested = Array{entry, entry};
  }
  EXPECT_EQ(entryCount(*nested.as<Array>()), 201u);
}

TEST_F(FileFormTest, OnlyTheFirstFolderOfASpecialTitleIsSpecial) {
  // Two root folders titled "BookmarksBar": only the first is special; the second keeps position 1.
  read(rootEntry({folderEntry("First", "BookmarksBar"), folderEntry("Second", "BookmarksBar")}));
  EXPECT_TRUE(node("First").special());
  EXPECT_FALSE(node("Second").special());
  EXPECT_EQ(node("Second").position(), 1);
}

TEST_F(FileFormTest, SpecialTitlesDeeperInTheTreeAreOrdinary) {
  // A folder titled "BookmarksMenu" inside another folder is not special.
  read(rootEntry({folderEntry("F", "f", {folderEntry("M", "BookmarksMenu")})}));
  EXPECT_FALSE(node("M").special());
  EXPECT_EQ(node("M").position(), 0);
}

TEST_F(FileFormTest, FirstOfTwoEntriesWithOneUidWins) {
  // Two entries with one uid in different folders: the one earlier in depth-first file order is kept; the
  // other does not appear in the written file.
  read(rootEntry({folderEntry("F", "f", {bookmarkEntry("X", "first")}), bookmarkEntry("X", "second"),
                  bookmarkEntry("Y", "y")}));
  EXPECT_TRUE(node("X").title() == "first");
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"F", "Y"}));
  EXPECT_EQ(node("Y").position(), 1);
  EXPECT_EQ(writtenUids(written()), (std::vector<std::string>{"F", "Y"}));
}

TEST_F(FileFormTest, AncestorWinsOverDescendantWithItsUid) {
  read(rootEntry({folderEntry("F", "outer", {folderEntry("F", "inner", {bookmarkEntry("A", "a")})})}));
  EXPECT_TRUE(node("F").title() == "outer");
  EXPECT_TRUE(childrenOf("F").empty());
  EXPECT_EQ(map.find("A"), nullptr) << "nothing of a skipped entry is read";
  EXPECT_EQ(map.root()->uid(), kRootUid);
}

TEST_F(FileFormTest, EntryUnderTheRootsUidIsADuplicate) {
  read(rootEntry({bookmarkEntry("Root", "impostor"), bookmarkEntry("A", "a")}));
  EXPECT_TRUE(map.root());
  EXPECT_EQ(childrenOf("Root"), std::vector<std::string>{"A"});
}

TEST_F(FileFormTest, OmittedEntriesMakeTheirSubtreeIgnored) {
  // An entry with "ShouldOmitFromUI" true makes its whole subtree ignored by sync, while its siblings are
  // unaffected.
  read(rootEntry({with(folderEntry("F", "f", {folderEntry("G", "g", {bookmarkEntry("A", "a")})}),
                       "ShouldOmitFromUI", true),
                  bookmarkEntry("B", "b"), with(bookmarkEntry("C", "c"), "ShouldOmitFromUI", 1),
                  with(bookmarkEntry("D", "d"), "ShouldOmitFromUI", "YES")}));
  for (const char* uid : {"F", "G", "A", "C"}) EXPECT_TRUE(node(uid).isIgnoredBySync()) << uid;
  for (const char* uid : {"Root", "B", "D"}) EXPECT_FALSE(node(uid).isIgnoredBySync()) << uid;
  EXPECT_EQ(node("B").position(), 1) << "an ignored child takes its number";
}

TEST_F(FileFormTest, RootThatIsOmittedIsIgnoredWhole) {
  read(with(rootEntry({bookmarkEntry("A", "a")}), "ShouldOmitFromUI", true));
  EXPECT_TRUE(map.root()->isIgnoredBySync());
  EXPECT_TRUE(node("A").isIgnoredBySync());
}

TEST_F(FileFormTest, EmptyFolderIsWrittenWithoutChildren) {
  // An empty folder ("Children" an empty array) is written without "Children".
  read(rootEntry({folderEntry("F", "f")}));
  EXPECT_FALSE(writtenChild(0).find("Children"));
}

TEST_F(FileFormTest, ListThatNamesOnlyMissingUidsIsWrittenAsEmptyChildren) {
  read(rootEntry({folderEntry("F", "f")}));
  folder("F").setChildren({"gone", "also gone"});
  const Dictionary entry = writtenChild(0);
  const Array* children = entry.array("Children");
  ASSERT_TRUE(children);
  EXPECT_TRUE(children->empty());
}

TEST_F(FileFormTest, BookmarkWithoutUrlIsWrittenWithEmptyOnes) {
  // A bookmark without "URLString" is written with "URLString" set to the empty string and "URIDictionary"
  // holding the empty string under the empty-string key.
  read(rootEntry({without(bookmarkEntry("A", "a"), "URLString")}));
  platform.log.expectMessages({"setURL called with an unknown type (null)"});
  EXPECT_FALSE(bookmark("A").url());
  const Dictionary entry = writtenChild(0);
  EXPECT_TRUE(entry.string("URLString") == "");
  EXPECT_EQ(*entry.dictionary("URIDictionary"), (Dictionary{{"title", "a"}, {"", ""}}));
}

TEST_F(FileFormTest, OnlyABookmarkWithoutUrlIsNotReadInSilence) {
  const Dictionary quiet = bookmarkEntry("A", "a");
  const Array shared{quiet, folderEntry("F", "f", {bookmarkEntry("B", "b")})};
  EXPECT_TRUE(isReadInSilence(rootEntry({})));
  EXPECT_TRUE(isReadInSilence({}));
  EXPECT_TRUE(isReadInSilence(rootEntry({quiet, with(folderEntry("G", "g"), "Children", shared),
                                         with(folderEntry("H", "h"), "Children", shared),
                                         without(bookmarkEntry("C", "c"), "WebBookmarkUUID"),
                                         with(folderEntry("I", "i"), "Children", "none")})));
  const Dictionary silent = rootEntry({folderEntry("G", "g", {folderEntry("H", "h", {quiet})})});
  EXPECT_TRUE(isReadInSilence(silent));
  for (const Dictionary& spoken : {without(quiet, "URLString"), with(quiet, "URLString", 5)}) {
    EXPECT_FALSE(isReadInSilence(rootEntry({quiet, spoken})));
    EXPECT_FALSE(isReadInSilence(rootEntry({folderEntry("G", "g", {folderEntry("H", "h", {spoken})})})));
    EXPECT_FALSE(isReadInSilence(
        rootEntry({with(folderEntry("G", "g", {spoken}), "URLString", "http://g.example/")})));
  }
}

TEST_F(FileFormTest, UnknownKeysSurviveButNotInsideTheUriDictionary) {
  // A key such as "Sync" inside a bookmark entry is written back unchanged; a key other than "title" inside
  // "URIDictionary" is lost.
  const Dictionary sync{{"Data", Data("\x01\x02")}, {"Key", 7}};
  Dictionary entry = with(bookmarkEntry("A", "a", "http://a/"), "Sync", sync);
  entry.set("URIDictionary", Dictionary{{"title", "a"}, {"", "http://old/"}, {"note", "mine"}});
  entry.set("title", "top level");
  read(with(rootEntry({entry, with(folderEntry("F", "f"), "Sync", sync)}), "Extra", 1.5));
  const Dictionary file = written();
  EXPECT_EQ(*file.find("Extra"), Value(1.5));
  const Array& children = *file.array("Children");
  const Dictionary& bookmarkOut = *children[0].as<Dictionary>();
  EXPECT_EQ(*bookmarkOut.dictionary("Sync"), sync);
  EXPECT_EQ(*bookmarkOut.dictionary("URIDictionary"), (Dictionary{{"title", "a"}, {"", "http://a/"}}));
  EXPECT_FALSE(bookmarkOut.find("title")) << "the lower-case key at the top level goes";
  EXPECT_EQ(*children[1].as<Dictionary>()->dictionary("Sync"), sync);
}

// A folder's title stands under "Title", and what stands under "title" in its entry is unknown; a bookmark's
// own titles stand under "title", and its "Title" is unknown.
TEST_F(FileFormTest, KeysThatMeanATitleInTheOtherKindOnlySurvive) {
  read(rootEntry({with(folderEntry("F", "f"), "title", "the folder's"),
                  with(bookmarkEntry("A", "a"), "Title", "the bookmark's")}));
  EXPECT_TRUE(writtenChild(0).string("title") == "the folder's");
  EXPECT_TRUE(writtenChild(0).string("Title") == "f");
  EXPECT_TRUE(writtenChild(1).string("Title") == "the bookmark's");
}

TEST_F(FileFormTest, AutoTabIsWrittenOnlyWhenTrue) {
  // A folder with "WebBookmarkAutoTab" false is written without that key.
  read(rootEntry({with(folderEntry("F", "f"), "WebBookmarkAutoTab", false),
                  with(folderEntry("G", "g"), "WebBookmarkAutoTab", true),
                  with(folderEntry("H", "h"), "WebBookmarkAutoTab", 2)}));
  EXPECT_FALSE(folder("F").autoTab());
  EXPECT_TRUE(folder("G").autoTab());
  EXPECT_TRUE(folder("H").autoTab());
  EXPECT_FALSE(writtenChild(0).find("WebBookmarkAutoTab"));
  const Dictionary g = writtenChild(1), h = writtenChild(2);
  EXPECT_EQ(*g.find("WebBookmarkAutoTab"), Value(true));
  EXPECT_EQ(*h.find("WebBookmarkAutoTab"), Value(true));
}

TEST_F(FileFormTest, NamelessFolderKeepsItsUidTakenButIsNotListed) {
  read(rootEntry({without(folderEntry("F", "", {bookmarkEntry("A", "a")}), "Title"),
                  bookmarkEntry("F", "late"), bookmarkEntry("B", "b")}));
  ASSERT_TRUE(map.find("F"));
  EXPECT_TRUE(map.find("F")->asFolder());
  EXPECT_FALSE(folder("F").title());
  EXPECT_EQ(folder("F").children(), nullptr);
  EXPECT_TRUE(folder("F").parentId() == kRootUid);
  EXPECT_EQ(map.find("A"), nullptr);
  EXPECT_EQ(childrenOf("Root"), std::vector<std::string>{"B"});
}

TEST_F(FileFormTest, EntriesThatAreNoEntriesAreSkipped) {
  Dictionary file = rootEntry({});
  file.set("Children", Array{1, "text", Array{}, Dictionary{}, bookmarkEntry("A", "a"),
                             without(bookmarkEntry("B", "b"), "WebBookmarkUUID"),
                             with(bookmarkEntry("C", "c"), "WebBookmarkUUID", 5),
                             without(bookmarkEntry("D", "d"), "WebBookmarkType")});
  read(file);
  EXPECT_EQ(childrenOf("Root"), std::vector<std::string>{"A"});
  EXPECT_EQ(map.size(), 2u);
}

TEST_F(FileFormTest, WrongTypesCountAsAbsent) {
  platform.log.expectMessages({"setURL called with an unknown type integer"});
  read(rootEntry({with(with(bookmarkEntry("A", "a"), "URLString", 5), "URIDictionary", Array{}),
                  with(folderEntry("F", "f"), "Children", "none"), with(folderEntry("G", "g"), "Title", 5)}));
  EXPECT_FALSE(bookmark("A").url());
  EXPECT_FALSE(bookmark("A").title());
  EXPECT_TRUE(childrenOf("F").empty());
  EXPECT_EQ(childrenOf("Root"), (std::vector<std::string>{"A", "F"}));
}

TEST_F(FileFormTest, EmptyDictionaryReadsAsAnEmptyRoot) {
  ASSERT_TRUE(read({}));
  EXPECT_EQ(written(), (Dictionary{{"WebBookmarkType", "WebBookmarkTypeList"}}));
}

TEST_F(FileFormTest, NodesFromRecordsAreWrittenFromScratch) {
  read(rootEntry({}));
  CorvaneBookmarkFolder::bookmarkWithUid("F", folderRecord("f", "Root"), map);
  CorvaneBookmarkRecord::bookmarkWithUid("A", bookmarkRecord("a", "F", "http://a/"), map);
  EXPECT_EQ(writtenChild(0), folderEntry("F", "f", {bookmarkEntry("A", "a", "http://a/")}));
}

TEST_F(FileFormTest, FolderWithoutTitleIsWrittenWithoutTitle) {
  read(rootEntry({folderEntry("F", "f")}));
  folder("F").setTitle(String());
  EXPECT_FALSE(writtenChild(0).find("Title"));
}

TEST_F(FileFormTest, LoopsAreLeftOutAndSharedFoldersWrittenTwice) {
  read(rootEntry({folderEntry("F", "f", {folderEntry("G", "g")}), folderEntry("H", "h")}));
  folder("G").setChildren({"F", "G"});
  folder("H").setChildren({"G"});
  const Dictionary file = written();
  EXPECT_EQ(writtenUids(file), (std::vector<std::string>{"F", "H"}));
  EXPECT_EQ(writtenUids(*(*file.array("Children"))[0].as<Dictionary>()), std::vector<std::string>{"G"});
  EXPECT_EQ(writtenUids(*(*file.array("Children"))[1].as<Dictionary>()), std::vector<std::string>{"G"});
}

TEST_F(FileFormTest, DeepNestingNeedsNoStack) {
  constexpr int kDepth = 20'000;
  Dictionary entry = folderEntry("deepest", "x");
  for (int i = 0; i < kDepth; ++i) {
    Dictionary outer = folderEntry(std::to_string(i).c_str(), "x");
    outer.set("Children", Array{entry});
    entry = outer;
  }
  Dictionary file = rootEntry({});
  file.set("Children", Array{entry});
  read(file);
  EXPECT_EQ(map.size(), kDepth + 2u);
  EXPECT_EQ(childrenOf("0"), std::vector<std::string>{"deepest"});
  BookmarkMap again;
  const Dictionary out = written();
  CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(out, String(), 0, again);
  EXPECT_EQ(again.size(), map.size());
}

TEST_F(FileFormTest, SecondReadIntoOneMapSeesTheSpecialTitlesAsTaken) {
  read(rootEntry({folderEntry("Bar", "BookmarksBar")}));
  map.remove(kRootUid);
  read(rootEntry({folderEntry("Other", "BookmarksBar")}));
  EXPECT_FALSE(node("Other").special());
}

}  // namespace
}  // namespace corvane
