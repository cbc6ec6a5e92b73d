#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "tools/loomerctl/browsers/BrowserBookmarks.h"

// The bookmarks file that browsers exchange: HTML in which a definition list is a folder's contents, <DT><H3>
// begins a folder and <DT><A HREF> is a bookmark. No standard says what it looks like; each browser writes it
// in its own way and reads what the others write.

namespace corvane::loomerctl {

/// What a bookmarks file holds. Takes any text: what is not understood is passed over, and lists left open
/// end with the file. Bytes that are not UTF-8, and zeros, become U+FFFD. O(n) in time and memory, without
/// recursion.
BrowserBookmarks parseBookmarksHtml(std::string_view html);

/// The beginning of a bookmarks file, including the start of the root's list.
std::string htmlHead();
/// The end of a bookmarks file.
std::string htmlTail();
/// A folder, including the start of its list; at `depth` 0 it is directly in the root. Unknown dates are left
/// out.
std::string htmlFolder(const ImportedNode& folder, std::size_t depth, std::optional<Date> added,
                       std::optional<Date> modified);
/// The end of a folder's list.
std::string htmlFolderEnd(std::size_t depth);
/// A bookmark; `depth` and the dates as for a folder.
std::string htmlBookmark(const ImportedNode& bookmark, std::size_t depth, std::optional<Date> added,
                         std::optional<Date> modified);

}  // namespace corvane::loomerctl
