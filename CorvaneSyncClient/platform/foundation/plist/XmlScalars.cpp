#include "CorvaneSyncClient/platform/foundation/plist/XmlScalars.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane {

namespace {

constexpr std::string_view kSpace = " \t\n\r\f\v";

std::string_view withoutSpace(std::string_view text) {
  const std::size_t start = text.find_first_not_of(kSpace);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(kSpace) + 1 - start);
}

// Drops single underscores that stand between digits; leaves any others, which then read as no number.
std::string withoutUnderscores(std::string_view text) {
  std::string kept;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool between =
        i > 0 && i + 1 < text.size() && isAsciiDigit(text[i - 1]) && isAsciiDigit(text[i + 1]);
    if (text[i] != '_' || !between) kept += text[i];
  }
  return kept;
}

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

constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int digitValue(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

}  // namespace

std::optional<Value> integerFromText(std::string_view text) {
  text = withoutSpace(text);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  const std::string digits = base == 10 ? withoutUnderscores(text) : std::string(text);
  std::uint64_t magnitude = 0;
  const char* const end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, magnitude, base);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  if (!negative) return Value(magnitude);
  constexpr std::uint64_t kMostNegative = std::uint64_t{1} << 63;
  if (magnitude > kMostNegative) return std::nullopt;
  return Value(static_cast<std::int64_t>(~magnitude + 1));
}

std::optional<double> realFromText(std::string_view text) {
  text = withoutSpace(text);
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  double number = 0.0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return number;
}

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

std::string base64Text(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
    }
    const std::size_t present = std::min<std::size_t>(bytes.size() - at, 3);
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= present ? kBase64Digits[group >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

std::optional<std::string> bytesFromBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t group = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isAsciiSpace(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int value = digitValue(c);
    if (value < 0 || padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(value);
    if (++digits % 4 == 0) {
      bytes += {static_cast<char>(group >> 16), static_cast<char>(group >> 8), static_cast<char>(group)};
    }
  }
  const std::size_t rest = digits % 4;
  if (rest == 1 || (padding > 0 && (rest + padding) != 4)) return std::nullopt;
  if (rest >= 2) bytes += static_cast<char>(group >> (rest == 2 ? 4 : 10));
  if (rest == 3) bytes += static_cast<char>(group >> 2);
  return bytes;
}

}  // namespace corvane
