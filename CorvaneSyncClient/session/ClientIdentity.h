#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// The client that syncs the browser's own bookmarks; the browser's bundle identifier as well.
inline constexpr std::string_view kMainClientId = "com.keldra.Corvane";

/// The path of the client description among the tool's own resources; nothing when it is not there.
std::optional<std::string> ownClientDescription();

}  // namespace corvane
