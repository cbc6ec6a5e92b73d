#pragma once

#include <cstdint>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// The states of the service that this computer knows of, newest first: those that it has seen itself, and
/// those that the service has listed. They show how far back a restored service went. They are stored with
/// the service's client: about the newest 64, enough for a failover, and one for each doubling of the
/// distance back to the first, enough for a backup.
class HubPast {
 public:
  /// Reads what `client` keeps. Empty before the first exchange.
  explicit HubPast(LoomerClient& client);

  /// Whether there are no states.
  bool empty() const { return _states.empty(); }
  /// The state that the client's base corresponds to.
  const pelto::HubState& newest() const { return _states.front().seen; }
  /// All states, and the beginning of the account, which is part of every history of it.
  std::vector<pelto::HubState> states() const;
  /// The number of the client's session whose base corresponded to that state or to one that it has grown out
  /// of; 0 when none is known.
  std::int64_t sessionOf(const pelto::HubState& state) const;
  /// The number of the last session that learned of a state before that date; 0 when there was none.
  std::int64_t lastSessionBefore(Date date) const;

  /// Whether the account's present state has grown out of the state that the base corresponds to.
  bool goesOnWith(const pelto::RemoteChanges& remote) const;
  /// The number of the last session whose base corresponded to a state that the present one has grown out of;
  /// 0 when there was none.
  std::int64_t sessionInCommon(const pelto::RemoteChanges& remote) const;

  /// Records that the session of that number began with `remote` and that its base corresponds to `now`.
  void enter(const pelto::RemoteChanges& remote, const pelto::HubState& now, std::int64_t session, Date date);
  /// Stores the states with `client`.
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
