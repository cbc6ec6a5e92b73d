#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/hub/PushSize.h"
#include "CorvaneSyncClient/platform/loomer/session/EmbeddedSessionDriver.h"

namespace corvane::loomer {

/// Makes the online service's hub without connecting; null when there is no account.
using HubOpener = std::function<std::unique_ptr<pelto::Hub>()>;

/// Exchanges changes between the truth and the online service, around the sessions of one run. A failure ends
/// the exchanges of this object with one line in the system log, is noted among the failed runs, and has no
/// other effect: the next run catches up.
///
/// The store is locked during a push. Many changes are therefore given in several pushes, each as large as
/// the connection carries in a few seconds.
class HubExchange : public Exchange {
 public:
  /// `clients` must outlive this object.
  HubExchange(ClientRegistry& clients, HubOpener openHub);
  ~HubExchange() override;

  /// Takes in the remote changes that this computer has not seen, and then gives one push of what the service
  /// lacks.
  void takeIn() override;
  /// Gives everything that the service lacks, for a minute or two at most. Does not contact it when it lacks
  /// nothing, and does not ask again what `takeIn` has heard: a push shows whether another computer was
  /// faster.
  void giveChanges() override;

 private:
  /// How one session of the service ended.
  enum class Outcome {
    done,
    more,       ///< there is more to give
    takenIn,    ///< what was new, and nothing is given yet
    overtaken,  ///< another computer or process was faster, or the account is not the one of the last time
  };

  /// Whether there was something to exchange with, and nothing failed.
  bool guarded(void (HubExchange::*work)());
  void fail(const Message& cause) noexcept;
  void exchange();
  void giveEverything();
  Outcome exchangeOnce();
  pelto::RemoteChanges remoteChanges(const HubPast& past);
  Outcome giveAgain(LoomerClient& client, HubClient& source);
  Outcome runSession(LoomerClient& client, HubClient& source, bool gives);
  Outcome takeInAlone(LoomerClient& client);
  void report(const HubClient& source, bool wentBack, std::int64_t client);
  LoomerClient& hubClient();
  bool hasChangesForHub();

  ClientRegistry& _clients;
  HubOpener _openHub;
  std::unique_ptr<pelto::Hub> _hub;
  /// What the service answered last, without its changes; absent once another computer was faster since.
  std::optional<pelto::RemoteChanges> _known;
  PushSize _pushSize;
  bool _hasMore = false;  ///< to give than the last push took
  bool _hasRoom = true;   ///< at the service, as far as this run knows
  bool _ended = false;    ///< no more exchanges: there is no account, it is switched off, or it failed
};

}  // namespace corvane::loomer
