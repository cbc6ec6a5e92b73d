#pragma once

#include <string>

#include "tools/loomerctl/browsers/BrowserBookmarks.h"
#include "tools/loomerctl/browsers/JsonText.h"

// The JSON text in which Firefox backs its bookmarks up, by itself (compressed, see MozLz4.h) and for its
// user.

namespace corvane::loomerctl {

/// Whether the text is such a backup, sound or not.
bool isFirefoxBackup(const JsonValue& document);

/// What such a backup holds. The toolbar and the menu become the special folders; what lies in no folder and
/// what came from a phone become kOtherBookmarks and kMobileBookmarks; each only if it holds anything.
///
/// Raises Refused, with `name`, the place and the cause, for a text that Firefox does not write like that.
BrowserBookmarks readFirefoxBackup(const JsonValue& document, const std::string& name);

}  // namespace corvane::loomerctl
