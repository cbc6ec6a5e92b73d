// `show`.

#include <charconv>

#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/ChangeText.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

struct Holder {
  String client;
  BaseRecord base;
};

struct RecordView {
  TruthRecord record;
  String globalIdentifier;
  std::vector<std::string> path;
  std::vector<Holder> holders;
  std::vector<std::pair<SessionEntry, LoggedChange>> history;  // newest first
};

// "12" or "#12"; nothing for other text.
std::optional<RecordId> recordNumber(std::string_view text) {
  if (text.starts_with('#')) text.remove_prefix(1);
  RecordId number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number <= 0) return std::nullopt;
  return number;
}

TruthRecord wantedRecord(RecordTable& records, const std::string& text) {
  const auto number = recordNumber(text);
  if (!number) throw Refused{tr("\"%1\" is no record's number. `loomerctl tree` shows the numbers.", text)};
  if (auto record = records.find(*number)) return *record;
  throw Refused{tr("There is no record #%1, or its deletion is forgotten.", std::to_string(*number))};
}

RecordView viewOf(TruthStore& store, const std::string& text) {
  RecordTable records(store);
  RecordView view;
  view.record = wantedRecord(records, text);
  view.globalIdentifier = records.globalIdentifier(view.record.id);
  view.path = folderPath(records, view.record.parent);
  for (const ClientState& client : ClientTable(store).all()) {
    if (auto base = BaseTable(store).find(client.id, view.record.id)) {
      view.holders.push_back({client.identifier, std::move(*base)});
    }
  }
  SessionLog log(store);
  log.newestFirst([&](const SessionEntry& session) {
    log.changesOf(session.id, view.record.id, [&](const LoggedChange& change) {
      view.history.emplace_back(session, change);
      return true;
    });
    return true;
  });
  return view;
}

void writeHolder(JsonWriter& json, const Holder& holder) {
  json.beginObject();
  json.member("client", holder.client);
  json.member("localIdentifier", holder.base.localId);
  json.member("held", !holder.base.notHeld);
  json.member("position", holder.base.position);
  json.member("refusedRevision", holder.base.refusedRevision);
  json.endObject();
}

void writeView(JsonWriter& json, const RecordView& view) {
  json.beginObject();
  json.member("record", view.record.id);
  json.member("globalIdentifier", view.globalIdentifier);
  json.member("kind", entityName(view.record.entity));
  json.member("deleted", view.record.deleted);
  json.member("parent", view.record.parent);
  json.member("place", view.record.place);
  json.member("revision", view.record.revision);
  writeContent(json, view.record.entity, view.record.content);
  json.key("path");
  json.beginArray();
  for (const std::string& each : view.path) json.value(std::string_view(each));
  json.endArray();
  json.key("holders");
  json.beginArray();
  for (const Holder& each : view.holders) writeHolder(json, each);
  json.endArray();
  json.key("history");
  json.beginArray();
  for (const auto& [session, change] : view.history) {
    json.beginObject();
    json.member("session", session.id);
    json.member("began", session.began);
    json.member("client", session.client);
    writeState(json, "before", change.entity, change.before);
    writeState(json, "after", change.entity, change.after);
    json.endObject();
  }
  json.endArray();
  json.endObject();
  json.finish();
}

std::string pathText(const std::vector<std::string>& path) {
  std::string text = "/";
  for (const std::string& each : path) text += printable(each) + '/';
  return text;
}

// "special folder, a group of tabs, deleted".
std::string recordText(const TruthRecord& record) {
  std::string kind = record.content.special ? tr("special folder") : entityText(record.entity);
  if (record.content.tabGroup) kind += ", " + tr("a group of tabs");
  if (record.deleted) kind += ", " + tr("deleted");
  return kind;
}

void printFacts(Output& out, const RecordView& view) {
  const TruthRecord& record = view.record;
  const auto textOrNone = [](const String& text) { return text ? printable(text.view()) : tr("(none)"); };
  writeField(out, tr("Record"), '#' + std::to_string(record.id) + ' ' + recordText(record));
  writeField(out, tr("Title"), textOrNone(record.content.name));
  if (record.entity == Entity::bookmark) writeField(out, tr("Address"), textOrNone(record.content.url));
  writeField(out, tr("Folder"), pathText(view.path));
  writeField(out, tr("Identifier"), view.globalIdentifier.toString());
  writeField(out, tr("Revision"), std::to_string(record.revision));
}

void printHolders(Output& out, const RecordView& view) {
  if (view.holders.empty()) return out.write('\n' + tr("No client holds it.") + '\n');
  out.write("\n");
  Table table(out, {{tr("CLIENT")}, {tr("LOCAL IDENTIFIER")}, {tr("HELD")}});
  for (const Holder& each : view.holders) {
    const std::string held = each.base.notHeld               ? tr("no, it did not take it")
                             : each.base.refusedRevision > 0 ? tr("yes, but not as it is here")
                                                             : tr("yes");
    table.add({printable(each.client.view()), printable(each.base.localId.view()), held});
  }
  table.finish();
}

}  // namespace

Status showRecord(Invocation& run) {
  const auto store = openStoreToRead();
  const RecordView view = viewOf(*store, run.options.argument);
  if (run.options.json) {
    JsonWriter json(run.out);
    writeView(json, view);
    return statusFine;
  }
  printFacts(run.out, view);
  printHolders(run.out, view);
  RecordTable records(*store);
  for (const auto& [session, change] : view.history) {
    run.out.write('\n' + tr("Session %1", std::to_string(session.id)) + "  " + timeText(session.began) +
                      "  " + printable(session.client.view()) + '\n',
                  Style::heading);
    printChange(run.out, records, change);
  }
  return statusFine;
}

}  // namespace corvane::loomerctl
