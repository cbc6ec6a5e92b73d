#include <algorithm>
#include <utility>

#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/HtmlText.h"
#include "tools/loomerctl/HtmlTokenizer.h"

namespace corvane::loomerctl {

namespace {

// How many tags an attribute lists, separated by commas.
std::size_t countOfTags(std::string_view list) {
  std::size_t count = 0;
  while (!list.empty()) {
    const std::string_view tag = list.substr(0, list.find(','));
    if (!whiteSpaceCollapsed(tag).empty()) ++count;
    list.remove_prefix(std::min(tag.size() + 1, list.size()));
  }
  return count;
}

class Reader {
 public:
  HtmlBookmarks read(std::string_view html) {
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
        describe(text);
      }
    }
    endTitle();
    return {std::move(_nodes), _leftOut};
  }

 private:
  static constexpr std::uint32_t kNone = HtmlNode::kRoot;

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
      _inDescription = true;
      _described = false;
    } else if (tag.name == "h3") {
      startFolder(tag);
    } else if (tag.name == "a" && !_inDescription) {
      startBookmark(tag);
    } else if (tag.name == "hr") {
      endTitle();
      ++_leftOut.separators;
    }
  }

  void end(const std::string& name) {
    const bool endsList = name == "dl";
    const bool endsFolder = name == "h3" && _titled && _nodes.back().folder;
    const bool endsBookmark = name == "a" && _titled && !_nodes.back().folder;
    if (endsList || endsFolder || endsBookmark || name == "body" || name == "html") endTitle();
    if (!endsList) return;
    if (_open.size() > 1) _open.pop_back();
    enterItem();
  }

  void enterItem() {
    _heading = kNone;
    _inDescription = false;
  }

  HtmlNode& startNode(bool folder) {
    endTitle();
    HtmlNode& node = _nodes.emplace_back();
    node.folder = folder;
    node.parent = _open.back();
    _titled = true;
    return node;
  }

  void startFolder(const Tag& tag) {
    HtmlNode& folder = startNode(true);
    folder.toolbar = tag.flag("personal_toolbar_folder");
    folder.tabGroup = tag.flag("tab_group");
    enterItem();
    _heading = static_cast<std::uint32_t>(_nodes.size() - 1);
  }

  void startBookmark(const Tag& tag) {
    const std::string_view* address = tag.attribute("href");
    if (!address) return endTitle();  // an anchor inside the page
    startNode(false).url = htmlAttribute(*address);
    if (const std::string_view* tags = tag.attribute("tags")) _leftOut.tags += countOfTags(*tags);
    if (const std::string_view* keyword = tag.attribute("shortcuturl")) {
      _leftOut.keywords += htmlAttribute(*keyword).empty() ? 0 : 1;
    }
    _heading = kNone;  // a list after this is not the contents of the folder before it
  }

  void describe(std::string_view text) {
    if (_described || whiteSpaceCollapsed(text).empty()) return;
    _described = true;
    ++_leftOut.descriptions;
  }

  void endTitle() {
    if (_titled) _nodes.back().title = htmlTitle(_title);
    _titled = false;
    _title.clear();
  }

  std::vector<HtmlNode> _nodes;
  std::vector<std::uint32_t> _open{HtmlNode::kRoot};  // the folders of the lists that are open
  std::uint32_t _heading = kNone;                     // the folder whose list has not begun
  bool _titled = false;                               // the last node's title is being read
  bool _inDescription = false;
  bool _described = false;  // the description has said something
  HtmlLeftOut _leftOut;
  std::string _title;  // as it stands in the file
};

}  // namespace

HtmlBookmarks parseBookmarksHtml(std::string_view html) { return Reader().read(html); }

}  // namespace corvane::loomerctl
