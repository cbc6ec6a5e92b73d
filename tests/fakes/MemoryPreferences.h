#pragma once

#include <map>
#include <string>

#include "CorvaneSyncClient/platform/system/Preferences.h"

namespace corvane {

/// Preferences that a test sets, and that count how often they were asked.
class MemoryPreferences : public Preferences {
 public:
  std::optional<Value> value(const std::string& domain, const std::string& key) override;
  bool booleanUserDefault(const std::string& key) override;

  std::map<std::string, Dictionary> domains;
  int consultations = 0;  ///< calls of either operation
};

}  // namespace corvane
