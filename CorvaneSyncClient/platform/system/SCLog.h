#pragma once

#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Format.h"

namespace corvane {

// The diagnostic log, which a preference switches on. What must always be seen goes to `systemLog` instead.

/// Whether the user's preference "SCLog" of domain "com.keldra.Corvane" is the string "YES". Read at the
/// first call and never again in this process; a store that fails counts as "NO".
bool SCLogIsOn();

/// Writes one trace line, already built, whether or not the log is on.
void SCLogWrite(std::string_view message);

/// Writes a formatted trace line to the system log if diagnostics are on. Otherwise the arguments are not
/// even described.
template <typename... Arguments>
void SCLog(std::string_view text, const Arguments&... arguments) {
  if (SCLogIsOn()) SCLogWrite(format(text, arguments...));
}

}  // namespace corvane
