#pragma once

#include <functional>
#include <vector>

#include "CorvaneSyncClient/platform/system/Clock.h"

namespace corvane {

/// A clock that stands still until somebody sleeps or a test moves it.
class ManualClock : public Clock {
 public:
  Date now() override { return time; }

  /// Advances the time at once, and remembers the call.
  void sleep(double seconds) override {
    sleeps.push_back(seconds);
    time.seconds += seconds;
    if (onSleep) onSleep();
  }

  Date time{800'000'000.0};
  std::vector<double> sleeps;     ///< every sleep asked for, in seconds, in order
  std::function<void()> onSleep;  ///< called after each sleep: what others do meanwhile
};

}  // namespace corvane
