#include "bench/hubload/Traffic.h"

#include <sys/socket.h>

// The program's own `send` and `recv` stand before the C library's, also for the calls that libpq makes. Both
// do what those do, and count.

namespace {
corvane::hubload::Traffic counted;
}

extern "C" ssize_t send(int socket, const void* bytes, size_t count, int flags) {
  const ssize_t sent = ::sendto(socket, bytes, count, flags, nullptr, 0);
  if (sent > 0) counted.sent += sent;
  return sent;
}

extern "C" ssize_t recv(int socket, void* bytes, size_t count, int flags) {
  const ssize_t received = ::recvfrom(socket, bytes, count, flags, nullptr, nullptr);
  if (received > 0 && (flags & MSG_PEEK) == 0) counted.received += received;
  return received;
}

namespace corvane::hubload {

Traffic traffic() { return counted; }

}  // namespace corvane::hubload
