#include "tools/corvane-hub/HubServer.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <csignal>
#include <utility>

#include "tools/corvane-hub/Connection.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/ObjectFiles.h"
#include "tools/corvane-hub/ServiceLog.h"

namespace corvane::hubserver {

namespace {

constexpr std::chrono::seconds kTick{1};
constexpr std::chrono::seconds kEndTime{30};  // for requests that run when the server is to end

/// Raises the limit of open files as far as it goes, and answers how many connections that allows: most of
/// them wait, with a socket each, but some read or write a file besides.
std::size_t mostConnections() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) throw HubFailure("no limit of open files", lastSystemError());
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw HubFailure("the limit of open files stays low", lastSystemError());
  return static_cast<std::size_t>(limit.rlim_cur / 4 * 3);
}

}  // namespace

/// A listener with the wait for the next client.
struct HubServer::Door {
  Door(HubService& service, Listener opened) : listener(std::move(opened)), clients(service.context) {
    // Asio gets a descriptor of its own, since it closes it.
    clients.assign(::fcntl(listener.socket.number(), F_DUPFD_CLOEXEC, 0));
  }
  Listener listener;
  boost::asio::posix::stream_descriptor clients;
};

HubServer::HubServer(const HubConfiguration& configuration)
    : _service(configuration.data),
      _timer(_service.context),
      _signals(_service.context, SIGTERM, SIGINT, SIGHUP) {
  _service.accounts.prepare();
  _service.accounts.clearRemoved();
  // What a server that was killed made, but had not on the disk yet, clients are to see again: it gets there
  // first.
  _service.accounts.synchronize();
  _mostConnections = mostConnections();
  if (configuration.hasCertificate()) {
    _certificate = std::make_unique<TlsCertificate>(configuration.certificate, configuration.key);
  }
  for (Listener& listener : openListeners(configuration)) {
    const bool hasTls = _certificate && !listener.isUnix;
    logLine(Gravity::notice, "listens at " + listener.text + (hasTls ? " with TLS" : ""));
    accept(_doors.emplace_back(_service, std::move(listener)));
  }
  _service.watch.watchFile(_service.accounts.changedFile(), [this] { checkTokens(); });
}

HubServer::~HubServer() = default;

void HubServer::run() {
  hearSignals();
  tick();
  logLine(Gravity::notice, "serves " + _service.accounts.data());
  ::sd_notify(0, "READY=1");  // nobody listens where systemd did not start this
  _service.context.run();
}

void HubServer::accept(Door& door) {
  door.clients.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                          [this, &door](boost::system::error_code error) {
                            if (error || _service.isStopping) return;
                            if (takeIn(door)) {
                              accept(door);
                            } else {
                              _resting.push_back(&door);
                            }
                          });
}

/// False when the system has no room for another client just now.
bool HubServer::takeIn(Door& door) {
  std::error_code error;
  while (FileDescriptor client = acceptedClient(door.listener, error)) {
    if (_service.connections.size() >= _mostConnections) {
      if (!_saidFull)
        logLine(Gravity::warning, "turns clients away: there are as many as the limit of open files allows");
      _saidFull = true;
      continue;
    }
    try {
      TlsSession session(nullptr, &SSL_free);
      if (_certificate && !door.listener.isUnix) session = _certificate->session(client.number());
      Socket socket(_service.context,
                    boost::asio::generic::stream_protocol(door.listener.isUnix ? AF_UNIX : AF_INET, 0),
                    client.release());
      const auto connection =
          std::make_shared<Connection>(_service, Transport(std::move(socket), std::move(session)));
      _service.connections.insert(connection);
      connection->start();
    } catch (const HubFailure& failure) {
      logLine(Gravity::warning, failure.reason());
    }
  }
  // A client that went away again is none.
  if (error == std::errc::operation_would_block || error == std::errc::connection_aborted) return true;
  logLine(Gravity::warning, "cannot take a client in: " + error.message());
  return false;
}

void HubServer::tick() {
  _timer.expires_after(kTick);
  _timer.async_wait([this](boost::system::error_code error) {
    if (error) return;
    const TimePoint now = std::chrono::steady_clock::now();
    const auto connections = _service.connections;  // those that end leave it
    for (const auto& connection : connections) connection->tick(now);
    _service.rates.tidy(now);
    if (_service.connections.size() < _mostConnections) _saidFull = false;
    if (_certificate && _certificate->hasChanged()) reload(false);
    if (_service.isStopping) return endWhenQuiet();
    for (Door* door : std::exchange(_resting, {})) accept(*door);
    tick();
  });
}

void HubServer::hearSignals() {
  _signals.async_wait([this](boost::system::error_code error, int number) {
    if (error) return;
    if (number == SIGHUP) {
      reload(true);
    } else if (!_service.isStopping) {
      stop();
    }
    hearSignals();
  });
}

void HubServer::reload(bool asked) {
  if (!_certificate) return;
  try {
    _certificate->reload();
    logLine(Gravity::notice, "has read its certificate again");
  } catch (const HubFailure& failure) {
    // Files that change one after another do not fit for a moment.
    logLine(asked ? Gravity::error : Gravity::warning,
            "keeps the certificate that it has: " + failure.reason());
  }
}

void HubServer::checkTokens() {
  const auto connections = _service.connections;
  for (const auto& connection : connections) connection->checkToken();
}

void HubServer::stop() {
  ::sd_notify(0, "STOPPING=1");
  logLine(Gravity::notice, "ends");
  _service.isStopping = true;
  _end = std::chrono::steady_clock::now() + kEndTime;
  _resting.clear();
  _doors.clear();
  const auto connections = _service.connections;
  for (const auto& connection : connections) connection->stop();
  _timer.cancel();
  endWhenQuiet();
}

void HubServer::endWhenQuiet() {
  const TimePoint now = std::chrono::steady_clock::now();
  if (_service.connections.empty() || now >= _end) return _service.context.stop();
  _timer.expires_after(std::chrono::milliseconds(50));
  _timer.async_wait([this](boost::system::error_code error) {
    if (error) return;
    const auto connections = _service.connections;
    for (const auto& connection : connections) connection->tick(std::chrono::steady_clock::now());
    endWhenQuiet();
  });
}

}  // namespace corvane::hubserver
