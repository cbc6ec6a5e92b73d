#include <gtest/gtest.h>

#include <string>

#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

using browsers::NodeKind;
using browsers::RootKind;
using Kind = ScriptedBrowser::Kind;

class BrowserRootsTest : public HostTest {};

TEST_F(BrowserRootsTest, MenuOfTheTruthIsAFolderInChromium) {
  addBookmark(firefox, RootKind::menu, "ant", "http://ant/");
  firefox.start();
  chromium.start();
  EXPECT_EQ(chromium.text(), "other: \"Bookmarks Menu\"(ant@http://ant/)");
  round();
  chromium.browser.add(find(chromium, "Bookmarks Menu"), NodeKind::bookmark, "bee", "http://bee/");
  round();
  EXPECT_EQ(firefox.text(), "menu: ant@http://ant/ bee@http://bee/");
}

// The truth's menu has no place among others, so that it may stand anywhere.
TEST_F(BrowserRootsTest, FolderThatStandsForTheMenuPutsNothingElseIntoAnotherOrder) {
  const auto file = home.makeClient("file");
  for (const char* const name : {"ant", "bee", "cat"})
    file->addBookmark("", name, std::string("http://") + name + "/");
  ASSERT_EQ(file->sync(), "");
  firefox.start();
  chromium.start();
  addFolder(firefox, RootKind::menu, "F");
  firefox.sync();
  chromium.browser.add(chromium.browser.root(RootKind::other), NodeKind::folder, "G", "", 1);
  chromium.beforeNextChange = [&] {
    chromium.browser.move(find(chromium, "G"), chromium.browser.root(RootKind::bar));
  };
  chromium.sync();
  file->add(kit::newNode(false, "", "dog", "http://dog/"), 0);
  ASSERT_EQ(file->sync(), "");
  chromium.sync();
  const std::string text = chromium.text();
  EXPECT_LT(text.find("dog"), text.find("ant")) << text;
  EXPECT_LT(text.find("ant"), text.find("bee")) << text;
  EXPECT_LT(text.find("bee"), text.find("cat")) << text;
}

TEST_F(BrowserRootsTest, MenuThatIsMadeAndNotAnsweredForIsNotMadeAgain) {
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

TEST_F(BrowserRootsTest, WhatLiesInTheTruthsRootIsShownInOtherAndStaysThere) {
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

// Another client may move even what stands for a root, which in the browser stays where it is.
TEST_F(BrowserRootsTest, RootIntoWhichTheUserPutsItsFolderIsARootAgain) {
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

TEST_F(BrowserRootsTest, RootThatAppearsLateAndTheFolderThatStoodForItAreOne) {
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

TEST_F(BrowserRootsTest, FolderThatStoodForARootIsKnownUnderAnotherId) {
  addBookmark(firefox, RootKind::mobile, "ant", "http://ant/");
  firefox.start();
  chromium.start();
  chromium.browser.add(chromium.browser.makeMobileRoot(), NodeKind::bookmark, "bee", "http://bee/");
  chromium.browser.renewIds();
  chromium.sync();
  EXPECT_EQ(chromium.text().find("Mobile Bookmarks"), std::string::npos) << chromium.text();
  firefox.sync();
  EXPECT_NE(firefox.text().find("ant@http://ant/"), std::string::npos);
  EXPECT_NE(firefox.text().find("bee@http://bee/"), std::string::npos);
}

TEST_F(BrowserRootsTest, RootThatTheUserEmptiesVanishesAndWhatWasInItIsDeleted) {
  const std::string root = chromium.browser.makeMobileRoot();
  const std::string ant = chromium.browser.add(root, NodeKind::bookmark, "ant", "http://ant/");
  addBookmark(chromium, RootKind::bar, "anchor", "http://anchor/");
  chromium.start();
  firefox.start();
  EXPECT_EQ(firefox.text(), "bar: anchor@http://anchor/ mobile: ant@http://ant/");
  chromium.browser.remove(ant);
  ASSERT_EQ(chromium.browser.root(RootKind::mobile), "");
  round();
  EXPECT_EQ(firefox.text(), "bar: anchor@http://anchor/");
  EXPECT_EQ(chromium.text(), "bar: anchor@http://anchor/ other: \"Mobile Bookmarks\"()");
  // What comes then is seen, too, wherever the user puts the next one.
  addBookmark(firefox, RootKind::mobile, "bee", "http://bee/");
  round();
  EXPECT_EQ(chromium.text(), "bar: anchor@http://anchor/ other: \"Mobile Bookmarks\"(bee@http://bee/)");
  chromium.browser.add(chromium.browser.makeMobileRoot(), NodeKind::bookmark, "cat", "http://cat/");
  round();
  EXPECT_EQ(chromium.text(), "bar: anchor@http://anchor/ mobile: bee@http://bee/ cat@http://cat/");
  EXPECT_EQ(chromium.text(), firefox.text());
}

TEST_F(BrowserRootsTest, RootThatAnAccountTakesAlongIsShownElsewhereUntilItComesBack) {
  // More messages than such a session has.
  for (int message = 0; message <= 16; ++message) {
    for (const bool killsHost : {true, false}) {
      const OtherComputer computer(*this, std::to_string(message) + (killsHost ? "host" : "browser"));
      HostedBrowser phone{Kind::firefox};
      HostedBrowser signedIn{Kind::chromium};
      phone.browser.token = "33333333-3333-4333-8333-333333333333";
      const auto pass = [&] {
        signedIn.browser.pass(60'000);
        platform.clock.time.seconds += 60;
      };
      signedIn.browser.isSyncedByAccount = true;
      const std::string root = signedIn.browser.makeMobileRoot();
      const std::string folder = signedIn.browser.add(root, NodeKind::folder, "F");
      signedIn.browser.add(folder, NodeKind::bookmark, "ant", "http://ant/");
      signedIn.browser.add(root, NodeKind::bookmark, "bee", "http://bee/");
      signedIn.start();
      phone.start();
      pass();
      signedIn.quit();
      signedIn.browser.signOut();
      signedIn.start();
      phone.sync();
      EXPECT_EQ(signedIn.text(), "other: \"Mobile Bookmarks\"(F(ant@http://ant/) bee@http://bee/)");
      EXPECT_EQ(phone.text(), "mobile: F(ant@http://ant/) bee@http://bee/");
      signedIn.browser.add(find(signedIn, "F"), NodeKind::bookmark, "cat", "http://cat/");
      signedIn.sync();
      pass();
      signedIn.browser.signIn();
      killsHost ? signedIn.killHostAt(message) : signedIn.killBrowserAt(message);
      signedIn.sync();
      signedIn.sync();
      phone.sync();
      const std::string all = "mobile: F(ant@http://ant/ cat@http://cat/) bee@http://bee/";
      EXPECT_EQ(signedIn.text(), all) << message << killsHost;
      EXPECT_EQ(phone.text(), all) << message << killsHost;
    }
  }
}

TEST_F(BrowserRootsTest, FolderThatAnAccountKeepsInStepCountsAndTheUserIsTold) {
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

}  // namespace
}  // namespace corvane
