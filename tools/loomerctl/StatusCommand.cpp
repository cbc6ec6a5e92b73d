// `status`.

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/StatusText.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

// The files that lost entries, as they were before.
void writeKept(JsonWriter& json, const std::vector<ClientView>& clients) {
  json.key("keptFiles");
  json.beginArray();
  for (const ClientView& each : clients) {
    for (const KeptFile& file : each.kept) {
      json.beginObject();
      json.member("client", each.state.identifier);
      json.member("name", each.name);
      json.member("entriesLeftOut", file.entries);
      json.member("kept", file.kept);
      json.member("path", file.path);
      json.endObject();
    }
  }
  json.endArray();
}

void writeWaiting(JsonWriter& json, const std::vector<ClientView>& clients) {
  json.key("waiting");
  json.beginArray();
  for (const ClientView& each : clients) {
    if (!isWaiting(each)) continue;
    json.beginObject();
    json.member("client", each.state.identifier);
    json.member("name", each.name);
    json.member("resetPending", each.state.resetPending);
    json.member("giveBackPending", each.state.restorePending);
    writeRefusal(json, each.refusal);
    json.endObject();
  }
  json.endArray();
}

void writeLastSession(JsonWriter& json, const SyncState& state) {
  json.key("lastSession");
  const ClientView* const last = state.lastSynced();
  if (!last) return json.null();
  json.beginObject();
  json.member("client", last->state.identifier);
  json.member("name", last->name);
  json.member("ended", last->state.lastSession);
  json.endObject();
}

void writeSyncs(JsonWriter& json, const std::vector<ClientView>& clients) {
  json.key("syncs");
  json.beginArray();
  for (const ClientView& each : clients) {
    json.beginObject();
    json.member("client", each.state.identifier);
    json.member("name", each.name);
    json.member("registered", each.isRegistered);
    json.member("paused", each.isPaused);
    json.member("lastTried", lastTried(each));
    json.member("lastSucceeded", each.state.lastSession);
    json.member("outcome", outcomeName(each));
    json.member("cause", isFailing(each) ? String(tr(each.failed.cause)) : String());
    json.member("succeededRuns", each.state.sessions);
    json.member("failedRuns", each.failed.all);
    json.member("failedInARow", each.failed.inARow);
    json.member("lastChange", each.lastChange ? std::optional(each.lastChange->id) : std::nullopt);
    json.endObject();
  }
  json.endArray();
}

void writeService(JsonWriter& json, const std::optional<ServiceState>& service) {
  json.key("service");
  if (!service) return json.null();
  json.beginObject();
  json.member("place", service->place);
  json.member("on", service->isOn);
  json.member("reached", service->reached);
  json.member("waiting", service->waiting);
  json.member("hasRoom", service->hasRoom);
  json.member("notHeld", service->notHeld);
  json.member("failedInARow", service->failed.inARow);
  json.member("failingSince",
              service->failed.inARow > 0 ? std::optional(service->failed.since) : std::nullopt);
  json.member("problem", service->problem.empty() ? String() : String(service->problem));
  json.endObject();
}

void writeAutomatic(JsonWriter& json, const EnabledUnits& units) {
  json.key("automatic");
  json.beginObject();
  json.member("timer", units.timer);
  json.key("clients");
  json.beginArray();
  for (const String& each : units.clients) json.value(each);
  json.endArray();
  json.endObject();
}

void writeConcerns(JsonWriter& json, const std::vector<Concern>& concerns) {
  json.key("concerns");
  json.beginArray();
  for (const Concern& each : concerns) {
    json.beginObject();
    json.member("kind", each.kind);
    json.member("needsUser", each.needsUser);
    json.member("text", each.text);
    json.key("commands");
    json.beginArray();
    for (const Way& way : each.ways) json.value(way.command);
    json.endArray();
    json.endObject();
  }
  json.endArray();
}

void writeStatus(JsonWriter& json, const SyncState& state) {
  json.beginObject();
  json.member("well", state.concerns.empty());
  json.member("store", state.storePath);
  json.member("bytes", state.storeBytes);
  json.member("formatVersion", storeMigrations().size());
  json.member("revision", state.truth.revision);
  json.member("folders", state.records.folders);
  json.member("bookmarks", state.records.bookmarks);
  json.member("deletedRemembered", state.records.tombstones);
  json.member("loggedSessions", state.sessions);
  json.member("clients", static_cast<std::size_t>(
                             std::count_if(state.clients.begin(), state.clients.end(),
                                           [](const ClientView& each) { return each.isRegistered; })));
  writeLastSession(json, state);
  json.member("running", state.running);
  writeSyncs(json, state.clients);
  writeAutomatic(json, state.units);
  writeService(json, state.service);
  writeConcerns(json, state.concerns);
  writeWaiting(json, state.clients);
  writeKept(json, state.clients);
  json.endObject();
  json.finish();
}

}  // namespace

namespace {

// As openStoreToRead; where there is none because no run succeeded yet, it says so.
std::unique_ptr<TruthStore> storeOrItsCause() {
  for (const auto& [client, runs] : FailedRuns(storePath()).all()) {
    if (runs.inARow == 0 || openStoreIfAny()) continue;
    throw Refused{tr("There is no store yet, since the last run of %1, on %2, failed: %3", client,
                     timeText(runs.last), runs.cause)};
  }
  return openStoreToRead();
}

}  // namespace

Status showStatus(Invocation& run) {
  const auto store = storeOrItsCause();
  BookmarksFiles files;
  const SyncState state = syncState(*store, files);
  if (run.options.json) {
    JsonWriter json(run.out);
    writeStatus(json, state);
  } else {
    printStatus(run.out, state);
  }
  return state.concerns.empty() ? statusFine : statusRefused;
}

}  // namespace corvane::loomerctl
