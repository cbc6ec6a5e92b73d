#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane::loomer {

namespace {

// A file that was restored with an old date looks unchanged; so every twentieth session looks for itself.
constexpr std::int64_t kSessionsWithoutRecords = 19;

}  // namespace

bool isBaseUsable(const ClientState& client, const TruthState& truth) {
  return client.syncedRevision && *client.syncedRevision >= truth.forgottenRevision &&
         *client.syncedRevision <= truth.revision;
}

SessionKind sessionKind(int preferredMode, const ClientState& client, const TruthState& truth,
                        bool tellsEveryChange) {
  if (client.resetPending) return SessionKind::replace;
  if (client.restorePending || !isBaseUsable(client, truth)) return SessionKind::refresh;
  const bool known = preferredMode >= LoomerSyncModeFast && preferredMode <= LoomerSyncModeRefresh;
  const auto preferred = known ? static_cast<SessionKind>(preferredMode) : SessionKind::refresh;
  // A client asks for refresh after a cancelled session. That would hand back what it has deleted, or, after
  // one that the guard refused, everything before anybody has decided. The base is what it was, so that what
  // the client changed since is still known.
  const bool asksBecauseCancelled = !tellsEveryChange && client.cancelled;
  if (preferred == SessionKind::refresh) return asksBecauseCancelled ? SessionKind::slow : preferred;
  // The browser may have written while the last session handed something down.
  if (tellsEveryChange) return preferred;
  const bool look = client.delivered || client.sessionsWithoutRecords >= kSessionsWithoutRecords;
  return look ? SessionKind::slow : preferred;
}

bool mayHaveNews(const ClientState& client, const TruthState& truth) {
  return client.syncedRevision != truth.revision;
}

}  // namespace corvane::loomer
