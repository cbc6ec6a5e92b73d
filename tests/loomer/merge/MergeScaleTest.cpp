#include <gtest/gtest.h>

#include "tests/kit/TestSize.h"
#include "tests/loomer/merge/History.h"

// Sizes that no recursion and nothing quadratic survives. Nothing here is timed.

namespace corvane::loomer::test {
namespace {

constexpr auto kChildren = sized<std::size_t>(200'000, 10'000);
constexpr auto kDepth = sized<std::size_t>(20'000, 5'000);

struct MergeSides {
  std::vector<TruthRecord> truth;
  std::vector<BaseRecord> base;
  std::vector<ClientRecord> client;

  void add(Entity entity, RecordId parent, std::int32_t position) {
    const auto id = static_cast<RecordId>(truth.size() + 1);
    const String local(std::to_string(id));
    const Content content{.name = String("same"), .url = entity == Entity::bookmark ? local : String()};
    truth.push_back(
        {.id = id, .entity = entity, .parent = parent, .place = id, .content = content, .revision = 1});
    base.push_back({.localId = local,
                    .record = id,
                    .parent = parent,
                    .entity = entity,
                    .position = position,
                    .content = content});
    client.push_back(
        {local, parent == kRoot ? String() : String(std::to_string(parent)), entity, position, content});
  }

  MergeInput input() const {
    MergeInput result;
    result.truth = truth;
    result.base = base;
    result.client = client;
    result.nextRecord = static_cast<RecordId>(truth.size() + 1);
    result.revision = 2;
    return result;
  }
};

MergeSides flat() {
  MergeSides side;
  for (std::size_t i = 0; i < kChildren; ++i) side.add(Entity::bookmark, kRoot, static_cast<std::int32_t>(i));
  return side;
}

MergeSides deep(std::size_t depth = kDepth) {
  MergeSides side;
  for (std::size_t i = 0; i < depth; ++i) side.add(Entity::folder, static_cast<RecordId>(i), 0);
  return side;
}

TEST(Scale, OneChildAtTheEndOfALargeFolderIsOneChange) {
  MergeSides side = flat();
  side.add(Entity::bookmark, kRoot, 0);
  side.base.pop_back();
  side.client.pop_back();
  const MergeResult result = merge(side.input());
  ASSERT_EQ(result.clientChanges.size(), 1U);
  EXPECT_EQ(result.clientChanges[0].position, static_cast<std::int32_t>(kChildren));
}

TEST(Scale, OneChildAtTheFrontOfALargeFolderIsOneChange) {
  MergeSides side = flat();
  side.add(Entity::bookmark, kRoot, 0);
  side.base.pop_back();
  side.client.pop_back();
  side.truth.back().place = 0;
  const MergeResult result = merge(side.input());
  ASSERT_EQ(result.clientChanges.size(), 1U);
  EXPECT_EQ(result.clientChanges[0].position, -1);
}

TEST(Scale, ALargeFolderTurnedRoundOnBothSides) {
  MergeSides side = flat();
  for (ClientRecord& record : side.client)
    record.position = static_cast<std::int32_t>(kChildren) - record.position;
  const MergeResult reversed = merge(side.input());
  EXPECT_TRUE(reversed.clientChanges.empty());
  EXPECT_EQ(reversed.truthChanges.size(), kChildren - 1);
}

TEST(Scale, AFirstSessionOfALargeFolderMeetsEveryChild) {
  MergeSides side = flat();
  for (ClientRecord& record : side.client) record.localId = String("other" + record.localId.toString());
  side.base.clear();
  MergeInput input = side.input();
  input.refresh = true;
  const MergeResult result = merge(input);
  EXPECT_TRUE(result.truthChanges.empty());
  EXPECT_TRUE(result.clientChanges.empty());
  EXPECT_EQ(result.base.size(), kChildren);
}

TEST(Scale, AnInsertionBehindEveryChildOfALargeFolder) {
  MergeSides side = flat();
  for (TruthRecord& record : side.truth) record.place *= 2;
  for (std::size_t i = 0; i < kChildren; ++i) {
    side.add(Entity::bookmark, kRoot, 0);
    side.truth.back().place = static_cast<std::int64_t>(i * 2 + 3);
    side.base.pop_back();
    side.client.pop_back();
  }
  const MergeResult result = merge(side.input());
  EXPECT_TRUE(result.truthChanges.empty());
  EXPECT_GE(result.clientChanges.size(), kChildren);
  EXPECT_LT(result.clientChanges.size(), 2 * kChildren);
}

TEST(Scale, FoldersNestedDeeplyMergeDeleteAndReturn) {
  MergeSides side = deep();
  EXPECT_TRUE(merge(side.input()).truthChanges.empty());
  MergeInput input = side.input();
  input.client->clear();
  EXPECT_EQ(merge(input).deletedByAbsence, kDepth);
  input.truth.back().content.tabGroup = true;
  const MergeResult returned = merge(input);
  EXPECT_EQ(returned.clientChanges.size(), kDepth);
  EXPECT_EQ(returned.deletedByAbsence, 0U);
}

TEST(Scale, FoldersNestedDeeplyTheOtherWayRoundOnEachSide) {
  MergeSides side = deep();
  // At the client the deepest folder is the outermost; in the truth every folder but the first moved to the
  // root.
  for (std::size_t i = 0; i < kDepth; ++i) {
    side.client[i].parentLocalId = i + 1 < kDepth ? String(std::to_string(i + 2)) : String();
    if (i % 2 == 1) side.truth[i].parent = kRoot;
  }
  const MergeResult result = merge(side.input());
  const std::vector<TruthRecord> truth = changedTruth(side.truth, result.truthChanges);
  std::vector<std::size_t> children(kDepth + 1, 0);
  for (const TruthRecord& record : truth) ++children[static_cast<std::size_t>(record.parent)];
  EXPECT_GT(children[kRoot], 0U);
  EXPECT_EQ(truth.size(), kDepth);
}

TEST(Scale, OneRefusedMoveHoldsBackFolderAfterFolder) {
  // The client holds the first folder at the bottom of a deep tree and would not let it go to the root, where
  // the truth has it, with every other folder in it: each that stays keeps the next one from moving.
  MergeSides side = deep(kChildren);
  for (std::size_t i = 0; i < kChildren; ++i) {
    const auto id = static_cast<RecordId>(i + 1);
    const bool outermost = i + 1 == kChildren;
    side.truth[i].parent = i == 0 ? kRoot : RecordId{1};
    side.truth[i].revision = 2;
    side.base[i].parent = outermost ? kRoot : id + 1;
    side.client[i].parentLocalId = outermost ? String() : String(std::to_string(id + 1));
  }
  side.base[0].refusedRevision = 2;
  const MergeResult result = merge(side.input());
  EXPECT_TRUE(result.truthChanges.empty());
  EXPECT_TRUE(result.clientChanges.empty());
}

}  // namespace
}  // namespace corvane::loomer::test
