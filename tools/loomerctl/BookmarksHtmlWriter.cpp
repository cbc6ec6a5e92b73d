#include <algorithm>

#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/HtmlText.h"

namespace corvane::loomerctl {

namespace {

// Deeper folders stand under one another: indentation by depth would make the file grow by its square.
constexpr std::size_t kDeepestHtmlIndentation = 20;

std::string indentation(std::size_t depth) {
  return std::string((std::min(depth, kDeepestHtmlIndentation) + 1) * 4, ' ');
}

// Dates are seconds since 1970 in these files.
std::string dateAttribute(const char* name, std::optional<Date> date) {
  if (!date) return {};
  const auto seconds = static_cast<std::int64_t>(date->seconds + kSecondsFrom1970To2001);
  return std::string(" ") + name + "=\"" + std::to_string(seconds) + '"';
}

std::string dates(std::optional<Date> added, std::optional<Date> modified) {
  return dateAttribute("ADD_DATE", added) + dateAttribute("LAST_MODIFIED", modified);
}

}  // namespace

std::string htmlHead() {
  // The first line, a document type declaration, says what kind of file it is.
  std::string head = "<!DOC";
  head +=
      "TYPE NETSCAPE-Bookmark-file-1>\n"
      "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=UTF-8\">\n"
      "<TITLE>Bookmarks</TITLE>\n"
      "<H1>Bookmarks</H1>\n"
      "<DL><p>\n";
  return head;
}

std::string htmlTail() { return "</DL><p>\n"; }

std::string htmlFolder(const ImportedNode& folder, std::size_t depth, std::optional<Date> added,
                       std::optional<Date> modified) {
  const std::string indent = indentation(depth);
  return indent + "<DT><H3" + dates(added, modified) +
         (folder.toolbar ? " PERSONAL_TOOLBAR_FOLDER=\"true\"" : "") +
         (folder.tabGroup ? " TAB_GROUP=\"true\"" : "") + '>' + htmlEscapedTitle(folder.title) + "</H3>\n" +
         indent + "<DL><p>\n";
}

std::string htmlFolderEnd(std::size_t depth) { return indentation(depth) + "</DL><p>\n"; }

std::string htmlBookmark(const ImportedNode& bookmark, std::size_t depth, std::optional<Date> added,
                         std::optional<Date> modified) {
  return indentation(depth) + "<DT><A HREF=\"" + htmlEscapedAttribute(bookmark.url) + '"' +
         dates(added, modified) + '>' + htmlEscapedTitle(bookmark.title) + "</A>\n";
}

}  // namespace corvane::loomerctl
