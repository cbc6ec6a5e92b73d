#include "CorvaneSyncClient/platform/foundation/NumberText.h"

#include <charconv>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/Ascii.h"

namespace corvane {

namespace {

constexpr std::string_view kSpace = " \t\n\r\f\v";

std::string_view trimmed(std::string_view text) {
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

}  // namespace

std::optional<Value> integerFromText(std::string_view text) {
  text = trimmed(text);
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
  text = trimmed(text);
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  double number = 0.0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace corvane
