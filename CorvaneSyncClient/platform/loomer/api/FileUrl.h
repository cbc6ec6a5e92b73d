#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::loomer {

/// The file URL of an absolute path (RFC 8089): every byte that is neither a slash nor an unreserved
/// character of RFC 3986 is escaped.
Url fileUrl(std::string_view path);

/// The path that a file URL names (RFC 8089), its escapes resolved; nothing for any other URL.
std::optional<std::string> pathOfFileUrl(const Url& url);

}  // namespace corvane::loomer
