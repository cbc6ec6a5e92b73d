#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"

// The bookmarks file that browsers exchange: HTML in which a definition list is a folder's contents, <DT><H3>
// begins a folder and <DT><A HREF> is a bookmark. No standard says what it looks like; browsers write it each
// in their own way and read what the others write.

namespace corvane::loomerctl {

/// One folder or bookmark of a file.
struct HtmlNode {
  static constexpr std::uint32_t kRoot = 0xFFFFFFFF;

  bool folder = false;
  std::string title;
  std::string url;               ///< bookmarks only
  std::uint32_t parent = kRoot;  ///< a folder that stands before it in the list
  bool toolbar = false;          ///< marked as the folder that the browser's toolbar shows
  bool tabGroup = false;         ///< marked as a folder that opens as a group of tabs
};

/// How much a file says of its bookmarks and folders that HtmlNode does not hold.
struct HtmlLeftOut {
  std::size_t tags = 0;
  std::size_t keywords = 0;
  std::size_t descriptions = 0;
  std::size_t separators = 0;
};

struct HtmlBookmarks {
  std::vector<HtmlNode> nodes;  ///< in the file's order, parents before their contents
  HtmlLeftOut leftOut;
};

/// What a bookmarks file holds. Takes any text: what is not understood is passed over, and lists left open
/// end with the file. Bytes that are no UTF-8, and zeros, become U+FFFD. O(n) in time and memory, without
/// recursion.
HtmlBookmarks parseBookmarksHtml(std::string_view html);

/// The beginning of a bookmarks file, up to and with the opening of the root's list.
std::string htmlHead();
/// Its end.
std::string htmlTail();
/// A folder up to and with the opening of its list; `depth` 0 stands directly in the root. Dates are left out
/// where they are not known.
std::string htmlFolder(const HtmlNode& folder, std::size_t depth, std::optional<Date> added,
                       std::optional<Date> modified);
std::string htmlFolderEnd(std::size_t depth);
std::string htmlBookmark(const HtmlNode& bookmark, std::size_t depth, std::optional<Date> added,
                         std::optional<Date> modified);

}  // namespace corvane::loomerctl
