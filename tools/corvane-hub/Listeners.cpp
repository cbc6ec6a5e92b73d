#include "tools/corvane-hub/Listeners.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstring>

#include "tools/corvane-hub/HubFailure.h"

namespace corvane::hubserver {

namespace {

/// An address as the system wants it.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = 0;

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

SocketAddress addressOf(const ListenAddress& address) {
  SocketAddress result;
  if (address.host.empty()) {
    auto& local = reinterpret_cast<sockaddr_un&>(result.storage);
    local.sun_family = AF_UNIX;
    address.path.copy(local.sun_path, sizeof local.sun_path - 1);
    result.length = sizeof local;
  } else if (address.host.find(':') != std::string::npos) {
    auto& six = reinterpret_cast<sockaddr_in6&>(result.storage);
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(address.port);
    ::inet_pton(AF_INET6, address.host.c_str(), &six.sin6_addr);
    result.length = sizeof six;
  } else {
    auto& four = reinterpret_cast<sockaddr_in&>(result.storage);
    four.sin_family = AF_INET;
    four.sin_port = htons(address.port);
    ::inet_pton(AF_INET, address.host.c_str(), &four.sin_addr);
    result.length = sizeof four;
  }
  return result;
}

/// What a socket is bound to, as `ListenAddress::text` words it.
std::string boundText(const FileDescriptor& socket) {
  SocketAddress bound;
  bound.length = sizeof bound.storage;
  if (::getsockname(socket.number(), reinterpret_cast<sockaddr*>(&bound.storage), &bound.length) != 0)
    return "a socket";
  ListenAddress address;
  char text[INET6_ADDRSTRLEN] = "";
  if (bound.storage.ss_family == AF_INET) {
    const auto& four = reinterpret_cast<const sockaddr_in&>(bound.storage);
    address.host = ::inet_ntop(AF_INET, &four.sin_addr, text, sizeof text);
    address.port = ntohs(four.sin_port);
  } else if (bound.storage.ss_family == AF_INET6) {
    const auto& six = reinterpret_cast<const sockaddr_in6&>(bound.storage);
    address.host = ::inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text);
    address.port = ntohs(six.sin6_port);
  } else {
    address.path = reinterpret_cast<const sockaddr_un&>(bound.storage).sun_path;
  }
  return address.text();
}

/// Removes the socket that a server left which was killed. One that is still answered stays, and binding
/// fails.
void removeDeadSocket(const ListenAddress& address, const SocketAddress& where) {
  struct stat status {};
  if (::lstat(address.path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
  const FileDescriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (probe && ::connect(probe.number(), where.get(), where.length) != 0 && errno == ECONNREFUSED) {
    ::unlink(address.path.c_str());  // where that fails, so does binding
  }
}

Listener opened(const ListenAddress& address) {
  const SocketAddress where = addressOf(address);
  const int family = where.get()->sa_family;
  Listener listener;
  listener.isUnix = family == AF_UNIX;
  if (listener.isUnix) removeDeadSocket(address, where);
  listener.socket = FileDescriptor(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int one = 1;
  // An old server's connections that have not faded away must not keep a new one from the port.
  const bool bound =
      listener.socket &&
      ::setsockopt(listener.socket.number(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) == 0 &&
      (family != AF_INET6 ||
       ::setsockopt(listener.socket.number(), IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one) == 0) &&
      ::bind(listener.socket.number(), where.get(), where.length) == 0;
  if (!bound || ::listen(listener.socket.number(), SOMAXCONN) != 0) {
    throw HubFailure("no listening at " + address.text(), lastSystemError());
  }
  // A proxy runs as another user: the directory decides who reaches the socket.
  if (listener.isUnix && ::chmod(address.path.c_str(), 0666) != 0) {
    throw HubFailure(address.path + " cannot be opened to the proxy", lastSystemError());
  }
  listener.text = boundText(listener.socket);
  return listener;
}

Listener inherited(int number) {
  Listener listener;
  listener.socket = FileDescriptor(number);
  listener.isUnix = ::sd_is_socket(number, AF_UNIX, SOCK_STREAM, 1) > 0;
  if (!listener.isUnix && ::sd_is_socket(number, 0, SOCK_STREAM, 1) <= 0) {
    throw HubFailure("systemd passed a descriptor that is no listening stream socket");
  }
  const int flags = ::fcntl(number, F_GETFL);
  if (flags < 0 || ::fcntl(number, F_SETFL, flags | O_NONBLOCK) != 0) {
    throw HubFailure("systemd's socket cannot be used", lastSystemError());
  }
  listener.text = boundText(listener.socket);
  return listener;
}

}  // namespace

std::vector<Listener> openListeners(const HubConfiguration& configuration) {
  std::vector<Listener> listeners;
  const int count = ::sd_listen_fds(1);
  for (int i = 0; i < count; ++i) listeners.push_back(inherited(SD_LISTEN_FDS_START + i));
  if (!listeners.empty()) return listeners;
  for (const ListenAddress& address : configuration.listen) listeners.push_back(opened(address));
  if (listeners.empty())
    throw HubFailure("the configuration has no \"listen\", and systemd passed no socket");
  return listeners;
}

FileDescriptor acceptedClient(const Listener& listener, std::error_code& error) {
  FileDescriptor client(retryingInterrupted(
      [&] { return ::accept4(listener.socket.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); }));
  error = client ? std::error_code() : lastSystemError();
  const int one = 1;
  // Without it answers only come later.
  if (client && !listener.isUnix) ::setsockopt(client.number(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return client;
}

}  // namespace corvane::hubserver
