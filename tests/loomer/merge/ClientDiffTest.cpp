#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>

#include "tests/loomer/merge/History.h"
#include "tests/loomer/merge/MergeCase.h"

// What the client is told, and what its base says afterwards.

namespace corvane::loomer::test {
namespace {

BaseRecord* findBase(std::vector<BaseRecord>& base, RecordId record) {
  for (BaseRecord& at : base) {
    if (at.record == record) return &at;
  }
  return nullptr;
}

const BaseRecord* heldBase(const MergeCase& merged, RecordId record) {
  for (const BaseRecord& at : merged.result().base) {
    if (at.record == record) return &at;
  }
  return nullptr;
}

TEST(ClientDiff, WhatWasRefusedIsNotOfferedAgainUntilItChanges) {
  MergeCase merged({"a b", "a b=x", "a b"});
  findBase(merged.input().base, merged.record("b"))->refusedRevision = 1;
  merged.run();
  EXPECT_EQ(merged.changes(), "");
  EXPECT_EQ(merged.heldByClient(), "a b");
  EXPECT_EQ(merged.truth(), "a b=x");
  EXPECT_EQ(merged.result().base, merged.input().base);
  merged.input().truth[1].revision = 2;
  merged.run();
  EXPECT_EQ(merged.changes(), "~b");
  EXPECT_EQ(heldBase(merged, merged.record("b"))->refusedRevision, 0);
}

TEST(ClientDiff, ARefusedAdditionNeverTurnsIntoADeletion) {
  MergeCase merged({"a F(b)", "a F(b)", "a"});
  BaseRecord* const folder = findBase(merged.input().base, merged.record("F"));
  folder->notHeld = true;
  folder->refusedRevision = 1;
  findBase(merged.input().base, merged.record("b"))->notHeld = true;
  merged.run();
  EXPECT_EQ(merged.truth(), "a F(b)");
  EXPECT_EQ(merged.changes(), "");
  EXPECT_TRUE(heldBase(merged, merged.record("F"))->notHeld);
  EXPECT_TRUE(heldBase(merged, merged.record("b"))->notHeld);
  EXPECT_EQ(merged.result().deletedByAbsence, 0U);
  // When the folder changes, it and what is in it are offered again.
  merged.input().truth[1].revision = 2;
  merged.run();
  EXPECT_EQ(merged.changes(), "+F +b");
}

TEST(ClientDiff, AFolderDeletedOverARecordThatTheClientCannotTakeLives) {
  MergeCase merged({"F(b) c", "F(b) c", "c"});
  findBase(merged.input().base, merged.record("b"))->notHeld = true;
  findBase(merged.input().base, merged.record("b"))->refusedRevision = 1;
  merged.run();
  EXPECT_EQ(merged.truth(), "F(b) c");
  EXPECT_EQ(merged.changes(), "+F");
}

TEST(ClientDiff, AFolderWithoutANameStaysInTheTruthWithAllBelowIt) {
  MergeCase merged({"a", "a F=(b G(c))", "a"});
  merged.run();
  EXPECT_EQ(merged.changes(), "");
  EXPECT_EQ(merged.truth(), "a F=(b G(c))");
  for (const char* label : {"F", "b", "G", "c"}) {
    EXPECT_TRUE(heldBase(merged, merged.record(label))->notHeld) << label;
  }
}

TEST(ClientDiff, WhatMovesBelowAFolderThatCannotBeGivenIsTakenFromTheClientButNotFromTheTruth) {
  MergeCase merged({"a", "F=(a)", "a"});
  merged.run();
  EXPECT_EQ(merged.changes(), "-a");
  EXPECT_EQ(merged.truth(), "F=(a)");
  EXPECT_TRUE(heldBase(merged, merged.record("a"))->notHeld);
}

TEST(ClientDiff, ARefusedMoveNeverClosesACycle) {
  MergeCase merged({"B(A())", "A(B())", "B(A())"});
  BaseRecord* const refused = findBase(merged.input().base, merged.record("A"));
  refused->refusedRevision = 1;
  merged.run();
  EXPECT_EQ(merged.truth(), "A(B())");
  EXPECT_EQ(merged.changes(), "");
  EXPECT_EQ(merged.heldByClient(), "B(A())");
}

TEST(ClientDiff, ReplacingDeletesAllAndGivesEverythingParentsFirst) {
  MergeCase merged({"a", "M=BookmarksMenu!(x) F(G(b) c) a", "z Q(w)"});
  merged.input().replace = true;
  merged.run();
  EXPECT_TRUE(merged.result().deleteAllFirst);
  EXPECT_TRUE(merged.result().truthChanges.empty());
  EXPECT_EQ(merged.changes(), "all +F +M +G +a +c +x +b");
  for (const BaseRecord& base : merged.result().base) EXPECT_FALSE(base.localId);
}

TEST(ClientDiff, ATreeInAnotherOrderComesOutTheSame) {
  MergeCase merged({"F(a b) c d", "F(b a e) c", "d F(a b) c n"});
  merged.run();
  const std::string changes = merged.changes();
  std::reverse(merged.input().truth.begin(), merged.input().truth.end());
  std::reverse(merged.input().base.begin(), merged.input().base.end());
  std::reverse(merged.input().client->begin(), merged.input().client->end());
  merged.run();
  EXPECT_EQ(merged.changes(), changes);
  EXPECT_EQ(merged.truth(), "F(b a e) c n");
}

TEST(Guard, CountsWhatMissingRecordsWouldDeleteAndNoMoves) {
  MergeCase merged({"a b c F(d e)", "a b c F(d e)", "F(c)"});
  merged.run();
  EXPECT_EQ(merged.result().deletedByAbsence, 4U);
  EXPECT_EQ(merged.result().liveBefore, 6U);
}

TEST(FastSession, WithoutRecordsTheClientHoldsItsBase) {
  MergeCase merged({"F(a) b", "F(a=x)", "ignored"});
  merged.input().client.reset();
  merged.run();
  EXPECT_EQ(merged.truth(), "F(a=x)");
  EXPECT_EQ(merged.changes(), "-b ~a");
  EXPECT_EQ(merged.result().deletedByAbsence, 0U);
}

// Every input merges.

Content named(const char* name) {
  Content content;
  content.name = String(name);
  return content;
}

ClientRecord pushed(const char* id, const char* parent, Entity entity, std::int32_t position) {
  return {String(id), parent ? String(parent) : String(), entity, position, named(id)};
}

TEST(Total, WhatTheClientPushesMayBeAnything) {
  MergeInput input;
  input.client.emplace();
  input.client->push_back(pushed("a", "b", Entity::folder, 0));
  input.client->push_back(pushed("b", "a", Entity::folder, 0));
  input.client->push_back(pushed("self", "self", Entity::folder, -1000));
  input.client->push_back(pushed("leaf", "gone", Entity::bookmark, 7));
  input.client->push_back(pushed("below", "leaf", Entity::bookmark, 7));
  input.client->push_back(pushed("leaf", "a", Entity::folder, 8));
  input.client->push_back(pushed("Root", nullptr, Entity::folder, 0));
  input.client->push_back({});
  const MergeResult result = merge(input);
  ASSERT_EQ(result.truthChanges.size(), 5U);
  for (const TruthChange& change : result.truthChanges) EXPECT_EQ(change.after.parent, kRoot);
  EXPECT_TRUE(result.clientChanges.empty()) << "whatever the numbers";
  EXPECT_TRUE(result.losses.empty());
}

TEST(Total, ATruthOrBaseThatMakesNoSenseIsMadeSense) {
  MergeInput input;
  input.truth = {{.id = 1, .entity = Entity::folder, .parent = 2, .place = 5, .content = named("one")},
                 {.id = 2, .entity = Entity::folder, .parent = 1, .place = 5, .content = named("two")},
                 {.id = 3, .parent = 99, .place = 5, .content = named("three")},
                 {.id = 3, .parent = 1, .place = 5, .content = named("again")},
                 {.id = 4, .parent = 3, .place = std::numeric_limits<std::int64_t>::max(), .content = {}},
                 {.id = 0, .parent = 0, .place = 0, .content = {}}};
  input.base = {{.localId = "x", .record = 77, .content = {}},
                {.localId = "y", .record = 3, .content = {}},
                {.localId = "y", .record = 4, .content = {}},
                {.localId = {}, .record = 2, .entity = Entity::folder, .content = {}}};
  input.client.emplace();
  const MergeResult result = merge(input);
  EXPECT_EQ(result.liveBefore, 4U);
  const std::vector<TruthRecord> truth =
      changedTruth({input.truth[0], input.truth[1], input.truth[2], input.truth[4]}, result.truthChanges);
  std::set<std::int64_t> places;
  for (const TruthRecord& record : truth) {
    if (record.deleted) continue;
    EXPECT_EQ(record.parent, kRoot);
    EXPECT_TRUE(places.insert(record.place).second);
  }
}

TEST(Total, TheRootIsNoRecordOfTheClientWhateverTheBaseSays) {
  MergeInput input;
  input.truth = {{.id = 1, .place = 5, .content = named("new name")}};
  input.base = {{.localId = "Root", .record = 1, .content = named("old name")}};
  const MergeResult result = merge(input);
  ASSERT_EQ(result.clientChanges.size(), 1U);
  EXPECT_EQ(result.clientChanges[0].type, LoomerChangeTypeAdd);
  EXPECT_FALSE(result.clientChanges[0].localId);
}

}  // namespace
}  // namespace corvane::loomer::test
