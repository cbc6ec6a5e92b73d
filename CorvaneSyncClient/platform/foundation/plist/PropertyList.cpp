#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

#include "CorvaneSyncClient/platform/foundation/plist/PropertyListReaders.h"

namespace corvane {

namespace {

enum class Flavour { binary, xml, oldText };

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool isUtf16(std::string_view bytes) {
  return bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE");
}

// "<0a0b>" is data of the plain-text form; any other "<…>" opens XML.
bool startsWithData(std::string_view text) {
  const std::string_view inside = text.substr(1, text.find('>') - 1);
  return inside.find_first_not_of(" \t\r\n0123456789abcdefABCDEF") == std::string_view::npos;
}

Flavour flavourOf(std::string_view bytes) {
  if (bytes.starts_with("bplist")) return Flavour::binary;
  if (isUtf16(bytes)) return Flavour::xml;
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  const std::size_t start = bytes.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos || bytes[start] != '<') return Flavour::oldText;
  return startsWithData(bytes.substr(start)) ? Flavour::oldText : Flavour::xml;
}

}  // namespace

Value readPropertyList(std::string_view bytes) {
  switch (flavourOf(bytes)) {
    case Flavour::binary:
      return readBinaryPropertyList(bytes);
    case Flavour::xml:
      return readXmlPropertyList(bytes);
    case Flavour::oldText:
      break;
  }
  return readOldTextPropertyList(bytes);
}

}  // namespace corvane
