#include <gtest/gtest.h>

#include <vector>

#include "CorvaneSyncClient/front/Commands.h"

namespace corvane {
namespace {

using Command = CommandLine::Command;

struct CommandLineCase {
  const char* phrase;
  std::vector<const char*> arguments;  // after the program's name
  Command command;
  const char* clientId = nullptr;
};

const CommandLineCase kRows[] = {
    {"no arguments at all", {}, Command::unknown},
    {"a sync", {"--sync", "X", "--entitynames", "anything"}, Command::sync, "X"},
    {"--sync X --entitynames alone (argc 4)", {"--sync", "X", "--entitynames"}, Command::unknown},
    {"extra words before --sync X are ignored",
     {"extra", "words", "--sync", "X", "--entitynames", "anything"},
     Command::sync,
     "X"},
    {"--entitynames Y --sync X --entitynames Z: only the positions argc-4 and argc-2 are compared",
     {"--entitynames", "Y", "--sync", "X", "--entitynames", "Z"},
     Command::sync,
     "X"},
    {"words after the form", {"--sync", "X", "--entitynames", "Z", "more"}, Command::unknown},
    {"entity names may be empty", {"--sync", "X", "--entitynames", ""}, Command::sync, "X"},
    {"the client id may look like an option",
     {"--sync", "--sync", "--entitynames", "Z"},
     Command::sync,
     "--sync"},
    {"--SYNC", {"--SYNC", "X", "--entitynames", "Z"}, Command::unknown},
    {"an empty client id is an id", {"--sync", "", "--entitynames", "Z"}, Command::sync, ""},
    {"a client id that is no UTF-8", {"--sync", "\xFF", "--entitynames", "Z"}, Command::sync},
    {"--issyncing", {"--issyncing"}, Command::isSyncing},
    {"--issyncing extra (argc 3)", {"--issyncing", "extra"}, Command::unknown},
    {"--canregister", {"--canregister"}, Command::canRegister},
    {"--isregistered", {"--isregistered"}, Command::isRegistered},
    {"--register", {"--register"}, Command::registerWithService},
    {"--unregister", {"--unregister"}, Command::unregisterFromService},
    {"--register takes no client id", {"--register", "X"}, Command::unknown},
    {"--registersyncclient", {"--registersyncclient", "X"}, Command::registerSyncClient, "X"},
    {"--registersyncclient without a client id (argc 2)", {"--registersyncclient"}, Command::unknown},
    {"--registersyncclient with too much", {"--registersyncclient", "X", "Y"}, Command::unknown},
    {"--unregistersyncclient", {"--unregistersyncclient", "X"}, Command::unregisterSyncClient, "X"},
    {"--unregistersyncclient without a client id", {"--unregistersyncclient"}, Command::unknown},
    {"--REGISTER (comparison is case-sensitive)", {"--REGISTER"}, Command::unknown},
    {"no abbreviations", {"--reg"}, Command::unknown},
    {"no = forms", {"--registersyncclient=X"}, Command::unknown},
    {"an empty argument", {""}, Command::unknown},
};

TEST(CommandLine, IsRecognised) {
  for (const CommandLineCase& row : kRows) {
    SCOPED_TRACE(row.phrase);
    std::vector<const char*> argv = row.arguments;
    argv.insert(argv.begin(), "corvanetool");
    const CommandLine commandLine = parseCommandLine(static_cast<int>(argv.size()), argv.data());
    EXPECT_EQ(commandLine.command, row.command);
    EXPECT_EQ(commandLine.clientId, row.clientId ? String(row.clientId) : String());
  }
}

// The form takes five arguments, the program's name among them: a name can be called anything and is no
// option.
TEST(CommandLine, ProgramNameIsNoPartOfTheSyncForm) {
  const char* const argv[] = {"--sync", "X", "--entitynames", "Z"};
  EXPECT_EQ(parseCommandLine(4, argv).command, Command::unknown);
}

TEST(CommandLine, NotEvenAProgramNameIsNoCommand) {
  EXPECT_EQ(parseCommandLine(0, nullptr).command, Command::unknown);
}

}  // namespace
}  // namespace corvane
