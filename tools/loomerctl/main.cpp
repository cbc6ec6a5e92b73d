#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

namespace {

// On a terminal that shows them, unless the user wants none (https://no-color.org).
bool wantsColours() {
  const char* none = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  const bool unwanted = none && *none;
  const bool able = terminal && *terminal && std::string_view(terminal) != "dumb";
  return !unwanted && able && isatty(STDOUT_FILENO) == 1;
}

}  // namespace

int main(int argc, char** argv) {
  // Passwords and keys pass through: nothing of them gets into a core dump. Cannot fail with this argument.
  prctl(PR_SET_DUMPABLE, 0);
  const corvane::PlatformScope services(corvane::linuxPlatform());
  // The write that meets a closed pipe reports it. Ignoring a valid signal does not fail.
  std::signal(SIGPIPE, SIG_IGN);
  corvane::loomerctl::Output out(STDOUT_FILENO, wantsColours());
  corvane::loomerctl::Output err(STDERR_FILENO, false);
  return corvane::loomerctl::runCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc}, out, err);
}
