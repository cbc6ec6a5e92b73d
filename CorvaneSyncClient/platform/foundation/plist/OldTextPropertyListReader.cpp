// The old plain-text flavour:
//
//   value      = dictionary | array | data | string
//   dictionary = "{" { string "=" value ";" } "}"
//   array      = "(" [ value { "," value } [ "," ] ] ")"
//   data       = "<" hexadecimal digits ">"
//   string     = quoted with " or ', or an unquoted word
//
// with C's comments and white space between all of them. A file of strings is a dictionary without its
// braces.

#include <algorithm>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyListReaders.h"
#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

bool isWord(char c) {
  return isAsciiLetter(c) || isAsciiDigit(c) || std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

// Gathers the text of a quoted string; two escaped surrogates in a row become one code point.
class TextBuilder {
 public:
  void append(char32_t codePoint) {
    if (isLowSurrogate(codePoint) && isHighSurrogate(_pendingHigh)) {
      codePoint = joinSurrogates(_pendingHigh, codePoint);
      _text.resize(_text.size() - utf8Length(_pendingHigh));
    }
    appendUtf8(_text, codePoint);
    _pendingHigh = isHighSurrogate(codePoint) ? codePoint : 0;
  }

  String finish() const { return String(_text); }

 private:
  std::string _text;
  char32_t _pendingHigh = 0;  // a high surrogate that stands last in the text
};

class OldTextReader {
 public:
  explicit OldTextReader(std::string_view text) : _text(text) {}

  Value read() {
    if (_text.starts_with("\xEF\xBB\xBF")) _at = 3;
    skipSpace();
    if (atEnd()) fail(Message("no value"));
    const std::size_t start = _at;
    Value value = readWhole();
    if (value.as<String>() && next() == '=') {
      _at = start;
      return readStringTable();
    }
    if (!atEnd()) fail(Message("text after the value"));
    return value;
  }

 private:
  struct OpenContainer {
    bool isDictionary = false;
    String key;
    Dictionary dictionary;
    std::vector<Value> values;
  };

  [[noreturn]] void fail(const Message& cause) const { fail(_at, cause); }
  [[noreturn]] static void fail(std::size_t offset, const Message& cause) {
    throw PropertyListException(
        Message("plain-text property list, offset %1: %2", std::to_string(offset), cause));
  }

  bool atEnd() const { return _at == _text.size(); }
  // The character here, or 0 at the end.
  char next() const { return atEnd() ? '\0' : _text[_at]; }

  void skipSpace() {
    while (!atEnd()) {
      const std::string_view rest = _text.substr(_at, 2);
      if (isAsciiSpace(rest[0])) {
        ++_at;
      } else if (rest == "//") {
        _at = std::min(_text.find_first_of("\n\r", _at), _text.size());
      } else if (rest == "/*") {
        const std::size_t end = _text.find("*/", _at + 2);
        if (end == std::string_view::npos) fail(Message("comment without an end"));
        _at = end + 2;
      } else {
        return;
      }
    }
  }

  void expect(char c) {
    if (next() != c || atEnd()) fail(Message("expected \"%1\"", std::string_view(&c, 1)));
    ++_at;
    skipSpace();
  }

  Value readStringTable() {
    begin(true);
    while (!atEnd()) {
      _open.back().key = readKey();
      Value value = readWhole();
      expect(';');
      _open.front().dictionary.set(std::move(_open.front().key), std::move(value));
    }
    return std::move(_open.front().dictionary);
  }

  // One value with everything inside it, and the space behind it. Containers outside it stay open.
  Value readWhole() {
    const std::size_t outside = _open.size();
    for (;;) {
      std::optional<Value> value = beginValue();
      while (value && _open.size() > outside) value = add(std::move(*value));
      if (value) return std::move(*value);
    }
  }

  // A value without contents; nothing when a container was opened that has some.
  std::optional<Value> beginValue() {
    switch (next()) {
      case '{':
        expect('{');
        begin(true);
        return continueDictionary();
      case '(':
        expect('(');
        begin(false);
        return next() == ')' ? std::optional(end(')')) : std::nullopt;
      case '<':
        return readData();
      default:
        return readString();
    }
  }

  void begin(bool isDictionary) {
    if (_open.size() >= kPropertyListMaximumDepth) {
      fail(nestsTooDeep());
    }
    _open.emplace_back().isDictionary = isDictionary;
  }

  // Puts the value into the innermost container; answers that container when it is complete.
  std::optional<Value> add(Value value) {
    OpenContainer& container = _open.back();
    if (container.isDictionary) {
      expect(';');
      container.dictionary.set(std::move(container.key), std::move(value));
      return continueDictionary();
    }
    container.values.push_back(std::move(value));
    if (next() != ')') expect(',');
    return next() == ')' ? std::optional(end(')')) : std::nullopt;
  }

  std::optional<Value> continueDictionary() {
    if (next() == '}') return end('}');
    _open.back().key = readKey();
    return std::nullopt;
  }

  Value end(char closing) {
    expect(closing);
    OpenContainer closed = std::move(_open.back());
    _open.pop_back();
    if (closed.isDictionary) return std::move(closed.dictionary);
    return Array(std::move(closed.values));
  }

  String readKey() {
    String key = readString();
    expect('=');
    return key;
  }

  Value readData() {
    const std::size_t start = _at++;
    std::string bytes;
    int high = -1;
    for (; next() != '>'; ++_at) {
      if (atEnd()) fail(start, Message("data without an end"));
      if (isAsciiSpace(next())) continue;
      const int digit = hexDigitValue(next());
      if (digit < 0) fail(Message("data holds something that is no hexadecimal digit"));
      if (high >= 0) bytes += static_cast<char>(high << 4 | digit);
      high = high >= 0 ? -1 : digit;
    }
    if (high >= 0) fail(start, Message("data with half a byte"));
    expect('>');
    return Data(bytes);
  }

  String readString() {
    if (next() == '"' || next() == '\'') return readQuoted();
    const std::size_t start = _at;
    while (!atEnd() && isWord(next())) ++_at;
    if (_at == start) {
      fail(atEnd() ? Message("the data ends where a value is expected") : Message("a value is expected"));
    }
    String word(_text.substr(start, _at - start));
    skipSpace();
    return word;
  }

  String readQuoted() {
    const std::size_t start = _at;
    const char quote = _text[_at++];
    TextBuilder text;
    while (next() != quote || atEnd()) {
      if (atEnd()) fail(start, Message("string without an end"));
      if (next() == '\\') {
        ++_at;
        text.append(readEscape());
        continue;
      }
      const Utf8Step step = decodeUtf8(_text, _at);
      if (!step || isSurrogate(step.codePoint)) fail(Message("a string that is no UTF-8"));
      text.append(step.codePoint);
      _at += step.length;
    }
    ++_at;
    skipSpace();
    return text.finish();
  }

  // Behind the backslash.
  char32_t readEscape() {
    if (atEnd()) fail(Message("the data ends inside an escape"));
    if (isOctalDigit(next())) return readOctal();
    const char c = _text[_at];
    if (c == 'U' || c == 'u') return readUnicode();
    static constexpr std::string_view kNames = "abfnrtv";
    static constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v";
    const std::size_t named = kNames.find(c);
    if (named == std::string_view::npos) {
      const Utf8Step step = decodeUtf8(_text, _at);
      if (!step || isSurrogate(step.codePoint)) fail(Message("a string that is no UTF-8"));
      _at += step.length;
      return step.codePoint;
    }
    ++_at;
    return static_cast<unsigned char>(kMeanings[named]);
  }

  // One to three digits: a code point below 256.
  char32_t readOctal() {
    char32_t value = 0;
    for (int i = 0; i < 3 && isOctalDigit(next()); ++i, ++_at)
      value = value * 8 + static_cast<char32_t>(next() - '0');
    return value & 0xFF;
  }

  // Up to four digits: a UTF-16 unit.
  char32_t readUnicode() {
    const std::size_t start = _at++;
    char32_t unit = 0;
    for (int i = 0; i < 4 && hexDigitValue(next()) >= 0; ++i, ++_at) {
      unit = unit << 4 | static_cast<char32_t>(hexDigitValue(next()));
    }
    if (_at == start + 1) fail(start, Message("an escape without digits"));
    return unit;
  }

  std::string_view _text;
  std::size_t _at = 0;
  std::vector<OpenContainer> _open;
};

}  // namespace

Value readOldTextPropertyList(std::string_view bytes) { return OldTextReader(bytes).read(); }

}  // namespace corvane
