#include "CorvaneSyncClient/platform/foundation/values/Date.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace corvane {

namespace {

// 0001-01-01 and 10000-01-01 in seconds since 2001: what four-digit calendar years begin with and end before.
constexpr double kFirstShown = -63113904000.0;
constexpr double kFirstBeyond = 252423993600.0;

std::string calendarText(const Date& date, std::tm* (*split)(const std::time_t*, std::tm*)) {
  if (date.seconds >= kFirstShown && date.seconds < kFirstBeyond) {
    const auto time = static_cast<std::time_t>(std::floor(date.seconds + kSecondsFrom1970To2001));
    std::tm parts{};
    char text[64];
    if (split(&time, &parts) && std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &parts) > 0)
      return text;
  }
  char text[64];
  std::snprintf(text, sizeof text, "(date %.17g)", date.seconds);
  return text;
}

}  // namespace

std::string description(const Date& date) { return calendarText(date, &gmtime_r); }
std::string localDescription(const Date& date) { return calendarText(date, &localtime_r); }

}  // namespace corvane
