#include "tests/pelto/chain/ChainModelCase.h"

// Within bounds that are small enough for the sanitizers: ChainModelLargeTest.cpp has larger ones.

namespace corvane::model {
namespace {

class ChainModel : public testing::TestWithParam<Case> {};

TEST_P(ChainModel, LosesNothingDoublesNothingAndConverges) { expectNoFault(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Over, ChainModel,
    testing::ValuesIn(std::vector<Case>{
        {"Requests", {.editors = 1, .kills = 1, .late = 1}},
        {"Threes", {.writers = 3, .editors = 1}},
        {"RollBacks", {.editors = 1, .rollBacks = 1}},
        {"Damage", {.writers = 1, .edits = 2, .kills = 1, .damages = 1}},
        {"Collection", {.editors = 1, .checkpoints = 2, .ages = 1}},
        {"CollectionOfCommitsAndRollBack",
         {.writers = 1, .edits = 3, .rollBacks = 1, .checkpoints = 2, .ages = 1}},
        {"LostSegments", {.editors = 1, .losses = 1}},
        {"ChangeOfKey", {.editors = 1, .kills = 1, .changes = 1}},
        {"ThreesAndChangeOfKey", {.writers = 3, .editors = 0, .changes = 1}},
        {"ChangesOfKeyAtOnce", {.editors = 1, .changes = 2}},
        {"ChangeOfKeyAndRollBack",
         {.editors = 1, .rollBacks = 1, .changes = 1, .changers = 1, .surveysInTheEnd = true}},
        {"WhatAChangeOfKeyLeaves", {.editors = 1, .changes = 1, .ages = 1}},
    }),
    [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace corvane::model
