#include "bench/hubload/Worker.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <system_error>

namespace corvane::hubload {

namespace {

// False at the other side's end, or when a signal came.
bool readAll(int file, void* bytes, std::size_t size) {
  auto* at = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::read(file, at, size);
    if (count <= 0) return false;
    at += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool writeAll(int file, const void* bytes, std::size_t size) {
  const auto* at = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::write(file, at, size);
    if (count < 0) return false;
    at += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

template <typename Item>
bool readItems(int file, std::vector<Item>& items) {
  std::uint64_t count = 0;
  if (!readAll(file, &count, sizeof count)) return false;
  items.resize(count);
  return readAll(file, items.data(), count * sizeof(Item));
}

template <typename Item>
bool writeItems(int file, const std::vector<Item>& items) {
  const std::uint64_t count = items.size();
  return writeAll(file, &count, sizeof count) && writeAll(file, items.data(), count * sizeof(Item));
}

// What the new process does until nobody gives orders any more.
void serve(int socket, const std::function<Worker::Servant()>& makeServant) {
  const Worker::Servant servant = makeServant();
  Order order;
  while (readAll(socket, &order, sizeof order)) {
    const Answer answer = servant(order);
    if (!writeItems(socket, answer.samples) || !writeItems(socket, answer.digests)) return;
  }
}

[[noreturn]] void serveAndExit(int socket, const std::function<Worker::Servant()>& makeServant) {
  ::signal(SIGINT, SIG_IGN);  // the interrupted parent ends this process
  int status = 0;
  try {
    serve(socket, makeServant);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "corvane-hubload: %s\n", exception.what());
    status = 1;
  }
  ::_exit(status);  // nothing that the parent had made is this process's to clear up
}

}  // namespace

Worker::Worker(const std::function<Servant()>& makeServant) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::system_error(errno, std::system_category(), "socketpair");
  const pid_t parent = ::getpid();
  _process = ::fork();
  if (_process < 0) throw std::system_error(errno, std::system_category(), "fork");
  if (_process == 0) {
    ::close(ends[0]);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);
    serveAndExit(ends[1], makeServant);
  }
  ::close(ends[1]);
  _socket = ends[0];
}

Worker::~Worker() {
  ::close(_socket);
  ::kill(_process, SIGKILL);
  while (::waitpid(_process, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void Worker::give(const Order& order) {
  if (!writeAll(_socket, &order, sizeof order)) throw std::runtime_error("a worker is gone");
}

Answer Worker::await() {
  Answer answer;
  errno = 0;
  if (readItems(_socket, answer.samples) && readItems(_socket, answer.digests)) return answer;
  throw std::runtime_error(errno == EINTR ? "interrupted" : "a worker ended before its time");
}

}  // namespace corvane::hubload
