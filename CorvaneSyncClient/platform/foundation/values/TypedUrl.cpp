#include "CorvaneSyncClient/platform/foundation/values/TypedUrl.h"

#include <idn2.h>
#include <uriparser/Uri.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>

#include "CorvaneSyncClient/platform/foundation/LoadedLibrary.h"
#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

std::string lowerCased(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = asciiLowerCase(c);
  return lower;
}

// ---- White space ----

enum class Class { ordinary, space, control, invalid };

Class classOf(const Utf8Step& step) {
  if (!step || isSurrogate(step.codePoint)) return Class::invalid;
  if (step.codePoint == ' ' || (step.codePoint >= '\t' && step.codePoint <= '\r')) return Class::space;
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(step.codePoint))) {
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return Class::space;
    case UTF8PROC_CATEGORY_CC:
      return Class::control;
    default:
      return Class::ordinary;
  }
}

// The text without white space around it. Bytes that are not UTF-8 are not white space.
std::string_view trimmed(std::string_view text) {
  std::size_t start = text.size();
  std::size_t end = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    const std::size_t next = at + std::max<std::size_t>(step.length, 1);
    if (classOf(step) != Class::space) {
      start = std::min(start, at);
      end = next;
    }
    at = next;
  }
  return end == 0 ? std::string_view() : text.substr(start, end - start);
}

// Whether there is text at all, of ordinary characters alone.
bool isOrdinary(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    if (classOf(step) != Class::ordinary) return false;
    at += step.length;
  }
  return !text.empty();
}

// ---- Escaping ----

void appendEscaped(std::string& text, char byte) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  const auto bits = static_cast<unsigned char>(byte);
  text += {'%', kDigits[bits >> 4], kDigits[bits & 15]};
}

// Escapes the bytes of non-ASCII characters and those in `also`; the rest stays.
std::string escaped(std::string_view text, std::string_view also = {}) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80 || isOneOf(c, also)) {
      appendEscaped(result, c);
    } else {
      result += c;
    }
  }
  return result;
}

// ---- The parts of an address ----

// Length of the scheme that the text starts with (RFC 3986, section 3.1), without the colon; 0 for none.
std::size_t schemeLength(std::string_view text) {
  if (text.empty() || !isAsciiLetter(text[0])) return 0;
  std::size_t length = 1;
  while (length < text.size() &&
         (isAsciiLetter(text[length]) || isAsciiDigit(text[length]) || isOneOf(text[length], "+-."))) {
    ++length;
  }
  return length < text.size() && text[length] == ':' ? length : 0;
}

// Where the authority that starts at `start` ends.
std::size_t authorityEnd(std::string_view text, std::size_t start) {
  return std::min(text.find_first_of("/?#", start), text.size());
}

struct Authority {
  std::string_view user;  // with its "@"
  std::string_view host;
  std::string_view port;  // with its colon
};

Authority splitAuthority(std::string_view text) {
  Authority parts;
  const std::size_t at = text.rfind('@');
  if (at != std::string_view::npos) {
    parts.user = text.substr(0, at + 1);
    text.remove_prefix(at + 1);
  }
  const std::size_t bracket = text.starts_with('[') ? std::min(text.find(']'), text.size()) : 0;
  const std::size_t colon = std::min(text.find(':', bracket), text.size());
  parts.host = text.substr(0, colon);
  parts.port = text.substr(colon);
  return parts;
}

// An empty port, as in "host:", is one by the grammar.
bool isPort(std::string_view digits) {
  constexpr std::size_t kMostDigits = 5;
  if (!std::all_of(digits.begin(), digits.end(), isAsciiDigit)) return false;
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  if (digits.size() > kMostDigits) return false;
  unsigned number = 0;
  for (const char c : digits) number = number * 10 + static_cast<unsigned>(c - '0');
  return number <= 65535;
}

// Of libidn2, whose tables are larger than all else that a run loads, and which few files have a host for.
struct Idna {
  static LoadedFunction named(const char* name) { return loadedFunction({"libidn2.so.0"}, name); }

  decltype(&idn2_to_ascii_8z) toAscii = named("idn2_to_ascii_8z");
  decltype(&idn2_free) release = named("idn2_free");
};

// The ASCII form of a host (IDNA 2008, RFC 5891, with the mapping of UTS 46); nothing when it has none.
// Characters that the mapping turns into delimiters would move the host's end, so they count as none.
std::optional<std::string> asciiHost(std::string_view host) {
  if (isAscii(host)) return std::string(host);
  static const Idna idna;
  const std::string terminated(host);
  char* mapped = nullptr;
  const int code = idna.toAscii(terminated.c_str(), &mapped, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
  if (code == IDN2_MALLOC) throw std::bad_alloc();
  if (code != IDN2_OK) return std::nullopt;
  const std::unique_ptr<char, void (*)(void*)> owner(mapped, idna.release);
  const std::string ascii = mapped;
  const auto mayStand = [](char c) { return isAsciiLetter(c) || isAsciiDigit(c) || isOneOf(c, "-._"); };
  if (ascii.empty() || !std::all_of(ascii.begin(), ascii.end(), mayStand)) return std::nullopt;
  return ascii;
}

std::optional<std::string> repairedAuthority(std::string_view text, bool mayBeEmpty) {
  const Authority parts = splitAuthority(text);
  if (parts.host.empty() && !(mayBeEmpty && text.empty())) return std::nullopt;
  if (!parts.port.empty() && !isPort(parts.port.substr(1))) return std::nullopt;
  const auto host = asciiHost(parts.host);
  if (!host) return std::nullopt;
  return escaped(parts.user) + *host + std::string(parts.port);
}

// ---- What was typed ----

// Schemes whose URLs are nothing without a host.
bool needsHost(std::string_view scheme) {
  static constexpr std::string_view kSchemes[] = {"http", "https", "ftp", "ws", "wss"};
  return std::find(std::begin(kSchemes), std::end(kSchemes), lowerCased(scheme)) != std::end(kSchemes);
}

// Tells "localhost:8080" and "example.com:80/x", where digits follow the colon of a name that a host may
// have, from "com.example.app:open" and "tel:112", where the name is a scheme.
bool isHostWithPort(std::string_view text, std::size_t nameLength) {
  const std::string_view name = text.substr(0, nameLength);
  if (name.find('.') == std::string_view::npos && lowerCased(name) != "localhost") return false;
  const std::size_t start = nameLength + 1;
  const std::string_view port = text.substr(start, authorityEnd(text, start) - start);
  return !port.empty() && std::all_of(port.begin(), port.end(), isAsciiDigit);
}

// Where "scheme://" stands in front, with the host that follows it.
std::optional<std::string> hierarchical(std::string_view prefix, std::string_view rest, bool mayBeEmpty) {
  const std::size_t end = authorityEnd(rest, 0);
  const auto authority = repairedAuthority(rest.substr(0, end), mayBeEmpty);
  if (!authority) return std::nullopt;
  return std::string(prefix) + *authority + escaped(rest.substr(end));
}

std::optional<std::string> repaired(std::string_view text) {
  if (text.starts_with('/')) return "file://" + escaped(text, "?#");
  const std::size_t scheme = schemeLength(text);
  if (scheme == 0 || isHostWithPort(text, scheme)) return hierarchical("http://", text, false);
  const std::size_t start = scheme + 3;
  if (text.substr(scheme).starts_with("://")) {
    return hierarchical(text.substr(0, start), text.substr(start),
                        lowerCased(text.substr(0, scheme)) == "file");
  }
  if (needsHost(text.substr(0, scheme))) return std::nullopt;
  return escaped(text);
}

// Places in a text, from `start` up to `end`.
struct Span {
  std::size_t start = 0;
  std::size_t end = 0;
  bool holds(std::size_t at) const { return at >= start && at < end; }
};

// Where the authority stands, behind "scheme://" or in front of a bare address; empty without one.
Span authorityOf(std::string_view text) {
  const std::size_t scheme = schemeLength(text);
  if (scheme > 0 && text.substr(scheme).starts_with("://")) {
    return {scheme + 3, authorityEnd(text, scheme + 3)};
  }
  if (scheme > 0 && !isHostWithPort(text, scheme)) return {};
  return {0, authorityEnd(text, 0)};
}

bool isUrl(const std::string& text) {
  UriUriA uri;
  const char* errorPosition = nullptr;
  const int code = uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &errorPosition);
  if (code == URI_ERROR_MALLOC) throw std::bad_alloc();
  if (code != URI_SUCCESS) return false;
  uriFreeUriMembersA(&uri);
  return true;
}

// ---- What needs no repair ----

// What may stand in a host that is a plain name or an IPv4 address, and behind it, up to the fragment.
constexpr bool isInPlainHost(char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == '-' || c == '.'; }
constexpr bool isInPlainPath(char c) {
  constexpr std::string_view kOthers = "-._~:/?@!$&'()*+,;=";
  return isAsciiLetter(c) || isAsciiDigit(c) || kOthers.find(c) != std::string_view::npos;
}

constexpr auto tableOf(bool (*isMember)(char)) {
  std::array<bool, 256> table{};
  for (std::size_t byte = 0; byte < table.size(); ++byte) table[byte] = isMember(static_cast<char>(byte));
  return table;
}
constexpr auto kPlainHost = tableOf(isInPlainHost);
constexpr auto kPlainPath = tableOf(isInPlainPath);

// The first place from `at` on that the class does not have.
std::size_t pastClass(const std::array<bool, 256>& members, std::string_view text, std::size_t at) {
  while (at < text.size() && members[static_cast<unsigned char>(text[at])]) ++at;
  return at;
}

// Whether the text is one of the addresses that nearly all bookmarks have: "http" or "https", a plain host,
// and ASCII that a URL may hold behind it. It is a URL by the grammar, and no repair would change it.
bool isPlainWebUrl(std::string_view text) {
  const std::size_t host = text.starts_with("https://") ? 8 : text.starts_with("http://") ? 7 : 0;
  if (host == 0) return false;
  std::size_t at = pastClass(kPlainHost, text, host);
  if (at == host || (at < text.size() && !isOneOf(text[at], "/?#"))) return false;
  bool isInFragment = false;
  while ((at = pastClass(kPlainPath, text, at)) < text.size()) {
    const bool isEscape = text[at] == '%' && text.size() - at > 2 && hexDigitValue(text[at + 1]) >= 0 &&
                          hexDigitValue(text[at + 2]) >= 0;
    if (!isEscape && (text[at] != '#' || isInFragment)) return false;
    isInFragment = isInFragment || !isEscape;
    at += isEscape ? 3 : 1;
  }
  return true;
}

}  // namespace

std::optional<Url> urlWithUserTypedString(const String& text) {
  if (isPlainWebUrl(text.view())) return Url{text};
  const std::string_view typed = trimmed(text.view());
  if (!isOrdinary(typed)) return std::nullopt;
  auto url = repaired(typed);
  if (!url || !isUrl(*url)) return std::nullopt;
  return Url{String(*url)};
}

std::string percentEscaped(std::string_view text) {
  const Span authority = authorityOf(text);
  const bool mayBeBracketed = authority.start > 0 || text.starts_with('[');
  const std::size_t fragment = text.find('#');
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const bool isEscape = c == '%' && text.size() - at > 2 && hexDigitValue(text[at + 1]) >= 0 &&
                          hexDigitValue(text[at + 2]) >= 0;
    // Brackets may stand around an IPv6 literal alone, "#" before the fragment alone.
    const bool isBracket = mayBeBracketed && isOneOf(c, "[]") && authority.holds(at);
    const bool stays = isEscape || isBracket || at == fragment || isAsciiLetter(c) || isAsciiDigit(c) ||
                       isOneOf(c, "-._~:/?@!$&'()*+,;=");
    if (stays) {
      result += c;
    } else {
      appendEscaped(result, c);
    }
  }
  return result;
}

}  // namespace corvane
