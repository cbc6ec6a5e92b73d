#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvane {

/// Stands for what is no text (U+FFFD).
constexpr char32_t kReplacementCharacter = 0xFFFD;

/// One step through UTF-8 text: the code point and how many bytes it takes.
struct Utf8Step {
  char32_t codePoint = 0;
  std::size_t length = 0;  ///< 0 where the bytes are no UTF-8

  explicit operator bool() const { return length > 0; }
};

/// The code point that starts at `at`, which must lie inside `text`. Surrogates in their three-byte form
/// count as code points here, as String carries them; a caller who cannot take them asks `isSurrogate`.
/// Longer forms than needed, code points beyond U+10FFFF and cut-off sequences are no UTF-8 (RFC 3629).
Utf8Step decodeUtf8(std::string_view text, std::size_t at);

/// Writes the code point (at most U+10FFFF) at `to`, one to four bytes, and answers where the next one goes.
char* encodeUtf8(char* to, char32_t codePoint);
/// Adds the code point to the text.
void appendUtf8(std::string& text, char32_t codePoint);

/// Bytes that `encodeUtf8` writes.
constexpr std::size_t utf8Length(char32_t codePoint) {
  return codePoint < 0x80 ? 1 : codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
}

constexpr bool isSurrogate(char32_t codePoint) { return (codePoint & 0xFFFFF800) == 0xD800; }
constexpr bool isHighSurrogate(char32_t unit) { return (unit & 0xFFFFFC00) == 0xD800; }
constexpr bool isLowSurrogate(char32_t unit) { return (unit & 0xFFFFFC00) == 0xDC00; }

/// The code point that two UTF-16 units make (RFC 2781).
constexpr char32_t joinSurrogates(char32_t high, char32_t low) {
  return 0x10000 + ((high & 0x3FF) << 10) + (low & 0x3FF);
}

/// The text as UTF-8 that every reader takes (RFC 3629): two surrogates that make a pair are one code point,
/// and U+FFFD stands in the place of a surrogate that stands alone and of every byte that is no UTF-8.
std::string repairedUtf8(std::string_view bytes);

/// Whether the bytes are well-formed UTF-8 (RFC 3629).
bool isValidUtf8(std::string_view bytes);

/// Whether every byte is below 128.
bool isAscii(std::string_view bytes);

}  // namespace corvane
