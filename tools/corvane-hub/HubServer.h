#pragma once

#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "tools/corvane-hub/HubConfiguration.h"
#include "tools/corvane-hub/HubService.h"
#include "tools/corvane-hub/Listeners.h"
#include "tools/corvane-hub/TlsCertificate.h"

namespace corvane::hubserver {

/// The server: takes connections in, lets the clock pass, and hears the signals.
class HubServer {
 public:
  /// Opens everything. Raises HubFailure.
  explicit HubServer(const HubConfiguration& configuration);
  ~HubServer();

  /// Serves until SIGTERM or SIGINT has come and what runs then is finished.
  void run();

 private:
  struct Door;

  void accept(Door& door);
  bool takeIn(Door& door);
  void tick();
  void hearSignals();
  void reload(bool asked);
  void checkTokens();
  void stop();
  void endWhenQuiet();

  HubService _service;
  std::unique_ptr<TlsCertificate> _certificate;
  std::list<Door> _doors;
  std::vector<Door*> _resting;  // those that no client can be taken in at before the next tick
  boost::asio::steady_timer _timer;
  boost::asio::signal_set _signals;
  std::size_t _mostConnections = 0;
  TimePoint _end;
  bool _saidFull = false;
};

}  // namespace corvane::hubserver
