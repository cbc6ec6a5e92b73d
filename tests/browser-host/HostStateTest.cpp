#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

using browsers::RootKind;

class HostStateTest : public HostTest {};

TEST_F(HostStateTest, StateTellsWhatTheLastSessionDidConflictsIncluded) {
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

TEST_F(HostStateTest, PausedProfileIsLeftAloneUntilItIsResumed) {
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

TEST_F(HostStateTest, ProfileThatWasPausedBeforeStaysSoWhenTheBrowserStarts) {
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
TEST_F(HostStateTest, PauseThatComesWhileTheTreeIsReadKeepsTheSessionFromRunning) {
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

TEST_F(HostStateTest, BrowsersThatAreBothRefusedDoNotWakeOneAnother) {
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

TEST_F(HostStateTest, SessionThatCannotSaveIsNotTriedAgainForWhatItWroteItself) {
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

TEST_F(HostStateTest, AnotherProtocolIsRefusedWithWhatToDo) {
  browsers::BrowserHost host(firefox);
  firefox.browser.start();
  host.take(browsers::Hello{.protocol = 2, .token = firefox.browser.token});
  EXPECT_FALSE(host.wantsSession());
  EXPECT_NE(firefox.browser.last("state").find("Update Corvane Sync."), std::string::npos);
}

}  // namespace
}  // namespace corvane
