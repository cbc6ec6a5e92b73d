#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "browsers/host/Intake.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/Presenting.h"
#include "tests/browser-host/HostFixture.h"
#include "tests/kit/TestSize.h"

namespace corvane {
namespace {

using browsers::NodeKind;
using browsers::RootKind;
using Kind = ScriptedBrowser::Kind;

class PresentingTest : public HostTest {};

TEST_F(PresentingTest, ManyAreMadeByFewRequestsInTheirOrder) {
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

TEST_F(PresentingTest, WhatIsStoppedIsTakenUpAgain) {
  const auto file = home.makeClient("file");
  for (int i = 0; i < 100; ++i)
    file->addBookmark("", "b" + std::to_string(i), "http://b/" + std::to_string(i));
  ASSERT_EQ(file->sync(), "");
  firefox.beforeNextChange = [&] { firefox.browser.say("stop"); };
  firefox.start();
  const std::size_t made = firefox.browser.entries().size();
  EXPECT_LT(made, 100U);
  firefox.sync();
  EXPECT_EQ(firefox.browser.entries().size(), 100U);
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->nodes.size(), 100U);
}

TEST_F(PresentingTest, FirstSessionShowsItsProgressAndGoesOnWhereItWasStopped) {
  const std::size_t count = sized(2000, 200);
  const std::string bar = chromium.browser.root(RootKind::bar);
  for (std::size_t i = 0; i < count; ++i)
    chromium.browser.add(bar, NodeKind::bookmark, "b", "http://b/" + std::to_string(i));
  chromium.start();
  const auto made = [&, roots = firefox.browser.nodes().size()] {
    return firefox.browser.nodes().size() - roots;
  };
  std::vector<std::int64_t> done;
  bool stopped = false;
  firefox.onMessage = [&](std::string_view message) {
    platform.clock.time.seconds += 0.2;
    if (message.find("\"progress\"") == message.npos) return;
    const auto state = browsers::parseMessage(std::string(message));
    const auto* const progress = browsers::memberNamed(state, "progress");
    done.push_back(browsers::numberIn(*progress, "done"));
    const auto rest = static_cast<std::int64_t>(count - (stopped ? made() : 0));
    EXPECT_GE(browsers::numberIn(*progress, "of"), rest);
    const bool isHalfWay = done.back() >= static_cast<std::int64_t>(count / 2);
    if (isHalfWay && !std::exchange(stopped, true)) firefox.browser.say("stop");
  };
  firefox.start();
  ASSERT_TRUE(stopped);
  EXPECT_GT(done.size(), count / 50);
  EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
  EXPECT_GE(made(), count / 2);
  EXPECT_LT(made(), count / 2 + 100);
  // What its own session wrote is no reason to go on at once with what the user has stopped.
  EXPECT_FALSE(firefox.notice());
  firefox.sync();
  EXPECT_EQ(made(), count);
  const std::size_t requests = firefox.browser.requests();
  firefox.sync();
  EXPECT_EQ(firefox.browser.requests(), requests + 1);
  chromium.sync();
  EXPECT_EQ(chromium.browser.entries().size(), count);
}

TEST_F(PresentingTest, FirstSessionThatIsKilledAtAnyMessageIsTakenUpWithoutDoubles) {
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

TEST_F(PresentingTest, FirstSessionThatIsKilledAtAnyNodeIsTakenUpWithoutDoubles) {
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

TEST_F(PresentingTest, WhatTheUserMovesWhileItIsRenamedIsMoved) {
  const std::string folder = addFolder(firefox, RootKind::bar, "F");
  addFolder(firefox, RootKind::menu, "M");
  firefox.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  file->rename(file->find("F"), "G");
  ASSERT_EQ(file->sync(), "");
  firefox.beforeNextChange = [&] { firefox.browser.move(folder, firefox.browser.root(RootKind::menu)); };
  firefox.sync();
  EXPECT_EQ(firefox.text(), "menu: M() G()");
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), "BookmarksBar!() BookmarksMenu!(M() G())");
}

TEST_F(PresentingTest, FolderThatTheUserDeletesWhileSomethingComesIntoItLives) {
  const std::string folder = addFolder(firefox, RootKind::bar, "F");
  firefox.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  file->addBookmark(file->find("F"), "ant", "http://ant/");
  ASSERT_EQ(file->sync(), "");
  firefox.beforeNextChange = [&] { firefox.browser.remove(folder); };
  firefox.sync();
  EXPECT_EQ(firefox.text(), "bar: F(ant@http://ant/)");
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), "BookmarksBar!(F(ant@http://ant/))");
}

TEST_F(PresentingTest, NodeThatWasThereBeforeWasNotMade) {
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

}  // namespace
}  // namespace corvane
