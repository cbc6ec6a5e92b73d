#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "browsers/host/MessageChannel.h"
#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

using browsers::NodeKind;
using browsers::RootKind;

class BrowserHostTest : public HostTest {};

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
  int writes = 0;
  platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    writes += call.operation == FileOperation::writeAtomically ? 1 : 0;
    return std::error_code();
  };
  firefox.sync();
  platform.files.intercept = nullptr;
  EXPECT_EQ(firefox.browser.requests(), requests + 1);
  EXPECT_EQ(loomer::RecordTable(home.store()).state().revision, revision);
  EXPECT_EQ(writes, 0);
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
  file->readdress(file->find("cat"), "none either");
  ASSERT_EQ(file->sync(), "");
  firefox.sync();
  file->addBookmark("", "dog", "http://dog/");
  ASSERT_EQ(file->sync(), "");
  const std::size_t asked = firefox.browser.requests();
  firefox.sync();
  EXPECT_EQ(firefox.browser.requests(), asked + 2) << "it reads, and makes one";
}

TEST_F(BrowserHostTest, WhatABrowserRefusesGoesWithItsFolder) {
  const auto file = home.makeClient("file");
  file->addBookmark(file->addFolder("", "F"), "ant", "no address at all");
  file->addBookmark("", "bee", "http://bee/");
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  firefox.browser.remove(find(firefox, "F"));
  firefox.sync();
  ASSERT_EQ(file->sync(), "");
  EXPECT_EQ(file->text(), "bee@http://bee/");
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

}  // namespace
}  // namespace corvane
