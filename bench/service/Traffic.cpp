#include "bench/service/Traffic.h"

#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <string_view>

// The program's own `send` and `recv` stand before the C library's, also for the calls that libcurl makes.
// Both do what those do, and count.

namespace {

corvane::servicebench::Traffic passed;

// libcurl hands over a request's head in one piece, which begins with its method. What is sealed begins
// otherwise.
bool beginsRequest(std::string_view bytes) {
  constexpr std::string_view kMethods[] = {"GET /", "PUT /", "DELETE /", "MKCOL /", "MOVE /", "PROPFIND /"};
  return std::any_of(std::begin(kMethods), std::end(kMethods),
                     [&](std::string_view method) { return bytes.starts_with(method); });
}

}  // namespace

extern "C" ssize_t send(int socket, const void* bytes, size_t count, int flags) {
  const ssize_t sent = ::sendto(socket, bytes, count, flags, nullptr, 0);
  if (sent > 0) {
    passed.sent += sent;
    passed.requests += beginsRequest({static_cast<const char*>(bytes), count}) ? 1 : 0;
  }
  return sent;
}

extern "C" ssize_t recv(int socket, void* bytes, size_t count, int flags) {
  const ssize_t received = ::recvfrom(socket, bytes, count, flags, nullptr, nullptr);
  if (received > 0 && (flags & MSG_PEEK) == 0) passed.received += received;
  return received;
}

namespace corvane::servicebench {

Traffic& Traffic::operator+=(const Traffic& other) {
  requests += other.requests;
  sent += other.sent;
  received += other.received;
  return *this;
}

Traffic operator-(Traffic a, const Traffic& b) { return a += {-b.requests, -b.sent, -b.received}; }

Traffic traffic() { return passed; }

void countTraffic(const Traffic& more) { passed += more; }

}  // namespace corvane::servicebench
