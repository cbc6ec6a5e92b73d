#include <expat.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyListReaders.h"
#include "CorvaneSyncClient/platform/foundation/plist/XmlScalars.h"

namespace corvane {

namespace {

enum class Element { plist, dictionary, array, key, string, data, date, integer, real, yes, no };

struct ElementName {
  std::string_view name;
  Element element;
};

constexpr ElementName kElements[] = {
    {"dict", Element::dictionary}, {"key", Element::key},    {"string", Element::string},
    {"array", Element::array},     {"true", Element::yes},   {"false", Element::no},
    {"integer", Element::integer}, {"real", Element::real},  {"date", Element::date},
    {"data", Element::data},       {"plist", Element::plist}};

const char* nameOf(Element element) {
  return std::find_if(std::begin(kElements), std::end(kElements),
                      [element](const ElementName& each) { return each.element == element; })
      ->name.data();
}

bool isContainer(Element element) {
  return element == Element::plist || element == Element::dictionary || element == Element::array;
}

// From 2.9 on expat counts in 64 bits everywhere, and its functions that count in "long" are deprecated.
#if XML_MAJOR_VERSION > 2 || (XML_MAJOR_VERSION == 2 && XML_MINOR_VERSION >= 9)
std::int64_t currentOffset(XML_Parser parser) { return XML_GetCurrentByteIndex64(parser); }
std::uint64_t currentLine(XML_Parser parser) { return XML_GetCurrentLineNumber64(parser); }
#else
std::int64_t currentOffset(XML_Parser parser) { return XML_GetCurrentByteIndex(parser); }
std::uint64_t currentLine(XML_Parser parser) { return XML_GetCurrentLineNumber(parser); }
#endif

// What went wrong, before it is known where.
class Failure : public PropertyListException {
 public:
  using PropertyListException::PropertyListException;
};

[[noreturn]] void fail(Message cause) { throw Failure(std::move(cause)); }

// Builds values from elements as they open and close; raises Failure.
class XmlBuilder {
 public:
  void start(std::string_view name) {
    const Element element = elementNamed(name);
    if (!_open.empty() && !isContainer(_open.back().element)) {
      fail(Message("element <%1> inside <%2>", name, nameOf(_open.back().element)));
    }
    if (element == Element::plist && !_open.empty()) fail(Message("element <plist> inside another element"));
    if (element == Element::key) expectKey();
    if (element != Element::key && element != Element::plist) expectValue(name);
    if (_open.size() > kPropertyListMaximumDepth) fail(nestsTooDeep());
    _open.emplace_back().element = element;
    _text.clear();
  }

  void end() {
    OpenElement closed = std::move(_open.back());
    _open.pop_back();
    if (closed.element == Element::plist) return;
    if (closed.element == Element::key) {
      _open.back().key = String(_text);
      return;
    }
    if (closed.key) failWithoutValue(closed.key);
    take(valueOf(closed));
  }

  void characters(std::string_view text) {
    if (!_open.empty() && !isContainer(_open.back().element)) {
      _text += text;
    } else if (text.find_first_not_of(" \t\r\n") != std::string_view::npos) {
      fail(Message("text outside an element that holds text"));
    }
  }

  Value finish() {
    if (!_root) fail(Message("no value inside"));
    return std::move(*_root);
  }

 private:
  struct OpenElement {
    Element element = Element::plist;
    String key;  // in a dictionary: whose value comes next
    Dictionary dictionary;
    std::vector<Value> values;
  };

  static Element elementNamed(std::string_view name) {
    for (const ElementName& each : kElements) {
      if (each.name == name) return each.element;
    }
    fail(Message("unknown element <%1>", name));
  }

  [[noreturn]] static void failWithoutValue(const String& key) {
    fail(Message("key \"%1\" without a value", key.view()));
  }

  void expectKey() const {
    if (_open.empty() || _open.back().element != Element::dictionary)
      fail(Message("<key> outside a dictionary"));
    if (_open.back().key) failWithoutValue(_open.back().key);
  }

  void expectValue(std::string_view name) const {
    if (_open.empty() || _open.back().element == Element::plist) {
      if (_root) fail(Message("a second value"));
    } else if (_open.back().element == Element::dictionary && !_open.back().key) {
      fail(Message("element <%1> without a key", name));
    }
  }

  Value valueOf(OpenElement& closed) {
    switch (closed.element) {
      case Element::dictionary:
        return std::move(closed.dictionary);
      case Element::array:
        return Array(std::move(closed.values));
      case Element::string:
        return String(_text);
      case Element::yes:
      case Element::no:
        if (!_text.empty()) fail(Message("text inside <%1>", nameOf(closed.element)));
        return closed.element == Element::yes;
      case Element::integer:
        return checked(integerFromText(_text), MessageText<1>("\"%1\" is not an integer of at most 64 bits"));
      case Element::real:
        return checked(realFromText(_text), MessageText<1>("\"%1\" is not a real"));
      case Element::date:
        return checked(dateFromXmlText(trimmedText()), MessageText<1>("\"%1\" is not a date"));
      case Element::data:
        return Data(checked(bytesFromBase64(_text), MessageText<1>("\"%1\" is not base64")));
      case Element::plist:
      case Element::key:
        break;
    }
    fail(Message("no value"));
  }

  std::string_view trimmedText() const {
    const std::size_t start = std::min(_text.find_first_not_of(" \t\r\n"), _text.size());
    return std::string_view(_text).substr(start, _text.find_last_not_of(" \t\r\n") + 1 - start);
  }

  template <typename T>
  T checked(std::optional<T> read, MessageText<1> otherwise) const {
    if (!read) fail(Message(otherwise, _text.substr(0, 64)));
    return std::move(*read);
  }

  void take(Value value) {
    if (_open.empty() || _open.back().element == Element::plist) {
      _root = std::move(value);
    } else if (_open.back().element == Element::array) {
      _open.back().values.push_back(std::move(value));
    } else {
      _open.back().dictionary.set(std::move(_open.back().key), std::move(value));
      _open.back().key = String();
    }
  }

  std::vector<OpenElement> _open;
  std::string _text;
  std::optional<Value> _root;
};

// Runs expat over the bytes. Exceptions must not cross expat, which is C: the first is kept and stops the
// parser.
class XmlReader {
 public:
  XmlReader() : _parser(XML_ParserCreate(nullptr), &XML_ParserFree) {
    if (!_parser) throw std::bad_alloc();
    XML_SetUserData(_parser.get(), this);
    XML_SetElementHandler(_parser.get(), &onStart, &onEnd);
    XML_SetCharacterDataHandler(_parser.get(), &onCharacters);
    XML_SetEntityDeclHandler(_parser.get(), &onEntityDeclaration);
    XML_SetSkippedEntityHandler(_parser.get(), &onSkippedEntity);
  }

  Value read(std::string_view bytes) {
    do {
      const std::string_view piece = bytes.substr(0, kPieceSize);
      bytes.remove_prefix(piece.size());
      const auto status =
          XML_Parse(_parser.get(), piece.data(), static_cast<int>(piece.size()), bytes.empty());
      if (_exception) std::rethrow_exception(_exception);
      if (!_reason.empty()) throw PropertyListException(_reason);
      if (status != XML_STATUS_OK)
        throw PropertyListException(reasonFor(std::string(XML_ErrorString(XML_GetErrorCode(_parser.get())))));
    } while (!bytes.empty());
    try {
      return _builder.finish();
    } catch (const Failure& failure) {
      throw PropertyListException(reasonFor(failure.message()));
    }
  }

 private:
  static constexpr std::size_t kPieceSize = std::size_t{1} << 30;  // expat counts in int

  // With the place that expat has come to.
  Message reasonFor(const Message& cause) const {
    const std::int64_t offset = currentOffset(_parser.get());  // negative before the first byte
    return Message("XML property list, line %1, offset %2: %3", std::to_string(currentLine(_parser.get())),
                   std::to_string(std::max<std::int64_t>(offset, 0)), cause);
  }

  template <typename Step>
  static void guard(void* self, Step step) {
    auto* reader = static_cast<XmlReader*>(self);
    if (!reader->_reason.empty() || reader->_exception) return;  // expat may still call for what it has begun
    try {
      step(reader->_builder);
      return;
    } catch (const Failure& failure) {
      reader->_reason = reader->reasonFor(failure.message());
    } catch (...) {
      reader->_exception = std::current_exception();
    }
    XML_StopParser(reader->_parser.get(), XML_FALSE);
  }

  static void onStart(void* self, const XML_Char* name, const XML_Char** /*attributes*/) {
    guard(self, [name](XmlBuilder& builder) { builder.start(name); });
  }

  static void onEnd(void* self, const XML_Char* /*name*/) {
    guard(self, [](XmlBuilder& builder) { builder.end(); });
  }

  static void onCharacters(void* self, const XML_Char* text, int length) {
    const std::string_view characters(text, static_cast<std::size_t>(length));
    guard(self, [characters](XmlBuilder& builder) { builder.characters(characters); });
  }

  static void onEntityDeclaration(void* self, const XML_Char* name, int, const XML_Char*, int,
                                  const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
    guard(self, [name](XmlBuilder&) { fail(Message("entity declarations are refused (\"%1\")", name)); });
  }

  static void onSkippedEntity(void* self, const XML_Char* name, int /*isParameter*/) {
    guard(self, [name](XmlBuilder&) { fail(Message("the entity \"%1\" is not known", name)); });
  }

  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> _parser;
  XmlBuilder _builder;
  Message _reason;  // empty while all is well
  std::exception_ptr _exception;
};

}  // namespace

Value readXmlPropertyList(std::string_view bytes) { return XmlReader().read(bytes); }

}  // namespace corvane
