#include "CorvaneSyncClient/platform/foundation/text/JsonEscapes.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

constexpr std::size_t kEscapeSize = 6;  // "\uD83D"

// The UTF-16 unit that is escaped at `at`; nothing for anything else.
std::optional<char32_t> escapedUnit(std::string_view text, std::size_t at) {
  const std::string_view escape = text.substr(std::min(at, text.size()), kEscapeSize);
  if (escape.size() < kEscapeSize || !escape.starts_with("\\u")) return std::nullopt;
  char32_t unit = 0;
  for (const char c : escape.substr(2)) {
    const int digit = hexDigitValue(c);
    if (digit < 0) return std::nullopt;
    unit = unit * 16 + static_cast<char32_t>(digit);
  }
  return unit;
}

}  // namespace

std::size_t repairJsonEscape(std::string& text, std::size_t at) {
  const auto unit = escapedUnit(text, at);
  if (!unit) return 2;
  if (!isSurrogate(*unit)) return kEscapeSize;
  const auto second = escapedUnit(text, at + kEscapeSize);
  if (isHighSurrogate(*unit) && second && isLowSurrogate(*second)) return 2 * kEscapeSize;
  text.replace(at, kEscapeSize, "\\uFFFD");
  return kEscapeSize;
}

}  // namespace corvane
