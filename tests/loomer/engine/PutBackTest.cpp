#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubPast.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tests/loomer/engine/ComputersFixture.h"

namespace corvane {
namespace {

// A service that lost its last pushes, as one does whose standby server takes over, or all since a backup.
class PutBackTest : public HubTest {
 protected:
  void TearDown() override {
    for (const std::string& each : platform.log.messages) {
      EXPECT_TRUE(each == kPutBack || each.ends_with("with the online service: it was cut off.")) << each;
    }
    platform.log.expectMessages(platform.log.messages);
    HubTest::TearDown();
  }

  // Both computers hold F[1 2 3] 4 5 6, and a push more than the service will be put back to.
  void begin() {
    const std::string folder = a->client->addFolder("", "F");
    for (const char* name : {"1", "2", "3"}) add(*a, name, folder);
    for (const char* name : {"4", "5", "6"}) add(*a, name);
    settle();
    backup = hub.state;
  }
  // The same with two other computers, at an empty service.
  void beginAnew(const std::string& with) {
    a = makeComputer("a " + with);
    b = makeComputer("b " + with);
    hub.state = MemoryHub().state;
    begin();
  }

  static void add(Computer& computer, const std::string& name, const std::string& folder = "", int at = -1) {
    computer.client->addBookmark(folder, name, "http://" + name + "/", at);
  }
  static void sync(Computer& computer) { ASSERT_EQ(computer.sync(), ""); }
  // The last session that changed something.
  static void undoLast(Computer& computer) {
    std::int64_t last = 0;
    loomer::SessionLog(computer.store()).newestFirst([&](const loomer::SessionEntry& entry) {
      if (entry.changed > 0) last = entry.id;
      return last == 0;
    });
    ASSERT_TRUE(loomer::undoSession(computer.store(), "somebody", last, false).session);
  }
  // The tree by names alone.
  std::string names() const {
    std::vector<kit::TreeNode> tree = a->client->tree();
    forgetAddresses(tree);
    return kit::printTree(tree);
  }
  static void forgetAddresses(std::vector<kit::TreeNode>& nodes) {
    for (kit::TreeNode& node : nodes) {
      if (!node.folder) node.url = String("http://" + node.label);
      forgetAddresses(node.children);
    }
  }

  MemoryHub::State backup;
};

CORVANE_OVER_EACH_SERVICE(PutBackTest);

TEST_P(PutBackTest, EditsOfOtherComputersSinceStand) {
  begin();
  add(*a, "7");
  sync(*a);
  hub.state = backup;
  b->client->rename(b->find("1"), "one");
  b->client->remove(b->find("2"));
  b->client->move(b->find("4"), b->find("F"));
  sync(*b);
  settle();
  EXPECT_EQ(names(), "F(one 3 4) 5 6 7");
}

TEST_P(PutBackTest, EditsThatTheServiceLostAreGivenAgain) {
  begin();
  add(*a, "7");
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("2"));
  a->client->move(a->find("4"), a->find("F"));
  a->client->move(a->find("6"), "", 1);
  sync(*a);
  hub.state = backup;
  settle();
  EXPECT_EQ(names(), "F(one 3 4) 6 5 7");
}

TEST_P(PutBackTest, WhatBothComputersGiveAgainIsThereOnce) {
  begin();
  add(*a, "7");
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("2"));
  a->client->move(a->find("4"), a->find("F"));
  settle();
  hub.state = backup;
  a->client->readdress(a->find("7"), "http://seven/");
  b->client->remove(b->find("3"));
  settle();
  EXPECT_EQ(a->text(), "F(one@http://1/ 4@http://4/) 5@http://5/ 6@http://6/ 7@http://seven/");
  EXPECT_EQ(hub.live(), 6u);
}

TEST_P(PutBackTest, ANameChangedBeforeAndAnAddressChangedSinceBothStand) {
  begin();
  a->client->rename(a->find("1"), "one");
  sync(*a);
  hub.state = backup;
  b->client->readdress(b->find("1"), "http://one/");
  sync(*b);
  settle();
  EXPECT_EQ(a->text().substr(0, 17), "F(one@http://one/");
}

TEST_P(PutBackTest, AnEditOfWhatAnotherComputerGaveAgainStands) {
  begin();
  a->client->rename(a->find("1"), "one");
  add(*a, "7");
  add(*a, "8");
  settle();
  hub.state = backup;
  sync(*a);
  b->client->rename(b->find("one"), "uno");
  b->client->rename(b->find("7"), "seven");
  b->client->remove(b->find("8"));
  settle();
  EXPECT_EQ(names(), "F(uno 2 3) 4 5 6 seven");
}

TEST_P(PutBackTest, WhatWasDeletedSinceStaysDeletedAlsoWhereItHadBeenLost) {
  begin();
  a->client->rename(a->find("1"), "one");
  add(*a, "7");
  settle();
  hub.state = backup;
  sync(*b);
  b->client->remove(b->find("one"));
  b->client->remove(b->find("7"));
  sync(*b);
  settle();
  EXPECT_EQ(names(), "F(2 3) 4 5 6");
}

TEST_P(PutBackTest, WhatWasDeletedWhileTheServiceHadLostItStaysDeletedWhenItIsGivenAgain) {
  begin();
  add(*a, "7");
  settle();
  hub.state = backup;
  a->client->remove(a->find("7"));
  sync(*a);
  sync(*b);  // gives it again
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 4 5 6");
  // Whoever knows of the deletion may bring it back.
  add(*b, "7");
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 4 5 6 7");
}

TEST_P(PutBackTest, WhatWasDeletedWhileItWasLostStaysDeletedWhereverItIsGivenAgain) {
  begin();
  a->client->move(a->find("4"), a->find("F"));
  settle();
  hub.empty();
  a->client->remove(a->find("4"));
  failOnce("remote changes");
  sync(*a);  // alone
  sync(*a);
  sync(*b);  // gives it again
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 5 6");
}

TEST_P(PutBackTest, OrdersOfBothSidesStand) {
  begin();
  a->client->move(a->find("3"), a->find("F"), 0);
  sync(*a);
  hub.state = backup;
  b->client->move(b->find("6"), "", 1);
  sync(*b);
  settle();
  EXPECT_EQ(names(), "F(3 1 2) 6 4 5");
}

TEST_P(PutBackTest, AnOrderGivenAgainAndChangedSinceStands) {
  begin();
  a->client->move(a->find("3"), a->find("F"), 0);
  settle();
  hub.state = backup;
  sync(*a);
  b->client->move(b->find("3"), b->find("F"), 1);
  settle();
  EXPECT_EQ(names(), "F(1 3 2) 4 5 6");
}

TEST_P(PutBackTest, AnOrderFromBeforeThatIsGivenAgainUndoesNoneThatCameAfterIt) {
  begin();
  a->client->move(a->find("3"), a->find("F"), 0);
  sync(*a);
  hub.empty();
  sync(*b);
  settle();
  EXPECT_EQ(names(), "F(3 1 2) 4 5 6") << "of an emptied service";

  const MemoryHub::State first = hub.state;
  a->client->move(a->find("6"), "", 1);
  settle();
  a->client->move(a->find("5"), "", 1);
  sync(*a);
  hub.state = first;
  sync(*b);
  settle();
  EXPECT_EQ(names(), "F(3 1 2) 5 6 4") << "of one between the two";
}

TEST_P(PutBackTest, AnOrderThatMixesTwoFromBeforeIsNewAllTheSame) {
  begin();
  a->client->move(a->find("6"), "", 1);
  settle();
  hub.state = backup;
  a->client->move(a->find("4"), "", 2);
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 6 4 5");
}

TEST_P(PutBackTest, WhatWasMovedAndMovedBackBesideAnotherMoveStands) {
  begin();
  a->client->move(a->find("F"), "", 3);
  settle();
  hub.state = backup;
  a->client->move(a->find("6"), "", 0);
  a->client->move(a->find("F"), "", 0);
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 6 4 5");
}

TEST_P(PutBackTest, MovesOfBothSidesInOneFolderStand) {
  begin();
  a->client->move(a->find("4"), "", 3);
  sync(*a);
  hub.state = backup;
  b->client->move(b->find("6"), "", 0);
  sync(*b);
  settle();
  EXPECT_EQ(names(), "6 F(1 2 3) 5 4");
}

TEST_P(PutBackTest, OnceAndAgainAndForward) {
  begin();
  add(*a, "7");
  settle();
  const MemoryHub::State second = hub.state;
  b->client->rename(b->find("4"), "four");
  sync(*b);
  hub.state = backup;
  a->client->rename(a->find("5"), "five");
  sync(*a);
  const MemoryHub::State other = hub.state;
  hub.state = second;
  b->client->remove(b->find("1"));
  sync(*b);
  sync(*a);
  hub.state = other;
  a->client->move(a->find("2"), "", 0);
  settle();
  EXPECT_EQ(names(), "2 F(3) four five 6 7");
}

TEST_P(PutBackTest, EmptiedServiceKeepsWhatWasChangedSince) {
  begin();
  hub.empty();
  sync(*a);
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("4"));
  a->client->move(a->find("6"), "", 0);
  sync(*a);
  settle();
  EXPECT_EQ(names(), "6 F(one 2 3) 5");
}

TEST_P(PutBackTest, WhatWasChangedBackAfterItWasGivenAgainStands) {
  begin();
  a->client->rename(a->find("1"), "one");
  a->client->move(a->find("6"), "", 1);
  settle();
  hub.state = backup;
  sync(*a);  // gives it again
  a->client->rename(a->find("one"), "1");
  a->client->move(a->find("6"), "");
  sync(*a);
  sync(*b);  // was away all the while
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 4 5 6");
}

TEST_P(PutBackTest, WhatWasChangedBackWhileTheServiceHadLostItStands) {
  begin();
  a->client->rename(a->find("1"), "one");
  settle();
  b->client->rename(b->find("6"), "six");
  sync(*b);
  hub.state = backup;
  a->client->rename(a->find("one"), "1");
  failOnce("remote changes");
  sync(*a);  // alone
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 4 5 six");
}

TEST_P(PutBackTest, AnOrderMadeWhileTheServiceHadLostOtherThingsStands) {
  begin();
  a->client->move(a->find("3"), a->find("F"), 0);
  sync(*a);
  backup = hub.state;
  a->client->rename(a->find("5"), "five");
  sync(*a);
  hub.state = backup;
  b->client->rename(b->find("6"), "six");
  sync(*b);
  hub.state = backup;
  a->client->move(a->find("3"), a->find("F"), 2);
  failOnce("remote changes");
  sync(*a);  // alone
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 4 five six");
}

TEST_P(PutBackTest, WhatAComputerHeardOfAloneIsOlderThanWhatItHolds) {
  begin();
  hub.empty();
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("4"));
  sync(*a);  // fills the service again
  const MemoryHub::State filled = hub.state;
  const auto late = makeComputer("late");
  sync(*late);
  hub.state = backup;  // of the time before it was emptied
  sync(*late);
  EXPECT_EQ(late->text().substr(0, 7), "F(one@h");
  hub.state = filled;
  sync(*late);
  settle();
  EXPECT_EQ(names(), "F(one 2 3) 5 6");
}

TEST_P(PutBackTest, WhatWasDeletedBeforeAComputerCameStaysDeleted) {
  begin();
  a->client->remove(a->find("4"));
  a->client->remove(a->find("F"));
  sync(*a);
  const auto late = makeComputer("late");
  sync(*late);
  hub.state = backup;
  sync(*late);
  EXPECT_EQ(late->text(), "5@http://5/ 6@http://6/");
  settle();
  EXPECT_EQ(names(), "5 6");
}

TEST_P(PutBackTest, AFolderDeletedBeforeAComputerCameLivesForWhatWasPutIntoItSince) {
  begin();
  a->client->remove(a->find("F"));
  sync(*a);
  const auto late = makeComputer("late");
  sync(*late);
  hub.state = backup;
  add(*b, "7", b->find("F"));
  sync(*b);
  sync(*late);
  EXPECT_EQ(late->text().substr(0, 14), "F(7@http://7/)");
  settle();
  EXPECT_EQ(late->sync(), "");
  EXPECT_EQ(late->text(), a->text());
}

// Others know of the deletion, and of a push that came after what whoever undoes it has seen.
TEST_P(PutBackTest, ADeletionThatTheServiceLostAndThatIsUndoneStaysUndone) {
  for (const bool isJump : {false, true}) {
    SCOPED_TRACE(isJump ? "learned of with later pushes" : "learned of alone");
    const std::string when = isJump ? "then" : "before";
    beginAnew(when);
    const auto other = makeComputer("other " + when);
    sync(*other);
    backup = hub.state;
    a->client->remove(a->find("4"));
    a->client->remove(a->find("F"));
    sync(*a);
    if (!isJump) sync(*b);
    other->client->rename(other->find("6"), "six");
    sync(*other);
    sync(*b);
    hub.state = backup;
    undoLast(*a);
    sync(*a);
    sync(*b);
    sync(*other);
    settle();
    EXPECT_EQ(names(), "F(1 2 3) 4 5 six");
  }
}

// Who knows of the deletion was cut off when he gave it again.
TEST_P(PutBackTest, ADeletionThatIsGivenAgainInVainAndIsUndoneStaysUndone) {
  for (const char* call : {"push", "pushed"}) {
    SCOPED_TRACE(call);
    beginAnew(call);
    const auto other = makeComputer(std::string("other ") + call);
    sync(*other);
    backup = hub.state;
    a->client->remove(a->find("4"));
    sync(*a);
    other->client->rename(other->find("6"), "six");
    sync(*other);
    hub.state = backup;
    failOnce(call);
    sync(*other);
    undoLast(*a);
    sync(*a);
    sync(*other);
    settle();
    EXPECT_EQ(names(), "F(1 2 3) 4 5 six");
  }
}

// Who deleted it was cut off twice: after the push that others learned of, and when he gave it again.
TEST_P(PutBackTest, ADeletionThatIsUndoneStaysUndoneThoughItsPushWasCutOffTwice) {
  begin();
  a->client->remove(a->find("4"));
  failOnce("pushed");
  sync(*a);
  sync(*b);
  hub.state = backup;
  failOnce("push");
  sync(*a);
  undoLast(*b);
  sync(*b);
  sync(*a);
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 4 5 6");
}

TEST_P(PutBackTest, WhatWasAddedAndDeletedAndIsBroughtBackLivesOn) {
  for (const bool isFirst : {true, false}) {
    SCOPED_TRACE(isFirst ? "who brings it back comes first" : "the other one comes first");
    beginAnew(isFirst ? "first" : "last");
    add(*a, "7");
    settle();
    a->client->remove(a->find("7"));
    settle();
    b->client->rename(b->find("6"), "six");
    sync(*b);
    hub.state = backup;
    undoLast(*a);
    if (!isFirst) sync(*b);
    sync(*a);
    settle();
    EXPECT_EQ(names(), "F(1 2 3) 4 5 six 7");
    b->client->remove(b->find("7"));
    settle();
    EXPECT_EQ(names(), "F(1 2 3) 4 5 six");
  }
}

// Has the service lose what `a` did in two steps. A third computer knows the first step alone, and gives it
// again; `b` knows only what came of both, and `a` is away.
class JumpTest : public PutBackTest {
 protected:
  template <typename First, typename Second, typename Since>
  void loseBoth(const First& first, const Second& second, const Since& since) {
    begin();
    const auto early = makeComputer("early");
    sync(*early);
    backup = hub.state;
    first();
    sync(*a);
    sync(*early);
    second();
    sync(*a);
    sync(*b);
    hub.state = backup;
    since(*early);
    sync(*early);
    sync(*b);
    outcome = b->text();
    sync(*early);
    EXPECT_EQ(early->text(), outcome);
    settle();
    EXPECT_EQ(a->text(), outcome);
  }
  template <typename First, typename Second>
  void loseBoth(const First& first, const Second& second) {
    loseBoth(first, second, [](Computer&) {});
  }

  std::string outcome;
};

CORVANE_OVER_EACH_SERVICE(JumpTest);

TEST_P(JumpTest, AnOlderValueGivenAgainIsKnownToBeOlder) {
  loseBoth([&] { a->client->rename(a->find("1"), "one"); },
           [&] { a->client->rename(a->find("one"), "uno"); });
  EXPECT_EQ(outcome.substr(0, 8), "F(uno@ht");
}

TEST_P(JumpTest, AnEditBesideAnOlderValueStands) {
  loseBoth([&] { a->client->rename(a->find("1"), "one"); }, [&] { a->client->rename(a->find("one"), "uno"); },
           [](Computer& early) { early.client->readdress(early.find("one"), "http://edited/"); });
  EXPECT_EQ(outcome.substr(0, 21), "F(uno@http://edited/ ");
}

TEST_P(JumpTest, WhatWasAddedAndDeletedStaysDeleted) {
  loseBoth([&] { add(*a, "7"); }, [&] { a->client->remove(a->find("7")); });
  EXPECT_EQ(outcome.find("7@"), std::string::npos);
}

TEST_P(JumpTest, WhatWasPutIntoAFolderThatWasDeletedSinceIsWhereItWasMovedTo) {
  loseBoth(
      [&] {
        a->client->addFolder("", "G");
        a->client->move(a->find("5"), a->find("G"));
      },
      [&] {
        a->client->move(a->find("5"), a->find("F"));
        a->client->remove(a->find("G"));
      });
  EXPECT_EQ(outcome, "F(1@http://1/ 2@http://2/ 3@http://3/ 5@http://5/) 4@http://4/ 6@http://6/");
}

TEST_P(JumpTest, OfSeveralOrdersTheLastOneStands) {
  loseBoth([&] { a->client->move(a->find("6"), "", 0); },
           [&] {
             a->client->move(a->find("4"), "", 0);
             a->client->move(a->find("F"), "", 3);
           });
  EXPECT_EQ(outcome, "4@http://4/ 6@http://6/ 5@http://5/ F(1@http://1/ 2@http://2/ 3@http://3/)");
}

TEST_P(JumpTest, AMoveSinceIsMadeInTheLastOrder) {
  loseBoth([&] { a->client->move(a->find("3"), a->find("F"), 0); },
           [&] { a->client->move(a->find("3"), a->find("F"), 2); },
           [](Computer& early) { early.client->move(early.find("6"), "", 0); });
  EXPECT_EQ(outcome, "6@http://6/ F(1@http://1/ 2@http://2/ 3@http://3/) 4@http://4/ 5@http://5/");
}

TEST_P(JumpTest, AnOlderValueStaysOneWhenWhoGivesItAgainIsCutOff) {
  loseBoth([&] { a->client->rename(a->find("1"), "one"); }, [&] { a->client->rename(a->find("one"), "uno"); },
           [&](Computer& early) {
             failOnce("push");
             sync(early);
           });
  EXPECT_EQ(outcome.substr(0, 8), "F(uno@ht");
}

// `b` was told of the older push among many that it jumped over.
TEST_P(JumpTest, AnOlderValueIsKnownToBeOlderHoweverManyStatesWereJumpedOver) {
  loseBoth([&] { a->client->rename(a->find("1"), "one"); },
           [&] {
             for (int i = 0; i < 70; ++i) {
               a->client->readdress(a->find("6"), "http://" + std::to_string(i) + "/");
               sync(*a);
             }
             a->client->rename(a->find("one"), "uno");
           });
  EXPECT_EQ(outcome.substr(0, 8), "F(uno@ht");
}

// Who gives much again does so in several pushes, and others who know less come in between.
TEST_P(JumpTest, WhileMuchIsGivenAgainNoOlderValueIsTakenForANewerOne) {
  begin();
  const auto early = makeComputer("early");
  sync(*early);
  backup = hub.state;
  const std::vector<std::string> many = bookmarkMuch(2'500);
  a->client->rename(a->find("4"), "four");
  sync(*a);
  sync(*early);
  for (const std::string& each : many) a->client->readdress(each, "http://y/");
  a->client->rename(a->find("four"), "vier");
  sync(*a);
  sync(*b);
  hub.state = backup;
  // Between two pushes of b's.
  int pushes = 0;
  hub.onCall = [&](const std::string& call) {
    if (call != "pushed" || ++pushes != 1) return;
    hub.onCall = nullptr;
    sync(*early);
  };
  sync(*b);
  EXPECT_EQ(hub.onCall, nullptr);
  outcome = b->text();
  EXPECT_EQ(outcome.find("http://x/"), std::string::npos);
  EXPECT_NE(outcome.find("vier@"), std::string::npos);
  settle();
  EXPECT_TRUE(a->text() == outcome);
}

// `a` deletes what `other` edits, so that it lives again. `early` sees it deleted alone, and `b` alive alone.
class RevivalTest : public PutBackTest {
 protected:
  void deleteAndRevive(bool earlyHadIt = true) {
    begin();
    sync(*other);
    if (earlyHadIt) sync(*early);
    backup = hub.state;
    a->client->remove(a->find("4"));
    sync(*a);
    deleted = hub.state;
    sync(*early);
    other->client->rename(other->find("4"), "four");
    sync(*other);
    sync(*b);
  }
  static bool isAlive(const Computer& on) { return on.text().find("four@http://4/") != std::string::npos; }

  std::unique_ptr<Computer> early = makeComputer("early"), other = makeComputer("other");
  MemoryHub::State deleted;
};

CORVANE_OVER_EACH_SERVICE(RevivalTest);

TEST_P(RevivalTest, WhatLivesAgainAfterItWasDeletedLivesOn) {
  deleteAndRevive();
  for (const MemoryHub::State& state : {backup, deleted}) {
    hub.state = state;
    sync(*early);
    sync(*b);
    EXPECT_TRUE(isAlive(*b));
    sync(*early);
    EXPECT_EQ(early->text(), b->text());
  }
  settle();
  EXPECT_TRUE(isAlive(*a));
}

TEST_P(RevivalTest, WhatLivedOnAndIsDeletedThenStaysDeleted) {
  deleteAndRevive();
  other->client->rename(other->find("6"), "six");
  sync(*other);
  hub.state = backup;
  sync(*early);
  sync(*b);  // gives it again
  hub.state = backup;
  b->client->remove(b->find("four"));
  failOnce("remote changes");
  sync(*b);  // alone
  sync(*b);
  sync(*other);
  EXPECT_FALSE(isAlive(*other));
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 5 six");
}

// Who gives a deletion again does not know it itself, since it came later.
TEST_P(RevivalTest, WhatLivesAgainLivesOnThoughSomebodyNeverHadIt) {
  deleteAndRevive(false);
  hub.state = backup;
  sync(*early);
  EXPECT_EQ(hub.live(), 6u);
  sync(*b);
  EXPECT_TRUE(isAlive(*b));
  sync(*early);
  EXPECT_EQ(early->text(), b->text());
  settle();
}

TEST_P(RevivalTest, WhatIsDeletedAfterItLivedAgainStaysDeleted) {
  deleteAndRevive();
  hub.state = backup;
  const auto late = makeComputer("late");
  sync(*late);
  late->client->remove(late->find("4"));
  sync(*late);
  sync(*b);
  EXPECT_FALSE(isAlive(*b));
  sync(*early);
  settle();
  EXPECT_EQ(names(), "F(1 2 3) 5 6");
}

TEST_P(PutBackTest, AComputerThatCameAfterTheBackupKeepsWhatIsNewer) {
  begin();
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("4"));
  sync(*a);
  b = makeComputer("late");
  sync(*b);
  hub.state = backup;
  a = makeComputer("later");  // nobody else knows of it
  settle();
  EXPECT_EQ(a->text().substr(0, 7), "F(one@h");
}

TEST_P(PutBackTest, CutOffWhileItIsGivenAgainNothingIsLostOrUndone) {
  for (const char* call : {"push", "pushed"}) {
    SCOPED_TRACE(call);
    beginAnew(call);
    add(*a, "7");
    a->client->rename(a->find("1"), "one");
    sync(*a);
    hub.state = backup;
    b->client->rename(b->find("2"), "two");
    sync(*b);
    failOnce(call);
    sync(*a);
    a->client->rename(a->find("7"), "seven");
    a->client->rename(a->find("3"), "three");
    settle();
    EXPECT_EQ(names(), "F(one two three) 4 5 6 seven");
  }
}

TEST_P(PutBackTest, WhatALineDoesNotCarryAtOnceIsGivenAgainInHalves) {
  begin();
  bookmarkMuch(600);
  sync(*a);
  hub.state = backup;
  hub.onCall = [this](const std::string& call) {
    if (call != "push") return;
    hub.onCall = nullptr;
    platform.clock.time.seconds += 100;
    failAsService("it was cut off.");
  };
  sync(*a);  // alone
  const std::int64_t revision = hub.state.now.revision;
  sync(*a);
  EXPECT_EQ(hub.state.now.revision, revision + 2);
  settle();
  EXPECT_EQ(hub.live(), 607u);
}

TEST_P(PutBackTest, AStoreThatKnewOneStateAloneLosesNothing) {
  begin();
  add(*a, "7");
  settle();
  loomer::ClientTable clients(a->store());
  const std::int64_t service = clients.find(loomer::kHubClientIdentifier)->id;
  clients.setValue(service, "past", std::nullopt);
  a->store().database().execute("DELETE FROM former_base; UPDATE base SET since = 1", "test");
  hub.state = backup;
  b->client->rename(b->find("4"), "four");
  sync(*b);
  settle();
  EXPECT_EQ(names(), "F(1 2 3) four 5 6 7");
}

TEST_P(PutBackTest, WhatTheServiceHeldBeforeIsKeptForAsLongAsTheLog) {
  begin();
  a->client->rename(a->find("1"), "one");
  a->client->remove(a->find("2"));
  settle();
  EXPECT_EQ(a->number("SELECT count(*) FROM former_base"), 2);
  EXPECT_EQ(a->number("SELECT count(*) FROM tombstones"), 1);
  platform.clock.time.seconds += 91.0 * 24 * 60 * 60;
  a->client->rename(a->find("3"), "three");
  settle();
  EXPECT_EQ(a->number("SELECT count(*) FROM former_base"), 1);
  a->client->rename(a->find("three"), "3");
  settle();
  EXPECT_EQ(a->number("SELECT count(*) FROM tombstones"), 0);
}

// Keeps values alone.
class ValuesClient : public LoomerClient {
 public:
  String clientIdentifier() const override { return "com.example.values"; }
  std::optional<Value> objectForKey(const String& key) override {
    const Value* const value = _values.find(key);
    return value ? std::optional(*value) : std::nullopt;
  }
  void setObject(const std::optional<Value>& object, const String& key) override {
    _values.set(key, *object);
  }

 private:
  Dictionary _values;
};

TEST(HubPast, KnowsTheLastStatesAllAndOlderOnesHereAndThere) {
  ValuesClient client;
  constexpr std::int64_t kStates = 5000;
  for (std::int64_t revision = 1; revision <= kStates; ++revision) {
    loomer::HubPast past(client);
    pelto::RemoteChanges remote;
    remote.now = {"account", revision, String("push " + std::to_string(revision))};
    if (!past.empty()) remote.common = past.newest();
    past.enter(remote, remote.now, revision, Date{static_cast<double>(revision)});
    past.store(client);
  }
  const loomer::HubPast past(client);
  EXPECT_EQ(past.newest().revision, kStates);
  const std::vector<pelto::HubState> states = past.states();
  EXPECT_LE(states.size(), 64u + 16u);
  for (std::size_t i = 1; i + 1 < states.size(); ++i) {
    const std::int64_t nearer = kStates - states[i - 1].revision, farther = kStates - states[i].revision;
    EXPECT_LE(farther, std::max<std::int64_t>(nearer + 1, 2 * nearer));
    EXPECT_EQ(past.sessionOf(states[i]), states[i].revision);
  }
  EXPECT_EQ(states.back().revision, 0);
  EXPECT_EQ(past.sessionOf(states.back()), 0);
  EXPECT_EQ(past.lastSessionBefore(Date{kStates - 9.5}), kStates - 10);
}

}  // namespace
}  // namespace corvane
