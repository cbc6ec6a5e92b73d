#include "CorvaneSyncClient/platform/pelto/HostLookup.h"

#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>

#include <cerrno>
#include <future>
#include <memory>
#include <system_error>
#include <thread>

namespace corvane::pelto {

namespace {

struct AddressesDeleter {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

HostAddresses addressesOf(const std::string& name, int flags) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* list = nullptr;
  const int error = getaddrinfo(name.c_str(), nullptr, &hints, &list);
  if (error != 0)
    return {{}, error == EAI_SYSTEM ? std::system_category().message(errno) : gai_strerror(error)};
  const std::unique_ptr<addrinfo, AddressesDeleter> owner(list);
  HostAddresses found;
  for (const addrinfo* each = list; each; each = each->ai_next) {
    char text[NI_MAXHOST];
    if (getnameinfo(each->ai_addr, each->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0)
      found.numeric.emplace_back(text);
  }
  if (found.numeric.empty()) found.problem = "it has no address";
  return found;
}

}  // namespace

Deadline after(double seconds) {
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<Deadline::duration>(std::chrono::duration<double>(seconds));
}

HostAddresses lookUpHost(const std::string& name, Deadline deadline) {
  // Never the business of a name server (RFC 6761).
  if (::strcasecmp(name.c_str(), "localhost") == 0) return {{"127.0.0.1", "::1"}, {}};
  HostAddresses numeric = addressesOf(name, AI_NUMERICHOST);
  if (!numeric.numeric.empty()) return numeric;

  std::packaged_task<HostAddresses()> task([name] { return addressesOf(name, AI_ADDRCONFIG); });
  std::future<HostAddresses> answer = task.get_future();
  try {
    std::thread(std::move(task)).detach();
  } catch (const std::system_error& error) {
    return {{}, error.code().message()};
  }
  if (answer.wait_until(deadline) != std::future_status::ready)
    return {{}, "no name server answered in time"};
  return answer.get();
}

}  // namespace corvane::pelto
