#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/HubConnection.h"

namespace corvane::pelto {

/// The version of the service's schema that this program needs: the number of the last script of
/// resources/hub/ of which it uses anything. A service of a later version tells whether it still serves this
/// one.
inline constexpr std::int32_t kHubVersion = 1;

/// A Hub in PostgreSQL (resources/hub/ holds its schema). It connects at the first call, keeps the connection
/// for the following ones and drops it when one fails; the next call connects anew. One thread.
///
/// It serves one exchange: when its time is over, all calls fail. However much the service gives, no more is
/// taken than an account may hold; a single row can be as long as the library takes (2 GiB).
///
/// A push whose end nobody heard (the connection was cut off while the transaction was being committed)
/// raises like any other failure; `hasPush` tells how it ended.
class PostgresHub : public Hub {
 public:
  /// `computer` is this computer's identifier, an upper-case UUID. Raises DotPeltoException for an address
  /// that cannot be used; nobody is asked yet.
  PostgresHub(std::string_view url, String computer, HubTimeouts timeouts = {});

  RemoteChanges remoteChanges(const std::vector<HubState>& seen) override;
  bool push(const HubPush& push) override;
  bool hasPush(const String& pushId) override;
  bool isEnabled(const String& dataClass) override;
  void setEnabled(const String& dataClass, bool enabled) override;

 private:
  /// What one look at the account tells.
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
  void readPast(HubConnection& connection, const State& state, RemoteChanges& remote);
  void readRecords(HubConnection& connection, const State& state, Since since, RemoteChanges& remote);
  void noteComputer();
  void putRecords(HubConnection& connection, const std::vector<HubRecord>& records);

  HubAddress _address;
  String _computer;
  HubTimeouts _timeouts;
  Deadline _end;
  std::unique_ptr<HubConnection> _connection;
};

}  // namespace corvane::pelto
