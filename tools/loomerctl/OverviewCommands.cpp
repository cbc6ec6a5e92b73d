// `status` and `clients`.

#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/KeptFiles.h"
#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

struct ClientView {
  ClientState state;
  String name;         // for people; absent where the description has none
  String tool, image;  // paths relative to the description; absent like the name
  std::size_t held = 0;
  bool changesMayWait = false;  // the truth changed since its last session
  std::optional<Refusal> refusal;
  std::vector<KeptFile> kept;
};

std::vector<ClientView> clientViews(TruthStore& store) {
  ClientTable clients(store);
  BaseTable bases(store);
  RefusalTable refusals(store);
  const TruthState truth = RecordTable(store).state();
  std::vector<ClientView> views;
  for (ClientState& each : clients.all()) {
    ClientView& view = views.emplace_back();
    const Dictionary description = clients.description(each.id);
    view.name = description.string("DisplayName");
    view.tool = description.string("ToolPath");
    view.image = description.string("ImagePath");
    view.held = bases.heldCount(each.id);
    view.changesMayWait = mayHaveNews(each, truth);
    view.refusal = refusals.find(each.id);
    view.kept = KeptFiles(store.path(), each.identifier).all();
    view.state = std::move(each);
  }
  return views;
}

// "Corvane (com.keldra.Corvane)".
std::string nameText(const ClientView& view) {
  const std::string identifier = printable(view.state.identifier.view());
  return view.name ? printable(view.name.view()) + " (" + identifier + ')' : identifier;
}

std::string refusalText(const Refusal& refusal) {
  return "refused: would delete " + grouped(refusal.deletions) + " of " + grouped(refusal.live) +
         (refusal.approved ? ", approved" : "");
}

// Whether somebody decided, or has to decide, about the client's next session.
bool isWaiting(const ClientView& view) {
  return view.state.resetPending || view.state.restorePending || view.refusal;
}

std::string nextText(const ClientView& view) {
  if (view.state.resetPending) return "will be replaced";
  if (view.state.restorePending) return "will get back what it lacks";
  if (view.refusal) return refusalText(*view.refusal);
  if (!view.state.syncedRevision) return "first session";
  return view.changesMayWait ? "changes may be waiting" : "up to date";
}

void writeRefusal(JsonWriter& json, const std::optional<Refusal>& refusal) {
  json.key("refusedPlan");
  if (!refusal) return json.null();
  json.beginObject();
  json.member("deletions", refusal->deletions);
  json.member("live", refusal->live);
  json.member("refused", refusal->refused);
  json.member("approved", refusal->approved);
  json.endObject();
}

struct StoreView {
  std::uint64_t bytes = 0;
  TruthState truth;
  RecordCounts records;
  std::size_t sessions = 0;
  std::vector<ClientView> clients;
  const ClientView* lastSynced = nullptr;
};

StoreView storeView(TruthStore& store) {
  StoreView view;
  view.bytes = store.bytes();
  view.truth = RecordTable(store).state();
  view.records = RecordTable(store).counts();
  view.sessions = SessionLog(store).count();
  view.clients = clientViews(store);
  for (const ClientView& each : view.clients) {
    if (!each.state.lastSession) continue;
    if (!view.lastSynced || *view.lastSynced->state.lastSession < *each.state.lastSession) {
      view.lastSynced = &each;
    }
  }
  return view;
}

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

void writeStatus(JsonWriter& json, const StoreView& view, const std::string& path) {
  json.beginObject();
  json.member("store", path);
  json.member("bytes", view.bytes);
  json.member("formatVersion", storeMigrations().size());
  json.member("revision", view.truth.revision);
  json.member("folders", view.records.folders);
  json.member("bookmarks", view.records.bookmarks);
  json.member("deletedRemembered", view.records.tombstones);
  json.member("loggedSessions", view.sessions);
  json.member("clients", view.clients.size());
  json.key("lastSession");
  if (view.lastSynced) {
    json.beginObject();
    json.member("client", view.lastSynced->state.identifier);
    json.member("name", view.lastSynced->name);
    json.member("ended", view.lastSynced->state.lastSession);
    json.endObject();
  } else {
    json.null();
  }
  json.key("waiting");
  json.beginArray();
  for (const ClientView& each : view.clients) {
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
  writeKept(json, view.clients);
  json.endObject();
  json.finish();
}

void printStatus(Output& out, const StoreView& view, const std::string& path) {
  const auto line = [&out](const char* label, const std::string& text) { writeField(out, label, text); };
  line("Store", printable(path) + " (" + sizeText(view.bytes) + ")");
  line("Bookmarks", countText(view.records.bookmarks, "bookmark", "bookmarks") + " in " +
                        countText(view.records.folders, "folder", "folders") + "; " +
                        countText(view.records.tombstones, "deletion", "deletions") + " remembered");
  line("Clients", grouped(view.clients.size()));
  line("Sessions", countText(view.sessions, "session", "sessions") + " in the log; revision " +
                       std::to_string(view.truth.revision));
  line("Last sync", view.lastSynced
                        ? timeText(*view.lastSynced->state.lastSession) + ", " + nameText(*view.lastSynced)
                        : "never");
  for (const ClientView& each : view.clients) {
    if (!isWaiting(each)) continue;
    line("Waiting", nameText(each) + ' ' + nextText(each));
  }
  for (const ClientView& each : view.clients) {
    for (const KeptFile& file : each.kept) {
      line("Left out", nameText(each) + ": " + countText(file.entries, "entry", "entries") +
                           " that cannot be synced; the file as it was " + timeText(file.kept) +
                           " is kept in " + printable(file.path));
    }
  }
}

}  // namespace

Status showStatus(Invocation& run) {
  const auto store = openStoreToRead();
  const StoreView view = storeView(*store);
  if (run.options.json) {
    JsonWriter json(run.out);
    writeStatus(json, view, store->path());
  } else {
    printStatus(run.out, view, store->path());
  }
  return statusFine;
}

namespace {

void writeClients(JsonWriter& json, const std::vector<ClientView>& views) {
  json.beginArray();
  for (const ClientView& each : views) {
    json.beginObject();
    json.member("identifier", each.state.identifier);
    json.member("name", each.name);
    json.member("tool", each.tool);
    json.member("image", each.image);
    json.member("registered", each.state.registered);
    json.member("lastSession", each.state.lastSession);
    json.member("sessions", each.state.sessions);
    json.member("held", each.held);
    json.member("syncedRevision", each.state.syncedRevision);
    json.member("changesMayWait", each.changesMayWait);
    json.member("resetPending", each.state.resetPending);
    json.member("giveBackPending", each.state.restorePending);
    writeRefusal(json, each.refusal);
    json.endObject();
  }
  json.endArray();
  json.finish();
}

}  // namespace

Status showClients(Invocation& run) {
  const auto store = openStoreToRead();
  const std::vector<ClientView> views = clientViews(*store);
  if (run.options.json) {
    JsonWriter json(run.out);
    writeClients(json, views);
    return statusFine;
  }
  if (views.empty()) run.out.write("No client is registered.\n");
  Table table(run.out,
              {{"CLIENT"}, {"NAME"}, {"HOLDS", true}, {"SESSIONS", true}, {"LAST SESSION"}, {"NEXT"}});
  for (const ClientView& each : views) {
    table.add({printable(each.state.identifier.view()), printable(each.name.view()), grouped(each.held),
               grouped(static_cast<std::size_t>(each.state.sessions)),
               each.state.lastSession ? timeText(*each.state.lastSession) : "never", nextText(each)});
  }
  table.finish();
  return statusFine;
}

}  // namespace corvane::loomerctl
