#include "browsers/host/Likeness.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/values/TypedUrl.h"

namespace corvane::browsers {

namespace {

constexpr std::size_t kCertainTitle = 4000;  // bytes that every browser keeps

std::string withoutEscapes(std::string_view text) {
  std::string resolved;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const int high = text[at] == '%' && at + 2 < text.size() ? hexDigitValue(text[at + 1]) : -1;
    const int low = high >= 0 ? hexDigitValue(text[at + 2]) : -1;
    if (low < 0) {
      resolved += text[at];
      continue;
    }
    resolved += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return resolved;
}

}  // namespace

std::string likenessOfTitle(std::string_view title) {
  std::string like(title.substr(0, kCertainTitle));
  std::replace_if(
      like.begin(), like.end(), [](unsigned char c) { return c < ' '; }, ' ');
  return like;
}

std::string likenessOfAddress(std::string_view address) {
  const auto typed = urlWithUserTypedString(String(address));
  std::string like = withoutEscapes(typed ? typed->text.view() : address);
  const std::size_t scheme = like.find("://");
  const std::size_t end =
      scheme == std::string::npos ? like.find(':') : like.find_first_of("/?#", scheme + 3);
  for (std::size_t at = 0; at < std::min(end, like.size()); ++at) like[at] = asciiLowerCase(like[at]);
  while (like.ends_with('/')) like.pop_back();
  return like;
}

}  // namespace corvane::browsers
