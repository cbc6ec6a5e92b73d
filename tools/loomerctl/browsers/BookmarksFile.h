#pragma once

#include <string>

#include "tools/loomerctl/browsers/BrowserBookmarks.h"

namespace corvane::loomerctl {

/// What the file at the path, or standard input for "-", holds, in any of the forms in which browsers write
/// their bookmarks. The form is told by what is in the file. Raises Refused, with the name, the place as far
/// as there is one, and the cause, for anything else, and where there are no bookmarks in it.
BrowserBookmarks readBookmarksFile(const std::string& path);

}  // namespace corvane::loomerctl
