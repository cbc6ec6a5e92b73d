#include "tools/loomerctl/browsers/JsonText.h"

#include <rapidjson/error/en.h>

#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/JsonEscapes.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/BrowserBookmarks.h"

namespace corvane::loomerctl {

namespace {

// Brackets in one another. Each folder takes two; the truth is made for 10,000 levels of folders.
constexpr std::size_t kDeepestJson = 50'000;
constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void refuseJson(const std::string& name, std::string_view text, std::size_t offset,
                             const std::string& cause) {
  const auto lineEnds = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n');
  throw Refused{tr("%1 is damaged: it is no JSON at offset %2, line %3: %4", name, std::to_string(offset),
                   std::to_string(lineEnds + 1), cause)};
}

// Goes over the text once for what RapidJSON does not care for: zeros, which it takes for the end, brackets
// without end, and halves of pairs.
void prepare(std::string& text, const std::string& name) {
  bool isInString = false;
  std::size_t depth = 0;
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '\0') refuseJson(name, text, at, tr("There is a byte of zero."));
    if (isInString && c == '\\') {
      at += repairJsonEscape(text, at);
      continue;
    }
    if (c == '"') isInString = !isInString;
    if (!isInString && (c == '{' || c == '[') && ++depth > kDeepestJson) {
      refuseJson(name, text, at, tr("More brackets than %1 stand in one another.", kDeepestJson));
    }
    if (!isInString && (c == '}' || c == ']') && depth > 0) --depth;
    ++at;
  }
}

}  // namespace

JsonDocument parseJson(std::string text, const std::string& name) {
  if (text.starts_with(kUtf8ByteOrderMark)) text.erase(0, kUtf8ByteOrderMark.size());
  prepare(text, name);
  JsonDocument document;
  document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(text.data(),
                                                                                         text.size());
  if (document.HasParseError()) {
    refuseJson(name, text, document.GetErrorOffset(), rapidjson::GetParseError_En(document.GetParseError()));
  }
  return document;
}

const JsonValue* memberOf(const JsonValue& value, const char* key) {
  if (!value.IsObject()) return nullptr;
  const auto found = value.FindMember(key);
  return found == value.MemberEnd() ? nullptr : &found->value;
}

JsonWalk::JsonWalk(const JsonValue& folder, std::string pointer, std::uint32_t node, std::string name)
    : _start(std::move(pointer)), _name(std::move(name)), _parent(node) {
  open(folder, node);
}

void JsonWalk::open(const JsonValue& folder, std::uint32_t node) {
  const JsonValue* const children = memberOf(folder, "children");
  if (!children) return;
  if (!children->IsArray()) refuseForList("/children");
  if (!children->Empty()) _open.push_back({children, 0, node});
}

const JsonValue* JsonWalk::next() {
  while (!_open.empty() && _open.back().at == _open.back().children->Size()) _open.pop_back();
  _entry = nullptr;
  if (_open.empty()) return nullptr;
  List& list = _open.back();
  _parent = list.node;
  _entry = &(*list.children)[list.at++];
  if (!_entry->IsObject()) {
    throw Refused{tr("%1 is damaged: what stands at \"%2\" is no object.", _name, pointer())};
  }
  return _entry;
}

void JsonWalk::enter(std::uint32_t node) { open(*_entry, node); }

std::string JsonWalk::text(const char* key) const {
  const JsonValue* const value = memberOf(*_entry, key);
  if (!value || value->IsNull()) return {};
  if (!value->IsString()) {
    throw Refused{tr("%1 is damaged: what stands at \"%2\" is no text.", _name, pointer() + '/' + key)};
  }
  return withoutZeros({value->GetString(), value->GetStringLength()});
}

std::string JsonWalk::pointer() const {
  std::string pointer = _start;
  if (!_entry) return pointer;
  for (const List& each : _open) pointer += "/children/" + std::to_string(each.at - 1);
  return pointer;
}

void JsonWalk::refuseForList(const std::string& below) const {
  throw Refused{tr("%1 is damaged: what stands at \"%2\" is no list.", _name, pointer() + below)};
}

}  // namespace corvane::loomerctl
