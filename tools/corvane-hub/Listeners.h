#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tools/corvane-hub/HubConfiguration.h"

namespace corvane::hubserver {

/// A socket that connections come to.
struct Listener {
  FileDescriptor socket;  ///< does not block
  bool isUnix = false;
  std::string text;  ///< for the log, such as "127.0.0.1:8420", with the port that the system chose for 0
};

/// Those that systemd opened (sd_listen_fds(3)), or else those of the configuration. Raises HubFailure.
std::vector<Listener> openListeners(const HubConfiguration& configuration);

/// The next client, or none; not blocking. `error` says why none, "operation would block" where nobody came.
FileDescriptor acceptedClient(const Listener& listener, std::error_code& error);

}  // namespace corvane::hubserver
