#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

int main(int argc, char** argv) {
  // Passwords and keys pass through: nothing of them gets into a core dump. Cannot fail with this argument.
  prctl(PR_SET_DUMPABLE, 0);
  const corvane::PlatformScope services(corvane::linuxPlatform());
  // The write that meets a closed pipe reports it. Ignoring a valid signal does not fail.
  std::signal(SIGPIPE, SIG_IGN);
  using namespace corvane::loomerctl;
  Output out(STDOUT_FILENO, showsColours(STDOUT_FILENO), terminalSize(STDOUT_FILENO));
  Output err(STDERR_FILENO, false, terminalSize(STDERR_FILENO));
  return runCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc}, out, err);
}
