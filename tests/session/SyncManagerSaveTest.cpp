#include <gmock/gmock.h>

#include <cmath>
#include <ctime>
#include <filesystem>
#include <optional>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/loomer/store/KeptFiles.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "tests/session/SyncSessionFixture.h"
#include "tests/system/ScopedVariable.h"

namespace corvane {
namespace {

constexpr const char* kReloading =
    "com.keldra.Corvane - Bookmark file changed while syncing, reloading it and merging changes";
constexpr const char* kSaved =
    "com.keldra.Corvane - Engine pushed changes and we modified bookmarks file at ";
constexpr const char* kGivingUp = "com.keldra.Corvane - Could not save bookmarks file, giving up";
const std::string kRequiredVersion =
    "The required version of Corvane needed to Sync bookmarks has never been run. Please make sure you have "
    "installed the latest release of Corvane and run it at least once before syncing your bookmarks.";

// Sets the process's time zone for a scope.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) : _variable(std::in_place, "TZ", zone) { tzset(); }
  ~ScopedTimeZone() {
    _variable.reset();
    tzset();
  }
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

 private:
  std::optional<ScopedVariable> _variable;
};

// Sessions that delete bookmark "a" and finish.
class SyncManagerSaveTest : public SyncSessionTest {
 protected:
  SyncManagerSaveTest() {
    loomer.script = [this](LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver) {
      String error;
      String remapped;
      if (deletesAll) {
        dataSource.deleteAllRecordsForEntityName(LoomerEntity_Bookmarks_Bookmark, error);
      } else {
        dataSource.applyChange(LoomerChange(LoomerChangeTypeDelete, "a", std::nullopt),
                               LoomerEntity_Bookmarks_Bookmark, remapped, nullptr, error);
      }
      if (beforeFinish) beforeFinish();
      return dataSource.sessionDriverWillFinishSession(driver, error);
    };
    writeBookmarks(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}));
  }

  bool sync() {
    const auto manager = CorvaneSyncManager::initWithClientId("com.keldra.Corvane");
    manager->_setUnitTestCallback(&callback);
    return manager->sync();
  }

  // The name of what the run raises, and its reason; empty when nothing.
  std::string raised() {
    try {
      sync();
    } catch (const PlatformException& exception) {
      return exception.name() + ": " + exception.reason();
    }
    return "";
  }

  // No bookmarks can be written from now on.
  void fillDisk() {
    platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
      const bool isFile = call.operation == FileOperation::writeAtomically && call.path == bookmarksPath();
      return isFile ? std::make_error_code(std::errc::no_space_on_device) : std::error_code();
    };
  }
  // Declares what the store says of one write on a full disk.
  void expectFailedWrite() {
    platform.log.expectMessages(
        {"Could not write bookmarks file " + bookmarksPath() + ": No space left on device",
         "SaveBookmarks - error trying to serialize the following: "
         "{WebBookmarkType = WebBookmarkTypeList; WebBookmarkFileVersion = 1}"});
  }

  // Declares what the store says of a file that holds the word "rubbish".
  void expectRubbish() {
    platform.log.expectMessages({"Could not read bookmarks file " + bookmarksPath() +
                                 ": it holds a value of type string in place of a dictionary"});
  }

  std::string contentsOf(const std::string& path) {
    std::string contents;
    EXPECT_FALSE(platform.realFiles.read(path, contents)) << path;
    return contents;
  }
  std::string keptDirectory() {
    return platform.process.home + "/Library/Application Support/Loomer/Kept/com.keldra.Corvane";
  }
  std::vector<loomer::KeptFile> kept() {
    return loomer::KeptFiles(loomer::storePathForHome(platform.process.home), "com.keldra.Corvane").all();
  }
  // Declares what is said of entries that are left out, the newest copy's.
  void expectLeftOut(std::size_t entries, const std::string& copy) {
    platform.log.expectMessages({"com.keldra.Corvane: entries of the bookmarks file " + bookmarksPath() +
                                 " that cannot be synced are left out (" + std::to_string(entries) +
                                 "); the file as it was is kept in " + copy});
  }
  static Value proxy(const std::string& uid) {
    return Dictionary{{"WebBookmarkType", "WebBookmarkTypeProxy"}, {"WebBookmarkUUID", uid}};
  }

  std::string savedTree() { return tree(*mapped(*savedBookmarks())); }
  Date storedDate() {
    const Value* date = loomer.client.values.find("modDateOnLastSync");
    return date ? *date->as<Date>() : Date{-1.0};
  }

  bool deletesAll = false;
  std::function<void()> beforeFinish;
  CorvaneSyncManager::UnitTestCallback callback = [](const BookmarkMap&, const std::string&) {};
};

TEST_F(SyncManagerSaveTest, SavesOnceWhenNobodyInterferes) {
  EXPECT_TRUE(sync());
  EXPECT_EQ(savedTree(), "Root(b)");
  EXPECT_EQ(storedDate(), fileDate());
  EXPECT_EQ(diagnosed(kReloading), 0);
  EXPECT_EQ(diagnosed(kSaved + localDescription(fileDate())), 1);
  EXPECT_EQ(diagnosticsWith("dict is {").size(), 1u);
  EXPECT_EQ(diagnosticsWith("dict for disk is {").size(), 1u);
}

// The success line shows the new file's date on the user's clock, with the clock's distance from UTC.
TEST_F(SyncManagerSaveTest, SuccessLineTellsTheDateInTheUsersZone) {
  constexpr int kAhead = 5 * 3600 + 45 * 60;  // Kathmandu
  const ScopedTimeZone zone("NPT-5:45");
  EXPECT_TRUE(sync());
  constexpr std::time_t kReferenceDate = 978'307'200;  // 2001-01-01 00:00:00 UTC
  const std::time_t shown =
      kReferenceDate + static_cast<std::time_t>(std::floor(fileDate().seconds)) + kAhead;
  std::tm fields{};
  gmtime_r(&shown, &fields);
  char text[32];
  ASSERT_NE(std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields), 0u);
  EXPECT_EQ(diagnosed(kSaved + std::string(text) + " +0545"), 1);
}

// A save that fails three times because the file keeps changing and then succeeds: three reload-and-merge
// passes, one success line, the date of the fourth save returned.
TEST_F(SyncManagerSaveTest, MergesThreeTimesAndSavesTheFourth) {
  browserWritesBeforeSaves(
      3, rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B"), bookmarkEntry("c", "C")}));
  EXPECT_TRUE(sync());
  EXPECT_EQ(savedTree(), "Root(b c)");
  EXPECT_EQ(diagnosed(kReloading), 3);
  EXPECT_EQ(diagnosticsWith(kSaved).size(), 1u);
  EXPECT_EQ(storedDate(), fileDate());
}

TEST_F(SyncManagerSaveTest, GivesUpAfterTenSavesAndTenMerges) {
  browserWritesBeforeSaves(100, rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("c", "C")}));
  loomer.client.values.set("modDateOnLastSync", Date{5.0});
  EXPECT_EQ(raised(), "CorvaneSyncClientSaveException: Could not save bookmarks file after sync");
  EXPECT_EQ(diagnosed(kReloading), 10);
  EXPECT_EQ(diagnosed(kGivingUp), 1);
  EXPECT_EQ(savedTree(), "Root(a c)");
  EXPECT_EQ(storedDate(), Date{5.0});
}

TEST_F(SyncManagerSaveTest, NinthRefusalStillLeavesOneSave) {
  browserWritesBeforeSaves(9, rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("c", "C")}));
  EXPECT_TRUE(sync());
  EXPECT_EQ(diagnosed(kReloading), 9);
  EXPECT_EQ(savedTree(), "Root(c)");
}

TEST_F(SyncManagerSaveTest, EngineThatReplacesEverythingOverridesTheBrowser) {
  deletesAll = true;
  browserWritesBeforeSaves(100, rootEntry({bookmarkEntry("c", "C")}));
  EXPECT_TRUE(sync());
  EXPECT_EQ(savedTree(), "Root()");
  EXPECT_EQ(diagnosed(kReloading), 0);
}

TEST_F(SyncManagerSaveTest, FailedUncheckedSaveIsNotTriedAgain) {
  deletesAll = true;
  fillDisk();
  expectFailedWrite();
  EXPECT_EQ(raised(), "CorvaneBookmarksCannotSaveException: Could not save bookmarks file.");
  EXPECT_EQ(diagnosed(kReloading), 0);
}

TEST_F(SyncManagerSaveTest, MessagesAreLocalized) {
  platform.bundles.own.localizedTexts["Corvane Sync Client"]["Could not save bookmarks file."] =
      "Nicht gesichert.";
  deletesAll = true;
  fillDisk();
  expectFailedWrite();
  EXPECT_EQ(raised(), "CorvaneBookmarksCannotSaveException: Nicht gesichert.");
}

TEST_F(SyncManagerSaveTest, ChangedFileThatCannotBeMappedIsInvalid) {
  beforeFinish = [this] { ASSERT_FALSE(platform.realFiles.write(bookmarksPath(), "rubbish")); };
  expectRubbish();
  EXPECT_EQ(raised(), "CorvaneBookmarksInvalidException: " + kRequiredVersion);
}

TEST_F(SyncManagerSaveTest, RequiredVersionMessageIsLocalizedInTheDefaultTable) {
  platform.bundles.own.localizedTexts["Localizable"][kRequiredVersion] = "Nie benutzt.";
  for (const char* other : {"CorvaneSyncClient", "Corvane Sync Client"}) {
    platform.bundles.own.localizedTexts[other][kRequiredVersion] = "from another table";
  }
  beforeFinish = [this] { ASSERT_FALSE(platform.realFiles.write(bookmarksPath(), "rubbish")); };
  expectRubbish();
  EXPECT_EQ(raised(), "CorvaneBookmarksInvalidException: Nie benutzt.");
}

// The reload after the tenth save is performed too: what it raises comes before giving up.
TEST_F(SyncManagerSaveTest, FileThatCannotBeMappedAfterTheTenthSaveIsInvalid) {
  platform.files.intercept = [this, save = 0](const ForwardingFileSystem::Call& call) mutable {
    if (call.operation == FileOperation::makeDirectory && call.path == directory() + "/lock") {
      ++save;
      if (save < 10) writeBookmarks(rootEntry({bookmarkEntry("a", "A")}));
      if (save == 10) {
        EXPECT_FALSE(platform.realFiles.write(bookmarksPath(), "rubbish"));
      }
    }
    return std::error_code();
  };
  expectRubbish();
  EXPECT_THAT(raised(), ::testing::StartsWith("CorvaneBookmarksInvalidException: "));
  EXPECT_EQ(diagnosed(kReloading), 10);
  EXPECT_EQ(diagnosed(kGivingUp), 0);
}

// What the lock raises while the second save is tried ends the run; the first one's merge is not written.
TEST_F(SyncManagerSaveTest, LockThatCannotBeHadAtTheSecondSaveRaises) {
  loomer.client.values.set("modDateOnLastSync", Date{5.0});
  platform.files.intercept = [this, save = 0](const ForwardingFileSystem::Call& call) mutable {
    if (call.operation != FileOperation::makeDirectory || call.path != directory() + "/lock")
      return std::error_code();
    ++save;
    if (save == 1) writeBookmarks(rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("c", "C")}));
    return save == 2 ? std::make_error_code(std::errc::read_only_file_system) : std::error_code();
  };
  EXPECT_THAT(raised(), ::testing::StartsWith("NSObjectNotAvailableException: "));
  EXPECT_EQ(diagnosed(kReloading), 1);
  EXPECT_EQ(savedTree(), "Root(a c)");
  EXPECT_EQ(storedDate(), Date{5.0});
}

TEST_F(SyncManagerSaveTest, AFileThatLosesEntriesIsKeptFirstAndTheLogSaysHowManyAndWhere) {
  const Value nameless = Dictionary{{"WebBookmarkType", "WebBookmarkTypeList"},
                                    {"WebBookmarkUUID", "n"},
                                    {"Children", Array{bookmarkEntry("x", "X"), bookmarkEntry("y", "Y")}}};
  writeBookmarks(rootEntry({bookmarkEntry("a", "A"), proxy("p"), nameless, bookmarkEntry("b", "B")}));
  const std::string before = contentsOf(bookmarksPath());
  EXPECT_TRUE(sync());
  EXPECT_EQ(savedTree(), "Root(b)");
  ASSERT_EQ(kept().size(), 1u);
  EXPECT_EQ(kept()[0].entries, 4u);
  EXPECT_EQ(contentsOf(kept()[0].path), before);
  EXPECT_THAT(kept()[0].path, ::testing::StartsWith(keptDirectory() + "/1-4-"));
  expectLeftOut(4, kept()[0].path);
}

TEST_F(SyncManagerSaveTest, AFileThatLosesNothingIsNotKept) {
  EXPECT_TRUE(sync());
  EXPECT_TRUE(kept().empty());
  EXPECT_FALSE(std::filesystem::exists(keptDirectory()));
}

TEST_F(SyncManagerSaveTest, EntriesThatComeBackEachTimeAreKeptOnce) {
  for (const char* other : {"B", "C", "D"}) {
    writeBookmarks(rootEntry({bookmarkEntry("a", "A"), proxy("p"), bookmarkEntry("b", other)}));
    EXPECT_TRUE(sync());
    expectLeftOut(1, kept().at(0).path);
  }
  EXPECT_EQ(kept().size(), 1u);
}

TEST_F(SyncManagerSaveTest, TheNewestFiveCopiesOfAClientStay) {
  for (int i = 1; i <= 7; ++i) {
    writeBookmarks(rootEntry({bookmarkEntry("a", "A"), proxy("p" + std::to_string(i))}));
    EXPECT_TRUE(sync());
    expectLeftOut(1, kept().at(0).path);
  }
  ASSERT_EQ(kept().size(), 5u);
  EXPECT_THAT(kept()[0].path, ::testing::StartsWith(keptDirectory() + "/7-1-"));
  EXPECT_THAT(kept()[4].path, ::testing::StartsWith(keptDirectory() + "/3-1-"));
}

// Nothing is lost in silence: what cannot be kept is not left out.
TEST_F(SyncManagerSaveTest, ACopyThatCannotBeKeptEndsTheSaveAndLeavesTheFile) {
  writeBookmarks(rootEntry({bookmarkEntry("a", "A"), proxy("p")}));
  const std::string before = contentsOf(bookmarksPath());
  platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
    const bool isCopy =
        call.operation == FileOperation::writeAtomically && call.path.starts_with(keptDirectory());
    return isCopy ? std::make_error_code(std::errc::no_space_on_device) : std::error_code();
  };
  EXPECT_THAT(raised(),
              ::testing::AllOf(::testing::StartsWith("LoomerStoreException: "),
                               ::testing::HasSubstr(bookmarksPath()), ::testing::HasSubstr(keptDirectory()),
                               ::testing::HasSubstr("No space left on device")));
  EXPECT_EQ(contentsOf(bookmarksPath()), before);
  EXPECT_TRUE(kept().empty());
  EXPECT_TRUE(platform.notifications.posted.empty());
}

TEST_F(SyncManagerSaveTest, WhatABrowserWritesMeanwhileIsKeptAsItThenIs) {
  writeBookmarks(rootEntry({bookmarkEntry("a", "A"), proxy("p")}));
  browserWritesBeforeSaves(
      1, rootEntry({bookmarkEntry("a", "A"), proxy("p"), proxy("q"), bookmarkEntry("c", "C")}));
  EXPECT_TRUE(sync());
  EXPECT_EQ(savedTree(), "Root(c)");
  ASSERT_EQ(kept().size(), 1u);
  EXPECT_EQ(kept()[0].entries, 2u);
  EXPECT_THAT(contentsOf(kept()[0].path), ::testing::HasSubstr("q"));
  expectLeftOut(2, kept()[0].path);
}

TEST_F(SyncManagerSaveTest, VanishedFileIsGivenUpAfterTenSaves) {
  beforeFinish = [this] { ASSERT_FALSE(platform.realFiles.remove(bookmarksPath())); };
  EXPECT_EQ(raised(), "CorvaneSyncClientSaveException: Could not save bookmarks file after sync");
  EXPECT_EQ(diagnosed(kReloading), 10);
  EXPECT_FALSE(savedBookmarks());
}

TEST_F(SyncManagerSaveTest, CallbackSeesTheWorkingMapAndThePathOnceBeforeTheSave) {
  int calls = 0;
  callback = [&](const BookmarkMap& bookmarks, const std::string& path) {
    ++calls;
    EXPECT_EQ(tree(bookmarks), "Root(b)");
    EXPECT_EQ(path, bookmarksPath());
    EXPECT_EQ(savedTree(), "Root(a b)");
  };
  browserWritesBeforeSaves(2, rootEntry({bookmarkEntry("a", "A"), bookmarkEntry("b", "B")}));
  EXPECT_TRUE(sync());
  EXPECT_EQ(calls, 1);
}

TEST_F(SyncManagerSaveTest, UnknownKeysSurvive) {
  Dictionary bookmarks = rootEntry({bookmarkEntry("a", "A")});
  bookmarks.set("Unheard", "of");
  writeBookmarks(bookmarks);
  EXPECT_TRUE(sync());
  EXPECT_EQ(savedBookmarks()->string("Unheard"), "of");
}

}  // namespace
}  // namespace corvane
