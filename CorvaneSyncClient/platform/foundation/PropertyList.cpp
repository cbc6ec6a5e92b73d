#include "CorvaneSyncClient/platform/foundation/PropertyList.h"

#include "CorvaneSyncClient/platform/foundation/PropertyListCodecs.h"

namespace corvane {

namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool isUtf16(std::string_view bytes) {
  return bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE");
}

// "<0a0b>" is data of the plain-text form; any other "<…>" opens XML.
bool startsWithData(std::string_view text) {
  const std::string_view inside = text.substr(1, text.find('>') - 1);
  return inside.find_first_not_of(" \t\r\n0123456789abcdefABCDEF") == std::string_view::npos;
}

PropertyListFormat formatOf(std::string_view bytes) {
  if (bytes.starts_with("bplist")) return PropertyListFormat::binary;
  if (isUtf16(bytes)) return PropertyListFormat::xml;
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  const std::size_t start = bytes.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos || bytes[start] != '<') return PropertyListFormat::oldText;
  return startsWithData(bytes.substr(start)) ? PropertyListFormat::oldText : PropertyListFormat::xml;
}

}  // namespace

Value readPropertyList(std::string_view bytes, PropertyListFormat* format) {
  const PropertyListFormat found = formatOf(bytes);
  if (format) *format = found;
  switch (found) {
    case PropertyListFormat::binary:
      return readBinaryPropertyList(bytes);
    case PropertyListFormat::xml:
      return readXmlPropertyList(bytes);
    case PropertyListFormat::oldText:
      break;
  }
  return readOldTextPropertyList(bytes);
}

}  // namespace corvane
