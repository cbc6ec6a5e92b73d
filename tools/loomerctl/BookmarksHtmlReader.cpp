#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/HtmlText.h"
#include "tools/loomerctl/HtmlTokenizer.h"

namespace corvane::loomerctl {

namespace {

class Reader {
 public:
  BrowserBookmarks read(std::string_view html) {
    HtmlTokenizer tokens(html);
    Tag tag;
    std::string_view text;
    while (true) {
      if (tokens.next(tag, text)) {
        tag.closing ? end(tag.name) : start(tag);
      } else if (text.empty()) {
        break;
      } else if (_titled) {
        _title += text;
      } else if (_inDescription) {
        _description += text;
      }
    }
    endTitle();
    endDescription();
    return std::move(_bookmarks);
  }

 private:
  static constexpr std::uint32_t kNone = ImportedNode::kRoot;

  void start(const Tag& tag) {
    if (tag.name == "dl") {
      endTitle();
      _open.push_back(_heading != kNone ? _heading : _open.back());
      enterItem();
    } else if (tag.name == "dt") {
      endTitle();
      enterItem();
    } else if (tag.name == "dd") {
      endTitle();
      endDescription();
      _inDescription = true;
    } else if (tag.name == "h3") {
      startFolder(tag);
    } else if (tag.name == "a" && !_inDescription) {
      startBookmark(tag);
    } else if (tag.name == "hr") {
      endTitle();
      _bookmarks.leftOut.add(Extra::separator, _open.back());
    }
  }

  void end(const std::string& name) {
    const bool endsList = name == "dl";
    const bool endsFolder = name == "h3" && _titled && _bookmarks.nodes.back().folder;
    const bool endsBookmark = name == "a" && _titled && !_bookmarks.nodes.back().folder;
    if (endsList || endsFolder || endsBookmark || name == "body" || name == "html") endTitle();
    if (!endsList) return;
    if (_open.size() > 1) _open.pop_back();
    enterItem();
  }

  void enterItem() {
    _heading = kNone;
    endDescription();
    _inDescription = false;
  }

  // The last node; the root where there is none.
  std::uint32_t last() const {
    return _bookmarks.nodes.empty() ? ImportedNode::kRoot
                                    : static_cast<std::uint32_t>(_bookmarks.nodes.size() - 1);
  }

  ImportedNode& startNode(bool folder) {
    endTitle();
    ImportedNode& node = _bookmarks.nodes.emplace_back();
    node.folder = folder;
    node.parent = _open.back();
    _titled = true;
    return node;
  }

  void startFolder(const Tag& tag) {
    ImportedNode& folder = startNode(true);
    folder.toolbar = tag.flag("personal_toolbar_folder");
    folder.tabGroup = tag.flag("tab_group");
    _isOther = tag.flag("unfiled_bookmarks_folder");
    enterItem();
    _heading = last();
    leaveOutRest(tag);
  }

  void startBookmark(const Tag& tag) {
    const std::string_view* address = tag.attribute("href");
    if (!address) return endTitle();  // an anchor inside the page
    startNode(false).url = htmlAttribute(*address);
    if (const std::string_view* tags = tag.attribute("tags")) {
      addTags(_bookmarks.leftOut, last(), htmlAttribute(*tags));
    }
    leaveOut(tag, "shortcuturl", Extra::keyword);
    leaveOutRest(tag);
    _heading = kNone;  // a list after this is not the contents of the folder before it
  }

  // Keeps what an attribute says of the last node.
  void leaveOut(const Tag& tag, const char* name, Extra kind) {
    const std::string_view* const raw = tag.attribute(name);
    std::string value = raw ? htmlAttribute(*raw) : std::string();
    if (!value.empty()) _bookmarks.leftOut.add(kind, last(), std::move(value));
  }

  void leaveOutRest(const Tag& tag) {
    const auto says = [&tag](const char* name) {
      const std::string_view* const value = tag.attribute(name);
      return value && !value->empty() && *value != "0";
    };
    if (says("add_date") || says("last_modified")) _bookmarks.leftOut.count(Extra::date);
    if (says("icon") || says("icon_uri")) _bookmarks.leftOut.count(Extra::icon);
    for (const char* const name : {"feedurl", "post_data", "last_charset"}) leaveOut(tag, name, Extra::value);
  }

  // What has been read of a description is one of the last node.
  void endDescription() {
    std::string text = whiteSpaceCollapsed(htmlTitle(_description));
    _description.clear();
    if (!text.empty()) _bookmarks.leftOut.add(Extra::description, last(), std::move(text));
  }

  void endTitle() {
    if (_titled) _bookmarks.nodes.back().title = _isOther ? kOtherBookmarks : htmlTitle(_title);
    _titled = _isOther = false;
    _title.clear();
  }

  BrowserBookmarks _bookmarks;
  std::vector<std::uint32_t> _open{ImportedNode::kRoot};  // the folders of the lists that are open
  std::uint32_t _heading = kNone;                         // the folder whose list has not begun
  bool _titled = false;                                   // the last node's title is being read
  bool _isOther = false;                                  // that is the folder for what lies in no other one
  bool _inDescription = false;
  std::string _description;  // as it stands in the file, without tags
  std::string _title;        // as it stands in the file
};

}  // namespace

BrowserBookmarks parseBookmarksHtml(std::string_view html) { return Reader().read(html); }

}  // namespace corvane::loomerctl
