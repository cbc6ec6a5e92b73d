// `clients`.

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/ClientViews.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

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
  if (views.empty()) run.out.write(tr("No client is registered.") + '\n');
  Table table(run.out, {{tr("CLIENT")},
                        {tr("NAME")},
                        {tr("HOLDS"), true},
                        {tr("SESSIONS"), true},
                        {tr("LAST SESSION")},
                        {tr("NEXT")}});
  for (const ClientView& each : views) {
    table.add({printable(each.state.identifier.view()), printable(each.name.view()), grouped(each.held),
               grouped(static_cast<std::size_t>(each.state.sessions)),
               each.state.lastSession ? timeText(*each.state.lastSession) : tr("never"), nextText(each)});
  }
  table.finish();
  return statusFine;
}

}  // namespace corvane::loomerctl
