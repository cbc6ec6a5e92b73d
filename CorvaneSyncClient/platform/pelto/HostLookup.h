#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

/// The addresses of a host, or why there are none.
struct HostAddresses {
  std::vector<std::string> numeric;  ///< in the order to try them
  std::string problem;               ///< in the system's words; empty when there are addresses
};

/// Looks up the numeric addresses of a host name with the system's resolver. The resolver blocks for as long
/// as it likes and cannot be cancelled, so it runs in a child process, which is killed at the deadline. The
/// child holds none of this process's files or locks, and ends with this process.
HostAddresses lookUpHost(const std::string& name, Deadline deadline);

}  // namespace corvane::pelto
