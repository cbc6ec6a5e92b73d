#include "CorvaneSyncClient/platform/foundation/CalendarDate.h"

#include <chrono>
#include <cmath>
#include <cstdio>

namespace corvane {

namespace {

constexpr std::chrono::sys_days kEpoch = std::chrono::year(2001) / 1 / 1;

// Reads fields of digits with their separators from the front of a text.
class FieldReader {
 public:
  explicit FieldReader(std::string_view text) : _text(text) {}

  bool skip(char separator) {
    if (!_text.starts_with(separator)) return false;
    _text.remove_prefix(1);
    return true;
  }

  // Exactly `digits` digits and at most `limit`.
  std::optional<int> number(std::size_t digits, int limit) {
    if (_text.size() < digits) return std::nullopt;
    int number = 0;
    for (const char c : _text.substr(0, digits)) {
      if (c < '0' || c > '9') return std::nullopt;
      number = number * 10 + (c - '0');
    }
    _text.remove_prefix(digits);
    return number <= limit ? std::optional(number) : std::nullopt;
  }

  bool atEnd() const { return _text.empty(); }

 private:
  std::string_view _text;
};

std::optional<std::chrono::sys_days> readDay(FieldReader& fields) {
  const auto year = fields.number(4, 9999);
  if (!year || !fields.skip('-')) return std::nullopt;
  const auto month = fields.number(2, 12);
  if (!month || !fields.skip('-')) return std::nullopt;
  const auto day = fields.number(2, 31);
  if (!day) return std::nullopt;
  const auto date = std::chrono::year(*year) / *month / *day;
  return date.ok() ? std::optional(std::chrono::sys_days(date)) : std::nullopt;
}

// Seconds since midnight of "hh", "hh:mm" or "hh:mm:ss".
std::optional<int> readTime(FieldReader& fields) {
  const auto hour = fields.number(2, 23);
  if (!hour) return std::nullopt;
  if (!fields.skip(':')) return *hour * 3600;
  const auto minute = fields.number(2, 59);
  if (!minute) return std::nullopt;
  if (!fields.skip(':')) return *hour * 3600 + *minute * 60;
  const auto second = fields.number(2, 60);
  return second ? std::optional(*hour * 3600 + *minute * 60 + *second) : std::nullopt;
}

}  // namespace

std::optional<Date> dateFromXmlText(std::string_view text) {
  FieldReader fields(text);
  const auto day = readDay(fields);
  if (!day) return std::nullopt;
  const auto time = fields.skip('T') ? readTime(fields) : std::optional(0);
  if (!time || !fields.skip('Z') || !fields.atEnd()) return std::nullopt;
  return Date{static_cast<double>((*day - kEpoch).count()) * 86400.0 + *time};
}

std::optional<std::string> xmlTextForDate(const Date& date) {
  constexpr std::chrono::sys_days kFirst = std::chrono::year(1) / 1 / 1;
  constexpr std::chrono::sys_days kBeyond = std::chrono::year(10000) / 1 / 1;
  const double days = std::floor(date.seconds / 86400.0);
  if (!(days >= static_cast<double>((kFirst - kEpoch).count()) &&
        days < static_cast<double>((kBeyond - kEpoch).count()))) {
    return std::nullopt;
  }
  const auto wholeDays = static_cast<int>(days);
  const auto seconds = static_cast<int>(std::floor(date.seconds) - days * 86400.0);
  const std::chrono::year_month_day day(kEpoch + std::chrono::days(wholeDays));
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", int(day.year()), unsigned(day.month()),
                unsigned(day.day()), seconds / 3600, seconds / 60 % 60, seconds % 60);
  return text;
}

}  // namespace corvane
