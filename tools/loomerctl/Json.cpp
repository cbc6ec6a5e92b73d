#include "tools/loomerctl/Json.h"

#include <cstdio>
#include <string>

#include "CorvaneSyncClient/platform/foundation/CalendarDate.h"
#include "CorvaneSyncClient/platform/foundation/Utf8.h"

namespace corvane::loomerctl {

void JsonWriter::key(std::string_view name) {
  separate();
  writeText(name);
  _out.write(": ");
  _afterKey = true;
}

void JsonWriter::value(const String& text) {
  if (!text) return null();
  value(text.view());
}

void JsonWriter::value(std::string_view text) {
  separate();
  writeText(text);
}

void JsonWriter::value(bool truth) {
  separate();
  _out.write(truth ? "true" : "false");
}

void JsonWriter::value(Date date) {
  const auto text = xmlTextForDate(date);
  if (!text) return null();
  value(std::string_view(*text));
}

void JsonWriter::null() {
  separate();
  _out.write("null");
}

void JsonWriter::number64(std::int64_t number) {
  separate();
  _out.write(std::to_string(number));
}

void JsonWriter::open(char bracket) {
  separate();
  _out.write(std::string_view(&bracket, 1));
  _levels.emplace_back();
}

void JsonWriter::close(char bracket) {
  const bool used = _levels.back().used;
  _levels.pop_back();
  if (used) startLine();
  _out.write(std::string_view(&bracket, 1));
}

void JsonWriter::separate() {
  if (_afterKey) {
    _afterKey = false;
    return;
  }
  if (_levels.empty()) return;
  if (_levels.back().used) _out.write(",");
  _levels.back().used = true;
  startLine();
}

void JsonWriter::startLine() {
  _out.write("\n");
  for (std::size_t i = 0; i < _levels.size(); ++i) _out.write("  ");
}

void JsonWriter::writeText(std::string_view text) {
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
  _out.write(escaped);
}

}  // namespace corvane::loomerctl
