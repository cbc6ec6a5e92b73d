#include <gmock/gmock.h>

#include <limits>

#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const String kKey = "modDateOnLastSync";

class DataSourceTest : public ControllerTest {
 protected:
  void register_() { EXPECT_TRUE(controller->sessionDriverDidRegisterClient(*driver, error)); }
  void finish() { EXPECT_TRUE(controller->sessionDriverWillFinishSession(*driver, error)); }
  std::vector<std::string> recordedUids(const String& entity) {
    bool moreComing = false;
    std::vector<std::string> uids;
    for (const auto& entry : controller->recordsForEntityName(entity, moreComing, error)) {
      uids.push_back(entry.key.toString());
    }
    EXPECT_FALSE(moreComing);
    return uids;
  }
  std::optional<Date> stored() {
    const Value* value = loomer.client.values.find(kKey);
    return value && value->as<Date>() ? std::optional(*value->as<Date>()) : std::nullopt;
  }
};

TEST_F(DataSourceTest, TellsWhoTheClientIs) {
  begin(rootEntry({}));
  platform.bundles.own.resources["CorvaneClientDescription.plist"] =
      "/a path/50%/Beschreibung \xC3\xA4.plist";
  EXPECT_EQ(controller->clientIdentifier(), "com.keldra.Corvane");
  EXPECT_EQ(controller->clientDescriptionURL()->text, "file:///a%20path/50%25/Beschreibung%20%C3%A4.plist");
  ASSERT_EQ(controller->schemaBundleURLs().size(), 1u);
  EXPECT_EQ(controller->schemaBundleURLs()[0].text,
            "file:///System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema");
  EXPECT_THAT(controller->entityNamesToSync(),
              ElementsAre(LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark));
  EXPECT_EQ(controller->sessionBeginSessionTimeout(), 60.0);
  EXPECT_EQ(controller->sessionPullChangesTimeout(), 600.0);
}

TEST_F(DataSourceTest, UrlsOfPathsLeadBackToThem) {
  for (const char* path : {"/", "/a b/c", "/50%41/%", "/\xC3\xA4\xFF\x01", "/a?b#c;d=e&f+g~h.i-j_k"}) {
    EXPECT_EQ(loomer::pathOfFileUrl(loomer::fileUrl(path)), path);
  }
}

TEST_F(DataSourceTest, MissingDescriptionIsNoUrl) {
  begin(rootEntry({}));
  EXPECT_FALSE(controller->clientDescriptionURL());
}

// With no stored last-sync date the mode is 3 for both entities; with a stored date equal to the current file
// date it is 1; with a stored date one second older than the file it is 2.
struct ModeCase {
  const char* phrase;
  std::optional<Value> stored;
  std::optional<Date> disk;
  int mode;
  friend void PrintTo(const ModeCase& row, std::ostream* out) { *out << row.phrase; }
};

class ModeTest : public DataSourceTest, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(ModeTest, ComparesTheDates) {
  begin(rootEntry({}));
  if (GetParam().stored) loomer.client.values.set(kKey, *GetParam().stored);
  controller->setCurrentDiskModDate(GetParam().disk);
  register_();
  EXPECT_EQ(controller->preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Folder), GetParam().mode);
  EXPECT_EQ(controller->preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Bookmark), GetParam().mode);
}

constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
INSTANTIATE_TEST_SUITE_P(
    Modes, ModeTest,
    ::testing::Values(ModeCase{"nothing stored", std::nullopt, Date{100.0}, 3},
                      ModeCase{"equal", Value(Date{100.0}), Date{100.0}, 1},
                      ModeCase{"stored one second older", Value(Date{99.0}), Date{100.0}, 2},
                      ModeCase{"stored a fraction older", Value(Date{100.25}), Date{100.5}, 2},
                      ModeCase{"stored newer", Value(Date{101.0}), Date{100.0}, 1},
                      ModeCase{"stored uncomparable", Value(Date{kNotANumber}), Date{100.0}, 2},
                      ModeCase{"file uncomparable", Value(Date{100.0}), Date{kNotANumber}, 2},
                      ModeCase{"file date unknown", Value(Date{100.0}), std::nullopt, 2},
                      ModeCase{"stored is no date", Value("yesterday"), Date{100.0}, 3}));

TEST_F(DataSourceTest, ModeBeforeRegistrationIsRefresh) {
  begin(rootEntry({}));
  loomer.client.values.set(kKey, Date{1e9});
  EXPECT_EQ(controller->preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Folder), LoomerSyncModeRefresh);
}

// changedRecordsForEntityName:moreComing:error: returns an empty dictionary whatever the entity.
TEST_F(DataSourceTest, NeverHasChangedRecords) {
  begin(rootEntry({bookmarkEntry("a", "A"), folderEntry("f", "F")}));
  bool moreComing = false;
  for (const String& entity :
       {LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark, String("Tag")}) {
    EXPECT_TRUE(controller->changedRecordsForEntityName(entity, moreComing, error).empty());
  }
  EXPECT_FALSE(moreComing);
}

// recordsForEntityName with an unknown entity name returns the leaf records; ignored bookmarks are never
// returned; a bookmark whose sync form is nothing is left out.
TEST_F(DataSourceTest, HandsOutRecordsByClass) {
  begin(rootEntry({folderEntry("BookmarksBarUid", "BookmarksBar"),
                   folderEntry("f", "F", {bookmarkEntry("a", "A"), folderEntry("g", "G")}),
                   hidden(folderEntry("h", "H", {bookmarkEntry("inside", "Inside")})),
                   bookmarkEntry("b", "B"), hidden(bookmarkEntry("c", "C"))}));
  // The root's sync form is nothing; the special folder's marker in the map is no node.
  EXPECT_THAT(recordedUids(LoomerEntity_Bookmarks_Folder), ElementsAre("BookmarksBarUid", "f", "g"));
  EXPECT_THAT(recordedUids(LoomerEntity_Bookmarks_Bookmark), ElementsAre("a", "b"));
  EXPECT_THAT(recordedUids("Tag"), ElementsAre("a", "b"));
  EXPECT_EQ(diagnosed("recordsForEntityName: Tag"), 1);
  EXPECT_EQ(diagnosticsWith("returning {").size(), 3u);
}

TEST_F(DataSourceTest, RecordsAreThoseOfTheOriginal) {
  begin(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}));
  applyBookmark(LoomerChangeTypeDelete, "a");
  applyBookmark(LoomerChangeTypeModify, "b", bookmarkRecord("New", "Root"));
  EXPECT_THAT(recordedUids(LoomerEntity_Bookmarks_Bookmark), ElementsAre("a", "b"));
  bool moreComing = false;
  const Dictionary records =
      controller->recordsForEntityName(LoomerEntity_Bookmarks_Bookmark, moreComing, error);
  EXPECT_EQ(records.dictionary("b")->string(LoomerAttribute_Bookmarks_Bookmark_Name.view()), "B");
}

// A session that pulled nothing and finds a stored date leaves the stored date as it was.
TEST_F(DataSourceTest, QuietSessionKeepsTheStoredDate) {
  begin(rootEntry({}));
  loomer.client.values.set(kKey, Date{7.0});
  register_();
  didPull();
  finish();
  EXPECT_EQ(stored(), Date{7.0});
  EXPECT_EQ(platform.notifications.posted.size(), 0u);
}

// One that pulled nothing and finds none stores the file's current date.
TEST_F(DataSourceTest, FirstQuietSessionStoresTheFilesDate) {
  begin(rootEntry({}));
  register_();
  didPull();
  finish();
  EXPECT_EQ(stored(), fileDate());
  EXPECT_EQ(controller->preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Folder), LoomerSyncModeFast);
}

// A session that saved keeps the new file's date itself, too: the file is no newer than that.
TEST_F(DataSourceTest, SavingSessionKeepsTheNewDate) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  loomer.client.values.set(kKey, Date{7.0});
  register_();
  EXPECT_EQ(controller->preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Folder), LoomerSyncModeSlow);
  manager->sync();  // reads the file, so that the save finds it unchanged
  applyBookmark(LoomerChangeTypeDelete, "a");
  finish();
  EXPECT_EQ(stored(), fileDate());
  EXPECT_EQ(controller->preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Folder), LoomerSyncModeFast);
}

// Cancelling a session erases the stored date.
TEST_F(DataSourceTest, CancellingErasesTheStoredDate) {
  begin(rootEntry({}));
  loomer.client.values.set(kKey, Date{7.0});
  register_();
  controller->sessionDriverWillCancelSession(*driver);
  EXPECT_EQ(loomer.client.values.find(kKey), nullptr);
}

// Setting the same original map twice does not make a second working copy.
TEST_F(DataSourceTest, SameOriginalTwiceKeepsTheWorkingMap) {
  begin(rootEntry({bookmarkEntry("a", "A")}));
  const std::shared_ptr<const BookmarkMap> original = mapped(rootEntry({bookmarkEntry("x", "X")}));
  controller->setOrigBookmarkDictionary(original);
  const BookmarkMap* first = &working();
  applyBookmark(LoomerChangeTypeDelete, "x");
  controller->setOrigBookmarkDictionary(original);
  EXPECT_EQ(&working(), first);
  EXPECT_EQ(tree(working()), "Root()");
  EXPECT_EQ(tree(*original), "Root(x)");

  controller->setOrigBookmarkDictionary(mapped(rootEntry({bookmarkEntry("x", "X")})));
  EXPECT_EQ(tree(working()), "Root(x)");
}

TEST_F(DataSourceTest, FlagsStartFalse) {
  begin(rootEntry({}));
  EXPECT_FALSE(controller->bookmarksChanged());
  EXPECT_FALSE(controller->pulledTheTruth());
}

}  // namespace
}  // namespace corvane
