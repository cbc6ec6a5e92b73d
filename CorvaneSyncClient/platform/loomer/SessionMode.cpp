#include "CorvaneSyncClient/platform/loomer/SessionMode.h"

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
                        bool refusalStands, bool tellsEveryChange) {
  if (client.resetPending) return SessionKind::replace;
  if (client.giveBackPending || !isBaseUsable(client, truth)) return SessionKind::refresh;
  const bool known = preferredMode >= LoomerSyncModeFast && preferredMode <= LoomerSyncModeRefresh;
  const auto preferred = known ? static_cast<SessionKind>(preferredMode) : SessionKind::refresh;
  // A refused session was cancelled, after which clients ask for refresh. That would hand everything back
  // before anybody has decided; the plan stays what it was until it is approved, or the client has its
  // records again.
  if (preferred == SessionKind::refresh) return refusalStands ? SessionKind::slow : SessionKind::refresh;
  // The browser may have written while the last session handed something down.
  if (tellsEveryChange) return preferred;
  const bool look = client.handedDown || client.sessionsWithoutRecords >= kSessionsWithoutRecords;
  return look ? SessionKind::slow : preferred;
}

bool mayHaveNews(const ClientState& client, const TruthState& truth) {
  return client.syncedRevision != truth.revision;
}

}  // namespace corvane::loomer
