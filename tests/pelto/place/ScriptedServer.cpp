#include "tests/pelto/place/ScriptedServer.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace corvane {

bool ScriptedConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void ScriptedConnection::awaitEnd() {
  char buffer[1024];
  while (::recv(_descriptor, buffer, sizeof buffer, 0) > 0) {
  }
}

ScriptedServer::ScriptedServer(std::string answer)
    : ScriptedServer([answer = std::move(answer)](const std::string&, ScriptedConnection& connection) {
        connection.send(answer);
      }) {}

ScriptedServer::ScriptedServer(Script script) : _script(std::move(script)) {
  _listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (_listener < 0 || ::bind(_listener, any, length) != 0 || ::listen(_listener, 64) != 0 ||
      ::getsockname(_listener, any, &length) != 0)
    throw std::runtime_error("no port to listen at");
  _port = ntohs(address.sin_port);
  _accepting = std::thread([this] { accept(); });
}

ScriptedServer::~ScriptedServer() {
  ::shutdown(_listener, SHUT_RDWR);
  _accepting.join();
  for (std::thread& thread : _threads) thread.join();
  ::close(_listener);
}

std::vector<std::string> ScriptedServer::requests() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

void ScriptedServer::accept() {
  while (true) {
    const int connection = ::accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    _threads.emplace_back([this, connection] { serve(connection); });
  }
}

// A request's body has the length that its header announces.
void ScriptedServer::serve(int descriptor) {
  std::string request;
  std::size_t wanted = std::string::npos;
  char buffer[4096];
  while (request.size() < wanted) {
    const ssize_t count = ::recv(descriptor, buffer, sizeof buffer, 0);
    if (count <= 0) break;
    request.append(buffer, static_cast<std::size_t>(count));
    const std::size_t end = request.find("\r\n\r\n");
    if (end == std::string::npos) continue;
    const std::size_t length = request.find("Content-Length: ");
    wanted = end + 4 + (length < end ? std::strtoul(request.c_str() + length + 16, nullptr, 10) : 0);
  }
  if (!request.empty()) {
    {
      const std::lock_guard lock(_mutex);
      _requests.push_back(request);
    }
    ScriptedConnection connection(descriptor);
    _script(request, connection);
  }
  ::shutdown(descriptor, SHUT_WR);
  ::close(descriptor);
}

std::string httpAnswer(const std::string& status, const std::string& body, const std::string& headers) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n" + headers + "\r\n" + body;
}

}  // namespace corvane
