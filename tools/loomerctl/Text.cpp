#include "tools/loomerctl/Text.h"

#include <utf8proc.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

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

// What stands on no line's beginning, and on no line's end, in text that is written without spaces (JIS X
// 4051).
constexpr std::u32string_view kNotFirst =
    U"、。，．・：；？！゛゜ー々…〜」』）】〕〉》］｝ぁぃぅぇぉっゃゅょゎァィゥェォッャュョヮ,.:;?!)]}%\"'`";
constexpr std::u32string_view kNotLast = U"「『（【〔〈《［｛([{\"'`";

bool mayBreakBetween(char32_t before, char32_t after) {
  const int widthBefore = utf8proc_charwidth(static_cast<utf8proc_int32_t>(before));
  const int widthAfter = utf8proc_charwidth(static_cast<utf8proc_int32_t>(after));
  // What has no width belongs to what stands in front of it.
  if (widthBefore < 1 || widthAfter < 1 || (widthBefore < 2 && widthAfter < 2)) return false;
  return kNotFirst.find(after) == std::u32string_view::npos &&
         kNotLast.find(before) == std::u32string_view::npos;
}

// Where the first piece of the text ends that stays on one line: a word, or less where letters are wide.
std::size_t endOfPiece(std::string_view text) {
  char32_t before = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    const char32_t codePoint = step ? step.codePoint : kReplacement;
    if (codePoint == ' ' || (at > 0 && mayBreakBetween(before, codePoint))) return at;
    before = codePoint;
    at += step ? step.length : 1;
  }
  return text.size();
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

std::string quoted(const String& text) { return text ? '"' + printable(text.view()) + '"' : tr("(none)"); }

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

std::string cut(const std::string& text, std::size_t columns) {
  if (displayWidth(text) <= columns) return text;
  std::size_t end = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    at += step ? step.length : 1;
    if (displayWidth(std::string_view(text).substr(0, at)) >= columns) break;
    end = at;
  }
  return text.substr(0, end) + "…";
}

std::string sizeText(std::uint64_t bytes) {
  if (bytes < 1000) return counted(bytes, "%1 byte", "%1 bytes");
  double size = static_cast<double>(bytes) / 1000;
  int power = 1;
  for (; size >= 999.95 && power < 4; ++power) size /= 1000;
  const std::string number = withOneDecimal(size);
  if (power == 1) return tr("%1 kB", number);
  if (power == 2) return tr("%1 MB", number);
  return power == 3 ? tr("%1 GB", number) : tr("%1 TB", number);
}

std::string wrapped(std::string_view text, std::size_t columns) {
  std::string lines;
  std::size_t column = 0;
  while (!text.empty()) {
    const bool spaced = text.front() == ' ';
    if (spaced) text.remove_prefix(1);
    const std::string_view piece = text.substr(0, endOfPiece(text));
    text.remove_prefix(piece.size());
    const std::size_t gap = spaced && column > 0 ? 1 : 0;
    const bool fits = column == 0 || column + gap + displayWidth(piece) <= columns;
    lines += fits ? std::string(gap, ' ') : "\n";
    column = (fits ? column + gap : 0) + displayWidth(piece);
    lines += piece;
  }
  return lines + '\n';
}

std::string timeText(Date date) { return localDescription(date); }

}  // namespace corvane::loomerctl
