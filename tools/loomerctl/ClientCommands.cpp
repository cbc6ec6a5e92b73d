// `plan`, `approve`, `restore` and `reset`.

#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/ChangeText.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

// What a client's next session delivers if the client has nothing new.
struct NextSession {
  SessionKind kind = SessionKind::fast;
  bool first = false;  // the client never finished a session: it may hold some of this already
  bool deleteAllFirst = false;
  bool restores = false;  // whatever the client lacks is restored
  // In the log's form, so that both read alike; in the order of delivery.
  std::vector<LoggedChange> changes;
};

LoggedChange loggedForm(const ClientChange& change, const BaseRecord& held) {
  LoggedChange logged;
  logged.record = change.record;
  logged.entity = change.entity;
  if (change.type != LoomerChangeTypeAdd) logged.before = {held.parent, held.position, held.content};
  if (change.type != LoomerChangeTypeDelete) {
    logged.after = {change.parent, change.position, change.content};
  }
  return logged;
}

// Plans as sessions do, with the base as the client's tree.
NextSession nextSession(TruthStore& store, const ClientState& client) {
  RecordTable records(store);
  const TruthState truth = records.state();
  NextSession next;
  next.first = !client.syncedRevision;
  const bool keepsHistory = client.identifier == kHubClientIdentifier;
  next.kind = sessionKind(SessionKind::fast, client, truth, keepsHistory);
  MergeInput input;
  input.truth = records.readAll().records;
  input.base = BaseTable(store).read(client.id).records;
  input.refresh = next.kind == SessionKind::refresh;
  input.replace = next.kind == SessionKind::replace;
  input.nextRecord = truth.nextRecord;
  input.revision = truth.revision + 1;
  const MergeResult plan = merge(input);
  next.deleteAllFirst = plan.deleteAllFirst;
  next.restores = client.restorePending && !next.deleteAllFirst;
  std::unordered_map<RecordId, const BaseRecord*> held;
  for (const BaseRecord& each : input.base) held.emplace(each.record, &each);
  const BaseRecord nothing;
  for (const ClientChange& change : plan.clientChanges) {
    const auto base = held.find(change.record);
    next.changes.push_back(loggedForm(change, base == held.end() ? nothing : *base->second));
  }
  return next;
}

void writeNext(JsonWriter& json, const NextSession& next) {
  json.member("kind", kindName(static_cast<int>(next.kind)));
  json.member("firstSession", next.first);
  json.member("deleteAllFirst", next.deleteAllFirst);
  json.member("givesBack", next.restores);
  json.key("changes");
  json.beginArray();
  for (const LoggedChange& change : next.changes) {
    json.beginObject();
    json.member("type", change.before ? (change.after ? "modify" : "delete") : "add");
    json.member("record", change.record);
    json.member("kind", entityName(change.entity));
    writeState(json, "before", change.entity, change.before);
    writeState(json, "after", change.entity, change.after);
    json.endObject();
  }
  json.endArray();
}

void printNext(Output& out, RecordTable& records, const NextSession& next) {
  if (next.deleteAllFirst) {
    out.write(tr("The client is reset: it deletes everything and is given all that is agreed.") + '\n');
  } else if (next.restores) {
    out.write(tr("The client gets back whatever it lacks. Nothing is deleted because it lacks it.") + '\n');
  } else if (next.first) {
    out.write(
        tr("The client's first session compares everything. What it holds already is not given again.") +
        '\n');
  }
  if (next.changes.empty()) return out.write(tr("Nothing waits for the client.") + '\n');
  for (const LoggedChange& change : next.changes) printChange(out, records, change);
  out.write(
      counted(next.changes.size(), "%1 change waits for the client.", "%1 changes wait for the client.") +
      '\n');
}

void writeRefused(JsonWriter& json, RecordTable& records, const Refusal& refusal,
                  const std::vector<RecordId>& deletions) {
  json.beginObject();
  json.member("digest", std::string_view(refusal.digest));
  json.member("deletions", refusal.deletions);
  json.member("live", refusal.live);
  json.member("refused", refusal.refused);
  json.member("approved", refusal.approved);
  json.key("deleted");
  json.beginArray();
  for (const RecordId each : deletions) {
    const auto record = records.find(each);
    if (!record) continue;
    json.beginObject();
    json.member("record", each);
    json.member("kind", entityName(record->entity));
    json.member("parent", record->parent);
    writeContent(json, record->entity, record->content);
    json.endObject();
  }
  json.endArray();
  json.endObject();
}

void printRefused(Output& out, RecordTable& records, const ClientState& client, const Refusal& refusal,
                  const std::vector<RecordId>& deletions) {
  const std::string name = printable(client.identifier.view());
  out.write(tr("Refused %1: the client lacks %2 of %3 bookmarks and folders.", timeText(refusal.refused),
               refusal.deletions, refusal.live) +
                '\n',
            Style::heading);
  for (const RecordId each : deletions) {
    const auto record = records.find(each);
    if (!record) continue;
    LoggedChange deletion;
    deletion.record = each;
    deletion.entity = record->entity;
    deletion.before = {record->parent, record->place, record->content};
    printChange(out, records, deletion);
  }
  if (refusal.approved) {
    out.write(
        tr("Approved %1: the client's next session deletes them everywhere.", timeText(*refusal.approved)) +
        '\n');
  } else {
    out.write(tr("`loomerctl approve %1` deletes them everywhere at the next session; `loomerctl restore %1` "
                 "restores them in the client.",
                 name) +
              '\n');
  }
}

}  // namespace

Status showPlan(Invocation& run) {
  const auto store = openStoreToRead();
  const ClientState client = clientNamed(*store, run.options.argument);
  RecordTable records(*store);
  RefusalTable refusals(*store);
  // A pending reset or restore goes before a refused plan: the client's next session deletes nothing then.
  const bool pending = client.resetPending || client.restorePending;
  const auto refusal = pending ? std::nullopt : refusals.find(client.id);
  const std::vector<RecordId> deletions = refusal ? refusals.deletions(client.id) : std::vector<RecordId>();
  if (!run.options.json) {
    if (refusal) {
      printRefused(run.out, records, client, *refusal, deletions);
    } else {
      printNext(run.out, records, nextSession(*store, client));
    }
    return statusFine;
  }
  JsonWriter json(run.out);
  json.beginObject();
  json.member("client", client.identifier);
  json.key("refusedPlan");
  if (refusal) {
    writeRefused(json, records, *refusal, deletions);
  } else {
    json.null();
    writeNext(json, nextSession(*store, client));
  }
  json.endObject();
  json.finish();
  return statusFine;
}

namespace {

// Raises `refusal` for a client that is given everything anew at its next session.
void refuseWhereReset(const ClientState& client, const std::string& refusal) {
  if (client.resetPending) throw Refused{refusal};
}

}  // namespace

Status approvePlan(Invocation& run) {
  const std::string& name = run.options.argument;
  const auto store = openStore();
  store->writing([&] {
    const ClientState client = clientNamed(*store, run.options.argument);
    RefusalTable refusals(*store);
    const auto refusal = refusals.find(client.id);
    if (!refusal) {
      throw Refused{tr("There is nothing to approve: no session of \"%1\" was refused.", name)};
    }
    refuseWhereReset(
        client,
        tr("The client \"%1\" is given everything anew at its next session; there is nothing to approve.",
           name));
    if (client.restorePending) {
      throw Refused{
          tr("The client \"%1\" gets back what it lacks at its next session; there is nothing to approve.",
             name)};
    }
    refusals.approve(client.id, Platform::current().clock.now());
    run.out.write(tr("The next session of %1 may delete %2 of %3 bookmarks and folders everywhere, if that "
                     "is still what it would do.",
                     printable(name), refusal->deletions, refusal->live) +
                  '\n');
  });
  return statusFine;
}

Status restoreClient(Invocation& run) {
  const auto store = openStore();
  store->writing([&] {
    const ClientState client = clientNamed(*store, run.options.argument);
    refuseWhereReset(
        client,
        tr("The client \"%1\" is given everything anew at its next session; there is nothing to restore.",
           run.options.argument));
    ClientTable(*store).setRestorePending(client.id, true);
  });
  run.out.write(
      tr("At its next session %1 gets back whatever it lacks. Nothing is deleted because it lacks it.",
         printable(run.options.argument)) +
      '\n');
  return statusFine;
}

Status resetClient(Invocation& run) {
  const auto store = openStore();
  store->writing([&] {
    const ClientState client = clientNamed(*store, run.options.argument);
    ClientTable(*store).setResetPending(client.id, true);
  });
  run.out.write(tr("At its next session %1 is given everything anew. What it changed since its last session "
                   "is lost then, and so is whatever its file holds that is not synced: entries hidden from "
                   "sync, and what other programs stored with an entry. `loomerctl restore` keeps all that.",
                   printable(run.options.argument)) +
                '\n');
  return statusFine;
}

}  // namespace corvane::loomerctl
