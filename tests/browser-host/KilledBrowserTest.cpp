#include <gtest/gtest.h>

#include <string>
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
  int busy = 2;
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
