#pragma once

#include "CorvaneSyncClient/front/CommandLine.h"

namespace corvane {

/// Carries a command out and answers the process's exit status: 0 for yes or success, 1 for everything else.
/// A PlatformException that the command raises is a line in the system log and status 1; other exceptions
/// pass through.
int runCommand(const CommandLine& commandLine);

}  // namespace corvane
