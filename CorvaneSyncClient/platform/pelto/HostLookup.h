#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace corvane::pelto {

using Deadline = std::chrono::steady_clock::time_point;

/// In so many seconds from now.
Deadline after(double seconds);

struct HostAddresses {
  std::vector<std::string> numeric;  ///< in the order to try them
  std::string problem;               ///< why there are none, as the system puts it
};

/// The numeric addresses of a host by its name, looked up by the system. Answers at the deadline at the
/// latest, however long name servers keep silent: the lookup itself cannot be called off and ends later, in a
/// thread of its own.
HostAddresses lookUpHost(const std::string& name, Deadline deadline);

}  // namespace corvane::pelto
