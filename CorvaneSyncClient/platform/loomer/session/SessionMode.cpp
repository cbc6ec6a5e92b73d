#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane::loomer {

namespace {

// A file that was restored with an old date looks unchanged; so every twentieth session looks for itself.
constexpr std::int64_t kSessionsWithoutRecords = 19;

// Whether the base that the store holds for the client can be merged over: there is one, the truth still
// remembers all that happened since, and it is not from a future that this store has not seen.
bool isBaseUsable(const ClientState& client, const TruthState& truth) {
  return client.syncedRevision && *client.syncedRevision >= truth.forgottenRevision &&
         *client.syncedRevision <= truth.revision;
}

}  // namespace

SessionKind kindOfMode(int syncMode) {
  const bool isKnown = syncMode >= LoomerSyncModeFast && syncMode <= LoomerSyncModeRefresh;
  return isKnown ? static_cast<SessionKind>(syncMode) : SessionKind::refresh;
}

SessionKind sessionKind(SessionKind preferred, const ClientState& client, const TruthState& truth,
                        bool keepsHistory) {
  if (client.resetPending) return SessionKind::replace;
  if (client.restorePending || !isBaseUsable(client, truth)) return SessionKind::refresh;
  // A client asks for refresh after a cancelled session. That would restore what it has deleted or, after
  // one that the guard refused, everything before anybody has decided. The base is what it was, so that what
  // the client changed since is still known.
  const bool asksBecauseCancelled = !keepsHistory && client.cancelled;
  if (preferred == SessionKind::refresh) return asksBecauseCancelled ? SessionKind::slow : preferred;
  // The browser may have written while the last session delivered something.
  if (keepsHistory) return preferred;
  const bool look = client.delivered || client.sessionsWithoutRecords >= kSessionsWithoutRecords;
  return look ? SessionKind::slow : preferred;
}

bool mayHaveNews(const ClientState& client, const TruthState& truth) {
  return client.syncedRevision != truth.revision;
}

}  // namespace corvane::loomer
