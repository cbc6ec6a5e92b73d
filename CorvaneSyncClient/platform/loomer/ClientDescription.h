#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/Value.h"

namespace corvane::loomer {

/// Reads a client description: a property list with the strings "DisplayName", "DataClass" (the bookmarks
/// data class) and "ToolPath", and in "Entities" the names of the schema's entities that the client syncs.
/// Nothing, with `problem` saying why, when it cannot be used.
std::optional<Dictionary> readClientDescription(const std::string& path, std::string& problem);

}  // namespace corvane::loomer
