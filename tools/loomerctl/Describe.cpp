#include "tools/loomerctl/Describe.h"

#include <algorithm>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

const char* entityName(Entity entity) { return entity == Entity::folder ? "folder" : "bookmark"; }

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

std::string folderText(RecordTable& records, RecordId folder) {
  if (folder == kRoot) return "the root";
  const auto record = records.find(folder);
  return '#' + std::to_string(folder) + (record ? ' ' + quoted(record->content.name) : "");
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
  const auto compare = [&changes](const char* attribute, std::string from, std::string to) {
    if (from != to) changes.push_back({attribute, std::move(from), std::move(to)});
  };
  const auto yesOrNo = [](bool truth) { return truth ? "yes" : "no"; };
  compare("title", quoted(before.content.name), quoted(after.content.name));
  compare("address", quoted(before.content.url), quoted(after.content.url));
  compare("group of tabs", yesOrNo(before.content.tabGroup), yesOrNo(after.content.tabGroup));
  compare("special", yesOrNo(before.content.special), yesOrNo(after.content.special));
  if (before.parent != after.parent) {
    compare("folder", folderText(records, before.parent), folderText(records, after.parent));
  } else {
    compare("place", std::to_string(before.place), std::to_string(after.place));
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
