#pragma once

#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

namespace corvane::loomer {

/// The kind that a LoomerSyncMode asks for; refresh, in which nothing is ever deleted for being missing, for
/// any other number.
SessionKind kindOfMode(int syncMode);

/// The kind of the client's next session. `preferred` is the strongest one asked for. A client that
/// `keepsHistory` need never be looked at whole.
SessionKind sessionKind(SessionKind preferred, const ClientState& client, const TruthState& truth,
                        bool keepsHistory);

/// Whether a fast session of this client may have something to deliver.
bool mayHaveNews(const ClientState& client, const TruthState& truth);

}  // namespace corvane::loomer
