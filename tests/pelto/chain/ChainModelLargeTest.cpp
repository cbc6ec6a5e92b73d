#include "tests/pelto/chain/ChainModelCase.h"

namespace corvane::model {
namespace {

class LargeChainModel : public testing::TestWithParam<Case> {};

TEST_P(LargeChainModel, LosesNothingDoublesNothingAndConverges) { expectNoFault(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Over, LargeChainModel,
    testing::ValuesIn(std::vector<Case>{
        {"Threes", {.writers = 3}},
        {"Requests", {.kills = 1, .lost = 1, .late = 1, .stale = 1}},
        {"RollBacks", {.kills = 1, .rollBacks = 1}},
        {"LateAfterRollBack",
         {.late = 1, .rollBacks = 1, .lateAfterRollBack = true, .surveysInTheEnd = true}},
        {"Damage", {.damages = 1}},
        {"LostSegments", {.losses = 1}},
        {"LostSnapshots", {.editors = 1, .losses = 1, .checkpoints = 1}},
        {"ChangeOfKey", {.kills = 1, .changes = 1}},
        {"LateChangeOfKey", {.late = 1, .changes = 1}},
        {"ThreesAndChangeOfKey", {.writers = 3, .editors = 1, .changes = 1}},
        {"ThreesAndChangesOfKeyAtOnce", {.writers = 3, .editors = 0, .changes = 2}},
        {"ChangeOfKeyAndRollBack",
         {.editors = 0, .kills = 1, .rollBacks = 1, .changes = 1, .changers = 1, .surveysInTheEnd = true}},
        {"ThreesChangeOfKeyAndRollBack",
         {.writers = 3, .editors = 0, .rollBacks = 1, .changes = 1, .changers = 1, .surveysInTheEnd = true}},
        {"ChangesOfKeyAndRollBack",
         {.editors = 0, .rollBacks = 1, .changes = 2, .changers = 1, .surveysInTheEnd = true}},
        {"WhatAChangeOfKeyLeaves", {.changes = 1, .ages = 1}},
        {"Collection", {.late = 1, .checkpoints = 2, .ages = 1}},
        {"CollectionAndRollBack", {.rollBacks = 1, .checkpoints = 1, .ages = 1, .surveysInTheEnd = true}},
    }),
    [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace corvane::model
