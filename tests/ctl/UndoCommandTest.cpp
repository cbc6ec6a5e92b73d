// Undoing sessions: by the real command, and in random histories.

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <random>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "tests/ctl/CtlFixture.h"
#include "tests/kit/Steps.h"

namespace corvane {
namespace {

using testing::HasSubstr;

class UndoTest : public CtlTest {
 protected:
  // Undoes the last session that changed the truth and has everybody follow.
  Run undoLast(const std::vector<std::string>& more = {}) {
    std::vector<std::string> words{"undo",
                                   std::to_string(number("SELECT max(id) FROM sessions WHERE changed > 0"))};
    words.insert(words.end(), more.begin(), more.end());
    const Run run = ctl(words);
    settle({a.get(), b.get()});
    return run;
  }
  std::string undoOf(std::int64_t session, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words{"undo", std::to_string(session)};
    words.insert(words.end(), more.begin(), more.end());
    const Run run = ctl(words);
    return run.out + run.err;
  }
  std::int64_t syncA() {
    EXPECT_EQ(a->sync(), "");
    return lastSession();
  }
};

struct Edit {
  const char* phrase;
  std::function<void(ScriptedClient&)> edit;
};

TEST_F(UndoTest, EachKindOfChangeIsTakenBackEverywhere) {
  seed();
  const std::string before = a->text();
  const Edit edits[] = {
      {"rename", [](auto& c) { c.rename(c.find("Daily"), "Other"); }},
      {"readdress", [](auto& c) { c.readdress(c.find("Daily"), "http://other/"); }},
      {"move", [](auto& c) { c.move(c.find("Zoo"), c.find("News"), 1); }},
      {"reorder", [](auto& c) { c.move(c.find("Weekly"), c.find("News"), 0); }},
      {"delete a bookmark", [](auto& c) { c.remove(c.find("Daily")); }},
      {"delete a folder with its contents", [](auto& c) { c.remove(c.find("News")); }},
      {"delete the special folder", [](auto& c) { c.remove(c.find("BookmarksBar")); }},
      {"add a bookmark", [](auto& c) { c.addBookmark(c.find("News"), "New", "http://n/", 1); }},
      {"add a folder and move something into it",
       [](auto& c) { c.move(c.find("Zoo"), c.addFolder("", "New", 0)); }},
      {"delete a folder and keep what was in it",
       [](auto& c) {
         c.move(c.find("Daily"), "");
         c.move(c.find("Weekly"), "", 0);
         c.remove(c.find("News"));
       }},
      {"make a group of tabs", [](auto& c) { c.toggle(c.find("News")); }},
  };
  for (const Edit& each : edits) {
    SCOPED_TRACE(each.phrase);
    each.edit(*a);
    ASSERT_EQ(a->sync(), "");
    const std::string after = a->text();
    ASSERT_NE(after, before);
    EXPECT_EQ(undoLast().status, 0);
    EXPECT_EQ(a->text(), before);
    EXPECT_EQ(b->text(), before);
    EXPECT_EQ(undoLast().status, 0) << "an undo can be undone";
    EXPECT_EQ(a->text(), after);
    EXPECT_EQ(b->text(), after);
    EXPECT_EQ(undoLast().status, 0);
    EXPECT_EQ(b->text(), before);
  }
}

TEST_F(UndoTest, StandsInTheLogAsASessionOfItsOwn) {
  seed();
  a->remove(a->find("Zoo"));
  const std::string session = std::to_string(syncA());
  const Run run = ctl({"undo", session});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("Session " + session + " is undone: 1 record brought back"));
  EXPECT_EQ(json({"sessions", "--limit", "1"},
                 "d[0]['client'], d[0]['kind'], d[0]['changed'], d[0]['ended'] is not None"),
            "loomerctl undo " + session + " undo 1 True");
  EXPECT_EQ(json({"clients"}, "[c['changesMayWait'] for c in d]"), "[True, True]");
}

TEST_F(UndoTest, NothingToUndoIsRefused) {
  seed();
  EXPECT_THAT(undoOf(999), HasSubstr("The log holds no session 999"));
  EXPECT_THAT(undoOf(number("SELECT id FROM sessions WHERE client = 'b' LIMIT 1")),
              HasSubstr("changed none of the agreed bookmarks"));
  EXPECT_EQ(ctl({"undo", "first"}).status, 1);
  a->rename(a->find("Zoo"), "Other");
  const std::int64_t session = syncA();
  EXPECT_EQ(ctl({"undo", std::to_string(session)}).status, 0);
  const Run again = ctl({"undo", std::to_string(session)});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("nothing left to undo"));
}

TEST_F(UndoTest, LaterValueStaysUnlessForced) {
  seed();
  a->rename(a->find("Zoo"), "First");
  a->readdress(a->find("First"), "http://first/");
  const std::int64_t session = syncA();
  a->rename(a->find("First"), "Second");
  syncA();
  EXPECT_THAT(undoOf(session), HasSubstr("had its title changed again since"));
  settle({a.get(), b.get()});
  EXPECT_THAT(b->text(), HasSubstr("Second@http://z/")) << "the address came back, the title stayed";
  EXPECT_THAT(undoOf(session), HasSubstr("nothing left to undo of session"));
  EXPECT_THAT(undoOf(session, {"--force"}), HasSubstr("is undone"));
  settle({a.get(), b.get()});
  EXPECT_THAT(b->text(), HasSubstr("Zoo@http://z/"));
}

TEST_F(UndoTest, WhatWasDeletedSinceStaysDeletedUnlessForced) {
  seed();
  a->rename(a->find("Zoo"), "First");
  const std::int64_t session = syncA();
  a->remove(a->find("First"));
  syncA();
  EXPECT_THAT(undoOf(session), HasSubstr("was deleted since and stays deleted"));
  EXPECT_THAT(undoOf(session, {"--force"}), HasSubstr("is undone"));
  settle({a.get(), b.get()});
  EXPECT_THAT(a->text(), HasSubstr("Zoo@http://z/"));
}

TEST_F(UndoTest, AddedFolderThatHoldsSomethingElseByNowStaysAlsoWhenForced) {
  seed();
  const std::string folder = a->addFolder("", "New");
  a->addBookmark(folder, "Mine", "http://m/");
  const std::int64_t session = syncA();
  ASSERT_EQ(b->sync(), "");
  b->addBookmark(b->find("New"), "Theirs", "http://t/");
  ASSERT_EQ(b->sync(), "");
  EXPECT_THAT(undoOf(session, {"--force"}), HasSubstr("holds something else by now; it stays"));
  settle({a.get(), b.get()});
  EXPECT_THAT(a->text(), HasSubstr("New(Theirs@http://t/)"));
  EXPECT_EQ(a->find("Mine"), "");
}

TEST_F(UndoTest, ComesBackAboveAFolderThatIsGoneSince) {
  seed();
  a->remove(a->find("Daily"));
  const std::int64_t session = syncA();
  a->remove(a->find("News"));
  syncA();
  EXPECT_THAT(undoOf(session), HasSubstr("nearest folder above"));
  settle({a.get(), b.get()});
  EXPECT_EQ(b->text(), "BookmarksBar!(Shop@http://s/ Daily@http://d/) Zoo@http://z/");
}

TEST_F(UndoTest, MoveThatWouldCloseACycleByNowIsLeftOut) {
  seed();
  const std::string inner = a->addFolder(a->find("News"), "Inner");
  syncA();
  a->move(inner, "");
  const std::int64_t session = syncA();
  a->move(a->find("News"), inner);
  syncA();
  EXPECT_THAT(undoOf(session), HasSubstr("lies inside it by now"));
  settle({a.get(), b.get()});
  EXPECT_THAT(b->text(), HasSubstr("Inner(News("));
}

TEST_F(UndoTest, SecondSpecialFolderOfATitleComesBackAsAnOrdinaryOne) {
  seed();
  a->remove(a->find("BookmarksBar"));
  const std::int64_t session = syncA();
  a->addSpecial("BookmarksBar");
  syncA();
  EXPECT_THAT(undoOf(session), HasSubstr("comes back as an ordinary folder"));
  EXPECT_EQ(json({"check"}, "d['sound']"), "True");
  EXPECT_EQ(json({"tree"}, "sorted(r['special'] for r in d if r['title'] == 'BookmarksBar')"),
            "[False, True]");
}

TEST_F(UndoTest, ComesBackAfterItsTombstoneIsForgotten) {
  seed();
  const std::string before = a->text();
  a->remove(a->find("News"));
  const std::int64_t session = syncA();
  settle({a.get(), b.get()});
  ASSERT_EQ(number("SELECT count(*) FROM tombstones"), 0);
  EXPECT_EQ(ctl({"undo", std::to_string(session)}).status, 0);
  settle({a.get(), b.get()});
  EXPECT_EQ(a->text(), before);
  EXPECT_EQ(b->text(), before);
}

const kit::Weights kEdits = {{1, kit::StepKind::addFolder}, {1, kit::StepKind::addBookmark},
                             {1, kit::StepKind::rename},    {1, kit::StepKind::readdress},
                             {1, kit::StepKind::erase},     {2, kit::StepKind::move}};

std::vector<kit::Step> editsDrawn(unsigned seed, std::size_t count) {
  std::vector<kit::Step> steps;
  for (rc::Random random(seed); steps.size() < count;) {
    const std::vector<kit::Step> more = kit::stepsOf(kEdits, 1000)(random.split(), 100).value();
    steps.insert(steps.end(), more.begin(), more.end());
  }
  steps.resize(count);
  return steps;
}

void carryOut(ScriptedClient& client, const kit::Step& step) {
  const std::vector<std::string> all = client.visibleNodes();
  const std::string id = all.empty() ? "" : kit::chosen(all, step.entry);
  const std::string folder = kit::chosen(client.visibleFolders(), step.folder);
  // Before, between and behind the children that are not special.
  const int at = static_cast<int>(step.index % (client.ordinaryChildren(folder) + 1));
  const std::string name = "N" + std::to_string(step.value);
  if (step.kind == kit::StepKind::addFolder) client.addFolder(folder, name, at);
  if (step.kind == kit::StepKind::addBookmark) client.addBookmark(folder, name, "http://n/", at);
  if (id.empty() || client.nodes.at(id).isSpecial()) return;
  if (step.kind == kit::StepKind::rename) client.rename(id, name);
  if (step.kind == kit::StepKind::readdress) client.readdress(id, "http://" + name + "/");
  if (step.kind == kit::StepKind::erase) client.remove(id);
  if (step.kind == kit::StepKind::move) {
    client.move(id, folder, folder == client.nodes.at(id).parent ? 0 : at);
  }
}

// The edits of a person in one sitting.
void edit(ScriptedClient& client, unsigned seed, std::size_t count) {
  for (const kit::Step& step : editsDrawn(seed, count)) carryOut(client, step);
}

class UndoHistoryTest : public UndoTest, public testing::WithParamInterface<unsigned> {};

TEST_P(UndoHistoryTest, UndoOfTheLastSessionRestoresEveryTreeAndItsUndoBringsItBack) {
  seed();
  edit(*a, GetParam(), 20);
  settle({a.get(), b.get()});
  for (unsigned round = 0; round < 10; ++round) {
    const std::string before = a->text();
    ASSERT_EQ(b->text(), before);
    ScriptedClient& editing = round % 2 ? *b : *a;
    edit(editing, GetParam() * 100 + round, 1 + round);
    ASSERT_EQ(editing.sync(), "");
    const std::string after = editing.text();
    const std::int64_t changed = number("SELECT changed FROM sessions ORDER BY id DESC LIMIT 1");
    if (round % 3 == 0) settle({a.get(), b.get()});
    if (after == before || changed == 0) continue;
    const std::int64_t session = number("SELECT max(id) FROM sessions WHERE changed > 0");
    const auto undone = loomer::undoSession(store(), "test", session, false);
    ASSERT_TRUE(undone.session);
    EXPECT_TRUE(undone.notes.empty()) << "nothing else changed: " << undone.notes[0].what.english();
    settle({a.get(), b.get()});
    ASSERT_EQ(a->text(), before) << "round " << round;
    ASSERT_EQ(b->text(), before) << "round " << round;
    ASSERT_TRUE(loomer::undoSession(store(), "test", *undone.session, false).session);
    settle({a.get(), b.get()});
    ASSERT_EQ(a->text(), after) << "round " << round;
    ASSERT_EQ(b->text(), after) << "round " << round;
  }
}

TEST_P(UndoHistoryTest, UndoOfAnySessionKeepsTheTruthAForestAndClientsAlike) {
  seed();
  std::mt19937 random(GetParam());
  for (unsigned round = 0; round < 15; ++round) {
    ScriptedClient& editing = random() % 2 ? *a : *b;
    edit(editing, GetParam() * 1000 + round, 4);
    ASSERT_EQ(editing.sync(), "");
    const std::int64_t session =
        1 + static_cast<std::int64_t>(random() % static_cast<unsigned>(lastSession()));
    loomer::undoSession(store(), "test", session, random() % 2);
    ASSERT_EQ(loomer::checkStore(store()), std::vector<std::string>()) << "session " << session;
    settle({a.get(), b.get()});
    ASSERT_EQ(a->text(), b->text()) << "round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, UndoHistoryTest, testing::Range(1u, 21u));

}  // namespace
}  // namespace corvane
