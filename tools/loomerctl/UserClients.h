#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

// The clients that stand for a bookmarks file of the user's.

namespace corvane::loomerctl {

/// The clients by these names, each once. Raises Refused for a name that stands for no bookmarks file.
std::vector<String> namedClients(const std::vector<std::string>& names);

/// The registered ones, and the browser's own, which is registered by its first session.
std::vector<String> registeredClients();

/// The path of the client's file.
std::string bookmarksFileOf(const String& client);

}  // namespace corvane::loomerctl
