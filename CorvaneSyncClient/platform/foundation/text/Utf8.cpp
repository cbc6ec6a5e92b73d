#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

#include <algorithm>
#include <cstring>

namespace corvane {

Utf8Step decodeUtf8(std::string_view text, std::size_t at) {
  const auto byteAt = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byteAt(at);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() - at < length) return {};
  char32_t codePoint = lead & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = byteAt(at + i);
    if ((next & 0xC0) != 0x80) return {};
    codePoint = codePoint << 6 | (next & 0x3F);
  }
  if (codePoint > 0x10FFFF || utf8Length(codePoint) != length) return {};
  return {codePoint, length};
}

char* encodeUtf8(char* to, char32_t codePoint) {
  const std::size_t length = utf8Length(codePoint);
  if (length == 1) {
    *to = static_cast<char>(codePoint);
    return to + 1;
  }
  for (std::size_t i = length; i-- > 1; codePoint >>= 6) to[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
  static constexpr unsigned char kLeads[] = {0, 0, 0xC0, 0xE0, 0xF0};
  *to = static_cast<char>(kLeads[length] | codePoint);
  return to + length;
}

void appendUtf8(std::string& text, char32_t codePoint) {
  char bytes[4];
  text.append(bytes, encodeUtf8(bytes, codePoint));
}

namespace {

// As decodeUtf8, with two surrogates that make a pair as one step.
Utf8Step decodePair(std::string_view text, std::size_t at) {
  const Utf8Step step = decodeUtf8(text, at);
  const std::size_t next = at + step.length;
  if (!isHighSurrogate(step.codePoint) || next == text.size()) return step;
  const Utf8Step low = decodeUtf8(text, next);
  if (!isLowSurrogate(low.codePoint)) return step;
  return {joinSurrogates(step.codePoint, low.codePoint), step.length + low.length};
}

}  // namespace

std::string repairedUtf8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size();) {
    const Utf8Step step = decodePair(bytes, at);
    const bool isText = step && !isSurrogate(step.codePoint);
    appendUtf8(text, isText ? step.codePoint : kReplacementCharacter);
    at += std::max<std::size_t>(step.length, 1);
  }
  return text;
}

bool isValidUtf8(std::string_view bytes) {
  if (isAscii(bytes)) return true;  // which is seen word by word
  for (std::size_t at = 0; at < bytes.size();) {
    const Utf8Step step = decodeUtf8(bytes, at);
    if (!step || isSurrogate(step.codePoint)) return false;
    at += step.length;
  }
  return true;
}

bool isAscii(std::string_view bytes) {
  const char* at = bytes.data();
  std::size_t left = bytes.size();
  std::uint64_t seen = 0;
  for (; left >= sizeof seen; at += sizeof seen, left -= sizeof seen) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    seen |= word;
  }
  for (; left > 0; ++at, --left) seen |= static_cast<unsigned char>(*at);
  return (seen & 0x8080808080808080U) == 0;
}

}  // namespace corvane
