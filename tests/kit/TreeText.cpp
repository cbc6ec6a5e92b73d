#include "tests/kit/TreeText.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace corvane::kit {
namespace {

constexpr std::string_view kSpecialCharacters = " ()=@*!\"\\";

class Parser {
 public:
  explicit Parser(const std::string& text) : _text(text) {}

  std::vector<TreeNode> run() {
    std::vector<TreeNode> nodes = siblings();
    if (_at != _text.size()) fail();
    return nodes;
  }

 private:
  bool takes(char wanted) {
    if (_at == _text.size() || _text[_at] != wanted) return false;
    ++_at;
    return true;
  }

  std::vector<TreeNode> siblings() {
    std::vector<TreeNode> nodes;
    while (_at < _text.size() && _text[_at] != ')') {
      if (takes(' ')) continue;
      nodes.push_back(node());
      if (_at < _text.size() && _text[_at] != ' ' && _text[_at] != ')') fail();
    }
    return nodes;
  }

  TreeNode node() {
    const String label = word();
    if (!label) fail();
    TreeNode node{.label = label.toString(), .title = label, .url = String("http://" + label.toString())};
    if (takes('=')) node.title = word();
    const bool hasAddress = takes('@');
    if (hasAddress) node.url = word();
    node.tabGroup = takes('*');
    node.special = takes('!');
    node.folder = takes('(');
    if (!node.folder) return node;
    if (hasAddress) fail();
    node.url = String();
    node.children = siblings();
    if (!takes(')')) fail();
    return node;
  }

  // Absent when there is none.
  String word() {
    if (takes('"')) return quoted();
    const std::size_t end = std::min(_text.find_first_of(kSpecialCharacters, _at), _text.size());
    const std::string result = _text.substr(_at, end - _at);
    _at = end;
    return result.empty() ? String() : String(result);
  }

  String quoted() {
    std::string result;
    while (!takes('"')) {
      takes('\\');
      if (_at == _text.size()) fail();
      result += _text[_at++];
    }
    return result;
  }

  [[noreturn]] void fail() const {
    throw std::invalid_argument("no tree at character " + std::to_string(_at) + ": " + _text);
  }

  const std::string& _text;
  std::size_t _at = 0;
};

std::string printWord(std::string_view word) {
  if (!word.empty() && word.find_first_of(kSpecialCharacters) == std::string_view::npos) {
    return std::string(word);
  }
  std::string text = "\"";
  for (const char each : word) {
    if (each == '"' || each == '\\') text += '\\';
    text += each;
  }
  return text + '"';
}

std::string printWord(const String& word) { return word ? printWord(word.view()) : std::string(); }

std::string printNode(const TreeNode& node) {
  std::string text = printWord(std::string_view(node.label));
  if (!(node.title == node.label)) text += "=" + printWord(node.title);
  if (!node.folder && !(node.url == "http://" + node.label)) text += "@" + printWord(node.url);
  if (node.tabGroup) text += '*';
  if (node.special) text += '!';
  return node.folder ? text + "(" + printTree(node.children) + ")" : text;
}

}  // namespace

std::vector<TreeNode> parseTree(const std::string& text) { return Parser(text).run(); }

std::string printTree(const std::vector<TreeNode>& nodes) {
  std::string text;
  for (const TreeNode& node : nodes) {
    if (!text.empty()) text += ' ';
    text += printNode(node);
  }
  return text;
}

}  // namespace corvane::kit
