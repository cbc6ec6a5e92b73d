#include "tools/loomerctl/JsonWriter.h"

#include <cstdio>
#include <string>

#include "CorvaneSyncClient/platform/foundation/plist/XmlScalars.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane::loomerctl {

void JsonWriter::value(const String& text) {
  if (!text) return null();
  value(text.view());
}

void JsonWriter::value(Date date) {
  const auto text = xmlTextForDate(date);
  if (!text) return null();
  value(std::string_view(*text));
}

// RapidJSON would pass unpaired surrogates on as bytes that no reader takes.
void JsonWriter::value(std::string_view text) {
  std::string escaped = "\"";
  const auto escape = [&escaped](unsigned unit) {
    char digits[7];
    std::snprintf(digits, sizeof digits, "\\u%04x", unit & 0xFFFFU);
    escaped += digits;
  };
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    const char32_t codePoint = step ? step.codePoint : U'\uFFFD';
    at += step ? step.length : 1;
    if (codePoint == '"' || codePoint == '\\') {
      escaped += '\\';
      escaped += static_cast<char>(codePoint);
    } else if (codePoint < 0x20 || codePoint == 0x7F || isSurrogate(codePoint)) {
      escape(codePoint);
    } else {
      appendUtf8(escaped, codePoint);
    }
  }
  escaped += '"';
  _json.RawValue(escaped.data(), escaped.size(), rapidjson::kStringType);
}

}  // namespace corvane::loomerctl
