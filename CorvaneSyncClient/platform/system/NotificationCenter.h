#pragma once

#include <optional>
#include <string>

namespace corvane {

/// Notifications to other processes of the user.
class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;
  /// Posts `name` about `object`. Answers why it could not be posted (no bus, for one), or nothing when it
  /// was posted.
  virtual std::optional<std::string> post(const std::string& name, const std::string& object) = 0;
};

}  // namespace corvane
