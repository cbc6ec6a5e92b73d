#include "CorvaneSyncClient/front/CommandLine.h"

#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

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

}  // namespace corvane
