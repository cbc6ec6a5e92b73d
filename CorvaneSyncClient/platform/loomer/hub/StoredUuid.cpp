#include "CorvaneSyncClient/platform/loomer/hub/StoredUuid.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"

namespace corvane::loomer {

std::string storedUuid(const String& uuid) {
  const auto bytes = uuid ? uuidBytes(uuid.view()) : std::nullopt;
  return bytes ? std::string(bytes->data(), bytes->size()) : std::string(kUuidSize, '\0');
}

String uuidFrom(std::string_view stored) {
  if (stored == std::string(kUuidSize, '\0')) return String();
  UuidBytes uuid;
  std::copy(stored.begin(), stored.end(), uuid.begin());
  return String(uuidString(uuid));
}

}  // namespace corvane::loomer
