#include "CorvaneSyncClient/platform/foundation/Uuid.h"

#include <uuid/uuid.h>

namespace corvane {

std::string newUuidString() {
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[UUID_STR_LEN];
  uuid_unparse_upper(uuid, text);
  return text;
}

}  // namespace corvane
