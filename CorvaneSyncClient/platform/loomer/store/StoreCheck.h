#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

namespace corvane::loomer {

/// Something in the store that must not be.
struct StoreFinding {
  std::string rule;     ///< which rule is broken: a name for programs, such as "place taken twice"
  std::string title;    ///< the same for people
  std::string problem;  ///< what is wrong where, for people
  std::string remedy;   ///< what to do, in sentences
};

/// Checks the whole store, changing nothing, and passes on what it finds: SQLite's own integrity check,
/// references, that the truth is a forest (every parent is a live folder, no cycles, no two siblings on one
/// place, special folders once), that the bases name known records and each local id once, and that stored
/// values can be read. O(n log n). Damage that keeps a rule from being checked is a finding itself.
///
/// `begin`, if there is one, is told before each of so many steps which one it is, from 1 on.
using CheckBeginsStep = std::function<void(std::size_t step, std::size_t steps)>;
void findProblems(TruthStore& store, const std::function<void(StoreFinding)>& take,
                  const CheckBeginsStep& begin = nullptr);

/// One line for each finding, none when all is well.
std::vector<std::string> checkStore(TruthStore& store);

}  // namespace corvane::loomer
