#pragma once

#include <cstdint>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// The states of the service that this computer knows of, newest first: those that it has met, and those that
/// it was told of. By them it finds out how far back a service went that was put back. They are kept with the
/// service's client: some 64 of the last ones, enough for a server that takes over, and of older ones, back
/// to the first, one for each doubling of the distance, enough for a backup.
class HubPast {
 public:
  /// No states before the first exchange.
  explicit HubPast(LoomerClient& client);

  bool empty() const { return _states.empty(); }
  /// The state that the client's base stands for.
  const pelto::HubState& newest() const { return _states.front().seen; }
  /// All of them, and the beginning of the account, which belongs to every past of it.
  std::vector<pelto::HubState> states() const;
  /// The number of the client's session whose base stood for that state or for one before it; 0 where there
  /// was none.
  std::int64_t sessionOf(const pelto::HubState& state) const;
  /// The number of the last session that met a state before that date; 0 for none.
  std::int64_t lastSessionBefore(Date date) const;

  /// Enters that the session of that number began with `remote`, and that its base stands for `now`.
  void enter(const pelto::RemoteChanges& remote, const pelto::HubState& now, std::int64_t session, Date date);
  void store(LoomerClient& client) const;

 private:
  struct State {
    pelto::HubState seen;
    std::int64_t session = 0;
    Date met;
  };
  void thinOut();

  std::vector<State> _states;
};

}  // namespace corvane::loomer
