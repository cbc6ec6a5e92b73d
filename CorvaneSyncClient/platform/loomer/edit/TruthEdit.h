#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

namespace corvane::loomer {

/// What a change of the truth by a person rather than by a client has to say: from the truth (by ascending
/// id, tombstones included) and its counters to the changes, each with `state.revision + 1` as its revision.
using TruthPlanner =
    std::function<std::vector<TruthChange>(const std::vector<TruthRecord>& truth, const TruthState& state)>;

/// Changes the truth as `plan` says, in one transaction under the lock that sessions take, and enters it in
/// the log as a session of `kind` by `author`. The clients are told at their next sessions. Answers the
/// session's number; nothing, with nothing written, when there is nothing to change. Raises
/// LoomerStoreException, also when a session does not end within a minute, and what `plan` raises; nothing
/// has changed then.
std::optional<std::int64_t> editTruth(TruthStore& store, const String& author, SessionKind kind,
                                      const TruthPlanner& plan);

}  // namespace corvane::loomer
