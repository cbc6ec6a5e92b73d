#include "tools/loomerctl/HtmlText.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane::loomerctl {

namespace {

constexpr char32_t kHtmlReplacement = 0xFFFD;
constexpr std::size_t kLongestReference = 12;

// What windows-1252 has at 0x80 to 0x9F; numeric references to these code points mean the same.
constexpr char16_t kWindows1252[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                       0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                       0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                       0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

// HTML's names of U+00A0 to U+00FF, in their order.
constexpr std::string_view kLatin1Names[96] = {
    "nbsp",   "iexcl",  "cent",   "pound",  "curren", "yen",    "brvbar", "sect",   "uml",    "copy",
    "ordf",   "laquo",  "not",    "shy",    "reg",    "macr",   "deg",    "plusmn", "sup2",   "sup3",
    "acute",  "micro",  "para",   "middot", "cedil",  "sup1",   "ordm",   "raquo",  "frac14", "frac12",
    "frac34", "iquest", "Agrave", "Aacute", "Acirc",  "Atilde", "Auml",   "Aring",  "AElig",  "Ccedil",
    "Egrave", "Eacute", "Ecirc",  "Euml",   "Igrave", "Iacute", "Icirc",  "Iuml",   "ETH",    "Ntilde",
    "Ograve", "Oacute", "Ocirc",  "Otilde", "Ouml",   "times",  "Oslash", "Ugrave", "Uacute", "Ucirc",
    "Uuml",   "Yacute", "THORN",  "szlig",  "agrave", "aacute", "acirc",  "atilde", "auml",   "aring",
    "aelig",  "ccedil", "egrave", "eacute", "ecirc",  "euml",   "igrave", "iacute", "icirc",  "iuml",
    "eth",    "ntilde", "ograve", "oacute", "ocirc",  "otilde", "ouml",   "divide", "oslash", "ugrave",
    "uacute", "ucirc",  "uuml",   "yacute", "thorn",  "yuml"};

struct NamedCharacter {
  std::string_view name;
  char32_t codePoint;
};

constexpr NamedCharacter kNamed[] = {
    {"amp", '&'},       {"lt", '<'},        {"gt", '>'},        {"quot", '"'},      {"apos", '\''},
    {"AMP", '&'},       {"LT", '<'},        {"GT", '>'},        {"QUOT", '"'},      {"OElig", 0x152},
    {"oelig", 0x153},   {"Scaron", 0x160},  {"scaron", 0x161},  {"Yuml", 0x178},    {"circ", 0x2C6},
    {"tilde", 0x2DC},   {"ensp", 0x2002},   {"emsp", 0x2003},   {"thinsp", 0x2009}, {"zwnj", 0x200C},
    {"zwj", 0x200D},    {"lrm", 0x200E},    {"rlm", 0x200F},    {"ndash", 0x2013},  {"mdash", 0x2014},
    {"lsquo", 0x2018},  {"rsquo", 0x2019},  {"sbquo", 0x201A},  {"ldquo", 0x201C},  {"rdquo", 0x201D},
    {"bdquo", 0x201E},  {"dagger", 0x2020}, {"Dagger", 0x2021}, {"bull", 0x2022},   {"hellip", 0x2026},
    {"permil", 0x2030}, {"lsaquo", 0x2039}, {"rsaquo", 0x203A}, {"euro", 0x20AC},   {"trade", 0x2122},
    {"larr", 0x2190},   {"uarr", 0x2191},   {"rarr", 0x2192},   {"darr", 0x2193},   {"minus", 0x2212}};

constexpr std::string_view kHtmlSpaces = " \t\n\r\f";

bool isLineEnd(char c) { return c == '\n' || c == '\r' || c == '\f'; }

std::optional<char32_t> namedCharacter(std::string_view name) {
  for (const NamedCharacter& each : kNamed) {
    if (each.name == name) return each.codePoint;
  }
  for (std::size_t i = 0; i < std::size(kLatin1Names); ++i) {
    if (kLatin1Names[i] == name) return static_cast<char32_t>(0xA0 + i);
  }
  return std::nullopt;
}

std::optional<char32_t> numberedCharacter(std::string_view digits) {
  const bool hexadecimal = !digits.empty() && (digits[0] == 'x' || digits[0] == 'X');
  if (hexadecimal) digits.remove_prefix(1);
  std::uint32_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
  if (error == std::errc::invalid_argument || end != digits.data() + digits.size()) return std::nullopt;
  if (error != std::errc() || number == 0 || number > 0x10FFFF || isSurrogate(number))
    return kHtmlReplacement;
  return number >= 0x80 && number <= 0x9F ? kWindows1252[number - 0x80] : number;
}

// The length of the reference at the start of `text`, and its character; 0 if there is none.
Utf8Step reference(std::string_view text) {
  const std::size_t end = text.substr(0, kLongestReference).find(';');
  if (end == std::string_view::npos || end < 2) return {};
  const std::string_view name = text.substr(1, end - 1);
  const auto character = name[0] == '#' ? numberedCharacter(name.substr(1)) : namedCharacter(name);
  if (!character) return {};
  return {*character, end + 1};
}

// The character at `at`; U+FFFD for bytes that are not one.
Utf8Step characterAt(std::string_view text, std::size_t at) {
  const Utf8Step step = decodeUtf8(text, at);
  const bool isText = step && step.codePoint != 0 && !isSurrogate(step.codePoint);
  return isText ? step : Utf8Step{kHtmlReplacement, step ? step.length : 1};
}

// Adds the character, escaped where it has a meaning in HTML.
void appendEscaped(char32_t codePoint, std::string& to) {
  switch (codePoint) {
    case '&':
      to += "&amp;";
      break;
    case '<':
      to += "&lt;";
      break;
    case '>':
      to += "&gt;";
      break;
    case '"':
      to += "&quot;";
      break;
    default:
      appendUtf8(to, codePoint);
  }
}

// Adds the character at the start of `html`, its reference resolved; answers how many bytes it took.
std::size_t takeCharacter(std::string_view html, std::string& to) {
  Utf8Step step = html[0] == '&' ? reference(html) : Utf8Step{};
  if (!step) step = characterAt(html, 0);
  appendUtf8(to, step.codePoint);
  return step.length;
}

}  // namespace

std::string htmlEscapedTitle(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = characterAt(text, at);
    appendEscaped(isLineEnd(text[at]) ? U' ' : step.codePoint, result);
    at += step.length;
  }
  return result;
}

std::string htmlEscapedAttribute(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = characterAt(text, at);
    const bool dropped = step.codePoint == ' ' && (at == 0 || at + 1 == text.size() || text[at - 1] == ' ');
    if (dropped || step.codePoint < ' ') {
      result += "&#" + std::to_string(static_cast<std::uint32_t>(step.codePoint)) + ';';
    } else {
      appendEscaped(step.codePoint, result);
    }
    at += step.length;
  }
  return result;
}

std::string htmlTitle(std::string_view html) {
  std::string result;
  for (std::size_t at = 0; at < html.size();) {
    if (!isHtmlSpace(html[at])) {
      at += takeCharacter(html.substr(at), result);
      continue;
    }
    const std::size_t end = std::min(html.find_first_not_of(kHtmlSpaces, at), html.size());
    const std::string_view space = html.substr(at, end - at);
    if (std::none_of(space.begin(), space.end(), isLineEnd)) {
      result += space;
    } else if (at > 0 && end < html.size()) {
      result += ' ';
    }
    at = end;
  }
  return result;
}

std::string htmlAttribute(std::string_view html) {
  while (!html.empty() && isHtmlSpace(html.front())) html.remove_prefix(1);
  while (!html.empty() && isHtmlSpace(html.back())) html.remove_suffix(1);
  std::string result;
  for (std::size_t at = 0; at < html.size();) {
    if (html[at] != ' ' && isHtmlSpace(html[at])) {
      ++at;
    } else {
      at += takeCharacter(html.substr(at), result);
    }
  }
  return result;
}

}  // namespace corvane::loomerctl
