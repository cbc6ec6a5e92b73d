#pragma once

#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

namespace corvane::loomer {

/// Whether the base that the store holds for the client can be merged over: there is one, the truth still
/// remembers all that happened since, and it is not from a future that this store has not seen.
bool isBaseUsable(const ClientState& client, const TruthState& truth);

/// The kind of the client's next session. `preferredMode` is the strongest LoomerSyncMode asked for; any
/// other number counts as refresh, in which nothing is ever deleted for being missing. `tellsEveryChange`:
/// the client need never be looked at whole.
SessionKind sessionKind(int preferredMode, const ClientState& client, const TruthState& truth,
                        bool tellsEveryChange);

/// Whether a fast session of this client may have something to deliver.
bool mayHaveNews(const ClientState& client, const TruthState& truth);

}  // namespace corvane::loomer
