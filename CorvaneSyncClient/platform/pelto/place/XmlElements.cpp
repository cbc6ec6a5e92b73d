#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"

#include <expat.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostDepth = 32;
constexpr std::size_t kLongestText = 8 << 10;
constexpr std::size_t kPiece = 1 << 20;  // expat counts in int

// Exceptions must not cross expat, which is C: the first is kept and stops it.
class Reader {
 public:
  explicit Reader(const XmlHandlers& handlers)
      : _handlers(handlers), _parser(XML_ParserCreateNS(nullptr, ' '), &XML_ParserFree) {
    if (!_parser) throw std::bad_alloc();
    XML_SetUserData(_parser.get(), this);
    XML_SetElementHandler(_parser.get(), &onBegin, &onEnd);
    XML_SetCharacterDataHandler(_parser.get(), &onText);
    XML_SetStartDoctypeDeclHandler(_parser.get(), &onDoctype);
  }

  void read(std::string_view bytes) {
    do {
      const std::string_view piece = bytes.substr(0, kPiece);
      bytes.remove_prefix(piece.size());
      const XML_Status status =
          XML_Parse(_parser.get(), piece.data(), static_cast<int>(piece.size()), bytes.empty());
      if (_exception) std::rethrow_exception(_exception);
      if (status != XML_STATUS_OK) fail(std::string(XML_ErrorString(XML_GetErrorCode(_parser.get()))));
    } while (!bytes.empty());
  }

 private:
  [[noreturn]] void fail(const Message& cause) const {
    throw XmlException(
        Message("line %1 of its XML: %2", std::to_string(XML_GetCurrentLineNumber(_parser.get())), cause));
  }

  void begin(const char* name) {
    if (_path.size() == kMostDepth) fail(Message("elements nest too deep"));
    _path.emplace_back(name);
    _texts.emplace_back();
    _handlers.begin(_path);
  }

  void end() {
    _handlers.end(_path, _texts.back());
    _path.pop_back();
    _texts.pop_back();
  }

  void text(std::string_view piece) {
    _texts.back() += piece;
    if (_texts.back().size() > kLongestText) fail(Message("a text is too long"));
  }

  template <typename Step>
  static void guard(void* self, Step step) {
    auto* const reader = static_cast<Reader*>(self);
    if (reader->_exception) return;  // expat may still call for what it has begun
    try {
      step(*reader);
      return;
    } catch (...) {
      reader->_exception = std::current_exception();
    }
    XML_StopParser(reader->_parser.get(), XML_FALSE);
  }

  static void onBegin(void* self, const XML_Char* name, const XML_Char** /*attributes*/) {
    guard(self, [name](Reader& reader) { reader.begin(name); });
  }
  static void onEnd(void* self, const XML_Char* /*name*/) {
    guard(self, [](Reader& reader) { reader.end(); });
  }
  static void onText(void* self, const XML_Char* text, int length) {
    guard(self, [=](Reader& reader) { reader.text({text, static_cast<std::size_t>(length)}); });
  }
  static void onDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
    guard(self, [](const Reader& reader) { reader.fail(Message("it has a document type declaration")); });
  }

  const XmlHandlers& _handlers;
  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> _parser;
  XmlPath _path;
  std::vector<std::string> _texts;
  std::exception_ptr _exception;
};

}  // namespace

void readXml(std::string_view bytes, const XmlHandlers& handlers) { Reader(handlers).read(bytes); }

std::string_view localName(std::string_view name) { return name.substr(name.rfind(' ') + 1); }

}  // namespace corvane::pelto
