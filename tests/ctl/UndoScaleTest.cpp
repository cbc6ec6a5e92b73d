#include <gtest/gtest.h>

#include <vector>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "tests/kit/TestSize.h"

namespace corvane {
namespace {

TEST(UndoScaleTest, WhatComesBackFromADeepTreeThatIsGoneNeedsNoSquareOfItsDepth) {
  constexpr loomer::RecordId kDepth = sized(200'000, 20'000);
  std::vector<loomer::TruthRecord> truth;
  std::vector<loomer::LoggedChange> changes;
  for (loomer::RecordId id = 1; id <= kDepth; ++id) {
    loomer::TruthRecord& folder = truth.emplace_back();
    folder.id = id;
    folder.entity = loomer::Entity::folder;
    folder.parent = id - 1;
    folder.deleted = true;
    loomer::LoggedChange& change = changes.emplace_back();
    change.record = kDepth + id;
    change.before = loomer::LoggedState{id, 0, {"B", "http://b/", false, false}};
  }
  const loomer::UndoPlan plan = loomer::planUndo(truth, changes, 1, false);
  ASSERT_EQ(plan.changes.size(), static_cast<std::size_t>(kDepth));
  for (const loomer::TruthChange& change : plan.changes) ASSERT_EQ(change.after.parent, loomer::kRoot);
}

}  // namespace
}  // namespace corvane
