#pragma once

#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// What kind of session the engine runs. The numbers are those of LoomerSyncMode, as far as they go, and
/// stand in the log. The last two are changes of the truth by a person, without a client.
enum class SessionKind : int {
  fast = 1,
  slow = 2,
  refresh = 3,
  replace = 4,     ///< the client is emptied and given everything
  undo = 5,        ///< a session was undone
  importFile = 6,  ///< a bookmarks file was read
};

/// Whether the base that the store holds for the client can be merged over: there is one, the truth still
/// remembers all that happened since, and it is not from a future that this store has not seen.
bool isBaseUsable(const ClientState& client, const TruthState& truth);

/// The kind of the client's next session. `preferredMode` is the strongest LoomerSyncMode asked for; a number
/// that is none counts as refresh, in which nothing is ever deleted for being missing. `tellsEveryChange`:
/// the client need never be looked at whole.
SessionKind sessionKind(int preferredMode, const ClientState& client, const TruthState& truth,
                        bool tellsEveryChange);

/// Whether a fast session of this client may have something to hand down.
bool mayHaveNews(const ClientState& client, const TruthState& truth);

}  // namespace corvane::loomer
