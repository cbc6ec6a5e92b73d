#include "tools/loomerctl/report/Markup.h"

#include <algorithm>
#include <cstddef>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "tools/loomerctl/HtmlText.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {

// Characters of an address that is no link: bookmarks can hold whole programs.
constexpr std::size_t kShownOfAddress = 200;

bool beginsWith(std::string_view text, std::string_view lowerCase) {
  return text.size() > lowerCase.size() &&
         std::equal(lowerCase.begin(), lowerCase.end(), text.begin(),
                    [](char wanted, char given) { return wanted == asciiLowerCase(given); });
}

// Whether `timeText` could tell the date, as "2026-11-21 11:49:00 +0100".
bool isWholeTime(std::string_view text) {
  return text.size() == sizeof "2026-11-21 11:49:00 +0100" - 1 && isAsciiDigit(text[0]);
}

void appendPercentEncoded(std::string_view bytes, std::string& to) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    to += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
  }
}

}  // namespace

std::string asHtml(std::string_view text) { return htmlEscapedTitle(printable(text)); }

std::string asShortHtml(std::string_view text, std::size_t most) {
  std::size_t at = 0;
  for (std::size_t count = 0; at < text.size() && count < most; ++count) {
    at += std::max<std::size_t>(decodeUtf8(text, at).length, 1);
  }
  return asHtml(text.substr(0, at)) + (at < text.size() ? "…" : "");
}

std::string sentenceHtml(std::string_view sentence) {
  std::string html;
  bool isCode = false;
  for (const char each : asHtml(sentence)) {
    if (each == '`') {
      html += isCode ? "</code>" : "<code>";
      isCode = !isCode;
    } else {
      html += each;
    }
  }
  return isCode ? html + "</code>" : html;
}

std::string minuteText(Date date) {
  const std::string text = timeText(date);
  return isWholeTime(text) ? text.substr(0, sizeof "2026-11-21 11:49" - 1) : text;
}

std::string timeHtml(Date date) {
  const std::string text = timeText(date);
  if (!isWholeTime(text)) return asHtml(text);
  const std::string zone = text.substr(20, 3) + ':' + text.substr(23);
  return "<time datetime=\"" + text.substr(0, 10) + 'T' + text.substr(11, 8) + zone + "\">" +
         minuteText(date) + "</time>";
}

bool isLinked(std::string_view address) {
  return beginsWith(address, "https://") || beginsWith(address, "http://");
}

std::string linkHtml(std::string_view address) {
  std::string shown;
  shown.reserve(address.size());
  for (std::size_t at = 0; at < address.size();) {
    const std::size_t length = std::max<std::size_t>(decodeUtf8(address, at).length, 1);
    const std::string_view character = address.substr(at, length);
    if (address[at] == ' ' || printable(character) != character) {
      appendPercentEncoded(character, shown);
    } else {
      shown += character;
    }
    at += length;
  }
  return htmlEscapedTitle(shown);
}

std::string bookmarkHtml(const loomer::Content& bookmark) {
  const std::string_view address = bookmark.url.view();
  const std::string title = asHtml(bookmark.name.empty() ? address : bookmark.name.view());
  if (isLinked(address)) {
    return "<a href=\"" + linkHtml(address) + "\">" + title + "</a>";
  }
  if (bookmark.name.empty()) return "<code>" + asShortHtml(address, kShownOfAddress) + "</code>";
  const std::string behind =
      address.empty() ? "" : " <code>" + asShortHtml(address, kShownOfAddress) + "</code>";
  return "<b>" + title + "</b>" + behind;
}

}  // namespace corvane::loomerctl
