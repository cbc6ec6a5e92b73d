#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::loomer {

/// Reads a client description: a property list with the client's name for people under "DisplayName", the
/// bookmarks data class under "DataClass", the names of the schema's entities that the client syncs under
/// "Entities", and the paths of its tool under "ToolPath" and, if it has one, of its image under "ImagePath",
/// both from where the description lies. Nothing, with `problem` saying why, when it cannot be used.
///
/// Whether tool and image are there is not looked at: a session needs neither, and bookmarks are not to stay
/// out of step for want of a picture. Whoever starts the one or shows the other meets what is missing.
std::optional<Dictionary> readClientDescription(const std::string& path, Message& problem);

}  // namespace corvane::loomer
