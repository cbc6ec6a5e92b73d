#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "browsers/host/BrowserClient.h"
#include "browsers/host/Intake.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/NativeMessages.h"
#include "browsers/host/Presenting.h"
#include "tests/browser-host/HostFixture.h"
#include "tests/kit/TestSize.h"

namespace corvane {
namespace {

using browsers::NodeKind;
using browsers::RootKind;
using Kind = ScriptedBrowser::Kind;

class BrowserHostTest : public testing::Test {
 protected:
  BrowserHostTest() { firefox.browser.token = "22222222-2222-4222-8222-222222222222"; }

  ~BrowserHostTest() override { EXPECT_TRUE(platform.log.messages.empty()) << platform.log.messages.front(); }

  static std::string addBookmark(HostedBrowser& hosted, RootKind root, const std::string& title,
                                 const std::string& url, std::size_t index = ScriptedBrowser::kEnd) {
    return hosted.browser.add(hosted.browser.root(root), NodeKind::bookmark, title, url, index);
  }
  static std::string addFolder(HostedBrowser& hosted, RootKind root, const std::string& title) {
    return hosted.browser.add(hosted.browser.root(root), NodeKind::folder, title);
  }
  // The id of the only node of that title.
  static std::string find(const HostedBrowser& hosted, const std::string& title) {
    for (const auto& [id, node] : hosted.browser.nodes()) {
      if (node.title == title && !node.root) return id;
    }
    ADD_FAILURE() << "there is no " << title << " in " << hosted.text();
    return {};
  }
  static const ScriptedBrowser::Node& node(const HostedBrowser& hosted, const std::string& title) {
    return hosted.browser.nodes().at(find(hosted, title));
  }

  void round() {
    for (int i = 0; i < 2; ++i) {
      chromium.sync();
      firefox.sync();
    }
  }

  // All of the truth in one scripted client's words.
  std::string truth() {
    const auto client = home.makeClient("reader");
    EXPECT_EQ(client->sync(), "");
    return client->text();
  }

  loomer::ClientState clientOf(const HostedBrowser& hosted) {
    const auto client = loomer::ClientTable(home.store()).find("com.keldra.browser." + hosted.browser.token);
    EXPECT_TRUE(client);
    return client.value_or(loomer::ClientState());
  }

  // Another computer of the user's, at which everything happens as long as this object is there.
  class OtherComputer {
   public:
    explicit OtherComputer(BrowserHostTest& test, const std::string& name = "other")
        : _test(test), _home(test.platform.process.home) {
      _test.home.close();
      _test.platform.process.home = _test.platform.directory / name;
      _test.platform.makeDirectories(_test.platform.process.home);
      engine.emplace(_test.platform);
    }
    OtherComputer(const OtherComputer&) = delete;
    OtherComputer& operator=(const OtherComputer&) = delete;
    ~OtherComputer() {
      engine.reset();
      _test.platform.process.home = _home;
      _test.home.open();
    }

    std::optional<EngineHome> engine;

   private:
    BrowserHostTest& _test;
    std::string _home;
  };

  FakePlatform platform;
  EngineHome home{platform};
  HostedBrowser chromium{Kind::chromium};
  HostedBrowser firefox{Kind::firefox};
};

TEST_F(BrowserHostTest, FirstSessionsBringTwoBrowsersTogether) {
  addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  addBookmark(firefox, RootKind::other, "cat", "http://cat/");
  chromium.start();
  firefox.start();
  round();
  EXPECT_EQ(chromium.text(), firefox.text());
  EXPECT_EQ(chromium.text(), "bar: ant@http://ant/ bee@http://bee/ other: cat@http://cat/");
}

TEST_F(BrowserHostTest, WhatOneBrowserDoesArrivesInTheOther) {
  const std::string folder = addFolder(chromium, RootKind::bar, "F");
  chromium.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/");
  addBookmark(chromium, RootKind::bar, "cat", "http://cat/");
  chromium.start();
  firefox.start();
  round();
  EXPECT_EQ(firefox.text(), "bar: F(ant@http://ant/) bee@http://bee/ cat@http://cat/");
  firefox.browser.rename(find(firefox, "ant"), "ape");
  firefox.browser.readdress(find(firefox, "bee"), "http://bee/2");
  firefox.browser.move(find(firefox, "cat"), firefox.browser.root(RootKind::bar), 0);
  firefox.browser.move(find(firefox, "bee"), find(firefox, "F"), 0);
  firefox.sync();
  chromium.sync();
  EXPECT_EQ(chromium.text(), "bar: cat@http://cat/ F(bee@http://bee/2 ape@http://ant/)");
  chromium.browser.remove(find(chromium, "bee"));
  chromium.sync();
  firefox.sync();
  EXPECT_EQ(firefox.text(), "bar: cat@http://cat/ F(ape@http://ant/)");
}

TEST_F(BrowserHostTest, SessionWithNothingNewReadsTheTreeOnceAndWritesNothing) {
  addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  chromium.start();
  firefox.start();
  round();
  const std::size_t requests = firefox.browser.requests();
  const auto revision = loomer::RecordTable(home.store()).state().revision;
  firefox.sync();
  EXPECT_EQ(firefox.browser.requests(), requests + 1);
  EXPECT_EQ(loomer::RecordTable(home.store()).state().revision, revision);
}

TEST_F(BrowserHostTest, MenuOfTheTruthIsAFolderInChromium) {
  addBookmark(firefox, RootKind::menu, "ant", "http://ant/");
  firefox.start();
  chromium.start();
  EXPECT_EQ(chromium.text(), "other: \"Bookmarks Menu\"(ant@http://ant/)");
  round();
  chromium.browser.add(find(chromium, "Bookmarks Menu"), NodeKind::bookmark, "bee", "http://bee/");
  round();
  EXPECT_EQ(firefox.text(), "menu: ant@http://ant/ bee@http://bee/");
}

TEST_F(BrowserHostTest, WhatLiesInTheTruthsRootIsShownInOtherAndStaysThere) {
  const auto file = home.makeClient("file");
  file->addBookmark("", "ant", "http://ant/");
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  EXPECT_EQ(firefox.text(), "other: ant@http://ant/");
  firefox.browser.rename(find(firefox, "ant"), "ape");
  firefox.sync();
  firefox.sync();
  EXPECT_EQ(truth(), "ape@http://ant/");
}

TEST_F(BrowserHostTest, FormsOfABrowserNeverTravelBack) {
  const auto file = home.makeClient("file");
  file->addBookmark("", "two\nlines", "HTTP://Ant.example");
  file->addBookmark("", std::string(5000, 'x'), "http://bee.example/a b");
  ASSERT_EQ(file->sync(), "");
  const std::string before = file->text();
  chromium.start();
  firefox.start();
  EXPECT_EQ(node(chromium, "two lines").url, "http://ant.example/");
  EXPECT_EQ(node(firefox, std::string(4096, 'x')).url, "http://bee.example/a%20b");
  round();
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), before);
  // A title that the user changes travels alone.
  chromium.browser.rename(find(chromium, "two lines"), "one");
  chromium.sync();
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->nodes.at(file->find("one")).url, "HTTP://Ant.example");
}

TEST_F(BrowserHostTest, WhatABrowserRefusesStaysWithTheOthersAndIsOfferedOnce) {
  const auto file = home.makeClient("file");
  file->addBookmark("", "ant", "no address at all");
  file->addBookmark("", "bee", "");
  file->addBookmark("", "cat", "http://cat/");
  ASSERT_EQ(file->sync(), "");
  const std::string before = file->text();
  firefox.start();
  EXPECT_EQ(firefox.text(), "other: cat@http://cat/");
  const std::size_t requests = firefox.browser.requests();
  firefox.sync();
  EXPECT_EQ(firefox.browser.requests(), requests + 1);
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), before);
  file->readdress(file->find("ant"), "http://ant/");
  ASSERT_EQ(file->sync(), "");
  firefox.sync();
  EXPECT_EQ(firefox.text(), "other: ant@http://ant/ cat@http://cat/");
}

TEST_F(BrowserHostTest, SeparatorsStayWhereTheyAre) {
  const std::string folder = addFolder(firefox, RootKind::bar, "F");
  firefox.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/");
  firefox.browser.add(folder, NodeKind::separator, "");
  firefox.browser.add(folder, NodeKind::bookmark, "bee", "http://bee/");
  firefox.start();
  chromium.start();
  EXPECT_EQ(chromium.text(), "bar: F(ant@http://ant/ bee@http://bee/)");
  chromium.browser.add(find(chromium, "F"), NodeKind::bookmark, "cat", "http://cat/", 1);
  chromium.sync();
  firefox.sync();
  std::string titles;
  for (const std::string& each : firefox.browser.childrenOf(folder)) {
    const ScriptedBrowser::Node& child = firefox.browser.nodes().at(each);
    titles += (child.kind == NodeKind::separator ? "-" : child.title) + " ";
  }
  EXPECT_EQ(titles, "ant - cat bee ");
  // A folder that goes takes its separators along.
  chromium.browser.remove(find(chromium, "F"));
  chromium.sync();
  firefox.sync();
  EXPECT_EQ(firefox.text(), "");
}

TEST_F(BrowserHostTest, WhatChromiumLosesWhenItIsKilledIsDoneAgain) {
  addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  const std::string gone = addBookmark(chromium, RootKind::bar, "dog", "http://dog/");
  addBookmark(chromium, RootKind::bar, "anchor", "http://anchor/");
  chromium.start();
  firefox.start();
  chromium.browser.pass(60'000);
  platform.clock.time.seconds += 60;
  // All of it reaches the host, and none of it the disk.
  chromium.browser.rename(find(chromium, "ant"), "ape");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/", 0);
  chromium.browser.remove(gone);
  chromium.sync();
  const std::string before = chromium.text();
  chromium.kill();
  EXPECT_EQ(chromium.text(), "bar: ant@http://ant/ dog@http://dog/ anchor@http://anchor/");
  platform.clock.time.seconds += 3600;
  chromium.start();
  EXPECT_EQ(chromium.text(), before);
  firefox.sync();
  EXPECT_EQ(firefox.text(), before);
}

TEST_F(BrowserHostTest, WhatTheUserDeletesLaterIsNotDoneAgain) {
  const std::string ant = addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/");
  chromium.start();
  chromium.browser.pass(60'000);
  platform.clock.time.seconds += 60;
  chromium.quit();
  chromium.start();
  chromium.browser.remove(ant);
  chromium.sync();
  EXPECT_EQ(chromium.text(), "bar: bee@http://bee/");
}

TEST_F(BrowserHostTest, RestoredProfileIsGivenWhatHappenedSince) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  chromium.start();
  firefox.quit();
  const ScriptedBrowser backup = firefox.browser;
  firefox.start();
  firefox.browser.rename(find(firefox, "ant"), "ape");
  addBookmark(firefox, RootKind::bar, "cat", "http://cat/");
  firefox.sync();
  chromium.sync();
  const std::string before = chromium.text();
  firefox.quit();
  firefox.browser.restore(backup);
  firefox.start();
  chromium.sync();
  EXPECT_EQ(firefox.text(), before);
  EXPECT_EQ(chromium.text(), before);
}

TEST_F(BrowserHostTest, IdsThatAreAllRenewedAreNoEdits) {
  const std::string folder = addFolder(firefox, RootKind::bar, "F");
  firefox.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  chromium.start();
  round();
  const auto revision = loomer::RecordTable(home.store()).state().revision;
  firefox.browser.renewIds();
  firefox.sync();
  EXPECT_EQ(loomer::RecordTable(home.store()).state().revision, revision);
}

TEST_F(BrowserHostTest, CopyOfARunningProfileBecomesAClientOfItsOwn) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  HostedBrowser copy{Kind::firefox};
  copy.browser = firefox.browser;
  // As the system says it once the host has waited for the other one.
  platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    const bool isOriginal =
        call.operation == FileOperation::hold && call.path.find(firefox.browser.token) != std::string::npos;
    return isOriginal ? std::make_error_code(std::errc::device_or_resource_busy) : std::error_code();
  };
  copy.start();
  platform.files.intercept = nullptr;
  EXPECT_NE(copy.browser.token, firefox.browser.token);
  EXPECT_EQ(copy.text(), firefox.text());
  firefox.sync();
  EXPECT_EQ(firefox.text(), "bar: ant@http://ant/");
}

TEST_F(BrowserHostTest, UserWhoIsFasterWins) {
  const auto file = home.makeClient("file");
  file->addBookmark("", "ant", "http://ant/");
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  file->rename(file->find("ant"), "ape");
  ASSERT_EQ(file->sync(), "");
  // The user renames it after the host has read the tree.
  firefox.beforeNextChange = [&] { firefox.browser.rename(find(firefox, "ant"), "auk"); };
  firefox.sync();
  EXPECT_EQ(firefox.text(), "other: auk@http://ant/");
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), "auk@http://ant/");
}

TEST_F(BrowserHostTest, FolderIntoWhichTheUserPutsItsFolderToBeStaysWhereItIs) {
  const auto file = home.makeClient("file");
  const std::string bar = file->addFolder("", LoomerTitleBookmarksBar);
  for (const char* name : {"F", "G"}) {
    const std::string folder = file->addFolder(bar, name);
    file->addBookmark(folder, std::string("in ") + name, "http://x/");
  }
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  file->move(file->find("F"), file->find("G"));
  ASSERT_EQ(file->sync(), "");
  firefox.beforeNextChange = [&] { firefox.browser.move(find(firefox, "G"), find(firefox, "F"), 0); };
  firefox.sync();
  ASSERT_EQ(file->sync(), "");
  firefox.sync();
  EXPECT_EQ(firefox.text(), "bar: F(G(\"in G\"@http://x/) \"in F\"@http://x/)");
  EXPECT_EQ(file->text(), "BookmarksBar!(F(G(\"in G\"@http://x/) \"in F\"@http://x/))");
}

// Another client may move even what stands for a root, which in the browser stays where it is.
TEST_F(BrowserHostTest, RootIntoWhichTheUserPutsItsFolderIsARootAgain) {
  addFolder(firefox, RootKind::bar, "F");
  addBookmark(firefox, RootKind::other, "ant", "http://ant/");
  firefox.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  file->move(file->find("Other Bookmarks"), file->find("F"));
  ASSERT_EQ(file->sync(), "");
  firefox.sync();
  firefox.browser.move(find(firefox, "F"), firefox.browser.root(RootKind::other));
  firefox.sync();
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(firefox.text(), "other: ant@http://ant/ F()");
  EXPECT_EQ(file->text(), "BookmarksBar!() \"Other Bookmarks\"(ant@http://ant/ F())");
}

TEST_F(BrowserHostTest, FolderThatIsToGoLivesWithWhatTheUserPutsIntoIt) {
  const std::string folder = addFolder(firefox, RootKind::bar, "F");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  chromium.start();
  chromium.browser.remove(find(chromium, "F"));
  chromium.sync();
  firefox.beforeNextChange = [&] { firefox.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/"); };
  firefox.sync();
  chromium.sync();
  EXPECT_EQ(firefox.text(), "bar: F(ant@http://ant/) bee@http://bee/");
  EXPECT_EQ(chromium.text(), firefox.text());
}

TEST_F(BrowserHostTest, WhatIsStoppedIsTakenUpAgain) {
  const auto file = home.makeClient("file");
  for (int i = 0; i < 20; ++i)
    file->addBookmark("", "b" + std::to_string(i), "http://b/" + std::to_string(i));
  ASSERT_EQ(file->sync(), "");
  firefox.beforeNextChange = [&] { firefox.browser.say("stop"); };
  firefox.start();
  const std::size_t made = firefox.browser.entries().size();
  EXPECT_LT(made, 20U);
  firefox.sync();
  EXPECT_EQ(firefox.browser.entries().size(), 20U);
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->nodes.size(), 20U);
}

TEST_F(BrowserHostTest, FirstSessionThatIsKilledAtAnyMessageIsTakenUpWithoutDoubles) {
  constexpr int kBookmarks = 10;
  const auto file = home.makeClient("file");
  for (int i = 0; i < kBookmarks; ++i)
    file->addBookmark("", "b" + std::to_string(i), "HTTP://B/" + std::to_string(i));
  ASSERT_EQ(file->sync(), "");
  int profile = 10;
  // More messages than such a session has.
  for (int message = 1; message <= kBookmarks + 10; ++message) {
    for (const Kind kind : {Kind::chromium, Kind::firefox}) {
      for (const bool killsHost : {true, false}) {
        HostedBrowser hosted{kind};
        hosted.browser.token = "33333333-3333-4333-8333-3333333333" + std::to_string(profile++);
        killsHost ? hosted.killHostAt(message) : hosted.killBrowserAt(message);
        hosted.start();
        hosted.sync();
        EXPECT_EQ(hosted.browser.entries().size(), static_cast<std::size_t>(kBookmarks))
            << message << hosted.text();
      }
    }
  }
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->nodes.size(), static_cast<std::size_t>(kBookmarks));
}

TEST_F(BrowserHostTest, FirstSessionThatIsKilledAtAnyNodeIsTakenUpWithoutDoubles) {
  constexpr int kBookmarks = 10;
  const auto file = home.makeClient("file");
  const std::string folder = file->addFolder("", "F");
  for (int i = 0; i < kBookmarks; ++i)
    file->addBookmark(folder, "b" + std::to_string(i), i == 4 ? "refused" : "HTTP://B/" + std::to_string(i));
  ASSERT_EQ(file->sync(), "");
  int profile = 10;
  for (std::size_t node = 1; node <= kBookmarks + 1; ++node) {
    for (const Kind kind : {Kind::chromium, Kind::firefox}) {
      HostedBrowser hosted{kind};
      hosted.browser.token = "44444444-4444-4444-8444-4444444444" + std::to_string(profile++);
      hosted.browser.killAtNode(node);
      hosted.start();
      hosted.sync();
      EXPECT_EQ(hosted.kills(), 1U);
      // A folder, and all but the one that it refuses.
      EXPECT_EQ(hosted.browser.entries().size(), static_cast<std::size_t>(kBookmarks))
          << node << hosted.text();
    }
  }
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->nodes.size(), static_cast<std::size_t>(kBookmarks) + 1);
}

TEST_F(BrowserHostTest, ManyAreMadeByFewRequestsInTheirOrder) {
  const auto file = home.makeClient("file");
  for (int i = 0; i < 100; ++i)
    file->addBookmark("", "b" + std::to_string(i), i % 7 == 3 ? "refused" : "http://b/" + std::to_string(i));
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  EXPECT_LT(firefox.browser.requests(), 20U);
  std::vector<std::string> found;
  for (const std::string& each : firefox.browser.childrenOf(firefox.browser.root(RootKind::other)))
    found.push_back(firefox.browser.nodes().at(each).title);
  std::vector<std::string> wanted;
  for (int i = 0; i < 100; ++i) {
    if (i % 7 != 3) wanted.push_back("b" + std::to_string(i));
  }
  EXPECT_EQ(found, wanted);
}

TEST_F(BrowserHostTest, FirstSessionShowsItsProgressAndGoesOnWhereItWasStopped) {
  const std::size_t count = sized(2000, 200);
  const std::string bar = chromium.browser.root(RootKind::bar);
  for (std::size_t i = 0; i < count; ++i)
    chromium.browser.add(bar, NodeKind::bookmark, "b", "http://b/" + std::to_string(i));
  chromium.start();
  std::vector<std::int64_t> done;
  bool stopped = false;
  firefox.onMessage = [&](std::string_view message) {
    platform.clock.time.seconds += 0.2;
    if (message.find("\"progress\"") == message.npos) return;
    const auto state = browsers::parseMessage(std::string(message));
    const auto* const progress = browsers::memberNamed(state, "progress");
    done.push_back(browsers::numberIn(*progress, "done"));
    const auto rest = static_cast<std::int64_t>(count - (stopped ? firefox.browser.entries().size() : 0));
    EXPECT_GE(browsers::numberIn(*progress, "of"), rest);
    const bool isHalfWay = done.back() >= static_cast<std::int64_t>(count / 2);
    if (isHalfWay && !std::exchange(stopped, true)) firefox.browser.say("stop");
  };
  firefox.start();
  ASSERT_TRUE(stopped);
  EXPECT_GT(done.size(), count / 50);
  EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
  EXPECT_GE(firefox.browser.entries().size(), count / 2);
  EXPECT_LT(firefox.browser.entries().size(), count / 2 + 100);
  // What its own session wrote is no reason to go on at once with what the user has stopped.
  EXPECT_FALSE(firefox.notice());
  firefox.sync();
  EXPECT_EQ(firefox.browser.entries().size(), count);
  const std::size_t requests = firefox.browser.requests();
  firefox.sync();
  EXPECT_EQ(firefox.browser.requests(), requests + 1);
  chromium.sync();
  EXPECT_EQ(chromium.browser.entries().size(), count);
}

TEST_F(BrowserHostTest, StateTellsWhatTheLastSessionDidConflictsIncluded) {
  addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/");
  chromium.start();
  firefox.start();
  firefox.browser.rename(find(firefox, "ant"), "ape");
  firefox.browser.rename(find(firefox, "bee"), "bat");
  chromium.browser.rename(find(chromium, "ant"), "auk");
  firefox.sync();
  chromium.sync();
  const auto state = browsers::parseMessage(chromium.browser.last("state"));
  const auto* const last = browsers::memberNamed(state, "last");
  ASSERT_TRUE(last);
  EXPECT_EQ(browsers::numberIn(*last, "pushed"), 1);
  EXPECT_EQ(browsers::numberIn(*last, "pulled"), 1);
  EXPECT_EQ(browsers::numberIn(*last, "conflicts"), 1);
}

TEST_F(BrowserHostTest, PausedProfileIsLeftAloneUntilItIsResumed) {
  const auto file = home.makeClient("file");
  file->addBookmark("", "ant", "http://ant/");
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  firefox.browser.pause(true);
  firefox.settle();
  const auto isInState = [&](const std::string& state) {
    return firefox.browser.last("state").find("\"" + state + "\"") != std::string::npos;
  };
  EXPECT_TRUE(isInState("paused"));
  const std::size_t requests = firefox.browser.requests();
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.settle();
  file->addBookmark("", "cat", "http://cat/");
  ASSERT_EQ(file->sync(), "");
  EXPECT_FALSE(firefox.notice());
  EXPECT_EQ(firefox.browser.requests(), requests);
  EXPECT_TRUE(isInState("paused"));
  const std::int64_t sessions = clientOf(firefox).sessions;
  firefox.browser.pause(false);
  firefox.settle();
  EXPECT_EQ(clientOf(firefox).sessions, sessions + 1);
  EXPECT_TRUE(isInState("idle"));
  EXPECT_EQ(firefox.text(), "bar: bee@http://bee/ other: ant@http://ant/ cat@http://cat/");
}

TEST_F(BrowserHostTest, ProfileThatWasPausedBeforeStaysSoWhenTheBrowserStarts) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  firefox.browser.pause(true);
  firefox.quit();
  const std::int64_t sessions = clientOf(firefox).sessions;
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  EXPECT_EQ(clientOf(firefox).sessions, sessions);
  firefox.browser.pause(false);
  firefox.settle();
  EXPECT_EQ(clientOf(firefox).sessions, sessions + 1);
  EXPECT_EQ(truth(), "BookmarksBar!(ant@http://ant/ bee@http://bee/)");
}

// The extension says that it is paused just behind its hello; the host may have begun by then.
TEST_F(BrowserHostTest, PauseThatComesWhileTheTreeIsReadKeepsTheSessionFromRunning) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  const std::int64_t sessions = clientOf(firefox).sessions;
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.onMessage = [&](std::string_view message) {
    if (message.find("\"read\"") != message.npos) firefox.browser.pause(true);
  };
  firefox.settle();
  EXPECT_EQ(clientOf(firefox).sessions, sessions);
  firefox.onMessage = nullptr;
  firefox.browser.pause(false);
  firefox.settle();
  EXPECT_EQ(truth(), "BookmarksBar!(ant@http://ant/ bee@http://bee/)");
}

TEST_F(BrowserHostTest, BrowsersThatAreBothRefusedDoNotWakeOneAnother) {
  for (int i = 0; i < 30; ++i)
    addBookmark(chromium, RootKind::bar, "b" + std::to_string(i), "http://b/" + std::to_string(i));
  chromium.start();
  firefox.start();
  for (HostedBrowser* const each : {&chromium, &firefox}) {
    for (const std::string& id : each->browser.entries()) each->browser.remove(id);
    each->settle();
    EXPECT_NE(each->browser.last("state").find("loomerctl approve"), std::string::npos);
  }
  platform.log.messages.clear();  // a refusal is a line there
  // The second refusal may be news for the first one, and then there is nothing more to be said.
  chromium.notice();
  for (int round = 0; round < 3; ++round) {
    EXPECT_FALSE(firefox.notice());
    EXPECT_FALSE(chromium.notice());
  }
  platform.log.messages.clear();
  // What somebody decides is news.
  ASSERT_TRUE(loomer::RefusalTable(home.store()).approve(clientOf(firefox).id, platform.clock.now()));
  EXPECT_TRUE(firefox.notice());
  EXPECT_EQ(truth(), "BookmarksBar!()");
  EXPECT_TRUE(chromium.notice());
  EXPECT_NE(chromium.browser.last("state").find("\"idle\""), std::string::npos);
  platform.log.messages.clear();
}

TEST_F(BrowserHostTest, SessionThatCannotSaveIsNotTriedAgainForWhatItWroteItself) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  platform.files.intercept = [](const ForwardingFileSystem::Call& call) {
    return call.operation == FileOperation::writeAtomically
               ? std::make_error_code(std::errc::no_space_on_device)
               : std::error_code();
  };
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.settle();
  EXPECT_NE(firefox.browser.last("state").find("\"problem\""), std::string::npos);
  EXPECT_FALSE(firefox.notice());
  platform.files.intercept = nullptr;
  firefox.browser.say("syncNow");
  firefox.settle();
  EXPECT_EQ(truth(), "BookmarksBar!(ant@http://ant/ bee@http://bee/)");
}

TEST_F(BrowserHostTest, RootThatAppearsLateAndTheFolderThatStoodForItAreOne) {
  // More messages than such a session has.
  for (int message = 0; message <= 12; ++message) {
    for (const bool killsHost : {true, false}) {
      HostedBrowser phone{Kind::firefox};
      HostedBrowser late{Kind::chromium};
      const OtherComputer computer(*this, std::to_string(message) + (killsHost ? "host" : "browser"));
      phone.browser.token = "33333333-3333-4333-8333-333333333333";
      const std::string folder =
          phone.browser.add(phone.browser.root(RootKind::mobile), NodeKind::folder, "F");
      phone.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/");
      addBookmark(phone, RootKind::mobile, "cat", "http://cat/");
      phone.start();
      late.start();
      EXPECT_EQ(late.text(), "other: \"Mobile Bookmarks\"(F(ant@http://ant/) cat@http://cat/)");
      late.browser.pass(60'000);
      platform.clock.time.seconds += 60;
      late.browser.add(late.browser.makeMobileRoot(), NodeKind::bookmark, "bee", "http://bee/");
      late.browser.pass(60'000);
      platform.clock.time.seconds += 60;
      killsHost ? late.killHostAt(message) : late.killBrowserAt(message);
      late.sync();
      late.sync();
      phone.sync();
      const std::string all = "mobile: F(ant@http://ant/) cat@http://cat/ bee@http://bee/";
      EXPECT_EQ(late.text(), all) << message << killsHost;
      EXPECT_EQ(phone.text(), all) << message << killsHost;
    }
  }
}

TEST_F(BrowserHostTest, CopyOnAnotherComputerIsAFirstSessionThere) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  firefox.quit();
  HostedBrowser copy{Kind::firefox};
  copy.browser = firefox.browser;
  {
    const OtherComputer other(*this);
    const auto file = other.engine->makeClient("file");
    const std::string bar = file->addFolder("", LoomerTitleBookmarksBar);
    file->addBookmark(bar, "ant", "http://ant/");
    file->addBookmark(bar, "cat", "http://cat/");
    ASSERT_EQ(file->sync(), "");
    copy.start();
    ASSERT_EQ(file->sync(), "");
    EXPECT_EQ(copy.text(), "bar: ant@http://ant/ cat@http://cat/ bee@http://bee/");
    EXPECT_EQ(file->text(), "BookmarksBar!(ant@http://ant/ cat@http://cat/ bee@http://bee/)");
  }
  firefox.start();
  EXPECT_EQ(firefox.text(), "bar: ant@http://ant/ bee@http://bee/");
}

TEST_F(BrowserHostTest, ProfileOfAnotherComputerInPlaceOfAnOlderCopyDeletesNothing) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  firefox.quit();
  HostedBrowser copy{Kind::firefox};
  copy.browser = firefox.browser;
  {
    const OtherComputer other(*this);
    copy.browser.pass(1000);
    copy.start();
    addBookmark(copy, RootKind::bar, "cat", "http://cat/");
    copy.sync();
    copy.quit();
  }
  firefox.start();
  for (const char* const name : {"dog", "eel", "fox"}) {
    addBookmark(firefox, RootKind::bar, name, std::string("http://") + name + "/");
    firefox.sync();
  }
  firefox.quit();
  const OtherComputer other(*this);
  copy.browser.restore(firefox.browser);
  copy.start();
  EXPECT_EQ(copy.browser.entries().size(), 5U) << copy.text();
  const auto file = other.engine->makeClient("file");
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->visibleNodes().size(), 6U) << file->text();
}

TEST_F(BrowserHostTest, CopiesThatTakeTurnsAreOneClient) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  firefox.quit();
  ScriptedBrowser resting = firefox.browser;
  const auto takeTurns = [&] {
    firefox.quit();
    const ScriptedBrowser running = firefox.browser;
    firefox.browser.restore(resting);
    resting = running;
  };
  firefox.start();
  firefox.browser.rename(find(firefox, "ant"), "ape");
  firefox.browser.remove(find(firefox, "bee"));
  addBookmark(firefox, RootKind::bar, "cat", "http://cat/");
  firefox.sync();
  takeTurns();
  addBookmark(firefox, RootKind::bar, "dog", "http://dog/");
  firefox.start();
  EXPECT_EQ(firefox.text(), "bar: ape@http://ant/ dog@http://dog/ cat@http://cat/");
  firefox.browser.remove(find(firefox, "cat"));
  firefox.sync();
  takeTurns();
  firefox.start();
  EXPECT_EQ(firefox.text(), "bar: ape@http://ant/ dog@http://dog/");
  EXPECT_EQ(truth(), "BookmarksBar!(ape@http://ant/ dog@http://dog/)");
}

TEST_F(BrowserHostTest, RestoredProfileDoesNotBringBackWhatWasChangedAndThenDeleted) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.start();
  firefox.quit();
  const ScriptedBrowser backup = firefox.browser;
  firefox.start();
  firefox.browser.rename(find(firefox, "ant"), "ape");
  firefox.sync();
  firefox.browser.remove(find(firefox, "ape"));
  firefox.sync();
  firefox.quit();
  firefox.browser.restore(backup);
  firefox.start();
  EXPECT_EQ(firefox.text(), "bar: bee@http://bee/");
  EXPECT_EQ(truth(), "BookmarksBar!(bee@http://bee/)");
}

TEST_F(BrowserHostTest, ProfileWhoseSnapshotIsLostIsMatchedAnew) {
  const std::string folder = addFolder(firefox, RootKind::bar, "F");
  firefox.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/");
  addBookmark(firefox, RootKind::menu, "bee", "http://bee/");
  firefox.start();
  firefox.quit();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  const std::string before = file->text();
  const std::string snapshot =
      home.storePath.substr(0, home.storePath.rfind('/')) + "/Browsers/" + firefox.browser.token + ".plist";
  ASSERT_FALSE(platform.realFiles.remove(snapshot));
  firefox.browser.remove(find(firefox, "ant"));
  firefox.start();
  // Nobody can tell any more who deleted it.
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), before);
  EXPECT_EQ(firefox.text(), "bar: F(ant@http://ant/) menu: bee@http://bee/");
}

TEST_F(BrowserHostTest, SnapshotThatIsOlderThanItsProfileUndoesNothing) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  firefox.quit();
  const std::string snapshot =
      home.storePath.substr(0, home.storePath.rfind('/')) + "/Browsers/" + firefox.browser.token + ".plist";
  std::string backup;
  ASSERT_FALSE(platform.realFiles.read(snapshot, backup));
  firefox.start();
  firefox.browser.rename(find(firefox, "ant"), "ape");
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.sync();
  firefox.quit();
  ASSERT_FALSE(platform.realFiles.write(snapshot, backup));
  firefox.start();
  EXPECT_EQ(firefox.text(), "bar: ape@http://ant/ bee@http://bee/");
  EXPECT_EQ(truth(), "BookmarksBar!(ape@http://ant/ bee@http://bee/)");
}

// A browser's client that counts the records that the engine has it make.
class CountingClient : public browsers::BrowserClient {
 public:
  using BrowserClient::BrowserClient;

  Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) override {
    Dictionary given = BrowserClient::recordsForEntityName(entityName, moreComing, error);
    records += given.size();
    return given;
  }
  Dictionary recordsAt(const String& entityName, const std::vector<std::size_t>& places) override {
    Dictionary given = BrowserClient::recordsAt(entityName, places);
    records += given.size();
    return given;
  }

  std::size_t records = 0;
};

TEST_F(BrowserHostTest, OneEditAmongManyIsTakenAlone) {
  constexpr int kMany = 10'000;
  browsers::HeldTree held;
  for (int i = 0; i < kMany; ++i) {
    const std::string id = "n" + std::to_string(i);
    browsers::HeldNode node;
    node.localId = id;
    node.title.edit(id);
    node.url.edit("http://" + id + "/");
    held.add(std::move(node));
  }
  held.number();
  browsers::BrowserClient::State state{held, {}, 0, true};
  // How many records a session takes, and what it does to the truth.
  const auto session = [&](bool isEdited) {
    state.isEdited = isEdited;
    CountingClient client("com.keldra.browser.x", home.descriptionPath, state, {1, 0.0},
                          [&](const browsers::HeldTree&) { return state.generation + 1; });
    const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(client);
    EXPECT_TRUE(driver->sync()) << driver->lastError().inEnglish();
    return std::pair(client.records, driver->lastResult().pushed);
  };
  EXPECT_EQ(session(true), std::pair(std::size_t{kMany}, std::size_t{kMany}));
  EXPECT_EQ(session(false), std::pair(std::size_t{0}, std::size_t{0}));
  held.find("n77")->title.edit("another");
  EXPECT_EQ(session(true), std::pair(std::size_t{1}, std::size_t{1}));
  held.find("n78")->url.edit("http://another/");
  held.find("n9000")->title.edit("another");
  EXPECT_EQ(session(true), std::pair(std::size_t{2}, std::size_t{2}));
}

TEST_F(BrowserHostTest, MenuThatIsMadeAndNotAnsweredForIsNotMadeAgain) {
  addBookmark(firefox, RootKind::menu, "ant", "http://ant/");
  firefox.start();
  // More messages than such a session has.
  for (int message = 1; message <= 8; ++message) {
    HostedBrowser hosted{Kind::chromium};
    hosted.browser.token = "33333333-3333-4333-8333-33333333333" + std::to_string(message);
    hosted.killHostAt(message);
    hosted.start();
    hosted.sync();
    EXPECT_EQ(hosted.text(), "other: \"Bookmarks Menu\"(ant@http://ant/)") << message;
  }
}

TEST_F(BrowserHostTest, RestoredProfileIsGivenWhatHadArrivedWithoutAnAnswer) {
  firefox.start();
  firefox.quit();
  const ScriptedBrowser backup = firefox.browser;
  chromium.start();
  // More messages than such a session has.
  for (int message = 1; message <= 8; ++message) {
    const std::string title = "b" + std::to_string(message);
    addBookmark(chromium, RootKind::bar, title, "http://" + title + "/");
    chromium.sync();
    firefox.killHostAt(message);
    firefox.start();
    firefox.quit();
    firefox.browser.restore(backup);
    firefox.start();
    EXPECT_EQ(firefox.text(), chromium.text()) << message;
    firefox.quit();
  }
}

TEST_F(BrowserHostTest, AnotherProtocolIsRefusedWithWhatToDo) {
  browsers::BrowserHost host(firefox);
  firefox.browser.start();
  host.take(browsers::Hello{.protocol = 2, .token = firefox.browser.token});
  EXPECT_FALSE(host.wantsSession());
  EXPECT_NE(firefox.browser.last("state").find("Update Corvane Sync."), std::string::npos);
}

TEST_F(BrowserHostTest, MessageThatCannotComeEndsTheConnection) {
  const auto takes = [&](const std::string& message) {
    browsers::BrowserHost host(firefox);
    host.take(browsers::readExtensionMessage(message));
  };
  for (const char* const message :
       {"", "[]", "{", "{\"type\":1}", "{\"type\":\"changed\"}", "{\"type\":\"answer\",\"id\":1}",
        "{\"type\":\"hello\",\"protocol\":1,\"token\":\"../../etc\"}",
        "{\"type\":\"answer\",\"nodes\":[{\"id\":\"1\",\"kind\":\"planet\"}]}"}) {
    EXPECT_THROW(takes(message), browsers::MessageProblem) << message;
  }
  EXPECT_NO_THROW(takes("{\"type\":\"unheard of\"}"));
}

TEST_F(BrowserHostTest, MessageOfAnyDepthIsReadOrRefused) {
  const std::string deep(120'000, '[');
  EXPECT_THROW(browsers::readExtensionMessage(deep), browsers::MessageProblem);
  const std::string closed = "{\"type\":\"changed\",\"x\":" + deep + std::string(deep.size(), ']') + "}";
  EXPECT_NO_THROW(browsers::readExtensionMessage(closed));
}

TEST_F(BrowserHostTest, TreeOfAnyDepthIsTakenIn) {
  const int depth = sized(20'000, 3000);
  browsers::BrowserTree tree;
  tree.add({.id = "0", .root = RootKind::bar});
  for (int i = 1; i <= depth; ++i) tree.add({.id = std::to_string(i), .parent = std::to_string(i - 1)});
  browsers::HeldTree held;
  browsers::takeIn(held, tree, {}, {1, 0.0});
  EXPECT_EQ(held.nodes().size(), static_cast<std::size_t>(depth + 1));
  EXPECT_EQ(browsers::takeIn(held, tree, {}, {2, 0.0}).edits, 0U);
}

TEST_F(BrowserHostTest, TreeBeyondTheLimitIsRefused) {
  browsers::BrowserTree tree(2);
  tree.add({.id = "1", .root = RootKind::bar});
  tree.add({.id = "2", .parent = "1"});
  EXPECT_THROW(tree.add({.id = "3", .parent = "1"}), browsers::MessageProblem);
}

// An extension that answers as it is told here.
class ToldExtension : public browsers::MessageChannel {
 public:
  explicit ToldExtension(std::deque<std::string> told) : answers(std::move(told)) {}
  void send(std::string_view) override {}
  std::optional<std::string> receive() override {
    if (answers.empty()) return std::nullopt;
    std::string answer = std::move(answers.front());
    answers.pop_front();
    return answer;
  }

  std::deque<std::string> answers;
};

TEST_F(BrowserHostTest, NodeThatWasThereBeforeWasNotMade) {
  for (const char* const id : {"1", "2"}) {
    browsers::BrowserTree tree;
    tree.add({.id = "1", .root = RootKind::bar});
    tree.add({.id = "2", .parent = "1"});
    browsers::HeldTree held;
    browsers::takeIn(held, tree, {}, {1, 0.0});
    browsers::HeldNode node;
    node.localId = "new";
    node.parent = held.root(RootKind::bar)->localId;
    node.kind = NodeKind::folder;
    node.title.set("new");
    held.add(std::move(node));
    ToldExtension extension({std::string("{\"type\":\"answer\",\"id\":1,\"node\":{\"id\":\"") + id +
                             "\",\"parent\":\"2\",\"kind\":\"folder\",\"index\":0}}"});
    browsers::ExtensionRequests requests(extension, [](const browsers::ExtensionMessage&) {});
    EXPECT_THROW(
        browsers::present(held, tree, requests, {1, 0.0}, [](std::size_t, std::size_t) { return true; }),
        browsers::MessageProblem);
  }
}

TEST_F(BrowserHostTest, DeletionsThatAreUnderWayAreNotForgottenHoweverMany) {
  browsers::BrowserTree tree;
  tree.add({.id = "root", .root = RootKind::bar});
  browsers::HeldTree held;
  for (int i = 0; i < 6000; ++i) {
    const std::string id = std::to_string(i);
    tree.add(
        {.id = id, .parent = "root", .kind = NodeKind::bookmark, .url = "http://" + id + "/", .added = i});
    held.removed.push_back({.kind = NodeKind::bookmark,
                            .browserId = id,
                            .title = "",
                            .url = "http://" + id + "/",
                            .added = {i, {}},
                            .changed = {1, 0.0},
                            .isWaiting = true});
  }
  EXPECT_EQ(browsers::takeIn(held, tree, {}, {2, 0.0}).edits, 0U);
  EXPECT_EQ(held.removed.size(), 6000U);
  EXPECT_TRUE(held.nodes().empty());
  EXPECT_EQ(browsers::takeIn(held, tree, {}, {3, 0.0}).edits, 0U);
}

TEST_F(BrowserHostTest, TreeMustBeAForest) {
  const browsers::BrowserNode root{.id = "1", .root = RootKind::bar};
  const auto takes = [&](browsers::BrowserNode node) {
    browsers::BrowserTree tree;
    tree.add(root);
    tree.add({.id = "2", .parent = "1", .kind = NodeKind::bookmark});
    tree.add(std::move(node));
  };
  EXPECT_THROW(takes({.id = "3", .parent = "3"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "3", .parent = "2"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "2", .parent = "1"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "3"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "", .parent = "1"}), browsers::MessageProblem);
  EXPECT_NO_THROW(takes({.id = "3", .parent = "1"}));
}

TEST_F(BrowserHostTest, FolderWithoutATitleHasOneElsewhere) {
  const std::string folder = addFolder(firefox, RootKind::bar, "");
  firefox.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), "BookmarksBar!(\"Untitled Folder\"())");
  firefox.sync();
  EXPECT_EQ(firefox.browser.nodes().at(folder).title, "");
}

TEST_F(BrowserHostTest, WhatNoBrowserShowsIsKept) {
  const auto file = home.makeClient("file");
  const std::string folder = file->addFolder("", "F");
  file->toggle(folder);
  ASSERT_EQ(file->sync(), "");
  const std::string before = file->text();
  firefox.start();
  firefox.quit();
  firefox.start();
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.browser.rename(find(firefox, "F"), "G");
  firefox.sync();
  ASSERT_EQ(file->sync(), "");
  EXPECT_TRUE(file->nodes.at(file->find("G")).tabGroup) << before;
}

TEST_F(BrowserHostTest, WhatNoMessageCanHoldStaysWithTheOthers) {
  const auto file = home.makeClient("file");
  file->addBookmark("", std::string(browsers::kLargestMessage, 'x'), "http://ant/");
  file->addBookmark("", "bee", "http://bee/");
  ASSERT_EQ(file->sync(), "");
  const std::string before = file->text();
  firefox.onMessage = [](std::string_view message) { EXPECT_LE(message.size(), browsers::kLargestMessage); };
  firefox.start();
  EXPECT_EQ(firefox.text(), "other: bee@http://bee/");
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), before);
}

TEST_F(BrowserHostTest, OrderThatChromiumLosesIsDoneAgain) {
  for (const char* const name : {"ant", "bee", "cat"})
    addBookmark(chromium, RootKind::bar, name, std::string("http://") + name + "/");
  chromium.start();
  chromium.browser.pass(60'000);
  platform.clock.time.seconds += 60;
  chromium.browser.move(find(chromium, "cat"), chromium.browser.root(RootKind::bar), 0);
  chromium.sync();
  const std::string before = chromium.text();
  chromium.kill();
  EXPECT_NE(chromium.text(), before);
  chromium.start();
  EXPECT_EQ(chromium.text(), before);
  EXPECT_EQ(truth(), "BookmarksBar!(cat@http://cat/ ant@http://ant/ bee@http://bee/)");
}

TEST_F(BrowserHostTest, WhatTheUserDeletesOnceTheBrowserHasStartedStaysDeleted) {
  const std::string ant = addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/");
  chromium.start();
  chromium.quit();
  chromium.start();
  // Another host looks for the first time.
  chromium.browser.remove(ant);
  chromium.restartHost();
  EXPECT_EQ(chromium.text(), "bar: bee@http://bee/");
}

TEST_F(BrowserHostTest, WhatTheUserDeletesLongAfterTheLastChangeStaysDeleted) {
  const std::string ant = addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/");
  chromium.start();
  chromium.browser.pass(60'000);
  platform.clock.time.seconds += 60;
  chromium.quit();
  // Nobody listens.
  chromium.browser.remove(ant);
  chromium.start();
  EXPECT_EQ(chromium.text(), "bar: bee@http://bee/");
}

TEST_F(BrowserHostTest, EditThatNoSessionCouldTakeIsTakenByTheNextHost) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  platform.files.intercept = [](const ForwardingFileSystem::Call& call) {
    const bool isSaving = call.operation == FileOperation::writeAtomically;
    return isSaving ? std::make_error_code(std::errc::no_space_on_device) : std::error_code();
  };
  addBookmark(firefox, RootKind::bar, "bee", "http://bee/");
  firefox.settle();
  platform.files.intercept = nullptr;
  firefox.quit();
  firefox.start();
  EXPECT_EQ(truth(), "BookmarksBar!(ant@http://ant/ bee@http://bee/)");
}

TEST_F(BrowserHostTest, OwnFormerHostIsWaitedFor) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  const std::string token = firefox.browser.token;
  int busy = 2;
  platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    const bool isHeld = call.operation == FileOperation::hold && busy-- > 0;
    return isHeld ? std::make_error_code(std::errc::device_or_resource_busy) : std::error_code();
  };
  firefox.restartHost();
  platform.files.intercept = nullptr;
  EXPECT_EQ(firefox.browser.token, token);
}

TEST_F(BrowserHostTest, FolderThatAnAccountKeepsInStepCountsAndTheUserIsTold) {
  browsers::BrowserTree tree;
  tree.add({.id = "1", .root = RootKind::bar});
  tree.add({.id = "2", .root = RootKind::bar, .syncing = true});
  tree.add({.id = "3", .parent = "1"});
  tree.add({.id = "4", .parent = "2"});
  EXPECT_EQ(tree.root(RootKind::bar)->id, "2");
  EXPECT_EQ(tree.nodes().size(), 2U);
  EXPECT_TRUE(tree.isSyncedByBrowser());
  chromium.start();
  EXPECT_EQ(chromium.browser.last("state").find("\"notice\""), std::string::npos);
  chromium.browser.isSyncedByAccount = true;
  chromium.sync();
  EXPECT_NE(chromium.browser.last("state").find("\"notice\""), std::string::npos);
}

TEST_F(BrowserHostTest, TextsOfAMessageAreUtf8WithoutZeros) {
  const auto tokenIn = [](const std::string& token) {
    const auto message = browsers::readExtensionMessage("{\"type\":\"hello\",\"token\":\"" + token + "\"}");
    return std::get<browsers::Hello>(message).token;
  };
  EXPECT_EQ(tokenIn("a\\ud800b"),
            "a\xef\xbf\xbd"
            "b");
  EXPECT_EQ(tokenIn("\\ud83d\\ude00"), "\xf0\x9f\x98\x80");
  EXPECT_THROW(tokenIn(std::string("a\0b", 3)), browsers::MessageProblem);
  EXPECT_THROW(tokenIn("\xff"), browsers::MessageProblem);
  EXPECT_THROW(browsers::readExtensionMessage(
                   R"({"type":"answer","node":{"id":"1","parent":"2","kind":"folder","index":-1}})"),
               browsers::MessageProblem);
}

TEST_F(BrowserHostTest, ReadThatGoesOnWithNothingIsRefused) {
  ToldExtension extension({R"({"type":"answer","id":1,"nodes":[],"more":true})"});
  browsers::ExtensionRequests requests(extension, [](const browsers::ExtensionMessage&) {});
  EXPECT_THROW(requests.read(), browsers::MessageProblem);
}

TEST_F(BrowserHostTest, BytesAreCutIntoMessagesHoweverTheyCome) {
  const std::string bytes = browsers::framed("{}") + browsers::framed("{\"a\":1}");
  browsers::MessageCutter cutter;
  std::vector<std::string> messages;
  for (const char byte : bytes) {
    cutter.add({&byte, 1});
    while (auto message = cutter.next()) messages.push_back(*std::move(message));
  }
  EXPECT_EQ(messages, (std::vector<std::string>{"{}", "{\"a\":1}"}));
  cutter.add(browsers::framed(std::string(browsers::kLargestMessage + 1, ' ')).substr(0, 4));
  EXPECT_THROW(cutter.next(), browsers::MessageProblem);
}

}  // namespace
}  // namespace corvane
