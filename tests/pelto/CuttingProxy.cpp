#include "tests/pelto/CuttingProxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane {

namespace {

constexpr std::uint32_t kEncryptionRequest = 80877103;

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

[[noreturn]] void fail(const char* operation) {
  throw std::system_error(errno, std::system_category(), operation);
}

bool sendAll(int to, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count =
        retryingInterrupted([&] { return ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL); });
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// What has arrived; nothing at the end.
std::string receiveSome(int from, std::size_t most = 65536) {
  char buffer[65536];
  const ssize_t count =
      retryingInterrupted([&] { return ::recv(from, buffer, std::min(most, sizeof buffer), 0); });
  return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : std::string();
}

// Reads the server's answer up to "ready for query", its last message, or to the connection's end.
std::string awaitAnswer(int server) {
  std::string answer;
  while (answer.size() < 6 || answer.compare(answer.size() - 6, 5, std::string("Z\0\0\0\5", 5)) != 0) {
    const std::string more = receiveSome(server);
    if (more.empty()) break;
    answer += more;
  }
  return answer;
}

// Sends the answer without its end, and its rows for as long as somebody takes them.
void sendForEver(int client, const std::string& answer) {
  std::string beforeRows, rows;
  for (std::size_t at = 0; at + 5 <= answer.size();) {
    const std::string message = answer.substr(at, 1 + loadBigEndian(answer.data() + at + 1, 4));
    at += message.size();
    if (message[0] == 'D') {
      rows += message;
    } else if (rows.empty()) {
      beforeRows += message;
    }
  }
  bool isTaken = !rows.empty() && sendAll(client, beforeRows);
  while (isTaken) isTaken = sendAll(client, rows);
}

// What is passed on piece by piece must not wait for the other side's acknowledgement.
void sendAtOnce(int socket) {
  const int isOn = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &isOn, sizeof isOn);
}

void reset(int socket) {
  const linger now{1, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

}  // namespace

CuttingProxy::CuttingProxy(int serverPort) : _serverPort(serverPort) {
  _listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (_listener < 0 || ::bind(_listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::listen(_listener, 16) != 0 ||
      ::getsockname(_listener, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      ::pipe2(_stop, O_CLOEXEC) != 0)
    fail("listen");
  _port = ntohs(address.sin_port);
  _thread = std::thread([this] { serve(); });
}

CuttingProxy::~CuttingProxy() {
  {
    const std::lock_guard lock(_mutex);
    _isStopping = true;
    _changed.notify_all();
  }
  ::close(_stop[1]);
  _thread.join();
  ::close(_stop[0]);
  ::close(_listener);
}

std::string CuttingProxy::through(const std::string& url) const {
  const std::string port = ":" + std::to_string(_serverPort) + "/";
  std::string changed = url;
  return changed.replace(changed.find(port), port.size(), ":" + std::to_string(_port) + "/");
}

void CuttingProxy::cutAt(int message, Moment moment, std::function<void()> action) {
  const std::lock_guard lock(_mutex);
  _messages = 0;
  _cut = message;
  _isSilent = false;
  _moment = moment;
  _action = std::move(action);
  _changed.notify_all();
}

void CuttingProxy::fallSilentAt(int message) {
  cutAt(message);
  const std::lock_guard lock(_mutex);
  _isSilent = true;
}

void CuttingProxy::serve() {
  while (true) {
    pollfd waited[] = {{_listener, POLLIN, 0}, {_stop[0], POLLIN, 0}};
    if (retryingInterrupted([&] { return ::poll(waited, 2, -1); }) < 0 || waited[1].revents != 0) return;
    const FileDescriptor client(::accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC));
    const FileDescriptor server(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(_serverPort);
    if (::connect(server.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      continue;
    sendAtOnce(client.number());
    sendAtOnce(server.number());
    relay(client.number(), server.number());
  }
}

// What has arrived, after the time that the line takes for it.
std::string CuttingProxy::carried(int from) const {
  const int most = _bytesAtOnce;
  if (most == 0) return receiveSome(from);
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return receiveSome(from, static_cast<std::size_t>(most));
}

void CuttingProxy::relay(int client, int server) {
  std::string pending;
  bool isStarted = false;
  while (true) {
    pollfd waited[] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {_stop[0], POLLIN, 0}};
    if (retryingInterrupted([&] { return ::poll(waited, 3, -1); }) < 0 || waited[2].revents != 0) return;
    if (waited[1].revents != 0) {
      const std::string bytes = carried(server);
      if (bytes.empty() || !sendAll(client, bytes)) return;
    }
    if (waited[0].revents != 0) {
      const std::string bytes = carried(client);
      pending += bytes;
      if (bytes.empty() || !carryMessages(pending, isStarted, client, server)) return;
    }
  }
}

// Whether this is where the connection is to be cut; runs the action then.
bool CuttingProxy::isCut(int number, Moment moment) {
  std::function<void()> action;
  {
    std::unique_lock lock(_mutex);
    if (_cut == 0 || number != _cut || moment != _moment) return false;
    action = _action;
    _changed.wait(lock, [this] { return !_isSilent || _isStopping; });
  }
  if (action) action();
  return true;
}

// Sends the whole messages among the bytes on; false when the connection is to be cut.
bool CuttingProxy::carryMessages(std::string& pending, bool& isStarted, int client, int server) {
  while (true) {
    // Until the session has started messages have no type.
    const std::size_t header = isStarted ? 5 : 4;
    if (pending.size() < header) return true;
    const std::size_t size = header - 4 + loadBigEndian(pending.data() + header - 4, 4);
    if (pending.size() < size) return true;
    const std::string message = pending.substr(0, size);
    pending.erase(0, size);
    // A farewell may come when the next connection's messages are being counted already.
    if (isStarted && message[0] == 'X') return sendAll(server, message);
    const int number = ++_messages;
    if (isCut(number, Moment::before)) {
      reset(client);
      return false;
    }
    if (!sendAll(server, message)) return false;
    // A query, or the end of one given in pieces.
    const bool isAnswered = isStarted && (message[0] == 'Q' || message[0] == 'S');
    if (!isStarted) isStarted = loadBigEndian(message.data() + 4, 4) != kEncryptionRequest;
    std::string answer;
    {
      const std::lock_guard lock(_mutex);
      if (isAnswered && number == _cut && _moment != Moment::before) answer = awaitAnswer(server);
    }
    if (isCut(number, Moment::after)) return false;
    if (isCut(number, Moment::endless)) {
      sendForEver(client, answer);
      return false;
    }
  }
}

}  // namespace corvane
