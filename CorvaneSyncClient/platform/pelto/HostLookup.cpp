#include "CorvaneSyncClient/platform/pelto/HostLookup.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <strings.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>
#include <memory>
#include <sstream>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::pelto {

namespace {

struct AddressesDeleter {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

HostAddresses resolve(const std::string& name, int flags) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* list = nullptr;
  const int error = getaddrinfo(name.c_str(), nullptr, &hints, &list);
  if (error != 0) return {{}, error == EAI_SYSTEM ? lastSystemError().message() : gai_strerror(error)};
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

// The child writes a line with the problem, which is empty when there is none, a line for each address, and a
// zero byte. An answer without the zero byte was cut off.

std::string encoded(const HostAddresses& found) {
  std::string text = found.problem + '\n';
  for (const std::string& address : found.numeric) text += address + '\n';
  return text + '\0';
}

HostAddresses decoded(const std::string& text) {
  if (!text.ends_with('\0')) return {{}, "the lookup was cut off"};
  std::istringstream lines(text.substr(0, text.size() - 1));
  HostAddresses found;
  std::getline(lines, found.problem);
  for (std::string address; std::getline(lines, address);) found.numeric.push_back(address);
  return found;
}

// Closes every inherited descriptor except the answer and the standard streams, so that the parent's locks
// end with the parent.
void closeInherited(const FileDescriptor& answer) {
  constexpr unsigned kFirst = STDERR_FILENO + 1;
  const auto kept = static_cast<unsigned>(answer.number());
  // Neither call can fail on Linux 5.9 or later; on an older kernel the descriptors stay open until the child
  // ends.
  if (kept > kFirst) ::close_range(kFirst, kept - 1, 0);
  ::close_range(std::max(kept + 1, kFirst), std::numeric_limits<unsigned>::max(), 0);
}

[[noreturn]] void runChild(const std::string& name, const FileDescriptor& answer, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // cannot fail with a valid signal
  if (::getppid() != parent) ::_exit(1);
  closeInherited(answer);
  // When the answer cannot be written, nobody is left to read it.
  writeAll(answer, encoded(resolve(name, AI_ADDRCONFIG)));
  ::_exit(0);
}

// A child process that looks a name up. The destructor ends it and waits for it.
class Lookup {
 public:
  explicit Lookup(const std::string& name) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      _startProblem = lastSystemError().message();
      return;
    }
    _answer = FileDescriptor(ends[0]);
    const FileDescriptor childEnd(ends[1]);
    const pid_t parent = ::getpid();
    _child = ::fork();
    if (_child == 0) runChild(name, childEnd, parent);
    if (_child < 0) _startProblem = lastSystemError().message();
  }
  ~Lookup() {
    if (_child <= 0) return;
    ::kill(_child, SIGKILL);  // fails only when it has ended
    // Fails only where the process ignores SIGCHLD, and its children leave nothing to wait for.
    retryingInterrupted([&] { return ::waitpid(_child, nullptr, 0); });
  }
  Lookup(const Lookup&) = delete;
  Lookup& operator=(const Lookup&) = delete;

  HostAddresses result(Deadline deadline) const {
    if (_child <= 0) return {{}, _startProblem};
    std::string text;
    while (awaitEvents(_answer.number(), POLLIN, deadline) != 0) {
      char buffer[4096];
      const ssize_t size =
          retryingInterrupted([&] { return ::read(_answer.number(), buffer, sizeof buffer); });
      if (size < 0) return {{}, lastSystemError().message()};
      if (size == 0) return decoded(text);
      text.append(buffer, static_cast<std::size_t>(size));
    }
    return {{}, "no name server answered in time"};
  }

 private:
  FileDescriptor _answer;
  pid_t _child = -1;
  std::string _startProblem;
};

}  // namespace

HostAddresses lookUpHost(const std::string& name, Deadline deadline) {
  // Name servers must not be asked for this name (RFC 6761).
  if (::strcasecmp(name.c_str(), "localhost") == 0) return {{"127.0.0.1", "::1"}, {}};
  HostAddresses numeric = resolve(name, AI_NUMERICHOST);
  if (!numeric.numeric.empty()) return numeric;
  return Lookup(name).result(deadline);
}

}  // namespace corvane::pelto
