// The real tool, in real processes.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/front/Installation.h"

namespace corvane {
namespace {

const std::vector<std::string> kSync = {"--sync", "com.keldra.Corvane", "--entitynames", "anything"};
const std::vector<std::string> kIsSyncing = {"--issyncing"};

// A line in the system log that a test does not declare fails it.
class ToolTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(installation.systemLog(), expectedLog); }

  // What a run said on standard output and standard error together.
  std::string said() const {
    return contentsOf(installation.standardOutput()) + contentsOf(installation.standardError());
  }

  Installation installation;
  std::vector<std::string> expectedLog;
};

TEST_F(ToolTest, SyncsAndSaysNothing) {
  EXPECT_EQ(statusOf(installation, kSync), 0);
  EXPECT_TRUE(std::filesystem::exists(installation.bookmarks()));
  EXPECT_FALSE(installation.isLocked());
  EXPECT_EQ(said(), "");
}

TEST_F(ToolTest, UsageGoesToStandardErrorAlone) {
  EXPECT_EQ(statusOf(installation, {}), 1);
  EXPECT_EQ(contentsOf(installation.standardOutput()), "");
  EXPECT_TRUE(
      contentsOf(installation.standardError()).starts_with("corvanetool say: what you trying to do?\n\n"));
  EXPECT_EQ(statusOf(installation, {"--sync", "X", "--entitynames"}), 1);
  EXPECT_TRUE(
      contentsOf(installation.standardError()).ends_with("    --sync clientId --entitynames entityNames\n"));
}

TEST_F(ToolTest, ImproperClientIdsFailWithoutALock) {
  EXPECT_EQ(statusOf(installation, {"--sync", "com.example.Other", "--entitynames", "x"}), 1);
  EXPECT_EQ(statusOf(installation, {"--sync", "\xC3(", "--entitynames", "x"}), 1);
  EXPECT_FALSE(installation.isLocked());
  EXPECT_EQ(said(), "");
  expectedLog = {
      "Corvane Sync Client - asked to sync client id com.example.Other, but com.keldra.Corvane(.afilename) "
      "is required",
      "CorvaneSyncClient called to sync, but without a proper client id"};
}

// A file that is no property list: status 1, and the log names file and cause.
TEST_F(ToolTest, UnreadableFilesAreNamedInTheLog) {
  std::filesystem::create_directories(std::filesystem::path(installation.bookmarks()).parent_path());
  std::ofstream(installation.bookmarks()) << "rubbish";
  EXPECT_EQ(statusOf(installation, kSync), 1);
  EXPECT_EQ(contentsOf(installation.bookmarks()), "rubbish");
  expectedLog = {"Could not read bookmarks file " + installation.bookmarks() +
                 ": it holds a value of type string in place of a dictionary"};
}

TEST_F(ToolTest, SaysThatNoAccountIsRegistered) {
  EXPECT_EQ(statusOf(installation, {"--isregistered"}), 1);
  expectedLog = {"Corvane Sync Client is not registered"};
}

TEST_F(ToolTest, AskingLeavesAnEmptyHomeEmpty) {
  for (const char* question : {"--isregistered", "--canregister", "--issyncing"}) {
    EXPECT_EQ(statusOf(installation, {question}), 1) << question;
    EXPECT_TRUE(std::filesystem::is_empty(installation.home())) << question;
  }
  expectedLog = {"Corvane Sync Client is not registered"};
}

TEST_F(ToolTest, ProbesTheLock) {
  EXPECT_EQ(statusOf(installation, kIsSyncing), 1);
  EXPECT_FALSE(installation.isLocked());
}

TEST_F(ToolTest, OneRunAtATime) {
  ToolRun first(installation, kSync, true);
  ASSERT_TRUE(first.waitUntilHeld());
  EXPECT_TRUE(installation.isLocked());
  EXPECT_EQ(statusOf(installation, kIsSyncing), 0);
  EXPECT_EQ(statusOf(installation, kSync), 1);
  EXPECT_TRUE(installation.isLocked());
  first.letGo();
  EXPECT_EQ(first.exitStatus(), 0);
  EXPECT_EQ(statusOf(installation, kIsSyncing), 1);
  EXPECT_EQ(statusOf(installation, kSync), 0);
}

TEST_F(ToolTest, NothingOfARunGetsIntoACoreDump) {
  ToolRun run(installation, kSync, true);
  ASSERT_TRUE(run.waitUntilHeld());
  EXPECT_EQ(contentsOf(run.pipe() + ".dumpable"), "0");
  run.letGo();
  EXPECT_EQ(run.exitStatus(), 0);
}

TEST_F(ToolTest, TwoRunsAtOnceNeverBothHoldTheLock) {
  ToolRun first(installation, kSync, true);
  ToolRun second(installation, kSync, true);
  const bool firstHeld = first.waitUntilHeld();
  // With the first one standing still the second ends; without, it may do what it likes.
  const bool secondHeld = second.waitUntilHeld();
  EXPECT_NE(firstHeld, secondHeld);
  if (firstHeld) first.letGo();
  if (secondHeld) second.letGo();
  EXPECT_EQ(first.exitStatus(), firstHeld ? 0 : 1);
  EXPECT_EQ(second.exitStatus(), secondHeld ? 0 : 1);
}

TEST_F(ToolTest, KilledRunLeavesALockThatIsStaleAfterFiveMinutes) {
  {
    ToolRun killed(installation, kSync, true);
    ASSERT_TRUE(killed.waitUntilHeld());
    killed.kill();
    EXPECT_EQ(killed.exitStatus(), std::nullopt);
  }
  EXPECT_TRUE(installation.isLocked());
  EXPECT_EQ(statusOf(installation, kIsSyncing), 0);
  EXPECT_EQ(statusOf(installation, kSync), 1);
  EXPECT_TRUE(installation.isLocked());

  std::filesystem::remove(installation.lock());
  installation.makeLockOfAge(301);
  EXPECT_EQ(statusOf(installation, kIsSyncing),
            0);  // a stale lock reports "syncing" until a sync run breaks it
  EXPECT_EQ(statusOf(installation, kSync), 0);
  EXPECT_FALSE(installation.isLocked());
}

// A lock taken 300 seconds ago or earlier: broken and retaken; the sync runs.
TEST_F(ToolTest, LockOf300SecondsIsBroken) {
  installation.makeLockOfAge(300);
  EXPECT_EQ(statusOf(installation, kSync), 0);
  EXPECT_FALSE(installation.isLocked());
}

// A lock taken 299 seconds ago: "already syncing", status 1, the lock is untouched. What a run found counts
// once the lock was still short of 300 seconds when the run had ended; a machine that took longer tries
// again.
TEST_F(ToolTest, LockOf299SecondsStands) {
  for (bool counts = false; !counts;) {
    std::filesystem::remove(installation.lock());
    installation.makeLockOfAge(299);
    const auto date = std::filesystem::last_write_time(installation.lock());
    const std::optional<int> status = statusOf(installation, kSync);
    counts = std::filesystem::file_time_type::clock::now() - date < std::chrono::seconds(300);
    if (!counts) continue;
    EXPECT_EQ(status, 1);
    ASSERT_TRUE(installation.isLocked());
    EXPECT_EQ(std::filesystem::last_write_time(installation.lock()), date);
  }
}

// What the store holds of the main client.
struct StoredClient {
  std::int64_t row = 0;
  Dictionary description;
};

StoredClient storedClient(const Installation& installation) {
  StrictPlatform platform;
  loomer::TruthStore store(loomer::storePathForHome(installation.home()));
  loomer::ClientTable clients(store);
  const std::vector<loomer::ClientState> all = clients.all();
  EXPECT_EQ(all.size(), 1u);
  if (all.size() != 1) return {};
  EXPECT_EQ(all[0].identifier, "com.keldra.Corvane");
  return {all[0].id, clients.description(all[0].id)};
}

Dictionary propertyList(const std::string& path) {
  const Value value = readPropertyList(contentsOf(path));
  return *value.as<Dictionary>();
}

// A registration names the description among the tool's own resources, a session names it by the browser's
// bundle: both are the same client.
TEST_F(ToolTest, RegistrationAndSessionsMeanTheSameClient) {
  const Dictionary description =
      propertyList(std::string(CORVANE_RESOURCES) + "/CorvaneClientDescription.plist");
  ASSERT_EQ(statusOf(installation, {"--registersyncclient", "com.keldra.Corvane"}), 0);
  const StoredClient registered = storedClient(installation);
  EXPECT_EQ(registered.description, description);
  ASSERT_EQ(statusOf(installation, kSync), 0);
  EXPECT_EQ(storedClient(installation).row, registered.row);
  EXPECT_EQ(storedClient(installation).description, description);
}

TEST_F(ToolTest, SessionRegistersTheSameDescriptionAsARegistration) {
  ASSERT_EQ(statusOf(installation, kSync), 0);
  const StoredClient synced = storedClient(installation);
  ASSERT_EQ(statusOf(installation, {"--registersyncclient", "com.keldra.Corvane"}), 0);
  EXPECT_EQ(storedClient(installation).description, synced.description);
}

Dictionary leaf(const char* uid, const char* title, const char* note) {
  return {{"WebBookmarkType", "WebBookmarkTypeLeaf"},
          {"WebBookmarkUUID", uid},
          {"URLString", std::string("http://") + uid + "/"},
          {"URIDictionary", Dictionary{{"title", title}}},
          {"Note", note}};
}

// The file's bookmark of that address.
Dictionary childAt(const std::string& path, const std::string& url) {
  const Dictionary root = propertyList(path);
  for (const Value& child : *root.array("Children")) {
    if (child.as<Dictionary>()->string("URLString") == url) return *child.as<Dictionary>();
  }
  ADD_FAILURE() << path << " lacks " << url;
  return {};
}

String titleAt(const std::string& path, const std::string& url) {
  const Dictionary bookmark = childAt(path, url);
  const Dictionary* const texts = bookmark.dictionary("URIDictionary");
  return texts ? texts->string("title") : String();
}

// A browser may leave half a character where it cuts a title: its own file keeps that to the bit, no other
// gets it.
TEST_F(ToolTest, SurrogateThatStandsAloneStaysInItsFileAndReachesNoOther) {
  const std::string main = installation.bookmarks();
  const std::string second = installation.home() + "/Library/Corvane/Second.plist";
  const auto write = [](const std::string& path, const Dictionary& bookmark) {
    std::ofstream(path, std::ios::binary) << writeBinaryPropertyList(
        Dictionary{{"WebBookmarkType", "WebBookmarkTypeList"}, {"Children", Array{bookmark}}});
  };
  std::filesystem::create_directories(std::filesystem::path(main).parent_path());
  const char* const cut = "cut \xED\xA0\xBD";
  write(main, leaf("a", cut, "\xED\xB8\x80"));
  write(second, leaf("b", "whole", ""));
  const std::vector<std::string> syncSecond = {"--sync", "com.keldra.Corvane.Second.plist", "--entitynames",
                                               "anything"};
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(statusOf(installation, kSync), 0);
    ASSERT_EQ(statusOf(installation, syncSecond), 0);
  }
  EXPECT_EQ(titleAt(main, "http://b/"), "whole");
  EXPECT_EQ(titleAt(main, "http://a/"), cut);
  EXPECT_EQ(childAt(main, "http://a/").string("Note"), "\xED\xB8\x80");
  EXPECT_EQ(titleAt(second, "http://a/"), "cut \uFFFD");
}

// Tool and image lie where the description says, in the bundle as it is built.
TEST(ClientBundleTest, HoldsWhatItsDescriptionNames) {
  const auto resources = std::filesystem::path(CORVANE_TOOL).parent_path().parent_path() / "Resources";
  const Dictionary description = propertyList(resources / "CorvaneClientDescription.plist");
  EXPECT_EQ(description.string("DisplayName"), "Corvane");
  EXPECT_TRUE(std::filesystem::equivalent(resources / description.string("ToolPath").view(), CORVANE_TOOL));
  EXPECT_TRUE(
      contentsOf(resources / description.string("ImagePath").view()).starts_with("\x89PNG\r\n\x1a\n"));
}

TEST_F(ToolTest, RegistersAndUnregistersAClient) {
  EXPECT_EQ(statusOf(installation, {"--unregistersyncclient", "com.keldra.Corvane"}), 1);
  EXPECT_EQ(statusOf(installation, {"--registersyncclient", "com.keldra.Corvane"}), 0);
  EXPECT_EQ(statusOf(installation, {"--registersyncclient", "com.keldra.Corvane"}), 0);
  EXPECT_EQ(statusOf(installation, {"--unregistersyncclient", "com.keldra.Corvane"}), 0);
  EXPECT_EQ(statusOf(installation, {"--unregistersyncclient", "com.keldra.Corvane"}), 1);
}

// The cause is a trace line: with diagnostics off, a registration that fails answers 1 and no more.
TEST_F(ToolTest, RegistrationThatFailsSaysNothing) {
  const auto description = std::filesystem::canonical(installation.tool()).parent_path().parent_path() /
                           "Resources/CorvaneClientDescription.plist";
  std::ofstream(description) << "( rubbish )";
  const std::vector<std::string> registers = {"--registersyncclient", "com.keldra.Corvane"};
  EXPECT_EQ(statusOf(installation, registers), 1);
  EXPECT_EQ(statusOf(installation, {"--registersyncclient", ""}), 1);
  EXPECT_EQ(said(), "");
  EXPECT_EQ(installation.systemLog(), std::vector<std::string>{});

  std::filesystem::create_directories(installation.home() + "/Library/Preferences");
  std::ofstream(installation.home() + "/Library/Preferences/com.keldra.Corvane.plist") << "{ SCLog = YES; }";
  EXPECT_EQ(statusOf(installation, registers), 1);
  expectedLog = {"Loomer - cannot register client com.keldra.Corvane with description " +
                 description.string() + ": it is no dictionary but a array"};
}

}  // namespace
}  // namespace corvane
