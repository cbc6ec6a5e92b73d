#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/report/ReportSections.h"
#include "tools/loomerctl/report/Section.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

// The page shows the changes of the newest sessions, as many as a person looks through, with a share for
// each: a first session adds everything there is.
constexpr std::size_t kMostChanges = 200;
constexpr std::size_t kMostOfSession = 50;
// A session with more is folded.
constexpr std::size_t kUnfoldedChanges = 10;
constexpr std::size_t kShownOfAttribute = 300;

std::string whereHtml(RecordTable& records, const LoggedState& state) {
  return " <small>" + asHtml(insideText(records, state.parent)) + "</small>";
}

std::string subjectHtml(Entity entity, const Content& content) {
  if (entity == Entity::bookmark) return bookmarkHtml(content);
  return "<b>" + asHtml(content.name.view()) + "</b>";
}

std::string attributesHtml(RecordTable& records, const LoggedChange& change) {
  std::string html = "<dl>";
  for (const AttributeChange& each : attributeChanges(records, *change.before, *change.after)) {
    html += "<div><dt>" + asHtml(each.attribute) + "</dt><dd><del>" +
            asShortHtml(each.before, kShownOfAttribute) + "</del> <ins>" +
            asShortHtml(each.after, kShownOfAttribute) + "</ins></dd></div>";
  }
  return html + "</dl>";
}

std::string changeHtml(RecordTable& records, const LoggedChange& change) {
  if (!change.before) {
    return "<li class=\"added\"><span class=\"kind\">" + asHtml(tr("added")) + "</span> " +
           subjectHtml(change.entity, change.after->content) + whereHtml(records, *change.after) + "</li>\n";
  }
  if (!change.after) {
    return "<li class=\"deleted\"><span class=\"kind\">" + asHtml(tr("deleted")) + "</span> " +
           subjectHtml(change.entity, change.before->content) + whereHtml(records, *change.before) +
           "</li>\n";
  }
  return "<li class=\"changed\"><span class=\"kind\">" + asHtml(tr("changed")) + "</span> " +
         subjectHtml(change.entity, change.after->content) + attributesHtml(records, change) + "</li>\n";
}

// At most `most` of the session's changes, as items of a list; answers how many.
std::size_t changesHtml(TruthStore& store, std::int64_t session, std::size_t most, std::string& html) {
  RecordTable records(store);
  std::size_t count = 0;
  SessionLog(store).changesOf(session, std::nullopt, [&](const LoggedChange& change) {
    if (!change.before && !change.after) return true;
    html += changeHtml(records, change);
    return ++count < most;
  });
  return count;
}

// Answers how many changes are shown.
std::size_t writeSessionChanges(const ReportFacts& facts, const PageSink& sink, const SessionEntry& session,
                                std::size_t most) {
  std::string changes;
  const std::size_t shown = changesHtml(facts.store, session.id, most, changes);
  if (shown == 0) return 0;
  const std::string number = std::to_string(session.id);
  sink("<li><h3>" + timeHtml(session.began) + " <bdi>" + asHtml(facts.clientName(session.client)) +
       "</bdi></h3>\n<details" + (shown <= kUnfoldedChanges ? " open" : "") + "><summary>" +
       asHtml(counted(session.changed, "%1 record changed in session %2", "%1 records changed in session %2",
                      number)) +
       "</summary>\n<ul>\n" + changes + "</ul>\n");
  if (shown < session.changed) {
    sink("<p class=\"rest\">" +
         sentenceHtml(tr("%1 of %2 are listed. `loomerctl changes --session %3` shows all.", shown,
                         session.changed, number)) +
         "</p>\n");
  }
  sink("</details></li>\n");
  return shown;
}

}  // namespace

void writeChangeSection(const ReportFacts& facts, const PageSink& sink) {
  beginSection(sink, "changes", tr("Last changes"));
  if (facts.sessions.empty()) {
    writeNothing(sink, tr("No session changed anything yet."));
    return endSection(sink);
  }
  sink("<ol class=\"log\">\n");
  std::size_t left = kMostChanges;
  for (const SessionEntry& each : facts.sessions) {
    left -= writeSessionChanges(facts, sink, each, std::min(left, kMostOfSession));
    if (left == 0) break;
  }
  sink("</ol>\n");
  endSection(sink);
}

}  // namespace corvane::loomerctl
