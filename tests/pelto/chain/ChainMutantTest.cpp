#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <ostream>
#include <string>

#include "tests/pelto/chain/ChainModel.h"

namespace corvane::model {
namespace {

/// Decisions with a fault put in, which the exploration has to find.
struct Mutant {
  std::string name;
  Bounds bounds;
  std::function<void(Decisions&)> put;
};

void PrintTo(const Mutant& each, std::ostream* out) { *out << each.name; }

void trustSlotsAlone(Decisions& decisions) {
  decisions.begin = [](Kept kept, Date now) {
    State state = begin(std::move(kept), now);
    state.asksForHead = false;
    return state;
  };
}

void passByAtOnce(Decisions& decisions) {
  decisions.after = [](State state, const Action& action, const Answer& answer) {
    for (std::size_t i = 0; i < action.names.size(); ++i) {
      const Found& found = answer.found[i];
      const Sighting longAgo{action.names[i], found.hash, Date{state.now.seconds - kDamagedSeconds}};
      if (found.state == Found::State::damaged) state.kept.damaged.push_back(longAgo);
    }
    return after(std::move(state), action, answer);
  };
}

void verifyNothing(Decisions& decisions) {
  decisions.after = [](State state, const Action& action, const Answer& answer) {
    state = after(std::move(state), action, answer);
    if (state.kept.head()) state.kept.verified = state.kept.head()->number;
    if (state.stage == Stage::verify) state.stage = Stage::settled;
    return state;
  };
}

void resendNothing(Decisions& decisions) {
  decisions.begin = [](Kept kept, Date now) {
    kept.undecided.reset();
    return begin(std::move(kept), now);
  };
}

const Mutant kMutants[] = {
    {"ChecksAndThenPuts", {}, [](Decisions& decisions) { decisions.replaces = true; }},
    {"HasNoJournal",
     {.writers = 1, .edits = 2, .kills = 1, .late = 1},
     [](Decisions& decisions) {
       decisions.kept = [](Kept kept) {
         kept.undecided.reset();
         return kept;
       };
     }},
    {"ForgetsWhatItSent", {.writers = 1, .edits = 2, .kills = 1, .late = 1}, resendNothing},
    {"DoesNotLookAtItsNewestCommit", {.rollBacks = 1}, trustSlotsAlone},
    {"DoesNotReadTheSlotAfterPutting",
     {.edits = 2, .late = 1},
     [](Decisions& decisions) { decisions.believesAnswers = true; }},
    {"VerifiesNothing", {.kills = 1, .rollBacks = 1}, verifyNothing},
    {"CollectsWhateverItsAge",
     {.late = 1, .checkpoints = 2},
     [](Decisions& decisions) {
       decisions.collectable = [](std::vector<pelto::PlaceObject> commits,
                                  std::vector<pelto::PlaceObject> segments, std::int64_t from,
                                  const std::vector<std::string>& named) {
         for (auto* objects : {&commits, &segments}) {
           for (pelto::PlaceObject& each : *objects) each.date.seconds = -1e9;
         }
         commits.push_back({"now", 0, Date{0}});
         return collectable(commits, segments, from, named);
       };
     }},
    {"PassesByWhatIsDamagedAtOnce", {.damages = 1}, passByAtOnce},
    {"JumpsWithoutLookingForItsOwnState",
     {.rollBacks = 1, .checkpoints = 1, .surveysInTheEnd = true},
     [](Decisions& decisions) { decisions.contains = [](const History&, const Link&) { return true; }; }},
    {"ContinuesTheStatesThatItPassesBy",
     {.losses = 1},
     [](Decisions& decisions) {
       decisions.continuedWithout = [](const std::vector<Link>& passedBy) { return passedBy.back().number; };
     }},
    {"WaitsForeverForWhatIsMissing",
     {.losses = 1},
     [](Decisions& decisions) {
       decisions.isMissingForGood = [](Kept& kept, const Link& link, Date began, Date now) {
         isMissingForGood(kept, link, began, now);
         return false;
       };
     }},
    {"ReadsAroundNoLostSnapshot",
     {.edits = 1, .editors = 1, .losses = 1, .checkpoints = 1},
     [](Decisions& decisions) {
       decisions.isMissingForGood = [](Kept& kept, const Link& link, Date began, Date now) {
         return !link.isCheckpoint && isMissingForGood(kept, link, began, now);
       };
     }},
    {"GoesOnAfterTheLastCommit",
     {.writers = 3, .editors = 0, .changes = 1},
     [](Decisions& decisions) {
       decisions.after = [](State state, const Action& action, Answer answer) {
         for (Found& each : answer.found) each.link.isLast = false;
         return after(std::move(state), action, answer);
       };
     }},
    {"HandsAKeyOverBeforeAnythingIsUnderIt",
     {.kills = 1, .changes = 1},
     [](Decisions& decisions) { decisions.handsOverAtOnce = true; }},
    {"BeginsAGenerationWithoutTheStatesBefore",
     {.changes = 1},
     [](Decisions& decisions) { decisions.beginsWithoutStates = true; }},
    {"LeavesNotEvenTheLastCommit",
     {.writers = 3, .editors = 1, .changes = 1, .ages = 1},
     [](Decisions& decisions) {
       decisions.leftBehind = [](const std::vector<pelto::PlaceObject>& objects, const std::string&,
                                 Date now) { return leftBehind(objects, "", now); };
     }},
    {"HandsNoKeyOverAgain",
     {.editors = 0, .rollBacks = 1, .changes = 1, .changers = 1, .surveysInTheEnd = true},
     [](Decisions& decisions) { decisions.isReviewDue = [](const Kept&) { return false; }; }},
    {"LooksOnlyOnceWhetherAGenerationHasEnded",
     {.editors = 0, .rollBacks = 1, .changes = 1, .changers = 1, .surveysInTheEnd = true},
     [](Decisions& decisions) {
       decisions.after = [](State state, const Action& action, const Answer& answer) {
         const bool wasReviewed = state.kept.isReviewed;
         state = after(std::move(state), action, answer);
         state.kept.isReviewed = wasReviewed;
         return state;
       };
     }},
};

class ChainMutant : public testing::TestWithParam<Mutant> {};

TEST_P(ChainMutant, IsCaught) {
  Decisions decisions;
  GetParam().put(decisions);
  const Explored explored = explore(GetParam().bounds, decisions);
  std::printf("%s: %zu states; %s\n", GetParam().name.c_str(), explored.states,
              explored.fault.substr(0, explored.fault.find('\n')).c_str());
  EXPECT_NE(explored.fault, "");
}

INSTANTIATE_TEST_SUITE_P(Every, ChainMutant, testing::ValuesIn(kMutants),
                         [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace corvane::model
