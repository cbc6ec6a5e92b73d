#include "tools/loomerctl/StatusText.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

bool endedWithChanges(const ClientView& view) {
  return view.lastChange && view.lastChange->ended == view.state.lastSession;
}

std::string timeOrNever(const std::optional<Date>& date) { return date ? timeText(*date) : tr("never"); }

// A terminal's line has no room for the seconds and the zone.
std::string timeCell(const Output& out, const std::optional<Date>& date) {
  constexpr std::size_t kToTheMinute = 16;
  const std::string text = timeOrNever(date);
  return date && out.terminal() ? text.substr(0, kToTheMinute) : text;
}

void printClients(Output& out, const std::vector<ClientView>& clients) {
  Table table(out, {{tr("CLIENT")},
                    {tr("LAST TRIED"), true},
                    {tr("LAST SYNCED"), true},
                    {tr("RUNS"), true},
                    {tr("FAILED"), true},
                    {tr("OUTCOME")}});
  for (const ClientView& each : clients) {
    if (isOnlineService(each)) continue;
    table.add({shortNameText(clients, each), timeCell(out, lastTried(each)),
               timeCell(out, each.state.lastSession),
               grouped(static_cast<std::size_t>(each.state.sessions + each.failed.all)),
               grouped(static_cast<std::size_t>(each.failed.all)), outcomeText(each)});
  }
  table.finish();
}

std::string serviceText(const std::optional<ServiceState>& service) {
  if (!service) return tr("none; `loomerctl account set` sets one");
  if (!service->problem.empty()) return tr("unknown");
  const std::string place = printable(service->place);
  if (!service->isOn) return tr("off, at %1; `corvanetool --register` switches it on", place);
  const std::string reached = timeOrNever(service->reached);
  if (!service->hasRoom || service->notHeld > 0) return tr("on, at %1; last reached %2", place, reached);
  if (service->waiting == 0) return tr("on, at %1; last reached %2, nothing waits for it", place, reached);
  return counted(service->waiting, "on, at %2; last reached %3, %1 change waits for it",
                 "on, at %2; last reached %3, %1 changes wait for it", place, reached);
}

std::string automaticText(const SyncState& state) {
  if (!state.isAutomatic()) return tr("off; `loomerctl enable` switches it on");
  if (state.units.clients.empty()) return tr("on: every 15 minutes");
  const std::string files =
      counted(state.units.clients.size(), "on: when %1 file changes", "on: when one of %1 files changes");
  return state.units.timer ? tr("%1, and every 15 minutes", files) : files;
}

void printOverview(Output& out, const SyncState& state) {
  if (state.running) writeField(out, tr("Running"), tr("a sync since %1", timeText(*state.running)));
  writeField(out, tr("By itself"), automaticText(state));
  writeField(out, tr("Service"), serviceText(state.service));
  writeField(out, tr("Bookmarks"),
             tr("%1 %2; %3 remembered", counted(state.records.bookmarks, "%1 bookmark", "%1 bookmarks"),
                counted(state.records.folders, "in %1 folder", "in %1 folders"),
                counted(state.records.tombstones, "%1 deletion", "%1 deletions")));
  writeField(out, tr("Store"), printable(state.storePath) + " (" + sizeText(state.storeBytes) + ")");
}

void printWaiting(Output& out, const std::vector<ClientView>& clients) {
  for (const ClientView& each : clients) {
    if (isWaiting(each)) writeField(out, tr("Waiting"), nameText(each) + ": " + nextText(each));
  }
  for (const ClientView& each : clients) {
    for (const KeptFile& file : each.kept) {
      writeField(
          out, tr("Left out"),
          counted(file.entries, "%2: %1 entry that cannot be synced; the file as it was %3 is kept in %4",
                  "%2: %1 entries that cannot be synced; the file as it was %3 is kept in %4", nameText(each),
                  timeText(file.kept), printable(file.path)));
    }
  }
}

// The first line behind a bullet, the others below its text, then the commands in a column.
void printConcern(Output& out, const Concern& concern) {
  const char* before = "- ";
  const std::string lines = wrapped(concern.text, out.columns() - 2);
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t end = lines.find('\n', at) + 1;
    out.write(before + lines.substr(at, end - at));
    before = "  ";
    at = end;
  }
  std::size_t width = 0;
  for (const Way& each : concern.ways) width = std::max(width, displayWidth(each.command));
  for (const Way& each : concern.ways) {
    out.write("    " + each.command, Style::heading);
    out.write(std::string(width - displayWidth(each.command) + 2, ' ') + each.purpose + '\n');
  }
}

void printConcerns(Output& out, const std::string& heading, bool needsUser,
                   const std::vector<Concern>& concerns) {
  bool any = false;
  for (const Concern& each : concerns) {
    if (each.needsUser != needsUser) continue;
    if (!any) out.write('\n' + heading + '\n', Style::heading);
    any = true;
    printConcern(out, each);
  }
}

}  // namespace

const char* outcomeName(const ClientView& view) {
  if (isFailing(view)) return "failed";
  if (!view.state.lastSession) return "never";
  return endedWithChanges(view) ? "changed" : "quiet";
}

std::string outcomeText(const ClientView& view) {
  if (isFailing(view)) {
    return view.failed.inARow == 1 ? tr("failed")
                                   : tr("failed, %1 times", static_cast<std::size_t>(view.failed.inARow));
  }
  if (!view.state.lastSession) return tr("never synced");
  return endedWithChanges(view) ? exchangeText(*view.lastChange, view.conflicts) : tr("nothing new");
}

PushedAndPulled exchangeOf(const SessionEntry& session) {
  if (session.client == kHubClientIdentifier) return {session.delivered, session.changed};
  return {session.changed, session.delivered};
}

std::string exchangeText(const SessionEntry& session, std::size_t conflicts) {
  const PushedAndPulled exchange = exchangeOf(session);
  if (conflicts == 0) return tr("pushed %1, pulled %2", exchange.pushed, exchange.pulled);
  return tr("pushed %1, pulled %2, %3", exchange.pushed, exchange.pulled,
            counted(conflicts, "%1 conflict", "%1 conflicts"));
}

void printStatus(Output& out, const SyncState& state) {
  out.write((state.concerns.empty() ? tr("All is well.") : tr("Not all is well; see below.")) + "\n\n",
            Style::heading);
  printClients(out, state.clients);
  out.write("\n");
  printOverview(out, state);
  printWaiting(out, state.clients);
  printConcerns(out, tr("What needs you"), true, state.concerns);
  printConcerns(out, tr("Warnings"), false, state.concerns);
}

}  // namespace corvane::loomerctl
