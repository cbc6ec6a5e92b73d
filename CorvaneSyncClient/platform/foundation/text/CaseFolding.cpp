#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"

#include <utf8proc.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

// Bytes that are no UTF-8 sort after U+10FFFF.
constexpr char32_t kFirstStrayByte = 0x110000;

// What full case folding makes of a code point: three code points at most.
struct FullFolding {
  utf8proc_int32_t codePoints[8];
  utf8proc_ssize_t count;

  explicit FullFolding(utf8proc_int32_t codePoint) {
    int boundary = 0;
    count =
        utf8proc_decompose_char(codePoint, codePoints, std::size(codePoints), UTF8PROC_CASEFOLD, &boundary);
  }
  friend bool operator==(const FullFolding& a, const FullFolding& b) {
    return a.count == b.count && std::equal(a.codePoints, a.codePoints + a.count, b.codePoints);
  }
};

// Simple case folding of one code point (statuses C and S of Unicode's CaseFolding.txt). utf8proc knows full
// folding, which is the same where it is a single code point. Where it is several ("\u1e9e" becomes "ss"),
// the simple folding is the lower case that folds fully to the same ("\u00df"). That of "\u0130" does not,
// which therefore stays as it is.
char32_t fold(char32_t codePoint) {
  const auto wide = static_cast<utf8proc_int32_t>(codePoint);
  const FullFolding full(wide);
  if (full.count == 1) return static_cast<char32_t>(full.codePoints[0]);
  const utf8proc_int32_t lower = utf8proc_tolower(wide);
  return lower != wide && FullFolding(lower) == full ? static_cast<char32_t>(lower) : codePoint;
}

bool isContinuationAt(std::string_view text, std::size_t at) {
  return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// How many bytes the texts have in common in front, without the start of a character that they do not share.
std::size_t commonPrefix(std::string_view a, std::string_view b) {
  const std::size_t shorter = std::min(a.size(), b.size());
  auto common =
      static_cast<std::size_t>(std::mismatch(a.data(), a.data() + shorter, b.data()).first - a.data());
  // Whatever is no continuation byte starts a character, or stands alone.
  while (common > 0 && (isContinuationAt(a, common) || isContinuationAt(b, common))) --common;
  return common;
}

char32_t nextFolded(std::string_view text, std::size_t& at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte < 0x80) {
    return static_cast<unsigned char>(asciiLowerCase(text[at++]));
  }
  const Utf8Step step = decodeUtf8(text, at);
  if (!step || isSurrogate(step.codePoint)) {
    ++at;
    return kFirstStrayByte + byte;
  }
  at += step.length;
  return fold(step.codePoint);
}

}  // namespace

int compareCaseInsensitive(std::string_view a, std::string_view b) {
  if (a.data() == b.data() && a.size() == b.size()) return 0;
  std::size_t atA = commonPrefix(a, b);
  std::size_t atB = atA;
  while (atA < a.size() && atB < b.size()) {
    const char32_t foldedA = nextFolded(a, atA);
    const char32_t foldedB = nextFolded(b, atB);
    if (foldedA != foldedB) return foldedA < foldedB ? -1 : 1;
  }
  if (atA < a.size()) return 1;
  return atB < b.size() ? -1 : 0;
}

}  // namespace corvane
