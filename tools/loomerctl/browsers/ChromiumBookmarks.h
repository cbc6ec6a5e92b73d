#pragma once

#include <string>

#include "tools/loomerctl/browsers/BrowserBookmarks.h"
#include "tools/loomerctl/browsers/JsonText.h"

// The file `Bookmarks` in a profile of Chromium and of the browsers made from it.

namespace corvane::loomerctl {

/// Whether the text is such a file, sound or not.
bool isChromiumBookmarks(const JsonValue& document);

/// What such a file holds. The bookmarks bar becomes the special folder, "other" and "synced" become
/// kOtherBookmarks and kMobileBookmarks; each only if it holds anything. Other roots, such as a wastebasket,
/// are left out. The checksum is not looked at: whoever changed the file in an editor meant to.
///
/// Raises Refused, with `name`, the place and the cause, for a file that no browser writes like that.
BrowserBookmarks readChromiumBookmarks(const JsonValue& document, const std::string& name);

}  // namespace corvane::loomerctl
