#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"

namespace corvane::loomer {

namespace {

constexpr std::string_view kScheme = "file://";

int hexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape =
        text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0;
    result += escape ? static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2])) : text[i];
    if (escape) i += 2;
  }
  return result;
}

}  // namespace

Url fileUrl(std::string_view path) {
  constexpr std::string_view kUnescaped =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text(kScheme);
  for (const char byte : path) {
    if (kUnescaped.find(byte) != std::string_view::npos) {
      text += byte;
    } else {
      const auto code = static_cast<unsigned char>(byte);
      text += {'%', kDigits[code / 16], kDigits[code % 16]};
    }
  }
  return Url{text};
}

std::optional<std::string> pathOfFileUrl(const Url& url) {
  std::string_view text = url.text.view();
  if (!text.starts_with(kScheme)) return std::nullopt;
  text.remove_prefix(kScheme.size());
  const std::size_t slash = text.find('/');  // after the host, which is empty or this computer
  if (slash == std::string_view::npos) return std::nullopt;
  return unescaped(text.substr(slash));
}

}  // namespace corvane::loomer
