#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// Where the standard user defaults are searched, in this order.
inline constexpr const char* kUserDefaultsDomains[] = {"com.keldra.Corvane.SyncClient", "com.keldra.Corvane",
                                                       ".GlobalPreferences"};

/// Whether a user default counts as true: a boolean, a number that is not 0, or the strings "YES", "true" and
/// numbers other than 0, without regard to case. Everything else is false.
bool readsAsTrue(const Value& value);

/// The user's preferences, read only.
class Preferences {
 public:
  virtual ~Preferences() = default;
  /// The value of `key` in `domain` (the property list "~/Library/Preferences/DOMAIN.plist", any flavour);
  /// nothing when the file or the key is not there or the file cannot be read.
  virtual std::optional<Value> value(const std::string& domain, const std::string& key) = 0;
  /// The standard user defaults: `readsAsTrue` of the value in the first of `kUserDefaultsDomains` that has
  /// `key`. Absent reads as false.
  virtual bool booleanUserDefault(const std::string& key) = 0;
};

}  // namespace corvane
