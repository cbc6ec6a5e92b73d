#include <algorithm>
#include <charconv>
#include <variant>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

namespace {

constexpr std::string_view kCutMark = "\u2026";

// A text that takes no more than `kDescriptionLimit` bytes. What comes after that is dropped for a mark.
class LimitedText {
 public:
  bool isFull() const { return _isFull; }

  void append(std::string_view text) {
    if (_isFull) return;
    const std::size_t room = kDescriptionLimit - _text.size();
    _isFull = text.size() > room;
    std::size_t taken = std::min(room, text.size());
    // The cut falls between characters. In bytes that are no UTF-8 it may fall anywhere.
    for (int i = 0; _isFull && i < 3 && taken > 0 && (text[taken] & 0xC0) == 0x80; ++i) --taken;
    _text += text.substr(0, taken);
    if (_isFull) _text += kCutMark;
  }

  std::string take() { return std::move(_text); }

 private:
  std::string _text;
  bool _isFull = false;
};

template <typename Number>
void appendNumber(LimitedText& text, Number number) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
  text.append({buffer, static_cast<std::size_t>(result.ptr - buffer)});
}

void appendHex(LimitedText& text, std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  text.append("<");
  for (std::size_t i = 0; i < bytes.size() && !text.isFull(); ++i) {
    const auto bits = static_cast<unsigned char>(bytes[i]);
    const char digits[] = {kDigits[bits >> 4], kDigits[bits & 15]};
    text.append({digits, sizeof digits});
  }
  text.append(">");
}

// Prints values with a stack of the containers that are open. Every step prints something, so that the limit
// of the text bounds the walk, also where containers are shared over and over.
class DescriptionWalk {
 public:
  std::string print(const Value& value) {
    printValue(value);
    return run();
  }

  template <typename Container>
  std::string printContainer(const Container& container) {
    open(container);
    return run();
  }

 private:
  // What is still to come of an array.
  struct OpenArray {
    const Value* next;
    const Value* end;
  };
  // What is still to come of a dictionary.
  struct OpenDictionary {
    Dictionary::Iterator next;
    Dictionary::Iterator end;
  };
  struct Level {
    std::variant<OpenArray, OpenDictionary> rest;
    bool isFirst = true;
  };

  std::string run() {
    while (!_open.empty() && !_text.isFull()) {
      Level& level = _open.back();
      if (auto* array = std::get_if<OpenArray>(&level.rest)) {
        advance(level, *array);
      } else {
        advance(level, std::get<OpenDictionary>(level.rest));
      }
    }
    return _text.take();
  }

  void open(const Array& array) {
    _text.append("(");
    _open.push_back({OpenArray{array.begin(), array.end()}});
  }

  void open(const Dictionary& dictionary) {
    _text.append("{");
    _open.push_back({OpenDictionary{dictionary.begin(), dictionary.end()}});
  }

  void advance(Level& level, OpenArray& array) {
    if (array.next == array.end) return close(")");
    if (!std::exchange(level.isFirst, false)) _text.append(", ");
    printValue(*array.next++);  // may open another level, which invalidates this one
  }

  void advance(Level& level, OpenDictionary& dictionary) {
    if (dictionary.next == dictionary.end) return close("}");
    if (!std::exchange(level.isFirst, false)) _text.append("; ");
    const auto& entry = *dictionary.next++;
    _text.append(entry.key.view());
    _text.append(" = ");
    printValue(entry.value);  // may open another level, which invalidates this one
  }

  void close(std::string_view bracket) {
    _text.append(bracket);
    _open.pop_back();
  }

  void printValue(const Value& value) {
    if (const auto* array = value.as<Array>()) return open(*array);
    if (const auto* dictionary = value.as<Dictionary>()) return open(*dictionary);
    if (const auto* boolean = value.as<bool>()) _text.append(*boolean ? "1" : "0");
    if (const auto* integer = value.as<std::int64_t>()) appendNumber(_text, *integer);
    if (const auto* large = value.as<std::uint64_t>()) appendNumber(_text, *large);
    if (const auto* real = value.as<double>()) appendNumber(_text, *real);
    if (const auto* date = value.as<Date>()) _text.append(description(*date));
    if (const auto* text = value.as<String>()) _text.append(text->view());
    if (const auto* data = value.as<Data>()) appendHex(_text, data->bytes());
    if (const auto* url = value.as<Url>()) _text.append(url->text.view());
  }

  std::vector<Level> _open;
  LimitedText _text;
};

}  // namespace

std::string description(const Value& value) { return DescriptionWalk().print(value); }
std::string description(const Array& array) { return DescriptionWalk().printContainer(array); }
std::string description(const Dictionary& dictionary) { return DescriptionWalk().printContainer(dictionary); }

}  // namespace corvane
