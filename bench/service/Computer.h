#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "bench/service/Traffic.h"

namespace corvane::servicebench {

/// A way to an account's place, for one session.
using Connect = std::function<std::unique_ptr<pelto::Place>()>;

/// What one session cost, less the making of the edit itself.
struct Session {
  Traffic traffic;
  double processorSeconds = 0;  ///< of this process
  double serviceSeconds = 0;    ///< in the service's client: sealing, reading, waiting for the place
  int given = 0;                ///< pushes
  std::size_t taken = 0;        ///< records

  bool isQuiet() const { return given == 0 && taken == 0; }
  Session& operator+=(const Session& other);
};

/// A computer of one account: an engine's store, and what is kept of the chain, in a home of its own. Between
/// two sessions nothing of it is open, as between two runs of the tool.
class Computer {
 public:
  /// `sealer` is the account's, and must outlive this object.
  Computer(const pelto::Sealer& sealer, Connect connect, std::string home);

  /// One session, in which the engine's truth is edited as `edit` says, where it says something, between the
  /// two exchanges with the service.
  Session sync(const loomer::TruthPlanner& edit = {});
  /// Sessions until nothing is new on either side, as one; the quiet one at the end does not count.
  Session syncAll(const loomer::TruthPlanner& edit = {});

  /// How many live records it holds.
  std::size_t records() const;
  /// Its tree, with the identifiers that all computers know.
  std::string tree() const;
  /// What it knows of the chain.
  pelto::chain::Kept kept() const;

 private:
  std::string keptPath() const { return _home + "/Chain.plist"; }

  const pelto::Sealer& _sealer;
  Connect _connect;
  std::string _home;
  std::string _store;
  String _identifier;
};

/// Of a new account.
pelto::Sealer newSealer();

/// Raises std::runtime_error unless all hold one tree.
void requireAgreement(const std::vector<std::unique_ptr<Computer>>& computers);

}  // namespace corvane::servicebench
