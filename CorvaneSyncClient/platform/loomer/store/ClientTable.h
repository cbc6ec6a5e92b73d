#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

namespace corvane::loomer {

/// What the store knows of a client between its sessions.
struct ClientState {
  std::int64_t id = 0;
  String identifier;
  Date registered;
  bool resetPending = false;                   ///< its records are to be replaced at its next session
  bool cancelled = false;                      ///< its last session was, after which it asks for refresh
  bool restorePending = false;                 ///< its next session restores whatever it lacks
  std::optional<std::int64_t> syncedRevision;  ///< the truth that its base stands for; nothing: no base yet
  std::int64_t sessions = 0;                   ///< finished ones
  std::int64_t sessionsWithoutRecords = 0;     ///< finished ones in a row that took no records
  bool delivered = false;                      ///< the last finished one delivered something
  std::optional<Date> lastSession;
};

/// The registered clients and the values that are kept for them. Every change is a transaction of its own
/// unless one is open.
class ClientTable {
 public:
  explicit ClientTable(TruthStore& store) : _store(store) {}

  /// Nothing when there is no such client.
  std::optional<ClientState> find(const String& identifier);
  /// By identifier, sorted.
  std::vector<ClientState> all();

  /// Registers a client, or renews the description of the registered one when it differs. A plain property
  /// list.
  void enter(const String& identifier, const Dictionary& description, Date now);
  /// As it was registered; empty for an unknown client.
  Dictionary description(std::int64_t client);
  /// Takes the client out with its base, its values and what is pending for it.
  void remove(std::int64_t client);
  /// Whether its next session replaces all that it holds.
  void setResetPending(std::int64_t client, bool pending);
  /// Whether its next session gives back what it lacks.
  void setRestorePending(std::int64_t client, bool pending);
  /// Notes that the client's session was cancelled; until one finishes.
  void setCancelled(std::int64_t client);
  /// Notes a finished session.
  void finishSession(const ClientState& after);

  /// The value under `key`, exactly as it was stored; nothing when there is none.
  std::optional<Value> value(std::int64_t client, const String& key);
  /// Nothing removes the value. A value equal to the stored one writes nothing. Raises PropertyListException
  /// for one that no property list can hold.
  void setValue(std::int64_t client, const String& key, const std::optional<Value>& value);

 private:
  TruthStore& _store;
};

/// Takes the client out, and with it its journal and the note of its failed runs.
void forgetClient(TruthStore& store, const ClientState& client);

}  // namespace corvane::loomer
