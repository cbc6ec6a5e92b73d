#include <gtest/gtest.h>

#include <string>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

using browsers::NodeKind;
using browsers::RootKind;
using Kind = ScriptedBrowser::Kind;

class CopiedProfileTest : public HostTest {};

TEST_F(CopiedProfileTest, RestoredProfileIsGivenWhatHappenedSince) {
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

TEST_F(CopiedProfileTest, RestoredProfileDoesNotBringBackWhatWasChangedAndThenDeleted) {
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

TEST_F(CopiedProfileTest, RestoredProfileIsGivenWhatHadArrivedWithoutAnAnswer) {
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

TEST_F(CopiedProfileTest, RestoredProfileIsGivenTheOrderThatHadArrivedWithoutAnAnswer) {
  for (const char* const name : {"ant", "bee", "cat"})
    addBookmark(firefox, RootKind::bar, name, std::string("http://") + name + "/");
  firefox.start();
  chromium.start();
  firefox.quit();
  const ScriptedBrowser backup = firefox.browser;
  chromium.browser.move(find(chromium, "ant"), chromium.browser.root(RootKind::bar));
  chromium.sync();
  const std::string before = chromium.text();
  failOnceTheBrowserIsAsked("move");
  firefox.start();
  platform.files.intercept = nullptr;
  firefox.restartHost();
  EXPECT_EQ(firefox.text(), before);
  firefox.quit();
  firefox.browser.restore(backup);
  firefox.start();
  chromium.sync();
  EXPECT_EQ(firefox.text(), before);
  EXPECT_EQ(chromium.text(), before);
}

TEST_F(CopiedProfileTest, IdsThatAreAllRenewedAreNoEdits) {
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

TEST_F(CopiedProfileTest, CopyOfARunningProfileBecomesAClientOfItsOwn) {
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

TEST_F(CopiedProfileTest, CopyOnAnotherComputerIsAFirstSessionThere) {
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

TEST_F(CopiedProfileTest, ProfileOfAnotherComputerInPlaceOfAnOlderCopyDeletesNothing) {
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

TEST_F(CopiedProfileTest, CopiesThatTakeTurnsAreOneClient) {
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

TEST_F(CopiedProfileTest, ProfileWhoseSnapshotIsLostIsMatchedAnew) {
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

TEST_F(CopiedProfileTest, SnapshotThatIsOlderThanItsProfileUndoesNothing) {
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

}  // namespace
}  // namespace corvane
