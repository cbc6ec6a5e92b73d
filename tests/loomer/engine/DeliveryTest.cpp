#include <gmock/gmock.h>

#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using testing::ElementsAre;

class DeliveryTest : public EngineTest {
 protected:
  void SetUp() override {
    a = makeClient("a");
    b = makeClient("b");
  }
  void bothSync() {
    ASSERT_EQ(a->sync(), "");
    ASSERT_EQ(b->sync(), "");
  }
  // `b` gets what `a` holds, and its sessions come to rest.
  void giveToB() {
    ASSERT_EQ(a->sync(), "");
    settle({b.get()});
  }
  // The change of the record of this name that was delivered to `b`.
  const LoomerChange* delivered(const char* name) {
    for (const LoomerChange& change : b->delivered) {
      if (!change.record()) continue;
      if (change.record()->string("name") == name || change.record()->string("folder name") == name)
        return &change;
    }
    return nullptr;
  }
  std::unique_ptr<ScriptedClient> a, b;
};

TEST_F(DeliveryTest, RecordsAreWhole) {
  const std::string folder = a->addFolder("", "F");
  a->nodes[folder].tabGroup = true;
  a->addBookmark(folder, "A", "http://a/");
  bothSync();
  a->rename(a->find("A"), "A2");
  bothSync();
  ASSERT_EQ(b->delivered.size(), 1u);
  const Dictionary& record = *b->delivered[0].record();
  EXPECT_EQ(b->delivered[0].type(), LoomerChangeTypeModify);
  EXPECT_EQ(record.string(LoomerRecordEntityNameKey.view()), LoomerEntity_Bookmarks_Bookmark);
  EXPECT_EQ(record.string("name"), "A2");
  EXPECT_EQ(*record.find("url"), Value(Url{"http://a/"})) << "unchanged attributes are there too";
  EXPECT_EQ((*record.array("parent"))[0].string(), b->find("F")) << "the client's own id";
  EXPECT_TRUE(record.find("position"));
}

TEST_F(DeliveryTest, FoldersBearTheirPositionUnderBothNames) {
  a->addBookmark("", "A", "http://a/");
  const std::string folder = a->addFolder("", "F");
  a->nodes[folder].tabGroup = true;
  bothSync();
  const Dictionary& record = *delivered("F")->record();
  EXPECT_EQ(record.integer32("folder position"), record.integer32("position"));
  EXPECT_EQ(record.integer32("is tab group"), 1);
  EXPECT_FALSE(record.find("parent")) << "directly in the root";
}

TEST_F(DeliveryTest, SpecialFoldersArriveAsSpecial) {
  a->addSpecial("Bar");
  a->addSpecial("Menu");
  a->addBookmark(a->find("Bar"), "A", "http://a/");
  bothSync();
  EXPECT_EQ(delivered("Bar")->record()->integer32("position"), -2);
  EXPECT_EQ(b->text(), "Bar!(A@http://a/) Menu!()");
}

TEST_F(DeliveryTest, IdentifiersHandedBackAreUsedAsParentsFromThenOn) {
  const std::string outer = a->addFolder("", "Outer");
  const std::string inner = a->addFolder(outer, "Inner");
  a->addBookmark(inner, "A", "http://a/");
  bothSync();
  EXPECT_THAT(b->calls, testing::IsSupersetOf({"add Outer", "add Inner", "add A"}));
  EXPECT_EQ((*delivered("Inner")->record()->array("parent"))[0].string(), b->find("Outer"));
  EXPECT_NE(delivered("Outer")->recordIdentifier(), b->find("Outer").c_str());
  EXPECT_EQ(b->text(), "Outer(Inner(A@http://a/))");
  EXPECT_EQ(number("SELECT count(*) FROM base WHERE local_id LIKE 'b-%'"), 3);
}

TEST_F(DeliveryTest, ClientThatHandsNoIdentifierBackKeepsTheEngines) {
  a->addFolder("", "F");
  a->addBookmark(a->find("F"), "A", "http://a/");
  ASSERT_EQ(a->sync(), "");
  b->unmappedIds = true;
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->find("F").size(), 36u) << "a UUID";
  settle({b.get(), a.get()});
  EXPECT_EQ(b->text(), "F(A@http://a/)");
  EXPECT_TRUE(b->delivered.empty());
}

struct Declined {
  const char* phrase;
  int answer;
  friend void PrintTo(const Declined& row, std::ostream* out) { *out << row.phrase; }
};

class DeclinedChange : public DeliveryTest, public testing::WithParamInterface<Declined> {
 protected:
  // `b` declines the one change that there is; its next session looks at everything.
  void declineTheChange() {
    b->answer = [](auto&) { return GetParam().answer; };
    ASSERT_EQ(b->sync(), "");
    ASSERT_EQ(b->delivered.size(), 1u);
    b->mode = LoomerSyncModeSlow;
  }
};

TEST_P(DeclinedChange, AdditionIsNotOfferedAgainUntilItChangesAndNeverBecomesADeletion) {
  SCOPED_TRACE(GetParam().phrase);
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  b->answer = [&](const LoomerChange& change) {
    return change.record()->string("name") == "A" ? GetParam().answer
                                                  : static_cast<int>(LoomerChangeAccepted);
  };
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "B@http://b/");
  b->mode = LoomerSyncModeSlow;
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_TRUE(b->delivered.empty());
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "A@http://a/ B@http://b/") << "a record that a client cannot take stays in the truth";
  a->rename(a->find("A"), "A2");
  bothSync();
  EXPECT_EQ(b->text(), "A2@http://a/ B@http://b/");
}

TEST_P(DeclinedChange, ModificationIsNotOfferedAgainUntilItChanges) {
  SCOPED_TRACE(GetParam().phrase);
  a->addBookmark("", "A", "http://a/");
  giveToB();
  a->rename(a->find("A"), "A2");
  ASSERT_EQ(a->sync(), "");
  declineTheChange();
  ASSERT_EQ(b->sync(), "");
  EXPECT_TRUE(b->delivered.empty());
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "A2@http://a/") << "what the client still holds is no change of its own";
  b->answer = nullptr;
  a->rename(a->find("A2"), "A3");
  bothSync();
  EXPECT_EQ(b->text(), "A3@http://a/");
}

TEST_P(DeclinedChange, DeletionIsNotOfferedAgainAndTheRecordDoesNotComeBack) {
  SCOPED_TRACE(GetParam().phrase);
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  giveToB();
  a->remove(a->find("A"));
  ASSERT_EQ(a->sync(), "");
  declineTheChange();
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_TRUE(b->delivered.empty());
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "B@http://b/");
  EXPECT_EQ(number("SELECT count(*) FROM tombstones"), 1) << "a base still refers to it";
}

TEST_P(DeclinedChange, WhatIsInADeclinedFolderIsNotOffered) {
  SCOPED_TRACE(GetParam().phrase);
  const std::string folder = a->addFolder("", "F");
  a->addFolder(folder, "Sub");
  a->addBookmark(folder, "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  b->answer = [&](const LoomerChange& change) {
    return change.record()->string("folder name") == "F" ? GetParam().answer
                                                         : static_cast<int>(LoomerChangeAccepted);
  };
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "B@http://b/");
  EXPECT_EQ(b->delivered.size(), 2u);
  EXPECT_EQ(number("SELECT handed_down FROM sessions WHERE client = 'b'"), 4);
  EXPECT_EQ(number("SELECT refused FROM sessions WHERE client = 'b'"), 3) << "one declined, two left out";
  b->answer = nullptr;
  b->mode = LoomerSyncModeSlow;
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(a->text(), "F(Sub() A@http://a/) B@http://b/");
  a->rename(folder, "G");
  bothSync();
  EXPECT_EQ(b->text(), "G(Sub() A@http://a/) B@http://b/")
      << "its contents come with it when it is offered again";
}

TEST_P(DeclinedChange, MoveIntoADeclinedFolderLeavesTheBookmarkWhereItIs) {
  SCOPED_TRACE(GetParam().phrase);
  a->addBookmark("", "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  giveToB();
  a->move(a->find("A"), a->addFolder("", "F"));
  ASSERT_EQ(a->sync(), "");
  b->answer = [&](const LoomerChange& change) {
    return change.type() == LoomerChangeTypeAdd ? GetParam().answer : static_cast<int>(LoomerChangeAccepted);
  };
  ASSERT_EQ(b->sync(), "");
  EXPECT_THAT(b->text(), testing::HasSubstr("A@http://a/"));
  b->mode = LoomerSyncModeSlow;
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "B@http://b/ F(A@http://a/)") << "the move stands in the truth";
}

INSTANTIATE_TEST_SUITE_P(Both, DeclinedChange,
                         testing::Values(Declined{"refused", LoomerChangeRefused},
                                         Declined{"ignored", LoomerChangeIgnored}));

TEST_F(DeliveryTest, RefusedMoveOutOfTheWayClosesNoCycleAtTheClient) {
  const std::string outer = a->addFolder("", "Outer");
  const std::string inner = a->addFolder(outer, "Inner");
  giveToB();
  a->move(inner, "");
  a->move(outer, inner);
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "Inner(Outer())");
  b->answer = [](const LoomerChange& change) {
    return change.record()->string("folder name") == "Inner" ? LoomerChangeRefused : LoomerChangeAccepted;
  };
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "Outer(Inner())");
}

TEST_F(DeliveryTest, PendingResetReplacesEverythingParentsFirst) {
  const std::string folder = a->addFolder("", "F");
  a->addBookmark(folder, "A", "http://a/");
  giveToB();
  b->addBookmark("", "only here", "http://o/");
  loomer::ClientTable(store()).setResetPending(manager().clientWithIdentifier("b")->row(), true);
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "F(A@http://a/)");
  EXPECT_THAT(b->calls, ElementsAre("did register", "mode folders", "mode bookmarks", "begin timeout",
                                    "delete all folders", "delete all bookmarks", "add F", "add A",
                                    "did pull", "will finish"));
  EXPECT_EQ(number("SELECT sum(reset_pending) FROM clients"), 0);
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 2);
  ASSERT_EQ(b->sync(), "");
  EXPECT_TRUE(b->delivered.empty());
}

TEST_F(DeliveryTest, FalseDeleteAllCancelsAndTheResetStaysPending) {
  a->addBookmark("", "A", "http://a/");
  ASSERT_EQ(a->sync(), "");
  loomer::ClientTable(store()).setResetPending(manager().clientWithIdentifier("a")->row(), true);
  a->deleteAllAnswer = false;
  EXPECT_THAT(a->sync(), testing::HasSubstr("could not delete all records"));
  EXPECT_EQ(a->text(), "A@http://a/");
  EXPECT_EQ(number("SELECT sum(reset_pending) FROM clients"), 1);
}

TEST_F(DeliveryTest, NeverDeliversARootRecordOrANamelessFolder) {
  const std::string folder = a->addFolder("", "F");
  a->nodes[folder].name = String();
  a->addBookmark(folder, "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  bothSync();
  for (const LoomerChange& change : b->delivered) {
    EXPECT_NE(change.recordIdentifier(), "Root");
    EXPECT_TRUE(change.record()->string("name"));
  }
  EXPECT_EQ(b->text(), "B@http://b/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(a->text(), "\"\"=(A@http://a/) B@http://b/");
}

}  // namespace
}  // namespace corvane
