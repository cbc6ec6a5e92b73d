#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Text.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/HtmlText.h"

namespace corvane::loomerctl {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

std::string lowered(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower);
  return result;
}

struct Tag {
  std::string name;  ///< in lower case
  bool closing = false;
  std::vector<std::pair<std::string, std::string_view>> attributes;  ///< names in lower case, values raw

  const std::string_view* attribute(std::string_view wanted) const {
    for (const auto& [key, value] : attributes) {
      if (key == wanted) return &value;
    }
    return nullptr;
  }
  /// Set, and not to "false".
  bool flag(std::string_view wanted) const {
    const std::string_view* value = attribute(wanted);
    return value && lowered(htmlAttribute(*value)) != "false";
  }
};

/// Splits HTML into tags and the text between them.
class Tokenizer {
 public:
  explicit Tokenizer(std::string_view html) : _html(html) {}

  /// The next piece: a tag (true, in `tag`) or text (false, in `text`); nothing more when `text` is empty.
  bool next(Tag& tag, std::string_view& text) {
    while (true) {
      const std::size_t begin = _at;
      while (_at < _html.size() && !(_html[_at] == '<' && startsMarkup(_at + 1))) ++_at;
      text = _html.substr(begin, _at - begin);
      if (!text.empty() || _at == _html.size()) return false;
      ++_at;
      if (_html[_at] == '!' || _html[_at] == '?') {
        skipDeclaration();
        continue;
      }
      if (!readTag(tag)) continue;
      if (!tag.closing && (tag.name == "script" || tag.name == "style")) skipRaw(tag.name);
      return true;
    }
  }

 private:
  bool startsMarkup(std::size_t at) const {
    if (at >= _html.size()) return false;
    if (_html[at] == '/') return at + 1 < _html.size() && isLetter(_html[at + 1]);
    return isLetter(_html[at]) || _html[at] == '!' || _html[at] == '?';
  }

  void moveBehind(std::string_view end) {
    const std::size_t found = _html.find(end, _at);
    _at = found == std::string_view::npos ? _html.size() : found + end.size();
  }

  void skipDeclaration() { moveBehind(_html.substr(_at, 3) == "!--" ? "-->" : ">"); }

  /// What scripts and style sheets say is no markup.
  void skipRaw(const std::string& name) {
    const std::string end = "</" + name;
    const auto found = std::search(_html.begin() + static_cast<std::ptrdiff_t>(_at), _html.end(), end.begin(),
                                   end.end(), [](char a, char b) { return lower(a) == b; });
    _at = static_cast<std::size_t>(found - _html.begin());
  }

  /// False for a tag that the end of the file cuts off.
  bool readTag(Tag& tag) {
    tag.attributes.clear();
    tag.closing = _html[_at] == '/';
    if (tag.closing) ++_at;
    tag.name = lowered(takeWhile([](char c) { return !isSpace(c) && c != '>' && c != '/'; }));
    while (true) {
      takeWhile([](char c) { return isSpace(c) || c == '/'; });
      if (_at == _html.size()) return false;
      if (_html[_at] == '>') {
        ++_at;
        return true;
      }
      readAttribute(tag);
    }
  }

  void readAttribute(Tag& tag) {
    const std::size_t begin = _at++;  // whatever stands here belongs to the name
    takeWhile([](char c) { return !isSpace(c) && c != '=' && c != '>' && c != '/'; });
    std::string name = lowered(_html.substr(begin, _at - begin));
    takeWhile(isSpace);
    std::string_view value;
    if (_at < _html.size() && _html[_at] == '=') {
      ++_at;
      takeWhile(isSpace);
      value = readValue();
    }
    tag.attributes.emplace_back(std::move(name), value);
  }

  std::string_view readValue() {
    const char quote = _at < _html.size() ? _html[_at] : ' ';
    if (quote != '"' && quote != '\'') return takeWhile([](char c) { return !isSpace(c) && c != '>'; });
    ++_at;
    bool& noneLeft = _noneLeft[quote == '"'];
    const std::size_t end = noneLeft ? std::string_view::npos : _html.find(quote, _at);
    if (end == std::string_view::npos) {
      noneLeft = true;  // not looked for again, which would take a time by the square of the length
      return takeWhile([](char c) { return c != '>'; });
    }
    const std::string_view value = _html.substr(_at, end - _at);
    _at = end + 1;
    return value;
  }

  template <typename Predicate>
  std::string_view takeWhile(Predicate holds) {
    const std::size_t begin = _at;
    while (_at < _html.size() && holds(_html[_at])) ++_at;
    return _html.substr(begin, _at - begin);
  }

  std::string_view _html;
  std::size_t _at = 0;
  bool _noneLeft[2] = {false, false};  // closing quotes, single and double
};

class Reader {
 public:
  std::vector<HtmlNode> read(std::string_view html) {
    Tokenizer tokens(html);
    Tag tag;
    std::string_view text;
    while (true) {
      if (tokens.next(tag, text)) {
        tag.closing ? end(tag.name) : start(tag);
      } else if (text.empty()) {
        break;
      } else if (_titled) {
        _title += text;
      }
    }
    endTitle();
    return std::move(_nodes);
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
    } else if (tag.name == "h3") {
      startFolder(tag);
    } else if (tag.name == "a" && !_inDescription) {
      startBookmark(tag);
    } else if (tag.name == "hr") {
      endTitle();
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
    if (!address) return endTitle();  // a mark inside the page
    startNode(false).url = htmlAttribute(*address);
    _heading = kNone;  // a list from here on is not the contents of the folder before this
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
  std::string _title;  // as it stands in the file
};

/// Whether a <META> among the first bytes declares an encoding that is read as windows-1252.
bool declaresLatin1(std::string_view html) {
  constexpr std::size_t kLooked = 4096;
  const std::string head = lowered(html.substr(0, kLooked));
  const std::size_t charset = head.find("charset=");
  if (head.find("<meta") == std::string::npos || charset == std::string::npos) return false;
  std::string_view name = std::string_view(head).substr(charset + 8);
  if (!name.empty() && (name[0] == '"' || name[0] == '\'')) name.remove_prefix(1);
  return name.starts_with("iso-8859-1\"") || name.starts_with("iso-8859-1 ") ||
         name.starts_with("iso-8859-1'") || name.starts_with("iso-8859-1>") ||
         name.starts_with("windows-1252") || name.starts_with("latin1");
}

}  // namespace

std::vector<HtmlNode> parseBookmarksHtml(std::string_view bytes) {
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  const bool marked = bytes.starts_with(kUtf8Mark);
  if (marked) bytes.remove_prefix(kUtf8Mark.size());
  if (!marked && (declaresLatin1(bytes) || !isValidUtf8(bytes))) return Reader().read(utf8FromLatin1(bytes));
  return Reader().read(bytes);
}

}  // namespace corvane::loomerctl
