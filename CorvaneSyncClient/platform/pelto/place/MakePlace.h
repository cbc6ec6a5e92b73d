#pragma once

#include <memory>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceCredentials.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

/// The place at an address, for one exchange that ends by the deadline. Nothing is sent yet. The last
/// byte of what goes over a network is kept back for `pauseBeforeEnd` seconds.
std::unique_ptr<Place> makePlace(const PlaceAddress& address, const PlaceCredentials& credentials,
                                 Deadline deadline, double pauseBeforeEnd = 0);

}  // namespace corvane::pelto
