#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/edit/ImportPlan.h"

// The bookmarks file that browsers exchange: HTML in which a definition list is a folder's contents, <DT><H3>
// begins a folder and <DT><A HREF> is a bookmark. No standard says what it looks like; each browser writes it
// in its own way and reads what the others write.

namespace corvane::loomerctl {

/// One folder or bookmark of a file, in the form that an import takes.
using HtmlNode = loomer::ImportedNode;

/// How much a file says about its bookmarks and folders that HtmlNode does not hold.
struct HtmlLeftOut {
  std::size_t tags = 0;
  std::size_t keywords = 0;
  std::size_t descriptions = 0;
  std::size_t separators = 0;
};

/// What a file holds.
struct HtmlBookmarks {
  std::vector<HtmlNode> nodes;  ///< in the file's order, parents before their contents
  HtmlLeftOut leftOut;
};

/// What a bookmarks file holds. Takes any text: what is not understood is passed over, and lists left open
/// end with the file. Bytes that are not UTF-8, and zeros, become U+FFFD. O(n) in time and memory, without
/// recursion.
HtmlBookmarks parseBookmarksHtml(std::string_view html);

/// The beginning of a bookmarks file, including the start of the root's list.
std::string htmlHead();
/// The end of a bookmarks file.
std::string htmlTail();
/// A folder, including the start of its list; at `depth` 0 it is directly in the root. Unknown dates are left
/// out.
std::string htmlFolder(const HtmlNode& folder, std::size_t depth, std::optional<Date> added,
                       std::optional<Date> modified);
/// The end of a folder's list.
std::string htmlFolderEnd(std::size_t depth);
/// A bookmark; `depth` and the dates as for a folder.
std::string htmlBookmark(const HtmlNode& bookmark, std::size_t depth, std::optional<Date> added,
                         std::optional<Date> modified);

}  // namespace corvane::loomerctl
