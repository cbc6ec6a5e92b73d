#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/NotificationCenter.h"

namespace corvane {

/// Keeps what was posted; can pretend that nobody could be told.
class RecordingNotifications : public NotificationCenter {
 public:
  struct Posted {
    std::string name;
    std::string object;
    friend bool operator==(const Posted&, const Posted&) = default;
  };

  std::optional<std::string> post(const std::string& name, const std::string& object) override {
    if (!failure) posted.push_back({name, object});
    return failure;
  }

  std::vector<Posted> posted;
  std::optional<std::string> failure;  ///< answered to every post while set
};

}  // namespace corvane
