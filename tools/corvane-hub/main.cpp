#include <csignal>

#include "tools/corvane-hub/HubCommands.h"

int main(int argc, char** argv) {
  // The write that meets a closed pipe reports it. Ignoring a valid signal does not fail.
  std::signal(SIGPIPE, SIG_IGN);
  return corvane::hubserver::runHubCommand({argv + (argc > 0 ? 1 : 0), argv + argc});
}
