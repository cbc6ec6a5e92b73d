#pragma once

#include <random>

#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"

namespace corvane::servicebench {

using Random = std::mt19937_64;

/// Plans that many records: folders of fifty bookmarks each, behind what stands in the root.
loomer::TruthPlanner additions(int records);

/// Plans another title for one record.
loomer::TruthPlanner newTitle(Random& random);

/// Plans one edit as people make them: of twenty, eight are new bookmarks, six deletions, three new titles
/// and three moves. `random` must outlive the plan, here and above.
loomer::TruthPlanner dailyEdit(Random& random);

}  // namespace corvane::servicebench
