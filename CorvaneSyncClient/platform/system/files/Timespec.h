#pragma once

#include <ctime>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane {

inline constexpr long kNanosecondsPerSecond = 1'000'000'000;

/// The date of a time since 1970. Summed in extended precision, so that it is the double nearest to what the
/// system keeps.
inline Date dateOf(const timespec& time) {
  const long double whole =
      static_cast<long double>(time.tv_sec) - static_cast<long double>(kSecondsFrom1970To2001);
  return Date{static_cast<double>(whole + static_cast<long double>(time.tv_nsec) / kNanosecondsPerSecond)};
}

}  // namespace corvane
