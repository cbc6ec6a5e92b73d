#include "tests/corvane-hub/HubClient.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace corvane {

namespace {

constexpr const char* kHost = "Host: hub.example\r\n";

}  // namespace

HubClient::HubClient(int port, std::string token)
    : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), _token(std::move(token)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const timeval patience{60, 0};
  if (_socket < 0 || ::setsockopt(_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0)
    throw std::system_error(errno, std::system_category(), "socket");
  if (::connect(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(_socket);
    throw ConnectionEnded("nobody listens");
  }
}

HubClient::~HubClient() { ::close(_socket); }

HttpAnswer HubClient::get(const std::string& target, const std::string& headers) {
  send(request("GET", target, headers));
  return receive();
}

HttpAnswer HubClient::put(const std::string& target, std::string_view body, const std::string& headers) {
  send(request("PUT", target, headers + "Content-Length: " + std::to_string(body.size()) + "\r\n") +
       std::string(body));
  return receive();
}

HttpAnswer HubClient::putNew(const std::string& target, std::string_view body) {
  return put(target, body, "If-None-Match: *\r\n");
}

HttpAnswer HubClient::remove(const std::string& target) {
  send(request("DELETE", target));
  return receive();
}

std::string HubClient::request(const std::string& method, const std::string& target,
                               const std::string& headers) const {
  const std::string authorization = _token.empty() ? "" : "Authorization: Bearer " + _token + "\r\n";
  return method + " " + target + " HTTP/1.1\r\n" + kHost + authorization + headers + "\r\n";
}

bool HubClient::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

HttpAnswer HubClient::receive() {
  HttpAnswer answer;
  const std::string first = takeLine();
  if (!first.starts_with("HTTP/1.1 ")) throw std::runtime_error("no answer of HTTP/1.1: " + first);
  answer.status = std::stoi(first.substr(9));
  for (std::string line = takeLine(); !line.empty(); line = takeLine()) {
    const std::size_t colon = line.find(": ");
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    answer.headers[name] = line.substr(colon + 2);
  }
  if (answer.header("transfer-encoding") == "chunked") {
    while (const std::size_t size = std::stoul(takeLine(), nullptr, 16)) {
      answer.body += take(size);
      takeLine();
    }
    takeLine();
  } else if (!answer.header("content-length").empty()) {
    answer.body = take(std::stoul(answer.header("content-length")));
  }
  return answer;
}

bool HubClient::isClosed() {
  while (true) {
    try {
      if (!fill()) return true;
      _input.clear();
    } catch (const ConnectionEnded&) {
      return false;
    }
  }
}

void HubClient::endSending() { ::shutdown(_socket, SHUT_WR); }

/// Reads what comes; false at the end of the connection. Raises ConnectionEnded when nothing comes in a
/// minute.
bool HubClient::fill() {
  char buffer[64 * 1024];
  while (true) {
    const ssize_t count = ::recv(_socket, buffer, sizeof buffer, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) throw ConnectionEnded("no answer");
    if (count <= 0) return false;
    _input.append(buffer, static_cast<std::size_t>(count));
    return true;
  }
}

std::string HubClient::takeLine() {
  while (_input.find("\r\n") == std::string::npos) {
    if (!fill()) throw ConnectionEnded("the connection was closed");
  }
  const std::string line = _input.substr(0, _input.find("\r\n"));
  _input.erase(0, line.size() + 2);
  return line;
}

std::string HubClient::take(std::size_t size) {
  while (_input.size() < size) {
    if (!fill()) throw ConnectionEnded("the connection was closed within a body");
  }
  const std::string bytes = _input.substr(0, size);
  _input.erase(0, size);
  return bytes;
}

}  // namespace corvane
