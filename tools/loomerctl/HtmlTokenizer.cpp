#include "tools/loomerctl/HtmlTokenizer.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "tools/loomerctl/HtmlText.h"

namespace corvane::loomerctl {

std::string asciiLowered(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), asciiLowerCase);
  return result;
}

const std::string_view* Tag::attribute(std::string_view wanted) const {
  for (const auto& [key, value] : attributes) {
    if (key == wanted) return &value;
  }
  return nullptr;
}

bool Tag::flag(std::string_view wanted) const {
  const std::string_view* value = attribute(wanted);
  return value && asciiLowered(htmlAttribute(*value)) != "false";
}

bool HtmlTokenizer::next(Tag& tag, std::string_view& text) {
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

bool HtmlTokenizer::startsMarkup(std::size_t at) const {
  if (at >= _html.size()) return false;
  if (_html[at] == '/') return at + 1 < _html.size() && isAsciiLetter(_html[at + 1]);
  return isAsciiLetter(_html[at]) || _html[at] == '!' || _html[at] == '?';
}

void HtmlTokenizer::moveBehind(std::string_view end) {
  const std::size_t found = _html.find(end, _at);
  _at = found == std::string_view::npos ? _html.size() : found + end.size();
}

void HtmlTokenizer::skipDeclaration() { moveBehind(_html.substr(_at, 3) == "!--" ? "-->" : ">"); }

// The contents of scripts and style sheets are not markup.
void HtmlTokenizer::skipRaw(const std::string& name) {
  const std::string end = "</" + name;
  const auto found = std::search(_html.begin() + static_cast<std::ptrdiff_t>(_at), _html.end(), end.begin(),
                                 end.end(), [](char a, char b) { return asciiLowerCase(a) == b; });
  _at = static_cast<std::size_t>(found - _html.begin());
}

// False for a tag that the end of the file cuts off.
bool HtmlTokenizer::readTag(Tag& tag) {
  tag.attributes.clear();
  tag.closing = _html[_at] == '/';
  if (tag.closing) ++_at;
  tag.name = asciiLowered(takeWhile([](char c) { return !isHtmlSpace(c) && c != '>' && c != '/'; }));
  while (true) {
    takeWhile([](char c) { return isHtmlSpace(c) || c == '/'; });
    if (_at == _html.size()) return false;
    if (_html[_at] == '>') {
      ++_at;
      return true;
    }
    readAttribute(tag);
  }
}

void HtmlTokenizer::readAttribute(Tag& tag) {
  const std::size_t begin = _at++;  // whatever stands here belongs to the name
  takeWhile([](char c) { return !isHtmlSpace(c) && c != '=' && c != '>' && c != '/'; });
  std::string name = asciiLowered(_html.substr(begin, _at - begin));
  takeWhile(isHtmlSpace);
  std::string_view value;
  if (_at < _html.size() && _html[_at] == '=') {
    ++_at;
    takeWhile(isHtmlSpace);
    value = readValue();
  }
  tag.attributes.emplace_back(std::move(name), value);
}

std::string_view HtmlTokenizer::readValue() {
  const char quote = _at < _html.size() ? _html[_at] : ' ';
  if (quote != '"' && quote != '\'') return takeWhile([](char c) { return !isHtmlSpace(c) && c != '>'; });
  ++_at;
  bool& noneLeft = _noneLeft[quote == '"'];
  const std::size_t end = noneLeft ? std::string_view::npos : _html.find(quote, _at);
  if (end == std::string_view::npos) {
    noneLeft = true;  // not searched again, which would take quadratic time
    return takeWhile([](char c) { return c != '>'; });
  }
  const std::string_view value = _html.substr(_at, end - _at);
  _at = end + 1;
  return value;
}

}  // namespace corvane::loomerctl
