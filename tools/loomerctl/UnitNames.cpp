#include "tools/loomerctl/UnitNames.h"

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane::loomerctl {

namespace {

constexpr std::string_view kPrefix = "corvane-sync@";
constexpr std::string_view kSuffix = ".path";
constexpr std::size_t kLongestName = 255;

bool isPlain(char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == ':' || c == '_' || c == '.'; }

}  // namespace

std::optional<std::string> pathUnitFor(std::string_view file) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string unit(kPrefix);
  for (std::size_t i = 0; i < file.size(); ++i) {
    const char c = file[i];
    const auto byte = static_cast<unsigned char>(c);
    if (c == '/') {
      unit += '-';
    } else if (isPlain(c) && !(i == 0 && c == '.')) {
      unit += c;
    } else {
      unit += {'\\', 'x', kDigits[byte / 16], kDigits[byte % 16]};
    }
  }
  unit += kSuffix;
  if (file.empty() || unit.size() > kLongestName) return std::nullopt;
  return unit;
}

std::optional<std::string> fileOfPathUnit(std::string_view unit) {
  if (!unit.starts_with(kPrefix) || !unit.ends_with(kSuffix)) return std::nullopt;
  if (unit.size() <= kPrefix.size() + kSuffix.size()) return std::nullopt;
  unit.remove_prefix(kPrefix.size());
  unit.remove_suffix(kSuffix.size());
  std::string file;
  for (std::size_t i = 0; i < unit.size(); ++i) {
    if (unit[i] != '\\') {
      file += unit[i] == '-' ? '/' : unit[i];
      continue;
    }
    if (i + 3 >= unit.size() || unit[i + 1] != 'x') return std::nullopt;
    const int high = hexDigitValue(unit[i + 2]), low = hexDigitValue(unit[i + 3]);
    if (high < 0 || low < 0) return std::nullopt;
    file += static_cast<char>(high * 16 + low);
    i += 3;
  }
  return file;
}

}  // namespace corvane::loomerctl
