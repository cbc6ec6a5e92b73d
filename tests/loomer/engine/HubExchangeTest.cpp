#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <new>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/loomer/engine/ComputersFixture.h"

namespace corvane {
namespace {

constexpr auto kWhole = std::filesystem::copy_options::recursive;

CORVANE_OVER_EACH_SERVICE(HubTest);

TEST_P(HubTest, WhatOneComputerAddsArrivesAtTheOtherInItsOrder) {
  const std::string folder = a->client->addFolder("", "F");
  a->client->addBookmark(folder, "1", "http://1/");
  a->client->addBookmark(folder, "2", "http://2/");
  a->client->addBookmark("", "3", "http://3/");
  settle();
  EXPECT_EQ(b->text(), "F(1@http://1/ 2@http://2/) 3@http://3/");
}

TEST_P(HubTest, EditsMovesAndDeletionsOfBothSidesMeet) {
  const std::string folder = a->client->addFolder("", "F");
  for (const char* name : {"1", "2", "3", "4"}) a->client->addBookmark(folder, name, "http://x/");
  settle();
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("3"));
  b->client->readdress(b->find("1"), "http://one/");
  b->client->move(b->find("4"), b->find("F"), 0);
  b->client->move(b->find("2"), "");
  settle();
  EXPECT_EQ(a->text(), "F(4@http://x/ one@http://one/) 2@http://x/");
}

TEST_P(HubTest, FirstSessionsOfTwoHistoriesMakeOne) {
  for (Computer* computer : {a.get(), b.get()}) {
    const std::string bar = computer->client->addSpecial("BookmarksBar");
    computer->client->addBookmark(bar, "Same", "http://same/");
  }
  a->client->addBookmark("", "Of a", "http://a/");
  b->client->addBookmark("", "Of b", "http://b/");
  settle();
  EXPECT_EQ(a->client->nodes.size(), 4u) << a->text();
  EXPECT_EQ(hub.live(), 4u);
}

TEST_P(HubTest, QuietSessionAsksOnceAndStoresNothing) {
  a->client->addBookmark("", "1", "http://1/");
  settle();
  const auto sessions = a->number("SELECT sessions FROM clients WHERE identifier = 'com.keldra.Pelto'");
  hub.calls.clear();
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.calls, std::vector<std::string>{"remote changes"});
  EXPECT_EQ(a->number("SELECT sessions FROM clients WHERE identifier = 'com.keldra.Pelto'"), sessions);
}

TEST_P(HubTest, AServiceUnregisteredDuringItsExchangeIsRegisteredAgain) {
  a->client->addBookmark("", "1", "http://1/");
  hub.onCall = [this](const std::string& call) {
    if (call != "remote changes") return;
    hub.onCall = nullptr;
    loomer::ClientTable clients(a->store());
    loomer::forgetClient(a->store(), *clients.find(loomer::kHubClientIdentifier));
  };
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(std::count(hub.calls.begin(), hub.calls.end(), "remote changes"), 2)
      << "both before the session of the bookmarks";
  settle();
  EXPECT_EQ(b->text(), "1@http://1/");
}

TEST_P(HubTest, AServiceThatDoesNotStayRegisteredIsReported) {
  a->store().database().execute(
      "CREATE TRIGGER unregister AFTER INSERT ON clients WHEN NEW.identifier = 'com.keldra.Pelto' BEGIN"
      " DELETE FROM clients WHERE id = NEW.id; END",
      "test");
  a->client->addBookmark("", "1", "http://1/");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(platform.log.messages.size(), 1u);
  EXPECT_THAT(platform.log.messages[0],
              testing::HasSubstr("the client com.keldra.Pelto was unregistered by another process"));
  platform.log.expectMessages(platform.log.messages);
  a->store().database().execute("DROP TRIGGER unregister", "test");
}

TEST_P(HubTest, SwitchedOffNothingLeavesTheComputer) {
  hub.enabled = false;
  a->client->addBookmark("", "1", "http://1/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.calls, std::vector<std::string>{"remote changes"});
  EXPECT_EQ(hub.state.now.revision, 0);
  hub.enabled = true;
  settle();
  EXPECT_EQ(b->text(), "1@http://1/");
}

TEST_P(HubTest, OfflineTheComputerSyncsAloneAndCatchesUp) {
  settle();
  hub.onCall = [](const std::string&) { failAsService("there is no network."); };
  a->client->addBookmark("", "1", "http://1/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->number("SELECT count(*) FROM records WHERE id > 0"), 1);
  EXPECT_EQ(platform.log.messages.size(), 1u) << "one line and no more";
  expectAlone(1, "there is no network.");
  hub.onCall = nullptr;
  settle();
  EXPECT_EQ(b->text(), "1@http://1/");
}

TEST_P(HubTest, ComputersThatGiveAtOneMomentTakeTurns) {
  settle();
  a->client->addBookmark("", "Of a", "http://a/");
  b->client->addBookmark("", "Of b", "http://b/");
  hub.onCall = [this](const std::string& call) {
    if (call != "push") return;
    hub.onCall = nullptr;
    ASSERT_EQ(b->sync(), "");
  };
  ASSERT_EQ(a->sync(), "");
  settle();
  EXPECT_EQ(a->client->nodes.size(), 2u);
}

TEST_P(HubTest, CutOffBeforeThePushItIsGivenAgain) {
  a->client->addBookmark("", "1", "http://1/");
  failOnce("push");
  ASSERT_EQ(a->sync(), "");
  expectAlone();
  EXPECT_EQ(hub.live(), 0u);
  settle();
  EXPECT_EQ(b->text(), "1@http://1/");
}

/// A service whose table is changed by hand.
class TableTest : public ComputersTest {
 protected:
  TableTest() : ComputersTest(MemoryHub::Kind::table) {}
};

/// A service that is a chain of objects at a place.
class ChainTest : public ComputersTest {
 protected:
  ChainTest() : ComputersTest(MemoryHub::Kind::chain) {}
};

TEST_F(ChainTest, APlaceWithoutRoomIsReadAndGivenNothingUntilThereIsRoom) {
  settle();
  for (const char* const full : {"put new", "put"}) {
    SCOPED_TRACE(full);
    const std::string title = std::string(full) + (full[3] ? "" : std::string(300'000, 'x'));
    b->client->addBookmark("", std::string(full) + " of b", "http://b/");
    ASSERT_EQ(b->sync(), "");
    hub.onPlaceCall = [&](const std::string& call) {
      if (call == full) throw pelto::PlaceFullException("There is no room.");
    };
    a->client->addBookmark("", title, "http://a/");
    platform.log.expectMessages(
        {"There is no room at the online service: what was changed here stays on this "
         "computer until there is"});
    ASSERT_EQ(a->sync(), "");
    EXPECT_NE(a->find(std::string(full) + " of b"), "") << "what others gave is taken in";
    ASSERT_EQ(b->sync(), "");
    EXPECT_EQ(b->find(title), "");
    hub.onPlaceCall = nullptr;
    settle();
    EXPECT_NE(b->find(title), "");
  }
}

TEST_F(ChainTest, AQuietSessionTakesTwoRequestsAnEditFiveAndItsTakingInFour) {
  settle();
  a->client->addBookmark("", "1", "http://1/");
  settle();
  const auto requestsOf = [this](Computer& computer) {
    hub.placeRequests = 0;
    EXPECT_EQ(computer.sync(), "");
    return hub.placeRequests;
  };
  EXPECT_EQ(requestsOf(*a), 2u);
  a->client->rename(a->find("1"), "one");
  EXPECT_EQ(requestsOf(*a), 5u);
  EXPECT_EQ(requestsOf(*b), 4u);
  EXPECT_EQ(b->text(), "one@http://1/");
  b->client->rename(b->find("one"), "1");
  EXPECT_EQ(requestsOf(*b), 5u);
  EXPECT_EQ(requestsOf(*b), 2u);
}

TEST_F(ChainTest, APushOfUnknownOutcomeHoldsBackNothingThatOthersGave) {
  settle();
  a->client->addBookmark("", "Of a", "http://a/");
  failOnce("remote changes");
  ASSERT_EQ(a->sync(), "");
  expectAlone();
  b->client->addBookmark("", "Of b", "http://b/");
  ASSERT_EQ(b->sync(), "");
  hub.onPlaceCall = [](const std::string& call) {
    if (call == "put new") failAsService("it was cut off.");
  };
  ASSERT_EQ(a->sync(), "");
  expectAlone();
  EXPECT_NE(a->find("Of b"), "");
  hub.onPlaceCall = [](const std::string& call) {
    if (call == "put new") throw pelto::PlaceFullException("There is no room.");
  };
  ASSERT_EQ(a->sync(), "");
  expectAlone(1, "There is no room.");
  hub.onPlaceCall = nullptr;
  settle();
  EXPECT_NE(b->find("Of a"), "");
}

TEST_P(HubTest, WhoWasOvertakenSinceTheSessionBeganTakesThatInAndGivesInTheSameRun) {
  settle();
  a->client->addBookmark("", "Of a", "http://a/");
  hub.onCall = [this](const std::string& call) {
    if (call != "remote changes") return;
    hub.onCall = [this](const std::string& next) {
      if (next != "push") return;
      hub.onCall = nullptr;
      b->client->addBookmark("", "Of b", "http://b/");
      ASSERT_EQ(b->sync(), "");
      hub.calls.clear();
    };
  };
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.calls, (std::vector<std::string>{"remote changes", "has push", "push", "pushed"}));
  EXPECT_EQ(hub.live(), 2u);
  ASSERT_EQ(b->sync(), "");
  EXPECT_NE(b->find("Of a"), "");
}

class CutOffAfterThePush : public HubTest {
 protected:
  /// The push stands, and the computer does not hear of it.
  void syncCutOff() {
    failOnce("pushed");
    ASSERT_EQ(a->sync(), "");
    expectAlone();
  }
};

CORVANE_OVER_EACH_SERVICE(CutOffAfterThePush);

TEST_P(CutOffAfterThePush, NothingIsThereTwice) {
  a->client->addBookmark("", "1", "http://1/");
  syncCutOff();
  EXPECT_EQ(hub.live(), 1u);
  settle();
  EXPECT_EQ(b->text(), "1@http://1/");
}

TEST_P(CutOffAfterThePush, LaterEditsOnEitherComputerStand) {
  a->client->addBookmark("", "1", "http://1/");
  a->client->addBookmark("", "2", "http://2/");
  settle();
  a->client->rename(a->find("1"), "one");
  a->client->rename(a->find("2"), "two");
  a->client->addBookmark("", "3", "http://3/");
  syncCutOff();
  ASSERT_EQ(b->sync(), "");
  b->client->rename(b->find("two"), "zwei");
  b->client->remove(b->find("3"));
  ASSERT_EQ(b->sync(), "");
  a->client->rename(a->find("one"), "uno");
  settle();
  EXPECT_EQ(a->text(), "uno@http://1/ zwei@http://2/");
}

TEST_P(CutOffAfterThePush, AServiceThatIsEmptiedAfterTwoOfThemTakesNothing) {
  ASSERT_EQ(a->sync(), "");
  a->client->addBookmark("", "1", "http://1/");
  syncCutOff();
  a->client->addBookmark("", "2", "http://2/");
  failOnce("remote changes");
  ASSERT_EQ(a->sync(), "");
  expectAlone();
  syncCutOff();  // knows of the first one, and gives the second bookmark
  EXPECT_EQ(hub.live(), 2u);
  hub.empty();
  platform.log.expectMessages({kPutBack});
  settle();
  EXPECT_EQ(b->text(), "1@http://1/ 2@http://2/");
}

TEST_P(CutOffAfterThePush, ARestartBeforeTheCommitIsTheSame) {
  a->client->addBookmark("", "1", "http://1/");
  settle();
  a->client->readdress(a->find("1"), "http://one/");
  // What a run leaves on the disk that is killed there.
  const std::string killed = platform.directory / "home of a, killed";
  hub.onCall = [&](const std::string& call) {
    if (call == "pushed") std::filesystem::copy(platform.directory / "home of a", killed, kWhole);
  };
  ASSERT_EQ(a->sync(), "");
  hub.onCall = nullptr;
  ASSERT_TRUE(std::filesystem::exists(killed));
  a = std::make_unique<Computer>(std::move(a->client), killed, hub);
  a->client->readdress(a->find("1"), "http://uno/");
  settle();
  EXPECT_EQ(b->text(), "1@http://uno/");
}

TEST_P(HubTest, EmptiedServiceIsFilledAgain) {
  a->client->addBookmark("", "1", "http://1/");
  a->client->addBookmark("", "2", "http://2/");
  settle();
  hub.empty();
  b->client->rename(b->find("2"), "two");
  platform.log.expectMessages({kPutBack});
  settle();
  EXPECT_EQ(a->text(), "1@http://1/ two@http://2/");
  EXPECT_EQ(hub.live(), 2u);
}

TEST_P(HubTest, EmptiedServiceIsFilledWithTheSameRecordsWhateverWasDoneToThemSince) {
  b->client->addFolder("", "F");
  b->client->addBookmark("", "1", "http://1/");
  settle();
  EXPECT_EQ(a->identifiers(), b->identifiers());
  hub.empty();
  a->client->rename(a->find("1"), "one");
  a->client->readdress(a->find("one"), "http://one/");
  a->client->move(a->find("one"), a->find("F"));
  platform.log.expectMessages({kPutBack});
  settle();
  EXPECT_EQ(b->client->nodes.size(), 2u) << b->text();
  EXPECT_EQ(a->identifiers(), b->identifiers());
}

TEST_P(HubTest, FirstSessionsOfTwoHistoriesAgreeOnIdentifiers) {
  for (Computer* computer : {a.get(), b.get()}) {
    const std::string folder = computer->client->addFolder("", "F");
    computer->client->addBookmark(folder, "Same", "http://same/");
  }
  settle();
  EXPECT_EQ(a->identifiers().size(), 2u);
  EXPECT_EQ(a->identifiers(), b->identifiers());
}

TEST_P(HubTest, RestoredServiceTakesNothingBack) {
  const std::string folder = a->client->addFolder("", "F");
  for (const char* name : {"1", "2", "3"}) a->client->addBookmark(folder, name, "http://x/");
  settle();
  const MemoryHub::State backup = hub.state;
  a->client->rename(a->find("1"), "one");
  a->client->move(a->find("2"), "");
  a->client->addBookmark("", "4", "http://4/");
  settle();
  hub.state = backup;
  // Another revision of the same number makes the numbers alone look as if nothing had happened.
  b->client->addBookmark("", "5", "http://5/");
  platform.log.expectMessages({kPutBack});
  ASSERT_EQ(b->sync(), "");
  b->client->addBookmark("", "6", "http://6/");
  settle();
  EXPECT_EQ(a->text(), "F(one@http://x/ 3@http://x/) 2@http://x/ 4@http://4/ 5@http://5/ 6@http://6/");
  EXPECT_EQ(hub.live(), 7u);
}

TEST_P(HubTest, WhateverKindOfExceptionEndsAnExchangeIsOneLineInTheLog) {
  struct Row {
    const char* phrase;
    std::function<void()> raise;
    const char* told;
  };
  const Row rows[] = {
      {"the platform's", [] { failAsService("it was cut off."); }, "it was cut off."},
      {"the schema's", [] { throw loomer::SchemaProblem("no schema."); }, "no schema."},
      {"a cancelled session's", [] { throw loomer::SessionCancelled("cancelled."); }, "cancelled."},
      {"the language's", [] { throw std::bad_alloc(); }, "std::bad_alloc"},
      {"nobody's", [] { throw 7; }, "an exception of an unknown kind."},
  };
  for (const char* call : {"remote changes", "push"}) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(row.phrase) + " at " + call);
      a->client->addBookmark("", row.phrase, "http://x/");
      hub.onCall = [&](const std::string& now) {
        if (now == call) row.raise();
      };
      expectAlone(1, row.told);
      EXPECT_EQ(a->sync(), "") << "the file is synced all the same";
      hub.onCall = nullptr;
    }
  }
  settle();
}

TEST_P(HubTest, AMissingOrDamagedSchemaEndsTheExchangeAlone) {
  a->client->addBookmark("", "1", "http://1/");
  settle();
  const std::string elsewhere = platform.directory / "Elsewhere.syncschema";
  platform.realFiles.write(elsewhere, contents(schemaPath));
  a->client->schema = Url{"file://" + elsewhere};
  a->client->addBookmark("", "2", "http://2/");
  platform.realFiles.write(schemaPath, "damaged");
  expectAlone(1,
              "The sync schema " + schemaPath +
                  " cannot be used: it is no dictionary but a string. Install the program again to bring the "
                  "file back.");
  EXPECT_EQ(a->sync(), "");
  platform.realFiles.remove(schemaPath);
  expectAlone(1, "The sync schema " + schemaPath +
                     " cannot be used: No such file or directory. Install the program again to bring the "
                     "file back.");
  EXPECT_EQ(a->sync(), "");
  platform.realFiles.write(schemaPath, contents(elsewhere));
  settle();
}

TEST_P(HubTest, AnotherAccountIsMetAnew) {
  a->client->addBookmark("", "1", "http://1/");
  settle();
  hub.state = {};
  hub.state.now.account = "0B000000-0000-4000-8000-000000000002";
  settle();
  EXPECT_EQ(b->text(), "1@http://1/");
  EXPECT_EQ(hub.live(), 1u);
}

TEST_P(HubTest, ComputerThatStayedAwayForLongHearsOfEveryDeletion) {
  for (const char* name : {"1", "2", "3"}) a->client->addBookmark("", name, "http://x/");
  settle();
  a->client->remove(a->find("2"));
  ASSERT_EQ(a->sync(), "");
  hub.dropTombstones();
  settle();
  EXPECT_EQ(b->text(), "1@http://x/ 3@http://x/");
}

/// Computers of which one deletes so much that the others ask.
class BulkDeletion : public HubTest {
 protected:
  void bookmarkEverywhere(int count) {
    for (int i = 0; i < count; ++i) a->client->addBookmark("", std::to_string(i), "http://x/");
    settle();
  }
  void remove(int from, int to) {
    for (int i = from; i < to; ++i) a->client->remove(a->find(std::to_string(i)));
    ASSERT_EQ(a->sync(), "") << "the guard of the file lets it pass";
  }
  /// What the rows of the account are when somebody has emptied its table. Of a chain, nobody can do more
  /// than delete everything.
  void emptyTable() {
    if (hub.kind == MemoryHub::Kind::chain) return deleteEverything();
    hub.state.records.clear();
    hub.state.revisions.clear();
    hub.state.forgotten = ++hub.state.now.revision;
    hub.state.now.pushId = "0E000000-0000-4000-8000-000000000004";
    hub.state.pushIds[hub.state.now.revision] = hub.state.now.pushId.toString();
  }
  void deleteEverything() {
    const auto stranger = hub.connect(platform.directory / "home of a stranger");
    pelto::HubPush push{stranger->remoteChanges({}).now, "0E000000-0000-4000-8000-0000000000FF", {}};
    for (const auto& [id, record] : hub.state.records) {
      push.records.emplace_back().id = id;
      push.records.back().deleted = true;
    }
    ASSERT_TRUE(stranger->push(push));
  }
  /// The computer syncs on its own, and says of how many of how many it asks.
  void expectRefused(Computer& computer, const std::string& howMany) {
    const std::size_t before = computer.client->nodes.size();
    const auto service = hub.state.now;
    ASSERT_EQ(computer.sync(), "") << "the session of the file goes on";
    EXPECT_EQ(computer.client->nodes.size(), before);
    EXPECT_EQ(hub.state.now, service) << "nothing changes on either side";
    EXPECT_EQ(computer.number("SELECT count(*) FROM records WHERE id > 0"),
              static_cast<std::int64_t>(before));
    ASSERT_EQ(platform.log.messages.size(), 1u);
    const std::string said = platform.log.messages.front();
    EXPECT_TRUE(
        said.starts_with("Bookmarks were synced on this computer alone, not with the online service: "
                         "The client com.keldra.Pelto lacks " +
                         howMany + " bookmarks and folders"))
        << said;
    for (const char* command : {"plan", "approve", "restore"})
      EXPECT_NE(said.find("`loomerctl " + std::string(command) + " com.keldra.Pelto`"), std::string::npos)
          << said;
    platform.log.messages.clear();
  }
  std::int64_t service(Computer& computer) {
    return loomer::ClientTable(computer.store()).find(loomer::kHubClientIdentifier)->id;
  }
  void approve(Computer& computer) {
    EXPECT_TRUE(loomer::RefusalTable(computer.store()).approve(service(computer), platform.clock.now()));
  }
};

CORVANE_OVER_EACH_SERVICE(BulkDeletion);

TEST_P(BulkDeletion, AnEmptiedTableDeletesNothingHereUntilSomebodyApproves) {
  bookmarkEverywhere(102);
  emptyTable();
  for (Computer* computer : {a.get(), b.get()}) {
    expectRefused(*computer, "102 of 102");
    expectRefused(*computer, "102 of 102");
  }
  a->client->addBookmark("", "Later", "http://later/");
  expectRefused(*a, "102 of 102");
  loomer::ClientTable(a->store()).setRestorePending(service(*a), true);
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 103u) << "one computer gives everything back";
  settle();
  EXPECT_EQ(b->client->nodes.size(), 103u) << "and the others need not be asked any more";
}

TEST_P(BulkDeletion, WhatWasDeletedElsewhereSinceTheLastExchangeIsAskedForAsOne) {
  bookmarkEverywhere(60);
  remove(0, 29);
  remove(29, 44);
  expectRefused(*b, "44 of 60");
  approve(*b);
  settle();
  EXPECT_EQ(b->client->nodes.size(), 16u);
}

TEST_P(BulkDeletion, OfAllThereWasIsAskedForHoweverLittle) {
  bookmarkEverywhere(5);
  remove(0, 4);
  remove(4, 5);
  expectRefused(*b, "5 of 5");
}

TEST_P(BulkDeletion, AnApprovalServesForNothingElse) {
  bookmarkEverywhere(60);
  remove(0, 29);
  remove(29, 44);
  expectRefused(*b, "44 of 60");
  approve(*b);
  remove(44, 50);
  expectRefused(*b, "50 of 60");
  approve(*b);
  settle();
  EXPECT_EQ(b->client->nodes.size(), 10u);
}

TEST_P(BulkDeletion, WithinTheGuardsLimitsNobodyIsAsked) {
  bookmarkEverywhere(60);
  remove(0, 30);
  settle();
  EXPECT_EQ(b->client->nodes.size(), 30u);
  remove(30, 50);
  settle();
  EXPECT_EQ(b->client->nodes.size(), 10u);
}

TEST_P(BulkDeletion, WhatThisComputerDeletesItselfIsAskedForOnceAtMost) {
  bookmarkEverywhere(60);
  for (int i = 0; i < 44; ++i) a->client->remove(a->find(std::to_string(i)));
  EXPECT_NE(a->sync(), "");
  loomer::ClientTable clients(a->store());
  EXPECT_TRUE(loomer::RefusalTable(a->store()).approve(clients.find("a")->id, platform.clock.now()));
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 16u);
}

TEST_P(BulkDeletion, AServiceThatIsGivenEverythingAnewDeletesNothingElsewhere) {
  bookmarkEverywhere(60);
  loomer::ClientTable(a->store()).setResetPending(service(*a), true);
  settle();
  EXPECT_EQ(b->client->nodes.size(), 60u);
}

TEST_P(HubTest, FullAccountLeavesAdditionsOnTheComputerUntilThereIsRoom) {
  hub.limit = 2;
  for (const char* name : {"1", "2", "3"}) a->client->addBookmark("", name, "http://x/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 2u);
  platform.log.expectMessages(
      {"The account at the online service is full: 1 bookmarks and folders stay on this computer"});
  a->client->rename(a->client->find("3"), "three");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "2@http://x/ three@http://x/") << "changes still go";
  EXPECT_EQ(a->client->nodes.size(), 3u);
  hub.limit = 3;
  settle();
  EXPECT_EQ(b->client->nodes.size(), 3u);
}

TEST_P(HubTest, AFolderMoveThatWaitsForAnAnswerOfAFullAccountGoesAtTheNextRun) {
  const std::string folder = a->client->addFolder("", "F");
  const std::string target = a->client->addFolder("", "G");
  settle();
  hub.limit = 2;
  a->client->addFolder("", "New");
  a->client->move(folder, target);
  ASSERT_EQ(a->sync(), "");
  platform.log.expectMessages(
      {"The account at the online service is full: 1 bookmarks and folders stay on this computer"});
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "F() G()") << "the move is withheld after a refused folder change";
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "G(F())") << "though nothing changed here since";
}

TEST_P(HubTest, WhatIsTooLongForTheServiceStaysOnTheComputerUntilItIsShortened) {
  const std::string longest(pelto::kLongestHubRecord - 1, 'u');
  a->client->addBookmark("", "1", longest);
  a->client->addBookmark("", "2", longest + "u");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 1u);
  platform.log.expectMessages(
      {"1 bookmarks and folders are too long for the online service and stay on this computer"});
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "1@" + longest);
  ASSERT_EQ(a->sync(), "") << "and nothing is said of it again";
  a->client->rename(a->client->find("2"), "");
  settle();
  EXPECT_EQ(b->client->nodes.size(), 2u);
}

TEST_P(HubTest, WhatAFullAccountLeftOutOfAPushThatWasCutOffIsOfferedAgain) {
  hub.limit = 1;
  for (const char* name : {"1", "2"}) a->client->addBookmark("", name, "http://x/");
  failOnce("pushed");
  ASSERT_EQ(a->sync(), "");
  expectAlone();
  EXPECT_EQ(hub.live(), 1u);
  hub.limit = 2;
  settle();
  EXPECT_EQ(b->client->nodes.size(), 2u);
}

TEST_P(HubTest, WhatAFullAccountLeftOutAndAnotherComputerGaveKeepsItsPlace) {
  hub.limit = 1;
  for (const char* name : {"1", "2"}) a->client->addBookmark("", name, "http://x/");
  ASSERT_EQ(a->sync(), "");
  platform.log.expectMessages(
      {"The account at the online service is full: 1 bookmarks and folders stay on this computer"});
  hub.limit = 2;
  b->client->addBookmark("", "1", "http://x/");
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(a->sync(), "");
  hub.limit = 3;
  a->client->addBookmark("", "3", "http://x/", 0);
  settle();
  EXPECT_EQ(b->text(), "3@http://x/ 1@http://x/ 2@http://x/");
}

TEST_P(CutOffAfterThePush, AServicePutBackSinceTakesNothingWithIt) {
  settle();
  for (int i = 0; i < 30; ++i) a->client->addBookmark("", std::to_string(i), "http://x/");
  const MemoryHub::State before = hub.state;
  syncCutOff();
  a->client->addBookmark("", "Later", "http://later/");
  for (const char* call : {"remote changes", "push"}) {
    failOnce(call);
    ASSERT_EQ(a->sync(), "");
    expectAlone();
  }
  hub.state = before;
  platform.log.expectMessages({kPutBack});
  settle();
  EXPECT_EQ(a->client->nodes.size(), 31u);
  EXPECT_EQ(hub.live(), 31u);
}

TEST_P(HubTest, MuchIsGivenInSeveralPushes) {
  bookmarkMuch(2400);
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 2400u);
  EXPECT_EQ(hub.state.now.revision, 2) << "2,000 records, and the others";
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), a->text());
}

TEST_P(HubTest, ASlowComputerGivesAsMuchAtOnceAsTheLineCarries) {
  bookmarkMuch(6400);
  platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
    const bool isJournal =
        call.operation == FileOperation::writeAtomically && call.path.find("/Journal-") != std::string::npos;
    if (isJournal) platform.clock.time.seconds += 30;
    return std::error_code();
  };
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 6400u);
  EXPECT_EQ(hub.state.now.revision, 2) << "2,000 records, and the others";
}

TEST_P(HubTest, APushGrowsToWhatTheLineCarriesInFourSeconds) {
  bookmarkMuch(4400);
  hub.onCall = [this](const std::string& call) {
    if (call == "push") platform.clock.time.seconds += 3.5;
  };
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 4400u);
  EXPECT_EQ(hub.state.now.revision, 3) << "2,000 records, 2,285, and the others";
}

TEST_P(HubTest, OverASlowLineMuchIsGivenOverSeveralRuns) {
  bookmarkMuch(3500);
  hub.onCall = [this](const std::string& call) {
    if (call == "push") platform.clock.time.seconds += 60;
  };
  ASSERT_EQ(a->sync(), "");
  const std::size_t first = hub.live();
  EXPECT_GE(first, 2000u);
  EXPECT_LT(first, 3500u);
  ASSERT_EQ(a->sync(), "");
  EXPECT_GT(hub.live(), first) << "what was given is kept";
  hub.onCall = nullptr;
  settle();
  EXPECT_EQ(hub.live(), 3500u);
}

TEST_P(HubTest, DeletionsAndChangesAreLeftForTheNextPushToo) {
  const std::vector<std::string> bookmarks = bookmarkMuch(3000);
  settle();
  for (std::size_t i = 0; i < 1200; ++i) a->client->remove(bookmarks[i]);
  ASSERT_EQ(a->sync(), "");
  for (std::size_t i = 1200; i < bookmarks.size(); ++i) a->client->readdress(bookmarks[i], "http://y/");
  settle();
  EXPECT_EQ(hub.live(), 1800u);
  EXPECT_EQ(b->client->nodes.size(), 1800u);
}

TEST_P(HubTest, ResetReplacesWhatTheServiceHolds) {
  const std::string folder = a->client->addFolder("", "F");
  a->client->addBookmark(folder, "1", "http://1/");
  settle();
  loomer::ClientTable clients(a->store());
  clients.setResetPending(clients.find(loomer::kHubClientIdentifier)->id, true);
  settle();
  EXPECT_FALSE(clients.find(loomer::kHubClientIdentifier)->resetPending) << "also when nothing has changed";
  EXPECT_EQ(b->text(), "F(1@http://1/)");
  EXPECT_EQ(hub.live(), 2u);
}

TEST_F(TableTest, RecordThatBecameAnotherKindDoesNotKeepTheRestFromBeingExchanged) {
  a->client->addBookmark("", "1", "http://1/");
  settle();
  pelto::HubRecord& record = hub.state.records.begin()->second;
  record.folder = true;
  record.url = String();
  hub.state.revisions.begin()->second = ++hub.state.now.revision;
  hub.state.now.pushId = "0C000000-0000-4000-8000-000000000003";
  hub.state.pushIds[hub.state.now.revision] = hub.state.now.pushId.toString();
  a->client->rename(a->find("1"), "changed here");
  a->client->addBookmark("", "2", "http://2/");
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(a->sync(), "");
    ASSERT_EQ(b->sync(), "");
  }
  EXPECT_NE(b->find("2"), "");
}

TEST_F(TableTest, AnEarlierStateIsToldOnceARun) {
  a->client->addBookmark("", "1", "http://1/");
  settle();
  hub.empty();
  int pushes = 0;
  hub.onCall = [&](const std::string& call) {
    if (call != "push" || ++pushes > 3) return;
    ++hub.state.now.revision;
    hub.state.now.pushId = "0D000000-0000-4000-8000-00000000000" + std::to_string(pushes);
    hub.state.pushIds[hub.state.now.revision] = hub.state.now.pushId.toString();
  };
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(pushes, 4) << "it was overtaken three times";
  EXPECT_EQ(platform.log.messages.size(), 1u);
  platform.log.expectMessages(platform.log.messages);
}

TEST_P(HubTest, AccountFullOfBytesLeavesOutWhatDoesNotFit) {
  hub.byteLimit = 40;
  a->client->addBookmark("", "Short", "http://s/");
  a->client->addBookmark("", "Long", "http://a-rather-long-address.example.com/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(hub.live(), 1u);
  platform.log.expectMessages(
      {"The account at the online service is full: 1 bookmarks and folders stay on this computer"});
  hub.byteLimit = 400;
  settle();
  EXPECT_EQ(b->client->nodes.size(), 2u);
}

}  // namespace
}  // namespace corvane
