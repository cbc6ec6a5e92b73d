#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// The exit statuses.
enum Status : int {
  statusFine = 0,
  statusRefused = 1,  ///< nothing was found, there was nothing to do, or it could not be done
  statusUsage = 2,
  statusDamaged = 3,  ///< the store is damaged, or `check` found something
};

/// Why a command does not do what it was asked for, in sentences; ends the run with statusRefused.
class Refused : public PlatformException {
 public:
  explicit Refused(Message reason) : PlatformException("LoomerctlRefused", std::move(reason)) {}
};

/// What the arguments say.
struct Options {
  bool json = false;
  bool force = false;
  bool words = false;
  bool qr = false;
  bool remove = false;
  bool dryRun = false;
  std::optional<std::int64_t> session;
  std::optional<std::int64_t> record;
  std::optional<std::int64_t> limit;  ///< at least 1
  bool unattended = false;
  std::string argument;  ///< CLIENT, RECORD, SESSION, FILE or PLACE; empty for commands without one
  std::vector<std::string> clients;  ///< of a command that takes several
};

/// What a command runs with.
struct Invocation {
  Options options;
  Output& out;
  Output& err;
};

/// Does what the arguments (without the program's name) ask for and answers the exit status. Results go to
/// `out`, messages to `err`; both are flushed.
Status runCommandLine(const std::vector<std::string>& arguments, Output& out, Output& err);

}  // namespace corvane::loomerctl
