#include "CorvaneSyncClient/front/CommandLine.h"
#include "CorvaneSyncClient/front/Commands.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

// One command a run. The services are the process's and live until it ends; what a command makes lives on the
// stack of that command.
int main(int argc, char** argv) {
  const corvane::PlatformScope services(corvane::linuxPlatform());
  return corvane::runCommand(corvane::parseCommandLine(argc, argv));
}
