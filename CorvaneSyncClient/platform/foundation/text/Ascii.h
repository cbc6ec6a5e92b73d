#pragma once

#include <string>
#include <string_view>

namespace corvane {

// Classes of ASCII characters. No locale has a say, and no other byte belongs to any of them.

constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isOctalDigit(char c) { return c >= '0' && c <= '7'; }
constexpr bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
/// A blank, or one of the control characters from the tab to the carriage return.
constexpr bool isAsciiSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
/// What counts as white space in HTML: the blank, the tab, line and page ends.
constexpr bool isHtmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }
/// Letters in lower case, anything else as it is.
constexpr char asciiLowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// 0 to 15, or -1 for what is no hexadecimal digit.
constexpr int hexDigitValue(char c) {
  if (isAsciiDigit(c)) return c - '0';
  const char lower = asciiLowerCase(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// The text as HTML is shown: each run of white space is one blank, without any at the ends.
std::string whiteSpaceCollapsed(std::string_view text);

}  // namespace corvane
