#include "CorvaneSyncClient/platform/foundation/Uuid.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/RandomBytes.h"

namespace corvane {

namespace {

constexpr std::size_t kTextLength = 36;
constexpr std::string_view kUpperDigits = "0123456789ABCDEF";
constexpr std::string_view kLowerDigits = "0123456789abcdef";

constexpr bool isHyphenAt(std::size_t at) { return at == 8 || at == 13 || at == 18 || at == 23; }

// The system is asked for those of several UUIDs at once: a session that adds everything needs one for each
// addition.
UuidBytes randomBytes() {
  static std::array<char, 256> taken;
  static std::size_t left = 0;
  UuidBytes bytes;
  if (left == 0) {
    takeRandomBytes(taken);
    left = taken.size();
  }
  left -= bytes.size();
  std::copy_n(taken.begin() + left, bytes.size(), bytes.begin());
  return bytes;
}

}  // namespace

// Version 4 and the variant of RFC 4122 stand in some bits; the rest is random.
std::string newUuidString() {
  UuidBytes bytes = randomBytes();
  bytes[6] = static_cast<char>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<char>((bytes[8] & 0x3F) | 0x80);
  return uuidString(bytes);
}

std::optional<UuidBytes> uuidBytes(std::string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  UuidBytes bytes{};
  std::size_t digits = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isHyphenAt(at)) {
      if (text[at] != '-') return std::nullopt;
      continue;
    }
    const std::size_t value = std::min(kUpperDigits.find(text[at]), kLowerDigits.find(text[at]));
    if (value == std::string_view::npos) return std::nullopt;
    char& byte = bytes[digits++ / 2];
    byte = static_cast<char>((static_cast<unsigned char>(byte) << 4) | value);
  }
  return bytes;
}

std::string uuidString(const UuidBytes& bytes) {
  std::string text(kTextLength, '-');
  std::size_t at = 0;
  for (const char each : bytes) {
    if (isHyphenAt(at)) ++at;
    const auto byte = static_cast<unsigned char>(each);
    text[at++] = kUpperDigits[byte >> 4];
    text[at++] = kUpperDigits[byte & 0xF];
  }
  return text;
}

}  // namespace corvane
