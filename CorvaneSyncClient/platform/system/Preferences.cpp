#include "CorvaneSyncClient/platform/system/Preferences.h"

#include <charconv>
#include <cmath>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"

namespace corvane {

namespace {

// Whether the whole text is a finite decimal number, and not 0.
bool isNumberOtherThanZero(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && std::isfinite(number) && number != 0;
}

}  // namespace

bool readsAsTrue(const Value& value) {
  if (const std::optional<bool> boolean = value.boolean()) return *boolean;
  const String text = value.string();
  if (!text) return false;
  return compareCaseInsensitive(text.view(), "YES") == 0 ||
         compareCaseInsensitive(text.view(), "true") == 0 || isNumberOtherThanZero(text.view());
}

}  // namespace corvane
