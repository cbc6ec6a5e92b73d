#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/loomer/merge/ClientSimulation.h"

// Every small history of two clients, checked for all properties that it must have.
//
// Both clients hold one tree; each side edits its own; A syncs, B syncs, A syncs. A session sees what a
// side's edits came to and not how they came about, so edit sequences that come to the same tree are one
// history. Which of the two syncs first is covered by taking every pair of outcomes both ways round, and the
// order of the second round by demanding that B's session in it does nothing.

namespace corvane::loomer::test {

/// Which histories are run.
struct SmallHistoryScope {
  std::size_t nodes = 3;     ///< the tree that both start from has exactly so many entries
  std::size_t editsOfA = 2;  ///< at most so many edits
  std::size_t editsOfB = 2;
  // Of the pairs, counted from 0, those whose number leaves `part` when divided by `parts`.
  std::uint64_t part = 0;
  std::uint64_t parts = 1;
};

struct SmallHistoryCounts {
  std::uint64_t forests = 0;
  std::uint64_t outcomes = 0;   ///< of one side's edits, over all forests and both sides
  std::uint64_t pairs = 0;      ///< all of the scope, those of other parts included
  std::uint64_t histories = 0;  ///< that were run
  std::uint64_t failures = 0;
  std::vector<std::string> examples;  ///< the first failures, as text to replay by hand
};

/// Two clients that hold one tree, to run histories from.
class TwoSides {
 public:
  /// What A's session came to: the truth, and A after it.
  struct AfterA;

  explicit TwoSides(const ClientSimulation& start);
  ~TwoSides();
  TwoSides(const TwoSides&) = delete;
  TwoSides& operator=(const TwoSides&) = delete;

  /// What each side holds, to be edited.
  const ClientSimulation& a() const;
  const ClientSimulation& b() const;
  /// One history, judged: raises std::logic_error with what does not hold.
  void run(const ClientSimulation& ofA, const ClientSimulation& ofB) const;

  /// The same in two steps, for many histories with the same A.
  std::unique_ptr<AfterA> syncA(const ClientSimulation& ofA) const;
  void run(const AfterA& afterA, const ClientSimulation& ofB) const;

 private:
  struct State;
  std::unique_ptr<State> _state;
};

/// Every forest of folders and bookmarks with that many entries, in the notation of tests/kit/TreeText.h:
/// folders are called f, bookmarks b. 2, 6, 22, 90, … of them (the large Schröder numbers).
std::vector<std::string> forests(std::size_t nodes);

/// Runs them all. Failures do not end the run.
SmallHistoryCounts runSmallHistories(const SmallHistoryScope& scope);

}  // namespace corvane::loomer::test
