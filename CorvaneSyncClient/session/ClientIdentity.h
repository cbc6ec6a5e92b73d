#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

/// The client that syncs the browser's own bookmarks; the browser's bundle identifier as well.
inline constexpr std::string_view kMainClientId = "com.keldra.Corvane";

/// The directory of the user's bookmarks files.
std::string bookmarksDirectory();
/// The name of the client's file there; nothing for an id that is not the main client's, nor that followed by
/// a dot and a name.
std::optional<std::string> fileNameForClientId(const String& clientId);

/// Under this key the engine keeps, for the client, the date of its file when that was last in step: when it
/// was saved, or first read.
inline constexpr const char* kModDateOnLastSync = "modDateOnLastSync";

/// The path of the client description among the tool's own resources; nothing when it is not there.
std::optional<std::string> ownClientDescription();

}  // namespace corvane
