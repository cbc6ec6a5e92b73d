#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto {

/// What a corvane-hub lists: for each object a line "BYTES SECONDS-SINCE-1970 NAME", and at last "end".
/// Names are as they come. Absent where it is cut or of another form.
std::optional<std::vector<PlaceObject>> readHubListing(std::string_view bytes);

}  // namespace corvane::pelto
