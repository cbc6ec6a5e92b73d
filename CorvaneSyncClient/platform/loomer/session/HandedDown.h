#pragma once

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/HandedDownFile.h"

namespace corvane::loomer {

/// What a session notes before the client saves: the difference to the base that the client would have after
/// it if it had changed nothing itself, for what it changed is rolled back with a session that is killed, and
/// must count as changed again at the next. `plan` is the session's, its base filled with the client's
/// answers. Merges once more where the client changed the truth. Leaves `input` as it was.
BaseDifference handedDifference(MergeInput& input, const MergeResult& plan);

/// Whether the session is the next one of that client, so that the note is of one that never ended.
bool isOfNextSession(const HandedDown& handedDown, const ClientState& client);

/// The client's ids of what the plan gave it.
std::vector<String> addedIds(const MergeResult& plan);

/// Whether the client's records show that it has taken what was handed down to it: they hold one of the
/// additions, or, where there was none, a value that came with it. An addition that is missing then counts as
/// deleted by the user, so that nothing less will do. `base` is the one without what was handed down.
bool showTaken(const HandedDown& handedDown, const std::vector<BaseRecord>& base,
               const std::vector<ClientRecord>& pushed);

// Bases are by ascending record, here and above.

BaseDifference differenceOf(const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after);
std::vector<BaseRecord> withDifference(const BaseDifference& difference, const std::vector<BaseRecord>& base);

}  // namespace corvane::loomer
