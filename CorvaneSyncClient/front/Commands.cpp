#include "CorvaneSyncClient/front/Commands.h"

#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/front/Registration.h"
#include "CorvaneSyncClient/front/SingleRunLock.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"
#include "CorvaneSyncClient/session/RunReport.h"

namespace corvane {

namespace {

using Command = CommandLine::Command;

struct Option {
  std::string_view name;
  Command command;
};

constexpr Option kOptionsWithClientId[] = {
    {"--registersyncclient", Command::registerSyncClient},
    {"--unregistersyncclient", Command::unregisterSyncClient},
};

constexpr Option kOptions[] = {
    {"--issyncing", Command::isSyncing},
    {"--canregister", Command::canRegister},
    {"--isregistered", Command::isRegistered},
    {"--register", Command::registerWithService},
    {"--unregister", Command::unregisterFromService},
};

template <typename Options>
Command commandNamed(std::string_view name, const Options& options) {
  for (const Option& option : options) {
    if (option.name == name) return option.command;
  }
  return Command::unknown;
}

String stringWithFileSystemRepresentation(std::string_view bytes) {
  return isValidUtf8(bytes) ? String(bytes) : String();
}

constexpr std::size_t kSpareBytes = 64 * 1024;

// What a run made lives until the process ends, which gives it all back at once: taking a million nodes apart
// one by one would cost as much as reading them.
CorvaneSyncManager* keepUntilExit(std::unique_ptr<CorvaneSyncManager> manager) {
  static auto& kept = *new std::vector<std::unique_ptr<CorvaneSyncManager>>;
  return kept.emplace_back(std::move(manager)).get();
}

bool sync(const String& clientId) {
  if (!clientId) {
    systemLog("CorvaneSyncClient called to sync, but without a proper client id");
    return false;
  }
  // For a run that has used up all memory: giving the lock back takes some.
  auto spare = std::make_unique<char[]>(kSpareBytes);
  SingleRunLock lock;
  if (!lock.acquire()) return false;
  bool succeeded = false;
  RunReport report(clientId);
  try {
    CorvaneSyncManager* const manager = keepUntilExit(CorvaneSyncManager::initWithClientId(clientId));
    succeeded = manager && manager->sync();
    report.ended(succeeded);
  } catch (...) {
    // Here and not in a destructor: those do not run for an exception that nobody catches.
    spare.reset();
    lock.release();
    report.raised();
    throw;
  }
  lock.release();
  return succeeded;
}

// The process's exit status for what a command answers.
int statusFor(bool answer) { return answer ? 0 : 1; }

}  // namespace

const char* const kUsage =
    "corvanetool say: what you trying to do?\n"
    "\n"
    "    --issyncing\n"
    "    --canregister\n"
    "    --isregistered\n"
    "    --register\n"
    "    --unregister\n"
    "    --registersyncclient clientId\n"
    "    --unregistersyncclient clientId\n"
    "    --sync clientId --entitynames entityNames\n";

CommandLine parseCommandLine(int argc, const char* const* argv) {
  const auto argument = [argv](int index) { return std::string_view(argv[index]); };
  if (argc >= 5 && argument(argc - 4) == "--sync" && argument(argc - 2) == "--entitynames") {
    return {Command::sync, stringWithFileSystemRepresentation(argument(argc - 3))};
  }
  if (argc == 3) {
    const Command command = commandNamed(argument(1), kOptionsWithClientId);
    if (command != Command::unknown) return {command, stringWithFileSystemRepresentation(argument(2))};
  }
  if (argc == 2) return {commandNamed(argument(1), kOptions), String()};
  return {};
}

int runCommand(const CommandLine& commandLine) {
  try {
    switch (commandLine.command) {
      case Command::sync:
        return statusFor(sync(commandLine.clientId));
      case Command::registerSyncClient:
        return statusFor(registerSyncClient(commandLine.clientId));
      case Command::unregisterSyncClient:
        return statusFor(unregisterSyncClient(commandLine.clientId));
      case Command::isSyncing:
        return statusFor(SingleRunLock().isHeld());
      case Command::canRegister:
        return statusFor(canRegister());
      case Command::isRegistered:
        return statusFor(isRegistered());
      case Command::registerWithService:
        return statusFor(registerWithService());
      case Command::unregisterFromService:
        return statusFor(unregisterFromService());
      case Command::unknown:
        break;
    }
    std::fputs(kUsage, stderr);
  } catch (const PlatformException& exception) {
    systemLog("Uncaught exception running corvanetool: %@", exception.reason());
  }
  return statusFor(false);
}

}  // namespace corvane
