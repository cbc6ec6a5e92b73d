// Making a manager, and reading the file.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/store/PlistManagerTest.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

namespace fs = std::filesystem;

class PlistManagerMakingTest : public StoreTest {};

TEST_F(PlistManagerMakingTest, MissingDirectoryIsMade) {
  const mode_t before = umask(0);
  const CorvanePlistManager manager(guarded + "/new", "Bookmarks.plist");
  umask(before);
  EXPECT_EQ(fs::status(guarded + "/new").permissions(), fs::perms(0755));
  EXPECT_EQ(manager.path(), guarded + "/new/Bookmarks.plist");
  EXPECT_EQ(manager.modificationDate(), std::nullopt);
  leftOnDisk = {"new/"};
}

TEST_F(PlistManagerMakingTest, WhatStandsThereIsLeftAlone) {
  const CorvanePlistManager manager(guarded, "a.plist");
  EXPECT_EQ(manager.path(), guarded + "/a.plist");
  writeFile(guarded + "/file", "");  // also when it is no directory
  const CorvanePlistManager odd(guarded + "/file", "b.plist");
  EXPECT_EQ(odd.path(), guarded + "/file/b.plist");
  EXPECT_EQ(platform.files.mutationCount(), 0);
  leftOnDisk = {"file"};
}

// Directory missing and cannot be created. Intermediate directories are not created.
TEST_F(PlistManagerMakingTest, DirectoryThatCannotBeMadeRaises) {
  EXPECT_EQ(raisedBy([&] { CorvanePlistManager(guarded + "/a/b", "x"); }),
            "NSObjectNotAvailableException: Can't create directory " + guarded +
                "/a/b: No such file or directory.");
  platform.bundles.own.localizedTexts[kDefaultStringsTable]["Can't create directory %@: %s."] =
      "Kein %@ (%s)";
  platform.files.fail(FileOperation::makeDirectory, 1, std::errc::permission_denied);
  EXPECT_EQ(raisedBy([&] { CorvanePlistManager(guarded + "/c", "x"); }),
            "NSObjectNotAvailableException: Kein " + guarded + "/c (Permission denied)");
}

// Somebody else makes the directory in the same moment.
TEST_F(PlistManagerMakingTest, DirectoryThatAppearsMeanwhileIsTaken) {
  platform.files.before(FileOperation::makeDirectory, 1, [this] { fs::create_directory(guarded + "/new"); });
  EXPECT_EQ(raisedBy([&] { CorvanePlistManager(guarded + "/new", "x"); }), "");
  leftOnDisk = {"new/"};
}

class PlistManagerReadTest : public PlistManagerTest {
 protected:
  void expectReadFailure(const std::string& cause) {
    platform.log.expectMessages({"Could not read bookmarks file " + file + ": " + cause});
  }
};

// `dictionary` on a missing file returns absent; after the file has been created it returns its contents.
TEST_F(PlistManagerReadTest, MissingFileThenCreated) {
  EXPECT_EQ(manager.dictionary(), std::nullopt);
  EXPECT_EQ(manager.modificationDate(), std::nullopt);
  putFile(bookmarksOf(1), 1000.5);
  EXPECT_EQ(manager.dictionary(), bookmarksOf(1));
  EXPECT_EQ(manager.modificationDate(), Date{1000.5});
}

TEST_F(PlistManagerReadTest, AnEmptyFileIsNoPropertyListAndTheLogSaysHowToMakeOne) {
  writeFile(file, "");
  EXPECT_EQ(manager.dictionary(), std::nullopt);
  expectReadFailure(
      "it is empty, which is no property list. A file without bookmarks is made by: echo '{}' > \"" + file +
      '"');
  leftOnDisk = {"Bookmarks.plist"};
}

TEST_F(PlistManagerReadTest, EveryCallReadsAgain) {
  putFile(bookmarksOf(1), 1000);
  EXPECT_EQ(manager.dictionary(), bookmarksOf(1));
  putFile(bookmarksOf(2), 1000);  // whatever the date
  EXPECT_EQ(manager.dictionary(), bookmarksOf(2));
}

TEST_F(PlistManagerReadTest, IsTracedWithItsDate) {
  putFile(bookmarksOf(1), 700'000'000.25);
  manager.dictionary();
  EXPECT_THAT(platform.log.diagnostics,
              ElementsAre("read bookmarks at " + file +
                          " with mod date 2023-03-08 20:26:40 +0000 (700000000.250000000000000000)"));
}

// File missing when read: previous dictionary and date are kept.
TEST_F(PlistManagerReadTest, VanishedFileKeepsWhatWasRead) {
  putFile(bookmarksOf(1), 1000);
  manager.dictionary();
  fs::remove(file);
  EXPECT_EQ(manager.dictionary(), bookmarksOf(1));
  EXPECT_EQ(manager.modificationDate(), Date{1000});
  EXPECT_THAT(platform.log.diagnostics, SizeIs(1));
  leftOnDisk = {};
}

// Attributes that cannot be read for another reason are told as well.
TEST_F(PlistManagerReadTest, UnreachableFileKeepsWhatWasReadAndIsLogged) {
  putFile(bookmarksOf(1), 1000);
  manager.dictionary();
  platform.files.fail(FileOperation::attributes, 1, std::errc::permission_denied);
  expectReadFailure("Permission denied");
  EXPECT_EQ(manager.dictionary(), bookmarksOf(1));
  EXPECT_EQ(manager.modificationDate(), Date{1000});
}

TEST_F(PlistManagerReadTest, UnreadableFileIsAbsentAndLogged) {
  putFile(bookmarksOf(1), 1000);
  manager.dictionary();
  setDate(file, 2000);
  platform.files.fail(FileOperation::read, 1, std::errc::permission_denied);
  expectReadFailure("Permission denied");
  EXPECT_EQ(manager.dictionary(), std::nullopt);
  EXPECT_EQ(manager.modificationDate(), Date{2000}) << "the date is taken all the same";
}

TEST_F(PlistManagerReadTest, BytesThatAreNoPropertyListAreAbsentAndLogged) {
  putFile(bookmarksOf(1), 1000);
  manager.dictionary();
  const std::string garbage("bplist00\xFF\xFF", 10);
  writeFile(file, garbage);
  std::string cause;
  try {
    readPropertyList(garbage);
  } catch (const PropertyListException& exception) {
    cause = exception.reason();
  }
  ASSERT_NE(cause, "");
  expectReadFailure(cause);
  EXPECT_EQ(manager.dictionary(), std::nullopt);
}

TEST_F(PlistManagerReadTest, TopLevelThatIsNoDictionaryIsAbsentAndLogged) {
  writeFile(file, writeXmlPropertyList(Array{1, 2}));
  expectReadFailure("it holds a value of type array in place of a dictionary");
  EXPECT_EQ(manager.dictionary(), std::nullopt);
}

TEST_F(PlistManagerReadTest, DirectoryInPlaceOfTheFileIsAbsentAndLogged) {
  fs::create_directory(file);
  expectReadFailure("Is a directory");
  EXPECT_EQ(manager.dictionary(), std::nullopt);
  leftOnDisk = {"Bookmarks.plist/"};
}

TEST_F(PlistManagerReadTest, AnyFlavourIsRead) {
  writeFile(file, writeBinaryPropertyList(bookmarksOf(3)));
  EXPECT_EQ(manager.dictionary(), bookmarksOf(3));
  writeFile(file, "{ Title = Plain; }");
  EXPECT_EQ(manager.dictionary(), Dictionary({{"Title", "Plain"}}));
}

// The date is taken before the content is read: a write that lands between the two makes the next save look
// modified.
TEST_F(PlistManagerReadTest, WriteBetweenDateAndContentMakesTheNextSaveLookModified) {
  putFile(bookmarksOf(1), 1000);
  platform.files.before(FileOperation::read, 1, [this] { putFile(bookmarksOf(2), 1001); });
  EXPECT_EQ(manager.dictionary(), bookmarksOf(2));
  EXPECT_EQ(manager.modificationDate(), Date{1000});
  const Dictionary mine = bookmarksOf(3);
  EXPECT_EQ(manager.saveBookmarks(&mine, true), std::nullopt);
  EXPECT_EQ(fileOnDisk(), bookmarksOf(2));
}

struct LinkCase {
  const char* phrase;
  std::string (*destination)(const std::string& directory);
  friend void PrintTo(const LinkCase& row, std::ostream* out) { *out << row.phrase; }
};

class PlistManagerLinkTable : public PlistManagerReadTest, public testing::WithParamInterface<LinkCase> {};

TEST_P(PlistManagerLinkTable, FileIsReadThroughTheLink) {
  const std::string target = guarded + "/elsewhere/Real.plist";
  fs::create_directory(guarded + "/elsewhere");
  fs::create_symlink(GetParam().destination(guarded), file);
  leftOnDisk = {"Bookmarks.plist", "elsewhere/"};
  EXPECT_EQ(manager.dictionary(), std::nullopt) << "the link leads nowhere yet";

  writeFile(target, writeXmlPropertyList(bookmarksOf(5)));
  setDate(target, 1234.5);
  leftOnDisk.push_back("elsewhere/Real.plist");
  EXPECT_EQ(manager.dictionary(), bookmarksOf(5));
  EXPECT_EQ(manager.modificationDate(), Date{1234.5});
}

const LinkCase kLinkCases[] = {
    {"an absolute link", [](const std::string& directory) { return directory + "/elsewhere/Real.plist"; }},
    {"a relative link is resolved against the directory that holds it",
     [](const std::string&) { return std::string("elsewhere/Real.plist"); }},
};

INSTANTIATE_TEST_SUITE_P(All, PlistManagerLinkTable, testing::ValuesIn(kLinkCases));

}  // namespace
}  // namespace corvane
