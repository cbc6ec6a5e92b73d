#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <system_error>

#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

using browsers::RootKind;

class KilledBrowserTest : public HostTest {};

TEST_F(KilledBrowserTest, WhatChromiumLosesWhenItIsKilledIsDoneAgain) {
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

TEST_F(KilledBrowserTest, OrderThatChromiumLosesIsDoneAgain) {
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

TEST_F(KilledBrowserTest, WhatIsRemovedLongAfterItsDeletionAndComesBackIsRemovedAgain) {
  addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "bee", "http://bee/");
  chromium.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  file->remove(file->find("ant"));
  ASSERT_EQ(file->sync(), "");
  int reads = 0;
  chromium.onMessage = [&](std::string_view message) {
    if (message.find("\"read\"") == message.npos || ++reads != 2) return;
    chromium.browser.pass(60'000);
    platform.clock.time.seconds += 60;
  };
  chromium.beforeNextChange = [] { throw HostedBrowser::HostKilled{}; };
  chromium.sync();
  ASSERT_EQ(chromium.text(), "bar: bee@http://bee/");
  chromium.kill();
  ASSERT_EQ(chromium.text(), "bar: ant@http://ant/ bee@http://bee/");
  chromium.start();
  EXPECT_EQ(chromium.text(), "bar: bee@http://bee/");
  EXPECT_EQ(truth(), "BookmarksBar!(bee@http://bee/)");
}

TEST_F(KilledBrowserTest, MoveIntoTheTruthsRootThatArrivedWithoutAnAnswerEndsThere) {
  addBookmark(firefox, RootKind::other, "ant", "http://ant/");
  // More messages than such a session has.
  for (int message = 1; message <= 8; ++message) {
    const std::string title = "b" + std::to_string(message);
    addBookmark(firefox, RootKind::bar, title, "http://" + title + "/");
    firefox.sync();
    const auto file = home.makeClient("file");
    ASSERT_EQ(file->sync(), "");
    file->move(file->find(title), "");
    ASSERT_EQ(file->sync(), "");
    const std::string before = file->text();
    firefox.killHostAt(message);
    firefox.sync();
    firefox.sync();
    ASSERT_EQ(file->sync(), "");
    EXPECT_EQ(file->text(), before) << message;
  }
}

TEST_F(KilledBrowserTest, WhatItLostIsNoDeletionThoughItIsKilledAgainBeforeItWasRead) {
  const auto file = home.makeClient("file");
  file->addBookmark("", "ant", "http://ant/");
  ASSERT_EQ(file->sync(), "");
  chromium.start();
  chromium.kill();
  platform.clock.time.seconds += 12;
  chromium.browser.pass(12'000);
  chromium.killBrowserAt(1);
  chromium.sync();
  ASSERT_EQ(chromium.kills(), 2U);
  chromium.sync();
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), "ant@http://ant/");
  EXPECT_EQ(chromium.text(), "other: ant@http://ant/");
}

TEST_F(KilledBrowserTest, TitleThatIsStillToComeWhenTheHostDiesComesWithTheNextOne) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  const std::string ant = file->find("ant");
  // More messages than such a session has.
  for (int message = 1; message <= 8; ++message) {
    const std::string title = "a" + std::to_string(message);
    file->rename(ant, title);
    ASSERT_EQ(file->sync(), "");
    firefox.killHostAt(message);
    firefox.sync();
    EXPECT_EQ(firefox.text(), "bar: " + title + "@http://ant/");
  }
}

TEST_F(KilledBrowserTest, FormOfATitleThatArrivedWithoutAnAnswerDoesNotTravelBack) {
  addBookmark(chromium, RootKind::bar, "ant", "http://ant/");
  chromium.start();
  const auto file = home.makeClient("file");
  ASSERT_EQ(file->sync(), "");
  const std::string ant = file->find("ant");
  // More messages than such a session has.
  for (int message = 1; message <= 8; ++message) {
    const std::string title = "two\nlines\n" + std::to_string(message);
    file->rename(ant, title);
    ASSERT_EQ(file->sync(), "");
    // The browser has shown it, and the host has not noted that yet.
    failOnceTheBrowserIsAsked("update");
    chromium.sync();
    platform.files.intercept = nullptr;
    chromium.restartHost();
    ASSERT_EQ(file->sync(), "");
    EXPECT_EQ(file->nodes.at(ant).name, title);
  }
}

TEST_F(KilledBrowserTest, OrderOfWhichAPartHadArrivedWithoutAnAnswerIsCompleted) {
  // More of them than turns, so that each order is another one than those before.
  for (char name = 'a'; name < 'a' + 17; ++name) addBookmark(firefox, RootKind::bar, {name}, "http://x/");
  firefox.start();
  chromium.start();
  // More messages than such a session has.
  for (int message = 1; message <= 8; ++message) {
    const std::string bar = chromium.browser.root(RootKind::bar);
    for (int i = 0; i < 2; ++i) chromium.browser.move(chromium.browser.childrenOf(bar).front(), bar);
    const std::string before = chromium.text();
    chromium.sync();
    firefox.killHostAt(message);
    firefox.sync();
    chromium.sync();
    EXPECT_EQ(firefox.text(), before) << message;
    EXPECT_EQ(chromium.text(), before) << message;
  }
}

TEST_F(KilledBrowserTest, WhatTheUserDeletesLaterIsNotDoneAgain) {
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

TEST_F(KilledBrowserTest, WhatTheUserDeletesOnceTheBrowserHasStartedStaysDeleted) {
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

TEST_F(KilledBrowserTest, WhatTheUserDeletesLongAfterTheLastChangeStaysDeleted) {
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

TEST_F(KilledBrowserTest, EditThatNoSessionCouldTakeIsTakenByTheNextHost) {
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

TEST_F(KilledBrowserTest, OwnFormerHostIsWaitedFor) {
  addBookmark(firefox, RootKind::bar, "ant", "http://ant/");
  firefox.start();
  const std::string token = firefox.browser.token;
  int busy = 20;  // longer than one try for it waits
  platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    const bool isHeld = call.operation == FileOperation::hold && busy-- > 0;
    return isHeld ? std::make_error_code(std::errc::device_or_resource_busy) : std::error_code();
  };
  firefox.restartHost();
  platform.files.intercept = nullptr;
  EXPECT_EQ(firefox.browser.token, token);
}

}  // namespace
}  // namespace corvane
