#include "CorvaneSyncClient/platform/foundation/Base64.h"

#include <algorithm>
#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/Ascii.h"

namespace corvane {

namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int digitValue(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

}  // namespace

std::string base64Text(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
    }
    const std::size_t present = std::min<std::size_t>(bytes.size() - at, 3);
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= present ? kDigits[group >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

std::optional<std::string> bytesFromBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t group = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isAsciiSpace(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int value = digitValue(c);
    if (value < 0 || padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(value);
    if (++digits % 4 == 0) {
      bytes += {static_cast<char>(group >> 16), static_cast<char>(group >> 8), static_cast<char>(group)};
    }
  }
  const std::size_t rest = digits % 4;
  if (rest == 1 || (padding > 0 && (rest + padding) != 4)) return std::nullopt;
  if (rest >= 2) bytes += static_cast<char>(group >> (rest == 2 ? 4 : 10));
  if (rest == 3) bytes += static_cast<char>(group >> 2);
  return bytes;
}

}  // namespace corvane
