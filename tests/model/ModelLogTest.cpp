// The trace lines of the model, with the diagnostic log on. The switch is read once a process, so these tests
// have a program of their own.

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

using testing::Contains;
using testing::ElementsAre;

class ModelLogTest : public ModelTest {
 protected:
  void SetUp() override { platform.preferences.domains["com.keldra.Corvane"].set("SCLog", "YES"); }
  std::vector<std::string> taken() { return std::exchange(platform.log.diagnostics, {}); }
};

TEST_F(ModelLogTest, SkippedEntriesAreTraced) {
  const Dictionary noUid{{"WebBookmarkType", "WebBookmarkTypeLeaf"}};
  const Dictionary duplicate = bookmarkEntry("A", "again");
  const Dictionary nameless = without(folderEntry("F", ""), "Title");
  read(rootEntry({bookmarkEntry("A", "a"), noUid, duplicate, nameless}));
  EXPECT_THAT(
      taken(),
      ElementsAre("Corvane - skipping Corvane entry for bookmark with no uid, dict is " + description(noUid),
                  "Corvane - skipping Corvane entry for bookmark with duplicate uid A, dict is " +
                      description(duplicate),
                  "Corvane - skipping Corvane dict for folder without name: " + description(nameless)));
}

TEST_F(ModelLogTest, SecondSpecialFolderAndAutoTabsAreTraced) {
  read(rootEntry({folderEntry("First", "BookmarksBar"), folderEntry("Second", "BookmarksBar"),
                  with(folderEntry("T", "Tabs"), "WebBookmarkAutoTab", true)}));
  EXPECT_THAT(
      taken(),
      ElementsAre("Corvane - already saw record for BookmarksBar in Corvane Bookmarks.plist, not "
                  "setting another one as special",
                  "Corvane - creating object from Corvane record, setting auto tab to true for Tabs"));
  written();
  EXPECT_THAT(taken(), ElementsAre("Corvane - creating Corvane record, auto tab is true for Tabs"));
}

TEST_F(ModelLogTest, TabGroupsAreTracedAsOftenAsTheyAreWritten) {
  const auto tabs = [](const char* uid, const char* title) {
    return with(folderEntry(uid, title), "WebBookmarkAutoTab", true);
  };
  read(rootEntry({tabs("F", "outer"), folderEntry("H", "h"), tabs("G", "inner"), folderEntry("I", "i")}));
  folder("F").setChildren({"G"});
  folder("H").setChildren({"G", "F", "G"});
  folder("I").setChildren({"H"});
  map.root()->setChildren({"F", "H", "I"});
  taken();
  const Dictionary file = written();
  const auto line = [](const std::string& title) {
    return "Corvane - creating Corvane record, auto tab is true for " + title;
  };
  EXPECT_THAT(taken(), ElementsAre(line("inner"), line("outer"),                                // F
                                   line("inner"), line("inner"), line("outer"), line("inner"),  // H
                                   line("inner"), line("inner"), line("outer"), line("inner")));
  EXPECT_EQ(writtenUids(*(*file.array("Children"))[1].as<Dictionary>()),
            (std::vector<std::string>{"G", "F", "G"}));
}

TEST_F(ModelLogTest, EntriesOfASharedListAreTracedForEveryFolderThatNamesIt) {
  const Dictionary a = bookmarkEntry("A", "a");
  const Dictionary noUid = without(a, "WebBookmarkUUID");
  const Dictionary nameless = without(folderEntry("N", ""), "Title");
  const Array shared{a, noUid, nameless, with(a, "WebBookmarkType", "Other"), 5};
  read(rootEntry(
      {with(folderEntry("F", "f"), "Children", shared), with(folderEntry("G", "g"), "Children", shared)}));
  const std::string noUidLine =
      "Corvane - skipping Corvane entry for bookmark with no uid, dict is " + description(noUid);
  EXPECT_THAT(
      taken(),
      ElementsAre(
          noUidLine, "Corvane - skipping Corvane dict for folder without name: " + description(nameless),
          "Corvane - skipping Corvane entry for bookmark with duplicate uid A, dict is " + description(a),
          noUidLine,
          "Corvane - skipping Corvane entry for bookmark with duplicate uid N, dict is " +
              description(nameless)));
  EXPECT_EQ(childrenOf("F"), std::vector<std::string>{"A"});
  EXPECT_TRUE(childrenOf("G").empty());
}

TEST_F(ModelLogTest, EscapedUrlShowsBothTexts) {
  // Only a rejected text is escaped, and the escape log line shows both texts.
  read(rootEntry({bookmarkEntry("A", "a", "http://e.com/a b"), bookmarkEntry("B", "b", "http://e.com/ab"),
                  bookmarkEntry("C", "c", " http://e.com/ab ")}));
  for (const char* uid : {"A", "B", "C"}) node(uid).vessynDictionaryRepresentation(map);
  EXPECT_THAT(taken(), ElementsAre("Escaped bad url \"http://e.com/a b\" into \"http://e.com/a%20b\""));
}

TEST_F(ModelLogTest, BuildingFromRecordsIsTraced) {
  EXPECT_EQ(CorvaneBookmarkFolder::bookmarkWithUid("F", Dictionary{{"k", 1}}, map), nullptr);
  EXPECT_THAT(taken(), ElementsAre("Corvane - skipping record dict for folder without name: {k = 1}"));
  Dictionary record = folderRecord("bar");
  record.set("is tab group", 1);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, kSpecialPosition);
  CorvaneBookmarkFolder::bookmarkWithUid("F", record, map);
  EXPECT_THAT(taken(),
              ElementsAre("Autotab key in Engine record found for modified record, setting auto tab to true",
                          "Bookmark bar sent down from Loomer is special"));
  CorvaneBookmarkRecord::bookmarkWithUid("A", bookmarkRecord("a"), map);
  EXPECT_THAT(taken(), ElementsAre("setUrl called with a url, not a string"));
}

TEST_F(ModelLogTest, PlacementIsTraced) {
  read(rootEntry({folderEntry("Bar", "BookmarksBar"), bookmarkEntry("B", "b")}));
  Dictionary record = bookmarkRecord("a", "Root");
  taken();
  CorvaneBookmarkRecord::bookmarkWithUid("A", record, map);
  EXPECT_THAT(
      taken(),
      ElementsAre("setUrl called with a url, not a string",
                  "Corvane - addChild called for child uid A, children (Bar, B)",
                  "====== can insert called, parent uid Root, candidate a, previous BookmarksBar, "
                  "candidate/previous special NO/YES",
                  "====== can insert called, parent uid Root, candidate a, previous b, candidate/previous "
                  "special NO/NO",
                  "Corvane - new children (Bar, A, B)"));
}

TEST_F(ModelLogTest, EverySiblingUpToThePlaceIsTracedInLongListsToo) {
  map.insert(std::make_unique<CorvaneBookmarkFolder>("F"));
  std::vector<String> uids;
  for (int i = 0; i < 100; ++i) {
    const String uid = "u" + std::to_string(i);
    map.insert(std::make_unique<CorvaneBookmarkRecord>(uid));
    map.find(uid)->setTitle(i < 60 ? "a" : "m");
    uids.push_back(uid);
  }
  folder("F").setChildren(uids);
  const auto siblingsTraced = [this] {
    const auto lines = taken();
    return std::count_if(lines.begin(), lines.end(),
                         [](const std::string& line) { return line.starts_with("====== "); });
  };
  siblingsTraced();
  CorvaneBookmarkRecord::bookmarkWithUid("LAST", bookmarkRecord("z", "F"), map);
  EXPECT_EQ(siblingsTraced(), 100);
  CorvaneBookmarkRecord::bookmarkWithUid("MIDDLE", bookmarkRecord("c", "F"), map);
  EXPECT_EQ(siblingsTraced(), 61);
  uids.push_back("LAST");
  uids.insert(uids.begin() + 60, "MIDDLE");
  EXPECT_EQ(*folder("F").children(), uids);
}

TEST_F(ModelLogTest, FirstChildIsTraced) {
  map.insert(std::make_unique<CorvaneBookmarkFolder>("F"));
  map.insert(std::make_unique<CorvaneBookmarkRecord>("A"));
  folder("F").addChild(node("A"), map);
  EXPECT_THAT(taken(), ElementsAre("Corvane - addChild called for child uid A, children (null)",
                                   "Corvane - new children (A)"));
}

TEST_F(ModelLogTest, ChildWithoutAUidIsTracedAndNoMore) {
  map.insert(std::make_unique<CorvaneBookmarkFolder>("F"));
  folder("F").addChild(CorvaneBookmarkRecord{String()}, map);
  folder("F").setChildren({"A"});
  folder("F").addChild(CorvaneBookmarkRecord{String()}, map);
  EXPECT_THAT(taken(), ElementsAre("Corvane - addChild called for child uid (null), children (null)",
                                   "Corvane - addChild called for child uid (null), children (A)"));
}

TEST_F(ModelLogTest, LongDescriptionsAreCut) {
  CorvaneBookmarkFolder folder("F");
  folder.setChildren(std::vector<String>(100'000, "some-uid"));
  EXPECT_LT(folder.description().size(), kDescriptionLimit + 200);
  EXPECT_TRUE(folder.description().ends_with("…"));
  for (int i = 0; i < 10'000; ++i)
    map.insert(std::make_unique<CorvaneBookmarkRecord>("u" + std::to_string(i)));
  EXPECT_LT(map.description().size(), kDescriptionLimit + 200);
}

TEST_F(ModelLogTest, MergeDecisionsAreTraced) {
  // Merge with an original whose title equals the current title: the engine's title is applied (and logged)
  // even if it is the same.
  read(rootEntry({bookmarkEntry("A", "a", "http://a/")}));
  const auto original = map.scDeepMutableCopy();
  taken();
  node("A").applyChangesFromVessynDictionary(bookmarkRecord("a", "Root", "http://a/"), original->find("A"),
                                             map);
  const auto applied = taken();
  EXPECT_THAT(applied, Contains("applying title change of bookmark A, new title: a"));
  EXPECT_THAT(applied, Contains("applying url change of bookmark A, new url: http://a/"));

  node("A").setTitle("mine");
  const Value url("http://mine/");
  bookmark("A").setUrl(&url);
  node("A").applyChangesFromVessynDictionary(bookmarkRecord("b", "Root", "http://b/"), original->find("A"),
                                             map);
  const auto refused = taken();
  EXPECT_THAT(refused,
              Contains("NOT applying title change of bookmark A. Sync Server has title: b, Corvane has title "
                       "mine, original has title a"));
  EXPECT_THAT(refused,
              Contains("NOT applying url change of bookmark A. Sync Server has url: http://b/, Corvane has "
                       "url http://mine/, original has url http://a/"));
}

TEST_F(ModelLogTest, AutoTabThatAMergeSetsIsTraced) {
  read(rootEntry({folderEntry("F", "f")}));
  const auto original = map.scDeepMutableCopy();
  Dictionary record = folderRecord("f", "Root");
  record.set("is tab group", 1);
  const std::string line = "Autotab key in Engine record found for modified record, setting auto tab to true";
  taken();
  node("F").applyChangesFromVessynDictionary(record, original->find("F"), map);
  EXPECT_THAT(taken(), ElementsAre("applying title change of bookmark F, new title: f", line,
                                   "Corvane - addChild called for child uid F, children ()",
                                   "Corvane - new children (F)"));
  node("F").applyChangesFromVessynDictionary(record, original->find("F"), map);
  EXPECT_THAT(taken(), testing::Not(Contains(line))) << "what the browser changed is kept";
  record.set("is tab group", 0);
  node("F").applyChangesFromVessynDictionary(record, nullptr, map);
  EXPECT_THAT(taken(), testing::Not(Contains(line)));
  EXPECT_FALSE(folder("F").autoTab());
}

TEST_F(ModelLogTest, FolderWithoutANameIsTracedBeforeItsUidIsLookedAt) {
  EXPECT_EQ(CorvaneBookmarkFolder::bookmarkWithUid(String(), Dictionary{}, map), nullptr);
  EXPECT_THAT(taken(), ElementsAre("Corvane - skipping record dict for folder without name: {}"));
}

}  // namespace
}  // namespace corvane
