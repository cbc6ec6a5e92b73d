#include "CorvaneSyncClient/platform/system/linux/LinuxClock.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>

#include "CorvaneSyncClient/platform/system/files/Timespec.h"

namespace corvane {

namespace {

constexpr double kLongestSleep = 1.0e9;  // some thirty years; keeps the sum below within range

}  // namespace

Date LinuxClock::now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);  // cannot fail for this clock
  return dateOf(time);
}

void LinuxClock::sleep(double seconds) {
  if (!(seconds > 0)) return;
  seconds = std::min(seconds, kLongestSleep);
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  const double whole = std::floor(seconds);
  end.tv_sec += static_cast<time_t>(whole);
  end.tv_nsec += static_cast<long>(std::ceil((seconds - whole) * kNanosecondsPerSecond));
  end.tv_sec += end.tv_nsec / kNanosecondsPerSecond;
  end.tv_nsec %= kNanosecondsPerSecond;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

}  // namespace corvane
