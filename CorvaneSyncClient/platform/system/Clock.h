#pragma once

#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane {

/// The wall clock, and sleeping.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() = 0;
  /// Sleeps at least `seconds` (not negative), also when signals arrive.
  virtual void sleep(double seconds) = 0;
};

}  // namespace corvane
