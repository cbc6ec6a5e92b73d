#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

namespace corvane::loomer {

/// Looks the whole store over, changing nothing: SQLite's own integrity check, references, and that the truth
/// is a forest: every parent is a live folder, no circles, no two siblings on one place. Answers one line for
/// each problem, none when all is well.
std::vector<std::string> checkStore(TruthStore& store);

}  // namespace corvane::loomer
