#pragma once

#include "CorvaneSyncClient/platform/system/NotificationCenter.h"

namespace corvane {

/// Notifications as signals on the user's D-Bus session bus: path
/// "/com/keldra/DistributedNotificationCenter", interface "com.keldra.DistributedNotificationCenter", member
/// "NotificationPosted", arguments name and object, both strings (valid UTF-8). Each post connects anew, and
/// has handed the signal to the bus when it returns. A bus that does not answer is given up after some
/// seconds.
class SdBusNotificationCenter : public NotificationCenter {
 public:
  std::optional<std::string> post(const std::string& name, const std::string& object) override;
};

}  // namespace corvane
