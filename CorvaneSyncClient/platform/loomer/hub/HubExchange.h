#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"

namespace corvane::loomer {

class ClientRegistry;

/// Opens the way to the online service, contacting nobody; null when there is no account.
using HubOpener = std::function<std::unique_ptr<pelto::Hub>()>;

/// Exchanges changes between the truth and the online service, around the sessions of one run. Whatever goes
/// wrong there ends the exchanges of this object with one line in the system log and nothing else: the next
/// run catches up.
///
/// A push holds the store's lock up, so that much is given in several, each as large as the line to the
/// service lets it be in a few seconds.
class HubExchange {
 public:
  /// `clients` must outlive this object.
  HubExchange(ClientRegistry& clients, HubOpener openHub);
  ~HubExchange();

  /// Takes in what the service has that this computer has not seen, and gives it one push of what it lacks.
  void takeIn();
  /// Gives what the service lacks, for a minute or two at most; asks it nothing where it lacks nothing.
  void giveChanges();

 private:
  enum class Outcome {
    done,
    more,       ///< there is more to give
    overtaken,  ///< another computer or process was faster, or another account was met than before
  };

  void guarded(void (HubExchange::*work)());
  void exchange();
  void giveEverything();
  Outcome exchangeOnce();
  Outcome runSession(LoomerClient& client, HubClient source);
  void suitPush(double seconds, bool wasFull);
  void report(const HubClient& source, bool wentBack);
  LoomerClient& hubClient();
  bool hasChangesForHub();

  ClientRegistry& _clients;
  HubOpener _openHub;
  std::unique_ptr<pelto::Hub> _hub;
  std::size_t _mostRecords;  // in one push
  bool _hasMore = false;     // to give than the last push took
  bool _ended = false;  // nothing more is exchanged: there is no account, it is switched off, or it failed
};

/// Runs a client's sessions between two exchanges with the online service.
class ExchangingSessionDriver : public LoomerSessionDriver {
 public:
  ExchangingSessionDriver(std::unique_ptr<LoomerSessionDriver> driver, std::unique_ptr<HubExchange> exchange);

  void _setClient(LoomerClient* client) override { _driver->_setClient(client); }
  LoomerClient* client() override { return _driver->client(); }
  bool sync() override;
  String lastError() override { return _driver->lastError(); }

 private:
  std::unique_ptr<LoomerSessionDriver> _driver;
  std::unique_ptr<HubExchange> _exchange;
};

}  // namespace corvane::loomer
