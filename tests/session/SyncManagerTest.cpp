#include <gmock/gmock.h>

#include <limits>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "tests/fakes/Files.h"
#include "tests/session/SessionTest.h"

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kMain = "com.keldra.Corvane";
constexpr const char* kFeedFramework = "/System/Library/Frameworks/Nuvolo.framework";

class SyncManagerTest : public SessionTest {
 protected:
  bool syncs(const char* clientId) {
    const auto manager = CorvaneSyncManager::initWithClientId(clientId);
    return manager && manager->sync();
  }

  /// The name of what `sync` raises; empty when nothing.
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
}

// A client id made of the main id, "." and "Bookmarks.plist": fails without the file, with it syncs the main
// client's.
TEST_F(SyncManagerTest, TestClientOfTheMainFileNeedsTheFile) {
  EXPECT_FALSE(CorvaneSyncManager::initWithClientId("com.keldra.Corvane.Bookmarks.plist"));
  EXPECT_EQ(diagnosed("No Test Corvane Sync Client for com.keldra.Corvane.Bookmarks.plist, file " +
                      bookmarksPath() + " does not exist"),
            1);
  EXPECT_FALSE(savedBookmarks());

  writeBookmarks(root({leaf("a", "A")}));
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
}

TEST_F(SyncManagerTest, TestClientSyncsItsOwnFile) {
  writeBookmarks(root({leaf("t", "T")}), "Other.plist");
  EXPECT_TRUE(syncs("com.keldra.Corvane.Other.plist"));
  ASSERT_EQ(loomer.registrations.size(), 1u);
  EXPECT_EQ(loomer.registrations[0].identifier, "com.keldra.Corvane.Other.plist");
}

TEST_F(SyncManagerTest, PathIsStandardizedForTheTestButNotForTheFile) {
  writeBookmarks(root({}), "Other.plist");
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
  platform.log.expectedMessages.clear();
  platform.log.messages.clear();
  EXPECT_FALSE(manager->sync());
  platform.log.messages.clear();  // what the store says of the unreadable file
}

TEST_F(SyncManagerTest, AnswersFalseForAFileThatHoldsNoDictionary) {
  ASSERT_FALSE(platform.realFiles.write(bookmarksPath(), "no property list at all"));
  EXPECT_FALSE(syncs(kMain));
  EXPECT_TRUE(loomer.registrations.empty());
  platform.log.messages.clear();  // what the store says of the unreadable file
}

TEST_F(SyncManagerTest, RegistersTheClientByTheBrowsersBundle) {
  writeBookmarks(root({}));
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
  writeBookmarks(root({}));
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
  Dictionary bookmarks = root({leaf("a", "A")});
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
    ::testing::Values(VersionCase{"One", Value(1), 1, {version("1")}},
                      VersionCase{"Absent",
                                  std::nullopt,
                                  1,
                                  {kPrefix + "version key not found in Bookmarks, using default value of 1"}},
                      VersionCase{"Negative", Value(-5), -5, {version("-5")}},
                      VersionCase{"RealTruncates", Value(1.9), 1, {version("1")}},
                      VersionCase{"LowBits", Value(std::int64_t{0x1'0000'0001}), 1, {version("1")}},
                      VersionCase{"True", Value(true), 1, {version("1")}},
                      VersionCase{"Zero", Value(0), std::nullopt, {version("0"), invalidVersion("0")}},
                      VersionCase{"Two", Value(2), std::nullopt, {version("2"), tooNew("2")}},
                      VersionCase{"Text", Value("1"), std::nullopt, {invalidVersion("1")}},
                      VersionCase{"NotANumber",
                                  Value(std::numeric_limits<double>::quiet_NaN()),
                                  std::nullopt,
                                  {version("0")}}),
    [](const auto& test) { return test.param.phrase; });

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
  writeBookmarks(root({}));
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
  writeBookmarks(root({}));
  addFeedAgent();
  const auto manager = CorvaneSyncManager::initWithClientId(kMain);
  manager->_setIsPrivateSync(true);
  EXPECT_TRUE(manager->sync());
  EXPECT_EQ(FakeBundles::methodCalls, 0);
  EXPECT_THAT(diagnosticsWith("Loading bundle"), IsEmpty());
}

TEST_F(SyncManagerTest, FeedAgentMayBeMissingInAnyPart) {
  writeBookmarks(root({}));
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
  writeBookmarks(root({}));
  addFeedAgent().methods[{"NuvoloClient", "startSync"}] = &FakeBundles::raisingMethod;
  const std::string line = "Exception FakeException trying to launch Nuvolo Agent: fake reason";
  platform.log.expectMessages({line});
  EXPECT_TRUE(syncs(kMain));
  EXPECT_EQ(diagnosed(line), 1);
}

}  // namespace
}  // namespace corvane
