#include <gtest/gtest.h>

#include <random>

#include "CorvaneSyncClient/platform/loomer/session/HeldTree.h"
#include "CorvaneSyncClient/platform/loomer/session/MovableForest.h"

// What the client holds while some changes are not taken. The sizes are such that a walk up the tree for each
// question would not end within a test's time.

namespace corvane::loomer {
namespace {

bool isAtOrAbove(const Parents& parents, Index upper, Index lower) {
  Index at = lower;
  while (at != upper && at != kNoNode) at = parents[at];
  return at == upper;
}

TEST(MovableForestTest, AnswersLikeAWalkUpTheTree) {
  constexpr Index kNodes = 40;
  std::mt19937 random(1);
  const auto anyNode = [&random] { return static_cast<Index>(random() % kNodes); };
  Parents parents(kNodes, kNoNode);
  for (Index node = 1; node < kNodes; ++node) parents[node] = static_cast<Index>(random() % node);
  MovableForest forest(parents);
  for (int move = 0; move < 20'000; ++move) {
    const Index node = anyNode();
    const Index parent = random() % 10 == 0 ? kNoNode : anyNode();
    forest.hang(node, parent);
    if (parent == kNoNode || !isAtOrAbove(parents, node, parent)) parents[node] = parent;
    const Index upper = anyNode(), lower = anyNode();
    ASSERT_EQ(forest.isAtOrAbove(upper, lower), isAtOrAbove(parents, upper, lower)) << "after move " << move;
  }
}

TEST(MovableForestTest, ANewNodeHangsNowhere) {
  MovableForest forest(Parents{kNoNode});
  const Index node = forest.add();
  EXPECT_FALSE(forest.isAtOrAbove(kRootNode, node));
  forest.hang(node, kRootNode);
  EXPECT_TRUE(forest.isAtOrAbove(kRootNode, node));
  EXPECT_FALSE(forest.isAtOrAbove(node, kRootNode));
}

class HeldTreeTest : public testing::Test {
 protected:
  HeldTreeTest() { input.client.emplace(); }

  static String idOf(RecordId record) { return String("L" + std::to_string(record)); }

  void addFolder(RecordId record, RecordId parent) {
    const String above = parent == kRoot ? String() : idOf(parent);
    input.base.push_back({.localId = idOf(record),
                          .record = record,
                          .entity = Entity::folder,
                          .parent = parent,
                          .content = {}});
    input.client->push_back(
        {.localId = idOf(record), .parentLocalId = above, .entity = Entity::folder, .content = {}});
  }
  static ClientChange change(LoomerChangeType type, RecordId record, RecordId parent) {
    ClientChange result;
    result.type = type;
    result.entity = Entity::folder;
    result.record = record;
    result.parent = parent;
    return result;
  }

  MergeInput input;
  MergeResult plan;
};

TEST_F(HeldTreeTest, FollowsWhatTheClientTook) {
  addFolder(1, kRoot);
  addFolder(2, 1);
  addFolder(3, 2);
  HeldTree held(input, plan);
  EXPECT_TRUE(held.wouldCloseCircle(1, 3));
  EXPECT_TRUE(held.wouldCloseCircle(1, 1));
  EXPECT_FALSE(held.wouldCloseCircle(3, 1));
  EXPECT_FALSE(held.wouldCloseCircle(1, kRoot));
  held.taken(change(LoomerChangeTypeModify, 2, kRoot));
  EXPECT_FALSE(held.wouldCloseCircle(1, 3)) << "3 moved out with 2";
  held.taken(change(LoomerChangeTypeAdd, 4, 3));
  EXPECT_TRUE(held.wouldCloseCircle(2, 4)) << "4 is new below 3";
  held.taken(change(LoomerChangeTypeDelete, 3, kRoot));
  EXPECT_FALSE(held.wouldCloseCircle(2, 4)) << "the way up ends at what was deleted";
}

TEST_F(HeldTreeTest, ACircleAtTheClientIsNone) {
  addFolder(1, 2);
  addFolder(2, 1);
  addFolder(3, 2);
  HeldTree held(input, plan);
  EXPECT_FALSE(held.wouldCloseCircle(1, 2)) << "the merge hangs both under the root";
  EXPECT_TRUE(held.wouldCloseCircle(2, 3));
}

TEST_F(HeldTreeTest, ManyFoldersMoveBelowADeepOne) {
  constexpr RecordId kDepth = 10'000;
  constexpr RecordId kMoves = 200'000;
  for (RecordId record = 1; record <= kDepth; ++record) addFolder(record, record - 1);
  for (RecordId record = kDepth + 1; record <= kDepth + kMoves; ++record) addFolder(record, kRoot);
  HeldTree held(input, plan);
  for (RecordId record = kDepth + 1; record <= kDepth + kMoves; ++record) {
    ASSERT_FALSE(held.wouldCloseCircle(record, kDepth)) << record;
    held.taken(change(LoomerChangeTypeModify, record, kDepth));
    ASSERT_TRUE(held.wouldCloseCircle(1, record)) << record;
  }
}

TEST_F(HeldTreeTest, ADeepTreeIsTurnedUpsideDown) {
  constexpr RecordId kDepth = 100'000;
  for (RecordId record = 1; record <= kDepth; ++record) addFolder(record, record - 1);
  HeldTree held(input, plan);
  for (RecordId record = kDepth; record > 0; --record) {
    const RecordId parent = record == kDepth ? kRoot : record + 1;
    ASSERT_FALSE(held.wouldCloseCircle(record, parent)) << record;
    held.taken(change(LoomerChangeTypeModify, record, parent));
    ASSERT_TRUE(held.wouldCloseCircle(kDepth, record)) << record;
  }
}

}  // namespace
}  // namespace corvane::loomer
