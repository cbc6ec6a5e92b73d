#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"
#include "tests/session/SyncSessionFixture.h"

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kMain = "com.keldra.Corvane";
constexpr const char* kFeedFramework = "/System/Library/Frameworks/Nuvolo.framework";

class SyncManagerTest : public SyncSessionTest {
 protected:
  bool syncs(const char* clientId) {
    const auto manager = CorvaneSyncManager::initWithClientId(clientId);
    return manager && manager->sync();
  }

  // Declares what is said of a client whose file is not there.
  void expectMissing(const std::string& clientId, const std::string& path) {
    platform.log.expectMessages({"Can't sync client " + clientId + ": its bookmarks file " + path +
                                 " does not exist. A file without bookmarks is made by: echo '{}' > \"" +
                                 path + '"'});
  }

  // The name of what `sync` raises; empty when nothing.
  std::string raisedName() {
    try {
      syncs(kMain);
    } catch (const PlatformException& exception) {
      raisedReason = exception.reason();
      return exception.name();
    }
    return "";
  }

  FakeBundle& addFeedAgent() {
    FakeBundle& bundle = platform.bundles.byPath[kFeedFramework];
    bundle.location = kFeedFramework;
    bundle.classes = {"NuvoloClient"};
    bundle.methods[{"NuvoloClient", "startSync"}] = &FakeBundles::countingMethod;
    return bundle;
  }

  std::string raisedReason;
};

TEST_F(SyncManagerTest, RefusesIdsOfNeitherForm) {
  for (const char* id :
       {"", "com.keldra", "com.keldra.CorvaneX", "com.keldra.corvane", "Xcom.keldra.Corvane.a"}) {
    platform.log.expectMessages({"Corvane Sync Client - asked to sync client id " + std::string(id) +
                                 ", but com.keldra.Corvane(.afilename) is required"});
    EXPECT_FALSE(CorvaneSyncManager::initWithClientId(id)) << id;
  }
}

// Client id "com.keldra.Corvane." (empty suffix): the path is the directory itself, so creation fails.
TEST_F(SyncManagerTest, RefusesATestClientWithoutAName) {
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane."));
  EXPECT_EQ(diagnosed("No Test Corvane Sync Client for com.keldra.Corvane., file " + directory() +
                      " does not exist"),
            1);
  platform.log.expectMessages({"Can't sync client com.keldra.Corvane.: it names no bookmarks file"});
}

TEST_F(SyncManagerTest, RefusesATestClientWhoseFileIsADirectory) {
  const std::string path = directory() + "/Other.plist";
  fs::create_directory(path);
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Other.plist"));
  platform.log.expectMessages(
      {"Can't sync client com.keldra.Corvane.Other.plist: its bookmarks file " + path + " is a directory"});
}

// A client id made of the main id, "." and "Bookmarks.plist": fails without the file, with it syncs the main
// client's.
TEST_F(SyncManagerTest, TestClientOfTheMainFileNeedsTheFile) {
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Bookmarks.plist"));
  EXPECT_EQ(diagnosed("No Test Corvane Sync Client for com.keldra.Corvane.Bookmarks.plist, file " +
                      bookmarksPath() + " does not exist"),
            1);
  EXPECT_FALSE(savedBookmarks());
  expectMissing("com.keldra.Corvane.Bookmarks.plist", bookmarksPath());

  writeBookmarks(rootEntry({bookmarkEntry("a", "A")}));
  std::string session;
  loomer.script = [&](LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver&) {
    session = tree(*dynamic_cast<SessionDriverController&>(dataSource).currentBookmarkDictionary());
    return true;
  };
  EXPECT_TRUE(syncs("com.keldra.Corvane.Bookmarks.plist"));
  EXPECT_EQ(session, "Root(a)");
}

TEST_F(SyncManagerTest, TestClientsNeverCreateFiles) {
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Other.plist"));
  std::vector<std::string> names;
  ASSERT_FALSE(listDirectory(directory(), names));
  EXPECT_THAT(names, IsEmpty());
  expectMissing("com.keldra.Corvane.Other.plist", directory() + "/Other.plist");
}

TEST_F(SyncManagerTest, AFileMadeAsTheLogSaysIsSynced) {
  const std::string path = directory() + "/Other.plist";
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Other.plist"));
  expectMissing("com.keldra.Corvane.Other.plist", path);
  ASSERT_FALSE(platform.realFiles.write(path, ""));
  EXPECT_FALSE(syncs("com.keldra.Corvane.Other.plist"));
  platform.log.expectMessages({"Could not read bookmarks file " + path +
                               ": it is empty, which is no property list. A file without bookmarks is made "
                               "by: echo '{}' > \"" +
                               path + '"'});
  ASSERT_EQ(std::system(("echo '{}' > \"" + path + '"').c_str()), 0);
  EXPECT_TRUE(syncs("com.keldra.Corvane.Other.plist"));
}

TEST_F(SyncManagerTest, TestClientSyncsItsOwnFile) {
  writeBookmarks(rootEntry({bookmarkEntry("t", "T")}), "Other.plist");
  EXPECT_TRUE(syncs("com.keldra.Corvane.Other.plist"));
  ASSERT_EQ(loomer.registrations.size(), 1u);
  EXPECT_EQ(loomer.registrations[0].identifier, "com.keldra.Corvane.Other.plist");
}

TEST_F(SyncManagerTest, PathIsStandardizedForTheTestButNotForTheFile) {
  writeBookmarks(rootEntry({}), "Other.plist");
  EXPECT_TRUE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.nowhere/../Other.plist"));
}

// Main client with no bookmarks file: an empty dictionary is written first, which builds an empty tree.
TEST_F(SyncManagerTest, MainClientStartsWithAnEmptyFile) {
  EXPECT_TRUE(syncs(kMain));
  const auto saved = savedBookmarks();
  ASSERT_TRUE(saved);
  EXPECT_TRUE(saved->empty());
}

TEST_F(SyncManagerTest, MakesTheDirectoryOneLevelDeep) {
  ASSERT_FALSE(platform.realFiles.remove(directory()));
  EXPECT_TRUE(syncs(kMain));
  EXPECT_TRUE(savedBookmarks());
}

TEST_F(SyncManagerTest, FindsTheUsersLibraryInAnEmptyHome) {
  const std::string library = platform.process.home + "/Library";
  ASSERT_FALSE(platform.realFiles.remove(library));
  EXPECT_TRUE(syncs(kMain));
  EXPECT_TRUE(savedBookmarks());
  EXPECT_EQ(fs::status(library).permissions(), fs::perms::owner_all);
}

TEST_F(SyncManagerTest, SaysWhyTheUsersLibraryCannotBeMade) {
  fs::remove_all(platform.process.home);
  const std::string library = platform.process.home + "/Library";
  platform.log.expectMessages(
      {"Can't make directory " + library + ": No such file or directory",
       "CorvaneSyncManager failed to create directory " + directory() + "; syncing bookmarks will fail"});
  EXPECT_THROW(CorvaneSyncManager::initWithClientId(kMain), PlatformException);
}

TEST_F(SyncManagerTest, TestClientsNeverCreateDirectories) {
  ASSERT_FALSE(platform.realFiles.remove(platform.process.home + "/Library"));
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Other.plist"));
  EXPECT_TRUE(fs::is_empty(platform.process.home));
  expectMissing("com.keldra.Corvane.Other.plist", directory() + "/Other.plist");
}

TEST_F(SyncManagerTest, ADirectoryThatAnotherRunMakesAtTheSameMomentIsTaken) {
  const std::string deep = directory() + "/a";
  platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    // The other run is just a moment faster.
    if (call.operation == FileOperation::makeDirectory && call.path == deep) fs::create_directory(deep);
    return std::error_code();
  };
  ASSERT_TRUE(CorvaneSyncManager::initWithClientId(kMain, deep));
  EXPECT_TRUE(fs::exists(deep + "/Bookmarks.plist"));
}

TEST_F(SyncManagerTest, SaysThatTheDirectoryCannotBeMade) {
  const std::string deep = directory() + "/a/b";
  platform.log.expectMessages(
      {"CorvaneSyncManager failed to create directory " + deep + "; syncing bookmarks will fail"});
  EXPECT_THROW(CorvaneSyncManager::initWithClientId(kMain, deep), PlatformException);
}

TEST_F(SyncManagerTest, SaysThatAFileStandsInTheDirectorysPlace) {
  const std::string file = directory() + "/file";
  ASSERT_FALSE(platform.realFiles.write(file, "x"));
  platform.log.expectMessages({"CorvaneSyncManager couldn't create directory " + file +
                               " because a file with that name already exists; syncing bookmarks will fail"});
  const auto manager = CorvaneSyncManager::initWithClientId(kMain, file);
  ASSERT_TRUE(manager);  // creation goes on
  platform.log.expectMessages(
      {"Could not read bookmarks file " + file + "/Bookmarks.plist: Not a directory"});
  EXPECT_FALSE(manager->sync());
}

struct UntoldCase {
  const char* phrase;
  std::errc code;
  const char* cause;
  friend void PrintTo(const UntoldCase& row, std::ostream* out) { *out << row.phrase; }
};

class UntoldTest : public SyncManagerTest, public ::testing::WithParamInterface<UntoldCase> {};

// A file whose attributes cannot be had may well be there: it is not replaced, and the read reports the
// cause.
TEST_P(UntoldTest, FileIsLeftAlone) {
  writeBookmarks(rootEntry({bookmarkEntry("a", "A")}));
  for (const char* clientId : {kMain, "com.keldra.Corvane.Bookmarks.plist"}) {
    platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
      const bool isFile = call.operation == FileOperation::attributes && call.path == bookmarksPath();
      return isFile ? std::make_error_code(GetParam().code) : std::error_code();
    };
    platform.log.expectMessages(
        {"Could not read bookmarks file " + bookmarksPath() + ": " + GetParam().cause});
    EXPECT_FALSE(syncs(clientId));
    EXPECT_EQ(platform.files.count(FileOperation::writeAtomically), 0);
    EXPECT_EQ(platform.files.count(FileOperation::writeNewAtomically), 0);
    EXPECT_EQ(tree(*mapped(*savedBookmarks())), "Root(a)");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Causes, UntoldTest,
    ::testing::Values(UntoldCase{"input or output error", std::errc::io_error, "Input/output error"},
                      UntoldCase{"no permission", std::errc::permission_denied, "Permission denied"},
                      UntoldCase{"a loop of links", std::errc::too_many_symbolic_link_levels,
                                 "Too many levels of symbolic links"}));

TEST_F(SyncManagerTest, LinkThatLeadsInACycleIsLeftAlone) {
  fs::create_symlink("Bookmarks.plist", bookmarksPath());
  platform.log.expectMessages(
      {"Could not read bookmarks file " + bookmarksPath() + ": Too many levels of symbolic links"});
  EXPECT_FALSE(syncs(kMain));
  EXPECT_TRUE(fs::is_symlink(bookmarksPath()));
}

// A link to nothing is nothing, and is replaced as a save would replace it.
TEST_F(SyncManagerTest, LinkToNothingIsReplaced) {
  fs::create_symlink("nowhere", bookmarksPath());
  EXPECT_TRUE(CorvaneSyncManager::initWithClientId(kMain));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(bookmarksPath())));
  EXPECT_FALSE(fs::exists(directory() + "/nowhere"));
}

TEST_F(SyncManagerTest, LinkThroughAFileIsReplacedAsALinkToNothingIs) {
  ASSERT_FALSE(platform.realFiles.write(directory() + "/file", "x"));
  fs::create_symlink("file/inside", bookmarksPath());
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Bookmarks.plist"));
  expectMissing("com.keldra.Corvane.Bookmarks.plist", bookmarksPath());
  EXPECT_TRUE(fs::is_symlink(bookmarksPath())) << "test clients never create files";
  EXPECT_TRUE(syncs(kMain));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(bookmarksPath())));
  EXPECT_TRUE(savedBookmarks()->empty());
  std::string other;
  ASSERT_FALSE(platform.realFiles.read(directory() + "/file", other));
  EXPECT_EQ(other, "x");
}

TEST_F(SyncManagerTest, DirectoryInTheFilesPlaceStands) {
  fs::create_directory(bookmarksPath());
  platform.log.expectMessages({"Could not make bookmarks file " + bookmarksPath() + ": Is a directory",
                               "Could not read bookmarks file " + bookmarksPath() + ": Is a directory"});
  EXPECT_FALSE(syncs(kMain));
  EXPECT_TRUE(fs::is_directory(bookmarksPath()));
}

// The browser makes its file after the look for one: it is not replaced, and is the one that is synced.
TEST_F(SyncManagerTest, FileThatComesMeanwhileIsNotReplaced) {
  const std::string browsers = writeBinaryPropertyList(rootEntry({bookmarkEntry("a", "A")}));
  const auto browserWrites = [&] { ASSERT_FALSE(platform.realFiles.write(bookmarksPath(), browsers)); };
  platform.files.before(FileOperation::writeAtomically, 1, browserWrites);
  platform.files.before(FileOperation::writeNewAtomically, 1, browserWrites);
  const auto manager = CorvaneSyncManager::initWithClientId(kMain);
  ASSERT_TRUE(manager);
  std::string contents;
  ASSERT_FALSE(platform.realFiles.read(bookmarksPath(), contents));
  EXPECT_EQ(contents, browsers);
  EXPECT_TRUE(manager->sync());
}

TEST_F(SyncManagerTest, SaysWhyTheFileCannotBeMade) {
  platform.files.failAlways(FileOperation::writeNewAtomically, std::errc::permission_denied);
  platform.log.expectMessages({"Could not make bookmarks file " + bookmarksPath() + ": Permission denied"});
  EXPECT_FALSE(syncs(kMain));
}

// What is no regular file is never written over.
TEST_F(SyncManagerTest, SpecialFilesAreLeftAloneAndNamed) {
  const auto makeFifo = [this] { ASSERT_EQ(mkfifo(bookmarksPath().c_str(), 0600), 0); };
  const auto makeSocket = [this] { ASSERT_EQ(mknod(bookmarksPath().c_str(), S_IFSOCK | 0600, 0), 0); };
  const std::string isSpecial = "Can't sync bookmarks file " + bookmarksPath() +
                                ": it is not a regular file; syncing bookmarks will fail";
  for (const std::function<void()>& make :
       {std::function<void()>(makeFifo), std::function<void()>(makeSocket)}) {
    make();
    struct stat before {};
    ASSERT_EQ(lstat(bookmarksPath().c_str(), &before), 0);
    platform.log.expectMessages({isSpecial});
    EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Bookmarks.plist"));
    platform.log.expectMessages({isSpecial});
    const auto manager = CorvaneSyncManager::initWithClientId(kMain);
    ASSERT_TRUE(manager);
    struct stat after {};
    ASSERT_EQ(lstat(bookmarksPath().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    fs::remove(bookmarksPath());
  }
}

TEST_F(SyncManagerTest, SyncOfASpecialFileFails) {
  ASSERT_EQ(mkfifo(bookmarksPath().c_str(), 0600), 0);
  platform.log.expectMessages({"Can't sync bookmarks file " + bookmarksPath() +
                                   ": it is not a regular file; syncing bookmarks will fail",
                               "Could not read bookmarks file " + bookmarksPath() + ": Invalid argument"});
  EXPECT_FALSE(syncs(kMain));
  EXPECT_TRUE(fs::is_fifo(bookmarksPath()));
}

TEST_F(SyncManagerTest, AnswersFalseForAFileThatHoldsNoDictionary) {
  ASSERT_FALSE(platform.realFiles.write(bookmarksPath(), "no property list at all"));
  platform.log.expectMessages({"Could not read bookmarks file " + bookmarksPath() +
                               ": plain-text property list, offset 3: text after the value"});
  EXPECT_FALSE(syncs(kMain));
  EXPECT_TRUE(loomer.registrations.empty());
}

TEST_F(SyncManagerTest, FileThatChangedSinceItWasReadIsReadAgain) {
  writeBookmarks(rootEntry({bookmarkEntry("a", "old")}));
  std::vector<bool> upToDate;
  Dictionary records;
  loomer.script = [&](LoomerSessionDriverDataSource& source, LoomerSessionDriver&) {
    upToDate.push_back(source.isUpToDate());
    writeBookmarks(rootEntry({bookmarkEntry("a", "new")}));
    upToDate.push_back(source.isUpToDate());
    EXPECT_TRUE(source.readAgain());
    upToDate.push_back(source.isUpToDate());
    bool moreComing = false;
    String error;
    records = source.recordsForEntityName(LoomerEntity_Bookmarks_Bookmark, moreComing, error);
    return true;
  };
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(upToDate, (std::vector{true, false, true}));
  EXPECT_EQ(records.dictionary("a")->string(LoomerAttribute_Bookmarks_Bookmark_Name.view()), "new");
}

TEST_F(SyncManagerTest, FileThatVanishedSinceItWasReadIsLeftToTheSave) {
  writeBookmarks(rootEntry({}));
  loomer.script = [&](LoomerSessionDriverDataSource& source, LoomerSessionDriver&) {
    fs::remove(bookmarksPath());
    return source.isUpToDate();
  };
  EXPECT_TRUE(syncs(kMain));
}

TEST_F(SyncManagerTest, RegistersTheClientByTheBrowsersBundle) {
  writeBookmarks(rootEntry({}));
  LoomerClient* sessionClient = nullptr;
  loomer.script = [&](LoomerSessionDriverDataSource&, LoomerSessionDriver& driver) {
    sessionClient = driver.client();
    return true;
  };
  EXPECT_TRUE(syncs(kMain));
  ASSERT_EQ(loomer.registrations.size(), 1u);
  EXPECT_EQ(loomer.registrations[0].identifier, kMain);
  EXPECT_EQ(loomer.registrations[0].bundleId, "com.keldra.Corvane");
  EXPECT_EQ(loomer.registrations[0].path,
            "Contents/CorvaneSyncClient.app/Contents/Resources/CorvaneClientDescription.plist");
  EXPECT_EQ(sessionClient, &loomer.client);
}

TEST_F(SyncManagerTest, FailedSessionIsLoggedAndWakesNobody) {
  writeBookmarks(rootEntry({}));
  addFeedAgent();
  loomer.lastError = "the engine is tired";
  loomer.script = [](LoomerSessionDriverDataSource&, LoomerSessionDriver&) { return false; };
  platform.log.expectMessages(
      {"Corvane Sync Client got the following error when attempting a sync: the engine is tired"});
  EXPECT_FALSE(syncs(kMain));
  EXPECT_EQ(FakeBundles::methodCalls, 0);
}

// A file whose version key is the number 1, absent, -5: accepted (-5 is written back); 0, 2 or a string:
// rejected.
struct VersionCase {
  const char* phrase;
  std::optional<Value> version;
  std::optional<int> written;  // none: rejected
  std::vector<std::string> diagnostics;
  friend void PrintTo(const VersionCase& row, std::ostream* out) { *out << row.phrase; }
};

class VersionTest : public SyncManagerTest, public ::testing::WithParamInterface<VersionCase> {};

const std::string kPrefix = "com.keldra.Corvane - ";
std::string invalidVersion(const std::string& value) {
  return kPrefix + "cannot sync Bookmarks with invalid version key. Version is not an NSNumber: value is " +
         value;
}
std::string tooNew(const std::string& version) {
  return kPrefix + "cannot sync Bookmarks with version " + version +
         ", this client can only synchronize versions 1 and previous";
}
std::string version(const std::string& number) { return kPrefix + "version key in Bookmarks is " + number; }

TEST_P(VersionTest, IsCheckedAndWrittenBack) {
  const VersionCase& row = GetParam();
  Dictionary bookmarks = rootEntry({bookmarkEntry("a", "A")});
  if (row.version) bookmarks.set("WebBookmarkFileVersion", *row.version);
  writeBookmarks(bookmarks);
  loomer.script = [](LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver) {
    String error;
    String remapped;
    dataSource.applyChange(LoomerChange(LoomerChangeTypeDelete, "a", std::nullopt),
                           LoomerEntity_Bookmarks_Bookmark, remapped, nullptr, error);
    return dataSource.sessionDriverWillFinishSession(driver, error);
  };
  EXPECT_EQ(raisedName(), row.written ? "" : "CorvaneBookmarksUnknownVersionException");
  for (const std::string& line : row.diagnostics) EXPECT_EQ(diagnosed(line), 1) << line;
  if (row.written) {
    EXPECT_EQ(savedBookmarks()->find("WebBookmarkFileVersion")->integer32(), row.written);
    EXPECT_EQ(raisedReason, "");
  } else {
    EXPECT_EQ(description(*savedBookmarks()), description(bookmarks));
    EXPECT_THAT(raisedReason, ::testing::StartsWith("The Corvane Bookmarks file cannot be synchronized."));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Versions, VersionTest,
    ::testing::Values(
        VersionCase{"one", Value(1), 1, {version("1")}},
        VersionCase{"absent",
                    std::nullopt,
                    1,
                    {kPrefix + "version key not found in Bookmarks, using default value of 1"}},
        VersionCase{"negative", Value(-5), -5, {version("-5")}},
        VersionCase{"a real truncates", Value(1.9), 1, {version("1")}},
        VersionCase{"low bits of a larger integer", Value(std::int64_t{0x1'0000'0001}), 1, {version("1")}},
        VersionCase{"true", Value(true), 1, {version("1")}},
        VersionCase{"zero", Value(0), std::nullopt, {version("0"), invalidVersion("0")}},
        VersionCase{"two", Value(2), std::nullopt, {version("2"), tooNew("2")}},
        VersionCase{"text", Value("1"), std::nullopt, {invalidVersion("1")}},
        VersionCase{
            "not a number", Value(std::numeric_limits<double>::quiet_NaN()), std::nullopt, {version("0")}}));

// Absent: version = 1, also when the process has synced a file of another version before.
TEST_F(SyncManagerTest, AbsentVersionForgetsTheOneBefore) {
  loomer.script = [](LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver) {
    String error;
    dataSource.deleteAllRecordsForEntityName(LoomerEntity_Bookmarks_Bookmark, error);
    return dataSource.sessionDriverWillFinishSession(driver, error);
  };
  Dictionary bookmarks = rootEntry({bookmarkEntry("a", "A")});
  bookmarks.set("WebBookmarkFileVersion", -5);
  writeBookmarks(bookmarks);
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(savedBookmarks()->find("WebBookmarkFileVersion")->integer32(), -5);
  writeBookmarks(rootEntry({bookmarkEntry("a", "A")}));
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(savedBookmarks()->find("WebBookmarkFileVersion")->integer32(), 1);
}

// The data source is given the date of the file that was read: the mode follows from it.
TEST_F(SyncManagerTest, HandsTheFilesDateToTheDataSource) {
  writeBookmarks(rootEntry({bookmarkEntry("a", "A")}));
  int mode = 0;
  loomer.script = [&mode](LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver) {
    String error;
    dataSource.sessionDriverDidRegisterClient(driver, error);
    mode = dataSource.preferredSyncModeForEntityName(LoomerEntity_Bookmarks_Folder);
    return true;
  };
  loomer.client.values.set("modDateOnLastSync", fileDate());
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(mode, 1);
  loomer.client.values.set("modDateOnLastSync", Date{fileDate().seconds - 1.0});
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(mode, 2);
}

TEST_F(SyncManagerTest, VersionMessageIsLocalized) {
  writeBookmarks(Dictionary{{"WebBookmarkFileVersion", 7}});
  platform.bundles.own
      .localizedTexts["CorvaneSyncClient"]
                     ["The Corvane Bookmarks file cannot be synchronized. The Bookmarks file is from a "
                      "version of Corvane that is incompatible with this version of Loomer. If a new "
                      "version of Corvane has been installed, you must install the latest version of "
                      "Loomer."] = "Zu neu.";
  EXPECT_EQ(raisedName(), "CorvaneBookmarksUnknownVersionException");
  EXPECT_EQ(raisedReason, "Zu neu.");
}

TEST_F(SyncManagerTest, WakesTheFeedAgentAfterASession) {
  writeBookmarks(rootEntry({}));
  addFeedAgent();
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(FakeBundles::methodCalls, 1);
  const auto& lines = platform.log.diagnostics;
  EXPECT_THAT(std::vector(lines.end() - 5, lines.end()),
              ElementsAre("Loading bundle for /System/Library/Frameworks/Nuvolo.framework",
                          "Bundle is /System/Library/Frameworks/Nuvolo.framework", "Loaded bundle",
                          "Class is NuvoloClient", "Class responds to selector, calling method"));
}

TEST_F(SyncManagerTest, PrivateSyncWakesNobody) {
  writeBookmarks(rootEntry({}));
  addFeedAgent();
  const auto manager = CorvaneSyncManager::initWithClientId(kMain);
  manager->_setIsPrivateSync(true);
  EXPECT_TRUE(manager->sync());
  EXPECT_EQ(FakeBundles::methodCalls, 0);
  EXPECT_THAT(diagnosticsWith("Loading bundle"), IsEmpty());
}

TEST_F(SyncManagerTest, FeedAgentMayBeMissingInAnyPart) {
  writeBookmarks(rootEntry({}));
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(platform.log.diagnostics.back(), "Bundle is (null)");

  FakeBundle& bundle = addFeedAgent();
  bundle.loadable = false;
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(platform.log.diagnostics.back(), "Bundle is /System/Library/Frameworks/Nuvolo.framework");

  bundle.loadable = true;
  bundle.classes.clear();
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(platform.log.diagnostics.back(), "Class is (null)");

  bundle.classes = {"NuvoloClient"};
  bundle.methods.clear();
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(platform.log.diagnostics.back(), "Class is NuvoloClient");
  EXPECT_EQ(FakeBundles::methodCalls, 0);
}

TEST_F(SyncManagerTest, RaisingFeedAgentIsLoggedTwiceAndForgotten) {
  writeBookmarks(rootEntry({}));
  addFeedAgent().methods[{"NuvoloClient", "startSync"}] = &FakeBundles::raisingMethod;
  const std::string line = "Exception FakeException trying to launch Nuvolo Agent: fake reason";
  platform.log.expectMessages({line});
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(diagnosed(line), 1);
}

}  // namespace
}  // namespace corvane
