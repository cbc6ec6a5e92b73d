#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/Value.h"

namespace corvane::loomer {

/// The path that a file URL names (RFC 8089), its escapes resolved; nothing for any other URL.
std::optional<std::string> pathOfFileUrl(const Url& url);

}  // namespace corvane::loomer
