#pragma once

#include <compare>
#include <string>

namespace corvane {

/// A point in time: seconds since 2001-01-01 00:00:00 UTC, fractions included, negative before it. Kept as
/// the double it is from the file system through the engine's store and back.
struct Date {
  double seconds = 0.0;

  friend bool operator==(const Date&, const Date&) = default;
  friend std::partial_ordering operator<=>(const Date&, const Date&) = default;
};

/// Seconds from 1970-01-01 to 2001-01-01, both 00:00:00 UTC.
inline constexpr double kSecondsFrom1970To2001 = 978307200.0;

/// "2026-11-21 10:49:00 +0000", in UTC, fractions dropped toward the past. Dates outside the years 1 to 9999,
/// and dates that are no number, come as their seconds: "(date 1e+300)".
std::string description(const Date& date);

/// "2026-11-21 11:49:00 +0100": the date in the process's time zone, as strftime's "%Y-%m-%d %H:%M:%S %z"
/// writes it; as `description` where the calendar cannot hold it.
std::string localDescription(const Date& date);

}  // namespace corvane
