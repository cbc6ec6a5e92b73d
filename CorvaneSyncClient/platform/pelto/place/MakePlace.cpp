#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/HubPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Place.h"
#include "CorvaneSyncClient/platform/pelto/place/WebDavPlace.h"

namespace corvane::pelto {

std::unique_ptr<Place> makePlace(const PlaceAddress& address, const PlaceCredentials& credentials,
                                 Deadline deadline, double pauseBeforeEnd) {
  switch (address.kind) {
    case PlaceAddress::Kind::directory:
      return std::make_unique<DirectoryPlace>(address.path, deadline);
    case PlaceAddress::Kind::webDav:
      return std::make_unique<WebDavPlace>(address, credentials, deadline, pauseBeforeEnd);
    case PlaceAddress::Kind::s3:
      return std::make_unique<S3Place>(address, credentials, deadline, pauseBeforeEnd);
    case PlaceAddress::Kind::hub:
      break;
  }
  return std::make_unique<HubPlace>(address, credentials.secret, deadline, pauseBeforeEnd);
}

}  // namespace corvane::pelto
