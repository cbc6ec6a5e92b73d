#include "tools/loomerctl/Describe.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

const char* entityName(Entity entity) { return entity == Entity::folder ? "folder" : "bookmark"; }

std::string entityText(Entity entity) { return entity == Entity::folder ? tr("folder") : tr("bookmark"); }

const char* kindName(int kind) {
  switch (static_cast<SessionKind>(kind)) {
    case SessionKind::fast:
      return "fast";
    case SessionKind::slow:
      return "slow";
    case SessionKind::refresh:
      return "refresh";
    case SessionKind::replace:
      return "replace";
    case SessionKind::undo:
      return "undo";
    case SessionKind::importFile:
      return "import";
  }
  return "unknown";
}

std::string kindText(int kind) {
  switch (static_cast<SessionKind>(kind)) {
    case SessionKind::fast:
      return tr("fast");
    case SessionKind::slow:
      return tr("slow");
    case SessionKind::refresh:
      return tr("refresh");
    case SessionKind::replace:
      return tr("replace");
    case SessionKind::undo:
      return tr("undo");
    case SessionKind::importFile:
      return tr("import");
  }
  return tr("unknown");
}

std::string attributeText(const std::string& attribute) {
  static constexpr std::pair<std::string_view, TextKey> kTexts[] = {
      {"name", TextKey("title")},    {"url", TextKey("address")}, {"tab group", TextKey("group of tabs")},
      {"parent", TextKey("folder")}, {"order", TextKey("order")}, {"deletion", TextKey("deletion")}};
  for (const auto& [name, text] : kTexts) {
    if (name == attribute) return tr(text);
  }
  return printable(attribute);
}

std::string folderText(RecordTable& records, RecordId folder) {
  if (folder == kRoot) return tr("the root");
  const auto record = records.find(folder);
  return '#' + std::to_string(folder) + (record ? ' ' + quoted(record->content.name) : "");
}

std::string insideText(RecordTable& records, RecordId folder) {
  return folder == kRoot ? tr("in the root") : tr("in %1", folderText(records, folder));
}

std::vector<std::string> folderPath(RecordTable& records, RecordId folder) {
  std::vector<std::string> path;
  std::unordered_set<RecordId> passed;
  while (folder != kRoot && passed.insert(folder).second) {
    const auto record = records.find(folder);
    if (!record) break;
    path.push_back(record->content.name.toString());
    folder = record->parent;
  }
  std::reverse(path.begin(), path.end());
  return path;
}

std::vector<AttributeChange> attributeChanges(RecordTable& records, const LoggedState& before,
                                              const LoggedState& after) {
  std::vector<AttributeChange> changes;
  const auto compare = [&changes](std::string attribute, std::string from, std::string to) {
    if (from != to) changes.push_back({std::move(attribute), std::move(from), std::move(to)});
  };
  const auto yesOrNo = [](bool truth) { return truth ? tr("yes") : tr("no"); };
  compare(tr("title"), quoted(before.content.name), quoted(after.content.name));
  compare(tr("address"), quoted(before.content.url), quoted(after.content.url));
  compare(tr("group of tabs"), yesOrNo(before.content.tabGroup), yesOrNo(after.content.tabGroup));
  compare(tr("special"), yesOrNo(before.content.special), yesOrNo(after.content.special));
  if (before.parent != after.parent) {
    compare(tr("folder"), folderText(records, before.parent), folderText(records, after.parent));
  } else {
    compare(tr("place"), std::to_string(before.place), std::to_string(after.place));
  }
  return changes;
}

void writeContent(JsonWriter& json, Entity entity, const Content& content) {
  json.member("title", content.name);
  if (entity == Entity::bookmark) {
    json.member("url", content.url);
  } else {
    json.member("tabGroup", content.tabGroup);
    json.member("special", content.special);
  }
}

void writeState(JsonWriter& json, const char* key, Entity entity, const std::optional<LoggedState>& state) {
  json.key(key);
  if (!state) return json.null();
  json.beginObject();
  json.member("parent", state->parent);
  json.member("place", state->place);
  writeContent(json, entity, state->content);
  json.endObject();
}

}  // namespace corvane::loomerctl
