#include "tools/loomerctl/report/ReportSections.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/StatusText.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/report/Section.h"
#include "tools/loomerctl/report/SessionChart.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

// How many characters of a value that lost a conflict are shown.
constexpr std::size_t kShownOfValue = 300;

void writeFigure(const PageSink& sink, const std::string& label, std::size_t number) {
  sink("<div><dt>" + asHtml(label) + "</dt><dd>" + grouped(number) + "</dd></div>\n");
}

// What is not well, with the commands that go on from there.
void writeConcern(const PageSink& sink, const Concern& concern) {
  sink(std::string("<div class=\"state ") + (concern.needsUser ? "attention" : "warning") + "\"><p>" +
       sentenceHtml(concern.text) + "</p>\n");
  if (!concern.ways.empty()) {
    sink("<dl>");
    for (const Way& each : concern.ways) {
      sink("<div><dt><code>" + asHtml(each.command) + "</code></dt><dd>" + sentenceHtml(each.purpose) +
           "</dd></div>\n");
    }
    sink("</dl>\n");
  }
  sink("</div>\n");
}

}  // namespace

void writeOverview(const ReportFacts& facts, const PageSink& sink) {
  beginSection(sink, "overview", tr("Overview"));
  if (facts.sync.concerns.empty()) sink("<p class=\"state good\">" + asHtml(tr("All is well.")) + "</p>\n");
  for (const Concern& each : facts.sync.concerns) writeConcern(sink, each);
  sink("<dl class=\"figures\">\n");
  writeFigure(sink, tr("Bookmarks"), facts.sync.records.bookmarks);
  writeFigure(sink, tr("Folders"), facts.sync.records.folders);
  writeFigure(sink, tr("Clients"), facts.sync.clients.size());
  writeFigure(sink, tr("Sessions"), facts.sessions.size());
  writeFigure(sink, tr("Conflicts"), facts.losses.size());
  sink("</dl>\n");
  if (const ClientView* last = facts.sync.lastSynced()) {
    sink("<p>" + asHtml(tr("Last sync: %1, %2", minuteText(*last->state.lastSession), nameText(*last))) +
         "</p>\n");
  }
  endSection(sink);
}

namespace {

std::string clientStateHtml(const ClientView& client) {
  const bool needsUser = isFailing(client) || (client.refusal && !client.refusal->approved);
  const bool isSettled =
      client.state.syncedRevision && !isWaiting(client) && !client.changesMayWait && !client.isPaused;
  const char* const kind = needsUser ? "attention" : isSettled ? "good" : "waiting";
  return std::string("<span class=\"badge ") + kind + "\">" +
         asHtml(isFailing(client) && !client.refusal ? outcomeText(client) : nextText(client)) + "</span>";
}

}  // namespace

void writeClientSection(const ReportFacts& facts, const PageSink& sink) {
  beginSection(sink, "clients", tr("Clients"));
  if (facts.sync.clients.empty()) {
    writeNothing(sink, tr("No client is registered."));
  } else {
    PageTable table(sink, tr("The clients, with what each holds"),
                    {tr("Client"), tr("State"), tr("Holds"), tr("Sessions"), tr("Last session")});
    for (const ClientView& each : facts.sync.clients) {
      const std::string identifier = asHtml(each.state.identifier.view());
      const std::string name =
          each.name ? "<b>" + asHtml(each.name.view()) + "</b> <small>" + identifier + "</small>"
                    : "<b>" + identifier + "</b>";
      table.add({name, clientStateHtml(each), grouped(each.held),
                 grouped(static_cast<std::size_t>(each.state.sessions)),
                 each.state.lastSession ? timeHtml(*each.state.lastSession) : asHtml(tr("never"))});
    }
    table.end();
  }
  endSection(sink);
}

void writeSessionSection(const ReportFacts& facts, const PageSink& sink) {
  beginSection(sink, "sessions", tr("Sessions"));
  if (facts.sessions.empty()) {
    writeNothing(sink, tr("No session changed anything yet."));
    return endSection(sink);
  }
  sink("<p>" +
       asHtml(tr("Sessions in which something changed. Quiet ones are counted with their clients alone.")) +
       "</p>\n");
  sink(sessionChartHtml(facts.sessions, facts.now));
  sink("<details><summary>" + asHtml(tr("The newest sessions as a table")) + "</summary>\n");
  PageTable table(sink, tr("The newest sessions"),
                  {tr("Session"), tr("Began"), tr("By"), tr("Kind"), tr("Outcome")});
  for (std::size_t i = 0; i < std::min(facts.sessions.size(), kMostListed); ++i) {
    const SessionEntry& each = facts.sessions[i];
    table.add({std::to_string(each.id), timeHtml(each.began), asHtml(facts.clientName(each.client)),
               asHtml(kindText(each.mode)), asHtml(exchangeText(each, facts.conflictsIn(each)))});
  }
  table.end();
  writeRest(sink, facts.sessions.size());
  sink("</details>\n");
  endSection(sink);
}

void writeConflictSection(const ReportFacts& facts, const PageSink& sink) {
  beginSection(sink, "conflicts", tr("Conflicts"));
  if (facts.losses.empty()) {
    writeNothing(sink, tr("No value lost a conflict."));
    return endSection(sink);
  }
  sink("<p>" +
       asHtml(tr("Where two clients changed the same thing, one value stood and the other one lost.")) +
       "</p>\n");
  RecordTable records(facts.store);
  PageTable table(sink, tr("Conflicts, the newest first"),
                  {tr("When"), tr("Record"), tr("What"), tr("Stood"), tr("Lost")});
  for (std::size_t i = 0; i < std::min(facts.losses.size(), kMostListed); ++i) {
    const auto& [session, loss] = facts.losses[i];
    const auto value = [](const std::string& text) {
      return "<bdi>" + (text.empty() ? asHtml(tr("(none)")) : asShortHtml(text, kShownOfValue)) + "</bdi>";
    };
    const std::string stood = value(loss.clientWon ? loss.clientValue : loss.truthValue);
    const std::string lost = value(loss.clientWon ? loss.truthValue : loss.clientValue);
    const std::string client = asHtml(facts.clientName(session.client));
    const std::string agreed = asHtml(tr("agreed before"));
    table.add({timeHtml(session.began), "<bdi>" + asHtml(folderText(records, loss.record)) + "</bdi>",
               "<span class=\"word\">" + asHtml(attributeText(loss.attribute)) + "</span>",
               "<ins>" + stood + "</ins> <small>" + (loss.clientWon ? client : agreed) + "</small>",
               "<del>" + lost + "</del> <small>" + (loss.clientWon ? agreed : client) + "</small>"});
  }
  table.end();
  writeRest(sink, facts.losses.size());
  endSection(sink);
}

namespace {

// What a person does with the tree besides folding it, once the script is there. It puts numbers in the place
// of the placeholders.
void writeFinder(const PageSink& sink) {
  sink("<div class=\"finder\" role=\"search\" hidden><label for=\"search\">" +
       asHtml(tr("Search titles and addresses")) +
       "</label><input id=\"search\" type=\"search\" autocomplete=\"off\" spellcheck=\"false\" "
       "aria-describedby=\"found\"><button type=\"button\" id=\"unfold\">" +
       asHtml(tr("Unfold all")) + "</button><button type=\"button\" id=\"fold\">" + asHtml(tr("Fold all")) +
       "</button>\n<p id=\"found\" role=\"status\" data-found=\"" + asHtml(tr("Found: %1", "%1")) +
       "\" data-cut=\"" + asHtml(tr("Found: %1, of which the first %2 are shown", "%1", "%2")) +
       "\"></p></div>\n<ol id=\"results\" class=\"results\" hidden></ol>\n");
}

}  // namespace

void writeBookmarkSection(const ReportFacts& facts, const PageSink& sink) {
  beginSection(sink, "bookmarks", tr("Bookmarks"));
  if (facts.tree.entries().empty()) {
    writeNothing(sink, tr("No bookmarks."));
  } else {
    writeFinder(sink);
    // Elements of a large tree take a browser many times as long as text does, so that the script makes those
    // that are looked at. It takes the tree by lines.
    sink("<noscript class=\"bookmarks\">\n");
    facts.tree.write(sink);
    sink("</noscript>\n");
  }
  endSection(sink);
}

}  // namespace corvane::loomerctl
