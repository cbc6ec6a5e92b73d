#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/Decisions.h"
#include "CorvaneSyncClient/platform/pelto/chain/History.h"

// A model of computers at one place, explored in all its interleavings. What the computers decide is the
// product's own code; the place, the faults and the engine above are abstract. An edit is one bit, and a
// computer's truth the set of those that it knows. Each commit with edits has a segment.

namespace corvane::model {

using namespace pelto::chain;

/// The decisions that are explored: the product's, or ones with a fault put in.
struct Decisions {
  std::function<State(Kept, Date)> begin = pelto::chain::begin;
  std::function<State(State, const Link&)> beginPush = pelto::chain::beginPush;
  std::function<Action(const State&)> next = pelto::chain::next;
  std::function<State(State, const Action&, const Answer&)> after = pelto::chain::after;
  /// What reaches the disk.
  std::function<Kept(Kept)> kept = [](Kept all) { return all; };
  std::function<Collectable(const std::vector<pelto::PlaceObject>&, const std::vector<pelto::PlaceObject>&,
                            std::int64_t, const std::vector<std::string>&)>
      collectable = pelto::chain::collectable;
  /// Whether a state that the computer has seen is a part of the account's history.
  std::function<bool(const History&, const Link&)> contains = [](const History& history, const Link& seen) {
    return history.contains(seen.number, seen.pushId);
  };
  std::function<bool(Kept&, const Link&, Date, Date)> isMissingForGood = pelto::chain::isMissingForGood;
  std::function<std::int64_t(const std::vector<Link>&)> continuedWithout = pelto::chain::continuedWithout;
  std::function<std::vector<std::string>(const std::vector<pelto::PlaceObject>&, const std::string&, Date)>
      leftBehind = pelto::chain::leftBehind;
  std::function<bool(const Kept&)> isReviewDue = pelto::chain::isReviewDue;
  /// The next key is handed over before there is anything under it.
  bool handsOverAtOnce = false;
  /// The first commit under the next key does not continue the states before it.
  bool beginsWithoutStates = false;
  /// What the place tells of a put counts, and the slot is not read.
  bool believesAnswers = false;
  /// The slot is looked at, and what is put there then replaces what came meanwhile.
  bool replaces = false;
};

/// How much of everything may happen.
struct Bounds {
  std::size_t writers = 2;
  int edits = 1;            ///< of each editor
  std::size_t editors = 9;  ///< so many writers, or all
  int kills = 0;
  int lost = 0;              ///< requests that are never carried out
  int late = 0;              ///< requests that are carried out at any later time, or never
  int stale = 0;             ///< answers that an object is absent though it is there
  int rollBacks = 0;         ///< of the whole place, to an earlier moment
  int damages = 0;           ///< of a commit just made: for moments, or for good
  int losses = 0;            ///< of a segment: for moments, or for good
  int changes = 0;           ///< of the key: a computer takes another one out
  std::size_t changers = 9;  ///< so many writers, or all, may do that
  int checkpoints = 0;
  int ages = 0;                    ///< times that thirty days pass at the place
  bool lateAfterRollBack = false;  ///< requests from before a roll-back may be carried out after it
  bool surveysInTheEnd = false;    ///< a day passes before edits have to have met; and before keys, a few
  std::size_t mostStates = 3'000'000;
};

/// What an exploration found.
struct Explored {
  std::size_t states = 0;
  bool isWhole = true;  ///< whether all states within the bounds were seen
  /// The first thing found that must not be, and how it comes about; empty when there is none.
  std::string fault;
};

/// Explores breadth first. In every state in which no computer is at work, edits stop and faults, too: within
/// a few sessions all computers that were not taken out have the newest key and know all edits that one of
/// them knew, and nothing moves any more.
Explored explore(const Bounds& bounds, const Decisions& decisions = {});

}  // namespace corvane::model
