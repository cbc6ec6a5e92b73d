// Rotating copies of the file that a save replaces.

#include <gmock/gmock.h>

#include <filesystem>
#include <map>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"
#include "tests/store/PlistManagerTest.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

class PlistManagerBackupTest : public PlistManagerTest {
 protected:
  PlistManagerBackupTest() { turnBackupsOn(); }

  std::string backup(int number) const {
    return guarded + "/backup/Bookmarks.plist_" + std::to_string(number) + ".plist";
  }
  // Saves contents of this version.
  void save(int version) {
    const Dictionary bookmarks = bookmarksOf(version);
    EXPECT_TRUE(manager.saveBookmarks(&bookmarks, false));
  }
  // The versions in backups 1, 2, … as far as there are any; 0 for what is none.
  std::vector<int> versions() const {
    std::vector<int> found;
    for (int number = 1; fs::exists(backup(number)); ++number) {
      const auto contents = fs::is_directory(backup(number)) ? std::nullopt : dictionaryAt(backup(number));
      found.push_back(contents ? contents->integer32("Version").value_or(0) : 0);
    }
    return found;
  }
  void expectLeft(const std::vector<std::string>& names) {
    leftOnDisk = {"Bookmarks.plist", "backup/"};
    for (const std::string& name : names) leftOnDisk.push_back("backup/" + name);
  }
};

// Five consecutive saves with backups on leave backups numbered 1 to 5; a sixth drops the oldest. Number 1 is
// always the content that the save replaced.
TEST_F(PlistManagerBackupTest, FiveCopiesAreKeptNewestFirst) {
  putFile(bookmarksOf(100), 1000);
  const std::vector<std::vector<int>> afterSave{{100},
                                                {101, 100},
                                                {102, 101, 100},
                                                {103, 102, 101, 100},
                                                {104, 103, 102, 101, 100},
                                                {105, 104, 103, 102, 101}};
  for (std::size_t i = 0; i < afterSave.size(); ++i) {
    save(101 + static_cast<int>(i));
    EXPECT_EQ(versions(), afterSave[i]);
  }
  expectLeft({"Bookmarks.plist_1.plist", "Bookmarks.plist_2.plist", "Bookmarks.plist_3.plist",
              "Bookmarks.plist_4.plist", "Bookmarks.plist_5.plist"});
}

TEST_F(PlistManagerBackupTest, FirstSaveHasNothingToCopy) {
  save(1);
  EXPECT_EQ(versions(), std::vector<int>());
  save(2);
  EXPECT_EQ(versions(), std::vector<int>{1});
  expectLeft({"Bookmarks.plist_1.plist"});
}

// Default attributes: everything that the umask leaves.
TEST_F(PlistManagerBackupTest, DirectoryHasTheDefaultMode) {
  for (const auto& [mask, mode] : std::map<unsigned, unsigned>{{0, 0777}, {0027, 0750}}) {
    const ScopedUmask umask(mask);
    save(1);
    EXPECT_EQ(modeOf(guarded + "/backup"), mode);
    fs::remove_all(guarded + "/backup");
  }
  leftOnDisk = {"Bookmarks.plist"};
}

TEST_F(PlistManagerBackupTest, OffByDefault) {
  platform.preferences.domains["com.keldra.Corvane.SyncClient"].remove("SaveCorvaneBookmarksBackupFiles");
  putFile(bookmarksOf(1), 1000);
  save(2);
  EXPECT_FALSE(fs::exists(guarded + "/backup"));
}

// The default is read at every save.
TEST_F(PlistManagerBackupTest, CanBeTurnedOffBetweenSaves) {
  putFile(bookmarksOf(1), 1000);
  save(2);
  platform.preferences.domains["com.keldra.Corvane.SyncClient"].set("SaveCorvaneBookmarksBackupFiles", false);
  save(3);
  EXPECT_EQ(versions(), std::vector<int>{1});
  expectLeft({"Bookmarks.plist_1.plist"});
}

// A regular file named "backup" in the directory disables backups without error.
TEST_F(PlistManagerBackupTest, RegularFileNamedBackupDisablesThem) {
  putFile(bookmarksOf(1), 1000);
  writeFile(guarded + "/backup", "mine");
  save(2);
  EXPECT_EQ(contentsOf(guarded + "/backup"), "mine");
  EXPECT_EQ(platform.files.count(FileOperation::copy), 0);
  EXPECT_EQ(fileOnDisk(), bookmarksOf(2));
  leftOnDisk = {"Bookmarks.plist", "backup"};
}

TEST_F(PlistManagerBackupTest, DirectoryThatCannotBeMadeDisablesThem) {
  putFile(bookmarksOf(1), 1000);
  platform.files.fail(FileOperation::makeDirectory, 2, std::errc::permission_denied);  // the first: the lock
  save(2);
  EXPECT_EQ(fileOnDisk(), bookmarksOf(2));
}

// Only what exists and is not a directory moves on.
TEST_F(PlistManagerBackupTest, DirectoriesInPlaceOfCopiesStay) {
  putFile(bookmarksOf(1), 1000);
  fs::create_directories(backup(2));
  save(2);
  EXPECT_EQ(versions(), (std::vector<int>{1, 0}));
  save(3);  // number 1 cannot move over the directory, and is not overwritten by the copy either
  EXPECT_EQ(versions(), (std::vector<int>{1, 0}));
  expectLeft({"Bookmarks.plist_1.plist", "Bookmarks.plist_2.plist/"});
}

TEST_F(PlistManagerBackupTest, GapsMoveOnAsTheyAre) {
  putFile(bookmarksOf(9), 1000);
  fs::create_directory(guarded + "/backup");
  writeFile(backup(1), writeXmlPropertyList(bookmarksOf(8)));
  writeFile(backup(4), writeXmlPropertyList(bookmarksOf(5)));
  writeFile(backup(5), writeXmlPropertyList(bookmarksOf(4)));
  save(10);
  EXPECT_EQ(versions(), (std::vector<int>{9, 8}));
  EXPECT_EQ(dictionaryAt(backup(5)), bookmarksOf(5));
  expectLeft({"Bookmarks.plist_1.plist", "Bookmarks.plist_2.plist", "Bookmarks.plist_5.plist"});
}

// Errors of the copy are ignored.
TEST_F(PlistManagerBackupTest, FailedCopyDoesNotStopTheSave) {
  putFile(bookmarksOf(1), 1000);
  platform.files.fail(FileOperation::copy, 1, std::errc::no_space_on_device);
  save(2);
  EXPECT_EQ(fileOnDisk(), bookmarksOf(2));
  expectLeft({});
}

// A copy holds the very bytes of the file, whatever they are.
TEST_F(PlistManagerBackupTest, CopyKeepsTheBytes) {
  writeFile(file, "not even a property list");
  save(2);
  EXPECT_EQ(contentsOf(backup(1)), "not even a property list");
  expectLeft({"Bookmarks.plist_1.plist"});
}

// A write that fails comes after the backup.
TEST_F(PlistManagerBackupTest, BackupIsMadeBeforeTheWrite) {
  putFile(bookmarksOf(1), 1000);
  platform.files.fail(FileOperation::writeAtomically, 2, std::errc::io_error);
  const Dictionary bookmarks = bookmarksOf(2);
  EXPECT_EQ(manager.saveBookmarks(&bookmarks, false), std::nullopt);
  EXPECT_EQ(versions(), std::vector<int>{1});
  platform.log.expectMessages(
      {"Could not write bookmarks file " + file + ": Input/output error",
       "SaveBookmarks - error trying to serialize the following: " + description(bookmarks)});
  expectLeft({"Bookmarks.plist_1.plist"});
}

TEST_F(PlistManagerBackupTest, NamesFollowTheFile) {
  CorvanePlistManager other(guarded, "Tabs");
  writeFile(guarded + "/Tabs", "old");
  const Dictionary bookmarks = bookmarksOf(1);
  EXPECT_TRUE(other.saveBookmarks(&bookmarks, false));
  EXPECT_EQ(contentsOf(guarded + "/backup/Tabs_1.plist"), "old");
  leftOnDisk = {"Tabs", "backup/", "backup/Tabs_1.plist"};
}

}  // namespace
}  // namespace corvane
