#pragma once

#include "CorvaneSyncClient/platform/system/Clock.h"

namespace corvane {

/// The machine's clocks: the wall clock tells the time, the monotonic one measures sleep, so that setting the
/// wall clock lengthens or shortens none.
class LinuxClock : public Clock {
 public:
  Date now() override;
  void sleep(double seconds) override;
};

}  // namespace corvane
