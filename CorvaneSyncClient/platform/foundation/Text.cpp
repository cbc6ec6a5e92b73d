#include "CorvaneSyncClient/platform/foundation/Text.h"

#include <utf8proc.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Utf8.h"

namespace corvane {

namespace {

// Bytes that are no UTF-8 sort after U+10FFFF.
constexpr char32_t kFirstStrayByte = 0x110000;

char32_t foldAscii(unsigned char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; }

// Simple case folding of one code point: utf8proc knows full folding only, which for some code points is a
// sequence
// ("ß" becomes "ss"); those fall back to their simple lower case.
char32_t fold(char32_t codePoint) {
  const auto wide = static_cast<utf8proc_int32_t>(codePoint);
  utf8proc_int32_t folded[8];
  int boundary = 0;
  const utf8proc_ssize_t count =
      utf8proc_decompose_char(wide, folded, std::size(folded), UTF8PROC_CASEFOLD, &boundary);
  if (count == 1) return static_cast<char32_t>(folded[0]);
  return static_cast<char32_t>(utf8proc_tolower(wide));
}

char32_t nextFolded(std::string_view text, std::size_t& at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte < 0x80) {
    ++at;
    return foldAscii(byte);
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
  std::size_t atA = 0;
  std::size_t atB = 0;
  while (atA < a.size() && atB < b.size()) {
    const char32_t foldedA = nextFolded(a, atA);
    const char32_t foldedB = nextFolded(b, atB);
    if (foldedA != foldedB) return foldedA < foldedB ? -1 : 1;
  }
  if (atA < a.size()) return 1;
  return atB < b.size() ? -1 : 0;
}

bool isValidUtf8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const Utf8Step step = decodeUtf8(bytes, at);
    if (!step || isSurrogate(step.codePoint)) return false;
    at += step.length;
  }
  return true;
}

}  // namespace corvane
