#pragma once

#include <random>

#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"

namespace corvane::hubload {

using Random = std::mt19937_64;

/// Plans that many new bookmarks, in folders of fifty.
loomer::TruthPlanner additions(int records);

/// Plans one random edit of a bookmark: mostly a new title, else a move, an addition or a deletion. `random`
/// must outlive the plan.
loomer::TruthPlanner randomEdit(Random& random);

}  // namespace corvane::hubload
