#pragma once

#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "tests/tool/scenario/Scenario.h"

namespace corvane::scenario {

/// Runs a scenario in a fresh home of its own and answers what happened. The process's own state (the
/// diagnostic switch, the file version) must be fresh: one process runs one scenario.
Dictionary runScenario(const Scenario& scenario);

}  // namespace corvane::scenario
