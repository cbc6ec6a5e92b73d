#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "browsers/host/Intake.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/NativeMessages.h"
#include "tests/browser-host/HostFixture.h"

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
                            .added = i,
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
