#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/pelto/chain/Decisions.h"

namespace corvane::pelto::chain {
namespace {

TEST(Decisions, TheWholeChainIsLookedAtOnceADay) {
  Kept kept;
  kept.path.resize(1);
  kept.surveyed = Date{1000};
  EXPECT_EQ(begin(kept, Date{1000 + kSurveySeconds - 1}).stage, Stage::look);
  EXPECT_EQ(begin(kept, Date{1000 + kSurveySeconds}).stage, Stage::survey);
  EXPECT_EQ(begin(kept, Date{999}).stage, Stage::survey) << "the clock was put back";
}

TEST(Decisions, APlaceThatListsWhatIsNotThereIsAskedThreeTimes) {
  State state = begin({}, Date{1000});
  int listings = 0;
  while (state.stage == Stage::survey && listings <= 3) {
    const Action action = next(state);
    Answer answer;
    answer.now = Date{1000};
    if (action.kind == Action::Kind::list) {
      ++listings;
      answer.listed = {nameOf(slotAfter(0, beginning()))};
    }
    answer.found.resize(action.names.size());
    state = after(state, action, answer);
  }
  EXPECT_EQ(listings, 3);
  EXPECT_EQ(state.stage, Stage::stuck);
  EXPECT_EQ(state.cause, Cause::restless);
}

// What the model checker cannot ask for: names of slots hold but half of a hash.
TEST(Decisions, ACommitFollowsTheOneWhoseWholeHashItNames) {
  Link head;
  head.number = 1;
  head.hash = std::string(kHashBytes, 'h');
  head.previous = beginning();
  Kept kept;
  kept.path = {head};
  kept.verified = 1;
  kept.surveyed = Date{1000};
  const State state = begin(kept, Date{1000});
  const Action action = next(state);
  ASSERT_EQ(action.names.size(), 2u);
  Link following = head;
  following.number = 2;
  following.hash = std::string(kHashBytes, 'f');
  for (const bool isWhole : {true, false}) {
    following.previous = head.hash;
    if (!isWhole) following.previous.back() = 'x';
    EXPECT_EQ(nameOf(following), action.names.back());
    const Answer answer{
        {{Found::State::good, head, head.hash}, {Found::State::good, following, following.hash}},
        {},
        Date{1000}};
    EXPECT_EQ(isIn(after(state, action, answer).kept.path, following), isWhole);
  }
}

}  // namespace
}  // namespace corvane::pelto::chain
