#pragma once

#include <rapidcheck.h>

#include <cstddef>
#include <iosfwd>
#include <utility>
#include <vector>

namespace corvane::kit {

/// What can happen in a random history. A history has the kinds that its simulation can carry out.
enum class StepKind : int {
  // A person edits.
  addBookmark,
  addFolder,
  addHidden,
  rename,
  readdress,
  toggle,
  move,
  reorder,
  erase,
  undo,
  // A client syncs.
  sync,
  syncKilled,
  syncWhile,
  syncCutOff,
  syncCrossed,
  syncCancelled,
  refresh,
  replace,
  settle,
  // A computer or the service changes.
  restart,
  join,
  leave,
  dropTombstones,
  emptyService,
  restoreService,
  losePushes,
  switchService,
  fillAccount,
  emptyAccount
};

/// One step of a history: who does what. The numbers choose among what there is when its turn comes.
struct Step {
  StepKind kind = StepKind::sync;
  unsigned client = 0;
  unsigned entry = 0;
  unsigned folder = 0;
  unsigned index = 0;
  unsigned value = 0;
};

/// What a step's number chooses among what there is, which is something.
template <typename Each>
const Each& chosen(const std::vector<Each>& all, std::size_t number) {
  return all.at(number % all.size());
}

/// Prints a step as an initializer, so that a failing history can be pasted into a test.
std::ostream& operator<<(std::ostream& out, const Step& step);

/// How often a kind comes, relative to the others.
using Weights = std::vector<std::pair<std::size_t, StepKind>>;

/// Histories of such steps, with numbers below `numbers`.
rc::Gen<std::vector<Step>> stepsOf(const Weights& weights, unsigned numbers = 12);

}  // namespace corvane::kit
