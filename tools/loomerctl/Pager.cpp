#include "tools/loomerctl/Pager.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::loomerctl {

namespace {

// In the pager's process, which shares nothing with this one any more.
[[noreturn]] void becomePager(const char* command, int in) {
  // Ends where all fits on the screen, shows colours, and leaves the text on the screen.
  setenv("LESS", "FRX", 0);
  std::signal(SIGPIPE, SIG_DFL);
  std::signal(SIGINT, SIG_DFL);
  if (dup2(in, STDIN_FILENO) >= 0) execl("/bin/sh", "sh", "-c", command, nullptr);
  _exit(127);
}

}  // namespace

Pager::Pager(Output& out) : _out(out) {
  const char* const command = std::getenv("PAGER");
  if (out.terminal() && command && *command) start(command);
}

void Pager::start(const char* command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  _process = fork();
  if (_process == 0) becomePager(command, reading.number());
  if (_process < 0) return;
  // Keys that interrupt are the pager's.
  std::signal(SIGINT, SIG_IGN);
  _terminal = _out.redirect(writing.release());
}

Pager::~Pager() {
  if (_process < 0) return;
  try {
    _out.flush();
  } catch (const PlatformException&) {
    // The user has seen enough.
  }
  close(_out.redirect(_terminal));
  while (waitpid(_process, nullptr, 0) < 0 && errno == EINTR) {
  }
  std::signal(SIGINT, SIG_DFL);
}

}  // namespace corvane::loomerctl
