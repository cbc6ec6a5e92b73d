#include <algorithm>
#include <charconv>
#include <variant>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/plist/XmlScalars.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

[[noreturn]] void refuse(const Message& cause) {
  throw PropertyListException(Message("XML property list: %1", cause));
}

// Whether XML 1.0 can carry the code point (its production 2, "Char").
bool isXmlCharacter(char32_t codePoint) {
  if (codePoint < 0x20) return codePoint == '\t' || codePoint == '\n' || codePoint == '\r';
  return !isSurrogate(codePoint) && codePoint != 0xFFFE && codePoint != 0xFFFF;
}

class XmlWriter {
 public:
  std::string write(const Value& value) {
    _text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
    writeValue(value);
    while (!_open.empty()) {
      std::visit([this](auto& walk) { advance(walk); }, _open.back());
    }
    return std::move(_text += "</plist>\n");
  }

 private:
  // How far a container is written.
  struct ArrayWalk {
    const Value* next;
    const Value* end;
  };
  struct DictionaryWalk {
    Dictionary::Iterator next;
    Dictionary::Iterator end;
  };

  // Deeper lines are no further indented, or a deep tree would cost the square of its depth.
  static constexpr std::size_t kMaximumIndent = 32;
  // XML has no shared objects: a value of few shared containers can be text without end.
  static constexpr std::size_t kMaximumSize = std::size_t{1} << 30;

  // Writing one item may open a container, after which `walk` is no longer valid.
  void advance(ArrayWalk& walk) {
    if (walk.next == walk.end) return close("array");
    writeValue(*walk.next++);
  }

  void advance(DictionaryWalk& walk) {
    if (walk.next == walk.end) return close("dict");
    const auto& entry = *walk.next++;
    writeElement("key", entry.key.view());
    writeValue(entry.value);
  }

  void close(const char* name) {
    _open.pop_back();
    indent();
    ((_text += "</") += name) += ">\n";
  }

  void indent() { _text.append(std::min(_open.size(), kMaximumIndent), '\t'); }

  void writeValue(const Value& value) {
    if (_text.size() > kMaximumSize) refuse(Message("the text would exceed 1 GiB"));
    value.visit([this](const auto& payload) { writePayload(payload); });
  }

  void writePayload(bool value) { writeLine(value ? "<true/>" : "<false/>"); }
  void writePayload(std::int64_t value) { writeNumber("integer", value); }
  void writePayload(std::uint64_t value) { writeNumber("integer", value); }
  void writePayload(double value) { writeNumber("real", value); }
  void writePayload(const String& value) { writeElement("string", value.view()); }
  void writePayload(const Url&) { refuse(Message("a property list cannot hold a URL value")); }

  void writePayload(const Date& value) {
    const auto text = xmlTextForDate(value);
    if (!text) refuse(Message("the date %1 lies outside the years 1 to 9999", description(value)));
    writeElement("date", *text);
  }

  void writePayload(const Data& value) {
    writeLine("<data>");
    const std::string text = base64Text(value.bytes());
    constexpr std::size_t kLineLength = 76;  // RFC 2045, section 6.8
    for (std::size_t at = 0; at < text.size(); at += kLineLength) {
      writeLine(std::string_view(text).substr(at, kLineLength));
    }
    writeLine("</data>");
  }

  void writePayload(const Array& value) {
    if (value.empty()) return writeLine("<array/>");
    writeLine("<array>");
    _open.emplace_back(ArrayWalk{value.begin(), value.end()});
  }

  void writePayload(const Dictionary& value) {
    if (value.empty()) return writeLine("<dict/>");
    writeLine("<dict>");
    _open.emplace_back(DictionaryWalk{value.begin(), value.end()});
  }

  void writeLine(std::string_view line) {
    indent();
    (_text += line) += '\n';
  }

  template <typename Number>
  void writeNumber(const char* name, Number number) {
    char digits[32];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    writeElement(name, std::string_view(digits, static_cast<std::size_t>(end - digits)));
  }

  void writeElement(const char* name, std::string_view text) {
    indent();
    ((_text += '<') += name) += '>';
    writeEscaped(text);
    ((_text += "</") += name) += ">\n";
  }

  void writeEscaped(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
      const Utf8Step step = decodeUtf8(text, at);
      if (!step) refuse(Message("text that is no UTF-8 (byte %1 of a string)", std::to_string(at)));
      if (!isXmlCharacter(step.codePoint)) {
        refuse(Message("XML cannot carry the character %1 (byte %2 of a string)",
                       std::to_string(static_cast<std::uint32_t>(step.codePoint)), std::to_string(at)));
      }
      switch (step.codePoint) {
        case '&':
          _text += "&amp;";
          break;
        case '<':
          _text += "&lt;";
          break;
        case '>':
          _text += "&gt;";
          break;
        case '\r':  // raw, it would be read as a line feed
          _text += "&#13;";
          break;
        default:
          _text += text.substr(at, step.length);
      }
      at += step.length;
    }
  }

  std::string _text;
  std::vector<std::variant<ArrayWalk, DictionaryWalk>> _open;
};

}  // namespace

std::string writeXmlPropertyList(const Value& value) { return XmlWriter().write(value); }

}  // namespace corvane
