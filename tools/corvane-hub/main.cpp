#include <sys/prctl.h>

#include <csignal>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/corvane-hub/HubCommands.h"

int main(int argc, char** argv) {
  // Tokens and the certificate's key pass through: nothing of them gets into a core dump. Cannot fail with
  // this argument.
  prctl(PR_SET_DUMPABLE, 0);
  // The write that meets a closed pipe reports it. Ignoring a valid signal does not fail.
  std::signal(SIGPIPE, SIG_IGN);
  const corvane::PlatformScope services(corvane::linuxPlatform());
  return corvane::hubserver::runHubCommand({argv + (argc > 0 ? 1 : 0), argv + argc});
}
