#include "tools/loomerctl/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdio>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane::loomerctl {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kControlPictures = 0x2400;
constexpr char32_t kDeletePicture = 0x2421;

// Marks that embed, override and isolate directions (Unicode Annex 9): text could show another order than it
// has.
bool turnsDirection(char32_t codePoint) {
  return (codePoint >= 0x202A && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
}

char32_t shown(char32_t codePoint) {
  if (codePoint < 0x20) return kControlPictures + codePoint;
  if (codePoint == 0x7F) return kDeletePicture;
  const bool control = codePoint < 0xA0 && codePoint >= 0x80;
  const bool separatesLines = codePoint == 0x2028 || codePoint == 0x2029;
  if (control || separatesLines || isSurrogate(codePoint) || turnsDirection(codePoint)) return kReplacement;
  return codePoint;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    appendUtf8(result, step ? shown(step.codePoint) : kReplacement);
    at += step ? step.length : 1;
  }
  return result;
}

std::string quoted(const String& text) { return text ? '"' + printable(text.view()) + '"' : "(none)"; }

std::size_t displayWidth(std::string_view text) {
  // A cluster of code points that is drawn as one takes two columns at most, however many pictographs are
  // joined in it.
  std::size_t width = 0;
  int cluster = 0;
  utf8proc_int32_t state = 0;
  utf8proc_int32_t before = -1;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    const auto codePoint = static_cast<utf8proc_int32_t>(step ? step.codePoint : kReplacement);
    at += step ? step.length : 1;
    if (before < 0 || utf8proc_grapheme_break_stateful(before, codePoint, &state)) {
      width += static_cast<std::size_t>(std::min(cluster, 2));
      cluster = 0;
    }
    cluster += std::max(utf8proc_charwidth(codePoint), 0);
    before = codePoint;
  }
  return width + static_cast<std::size_t>(std::min(cluster, 2));
}

std::string sizeText(std::uint64_t bytes) {
  if (bytes < 1000) return countText(bytes, "byte", "bytes");
  static constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 999.95 && unit + 1 < std::size(kUnits); ++unit) size /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, kUnits[unit]);
  return text;
}

std::string grouped(std::size_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, 1, ',');
  return text;
}

std::string countText(std::size_t count, const char* singular, const char* plural) {
  return grouped(count) + ' ' + (count == 1 ? singular : plural);
}

std::string wrapped(std::string_view text) {
  constexpr std::size_t kColumns = 80;
  std::string lines;
  std::size_t column = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view word = text.substr(at, text.find(' ', at) - at);
    at += word.size() + 1;
    const bool fits = column == 0 || column + 1 + displayWidth(word) <= kColumns;
    if (column > 0) lines += fits ? ' ' : '\n';
    column = (fits && column > 0 ? column + 1 : 0) + displayWidth(word);
    lines += word;
  }
  return lines + '\n';
}

std::string timeText(Date date) { return localDescription(date); }

}  // namespace corvane::loomerctl
