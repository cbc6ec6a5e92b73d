#pragma once

#include <optional>
#include <vector>

#include "CorvaneSyncClient/front/SingleRunLock.h"
#include "tools/loomerctl/SyncState.h"

namespace corvane::loomerctl {

/// What is not well, the pressing first: what needs the user, then what may pass. Looks at the clients'
/// files, their directory's lock, the clock and the disks; `run` is who holds the single-run lock.
std::vector<Concern> concernsIn(const SyncState& state, const std::optional<SingleRunLock::Holder>& run,
                                BookmarksFiles& files);

}  // namespace corvane::loomerctl
