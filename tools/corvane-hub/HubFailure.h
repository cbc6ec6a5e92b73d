#pragma once

#include <cerrno>
#include <string>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::hubserver {

/// What the server or a command cannot do, and why, in a sentence for whoever runs the server.
class HubFailure : public PlatformException {
 public:
  explicit HubFailure(Message reason) : PlatformException("CorvaneHubFailure", std::move(reason)) {}
  /// `what` failed, such as "PATH cannot be opened", for a cause of the system's.
  HubFailure(const std::string& what, std::error_code cause)
      : PlatformException("CorvaneHubFailure", tr("%1: %2", what, cause.message())), _cause(cause) {}

  /// Whether there is no room left on the disk, or none for the server's user.
  bool isFull() const { return _cause.value() == ENOSPC || _cause.value() == EDQUOT; }
  std::error_code cause() const { return _cause; }

 private:
  std::error_code _cause;
};

}  // namespace corvane::hubserver
