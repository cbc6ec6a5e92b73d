#include "tests/fakes/FreePort.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <system_error>

namespace corvane {

int freePort() {
  std::random_device random;
  for (int i = 0; i < 1000; ++i) {
    const int port = 15000 + static_cast<int>(random() % 17000);
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0) throw std::system_error(errno, std::system_category(), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool isFree = ::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(probe);
    if (isFree) return port;
  }
  throw std::runtime_error("no port is free");
}

}  // namespace corvane
