#include "CorvaneSyncClient/platform/pelto/account/AccountAddress.h"

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/HubAddress.h"

namespace corvane::pelto {

void checkAccountUrl(std::string_view url) { parseHubAddress(url); }

bool holdsPassword(std::string_view url) { return parseHubAddress(url).holdsPassword(); }

std::string withoutSecrets(std::string_view url) {
  try {
    return parseHubAddress(url).description();
  } catch (const PlatformException&) {
    return "an address that can't be used";
  }
}

}  // namespace corvane::pelto
