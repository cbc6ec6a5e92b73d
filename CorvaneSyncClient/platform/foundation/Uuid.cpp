#include "CorvaneSyncClient/platform/foundation/Uuid.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <cstring>

#include "CorvaneSyncClient/platform/foundation/RandomBytes.h"

namespace corvane {

namespace {

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
  uuid_t uuid;
  if (text.size() != UUID_STR_LEN - 1 || uuid_parse_range(text.data(), text.data() + text.size(), uuid) != 0)
    return std::nullopt;
  UuidBytes bytes;
  std::memcpy(bytes.data(), uuid, sizeof uuid);
  return bytes;
}

std::string uuidString(const UuidBytes& bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text(UUID_STR_LEN - 1, '-');
  char* to = text.data();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) ++to;
    const auto byte = static_cast<unsigned char>(bytes[i]);
    *to++ = kDigits[byte >> 4];
    *to++ = kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace corvane
