#include "tools/loomerctl/ForeignFile.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/HtmlText.h"

namespace corvane::loomerctl {

namespace {

using namespace std::string_view_literals;

struct Kind {
  std::string_view beginning;
  std::string (*sentence)(const std::string& name);
};

constexpr Kind kBinary[] = {
    {"bplist"sv, [](const std::string& name) { return tr("%1 is a binary property list.", name); }},
    {"\x1F\x8B"sv, [](const std::string& name) { return tr("%1 is a gzip archive.", name); }},
    {"PK\x03\x04"sv, [](const std::string& name) { return tr("%1 is a ZIP archive.", name); }},
};

// XML, by the element that it is about.
constexpr Kind kXml[] = {
    {"<plist"sv, [](const std::string& name) { return tr("%1 is a property list in XML.", name); }},
    {"<xbel"sv, [](const std::string& name) { return tr("%1 is an XBEL file.", name); }}};

constexpr std::string_view kDatabaseMark = "SQLite format 3\0"sv;
constexpr std::string_view kCompressedMark = "mozLz40\0"sv;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF"sv;
constexpr std::size_t kHead = 4096;  // where the first element of XML stands

std::string_view withoutSpaceInFront(std::string_view text) {
  const auto first = std::find_if_not(text.begin(), text.end(), isHtmlSpace);
  return text.substr(static_cast<std::size_t>(first - text.begin()));
}

// What the bytes hold as a text, behind a byte order mark and white space.
std::string_view textOf(std::string_view bytes) {
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  return withoutSpaceInFront(bytes);
}

bool isJson(std::string_view text) {
  const bool isObject = text.starts_with('{');
  const bool isArray = text.starts_with('[');
  const std::string_view inside = withoutSpaceInFront(text.substr(isObject || isArray ? 1 : 0));
  return (isObject && inside.find_first_of("\"}") == 0) || (isArray && inside.find_first_of("[{\"]") == 0);
}

}  // namespace

FileForm formOf(std::string_view bytes) {
  if (bytes.starts_with(kDatabaseMark)) return FileForm::database;
  if (bytes.starts_with(kCompressedMark)) return FileForm::compressed;
  return isJson(textOf(bytes)) ? FileForm::json : FileForm::text;
}

std::optional<std::string> foreignKind(std::string_view bytes, const std::string& name) {
  for (const Kind& kind : kBinary) {
    if (bytes.starts_with(kind.beginning)) return kind.sentence(name);
  }
  const std::string_view text = textOf(bytes);
  if (text.empty()) return tr("%1 is empty.", name);
  for (const Kind& kind : kXml) {
    const bool begins = text.starts_with(kind.beginning);
    const bool isInside =
        text.starts_with("<?xml") && text.substr(0, kHead).find(kind.beginning) != text.npos;
    if (begins || isInside) return kind.sentence(name);
  }
  return std::nullopt;
}

}  // namespace corvane::loomerctl
