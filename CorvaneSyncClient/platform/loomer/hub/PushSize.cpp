#include "CorvaneSyncClient/platform/loomer/hub/PushSize.h"

#include <algorithm>

namespace corvane::loomer {

namespace {

// After a full push that crossed in less than kQuickSeconds the next one grows to what would have taken as
// long, and after one that took more than kSlowSeconds it halves.
constexpr double kQuickSeconds = 4.0;
constexpr double kSlowSeconds = 15.0;
constexpr double kMostGrowth = 8.0;

}  // namespace

void PushSize::suit(double seconds, bool wasFull) {
  if (wasFull && seconds < kQuickSeconds) {
    const double growth = std::min(kMostGrowth, kQuickSeconds / std::max(seconds, 0.001));
    _records = static_cast<std::size_t>(static_cast<double>(_records) * growth);
  }
  if (seconds > kSlowSeconds) _records = std::max(_records / 2, kSmallestPush);
}

}  // namespace corvane::loomer
