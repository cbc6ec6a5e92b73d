#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/HubConnection.h"

namespace corvane::pelto {

/// The version of the service's schema that this program needs: the number of the last script in
/// resources/hub/ that it depends on. A newer service says itself whether it still supports this version.
inline constexpr std::int32_t kHubVersion = 3;

/// A Hub in PostgreSQL (resources/hub/ holds its schema). It connects at the first call and keeps the
/// connection until a call fails; the next call then connects again.
///
/// It serves one exchange: when the exchange's time is up, every call fails. It never reads more than an
/// account may hold, whatever the service sends; a single row is limited by libpq (2 GiB).
///
/// A push whose outcome is unknown, because the connection was lost during the commit, raises like any other
/// failure; `hasPush` then answers how it ended.
class PostgresHub : public Hub {
 public:
  /// `computer` is this computer's identifier, an upper-case UUID. Raises DotPeltoException for an address
  /// that cannot be used. Does not connect yet.
  PostgresHub(std::string_view url, String computer, HubTimeouts timeouts = {});

  RemoteChanges remoteChanges(const std::vector<HubState>& seen) override;
  HubPushed push(const HubPush& push) override;
  bool hasPush(const String& pushId) override;
  bool isEnabled(const String& dataClass) override;
  void setEnabled(const String& dataClass, bool enabled) override;

 private:
  /// What one query of the account returns.
  struct State;
  struct Since;

  /// How a transaction that may write is to end.
  enum class Ending { commit, rollBack };

  /// Runs `work` in a transaction that sees one moment of the service; answers what it answers.
  template <typename Work>
  auto reading(const char* purpose, const Work& work);
  /// Runs `work` in a transaction that ends as `work` says; answers how.
  template <typename Work>
  Ending writing(const char* purpose, const Work& work);
  /// Runs `transaction`, and runs it again where another one was in its way. When anything fails the
  /// connection is dropped, and the server rolls back.
  template <typename Transaction>
  auto repeatingOnConflict(const Transaction& transaction);
  HubConnection& connected();
  void checkVersion(HubConnection& connection);
  void requireAccount(const HubRows& rows, const char* purpose) const;
  State readState(HubConnection& connection);
  std::optional<HubState> newestCommon(HubConnection& connection, const State& state,
                                       const std::vector<HubState>& seen);
  std::optional<HubState> newestOf(HubConnection& connection, const State& state,
                                   const std::vector<HubState>& seen);
  std::optional<HubState> firstGivenAgain(HubConnection& connection, const State& state,
                                          const std::vector<HubState>& seen,
                                          const std::optional<HubState>& common);
  void readPast(HubConnection& connection, const State& state, RemoteChanges& remote);
  void readRecords(HubConnection& connection, const State& state, Since since, RemoteChanges& remote);
  void noteComputer();
  void putRecords(HubConnection& connection, const std::vector<HubRecord>& records);
  void giveAgain(HubConnection& connection, const std::vector<HubState>& states);

  HubAddress _address;
  String _computer;
  HubTimeouts _timeouts;
  Deadline _end;
  std::unique_ptr<HubConnection> _connection;
};

}  // namespace corvane::pelto
