#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/loomer/store/Journal.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// Sessions that are killed after the client has saved and before the engine has committed.
class KilledSave : public EngineTest {
 protected:
  KilledSave() {
    a->sync();
    b->sync();
  }

  // The session's journal stands beside a store that knows nothing of the session.
  void syncKilledAfterSaving(ScriptedClient& client) {
    close();
    const fs::path directory = fs::path(storePath).parent_path();
    const fs::path copy = directory.string() + ".before";
    fs::copy(directory, copy, fs::copy_options::recursive);
    reopen();
    client.onCall = [&](const std::string& call) {
      if (call != "will finish") return;
      for (const auto& each : journals()) {
        fs::copy_file(each, copy / each.filename(), fs::copy_options::overwrite_existing);
      }
    };
    EXPECT_EQ(client.sync(), "");
    client.onCall = nullptr;
    client.edited = true;
    close();
    fs::remove_all(directory);
    fs::rename(copy, directory);
    reopen();
  }

  // As above, but for the saving.
  void syncKilledBeforeSaving(ScriptedClient& client) {
    const auto nodes = client.nodes;
    const auto children = client.children;
    syncKilledAfterSaving(client);
    client.nodes = nodes;
    client.children = children;
  }

  // `a` adds these bookmarks, each at the address that its name stands for in the notation of trees.
  void give(std::initializer_list<std::string> names) {
    for (const std::string& name : names) a->addBookmark("", name, "http://" + name);
    ASSERT_EQ(a->sync(), "");
  }

  void bothEndWith(const std::string& tree) {
    settle({b.get(), a.get()});
    EXPECT_EQ(a->text(), tree);
    EXPECT_EQ(b->text(), tree);
  }

  std::vector<fs::path> journals() const {
    std::vector<fs::path> found;
    for (const auto& each : fs::directory_iterator(fs::path(storePath).parent_path())) {
      if (each.path().filename().string().starts_with("Journal-")) found.push_back(each.path());
    }
    return found;
  }

  std::unique_ptr<ScriptedClient> a = makeClient("a"), b = makeClient("b");
};

TEST_F(KilledSave, LeavesAJournalThatTheNextSessionClears) {
  give({"New"});
  syncKilledAfterSaving(*b);
  EXPECT_EQ(journals().size(), 1u);
  EXPECT_EQ(fs::status(journals().at(0)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  settle({b.get(), a.get()});
  EXPECT_TRUE(journals().empty());
  EXPECT_EQ(b->text(), "New");
  EXPECT_EQ(a->text(), b->text());
}

TEST_F(KilledSave, ASessionThatEndsTakesItsJournalAlong) {
  give({"New"});
  std::size_t written = 0;
  b->onCall = [&](const std::string& call) {
    if (call == "will finish") written = journals().size();
  };
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(written, 1u);
  EXPECT_TRUE(journals().empty());
}

TEST_F(KilledSave, AdditionThatTheUserMovedAndChangedSinceIsTheSameRecord) {
  a->addFolder("", "F");
  give({"New"});
  syncKilledAfterSaving(*b);
  const std::string added = b->find("New");
  b->rename(added, "Mine");
  b->readdress(added, "http://mine/");
  b->move(added, b->find("F"));
  bothEndWith("F(Mine@http://mine/)");
}

TEST_F(KilledSave, AdditionThatTheUserDeletedSinceStaysDeleted) {
  give({"One", "Two"});
  syncKilledAfterSaving(*b);
  b->remove(b->find("One"));
  bothEndWith("Two");
}

TEST_F(KilledSave, AdditionThatTheUserDeletedSinceIsRestoredWhereThatWasAskedFor) {
  give({"One", "Two"});
  syncKilledAfterSaving(*b);
  b->remove(b->find("One"));
  loomer::ClientTable(store()).setRestorePending(manager().clientWithIdentifier("b")->row(), true);
  bothEndWith("One Two");
}

TEST_F(KilledSave, FirstSessionsAdditionThatTheUserDeletedSinceStaysDeleted) {
  give({"One", "Two"});
  const auto c = makeClient("c");
  c->addBookmark("", "Own", "http://own/");
  syncKilledAfterSaving(*c);
  c->remove(c->find("One"));
  c->rename(c->find("Own"), "Still my own");
  settle({c.get(), a.get(), b.get()});
  EXPECT_EQ(a->text(), c->text());
  EXPECT_EQ(a->find("One"), "");
  EXPECT_NE(a->find("Two"), "");
  EXPECT_NE(a->find("Still my own"), "");
  EXPECT_EQ(a->nodes.size(), 2u);
}

TEST_F(KilledSave, ValueThatCameWithItDoesNotOverrideANewerOne) {
  a->addBookmark("", "First", "http://1/");
  settle({a.get(), b.get()});
  a->rename(a->find("First"), "Second");
  ASSERT_EQ(a->sync(), "");
  syncKilledAfterSaving(*b);
  ASSERT_EQ(b->text(), "Second@http://1/");
  a->rename(a->find("Second"), "Third");
  ASSERT_EQ(a->sync(), "");
  bothEndWith("Third@http://1/");
}

TEST_F(KilledSave, WhatTheClientItselfHadChangedIsStillItsChange) {
  a->addBookmark("", "Title", "http://1/");
  settle({a.get(), b.get()});
  a->readdress(a->find("Title"), "http://2/");
  ASSERT_EQ(a->sync(), "");
  b->rename(b->find("Title"), "Better title");
  b->addBookmark("", "Own", "http://own/");
  syncKilledAfterSaving(*b);
  bothEndWith("\"Better title\"@http://2/ Own@http://own/");
}

TEST_F(KilledSave, OrderThatCameWithItDoesNotOverrideANewerOne) {
  for (const char* name : {"1", "2", "3", "4"}) a->addBookmark("", name, "http://x/");
  settle({a.get(), b.get()});
  a->addBookmark("", "5", "http://x/", 1);
  ASSERT_EQ(a->sync(), "");
  syncKilledAfterSaving(*b);
  ASSERT_EQ(b->text(), "1@http://x/ 5@http://x/ 2@http://x/ 3@http://x/ 4@http://x/");
  a->move(a->find("5"), "", 3);
  ASSERT_EQ(a->sync(), "");
  bothEndWith("1@http://x/ 2@http://x/ 3@http://x/ 5@http://x/ 4@http://x/");
}

TEST_F(KilledSave, BeforeItHasSavedCountsForNothing) {
  a->addBookmark("", "Old", "http://old/");
  settle({a.get(), b.get()});
  a->rename(a->find("Old"), "Renamed");
  give({"New"});
  syncKilledBeforeSaving(*b);
  ASSERT_EQ(b->text(), "Old@http://old/");
  b->readdress(b->find("Old"), "http://b/");
  bothEndWith("Renamed@http://b/ New");
}

TEST_F(KilledSave, FirstSessionBeforeItHasSavedDeletesNothing) {
  a->addBookmark("", "Same", "http://same/");
  a->addBookmark("", "Of a", "http://a/");
  settle({a.get(), b.get()});
  const auto c = makeClient("c");
  c->addBookmark("", "Same", "http://same/");
  syncKilledBeforeSaving(*c);
  settle({c.get(), a.get(), b.get()});
  EXPECT_EQ(a->nodes.size(), 2u) << "what was never saved was not deleted";
  EXPECT_EQ(c->text(), a->text());
}

TEST_F(KilledSave, ValuesAloneDoNotShowThatAnAdditionWasTaken) {
  a->addBookmark("", "Old", "http://old/");
  settle({a.get(), b.get()});
  a->rename(a->find("Old"), "Renamed");
  give({"New"});
  syncKilledBeforeSaving(*b);
  b->rename(b->find("Old"), "Renamed");
  bothEndWith("Renamed@http://old/ New");
}

TEST_F(KilledSave, AQuietSessionAfterItLooksAtTheRecords) {
  give({"New"});
  syncKilledAfterSaving(*b);
  b->mode = LoomerSyncModeFast;
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(number("SELECT mode FROM sessions ORDER BY id DESC LIMIT 1"), LoomerSyncModeSlow);
  EXPECT_EQ(b->text(), "New");
}

TEST_F(KilledSave, AndKilledAgainBeforeSavingIsStillKnown) {
  give({"One"});
  syncKilledAfterSaving(*b);
  a->rename(a->find("One"), "Uno");
  give({"Two"});
  syncKilledBeforeSaving(*b);
  b->readdress(b->find("One"), "http://b/");
  bothEndWith("Uno@http://b/ Two");
}

TEST_F(KilledSave, AndKilledAgainAfterSavingIsStillKnown) {
  give({"One"});
  syncKilledAfterSaving(*b);
  give({"Two"});
  syncKilledAfterSaving(*b);
  b->readdress(b->find("One"), "http://b/");
  b->rename(b->find("Two"), "Zwei");
  bothEndWith("One@http://b/ Zwei@http://Two");
}

TEST_F(KilledSave, JournalsOfOtherSessionsAndDamagedOnesAreNotUsed) {
  give({"New"});
  syncKilledAfterSaving(*b);
  const fs::path journal = journals().at(0);
  const fs::path kept = journal.string() + ".kept";
  fs::copy_file(journal, kept);
  settle({b.get(), a.get()});
  b->remove(b->find("New"));
  settle({b.get(), a.get()});
  fs::rename(kept, journal);
  settle({b.get(), a.get()});
  EXPECT_EQ(b->text(), "");
  EXPECT_TRUE(journals().empty());

  give({"Newer"});
  std::ofstream(journal) << "no property list";
  platform.log.expectMessages({"The journal " + journal.string() +
                               " cannot be read and is not used: plain-text property list, offset 3: text "
                               "after the value"});
  settle({b.get(), a.get()});
  EXPECT_EQ(b->text(), "Newer");
}

TEST_F(KilledSave, ItsJournalGoesWithTheRegistration) {
  give({"New"});
  syncKilledAfterSaving(*b);
  manager().unregisterClient(*manager().clientWithIdentifier("b"));
  EXPECT_TRUE(journals().empty());
}

TEST_F(KilledSave, RefusedChangesAreNotTakenForHeld) {
  a->addBookmark("", "Taken", "http://t/");
  a->addBookmark("", "Refused", "http://r/");
  ASSERT_EQ(a->sync(), "");
  b->answer = [](const LoomerChange& change) {
    const String name =
        change.record() ? change.record()->string(LoomerAttribute_Bookmarks_Bookmark_Name.view()) : String();
    return static_cast<int>(name == "Refused" ? LoomerChangeRefused : LoomerChangeAccepted);
  };
  syncKilledAfterSaving(*b);
  settle({b.get(), a.get()});
  EXPECT_EQ(b->text(), "Taken@http://t/");
  EXPECT_EQ(a->nodes.size(), 2u) << "a refused record is not deleted";
}

}  // namespace
}  // namespace corvane
