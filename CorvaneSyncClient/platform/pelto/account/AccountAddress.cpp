#include "CorvaneSyncClient/platform/pelto/account/AccountAddress.h"

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/HubAddress.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"

namespace corvane::pelto {

bool isPlaceAddress(std::string_view address) {
  return !address.starts_with("postgresql://") && !address.starts_with("postgres://");
}

void checkAccountAddress(std::string_view address) {
  if (isPlaceAddress(address)) {
    parsePlaceAddress(address);
  } else {
    parseHubAddress(address);
  }
}

bool holdsPassword(std::string_view address) {
  if (!isPlaceAddress(address)) return parseHubAddress(address).holdsPassword();
  parsePlaceAddress(address);  // takes none with a password
  return false;
}

std::string withoutSecrets(std::string_view address) {
  try {
    return isPlaceAddress(address) ? parsePlaceAddress(address).description()
                                   : parseHubAddress(address).description();
  } catch (const PlatformException&) {
    return "an address that can't be used";
  }
}

}  // namespace corvane::pelto
