#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

class SessionTest : public EngineTest {
 protected:
  // A first client whose tree is the truth already.
  void seed() {
    first = makeClient("first");
    const std::string folder = first->addFolder("", "F");
    first->addBookmark(folder, "A", "http://a/");
    first->addBookmark("", "B", "http://b/");
    ASSERT_EQ(first->sync(), "");
  }
  std::unique_ptr<ScriptedClient> first;
};

TEST_F(SessionTest, CallsTheDataSourceInOrder) {
  seed();
  EXPECT_THAT(first->calls, ElementsAre("did register", "mode folders", "mode bookmarks", "begin timeout",
                                        "records folders", "records bookmarks", "did pull", "will finish"));
}

TEST_F(SessionTest, FirstSessionIntoAnEmptyTruthDeliversNothing) {
  seed();
  EXPECT_TRUE(first->delivered.empty());
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 3);
  EXPECT_EQ(number("SELECT count(*) FROM base"), 3);
}

TEST_F(SessionTest, SecondClientIsGivenEverythingFoldersFirst) {
  seed();
  const auto second = makeClient("second");
  ASSERT_EQ(second->sync(), "");
  EXPECT_EQ(second->text(), "F(A@http://a/) B@http://b/");
  std::vector<std::string> adds;
  for (const std::string& call : second->calls) {
    if (call.starts_with("add")) adds.push_back(call);
  }
  ASSERT_EQ(adds.size(), 3u);
  EXPECT_EQ(adds.front(), "add F") << "all folder changes come before any bookmark change";
}

TEST_F(SessionTest, QuietFastSessionTouchesNoRecordAndWritesNoneButItsCounters) {
  seed();
  reopen();
  const std::int64_t sessions = number("SELECT count(*) FROM sessions");
  ASSERT_EQ(first->sync(), "");
  EXPECT_THAT(first->calls, ElementsAre("did register", "mode folders", "mode bookmarks", "begin timeout",
                                        "changed folders", "changed bookmarks", "did pull", "will finish"));
  EXPECT_EQ(number("SELECT count(*) FROM sessions"), sessions);
  EXPECT_EQ(number("SELECT sessions FROM clients"), 2);
  EXPECT_EQ(number("SELECT without_records FROM clients"), 1);
  EXPECT_EQ(number("SELECT revision FROM truth"), 1);
}

TEST_F(SessionTest, SlowSessionWithNothingNewWritesNeitherRecordsNorBase) {
  seed();
  store().database().execute(
      "CREATE TEMP TABLE touched(what TEXT);"
      "CREATE TEMP TRIGGER t1 AFTER INSERT ON base BEGIN INSERT INTO touched VALUES('base'); END;"
      "CREATE TEMP TRIGGER t2 AFTER DELETE ON base BEGIN INSERT INTO touched VALUES('base'); END;"
      "CREATE TEMP TRIGGER t3 AFTER UPDATE ON records BEGIN INSERT INTO touched VALUES('records'); END;"
      "CREATE TEMP TRIGGER t4 AFTER INSERT ON records BEGIN INSERT INTO touched VALUES('records'); END;"
      "CREATE TEMP TRIGGER t5 AFTER INSERT ON contents BEGIN INSERT INTO touched VALUES('contents'); END;",
      "watch");
  first->mode = LoomerSyncModeSlow;
  ASSERT_EQ(first->sync(), "");
  EXPECT_EQ(number("SELECT count(*) FROM temp.touched"), 0);
  first->addBookmark("", "C", "http://c/");
  ASSERT_EQ(first->sync(), "");
  EXPECT_EQ(number("SELECT count(*) FROM temp.touched"), 3) << "one record, one content, one base row";
}

TEST_F(SessionTest, SessionThatFindsOtherNumbersInTheSameOrderIsNotInTheLog) {
  seed();
  for (auto& [id, node] : first->nodes) node.position = node.position * 2 + 5;
  first->mode = LoomerSyncModeSlow;
  const std::int64_t logged = number("SELECT count(*) FROM sessions");
  const std::int64_t greatest = number("SELECT max(position) FROM base WHERE client = 1");
  ASSERT_EQ(first->sync(), "");
  EXPECT_GT(number("SELECT max(position) FROM base WHERE client = 1"), greatest);
  EXPECT_EQ(number("SELECT count(*) FROM sessions"), logged);
}

TEST_F(SessionTest, AsksUntilNothingMoreComes) {
  first = makeClient("first");
  for (int i = 0; i < 7; ++i) first->addBookmark("", "B" + std::to_string(i), "http://b/");
  first->chunk = 3;
  ASSERT_EQ(first->sync(), "");
  EXPECT_EQ(std::count(first->calls.begin(), first->calls.end(), "records bookmarks"), 3);
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 7);
}

TEST_F(SessionTest, ChangedRecordsOfAFastSessionAreMergedOverTheBase) {
  seed();
  first->mode = LoomerSyncModeFast;
  const std::string b = first->find("B");
  first->rename(b, "B2");
  first->changedRecords[1].set(b, Dictionary{{LoomerAttribute_Bookmarks_Bookmark_Name, "B2"},
                                             {LoomerAttribute_Bookmarks_Bookmark_Url, Url{"http://b/"}},
                                             {LoomerAttribute_Bookmarks_Bookmark_Position, 1}});
  ASSERT_EQ(first->sync(), "");
  EXPECT_THAT(first->calls, testing::Not(testing::Contains("records folders")));
  const auto second = makeClient("second");
  ASSERT_EQ(second->sync(), "");
  EXPECT_EQ(second->text(), "F(A@http://a/) B2@http://b/");
}

struct Failure {
  const char* phrase;
  std::function<void(ScriptedClient&)> arrange;
  const char* reason;
  friend void PrintTo(const Failure& row, std::ostream* out) { *out << row.phrase; }
};

class CancelledSession : public SessionTest, public testing::WithParamInterface<Failure> {};

TEST_P(CancelledSession, RollsBackTellsTheClientAndSaysWhy) {
  SCOPED_TRACE(GetParam().phrase);
  seed();
  const auto second = makeClient("second");
  ASSERT_EQ(second->sync(), "");
  first->addBookmark("", "C", "http://c/");
  ASSERT_EQ(first->sync(), "");
  second->addBookmark("", "D", "http://d/");
  const std::string before = second->text();
  const std::int64_t revision = number("SELECT revision FROM truth");
  GetParam().arrange(*second);
  const std::string error = second->sync();
  EXPECT_THAT(error, HasSubstr(GetParam().reason));
  EXPECT_EQ(second->calls.back(), "will cancel");
  EXPECT_EQ(second->text(), before);
  EXPECT_EQ(number("SELECT revision FROM truth"), revision);
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 4);
  EXPECT_FALSE(store().database().inTransaction());

  const auto third = makeClient("third");
  EXPECT_EQ(third->sync(), "") << "the lock is free again";
}

INSTANTIATE_TEST_SUITE_P(
    All, CancelledSession,
    testing::Values(
        Failure{"an error string from the records", [](auto& c) { c.recordsError = "disk gone"; },
                "disk gone"},
        Failure{"an answer of error", [](auto& c) { c.answer = [](auto&) { return 3; }; },
                "could not take the addition"},
        Failure{"an answer that is no result", [](auto& c) { c.answer = [](auto&) { return 9; }; }, "error"},
        Failure{"false from did register", [](auto& c) { c.registerAnswer = false; }, "begin the session"},
        Failure{"false from did pull", [](auto& c) { c.pullAnswer = false; }, "take the changes in"},
        Failure{"false from will finish", [](auto& c) { c.finishAnswer = false; }, "finish the session"},
        Failure{"an identifier handed back twice",
                [](auto& c) { c.mapId = [](auto&) { return String("second-1"); }; }, "which is in use"},
        Failure{"the root's identifier handed back",
                [](auto& c) { c.mapId = [](auto&) { return String("Root"); }; }, "\"Root\""},
        Failure{"an entity that the schema does not have", [](auto& c) { c.entityNames = {"x.Folder"}; },
                "x.Folder"},
        Failure{"an entity left out", [](auto& c) { c.entityNames = {LoomerEntity_Bookmarks_Folder}; },
                "does not sync the entity com.keldra.bookmarks.Bookmark"}));

TEST_F(SessionTest, CancelsWhenTakingChangesInTakesLongerThanTheClientSaid) {
  seed();
  const auto second = makeClient("second");
  second->pullTimeout = 5.0;
  second->answer = [this](auto&) {
    platform.clock.time.seconds += 6.0;
    return static_cast<int>(LoomerChangeAccepted);
  };
  EXPECT_THAT(second->sync(), HasSubstr("longer than 5 seconds"));
  EXPECT_EQ(second->text(), "");
}

TEST_F(SessionTest, ExceptionOfTheDataSourceIsPassedOnAfterTheSessionWasCancelled) {
  seed();
  first->addBookmark("", "C", "http://c/");
  first->onCall = [](const std::string& call) {
    if (call == "will finish") throw PlatformException("SaveFailed", "cannot save");
  };
  try {
    first->sync();
    FAIL() << "the exception did not come through";
  } catch (const PlatformException& exception) {
    EXPECT_EQ(exception.name(), "SaveFailed");
  }
  EXPECT_EQ(first->calls.back(), "will cancel");
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 3);
  EXPECT_FALSE(store().database().inTransaction());
}

TEST_F(SessionTest, ExceptionFromWillCancelDoesNotHideTheFirst) {
  seed();
  first->onCall = [](const std::string& call) {
    if (call == "did pull") throw std::runtime_error("first");
    if (call == "will cancel") throw std::runtime_error("second");
  };
  try {
    first->sync();
    FAIL() << "the exception did not come through";
  } catch (const std::runtime_error& exception) {
    EXPECT_STREQ(exception.what(), "first");
  }
  EXPECT_FALSE(store().database().inTransaction());
}

TEST_F(SessionTest, ValuesStoredInTheSessionArePartOfItExceptThoseOfWillCancel) {
  seed();
  LoomerClient* client = manager().clientWithIdentifier("first");
  client->setObject(Value("before"), "a");
  first->onCall = [&](const std::string& call) {
    LoomerClient& current = *first->sessionClient;
    if (call == "did register") {
      current.setObject(Value("early"), "a");
      EXPECT_EQ(current.objectForKey("a"), Value("early")) << "what was stored is read back at once";
    }
    if (call == "did pull") current.setObject(Value("late"), "b");
    if (call == "will cancel") current.setObject(Value("kept"), "c");
  };
  first->finishAnswer = false;
  EXPECT_NE(first->sync(), "");
  reopen();
  client = manager().clientWithIdentifier("first");
  EXPECT_EQ(client->objectForKey("a"), Value("before"));
  EXPECT_EQ(client->objectForKey("b"), std::nullopt);
  EXPECT_EQ(client->objectForKey("c"), Value("kept"));

  first->finishAnswer = true;
  EXPECT_EQ(first->sync(), "");
  reopen();
  client = manager().clientWithIdentifier("first");
  EXPECT_EQ(client->objectForKey("a"), Value("early"));
  EXPECT_EQ(client->objectForKey("b"), Value("late"));
}

TEST_F(SessionTest, RegistersTheClientFromTheDescription) {
  first = makeClient("new");
  EXPECT_EQ(first->sync(), "");
  ASSERT_NE(manager().clientWithIdentifier("new"), nullptr);
}

TEST_F(SessionTest, NoClientIsAnErrorAndNoSessionBegins) {
  first = makeClient("new");
  first->description = Url{"file:///nowhere/description.plist"};
  EXPECT_THAT(first->sync(),
              HasSubstr("its description (file:///nowhere/description.plist) cannot be used to "
                        "register it: No such file or directory."));
  EXPECT_THAT(first->calls, ElementsAre());
}

TEST_F(SessionTest, TheClientThatWasSetIsTheSessions) {
  first = makeClient("asked");
  first->set = manager().registerClientWithIdentifier("given", descriptionPath);
  ASSERT_EQ(first->sync(), "");
  EXPECT_EQ(first->sessionClient->clientIdentifier(), "given");
  EXPECT_EQ(manager().clientWithIdentifier("asked"), nullptr);
}

TEST_F(SessionTest, WaitsForAnotherSessionOnThePlatformsClock) {
  seed();
  loomer::TruthStore other(storePath);
  ASSERT_TRUE(other.begin(0));
  first->beginTimeout = 3.0;
  EXPECT_THAT(first->sync(), HasSubstr("still running after 3 seconds"));
  double slept = 0;
  for (const double each : platform.clock.sleeps) slept += each;
  EXPECT_NEAR(slept, 3.0, 1e-9);
  EXPECT_EQ(first->calls.back(), "will cancel");

  platform.clock.onSleep = [&] { other.database().rollback(); };
  EXPECT_EQ(first->sync(), "") << "the other session ended meanwhile";
}

TEST_F(SessionTest, ASessionOfTheSameClientThatEndedMeanwhileCancels) {
  seed();
  loomer::EmbeddedManager other(storePath);
  const auto twin = makeClient("first");
  twin->mode = LoomerSyncModeFast;
  first->onCall = [&](const std::string& call) {
    if (call != "begin timeout") return;
    LoomerManagerScope scope(other);
    EXPECT_EQ(twin->sync(), "");
  };
  EXPECT_THAT(first->sync(), HasSubstr("ended while this one waited"));
}

TEST_F(SessionTest, AClientThatCanReadAgainDoesSoOnceAnotherSessionOfItsEnded) {
  seed();
  loomer::EmbeddedManager other(storePath);
  const auto twin = makeClient("first");
  twin->mode = LoomerSyncModeSlow;
  twin->nodes = first->nodes;
  twin->children = first->children;
  first->onCall = [&](const std::string& call) {
    if (call != "begin timeout") return;
    LoomerManagerScope scope(other);
    twin->rename(twin->find("B"), "Bee");
    EXPECT_EQ(twin->sync(), "");
  };
  first->readsAgain = [&] {
    first->nodes = twin->nodes;
    first->children = twin->children;
    return true;
  };
  first->mode = LoomerSyncModeSlow;
  EXPECT_EQ(first->sync(), "");
  EXPECT_EQ(first->text(), "F(A@http://a/) Bee@http://b/");
  EXPECT_THAT(first->calls, IsSupersetOf({"read again", "records folders", "will finish"}));
  const auto second = makeClient("second");
  EXPECT_EQ(second->sync(), "");
  EXPECT_EQ(second->text(), first->text()) << "what the first had read before has undone nothing";
}

TEST_F(SessionTest, AClientThatIsNotUpToDateUnderTheLockReadsAgain) {
  seed();
  first->mode = LoomerSyncModeSlow;
  first->upToDate = false;
  first->readsAgain = [&] {
    first->addBookmark("", "Meanwhile", "http://m/");
    return true;
  };
  EXPECT_EQ(first->sync(), "");
  const auto registered = [](const std::string& call) { return call == "did register"; };
  EXPECT_EQ(std::count_if(first->calls.begin(), first->calls.end(), registered), 2)
      << "once for each reading";
  const auto second = makeClient("second");
  EXPECT_EQ(second->sync(), "");
  EXPECT_THAT(second->text(), HasSubstr("Meanwhile"));
}

TEST_F(SessionTest, LogKeepsWhoWhenWhatBeforeAndAfter) {
  seed();
  const auto second = makeClient("second");
  ASSERT_EQ(second->sync(), "");
  platform.clock.time.seconds += 100;
  second->rename(second->find("B"), "Bee");
  ASSERT_EQ(second->sync(), "");
  loomer::SessionLog log(store());
  const auto sessions = log.sessions();
  ASSERT_EQ(sessions.size(), 3u);
  EXPECT_EQ(sessions[2].client, "second");
  EXPECT_EQ(sessions[2].began, platform.clock.time);
  EXPECT_EQ(sessions[2].changed, 1u);
  EXPECT_EQ(sessions[1].delivered, 3u);
  const auto changes = log.changes(sessions[2].id);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].before->content.name, "B");
  EXPECT_EQ(changes[0].after->content.name, "Bee");
  EXPECT_EQ(log.changes(sessions[0].id).size(), 3u);
  EXPECT_FALSE(log.changes(sessions[0].id)[0].before.has_value());
}

TEST_F(SessionTest, LogKeepsWhatLostAConflictWithBothSides) {
  seed();
  const auto second = makeClient("second");
  ASSERT_EQ(second->sync(), "");
  first->rename(first->find("B"), "First's");
  ASSERT_EQ(first->sync(), "");
  second->rename(second->find("B"), "Second's");
  ASSERT_EQ(second->sync(), "");
  loomer::SessionLog log(store());
  const auto losses = log.losses(log.sessions().back().id);
  ASSERT_EQ(losses.size(), 1u);
  EXPECT_EQ(losses[0].attribute, "name");
  EXPECT_EQ(losses[0].clientValue, "Second's");
  EXPECT_EQ(losses[0].truthValue, "First's");
  EXPECT_TRUE(losses[0].clientWon);
  settle({first.get(), second.get()});
  EXPECT_EQ(first->text(), "F(A@http://a/) Second's@http://b/");
}

TEST_F(SessionTest, WhatWasDeletedBeforeACancelledSessionStaysDeleted) {
  const auto a = makeClient("a"), b = makeClient("b");
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  settle({a.get(), b.get()});
  a->remove(a->find("A"));
  a->finishAnswer = false;
  ASSERT_NE(a->sync(), "");
  a->finishAnswer = true;
  settle({a.get(), b.get()});
  EXPECT_EQ(b->text(), "B@http://b/");
  EXPECT_EQ(number("SELECT sum(cancelled) FROM clients"), 0);
}

}  // namespace
}  // namespace corvane
