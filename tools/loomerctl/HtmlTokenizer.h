#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::loomerctl {

/// The text with the letters of ASCII in lower case.
std::string asciiLowered(std::string_view text);

/// One tag of HTML.
struct Tag {
  std::string name;  ///< in lower case
  bool closing = false;
  std::vector<std::pair<std::string, std::string_view>> attributes;  ///< names in lower case, values raw

  /// The first of that name; null for none.
  const std::string_view* attribute(std::string_view wanted) const;
  /// Whether the attribute is there, with another value than "false".
  bool flag(std::string_view wanted) const;
};

/// Splits HTML, in any character set that has ASCII's characters in ASCII's places, into tags and the text
/// between them. Skips comments, declarations, scripts and style sheets. O(n).
class HtmlTokenizer {
 public:
  /// The text must outlive this object and the tags.
  explicit HtmlTokenizer(std::string_view html) : _html(html) {}

  /// The next piece: a tag (true, in `tag`) or text (false, in `text`). Empty text is the end.
  bool next(Tag& tag, std::string_view& text);

 private:
  bool startsMarkup(std::size_t at) const;
  void moveBehind(std::string_view end);
  void skipDeclaration();
  void skipRaw(const std::string& name);
  bool readTag(Tag& tag);
  void readAttribute(Tag& tag);
  std::string_view readValue();

  template <typename Predicate>
  std::string_view takeWhile(Predicate holds) {
    const std::size_t begin = _at;
    while (_at < _html.size() && holds(_html[_at])) ++_at;
    return _html.substr(begin, _at - begin);
  }

  std::string_view _html;
  std::size_t _at = 0;
  bool _noneLeft[2] = {false, false};  ///< closing quotes, single and double
};

}  // namespace corvane::loomerctl
