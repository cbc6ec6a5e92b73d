#pragma once

#include <cstddef>
#include <memory>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceCredentials.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

/// The place at an address, for one exchange that ends by the deadline. Nothing is sent yet. What
/// goes over a network goes no faster than `sendSpeed`, in bytes a second, unless that is 0.
std::unique_ptr<Place> makePlace(const PlaceAddress& address, const PlaceCredentials& credentials,
                                 Deadline deadline, std::size_t sendSpeed = 0);

}  // namespace corvane::pelto
