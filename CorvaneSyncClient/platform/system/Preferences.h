#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/Value.h"

namespace corvane {

/// The user's preferences, read only.
class Preferences {
 public:
  virtual ~Preferences() = default;
  /// The value of `key` in `domain` (the property list "~/Library/Preferences/DOMAIN.plist", any flavour); nothing when
  /// the file or the key is not there or the file cannot be read.
  virtual std::optional<Value> value(const std::string& domain, const std::string& key) = 0;
  /// The standard user defaults: the first of "com.keldra.Corvane.SyncClient", "com.keldra.Corvane" and
  /// ".GlobalPreferences" that has `key`, as a boolean: a boolean, a number (true when not 0), or the strings "YES",
  /// "true" and numbers other than 0, without regard to case. Absent reads as false.
  virtual bool booleanUserDefault(const std::string& key) = 0;
};

}  // namespace corvane
