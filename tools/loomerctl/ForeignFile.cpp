#include "tools/loomerctl/ForeignFile.h"

#include <algorithm>

#include "tools/loomerctl/HtmlText.h"

namespace corvane::loomerctl {

namespace {

using namespace std::string_view_literals;

struct Kind {
  std::string_view beginning;
  const char* name;
};

constexpr Kind kBinary[] = {
    {"SQLite format 3\0"sv, "an SQLite database"},
    {"bplist"sv, "a binary property list"},
    {"mozLz40\0"sv, "a compressed JSON file"},
    {"\x1F\x8B"sv, "a gzip archive"},
    {"PK\x03\x04"sv, "a ZIP archive"},
};

// XML, by the element that it is about.
constexpr Kind kXml[] = {{"<plist"sv, "a property list in XML"}, {"<xbel"sv, "an XBEL file"}};

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF"sv;
constexpr std::size_t kHead = 4096;  // where the first element of XML stands

std::string_view withoutSpaceInFront(std::string_view text) {
  const auto first = std::find_if_not(text.begin(), text.end(), isHtmlSpace);
  return text.substr(static_cast<std::size_t>(first - text.begin()));
}

bool isJson(std::string_view text) {
  const bool isObject = text.starts_with('{');
  const bool isArray = text.starts_with('[');
  const std::string_view inside = withoutSpaceInFront(text.substr(isObject || isArray ? 1 : 0));
  return (isObject && inside.find_first_of("\"}") == 0) || (isArray && inside.find_first_of("[{\"]") == 0);
}

}  // namespace

const char* foreignKind(std::string_view bytes) {
  for (const Kind& kind : kBinary) {
    if (bytes.starts_with(kind.beginning)) return kind.name;
  }
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  const std::string_view text = withoutSpaceInFront(bytes);
  if (text.empty()) return "empty";
  if (isJson(text)) return "a JSON file";
  for (const Kind& kind : kXml) {
    const bool begins = text.starts_with(kind.beginning);
    const bool isInside =
        text.starts_with("<?xml") && text.substr(0, kHead).find(kind.beginning) != text.npos;
    if (begins || isInside) return kind.name;
  }
  return nullptr;
}

}  // namespace corvane::loomerctl
