#pragma once

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

/// What one run of the tool is asked to do.
struct CommandLine {
  enum class Command {
    sync,
    registerSyncClient,
    unregisterSyncClient,
    isSyncing,
    canRegister,
    isRegistered,
    registerWithService,
    unregisterFromService,
    unknown,
  };

  Command command = Command::unknown;
  /// For the first three; absent when the argument's bytes are no UTF-8, the form of names in the file
  /// system.
  String clientId;
};

/// Recognises the command. Whole arguments are compared, with regard to case.
///
/// The last four arguments alone, "--sync ID --entitynames WORDS", make it a sync, whatever stands before;
/// WORDS stand for nothing, since a session's entities are fixed.
CommandLine parseCommandLine(int argc, const char* const* argv);

/// What standard error shows for an unknown command.
extern const char* const kUsage;

/// Carries a command out and answers the process's exit status: 0 for yes or success, 1 for everything else.
/// A PlatformException that the command raises is a line in the system log and status 1; other exceptions
/// pass through.
int runCommand(const CommandLine& commandLine);

}  // namespace corvane
