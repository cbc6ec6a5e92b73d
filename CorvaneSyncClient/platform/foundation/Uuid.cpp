#include "CorvaneSyncClient/platform/foundation/Uuid.h"

#include <uuid/uuid.h>

#include <cstring>

namespace corvane {

std::string newUuidString() {
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[UUID_STR_LEN];
  uuid_unparse_upper(uuid, text);
  return text;
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
  uuid_t uuid;
  std::memcpy(uuid, bytes.data(), sizeof uuid);
  char text[UUID_STR_LEN];
  uuid_unparse_upper(uuid, text);
  return text;
}

}  // namespace corvane
